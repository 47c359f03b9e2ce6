// A statement that the server dialect refuses fails on every engine with the server's own error
// number as the error's native code, whether the translator finds it or the engine's run does;
// the statement alone is undone.

#include "fixture.h"

namespace billdata::testing {
namespace {

TEST_F(DatabaseTest, ServerErrorsReachTheCallerWithTheServersNumber) {
    exec(
        "insert into t_Stock(FItemID, FNumber, FName) values (1, '01', 'Main'), (2, 'B2', 'Side')");
    // Each with the server's own message, whichever engine ran it.
    const struct {
        const char* sql;
        int number;
        const char* message;
    } cases[] = {
        {"select count(*) from t_Stock where FNumber = 1", 245,
         "在将 varchar 值 'B2' 转换成数据类型 int 时失败。"},
        {"select cast('2025-02-30' as datetime)", 242,
         "从 varchar 数据类型到 datetime 数据类型的转换产生一个超出范围的值。"},
        {"select cast('2025-02-3x' as datetime)", 241, "从字符串转换日期和/或时间时，转换失败。"},
        {"select FItemID + 2147483647 from t_Stock where FItemID = 2", 8115,
         "将 expression 转换为数据类型 int 时出现算术溢出错误。"},
        {"select cast(FItemID * 100 as decimal(3,1)) from t_Stock where FItemID = 2", 8115,
         "将 int 转换为数据类型 numeric 时出现算术溢出错误。"},
        {"select cast(FItemID * 200000 as smallmoney) from t_Stock where FItemID = 2", 8115,
         "将 int 转换为数据类型 smallmoney 时出现算术溢出错误。"},
        {"select cast(FItemID * 450000000000000 as money) / cast(0.5 as money) from t_Stock "
         "where FItemID = 2",
         8115, "将 expression 转换为数据类型 money 时出现算术溢出错误。"},
        {"select cast(90000000 as decimal(38,30)) + cast(90000000 as decimal(38,30))", 8115,
         "将 expression 转换为数据类型 numeric 时出现算术溢出错误。"},
        {"insert into ICStockBillEntry(FInterID, FEntryID, FPrice) values (1, 1, 100000000000000)",
         8115, "将 numeric 转换为数据类型 numeric 时出现算术溢出错误。"},
        {"select (select FItemID from t_Stock)", 512,
         "子查询返回的值不止一个。当子查询跟随在 =、!=、<、<=、>、>= "
         "之后，或子查询用作表达式时，这种情况是不允许的。"},
        {"select 10 / (FItemID - 1) from t_Stock where FItemID = 1", 8134, "遇到以零作除数错误。"},
        {"select 7.5 / (FItemID - 2) from t_Stock where FItemID = 2", 8134, "遇到以零作除数错误。"},
        {"select 7 % (FItemID - 1) from t_Stock where FItemID = 1", 8134, "遇到以零作除数错误。"},
        {"select FName, count(*) from t_Stock", 8120,
         "选择列表中的列 't_Stock.FName' 无效，因为该列没有包含在聚合函数或 GROUP BY "
         "子句中。"},
        {"select FNumber, count(*) from t_Stock group by FNumber order by FName", 8127,
         "列 \"t_Stock.FName\" 在 ORDER BY 子句中无效，因为该列没有包含在聚合函数或 GROUP BY "
         "子句中。"},
        {"select FItemID from t_Stock where FItemID = (select max(t_Stock.FItemID) from "
         "ICStockBill)",
         147,
         "聚合不应出现在 WHERE 子句中，除非该聚合位于 HAVING "
         "子句或选择列表所包含的子查询中，并且要对其进行聚合的列是外部引用。"},
        {"select top 1 with ties FItemID from t_Stock", 1062,
         "The TOP N WITH TIES clause is not allowed without a corresponding ORDER BY clause."},
    };
    auto cn = open();
    for (const auto& c : cases) {
        const ado::ComError e = error_of([&] { cn->Execute(c.sql); });
        EXPECT_EQ(e.native_code(), c.number) << c.sql << ": " << e.description();
        EXPECT_EQ(e.number(), ado::err::kDatabase) << c.sql;
        EXPECT_EQ(e.description(), c.message) << c.sql;
    }
    // A text longer than its column is refused alone: inside a transaction the statement before
    // it stays, and the same statement with a text that fits (the same translation, the text
    // bound anew) goes in.
    cn->BeginTrans();
    cn->Execute("update t_Stock set FName = 'Side shop' where FItemID = 2");
    const std::string too_long = std::string(50, 'x') + "y";
    const ado::ComError e = error_of([&] {
        cn->Execute("insert into t_Stock(FItemID, FNumber) values (3, '" + too_long + "')");
    });
    EXPECT_EQ(e.native_code(), 2628) << e.description();
    EXPECT_EQ(e.description(),
              "String or binary data would be truncated in table 't_Stock', column 'FNumber'. "
              "Truncated value: '" +
                  std::string(50, 'x') + "'.");
    cn->Execute("insert into t_Stock(FItemID, FNumber) values (4, '" + std::string(50, 'x') + "')");
    cn->CommitTrans();
    // Amounts are stored at their column's scale, rounded half away from zero, however the
    // statement's literals reach the engine.
    cn->Execute("insert into ICStockBillEntry(FInterID, FEntryID, FPrice) values (1, 2, 1.23455)");
    cn->Execute("insert into ICStockBillEntry(FInterID, FEntryID, FPrice) values (1, 3, 2.00005)");
    EXPECT_EQ(
        scalar("select count(*) from ICStockBillEntry where FPrice in (1.2346, 2.0001)").to_int32(),
        2);
    EXPECT_EQ(scalar("select count(*) from t_Stock where FItemID = 3 or FName = 'Side shop' or "
                     "len(FNumber) = 50")
                  .to_int32(),
              2);
}

}  // namespace
}  // namespace billdata::testing
