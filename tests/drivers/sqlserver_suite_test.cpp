// What the database cases send to a shop's SQL Server for databases of their own, checked here
// where no SQL Server runs: the connection string of each case's database, the names as the
// server reads them, and the fixtures' T-SQL read by the component's own parser.

#include <gtest/gtest.h>

#include <string>

#include "billdata/ado/driver.h"
#include "billdata/dialect/dialect.h"
#include "billdata/dialect/script.h"
#include "billdata/drivers/odbc/odbc_target.h"
#include "support/server_db.h"

namespace billdata::testing {
namespace {

std::string odbc_of(const std::string& connection_string) {
    return drivers::odbc::odbc_target(ado::ConnectionString::parse(connection_string)).odbc;
}

TEST(SqlServerCaseDatabase, ConnectionStringNamesTheCaseDatabase) {
    // OLE DB: Initial Catalog (or Database) replaced, whatever else the shop gave kept, quoted
    // where a value would otherwise end early.
    const std::string oledb = sqlserver_database_string(
        "Provider=SQLOLEDB;Data Source=127.0.0.1,1433;Initial Catalog=master;User ID=sa;"
        "Password=\"p;w\"\"d\";Connect Timeout=2",
        "bd_test_7_1");
    const auto cs = ado::ConnectionString::parse(oledb);
    EXPECT_EQ(cs.get("initial catalog"), "bd_test_7_1");
    EXPECT_EQ(cs.get("password"), "p;w\"d");
    EXPECT_EQ(cs.get("connect timeout"), "2");
    const std::string odbc = odbc_of(oledb);
    EXPECT_NE(odbc.find(";Port=1433;Database=bd_test_7_1;UID=sa;"), std::string::npos) << odbc;
    EXPECT_EQ(odbc.find("master"), std::string::npos) << odbc;
    EXPECT_EQ(ado::ConnectionString::parse(
                  sqlserver_database_string(
                      "Provider=SQLNCLI11;Server=shop;Database=master;UID=sa;PWD=x", "bd_a"))
                  .get("initial catalog"),
              "bd_a");
    // A string naming no database gets one.
    EXPECT_NE(
        odbc_of(sqlserver_database_string("Provider=SQLOLEDB;Data Source=shop;User ID=sa", "bd_b"))
            .find(";Database=bd_b;"),
        std::string::npos);

    // ODBC: Database replaced, the driver's own keywords passed on.
    const std::string direct = sqlserver_database_string(
        "Driver={ODBC Driver 18 for SQL Server};Server=tcp:shop,1433;Database=master;UID=sa;"
        "PWD=x;TrustServerCertificate=yes",
        "bd_c");
    const std::string passed = odbc_of(direct);
    EXPECT_NE(passed.find("database=bd_c"), std::string::npos) << passed;
    EXPECT_NE(passed.find("trustservercertificate=yes"), std::string::npos) << passed;
    EXPECT_EQ(passed.find("master"), std::string::npos) << passed;
}

TEST(SqlServerCaseDatabase, NamesAndTextsAreQuoted) {
    EXPECT_EQ(sqlserver_quoted("bd_test_1"), "[bd_test_1]");
    EXPECT_EQ(sqlserver_quoted("a]b"), "[a]]b]");
    const auto create = sqlserver_create_database("x]'y");
    ASSERT_FALSE(create.empty());
    EXPECT_EQ(create[0], "CREATE DATABASE [x]]'y] COLLATE Chinese_PRC_CI_AS");
    const std::string drop = sqlserver_drop_database("x]'y");
    EXPECT_NE(drop.find("DB_ID(N'x]''y') IS NOT NULL"), std::string::npos) << drop;
    // Sessions still on the database (the component's pooled connections) are ended first.
    const auto single = drop.find("ALTER DATABASE [x]]'y] SET SINGLE_USER WITH ROLLBACK IMMEDIATE");
    ASSERT_NE(single, std::string::npos) << drop;
    EXPECT_GT(drop.find("DROP DATABASE [x]]'y]"), single) << drop;
}

TEST(SqlServerCaseDatabase, FixtureTextsParse) {
    // The refusals the cases set up, as triggers that raise the message.
    struct Refusal {
        const char *event, *table, *when;
    };
    for (const Refusal& r : {Refusal{"INSERT", "WLBill", "new.FMemo='refused'"},
                             Refusal{"UPDATE", "WLBill", "new.FInterID=3"},
                             Refusal{"INSERT", "ICStockBillEntry", "new.FEntryID=2"},
                             Refusal{"DELETE", "ICStockBillEntry_1", ""}}) {
        const std::string sql = sqlserver_refusal_trigger(r.event, r.table, r.when, "it's full");
        SCOPED_TRACE(sql);
        const dialect::Script script = dialect::parse_script(sql);
        ASSERT_EQ(script.statements.size(), 1u);
        const dialect::ScriptStatement& trigger = script.statements[0];
        EXPECT_EQ(trigger.kind, dialect::ScriptKind::CreateTrigger);
        EXPECT_EQ(trigger.table, r.table);
        EXPECT_EQ(trigger.events, std::vector<std::string>{r.event});
        ASSERT_EQ(trigger.body.size(), 1u);
        ASSERT_EQ(trigger.body[0].kind, dialect::ScriptKind::If);
        EXPECT_EQ(trigger.body[0].body.at(0).kind, dialect::ScriptKind::Throw);
        EXPECT_NE(sql.find("N'it''s full'"), std::string::npos);
    }
    // The tables the hostile-input cases watch, read through the component.
    EXPECT_EQ(dialect::check_single_statement("select name from sys.tables"),
              dialect::StatementKind::Select);
}

}  // namespace
}  // namespace billdata::testing
