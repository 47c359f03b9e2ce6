// Write groups: statements run outside a transaction share one write transaction of the
// driver's, which nobody else may notice: other connections of the process see the writes,
// other processes wait at most the window, and failures behave as in autocommit.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "billdata/ado/ado.h"
#include "drivers/sqlite_fixture.h"
#include "support/io_faults.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::create_database;
using billdata::testing::kItemTable;
using billdata::testing::scalar;
using billdata::testing::sqlite_connection;
using billdata::testing::TempDir;
namespace faults = billdata::testing::faults;

// What a connection of another program sees, with no wait for locks: the file as committed.
std::string committed_count(const std::string& db) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(db.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(raw, "select count(*) from T", -1, &st, nullptr);
    std::string out = sqlite3_step(st) == SQLITE_ROW
                          ? reinterpret_cast<const char*>(sqlite3_column_text(st, 0))
                          : "<error>";
    sqlite3_finalize(st);
    sqlite3_close(raw);
    return out;
}

TEST(WriteGroup, AnotherConnectionOfTheProcessSeesTheGroupsWrites) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kItemTable);
    auto writer = Connection::create();
    writer->Open(sqlite_connection(db, ";Group Window=1000"));
    writer->Execute("insert into T(FID, FName) values(10, 'scarf')");
    writer->Execute("update T set FQty=7 where FID=10");
    EXPECT_FALSE(writer->InTransaction());
    // Still only in the group: another program would not see it yet.
    EXPECT_EQ(committed_count(db), "3");

    auto reader = Connection::create();
    reader->Open(sqlite_connection(db, ";Pooling=False"));
    auto rs = reader->Execute("select FQty from T where FID=10");
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Fields("FQty").Value().to_double(), 7.0);
    rs->Close();
    // The reader may write at once: no lock of the process stands in its way.
    reader->Execute("insert into T(FID) values(11)");
    reader->Close();
    writer->Execute("insert into T(FID) values(12)");  // a new group on the same connection
    writer->Close();
    EXPECT_EQ(committed_count(db), "6");
}

TEST(WriteGroup, AnotherProcessWaitsNoLongerThanTheWindowForAnIdleGroup) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kItemTable);
    auto writer = Connection::create();
    // A first group, committed when its connection closes, leaves whatever watches idle groups
    // with nothing to watch once the window has passed, or, at once, with one it has just seen
    // come and go: either way the next group, left idle, is committed within its window.
    int id = 10;
    for (const int pause_ms : {300, 0}) {
        SCOPED_TRACE(pause_ms);
        writer->Open(sqlite_connection(db, ";Group Window=200"));
        writer->Execute("insert into T(FID) values(" + std::to_string(id++) + ")");
        writer->Close();
        std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
        writer->Open(sqlite_connection(db, ";Group Window=200"));
        writer->Execute("insert into T(FID) values(" + std::to_string(id++) + ")");

        // The writer stays open and idle; the command line writes to the same file meanwhile.
        const auto start = std::chrono::steady_clock::now();
        const std::string command = std::string(BILLDATA_CLI) + " sql --db '" + db +
                                    "' 'insert into T(FID) values(" + std::to_string(id++) +
                                    ")' >/dev/null 2>&1";
        const int status = std::system(command.c_str());
        const auto took = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(status, 0);
        // Its own busy timeout is 5 s: it was let in by the window, not by giving up.
        EXPECT_LT(took, std::chrono::milliseconds(2000));
        EXPECT_EQ(committed_count(db), std::to_string(id - 7));  // 3 rows before, 3 a round
        writer->Close();
    }
}

TEST(WriteGroup, AFailingStatementIsUndoneAloneAndTheOthersStay) {
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kItemTable);
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db, ";Group Window=1000"));
    cn->Execute("insert into T(FID, FName) values(10, 'a')");
    try {
        cn->Execute("insert into T(FID, FName) values(10, 'again')");
        ADD_FAILURE() << "a duplicate key was taken";
    } catch (const ComError& e) {
        EXPECT_EQ(e.error_class(), ErrorClass::DuplicateKey);
        // The group is no transaction of the caller's.
        EXPECT_FALSE(e.transaction_open());
    }
    EXPECT_FALSE(cn->InTransaction());
    cn->Execute("insert into T(FID, FName) values(11, 'b')");
    cn->Close();
    EXPECT_EQ(scalar(db, "select group_concat(FName) from T where FID>=10 order by FID"), "a,b");
}

TEST(WriteGroup, AnIoErrorAtTheGroupsCommitReachesTheCaller) {
    faults::install_vfs();
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kItemTable);
    auto cn = Connection::create();
    cn->Open(sqlite_connection(db, ";Group Window=1000;Pooling=False"));
    cn->Execute("insert into T(FID) values(10)");
    cn->Execute("insert into T(FID) values(11)");
    // The group's pages reach the log only at its commit, which letting go of the connection
    // makes: that write fails.
    faults::arm(faults::Target::Write, 1, SQLITE_IOERR_WRITE);
    EXPECT_THROW(cn->Close(), ComError);
    EXPECT_TRUE(faults::shot().fired);
    faults::reset();
    // The window's work is lost, as a power cut would lose it; the file is sound.
    EXPECT_EQ(scalar(db, "select count(*) from T"), "3");
    EXPECT_EQ(scalar(db, "pragma integrity_check"), "ok");
    cn->Open(sqlite_connection(db, ";Pooling=False"));
    cn->Execute("insert into T(FID) values(12)");
    cn->Close();
    EXPECT_EQ(scalar(db, "select count(*) from T"), "4");
}

}  // namespace
