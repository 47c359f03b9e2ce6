// When committed work reaches the disk. The syncs of the write-ahead log are counted by a file
// layer that passes every call through to the engine's own and counts the syncs of "-wal" files.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "billdata/ado/ado.h"
#include "drivers/sqlite_fixture.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::create_database;
using billdata::testing::kItemTable;
using billdata::testing::scalar;
using billdata::testing::sqlite_connection;
using billdata::testing::TempDir;

std::atomic<int> log_syncs{0};
sqlite3_vfs* real_vfs = nullptr;
sqlite3_vfs counting_vfs;

// The engine's own methods of each kind of file, with the sync of the log counted.
struct Methods {
    const sqlite3_io_methods* real;
    sqlite3_io_methods counted;
};
std::mutex methods_mutex;
std::map<const sqlite3_io_methods*, Methods> log_methods;

int counted_sync(sqlite3_file* f, int flags) {
    ++log_syncs;
    const sqlite3_io_methods* real = nullptr;
    {
        std::lock_guard lock(methods_mutex);
        for (const auto& [key, m] : log_methods)
            if (&m.counted == f->pMethods) real = m.real;
    }
    return real->xSync(f, flags);
}

int counting_open(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* f, int flags, int* out) {
    const int rc = real_vfs->xOpen(real_vfs, name, f, flags, out);
    const bool log =
        name && std::strlen(name) > 4 && std::strcmp(name + std::strlen(name) - 4, "-wal") == 0;
    if (rc == SQLITE_OK && log && f->pMethods) {
        std::lock_guard lock(methods_mutex);
        auto [it, added] = log_methods.try_emplace(f->pMethods);
        if (added) {
            it->second.real = f->pMethods;
            it->second.counted = *f->pMethods;
            it->second.counted.xSync = counted_sync;
        }
        f->pMethods = &it->second.counted;
    }
    return rc;
}

// Made the default for the test's lifetime, so that the driver's handles open through it.
struct CountingVfs {
    CountingVfs() {
        real_vfs = sqlite3_vfs_find(nullptr);
        counting_vfs = *real_vfs;
        counting_vfs.zName = "billdata-counting";
        counting_vfs.xOpen = counting_open;
        sqlite3_vfs_register(&counting_vfs, 1);
    }
    ~CountingVfs() { sqlite3_vfs_unregister(&counting_vfs); }
};

TEST(Durability, FullSyncsTheLogAtEachCommitAndOnceForAConnectionsAutocommitWork) {
    CountingVfs vfs;
    TempDir dir;
    const std::string db = dir.file("shop.db");
    create_database(db, kItemTable);
    const std::string full = sqlite_connection(db, ";Pooling=False");
    // Another connection stays open, so that closing ours is never the last close (which
    // checkpoints the log and syncs it in the engine's own way).
    auto keeper = Connection::create();
    keeper->Open(sqlite_connection(db, ";Synchronous=Normal;Pooling=False;Group Window=0"));
    keeper->Execute("select count(*) from T")->Close();
    // The log's first write syncs its header (the engine's own, once per log); ungrouped, so
    // that it happens here.
    keeper->Execute("insert into T(FID) values(5)");

    // Statements outside a transaction are committed for every other connection (one of the
    // process commits their group before it reads) and reach the disk together when the
    // connection is let go.
    auto cn = Connection::create();
    cn->Open(full);
    const int at_open = log_syncs;
    for (int i = 1; i <= 20; ++i)
        cn->Execute("insert into T(FID, FName) values(" + std::to_string(10 + i) + ", 'x')");
    cn->Execute("update T set FQty=1 where FID<15");
    EXPECT_EQ(scalar(db, "select count(*) from T"), "24");
    EXPECT_EQ(log_syncs - at_open, 0);
    cn->Close();
    EXPECT_EQ(log_syncs - at_open, 1);

    // A transaction's commit is on disk when CommitTrans returns; reading syncs nothing.
    cn->Open(full);
    int before = log_syncs;
    cn->BeginTrans();
    cn->Execute("insert into T(FID) values(100)");
    cn->Execute("insert into T(FID) values(101)");
    cn->CommitTrans();
    EXPECT_EQ(log_syncs - before, 1);
    cn->Execute("select count(*) from T")->Close();
    cn->BeginTrans();
    cn->Execute("delete from T where FID=100");
    cn->RollbackTrans();
    cn->Close();
    EXPECT_EQ(log_syncs - before, 1);
    EXPECT_EQ(scalar(db, "select count(*) from T"), "26");

    // A statement that changes nothing leaves nothing to sync.
    before = log_syncs;
    cn->Open(full);
    cn->Execute("update T set FQty=2 where FID=999");
    cn->Execute("delete from T where FID=999");
    cn->Close();
    EXPECT_EQ(log_syncs - before, 0);

    // Pooled handles sync before they go back to the pool.
    before = log_syncs;
    cn->Open(sqlite_connection(db));
    cn->Execute("delete from T where FID>100");
    cn->Close();
    EXPECT_EQ(log_syncs - before, 1);

    // Normal leaves the syncing to the engine's checkpoints.
    before = log_syncs;
    cn->Open(sqlite_connection(db, ";Synchronous=Normal;Pooling=False"));
    cn->Execute("insert into T(FID) values(200)");
    cn->BeginTrans();
    cn->Execute("insert into T(FID) values(201)");
    cn->CommitTrans();
    cn->Close();
    EXPECT_EQ(log_syncs - before, 0);
    EXPECT_EQ(scalar(db, "select count(*) from T"), "27");
}

}  // namespace
