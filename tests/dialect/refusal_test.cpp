// What the translator refuses, and how it says so: the construct and its position.

#include "dialect/dialect_fixture.h"

namespace billdata::testing {
namespace {

class Refusals : public DialectDb {
  protected:
    // The refusal of a statement; fails the test when there is none.
    dialect::DialectError refusal(const std::string& tsql) {
        try {
            translate(tsql);
        } catch (const dialect::DialectError& e) {
            return e;
        }
        ADD_FAILURE() << "translated without refusal: " << tsql;
        return dialect::DialectError("", 0);
    }
};

TEST_F(Refusals, SecondStatementsAreCaughtByTheParser) {
    for (const char* text :
         {"select * from ICStockBill where 1=1 delete from ICStockBill",
          "select * from ICStockBill where 1=1; delete from ICStockBill",
          "update ICStockBill set FDeleted=1 where FInterID=5 drop table ICStockBill",
          "select 1 select 2", "select 1;;"}) {
        EXPECT_THROW(dialect::check_single_statement(text), dialect::DialectError) << text;
        EXPECT_THROW(translate(text), dialect::DialectError) << text;
    }
    auto e = refusal("select * from ICStockBill where 1=1 delete from ICStockBill");
    EXPECT_EQ(e.position(), 36u);
    EXPECT_EQ(e.construct(), "second statement");
    // A trailing semicolon, blanks and comments are one statement.
    EXPECT_EQ(dialect::check_single_statement("select 1 ; -- done\n"),
              dialect::StatementKind::Select);
    EXPECT_EQ(dialect::check_single_statement("/* a /* nested */ note */ delete from x"),
              dialect::StatementKind::Delete);
    EXPECT_EQ(dialect::check_single_statement("truncate table x"),
              dialect::StatementKind::Truncate);
    // A filter that is a remark cannot end the statement early.
    EXPECT_THROW(
        dialect::check_single_statement("select * from t where FRemark='a' delete from t --'"),
        dialect::DialectError);
    EXPECT_NO_THROW(
        dialect::check_single_statement("select * from t where FRemark='a'' delete from t --'"));
}

TEST_F(Refusals, UnknownTablesAndColumnsUseTheServersWords) {
    auto e = refusal("select FInterID from ICStockBil where FInterID=5");
    EXPECT_EQ(std::string(e.what()), "对象名 'ICStockBil' 无效。 at position 21");
    EXPECT_EQ(e.position(), 21u);
    e = refusal("select t1.FInterID,FNoSuch from ICStockBill t1");
    EXPECT_EQ(std::string(e.what()), "列名 'FNoSuch' 无效。 at position 19");
    e = refusal(
        "select FItemID from ICStockBillEntry t1 inner join t_ICItem t2 on t1.FItemID=t2.FItemID");
    EXPECT_EQ(std::string(e.what()), "列名 'FItemID' 不明确。 at position 7");
    e = refusal("select t9.FName from t_Stock t1");
    EXPECT_NE(std::string(e.what()).find("t9.FName"), std::string::npos);
    e = refusal("insert into t_Stock(FItemID,FNope) values(1,2)");
    EXPECT_EQ(e.position(), 28u);
    e = refusal("update t1 set t1.FNope=1 from t_Stock t1");
    EXPECT_NE(std::string(e.what()).find("FNope"), std::string::npos);
    // A huge name is quoted only in part.
    e = refusal("select " + std::string(1000000, 'x') + " from t_Stock");
    EXPECT_EQ(std::string(e.what()), "列名 '" + std::string(100, 'x') + "…' 无效。 at position 7");
    // Names do not care about case, and a correlated subquery sees its outer tables.
    EXPECT_NO_THROW(translate(
        "select FINTERID from icstockbill T where exists(select 1 from ICStockbillEntry where finterid=t.FInterID)"));
}

TEST_F(Refusals, UnsupportedConstructsAreNamedWithTheirPosition) {
    struct Case {
        std::string text;
        std::string construct;
        std::string at;  // the refused text starts here
    };
    const Case cases[] = {
        {"select FInterID into #t from ICStockBill", "select into", "into"},
        {"select * from ICStockBill t cross apply t_Stock s", "cross apply", "cross"},
        {"select @x=1", "variable assignment", "@x"},
        {"select FInterID from ICStockBill where FInterID=@id", "variable @id", "@id"},
        {"exec sp_GetStockQty 1,2,3", "exec", "exec"},
        {"select * from ICStockBill a, t_Stock b where a.FInStockID*=b.FItemID", "*=", "*="},
        {"select len(FBillNo) over () from ICStockBill", "window function", "over"},
        {"select row_number() over (order by FInterID rows unbounded preceding) from ICStockBill",
         "window frame", "rows"},
        {"select {t '10:00:00'}", "{t} escape", "{t"},
        {"select {fn curtime()}", "{fn curtime}", "curtime"},
        {"select {ts '2025-03-09 08:30:00.5'}", "{ts} with a fraction of a second", "'2025"},
        {"set datefirst 1", "set datefirst", "set"},
        {"select * from information_schema.views", "information_schema.views", "views"},
        {"with x as (select 1 as a) select * from x", "with", "with"},
        {"update ICStockBill set FSumQty+=1", "+=", "+="},
        {"select soundex(FBillNo) from ICStockBill", "function soundex", "soundex"},
        {"select datalength(FSumQty) from ICStockBill", "datalength of a number", "datalength"},
        {"select dateadd(foo,1,getdate())", "date part foo", "foo"},
        {"select cast(1 as xml)", "type xml", "xml"},
        {"select FInterID from ICStockBill where FInterID > all (select 1)", "all (subquery)",
         "all"},
        {"select convert(datetime,'05 Jan 2024',106)", "convert style 106", "convert"},
        {"select getdate()-getdate()", "date arithmetic", "-getdate"},
    };
    for (const auto& c : cases) {
        auto e = refusal(c.text);
        EXPECT_EQ(e.construct(), c.construct) << c.text << " → " << e.what();
        const std::size_t position = c.text.find(c.at);
        EXPECT_EQ(e.position(), position) << c.text << " → " << e.what();
        EXPECT_NE(std::string(e.what()).find("at position " + std::to_string(position)),
                  std::string::npos)
            << e.what();
    }
}

// Paging, TOP PERCENT, ranking and ODBC escapes written as the server refuses them fail with the
// server's own message, before anything runs.
TEST_F(Refusals, PagingRankingAndEscapeErrorsUseTheServersWords) {
    const std::pair<std::string, std::string> cases[] = {
        {"select FInterID from ICStockBill order by FDate offset -1 rows",
         "The offset specified in a OFFSET clause may not be negative. at position 55"},
        {"select FInterID from ICStockBill order by FDate offset 0 rows fetch next 0 rows only",
         "The number of rows provided for a FETCH clause must be greater then zero. at position 73"},
        {"select top 1 FInterID from ICStockBill order by FDate offset 1 rows",
         "A TOP can not be used in the same query or sub-query as a OFFSET. at position 0"},
        {"select top 101 percent FInterID from ICStockBill",
         "Percent values must be between 0 and 100. at position 11"},
        {"select top 1.5 FInterID from ICStockBill",
         "The number of rows provided for a TOP or FETCH clauses row count parameter must be an "
         "integer. at position 11"},
        {"select rank() from ICStockBill",
         "The function 'rank' must have an OVER clause. at position 7"},
        {"select row_number() over (partition by FTranType) from ICStockBill",
         "The function 'row_number' must have an OVER clause with ORDER BY. at position 7"},
        {"select dense_rank() over (order by 1) from ICStockBill",
         "Windowed functions, aggregates and NEXT VALUE FOR functions do not support constants as "
         "ORDER BY clause expressions. at position 35"},
        {"select {d '2025-03-09 10:00:00'}",
         "从字符串转换日期和/或时间时，转换失败。 at position 10"},
        {"select {ts '2025-03-09'}", "从字符串转换日期和/或时间时，转换失败。 at position 11"},
    };
    for (const auto& [text, message] : cases)
        EXPECT_EQ(std::string(refusal(text).what()), message) << text;
}

TEST_F(Refusals, SyntaxErrorsCarryThePosition) {
    auto e = refusal("select FInterID from ICStockBill where");
    EXPECT_EQ(e.position(), 38u);
    EXPECT_EQ(e.construct(), "end of statement");
    e = refusal("select FInterID from ICStockBill where FInterID in ()");
    EXPECT_EQ(e.position(), 52u);  // the ')' where a value must be
    e = refusal("select 'abc from ICStockBill");
    EXPECT_EQ(e.construct(), "unterminated string");
    e = refusal("select [FInterID from ICStockBill");
    EXPECT_EQ(e.position(), 7u);
    // The statement a caller's empty filter leaves behind is refused, not run differently.
    e = refusal("select t1.FInterID from ICOrder t1  where  group by t1.FInterID");
    EXPECT_EQ(e.position(), 43u);
    // Numbers glued to keywords read as the server reads them.
    EXPECT_NO_THROW(
        translate("select FInterID from ICStockBill where FTranType=112order by FDate"));
    EXPECT_NO_THROW(
        translate("select FInterID from ICStockBill where FTranType in (112,99 )and FSumQty>1e2"));
}

TEST_F(Refusals, DeepNestingAndLongChainsAreRefusedBeforeTheyExhaustTheStack) {
    auto times = [](const std::string& text, int n) {
        std::string out;
        for (int i = 0; i < n; ++i)
            out += text;
        return out;
    };
    auto chain = [&](const std::string& term, const std::string& op, int n) {
        return term + times(op + term, n - 1);
    };
    const int n = 100000;
    const std::string texts[] = {
        "select " + times("(", n) + "1" + times(")", n),
        "select " + times("-(", n) + "1" + times(")", n),
        times("(", n) + "select 1" + times(")", n),
        "select " + chain("1", "+", n),
        "select 1 from t_Stock where " + chain("FItemID=1", " or ", n),
        "select 1 from t_Stock a" + times(" join t_Stock b on 1=1", n),
        chain("select 1", " union all ", n),
        "select 1 where 1" + times(" is null", n),
    };
    for (const std::string& text : texts) {
        auto e = refusal(text);
        EXPECT_EQ(e.construct(), "nesting") << text.substr(0, 40);
        EXPECT_GT(e.position(), 0u);
        EXPECT_EQ(std::string(e.what()),
                  "statement nested too deeply at position " + std::to_string(e.position()));
    }
    // A long filter such as a front end builds from a picked list still goes through.
    EXPECT_NO_THROW(translate("select 1 from t_Stock where " + chain("FItemID=1", " or ", 500)));
}

TEST(LiteralPositions, ReportEveryValueButNotTheShape) {
    const dialect::Catalog catalog = [] {
        dialect::Catalog c;
        c.add_column("ICStockBill", "FInterID", dialect::ColumnType::Integer);
        c.add_column("ICStockBill", "FDate", dialect::ColumnType::Date);
        c.add_column("ICStockBill", "FBillNo", dialect::ColumnType::Text);
        return c;
    }();
    const std::string text =
        "select top 5 convert(varchar(10),FDate,120) from ICStockBill where FInterID=12 and FBillNo=N'A''1' or FBillNo='x' and FInterID>-1.5";
    auto t = dialect::translate_sqlite(text, catalog);
    ASSERT_EQ(t.literals.size(), 4u);
    EXPECT_EQ(text.substr(t.literals[0].offset, t.literals[0].length), "12");
    EXPECT_EQ(t.literals[1].kind, dialect::Literal::Kind::NString);
    EXPECT_EQ(text.substr(t.literals[1].offset, t.literals[1].length), "N'A''1'");
    EXPECT_EQ(text.substr(t.literals[2].offset, t.literals[2].length), "'x'");
    EXPECT_EQ(text.substr(t.literals[3].offset, t.literals[3].length), "1.5");
    EXPECT_FALSE(t.writes);
    auto w = dialect::translate_sqlite("delete from ICStockBill where FInterID=1", catalog);
    EXPECT_TRUE(w.writes);
    EXPECT_EQ(w.kind, dialect::StatementKind::Delete);
}

}  // namespace
}  // namespace billdata::testing
