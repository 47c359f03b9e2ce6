// Keys, triggers and indexes of the embedded schema, on real database files.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/test_support.h"

using billdata::testing::RawDb;
using billdata::testing::TempDir;

namespace {

std::string new_database(const TempDir& dir, const char* name = "shop.db") {
    std::string path = dir.file(name);
    billdata::schema::create_database(path, false, 2025, 3);
    return path;
}

}  // namespace

// The stock bills' lines are held to the same by the tills' re-save and removal tests.
TEST(Schema, DeletingAnOrderDeletesItsRowsAndOnlyThose) {
    TempDir dir;
    RawDb db(new_database(dir));
    auto lines = [&](const std::string& id) {
        return db.text("SELECT (SELECT count(*) FROM ICOrderEntry WHERE FInterID=" + id +
                       ") || '/' || (SELECT count(*) FROM ICOrderEntry_1 WHERE FInterID=" + id +
                       ")");
    };
    for (const std::string id : {"10", "11"})
        db.exec("INSERT INTO ICOrderEntry (FInterID, FEntryID, FItemID, FRowKey) VALUES (" + id +
                ", 0, 1, '0'); INSERT INTO ICOrderEntry_1 (FInterID, FItemID, FRowKey) VALUES (" +
                id + ", 1, '0'); INSERT INTO ICOrder (FInterID, FTranType) VALUES (" + id +
                ", 11)");
    db.exec("DELETE FROM ICOrder WHERE FInterID=10");
    EXPECT_EQ(lines("10"), "0/0");
    EXPECT_EQ(lines("11"), "1/1");

    // A re-save in one transaction: the header goes, new lines come under the same id, then the
    // header again. The new lines must survive; deleting lines never touches the header.
    db.exec(
        "BEGIN IMMEDIATE; DELETE FROM ICOrder WHERE FInterID=11;"
        "INSERT INTO ICOrderEntry (FInterID, FEntryID, FItemID, FRowKey) VALUES (11, 0, 5, '0');"
        "INSERT INTO ICOrder (FInterID, FTranType) VALUES (11, 21); COMMIT");
    EXPECT_EQ(lines("11"), "1/0");
    EXPECT_EQ(db.integer("SELECT FItemID FROM ICOrderEntry WHERE FInterID=11"), 5);
    db.exec("DELETE FROM ICOrderEntry WHERE FInterID=11");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICOrder WHERE FInterID=11"), 1);
}

TEST(Schema, UnwrittenFlagsDefaultToZero) {
    TempDir dir;
    RawDb db(new_database(dir));
    // The saving statements leave these columns out and the lists test them against 0.
    db.exec("INSERT INTO ICStockBill (FInterID, FTranType) VALUES (1, 99)");
    db.exec("INSERT INTO ICOrder (FInterID, FTranType) VALUES (1, 11)");
    db.exec("INSERT INTO WLBill (FInterID, FTranType) VALUES (1, 13)");
    db.exec("INSERT INTO vipjf_History (FBillInterID) VALUES (1)");
    for (const char* t : {"ICStockBill", "ICOrder", "WLBill"})
        EXPECT_EQ(db.integer(std::string("SELECT count(*) FROM ") + t +
                             " WHERE FDeleted=0 AND FCheckerID=0"),
                  1)
            << t;
    EXPECT_EQ(db.integer("SELECT FDeleted FROM vipjf_History"), 0);
    EXPECT_EQ(db.integer("SELECT FOrderBillID FROM WLBill"), 0);
}

TEST(Schema, FixedQueriesFindTheirRowsThroughAnIndex) {
    TempDir dir;
    RawDb db(new_database(dir));
    auto plan = [&](const std::string& sql) {
        sqlite3_stmt* st = nullptr;
        std::string out;
        if (sqlite3_prepare_v2(db.handle(), ("EXPLAIN QUERY PLAN " + sql).c_str(), -1, &st,
                               nullptr) != SQLITE_OK)
            return std::string("error: ") + sqlite3_errmsg(db.handle());
        while (sqlite3_step(st) == SQLITE_ROW)
            out += reinterpret_cast<const char*>(sqlite3_column_text(st, 3)) + std::string("\n");
        sqlite3_finalize(st);
        return out;
    };
    // A fixed query that scans a whole bill table slows every till as the tables grow.
    for (const char* sql : {
             "DELETE FROM ICStockBillEntry WHERE FInterID=5",
             "SELECT * FROM ICStockBillEntry WHERE FEntryID<0 AND FInterID=5",
             "SELECT * FROM ICStockBillEntry WHERE FInterID=5 AND FEntryID=2 AND FEntryID>=0",
             "SELECT * FROM ICStockBillEntry WHERE FItemID=1 AND FInterID>7",
             "SELECT * FROM ICStockBillEntry WHERE FRefInterID=3 AND FRefEntryID=1",
             "SELECT * FROM ICStockBillEntry_1 WHERE FInterID=5 AND FRowKey='1'",
             "DELETE FROM ICOrderEntry WHERE FInterID=5",
             "DELETE FROM ICOrderEntry_1 WHERE FInterID=5",
             "SELECT * FROM ICStockBill WHERE FTranType=99 AND FDate BETWEEN '2025-03-01' AND "
             "'2025-03-10'",
             "UPDATE WLBill SET FDeleted=1 WHERE FOrderBillID=5",
             "UPDATE vipjf_History SET FDeleted=1 WHERE FBillInterID=5",
             "SELECT * FROM ICStockBill WHERE FVipID=1001",
             "SELECT sum(FQty) FROM ICInitData WHERE FItemID=1 AND FStockID=2",
             "SELECT * FROM ICBillNo WHERE FDate='2025-03-09' AND FTranType=99",
         }) {
        const std::string p = plan(sql);
        EXPECT_EQ(p.find("SCAN"), std::string::npos) << sql << "\n" << p;
        EXPECT_NE(p.find("USING"), std::string::npos) << sql << "\n" << p;
    }
}

TEST(Schema, TextAndDateColumnsCompareAsTheServerDoes) {
    TempDir dir;
    RawDb db(new_database(dir));
    db.exec(
        "INSERT INTO ICStockBill (FInterID, FBillNo, FDate) VALUES (1, 'Pos250309-001', "
        "'2025-03-09 00:00:00')");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICStockBill WHERE FBillNo='POS250309-001  '"), 1);
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICStockBill WHERE FDate='2025-03-09'"), 1);
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICStockBill WHERE FDate='2025-03-09T00:00'"), 1);
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICStockBill WHERE FDate BETWEEN '2025/03/01' AND "
                         "'2025-03-09'"),
              1);
}
