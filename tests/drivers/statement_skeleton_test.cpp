// Statements built from a skeleton and values: the text as concatenation makes it, its literals
// where the scan finds them, and a statement cache that keeps them apart.

#include "billdata/ado/statement.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/dialect/dialect.h"
#include "drivers/sqlite_fixture.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::create_database;
using billdata::testing::error_of;
using billdata::testing::scalar;
using billdata::testing::sqlite_connection;
using billdata::testing::TempDir;

// The literals and the kinds of numbers of the text, as the scan finds them.
void expect_scanned_shape(const Statement& st) {
    SCOPED_TRACE(std::string(st.text()));
    const billdata::dialect::Shape scanned = billdata::dialect::statement_shape(st.text());
    ASSERT_FALSE(st.key().empty());
    ASSERT_EQ(st.literals().size(), scanned.literals.size());
    for (std::size_t i = 0; i < scanned.literals.size(); ++i) {
        const StatementLiteral& ours = st.literals()[i];
        EXPECT_EQ(ours.offset, scanned.literals[i].offset) << i;
        EXPECT_EQ(ours.length, scanned.literals[i].length) << i;
        EXPECT_EQ(static_cast<int>(ours.kind), static_cast<int>(scanned.literals[i].kind)) << i;
        const std::string_view text = st.text().substr(ours.offset, ours.length);
        if (ours.whole >= 0) {
            EXPECT_EQ(std::to_string(ours.whole), text) << i;
        }
    }
}

TEST(StatementSkeleton, TextAndLiteralsAreWhatTheScanFinds) {
    const Skeleton line(
        "Insert Into T(FID,FKind,FKey,FQty,FName,FMemo) Values({},99,'{}',{},N'{}','到{},单号:{}')");
    Statement st;
    st.build(line, 12, 3, -2.5, "O''Brien", 89.5, "x-1");
    EXPECT_EQ(st.text(),
              "Insert Into T(FID,FKind,FKey,FQty,FName,FMemo) Values(12,99,'3',-2.5,N'O''Brien','到"
              "89.5,单号:x-1')");
    expect_scanned_shape(st);

    // Numbers of every form a value takes, and caller's fields.
    const Skeleton update(
        "Update T set FQty=isnull(FQty,0)+{},FName='{}' where FID={} and FQty>={}");
    for (const Variant& qty :
         {Variant(1e20), Variant(-80.0), Variant(0.1), Variant(std::int32_t(7))}) {
        st.build(update, qty, QuotedText{"it's"}, Variant(std::int16_t(-4)), -1e-7);
        EXPECT_EQ(st.text(),
                  "Update T set FQty=isnull(FQty,0)+" + qty.to_string() +
                      ",FName='it''s' where FID=-4 and FQty>=" + Variant::format_double(-1e-7));
        expect_scanned_shape(st);
    }
}

TEST(StatementSkeleton, ValuesThatAreNoLiteralLeaveTheShapeToTheScan) {
    const Skeleton s("select {} from T where FName='{}'");
    Statement st;
    st.build(s, Variant("FID"), "a");  // a word where a number goes
    EXPECT_EQ(st.text(), "select FID from T where FName='a'");
    EXPECT_TRUE(st.key().empty());
    st.build(s, 1, "it's");  // a lone quote ends the text early
    EXPECT_EQ(st.text(), "select 1 from T where FName='it's'");
    EXPECT_TRUE(st.key().empty());
    st.build(s, 1, "a");
    EXPECT_FALSE(st.key().empty());

    EXPECT_THROW(Skeleton("select F{} from T"), std::logic_error);
    EXPECT_THROW(Skeleton("select 1-{} from T"), std::logic_error);
    EXPECT_THROW(Skeleton("select {}.5 from T"), std::logic_error);
    EXPECT_THROW(Skeleton("select {} from T where FName=[{}]"), std::logic_error);
    EXPECT_THROW(st.build(s, 1), std::logic_error);
}

TEST(StatementSkeleton, EachStatementRunsWithItsOwnValues) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::kItemTable);
    // The first select's literal is written inline by the translator (it names the column), so
    // one cached translation must not serve another value; a word runs as the text says.
    const Skeleton pick("select {}, FName from T where FID={}");
    const Skeleton same_text("select {}, FName from T where FID={}");
    for (const char* options : {";Statement Cache=True", ";Statement Cache=False"}) {
        SCOPED_TRACE(options);
        auto cn = Connection::create();
        cn->Open(sqlite_connection(db, options));
        Statement st;
        auto first = [&] {
            auto rs = cn->Execute(st);
            return rs->Fields(std::size_t{0}).Value().to_string() + "/" +
                   rs->Fields(std::size_t{1}).Value().to_string();
        };
        st.build(pick, 5, 1);
        EXPECT_EQ(first(), "5/shirt");
        st.build(pick, 6, 2);
        EXPECT_EQ(first(), "6/coat");
        st.build(same_text, 2.5, 3);
        EXPECT_EQ(first(), "2.5/hat");
        st.build(pick, Variant("FID"), 2);
        EXPECT_EQ(first(), "2/coat");
        const Skeleton insert("insert into T(FID,FName,FQty) values({},'{}',{})");
        long affected = 0;
        st.build(insert, 10, std::string(options).substr(1, 5), 1.25);
        cn->Execute(st, &affected, adExecuteNoRecords);
        EXPECT_EQ(affected, 1);
        st.build(pick, 0, 10);
        EXPECT_EQ(first(), "0/State");
        cn->Execute("delete from T where FID=10");
        cn->Close();
    }
}

// An amount bound for a decimal(6,2) column is stored as written when it has no more decimals
// than the column keeps, rounded when it has more; beyond the column's four whole digits,
// before or after rounding, it is the overflow (8115) and nothing is stored.
TEST(StatementSkeleton, AmountsAreFittedToTheirColumn) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, "create table N(FID INTEGER, FAmount REAL);" +
                            billdata::testing::declared_decimal("N", "FAmount", 6, 2));
    const Skeleton insert("insert into N(FID, FAmount) values({}, {})");
    for (const char* options : {";Statement Cache=True", ";Statement Cache=False"}) {
        SCOPED_TRACE(options);
        auto cn = Connection::create();
        cn->Open(sqlite_connection(db, options));
        Statement st;
        int id = 0;
        for (double amount : {1234.5, 9999.99, -9999.99, 1234.567, 0.125, 9999.994}) {
            st.build(insert, ++id, amount);
            cn->Execute(st);
        }
        for (double amount : {10000.5, 9999.995, -10000.0, 123456.0}) {
            st.build(insert, ++id, amount);
            EXPECT_EQ(error_of([&] { cn->Execute(st); }).native_code(), 8115) << amount;
        }
        cn->Close();
        EXPECT_EQ(scalar(db, "select group_concat(FAmount, ' ') from N"),
                  "1234.5 9999.99 -9999.99 1234.57 0.13 9999.99");
        create_database(db, "delete from N");
    }
}

// A cached statement binds a built statement's values themselves once its shape is prepared.
// Each row is saved twice (the second time through the values) and must read back, types and
// all, as the statements' texts store it with the cache off: signs, whole and decimal numbers,
// numbers only their text says exactly, amounts fitted to their column, texts with quotes,
// numbers in texts, and texts with values inside.
TEST(StatementSkeleton, ValuesBindAsTheirTextsRead) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    const std::string table =
        "create table V(FID INTEGER, FKey INTEGER, FNum REAL, FAmount REAL, FName TEXT, "
        "FMemo TEXT, FWide TEXT);" +
        billdata::testing::declared_decimal("V", "FAmount", 12, 2);
    create_database(db, table);
    const Skeleton insert(
        "insert into V(FID,FKey,FNum,FAmount,FName,FMemo,FWide) "
        "values({},{},{},{},'{}','到{},单号:{}',N'{}')");
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    auto rows = [&](const char* options) {
        auto cn = Connection::create();
        cn->Open(sqlite_connection(db, options));
        Statement st;
        int id = 0;
        auto twice = [&](auto key, auto num, double amount, auto name, auto memo) {
            for (int k = 0; k < 2; ++k) {
                st.build(insert, ++id, key, num, amount, name, memo, QuotedText{"x'y"}, "宽");
                cn->Execute(st);
            }
        };
        twice(0, 0.1, 0.05, "O''Brien", 89.5);
        twice(-5, -2.5, -1234.56, QuotedText{"it's"}, QuotedText{"a'b"});
        twice(123456789012345678, 1234.5678, 9.999, 42, -7);
        twice(std::int64_t{1234567890123456789}, 0.123456, 12.345678, 2.5, "c''d");
        twice(kMin, 1.0 / 3, 7.0, Variant("abc"), Variant(1.25));
        twice("17", 1e20, -0.0, Variant(std::int32_t(9)), 1e-7);
        twice("-3", -0.0, 100.0, "", "");
        cn->Close();
        return scalar(db,
                      "select group_concat(FID||':'||typeof(FKey)||FKey||'/'||typeof(FNum)||FNum||"
                      "'/'||typeof(FAmount)||FAmount||'/'||FName||'/'||FMemo||'/'||FWide, ' ') "
                      "from V");
    };
    const std::string as_written = rows(";Statement Cache=False");
    create_database(db, "delete from V");
    EXPECT_EQ(rows(";Statement Cache=True"), as_written);
    EXPECT_NE(as_written.find("/real0.05/"), std::string::npos) << as_written;
}

}  // namespace
