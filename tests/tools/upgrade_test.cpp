// `billdata upgrade` on a database as an earlier build left it: without the declared-types
// tables (or with older rows in them) and, on the server, without a runtime function that
// statements call.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/raw_db.h"
#include "support/test_support.h"
#include "tools/cli_run.h"

namespace billdata::testing {
namespace {

using Upgrade = EngineCase;

TEST_F(Upgrade, RestoresDeclaredTypesAndRuntimeKeepsDataAndIsHarmlessTwice) {
    const EngineDatabase shop;
    const std::string& db = shop.target();
    ASSERT_EQ(run_cli("init '" + db + "' --demo --year 2025 --period 3").status, 0);
    const std::string data_query =
        "sql --db '" + db +
        "' --format csv \"select FNumber, FName from t_Stock union all select FKey, FValue from "
        "t_SystemProfile order by 1\"";
    const CliRun data = run_cli(data_query);
    ASSERT_EQ(data.status, 0) << data.out;

    const std::string drop = "DROP TABLE t_SchemaTables; DROP TABLE t_SchemaColumns;";
    if (shop.server()) {
        shop.server()->exec(drop + "DROP FUNCTION bd_isdate(text);");
    } else {
        RawDb(db).exec(drop);
    }

    const CliRun upgraded = run_cli("upgrade --db '" + db + "'");
    ASSERT_EQ(upgraded.status, 0) << upgraded.out;
    EXPECT_NE(upgraded.out.find("created t_SchemaTables and t_SchemaColumns"), std::string::npos)
        << upgraded.out;
    if (shop.server()) {
        EXPECT_NE(upgraded.out.find("runtime functions: 1 added, 0 changed, 0 removed"),
                  std::string::npos)
            << upgraded.out;
    }

    // Rows an older script wrote are brought to this version's.
    const std::string stale =
        "UPDATE t_SchemaColumns SET CHARACTER_MAXIMUM_LENGTH = 200 WHERE "
        "TABLE_NAME = 't_Stock' AND COLUMN_NAME = 'FName'";
    if (shop.server()) {
        shop.server()->exec(stale);
    } else {
        RawDb(db).exec(stale);
    }
    const CliRun refreshed = run_cli("upgrade --db '" + db + "'");
    EXPECT_EQ(refreshed.status, 0) << refreshed.out;
    EXPECT_NE(refreshed.out.find("updated t_SchemaTables and t_SchemaColumns"), std::string::npos)
        << refreshed.out;

    // The schema is described again, a declared length holds again (the server refuses the
    // over-long name and changes nothing), and the function is back.
    const CliRun columns =
        run_cli("sql --db '" + db +
                "' --format csv \"select DATA_TYPE, CHARACTER_MAXIMUM_LENGTH from "
                "INFORMATION_SCHEMA.COLUMNS where TABLE_NAME='t_Stock' and COLUMN_NAME='FName'\"");
    EXPECT_EQ(columns.out, "DATA_TYPE,CHARACTER_MAXIMUM_LENGTH\nnvarchar,80\n");
    const CliRun too_long =
        run_cli("sql --db '" + db + "' \"update t_Stock set FName=replicate('x', 81)\"");
    EXPECT_EQ(too_long.status, 1) << too_long.out;
    EXPECT_NE(too_long.out.find("String or binary data would be truncated"), std::string::npos)
        << too_long.out;
    const CliRun isdate = run_cli("sql --db '" + db +
                                  "' --format csv \"select isdate('2025-03-01') as d, "
                                  "isdate('2025-02-30') as n\"");
    EXPECT_EQ(isdate.out, "d,n\n1,0\n");
    EXPECT_EQ(run_cli(data_query).out, data.out);

    const CliRun again = run_cli("upgrade --db '" + db + "'");
    EXPECT_EQ(again.status, 0) << again.out;
    EXPECT_NE(again.out.find("is up to date"), std::string::npos) << again.out;
    EXPECT_EQ(run_cli(data_query).out, data.out);
}

TEST_F(Upgrade, RefusesWhatIsNoBillDatabase) {
    if (on_test_server()) GTEST_SKIP() << "a file's case";
    const TempDir dir;
    const std::string missing = dir.file("missing.db");
    const CliRun absent = run_cli("upgrade --db '" + missing + "'");
    EXPECT_EQ(absent.status, 1);
    EXPECT_NE(absent.out.find("no database file"), std::string::npos) << absent.out;
    EXPECT_FALSE(std::filesystem::exists(missing));

    const std::string other = dir.file("other.db");
    RawDb(other, true).exec("CREATE TABLE notes (x int)");
    const CliRun foreign = run_cli("upgrade --db '" + other + "'");
    EXPECT_EQ(foreign.status, 1);
    EXPECT_NE(foreign.out.find("holds no bill data tables"), std::string::npos) << foreign.out;
    EXPECT_EQ(RawDb(other).integer("SELECT count(*) FROM sqlite_master WHERE type='table'"), 1);
}

}  // namespace
}  // namespace billdata::testing
