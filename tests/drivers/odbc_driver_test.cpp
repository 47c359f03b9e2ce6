#include "billdata/drivers/odbc/odbc_driver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "billdata/ado/ado.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/odbc/odbc_target.h"
#include "billdata/drivers/odbc/sqlserver_error.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::drivers::odbc::Dialect;
using billdata::drivers::odbc::odbc_target;
using billdata::testing::error_of;
using billdata::testing::mentions;

std::shared_ptr<Connection> open(const std::string& cs) {
    auto cn = Connection::create();
    cn->Open(cs);
    return cn;
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
             {"DSN=shop;Pooling=sometimes", "sometimes"},
             {";driver=:;", "names no ODBC driver"},
             {"DSN=shop;Driver={PostgreSQL Unicode}", "both a DSN and a Driver"},
             {"DSN=" + std::string(33, 'x'), "32 characters"},
             {"Provider=SQLOLEDB;Data Source=h;Driver={/}", "names no ODBC driver"}}) {
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

}  // namespace
