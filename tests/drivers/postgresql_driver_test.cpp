#include "billdata/drivers/postgresql/postgresql_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/schema/schema.h"
#include "billdata/sfkdata/sfkdata.h"
#include "support/server_db.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::error_of;
using billdata::testing::mentions;
using billdata::testing::PrivateServer;
using billdata::testing::resident_bytes;
using billdata::testing::ServerDatabase;

std::string scalar(Connection& cn, const std::string& sql) {
    auto rs = cn.Execute(sql);
    return rs->Eof() ? "" : rs->Fields(std::size_t{0}).Value().to_string();
}

std::shared_ptr<Connection> open(const std::string& cs) {
    auto cn = Connection::create();
    cn->Open(cs);
    return cn;
}

// The ODBC string of a database of the tests' server, from its own connection string.
std::string odbc_string(const std::string& native) {
    const auto cs = ConnectionString::parse(native);
    return "Driver={PostgreSQL Unicode};Servername=" + cs.get("host") +
           ";Port=" + cs.get("port", "5432") + ";Database=" + cs.get("database") +
           ";UID=" + cs.get("user id") + (cs.has("password") ? ";PWD=" + cs.get("password") : "") +
           ";Dialect=PostgreSQL";
}

// The server engine through its native driver and through its ODBC driver: every case here must
// behave the same on both.
enum class Driver { Native, Odbc };

std::string driver_name(const ::testing::TestParamInfo<Driver>& info) {
    return info.param == Driver::Native ? "Native" : "Odbc";
}

class PostgresDriver : public ::testing::TestWithParam<Driver> {
  protected:
    void SetUp() override {
        if (billdata::testing::postgres_server().empty())
            GTEST_SKIP() << "no PostgreSQL server for the tests (BILLDATA_TEST_POSTGRES)";
        db_ = std::make_unique<ServerDatabase>();
        native_ = billdata::testing::postgres_server() + ";Database=" + db_->name();
        billdata::schema::create_database(cs(), false, 2025, 3);
    }
    bool odbc() const { return GetParam() == Driver::Odbc; }
    std::string cs(const std::string& extra = {}) const {
        return (odbc() ? odbc_string(native_) : native_) + extra;
    }
    std::unique_ptr<ServerDatabase> db_;
    std::string native_;
};
INSTANTIATE_TEST_SUITE_P(Drivers, PostgresDriver, ::testing::Values(Driver::Native, Driver::Odbc),
                         driver_name);

// A failed statement inside a transaction is undone alone and the transaction goes on, as on
// SQL Server; the duplicate names its key as the handlers read it.
TEST_P(PostgresDriver, FailedStatementLeavesTheTransactionUsable) {
    auto cn = open(cs());
    cn->BeginTrans();
    cn->Execute("insert into t_Stock (FItemID, FNumber, FName) values (7, '07', 'Shop')");
    ComError e = error_of([&] {
        cn->Execute("insert into t_Stock (FItemID, FNumber, FName) values (7, '08', 'x')");
    });
    EXPECT_EQ(e.error_class(), ErrorClass::DuplicateKey) << e.description();
    EXPECT_EQ(e.violated_key(), "t_Stock.FItemID");
    EXPECT_TRUE(e.transaction_open());
    e = error_of([&] { cn->Execute("select 1/0 from t_Stock"); });
    EXPECT_EQ(e.number(), err::kDatabase);
    EXPECT_TRUE(e.transaction_open());
    cn->Execute("update t_Stock set FName='Shop 7' where FItemID=7");
    cn->CommitTrans();
    EXPECT_EQ(scalar(*open(cs()), "select FName from t_Stock where FItemID=7"), "Shop 7");
    // Field names as the statement or the schema spells them, not as the server folds them.
    auto rs = cn->Execute("select FItemID, FName as StockName, * from t_Stock");
    EXPECT_EQ(rs->Fields(std::size_t{0}).Name(), "FItemID");
    EXPECT_EQ(rs->Fields(std::size_t{1}).Name(), "StockName");
    EXPECT_EQ(rs->Fields(std::size_t{3}).Name(), "FNumber");
}

// Two tills at once: the counter read inside a transaction waits for the other till's
// transaction, for an existing key and for a key that has no row yet.
TEST_P(PostgresDriver, CounterReadsInsideATransactionTakeTurns) {
    for (const std::string key : {"11", "77"}) {
        auto a = open(cs());
        auto b = open(cs());
        const std::string read = "select FMaxNum from ICMaxNum where FTranType=" + key;
        a->BeginTrans();
        const std::string seen = scalar(*a, read);
        auto other = std::async(std::launch::async, [&] {
            b->BeginTrans();
            std::string v = scalar(*b, read);
            b->CommitTrans();
            return v;
        });
        EXPECT_EQ(other.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
        if (seen.empty())
            a->Execute("insert into ICMaxNum (FTranType, FMaxNum, FDescription) values (" + key +
                       ", 5, '')");
        else
            a->Execute("update ICMaxNum set FMaxNum=FMaxNum+1 where FTranType=" + key);
        a->CommitTrans();
        EXPECT_EQ(other.get(), seen.empty() ? "5" : "1000000001");
    }
}

// Two tills change a member at once, the second through a join: it waits for the first and then
// works on the row as the first left it (the points the first added are kept; the row the first
// changed is still deleted).
TEST_P(PostgresDriver, AnUpdateOrDeleteThroughAJoinBuildsOnAnotherTillsChange) {
    open(cs())->Execute("insert into Vip (FVipID, FSumJf) values (1, 100)");
    open(cs())->Execute(
        "insert into ICStockBill (FInterID, FTranType, FVipID, FSumJf) "
        "values (5, 99, 1, 10)");
    auto race = [&](const std::string& statement) {
        auto a = open(cs());
        auto b = open(cs());
        a->BeginTrans();
        a->Execute("update Vip set FSumJf=FSumJf+7 where FVipID=1");
        auto other = std::async(std::launch::async, [&] { b->Execute(statement); });
        EXPECT_EQ(other.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
        a->CommitTrans();
        other.get();
    };
    race(
        "Update t1 set t1.FSumJf=isnull(t1.FSumJf,0)-t2.FSumJf from Vip t1 inner join "
        "icstockbill t2 on t1.fvipid=t2.fvipid where t2.fInterID=5");
    EXPECT_EQ(scalar(*open(cs()), "select FSumJf from Vip"), "97");
    race(
        "delete t1 from Vip t1 inner join icstockbill t2 on t1.fvipid=t2.fvipid where "
        "t2.fInterID=5");
    EXPECT_EQ(scalar(*open(cs()), "select count(*) from Vip"), "0");
}

// A deadlock victim's transaction is gone: the error says so, its work is undone and it cannot
// be committed as if nothing happened.
TEST_P(PostgresDriver, DeadlockVictimLosesItsTransaction) {
    open(cs())->Execute("insert into t_Stock (FItemID, FNumber, FName) values (1, '1', 'a')");
    open(cs())->Execute("insert into t_Stock (FItemID, FNumber, FName) values (2, '2', 'b')");
    auto a = open(cs(";Busy Timeout=20000"));
    auto b = open(cs(";Busy Timeout=20000"));
    a->BeginTrans();
    b->BeginTrans();
    a->Execute("update t_Stock set FName='a1' where FItemID=1");
    b->Execute("update t_Stock set FName='b2' where FItemID=2");
    auto first = std::async(std::launch::async, [&] {
        return error_of([&] { a->Execute("update t_Stock set FName='a2' where FItemID=2"); });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ComError eb = error_of([&] { b->Execute("update t_Stock set FName='b1' where FItemID=1"); });
    ComError ea = first.get();
    ComError& victim = ea.number() != 0 ? ea : eb;
    Connection& loser = ea.number() != 0 ? *a : *b;
    Connection& winner = ea.number() != 0 ? *b : *a;
    EXPECT_NE(ea.number() != 0, eb.number() != 0) << "exactly one victim";
    EXPECT_EQ(victim.error_class(), ErrorClass::Lock) << victim.description();
    EXPECT_FALSE(victim.transaction_open());
    EXPECT_NE(error_of([&] { loser.CommitTrans(); }).number(), 0);
    winner.CommitTrans();
    const std::string names = scalar(*open(cs()), "select min(FName) + max(FName) from t_Stock");
    EXPECT_TRUE(names == "a1a2" || names == "b1b2") << names;
}

// A statement in autocommit that the server ends as a deadlock victim lost nothing else: it runs
// again, and the caller never sees the deadlock.
TEST_P(PostgresDriver, AnAutocommitDeadlockVictimRunsAgain) {
    open(cs())->Execute("insert into t_Stock (FItemID, FNumber, FName) values (1, '1', 'a')");
    open(cs())->Execute("insert into t_Stock (FItemID, FNumber, FName) values (2, '2', 'b')");
    auto a = open(cs(";Busy Timeout=20000"));
    auto b = open(cs(";Busy Timeout=20000"));
    a->BeginTrans();
    a->Execute("update t_Stock set FName='a' where FItemID=2");
    auto alone = std::async(std::launch::async, [&] {
        return error_of([&] { b->Execute("update t_Stock set FName='b' where FItemID in (1,2)"); });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    a->Execute("update t_Stock set FName='a' where FItemID=1");
    a->CommitTrans();
    const ComError e = alone.get();
    EXPECT_EQ(e.number(), 0) << e.description();
    EXPECT_EQ(scalar(*open(cs()), "select min(FName) + max(FName) from t_Stock"), "bb");
}

// A statement past its command timeout is stopped on the server and the connection goes on.
TEST_P(PostgresDriver, CommandTimeoutStopsALockWait) {
    open(cs())->Execute("insert into t_Stock (FItemID, FNumber, FName) values (1, '1', 'a')");
    auto a = open(cs());
    auto b = open(cs(";Busy Timeout=60000;Command Timeout=1"));
    a->BeginTrans();
    a->Execute("update t_Stock set FName='x' where FItemID=1");
    const auto start = std::chrono::steady_clock::now();
    ComError e = error_of([&] { b->Execute("update t_Stock set FName='y' where FItemID=1"); });
    EXPECT_EQ(e.error_class(), ErrorClass::Timeout) << e.description();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    a->RollbackTrans();
    EXPECT_EQ(scalar(*b, "select FName from t_Stock"), "a");
}

// A list streams: rows come as they are read (natively a million of them, through ODBC in
// blocks, never all held), and a list abandoned half way leaves the connection ready for the
// next statement.
TEST_P(PostgresDriver, ListsStreamAndCanBeLeftHalfRead) {
    const long total = odbc() ? 500000 : 1000000;
    db_->exec(
        "INSERT INTO t_Item (FItemID, FItemClassID, FNumber, FName) "
        "SELECT g, 1, 'N' || g, 'item number ' || g FROM generate_series(1, " +
        std::to_string(total) + ") g");
    auto cn = open(cs());
    const long before = resident_bytes();
    long rows = 0, peak = 0;
    double sum = 0;
    {
        auto rs = cn->Execute("select FItemID, FName from t_Item");
        for (; !rs->Eof(); rs->MoveNext()) {
            if (++rows % 50000 == 0) peak = std::max(peak, resident_bytes());
            sum += rs->Fields(std::size_t{0}).Value().to_double();
        }
    }
    EXPECT_EQ(rows, total);
    EXPECT_DOUBLE_EQ(sum, total * (total + 1.0) / 2);
    {
        auto rs = cn->Execute("select FItemID, FName from t_Item order by FItemID");
        for (int i = 0; i < 3; ++i)
            rs->MoveNext();
        EXPECT_EQ(rs->Fields("FItemID").Value().to_string(), "4");
    }
    long n = 0;
    cn->Execute("update t_Item set FName='x' where FItemID<=10", &n);
    EXPECT_EQ(n, 10);
    EXPECT_EQ(scalar(*cn, "select count(*) from t_Item where FName='X'"), "10");
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine: resident size says nothing";
#endif
    // Held in memory the rows would take 50 MB and more.
    EXPECT_LT(peak - before, 16L * 1024 * 1024) << "resident memory grew by " << peak - before;
}

// Rows fetched in blocks read as the native driver reads them: NULLs, numbers and dates in
// every position of a block, texts longer than their buffers (long ones, and ones whose
// characters take two UTF-16 units each) among short ones, over several blocks; the statement
// then serves a single-row read again.
class OdbcBlocks : public PostgresDriver {};
INSTANTIATE_TEST_SUITE_P(Drivers, OdbcBlocks, ::testing::Values(Driver::Odbc), driver_name);

TEST_P(OdbcBlocks, ReadTheValuesTheNativeDriverReads) {
    db_->exec(
        "INSERT INTO ICStockBill (FInterID, FTranType, FDate, FSumAmount, FRemark) "
        "SELECT g, CASE WHEN g % 3 = 0 THEN NULL ELSE g END, "
        "CASE WHEN g % 5 = 0 THEN NULL ELSE timestamp '2025-03-01 08:30:15' + g * interval "
        "'1 hour' END, CASE WHEN g % 4 = 0 THEN NULL ELSE g * 1.25 END, "
        "CASE WHEN g % 7 = 0 THEN NULL WHEN g % 50 = 0 THEN repeat('long ', 300) || g "
        "WHEN g % 31 = 0 THEN repeat(U&'\\+01F600', 200) ELSE 'r' || g END "
        "FROM generate_series(1, 700) g");
    const std::string list =
        "select FInterID, FTranType, FDate, FSumAmount, FRemark from ICStockBill order by FInterID";
    auto native = open(native_);
    auto cn = open(cs());
    auto expected = native->Execute(list);
    auto rs = cn->Execute(list);
    long rows = 0, long_texts = 0;
    for (; !rs->Eof() && !expected->Eof(); rs->MoveNext(), expected->MoveNext(), ++rows)
        for (std::size_t i = 0; i < 5; ++i) {
            const Variant& want = expected->Fields(i).Value();
            const Variant& got = rs->Fields(i).Value();
            if (want.to_string().size() > 255) ++long_texts;
            ASSERT_EQ(got.type(), want.type()) << "row " << rows << " column " << i;
            ASSERT_EQ(got.to_string(), want.to_string()) << "row " << rows << " column " << i;
        }
    EXPECT_TRUE(rs->Eof() && expected->Eof());
    EXPECT_EQ(rows, 700);
    EXPECT_EQ(long_texts, 12 + 19);
    auto one = cn->Execute(list);
    EXPECT_EQ(one->Fields(std::size_t{4}).Value().to_string(), "r1");
}

TEST(PostgresConnection, BadConnectionsFailClearlyAndInTime) {
    const auto start = std::chrono::steady_clock::now();
    ComError e = error_of([] {
        open(
            "Provider=PostgreSQL;Host=127.0.0.1;Port=1;Database=shop;User ID=till;Connect "
            "Timeout=3");
    });
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, "127.0.0.1") && mentions(e, "port 1")) << e.description();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    e = error_of([] { open("Provider=PostgreSQL;Host=127.0.0.1;Colour=Red"); });
    EXPECT_TRUE(mentions(e, "Colour")) << e.description();
    e = error_of([] { open("Provider=PostgreSQL;Host=127.0.0.1;Busy Timeout=soon"); });
    EXPECT_TRUE(mentions(e, "soon")) << e.description();
}

// The server's own faults, on a server of the test's own: a wrong password, a database without
// the schema, a restart between two operations (a pooled connection is gone; the next operation
// connects again) on both drivers, and a stop in the middle of a transaction.
TEST(PostgresServerFaults, EachFailsClearlyAndTheNextOperationRecovers) {
    std::unique_ptr<PrivateServer> server;
    try {
        server = std::make_unique<PrivateServer>();
    } catch (const std::exception& e) {
        GTEST_SKIP() << e.what();
    }
    const std::string base = server->connection_string();
    const std::string odbc = odbc_string(base);
    const std::string wrong = "Provider=PostgreSQL;Host=" + server->socket_dir() +
                              ";Port=" + std::to_string(server->port()) +
                              ";Database=postgres;User ID=billdata_pw;Password=no";
    for (const std::string& cs : {wrong, odbc_string(wrong)}) {
        const ComError e = error_of([&] { open(cs); });
        EXPECT_EQ(e.number(), err::kConnection) << cs;
        EXPECT_TRUE(mentions(e, "password")) << e.description();
    }

    ComError e = error_of([&] { scalar(*open(base), "select count(*) from ICStockBill"); });
    EXPECT_NE(e.number(), 0);
    EXPECT_TRUE(mentions(e, "ICStockBill") || mentions(e, "icstockbill")) << e.description();

    billdata::schema::create_database(base, true, 2025, 3);
    open(base)->Execute("insert into t_Stock (FItemID, FNumber, FName) values (11, '11', 'a')");
    open(odbc)->Execute("insert into t_Stock (FItemID, FNumber, FName) values (12, '12', 'b')");
    server->restart();
    for (const std::string& cs : {base, odbc})
        EXPECT_EQ(scalar(*open(cs), "select min(FName) + max(FName) from t_Stock where FItemID>10"),
                  "ab")
            << cs;

    // The server stops while a save is inside its transaction: the save fails whole, and after
    // the restart neither its bill nor its numbers are there.
    ServerDatabase::exec_on(billdata::testing::postgres_conninfo(base),
                            "CREATE FUNCTION bd_test_pause() RETURNS trigger LANGUAGE plpgsql AS "
                            "$$BEGIN PERFORM pg_sleep(5); RETURN NEW; END$$;"
                            "CREATE TRIGGER tr_test_pause BEFORE INSERT ON WLBill FOR EACH ROW "
                            "EXECUTE FUNCTION bd_test_pause()");
    const std::string counters = "select count(*) + sum(FMaxNum) from ICMaxNum";
    const std::string before = scalar(*open(base), counters);
    billdata::common::init_session(base, 2025, 3);
    auto save = std::async(std::launch::async, [] {
        return error_of([] {
            std::string no;
            billdata::SFKData().SaveData(13, DateTime(2025, 3, 10), no, 2, 102, 0, 60, 0, "cut", 1,
                                         0, 0, 0);
        });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    server->stop();
    e = save.get();
    EXPECT_TRUE(mentions(e, "connection")) << e.description();
    server->start();
    EXPECT_EQ(scalar(*open(base), "select count(*) from WLBill"), "0");
    EXPECT_EQ(scalar(*open(base), counters), before);
    billdata::common::session() = billdata::common::SessionContext{};
}

}  // namespace
