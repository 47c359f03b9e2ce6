// The command timeout: a statement that keeps its caller waiting too long is stopped and leaves
// nothing behind; a list that keeps producing rows is never cut off.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "billdata/ado/ado.h"
#include "billdata/ado/driver.h"
#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "drivers/sqlite_fixture.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::create_database;
using billdata::testing::scalar;
using billdata::testing::sqlite_connection;
using billdata::testing::TempDir;
using Clock = std::chrono::steady_clock;

// 700 numbers: three of them cross-joined make 343 million rows, many seconds of work.
const char* kNumbers =
    "create table G(i INTEGER PRIMARY KEY);"
    "create table W(n INTEGER);"
    "with recursive n(i) as (select 1 union all select i+1 from n where i<700) "
    "insert into G select i from n;";
const char* kCrossJoin = "select count(*) as n from G a, G b, G c where c.i<=700";

// The timeout error a call raises, and how long the call took.
ComError timed_out(const std::function<void()>& fn, Clock::duration& took) {
    const auto start = Clock::now();
    try {
        fn();
    } catch (const ComError& e) {
        took = Clock::now() - start;
        return e;
    }
    took = Clock::now() - start;
    return ComError();
}

void expect_timeout(const ComError& e, Clock::duration took) {
    EXPECT_EQ(e.number(), err::kTimeout) << e.description();
    EXPECT_EQ(e.description(), "查询超时已过期");
    EXPECT_EQ(e.error_class(), ErrorClass::Timeout);  // never retried as a lock
    EXPECT_GE(took, std::chrono::milliseconds(900));
    EXPECT_LT(took, std::chrono::seconds(5));
}

void cross_join_into_w(sqlite3* db, std::vector<driver::ProcArg>&) {
    const int rc = sqlite3_exec(db, "insert into W select count(*) from G a, G b, G c", nullptr,
                                nullptr, nullptr);
    if (rc != SQLITE_OK) throw billdata::drivers::sqlite::database_error(db, rc);
}

TEST(CommandTimeout, ALongStatementStopsAndLeavesTheConnectionAsItWas) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kNumbers);
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db, ";Command Timeout=1"));
    EXPECT_EQ(cn->CommandTimeout(), 1);

    Clock::duration took{};
    ComError e = timed_out([&] { cn->Execute(kCrossJoin); }, took);
    expect_timeout(e, took);
    EXPECT_FALSE(cn->InTransaction());
    // The same statement shape runs again on the same connection, with a small bound.
    auto rs = cn->Execute("select count(*) as n from G a, G b, G c where c.i<=1");
    EXPECT_EQ(rs->Fields("n").Value().to_int32(), 490000);
    rs->Close();

    // A write stopped inside a transaction takes the transaction with it, and holds no lock.
    cn->BeginTrans();
    cn->Execute("insert into W(n) values(1)");
    e = timed_out([&] { cn->Execute("insert into W(n) " + std::string(kCrossJoin)); }, took);
    expect_timeout(e, took);
    EXPECT_FALSE(e.transaction_open());
    EXPECT_FALSE(cn->InTransaction());
    auto other = Connection::create();
    other->Open(sqlite_connection(db, ";Busy Timeout=100"));
    other->BeginTrans();
    other->Execute("insert into W(n) values(2)");
    other->CommitTrans();
    EXPECT_EQ(scalar(db, "select group_concat(n) from W"), "2");

    // A procedure call is bounded as a whole, by the command's own timeout.
    billdata::drivers::sqlite::register_procedure("sp_TestCrossJoin", cross_join_into_w);
    auto cmd = Command::create();
    cmd->CommandText = "sp_TestCrossJoin";
    cmd->CommandType = adCmdStoredProc;
    cmd->ActiveConnection = cn;
    cn->SetCommandTimeout(0);
    cmd->SetCommandTimeout(1);
    e = timed_out([&] { cmd->Execute(); }, took);
    expect_timeout(e, took);
    EXPECT_EQ(scalar(db, "select count(*) from W"), "1");
}

TEST(CommandTimeout, AListThatKeepsProducingRowsIsNotCutOff) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kNumbers);
    // Each row comes at once, but reading them all takes twice the timeout.
    auto rs = Recordset::create();
    rs->Open("select i from G where i<=20 order by i", sqlite_connection(db, ";Command Timeout=1"));
    long rows = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
        ++rows;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(rows, 20);
}

}  // namespace
