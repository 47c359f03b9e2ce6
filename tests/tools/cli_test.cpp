// The billdata program, run as a person or a script runs it.

#include <gtest/gtest.h>
#include <string>

#include "billdata/ado/driver.h"
#include "support/test_support.h"
#include "tools/cli_run.h"

namespace billdata::testing {
namespace {

// A server database as a URI (what --db and init take besides a connection string).
std::string uri_of(const std::string& connection_string) {
    const auto cs = ado::ConnectionString::parse(connection_string);
    // The native driver's keywords, or an ODBC driver's.
    return "postgresql:///" + cs.get("database") + "?host=" + cs.get("host", cs.get("servername")) +
           "&port=" + cs.get("port") + "&user=" + cs.get("user id", cs.get("uid"));
}

using Cli = EngineCase;

TEST_F(Cli, InitSqlAndTranslate) {
    const EngineDatabase shop;
    const std::string& db = shop.target();
    CliRun init = run_cli("init '" + db + "' --demo --year 2025 --period 3");
    ASSERT_EQ(init.status, 0) << init.out;

    // Refuses to overwrite a database that holds tables, whichever way it is named.
    CliRun again =
        run_cli("init '" + (shop.server() && !shop.server()->sqlserver() ? uri_of(db) : db) + "'");
    EXPECT_EQ(again.status, 1) << again.out;
    EXPECT_NE(again.out.find("already holds tables"), std::string::npos) << again.out;

    CliRun settings =
        run_cli("sql --db '" + db +
                "' --format csv \"select FKey,FValue from t_SystemProfile where FKey in "
                "('CurrentYear','CurrentPeriod') order by FKey\"");
    ASSERT_EQ(settings.status, 0) << settings.out;
    EXPECT_EQ(settings.out, "FKey,FValue\nCurrentPeriod,3\nCurrentYear,2025\n");

    CliRun json =
        run_cli("sql --db '" + db +
                "' --format json \"select top 1 FMaxNum from ICMaxNum where FTranType=11\"");
    ASSERT_EQ(json.status, 0) << json.out;
    EXPECT_EQ(json.out, "{\"fields\": [\"FMaxNum\"], \"rows\": [[1000000000]]}\n");

    CliRun table = run_cli("sql --db '" + db + "' \"select count(*) as FCount from t_Stock\"");
    ASSERT_EQ(table.status, 0) << table.out;
    EXPECT_NE(table.out.find("FCount"), std::string::npos);
    EXPECT_NE(table.out.find("(1 row)"), std::string::npos);

    CliRun changed = run_cli("sql --db '" + db +
                             "' \"update t_SystemProfile set FValue='1' where FKey='ICClosed'\"");
    EXPECT_EQ(changed.status, 0) << changed.out;
    EXPECT_NE(changed.out.find("(1 row affected)"), std::string::npos);

    CliRun translated =
        run_cli("translate \"select top 2 FBillNo from ICStockBill where FTranType=99\"");
    ASSERT_EQ(translated.status, 0) << translated.out;
    EXPECT_NE(translated.out.find("LIMIT 2"), std::string::npos) << translated.out;
    CliRun for_server = run_cli(
        "translate --engine postgresql \"select top 2 FBillNo from ICStockBill where FTranType=99\"");
    ASSERT_EQ(for_server.status, 0) << for_server.out;
    EXPECT_EQ(for_server.out,
              "SELECT FBillNo AS \"FBillNo\" FROM ICStockBill WHERE FTranType = 99 LIMIT 2\n");

    // Whatever file name init takes, --db takes too.
    if (shop.server()) return;
    std::string other = shop.dir().file("shop.sqlite");
    ASSERT_EQ(run_cli("init '" + other + "'").status, 0);
    CliRun by_path =
        run_cli("sql --db '" + other + "' --format csv \"select count(*) as n from t_Stock\"");
    EXPECT_EQ(by_path.status, 0) << by_path.out;
    EXPECT_EQ(by_path.out, "n\n0\n");
}

TEST_F(Cli, BadInputIsAClearError) {
    TempDir dir;
    // A database that is not there: a file, or one the server does not hold (the last Database
    // of a connection string is the one it names).
    const std::string none =
        on_sqlserver()     ? sqlserver_database_string(sqlserver_server(), "bd_no_such_database")
        : on_test_server() ? postgres_server() + ";Database=bd_no_such_database"
                           : dir.file("none.db");
    CliRun missing = run_cli("sql --db '" + none + "' \"select 1\"");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.out.find("billdata: error"), std::string::npos) << missing.out;

    CliRun provider = run_cli("sql --db 'Provider=Nothing;Data Source=x' \"select 1\"");
    EXPECT_EQ(provider.status, 1);
    EXPECT_NE(provider.out.find("Nothing"), std::string::npos) << provider.out;

    CliRun unsupported = run_cli("translate \"select * from ICStockBill pivot (x)\"");
    EXPECT_EQ(unsupported.status, 1) << unsupported.out;
    EXPECT_NE(unsupported.out.find("position"), std::string::npos) << unsupported.out;

    CliRun usage = run_cli("frobnicate");
    EXPECT_NE(usage.status, 0);
}

}  // namespace
}  // namespace billdata::testing
