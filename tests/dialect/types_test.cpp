// The server dialect's types: literals, precedence and the result types of arithmetic, CASE,
// ISNULL and COALESCE, as the server documents them.

#include <gtest/gtest.h>

#include "billdata/dialect/catalog.h"
#include "billdata/dialect/types.h"

namespace billdata::dialect {
namespace {

std::string literal(std::string_view token) {
    return type_name(literal_type(token));
}

TEST(SqlTypes, LiteralsTakeTheTypeTheirSpellingGives) {
    EXPECT_EQ(literal("12"), "int");
    EXPECT_EQ(literal("2147483647"), "int");
    // A whole number past int is a decimal, not a bigint.
    EXPECT_EQ(literal("3000000000"), "decimal(10,0)");
    EXPECT_EQ(literal("1.50"), "decimal(3,2)");
    EXPECT_EQ(literal("0.5"), "decimal(1,1)");
    EXPECT_EQ(literal("1e2"), "float");
    EXPECT_EQ(literal("'x'"), "varchar(1)");
    EXPECT_EQ(literal("'it''s'"), "varchar(4)");
    EXPECT_EQ(literal("N'中文'"), "nvarchar(2)");
}

TEST(SqlTypes, DecimalArithmeticFollowsThePrecisionAndScaleRules) {
    const SqlType money_column = SqlType::decimal(18, 4);
    const SqlType two_places = SqlType::decimal(5, 2);
    auto result = [](ArithOp op, const SqlType& a, const SqlType& b) {
        return type_name(arithmetic_type(op, a, b));
    };
    EXPECT_EQ(result(ArithOp::Add, money_column, two_places), "decimal(19,4)");
    EXPECT_EQ(result(ArithOp::Mul, money_column, two_places), "decimal(24,6)");
    EXPECT_EQ(result(ArithOp::Div, money_column, two_places), "decimal(26,10)");
    // An int operand counts as decimal(10,0).
    EXPECT_EQ(result(ArithOp::Mul, SqlType::of(SqlBase::Int), two_places), "decimal(16,2)");
    // Past 38 digits the integral part is kept and the scale gives way, down to 6 places.
    EXPECT_EQ(result(ArithOp::Mul, SqlType::decimal(38, 10), SqlType::decimal(38, 10)),
              "decimal(38,6)");
    EXPECT_EQ(result(ArithOp::Div, SqlType::decimal(38, 4), SqlType::decimal(10, 2)),
              "decimal(38,6)");
    EXPECT_EQ(result(ArithOp::Add, SqlType::decimal(38, 4), SqlType::decimal(38, 30)),
              "decimal(38,4)");
    // Whole numbers stay in the higher type; float wins over decimal.
    EXPECT_EQ(result(ArithOp::Add, SqlType::of(SqlBase::SmallInt), SqlType::of(SqlBase::Int)),
              "int");
    EXPECT_EQ(result(ArithOp::Add, SqlType::of(SqlBase::Float), two_places), "float");
    // A number whose exact type is not known claims no exactness.
    EXPECT_FALSE(
        arithmetic_type(ArithOp::Add, SqlType::of(SqlBase::Number), two_places).is_exact_numeric());
}

TEST(SqlTypes, CaseIsNullAndCoalesceTakeTheirDocumentedTypes) {
    const SqlType short_text = SqlType::text(SqlBase::VarChar, 3);
    const SqlType long_text = SqlType::text(SqlBase::VarChar, 6);
    EXPECT_EQ(type_name(isnull_type(short_text, long_text)), "varchar(3)");
    EXPECT_EQ(type_name(common_type(short_text, long_text)), "varchar(6)");
    EXPECT_EQ(type_name(common_type(short_text, SqlType::of(SqlBase::Int))), "int");
    EXPECT_EQ(type_name(common_type(SqlType::decimal(5, 2), SqlType::decimal(10, 0))),
              "decimal(12,2)");
    EXPECT_EQ(type_name(comparison_type(SqlType::of(SqlBase::DateTime), long_text)), "datetime");
    EXPECT_EQ(type_name(comparison_type(SqlType::text(SqlBase::NVarChar, 2), long_text)),
              "nvarchar(2)");
}

TEST(SqlTypes, DeclarationsAndTheCataloguesCoarseTypes) {
    EXPECT_EQ(type_name(type_from_declaration("NUMERIC", 0, 18, 4)), "decimal(18,4)");
    EXPECT_EQ(type_name(type_from_declaration("decimal", 0, 0, 0)), "decimal(18,0)");
    EXPECT_EQ(type_name(type_from_declaration("nvarchar", -1, 0, 0)), "nvarchar(max)");
    EXPECT_EQ(type_name(type_from_declaration("char", 0, 0, 0)), "char(1)");
    EXPECT_FALSE(type_from_declaration("geography", 0, 0, 0).known());

    Catalog catalog;
    catalog.add_column("ICStockBill", "FInterID", ColumnType::Integer);
    catalog.add_column("ICStockBill", "FSumAmount", ColumnType::Real);
    ColumnType coarse;
    SqlType sql;
    // Without a declaration a real column is only known to be a number.
    ASSERT_TRUE(catalog.find_column("icstockbill", "fsumamount", &coarse, &sql));
    EXPECT_EQ(sql.base, SqlBase::Number);
    EXPECT_TRUE(catalog.set_declared_type("ICSTOCKBILL", "FSumAmount", SqlType::decimal(18, 4)));
    ASSERT_TRUE(catalog.find_column("ICStockBill", "FSumAmount", &coarse, &sql));
    EXPECT_EQ(type_name(sql), "decimal(18,4)");
    EXPECT_EQ(coarse, ColumnType::Real);
    EXPECT_FALSE(catalog.set_declared_type("ICStockBill", "FNoSuch", SqlType::decimal(18, 4)));
}

}  // namespace
}  // namespace billdata::dialect
