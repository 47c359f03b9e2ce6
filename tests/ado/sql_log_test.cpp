#include "billdata/ado/sql_log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "drivers/sqlite_fixture.h"
#include "support/sql_log.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::file_lines;
using billdata::testing::SqlLog;
using billdata::testing::TempDir;

void do_nothing(sqlite3*, std::vector<driver::ProcArg>&) {}

TEST(SqlLog, EveryIssuedStatementIsAppendedAsGiven) {
    TempDir dir;
    const std::string db = dir.file("shop.db"), log = dir.file("sql.log");
    billdata::testing::create_database(db, billdata::testing::kItemTable);
    billdata::drivers::sqlite::register_procedure("sp_TestNothing", do_nothing);
    {
        SqlLog on(log);
        auto cn = Connection::create();
        cn->Open(billdata::testing::sqlite_connection(db));
        cn->Execute("update T  set FQty=1\nwhere FID=1");
        auto rs = Recordset::create();
        rs->Open("select FName from T where FName='coat'", cn);
        auto cmd = Command::create();
        cmd->CommandText = "sp_TestNothing";
        cmd->CommandType = adCmdStoredProc;
        cmd->ActiveConnection = cn;
        cmd->Execute();
        cmd->CommandText = "delete from T where FID=3";
        cmd->CommandType = adCmdText;
        cmd->Execute();
        cn->Execute("update T set FName='cap' where FID=2", nullptr, adExecuteNoRecords);
        try {
            cn->Execute("select FNoSuchColumn from T");
        } catch (const ComError&) {
            // a refused statement was still issued
        }
    }
    auto cn = Connection::create();
    cn->Open(billdata::testing::sqlite_connection(db));
    cn->Execute("update T set FQty=2 where FID=1");  // logging is off again

    const std::vector<std::string> expected = {"update T  set FQty=1\\nwhere FID=1",
                                               "select FName from T where FName='coat'",
                                               "sp_TestNothing",
                                               "delete from T where FID=3",
                                               "update T set FName='cap' where FID=2",
                                               "select FNoSuchColumn from T"};
    EXPECT_EQ(file_lines(log), expected);
}

TEST(SqlLog, LinesFromSeveralThreadsStayWhole) {
    TempDir dir;
    const std::string log = dir.file("sql.log");
    SqlLog on(log);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 250; ++i)
                sql_log::write("select " + std::to_string(t) + std::string(200, 'x'));
        });
    for (auto& th : threads)
        th.join();
    auto lines = file_lines(log);
    ASSERT_EQ(lines.size(), 1000u);
    for (const auto& line : lines) {
        ASSERT_EQ(line.size(), 208u);
        EXPECT_EQ(line.substr(0, 7), "select ");
        EXPECT_EQ(line.substr(8), std::string(200, 'x'));
    }
}

TEST(SqlLog, ALogThatCannotBeOpenedIsToldOnceAndTheWorkGoesOn) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    billdata::testing::create_database(db, billdata::testing::kItemTable);
    SqlLog on(dir.file("no such folder/sql.log"));
    auto cn = Connection::create();
    cn->Open(billdata::testing::sqlite_connection(db));
    ::testing::internal::CaptureStderr();
    cn->Execute("update T set FQty=4 where FID=1");
    cn->Execute("update T set FQty=5 where FID=1");
    const std::string told = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(told, "billdata: cannot open the statement log " +
                        dir.file("no such folder/sql.log") +
                        " (No such file or directory); statements go unlogged\n");
    auto rs = cn->Execute("select FQty from T where FID=1");
    EXPECT_EQ(rs->Fields("FQty").Value().to_int32(), 5);
}

}  // namespace
