#include "billdata/drivers/odbc/odbc_driver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "billdata/ado/ado.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/odbc/odbc_target.h"
#include "billdata/drivers/odbc/sqlserver_error.h"
#include "billdata/schema/schema.h"
#include "support/server_db.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::drivers::odbc::Dialect;
using billdata::drivers::odbc::odbc_target;
using billdata::testing::error_of;
using billdata::testing::PrivateServer;
using billdata::testing::ServerDatabase;

bool mentions(const ComError& e, const std::string& text) {
    return e.description().find(text) != std::string::npos;
}

std::shared_ptr<Connection> open(const std::string& cs) {
    auto cn = Connection::create();
    cn->Open(cs);
    return cn;
}

std::string scalar(Connection& cn, const std::string& sql) {
    auto rs = cn.Execute(sql);
    return rs->Eof() ? "" : rs->Fields(std::size_t{0}).Value().to_string();
}

// The ODBC string of a database of the tests' server, from its own connection string.
std::string odbc_string(const std::string& native) {
    const auto cs = ConnectionString::parse(native);
    return "Driver={PostgreSQL Unicode};Servername=" + cs.get("host") +
           ";Port=" + cs.get("port", "5432") + ";Database=" + cs.get("database") +
           ";UID=" + cs.get("user id") + (cs.has("password") ? ";PWD=" + cs.get("password") : "") +
           ";Dialect=PostgreSQL";
}

TEST(OdbcConnectionString, OleDbStringsMapOntoTheOdbcDriverAndOdbcStringsPassThrough) {
    auto target = [](const std::string& text) {
        return odbc_target(ConnectionString::parse(text));
    };
    auto t = target(
        "Provider=SQLOLEDB;Data Source=shop-server,1433;Initial Catalog=Shop;User ID=till;"
        "Password=\"p;w}\";Lock Timeout=20");
    EXPECT_EQ(t.odbc,
              "Driver={FreeTDS};Server=shop-server;Port=1433;Database=Shop;UID=till;PWD={p;w}}};"
              "TDS_Version=7.4;ClientCharset=UTF-8");
    EXPECT_EQ(t.dialect, Dialect::SqlServer);
    EXPECT_EQ(t.where, "ODBC driver 'FreeTDS' at server 'shop-server,1433'");
    t = target(
        "Provider=SQLNCLI11;Data Source=(local);Initial Catalog=Shop;User ID=sa;Password=x;"
        "Driver={ODBC Driver 18 for SQL Server}");
    EXPECT_EQ(t.odbc,
              "Driver={ODBC Driver 18 for SQL Server};Server=127.0.0.1;Database=Shop;UID=sa;PWD=x");
    t = target(
        "Driver={PostgreSQL Unicode};Servername=/tmp/pg;Port=5439;Database=shop;UID=till;"
        "Dialect=PostgreSQL;Pooling=False;Command Timeout=5;Connect Timeout=3");
    EXPECT_EQ(t.odbc,
              "database=shop;driver={PostgreSQL Unicode};port=5439;servername=/tmp/pg;uid=till;"
              "UseDeclareFetch=1;Fetch=500");
    EXPECT_EQ(t.dialect, Dialect::PostgreSql);
    EXPECT_FALSE(t.pooling);
    EXPECT_EQ(t.connect_timeout_s, 3);
    EXPECT_EQ(target("DSN=shop").odbc, "dsn=shop");

    EXPECT_FALSE(billdata::drivers::odbc::accepts(
        ConnectionString::parse("Provider=SQLite;Data Source=a.db")));
    EXPECT_TRUE(billdata::drivers::odbc::accepts(
        ConnectionString::parse("Provider=MSOLEDBSQL19;Data Source=h")));
    for (const auto& [text, named] : std::vector<std::pair<std::string, std::string>>{
             {"Provider=SQLOLEDB;Data Source=h;Colour=red", "Colour"},
             {"Provider=SQLOLEDB;Data Source=h,port", "port"},
             {"Provider=SQLOLEDB;Data Source=h;Integrated Security=SSPI", "User ID"},
             {"Provider=SQLOLEDB;Initial Catalog=Shop", "Data Source"},
             {"Driver={FreeTDS};Server=h;Dialect=Oracle", "Oracle"},
             {"DSN=shop;Pooling=sometimes", "sometimes"}}) {
        const ComError e = error_of([&] { target(text); });
        EXPECT_EQ(e.number(), err::kConnection) << text;
        EXPECT_TRUE(mentions(e, named)) << text << ": " << e.description();
    }
}

TEST(SqlServerErrors, ClassifiedByNativeNumber) {
    using billdata::drivers::odbc::sqlserver_error;
    struct Case {
        int native;
        ErrorClass cls;
        std::int32_t number;
        bool open;  // inside a transaction, still open afterwards
    };
    for (const Case& c : {Case{1205, ErrorClass::Lock, err::kLockTimeout, false},
                          Case{1222, ErrorClass::Lock, err::kLockTimeout, true},
                          Case{2627, ErrorClass::DuplicateKey, err::kIntegrity, true},
                          Case{2601, ErrorClass::DuplicateKey, err::kIntegrity, true},
                          Case{547, ErrorClass::Other, err::kIntegrity, true},
                          Case{8115, ErrorClass::Other, err::kDatabase, true},
                          Case{8134, ErrorClass::Other, err::kDatabase, true},
                          Case{245, ErrorClass::Other, err::kDatabase, true}}) {
        const ComError e = sqlserver_error(c.native, "text\n", true, "ICStockBill.FInterID");
        EXPECT_EQ(e.error_class(), c.cls) << c.native;
        EXPECT_EQ(e.number(), c.number) << c.native;
        EXPECT_EQ(e.native_code(), c.native);
        EXPECT_EQ(e.transaction_open(), c.open) << c.native;
        EXPECT_EQ(e.violated_key(),
                  c.cls == ErrorClass::DuplicateKey ? "ICStockBill.FInterID" : "");
        EXPECT_EQ(e.description(), "text");
    }
    // The names a duplicate names, whichever the server's language quotes them with.
    using billdata::drivers::odbc::quoted_names;
    EXPECT_EQ(quoted_names("Cannot insert duplicate key row in object 'dbo.ICStockBill' with "
                           "unique index 'IX_Bill'. The duplicate key value is (5)."),
              (std::vector<std::string>{"dbo.ICStockBill", "IX_Bill"}));
    EXPECT_EQ(
        quoted_names(
            "违反了 PRIMARY KEY 约束“PK_ICStockBill”。不能在对象“dbo.ICStockBill”中插入重复键。"),
        (std::vector<std::string>{"PK_ICStockBill", "dbo.ICStockBill"}));
}

// What goes to SQL Server: the lock hint right after the counter table and its alias, never
// beside hints of the statement's own; literals bound except where the server matches terms by
// their text (GROUP BY, ORDER BY, a grouped select list) or reads them as part of the plan (TOP).
TEST(SqlServerText, LockHintPlacesAndBoundLiterals) {
    using billdata::dialect::inspect_statement;
    const std::string plain = "select FMaxNum from ICMaxNum where FTranType=11";
    auto p = inspect_statement(plain);
    EXPECT_EQ(p.lock_hint_at, plain.find(" where"));
    EXPECT_EQ(p.parameters, std::vector<std::size_t>{plain.find("11")});
    const std::string aliased = "select b.FNumber from dbo.ICBillNo as b where b.FBillID = 99";
    EXPECT_EQ(inspect_statement(aliased).lock_hint_at, aliased.find(" where"));
    EXPECT_EQ(inspect_statement("select FMaxNum from ICMaxNum with (nolock) where FTranType=1")
                  .lock_hint_at,
              std::string::npos);
    EXPECT_EQ(inspect_statement("select max(FMaxNum) from ICMaxNum").lock_hint_at,
              std::string::npos);
    const std::string grouped =
        "select top 5 left(FName, 2), count(*) from t_Item where FItemID > 3 and FName <> 'x' "
        "group by left(FName, 2) order by 1";
    EXPECT_EQ(inspect_statement(grouped).parameters,
              (std::vector<std::size_t>{grouped.find("3 "), grouped.find("'x'")}));
    EXPECT_THROW(inspect_statement("select 1 from t_Item where 1=1 delete from ICStockBill"),
                 billdata::dialect::DialectError);
}

TEST(OdbcConnection, BadConnectionsFailClearlyAndInTime) {
    ComError e = error_of([] { open("Driver={bd No Such Driver};Server=127.0.0.1"); });
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, "bd No Such Driver")) << e.description();
    e = error_of([] { open("DSN=bd_no_such_dsn"); });
    EXPECT_TRUE(mentions(e, "bd_no_such_dsn")) << e.description();
    // A server that takes the connection and never answers.
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const std::string port = std::to_string(ntohs(address.sin_port));
    const auto start = std::chrono::steady_clock::now();
    e = error_of([&] {
        open("Driver={PostgreSQL Unicode};Servername=127.0.0.1;Port=" + port +
             ";Database=shop;UID=till;Dialect=PostgreSQL;Connect Timeout=2");
    });
    close(listener);
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, "127.0.0.1") && mentions(e, "port " + port)) << e.description();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
}

// The server's own faults, on a server of the test's own: a wrong password, and a restart
// between two operations (the pooled connection is gone; the next operation reconnects).
TEST(OdbcServerFaults, WrongPasswordAndARestartBetweenOperations) {
    std::unique_ptr<PrivateServer> server;
    try {
        server = std::make_unique<PrivateServer>();
    } catch (const std::exception& e) {
        GTEST_SKIP() << e.what();
    }
    const std::string base = odbc_string(server->connection_string());
    ComError e = error_of([&] {
        open(odbc_string("Host=" + server->socket_dir() +
                         ";Port=" + std::to_string(server->port()) +
                         ";Database=postgres;User ID=billdata_pw;Password=no"));
    });
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, "password")) << e.description();

    billdata::schema::create_database(base, true, 2025, 3);
    open(base)->Execute("insert into t_Stock (FItemID, FNumber, FName) values (11, '11', 'a')");
    server->restart();
    EXPECT_EQ(scalar(*open(base), "select FName from t_Stock where FItemID=11"), "a");
}

class OdbcPostgres : public ::testing::Test {
  protected:
    void SetUp() override {
        if (billdata::testing::postgres_server().empty())
            GTEST_SKIP() << "no PostgreSQL server for the tests (BILLDATA_TEST_POSTGRES)";
        db_ = std::make_unique<ServerDatabase>();
        cs_ = odbc_string(billdata::testing::postgres_server() + ";Database=" + db_->name());
        billdata::schema::create_database(cs_, false, 2025, 3);
    }
    std::unique_ptr<ServerDatabase> db_;
    std::string cs_;
};

// Through ODBC as natively: a failed statement inside a transaction is undone alone, the
// duplicate names its key, and counter reads inside transactions take turns, for a key that has
// no row yet too.
TEST_F(OdbcPostgres, FailedStatementsAndCounterReadsAsOnTheNativeDriver) {
    auto cn = open(cs_);
    cn->BeginTrans();
    cn->Execute("insert into t_Stock (FItemID, FNumber, FName) values (7, '07', 'Shop')");
    ComError e = error_of([&] {
        cn->Execute("insert into t_Stock (FItemID, FNumber, FName) values (7, '08', 'x')");
    });
    EXPECT_EQ(e.error_class(), ErrorClass::DuplicateKey) << e.description();
    EXPECT_EQ(e.violated_key(), "t_Stock.FItemID");
    EXPECT_TRUE(e.transaction_open());
    cn->Execute("update t_Stock set FName='Shop 7' where FItemID=7");
    cn->CommitTrans();
    EXPECT_EQ(scalar(*open(cs_), "select FName from t_Stock where FItemID=7"), "Shop 7");

    for (const std::string key : {"11", "77"}) {
        auto a = open(cs_);
        auto b = open(cs_);
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

// A list streams through the ODBC driver too (its rows are fetched in blocks, never all held),
// and a list abandoned half way leaves the connection ready for the next statement.
TEST_F(OdbcPostgres, ListsStreamAndCanBeLeftHalfRead) {
    db_->exec(
        "INSERT INTO t_Item (FItemID, FItemClassID, FNumber, FName) "
        "SELECT g, 1, 'N' || g, 'item number ' || g FROM generate_series(1, 500000) g");
    auto cn = open(cs_);
    const long before = billdata::testing::resident_bytes();
    long rows = 0, peak = 0;
    {
        auto rs = cn->Execute("select FItemID, FName from t_Item");
        for (; !rs->Eof(); rs->MoveNext())
            if (++rows % 50000 == 0) peak = std::max(peak, billdata::testing::resident_bytes());
    }
    EXPECT_EQ(rows, 500000);
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
    // Held in memory the rows would take some 50 MB.
    EXPECT_LT(peak - before, 16L * 1024 * 1024) << "resident memory grew by " << peak - before;
}

// Rows fetched in blocks read as the native driver reads them: NULLs, numbers and dates in
// every position of a block, texts longer than their buffers (long ones, and ones whose
// characters take two UTF-16 units each) among short ones, over several blocks; the statement
// then serves a single-row read again.
TEST_F(OdbcPostgres, BlocksReadTheValuesTheNativeDriverReads) {
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
    auto native = open(billdata::testing::postgres_server() + ";Database=" + db_->name());
    auto cn = open(cs_);
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

// A deadlock victim's transaction is gone even though the ODBC driver would only undo the
// statement; a statement past its command timeout is stopped and the connection goes on.
TEST_F(OdbcPostgres, DeadlockEndsTheTransactionAndATimeoutStopsAWait) {
    open(cs_)->Execute("insert into t_Stock (FItemID, FNumber, FName) values (1, '1', 'a')");
    open(cs_)->Execute("insert into t_Stock (FItemID, FNumber, FName) values (2, '2', 'b')");
    auto a = open(cs_ + ";Busy Timeout=20000");
    auto b = open(cs_ + ";Busy Timeout=20000");
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
    const std::string names = scalar(*open(cs_), "select min(FName) + max(FName) from t_Stock");
    EXPECT_TRUE(names == "a1a2" || names == "b1b2") << names;

    auto c = open(cs_ + ";Busy Timeout=60000;Command Timeout=1");
    a->BeginTrans();
    a->Execute("update t_Stock set FName='x' where FItemID=1");
    const auto start = std::chrono::steady_clock::now();
    ComError e = error_of([&] { c->Execute("update t_Stock set FName='y' where FItemID=1"); });
    EXPECT_EQ(e.error_class(), ErrorClass::Timeout) << e.description();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    a->RollbackTrans();
    EXPECT_EQ(scalar(*c, "select FName from t_Stock where FItemID=2"), names.substr(2));
}

}  // namespace
