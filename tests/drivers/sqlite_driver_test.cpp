#include "billdata/drivers/sqlite/sqlite_driver.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "billdata/ado/ado.h"
#include "billdata/ado/statement.h"
#include "drivers/sqlite_fixture.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::create_database;
using billdata::testing::error_of;
using billdata::testing::mentions;
using billdata::testing::scalar;
using billdata::testing::sqlite_connection;
using billdata::testing::TempDir;

TEST(SqliteDriver, BadConnectionInputIsRefusedClearly) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::kItemTable);
    auto open = [](const std::string& cs) { return [cs] { Connection::create()->Open(cs); }; };

    ComError e = error_of(open("Provider=Oracle;Data Source=" + db));
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, "Oracle")) << e.description();

    const std::string missing = dir.file("missing.db");
    e = error_of(open(sqlite_connection(missing)));
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, missing)) << e.description();
    EXPECT_FALSE(std::filesystem::exists(missing));  // never created by Open
    e = error_of(open(missing));
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_FALSE(std::filesystem::exists(missing));

    e = error_of(open(sqlite_connection(db, ";Colour=Red")));
    EXPECT_EQ(e.number(), err::kConnection);
    EXPECT_TRUE(mentions(e, "Colour")) << e.description();
    EXPECT_TRUE(
        mentions(error_of(open(sqlite_connection(db, ";Synchronous=Sometimes"))), "Sometimes"));
    EXPECT_TRUE(mentions(error_of(open(sqlite_connection(db, ";Busy Timeout=soon"))), "soon"));
    EXPECT_TRUE(
        mentions(error_of(open(sqlite_connection(db, ";Group Window=-5"))), "Group Window"));
    EXPECT_TRUE(mentions(error_of(open(sqlite_connection(db, ";Lock Timeout=-1"))), "-1"));
    EXPECT_TRUE(mentions(error_of(open(sqlite_connection(db, ";Command Timeout=soon"))), "soon"));
    EXPECT_EQ(error_of(open("Provider=SQLite")).number(), err::kConnection);

    const std::string junk = dir.file("junk.db");
    std::ofstream(junk) << "this is no database file, just some text that is long enough";
    EXPECT_EQ(error_of(open(sqlite_connection(junk))).number(), err::kConnection);

    // Accepted forms: a bare path, every option, and the file is switched to WAL.
    auto cn = Connection::create();
    EXPECT_NO_THROW(cn->Open(db));
    cn->Close();
    EXPECT_NO_THROW(
        cn->Open(sqlite_connection(db, ";Synchronous=Normal;Busy Timeout=200;Lock Timeout=30")));
    EXPECT_EQ(scalar(db, "pragma journal_mode"), "wal");
}

TEST(SqliteDriver, ColumnValuesBecomeVariantsByType) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db,
                    "create table V(FID INTEGER, FBig INTEGER, FAmount REAL, FName TEXT COLLATE "
                    "BDTEXT, FDate DATETIME COLLATE BDDATE, FNote TEXT COLLATE BDTEXT);"
                    "insert into V values(1, 5000000000, 12.5, 'coat', '2025-03-09 10:30:00',"
                    " NULL);"
                    "insert into V values(2, -7, 3, 'hat', 'not a date', 'x');");
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db));
    auto rs = cn->Execute("select FID, FBig, FAmount, FName, FDate, FNote from V order by FID");
    EXPECT_EQ(rs->Fields("FID").Value(), Variant(std::int32_t{1}));
    EXPECT_EQ(rs->Fields("FBig").Value(), Variant(5000000000.0));  // beyond 32 bits
    EXPECT_EQ(rs->Fields("FAmount").Value(), Variant(12.5));
    EXPECT_EQ(rs->Fields("FName").Value(), Variant("coat"));
    EXPECT_EQ(rs->Fields("FDate").Value(), Variant(DateTime(2025, 3, 9, 10, 30)));
    EXPECT_TRUE(rs->Fields("FNote").Value().is_null());
    rs->MoveNext();
    EXPECT_EQ(rs->Fields("FBig").Value(), Variant(std::int32_t{-7}));
    EXPECT_EQ(rs->Fields("FAmount").Value(), Variant(3.0));
    EXPECT_EQ(rs->Fields("FDate").Value(), Variant("not a date"));  // kept as text
}

TEST(SqliteDriver, OneStatementPerExecute) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::kItemTable);
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db));
    for (const char* sql : {"update T set FQty=99 where FID=1; delete from T",
                            "update T set FQty=99 where FID=1; select FID from T"}) {
        ComError e = error_of([&] { cn->Execute(sql); });
        EXPECT_EQ(e.number(), err::kDatabase) << sql;
        EXPECT_FALSE(e.description().empty());
    }
    EXPECT_EQ(scalar(db, "select FQty from T where FID=1"), "2.5");
    EXPECT_EQ(scalar(db, "select count(*) from T"), "3");

    ComError e = error_of([&] { cn->Execute("select FNoSuchColumn from T"); });
    EXPECT_EQ(e.number(), err::kDatabase);
    EXPECT_FALSE(e.description().empty());
}

TEST(SqliteDriver, ConstraintViolationsAreClassifiedWithTheKey) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db,
                    "create table H(FInterID INTEGER PRIMARY KEY, FBillNo TEXT COLLATE BDTEXT "
                    "NOT NULL);"
                    "create table L(FInterID INTEGER, FEntryID INTEGER, FQty REAL);"
                    "create unique index L_key on L(FInterID, FEntryID) where FEntryID>=0;"
                    "insert into H values(7, 'ZP250309-001');"
                    "insert into L values(7, 0, 1);");
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db));

    ComError e = error_of([&] { cn->Execute("insert into H(FInterID, FBillNo) values(7, 'x')"); });
    EXPECT_EQ(e.number(), err::kIntegrity);
    EXPECT_EQ(e.error_class(), ErrorClass::DuplicateKey);
    EXPECT_EQ(e.violated_key(), "H.FInterID");
    EXPECT_EQ(e.native_code(), SQLITE_CONSTRAINT_PRIMARYKEY);
    EXPECT_FALSE(e.transaction_open());
    EXPECT_TRUE(mentions(e, "constraint")) << "the engine's own message: " << e.description();

    cn->BeginTrans();
    cn->Execute("insert into L values(8, 0, 1)");
    e = error_of([&] { cn->Execute("insert into L(FInterID, FEntryID, FQty) values(7, 0, 2)"); });
    EXPECT_EQ(e.error_class(), ErrorClass::DuplicateKey);
    EXPECT_EQ(e.violated_key(), "L.FInterID,FEntryID");
    EXPECT_EQ(e.native_code(), SQLITE_CONSTRAINT_UNIQUE);
    EXPECT_TRUE(e.transaction_open());
    EXPECT_TRUE(cn->InTransaction());
    cn->Execute("insert into L(FInterID, FEntryID, FQty) values(7, -1, 0)");  // outside the key
    cn->CommitTrans();
    EXPECT_EQ(scalar(db, "select count(*) from L"), "3");

    e = error_of([&] { cn->Execute("insert into H(FInterID) values(9)"); });
    EXPECT_EQ(e.number(), err::kIntegrity);
    EXPECT_EQ(e.error_class(), ErrorClass::Other);
    EXPECT_TRUE(e.violated_key().empty());
}

TEST(SqliteDriver, LockWaitsGiveUpAsLockErrorsAndSucceedLater) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::kItemTable);
    auto a = Connection::create();
    auto b = Connection::create();
    a->Open(sqlite_connection(db, ";Busy Timeout=100"));
    b->Open(sqlite_connection(db, ";Busy Timeout=100"));

    a->BeginTrans();
    a->Execute("update T set FQty=5 where FID=1");
    ComError e = error_of([&] { b->BeginTrans(); });
    EXPECT_EQ(e.number(), err::kLockTimeout);
    EXPECT_EQ(e.error_class(), ErrorClass::Lock);
    EXPECT_EQ(e.native_code() & 0xff, SQLITE_BUSY);
    EXPECT_FALSE(b->InTransaction());
    e = error_of([&] { b->Execute("update T set FQty=6 where FID=2"); });
    EXPECT_EQ(e.error_class(), ErrorClass::Lock);

    // Readers are not blocked by the writer, and see the last committed state.
    auto rs = b->Execute("select FQty from T where FID=1");
    EXPECT_EQ(rs->Fields("FQty").Value(), Variant(2.5));
    rs->Close();

    a->CommitTrans();
    b->BeginTrans();  // the retry succeeds once the first has committed
    b->Execute("update T set FQty=6 where FID=2");
    b->CommitTrans();
    EXPECT_EQ(scalar(db, "select FQty from T where FID=1"), "5.0");
    EXPECT_EQ(scalar(db, "select FQty from T where FID=2"), "6.0");
}

void insert_marker(sqlite3* db, std::vector<driver::ProcArg>& args) {
    std::string sql = "insert into T(FID, FName) values(" + args.at(0).value.to_string() + ",'m')";
    int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) throw billdata::drivers::sqlite::database_error(db, rc);
}

TEST(SqliteDriver, ProceduresRunOnTheCallersTransaction) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::kItemTable);
    billdata::drivers::sqlite::register_procedure("sp_TestInsertMarker", insert_marker);
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db));
    auto call = [&](int id) {
        auto cmd = Command::create();
        cmd->CommandText = "SP_TESTINSERTMARKER";  // names without regard to case
        cmd->CommandType = adCmdStoredProc;
        cmd->ActiveConnection = cn;
        cmd->Parameters().Append(cmd->CreateParameter("@ID", adInteger, adParamInput, 0, id));
        cmd->Execute();
    };
    cn->BeginTrans();
    call(50);
    cn->RollbackTrans();
    EXPECT_EQ(scalar(db, "select count(*) from T where FID=50"), "0");
    call(51);
    EXPECT_EQ(scalar(db, "select count(*) from T where FID=51"), "1");

    ComError e = error_of([&] { call(51); });  // the procedure's own failure, classified
    EXPECT_EQ(e.error_class(), ErrorClass::DuplicateKey);
    EXPECT_EQ(e.violated_key(), "T.FID");
}

}  // namespace

namespace {

TEST(SqliteDriver, SchemaChangesMadeAfterConnectingAreSeen) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::kItemTable);
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db));
    cn->Execute("select FID from T")->Close();  // the catalogue is loaded and cached

    create_database(db, "create table N(FID INTEGER, FDate DATETIME COLLATE BDDATE);");
    cn->Execute("insert into N(FID, FDate) values(1, '2025-03-09')");
    auto rs = cn->Execute("select FDate from N where FID=1");
    EXPECT_EQ(rs->Fields("FDate").Value(), Variant(DateTime(2025, 3, 9)));
}

// A pooled connection, whose last check of the schema outlived its own commits, comes back after
// another connection changed an amount column from 2 decimals to 4: a statement of a shape it has
// prepared is made again for the new column, in a transaction and in a write group alike.
TEST(SqliteDriver, SchemaChangesBetweenTransactionsAreSeen) {
    static const Skeleton kInsert("insert into N(FID, FAmount) values({}, {})");
    Statement st;
    auto insert = [&](Connection& cn, int id) {  // built, as a till sale's statements are
        st.build(kInsert, id, 1.23456);
        cn.Execute(st);
    };
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, billdata::testing::declared_decimal("N", "FAmount", 18, 2));
    int version = 0;
    auto change_to = [&](int scale) {  // a new table each time: the schema's text changes too
        create_database(db, "drop table if exists N; create table N(FID INTEGER, FAmount REAL, F" +
                                std::to_string(++version) +
                                " TEXT); update t_SchemaColumns set NUMERIC_SCALE=" +
                                std::to_string(scale) + ";");
    };
    for (const bool transaction : {true, false}) {
        change_to(2);
        {
            auto cn = Connection::create();
            cn->Open(sqlite_connection(db));
            cn->BeginTrans();
            insert(*cn, 1);
            cn->CommitTrans();
            insert(*cn, 2);  // a write group
            cn->Close();
        }
        EXPECT_EQ(scalar(db, "select sum(FAmount) from N"), "2.46");
        change_to(4);
        auto cn = Connection::create();
        cn->Open(sqlite_connection(db));
        if (transaction) cn->BeginTrans();
        insert(*cn, 3);
        if (transaction) cn->CommitTrans();
        cn->Close();
        EXPECT_EQ(scalar(db, "select FAmount from N where FID=3"), "1.2346") << transaction;
    }
}

}  // namespace
