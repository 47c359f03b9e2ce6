// The row counts and stock balances that triggers keep, checked against what a full scan of the
// tables says after every kind of change, rolled-back ones included.
#include <gtest/gtest.h>

#include <string>

#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/test_support.h"

using billdata::testing::RawDb;
using billdata::testing::TempDir;

namespace {

// Stock on hand summed over the whole history, the definition the kept balance must match.
const char* kScannedBalances = R"sql(
SELECT FStockID, FItemID, sum(FQty) FROM (
    SELECT FStockID, FItemID, coalesce(FQty, 0) AS FQty FROM ICInitData
    UNION ALL
    SELECT h.FInStockID, e.FItemID,
           CASE WHEN h.FTranType = 114 THEN -coalesce(e.FQty, 0) ELSE coalesce(e.FQty, 0) END
    FROM ICStockBillEntry e JOIN ICStockBill h ON h.FInterID = e.FInterID
    WHERE coalesce(h.FDeleted, 0) = 0 AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
      AND h.FTranType IN (112, 115, 17, 31, 114)
    UNION ALL
    SELECT h.FOutStockID, e.FItemID, -coalesce(e.FQty, 0)
    FROM ICStockBillEntry e JOIN ICStockBill h ON h.FInterID = e.FInterID
    WHERE coalesce(h.FDeleted, 0) = 0 AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
      AND h.FTranType IN (99, 125, 27, 31)
      AND NOT (h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27))
WHERE FStockID IS NOT NULL AND FItemID IS NOT NULL
GROUP BY FStockID, FItemID HAVING sum(FQty) <> 0
)sql";

std::string rows_of(RawDb& db, const std::string& sql) {
    sqlite3_stmt* st = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &st, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db.handle());
    std::string out;
    while (sqlite3_step(st) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(st); ++i) {
            auto* t = sqlite3_column_text(st, i);
            out += t ? reinterpret_cast<const char*>(t) : "null";
            out += i + 1 < sqlite3_column_count(st) ? "," : ";";
        }
    }
    sqlite3_finalize(st);
    return out;
}

void expect_kept_equals_scanned(RawDb& db, const std::string& step) {
    SCOPED_TRACE(step);
    // Every line carries its bill's kind, or nothing while its header is not written.
    EXPECT_EQ(rows_of(db,
                      "SELECT e.rowid, e.FHeadTranType FROM ICStockBillEntry e "
                      "WHERE e.FHeadTranType IS NOT (SELECT h.FTranType FROM ICStockBill h "
                      "WHERE h.FInterID = e.FInterID)"),
              "");
    EXPECT_EQ(rows_of(db,
                      "SELECT FStockID, FItemID, FQty FROM ICStockQty WHERE FQty <> 0 "
                      "ORDER BY FStockID, FItemID"),
              rows_of(db, std::string(kScannedBalances) + " ORDER BY FStockID, FItemID"));
    for (const char* t : {"ICStockBill", "ICStockBillEntry", "ICStockBillEntry_1", "ICOrder",
                          "ICOrderEntry", "WLBill"}) {
        EXPECT_EQ(db.integer(std::string("SELECT ") + t + " FROM t_TableRows"),
                  db.integer(std::string("SELECT count(*) FROM ") + t))
            << t;
    }
}

void line(RawDb& db, int inter, const std::string& entry, int item, double qty, int ref_kind = 0) {
    db.exec(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FRefTranType) "
        "VALUES (" +
        std::to_string(inter) + "," + entry + "," + std::to_string(item) + "," +
        std::to_string(qty) + "," + std::to_string(ref_kind) + ")");
}

void header(RawDb& db, int inter, int kind, const std::string& in, const std::string& out) {
    db.exec("INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FOutStockID) VALUES (" +
            std::to_string(inter) + "," + std::to_string(kind) + "," + in + "," + out + ")");
}

TEST(KeptTotals, FollowEveryChangeOfBillsLinesAndOpeningData) {
    TempDir dir;
    const std::string path = dir.file("shop.db");
    billdata::schema::create_database(path, false, 2025, 3);
    RawDb db(path);
    expect_kept_equals_scanned(db, "empty");
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_TableRows"), 1);

    db.exec("INSERT INTO ICInitData (FStockID, FItemID, FQty) VALUES (1, 7, 10), (2, 7, 4)");
    // Lines first, header after: they count from the moment the header is written.
    line(db, 1, "1", 7, 5);
    line(db, 1, "2", 8, 3);
    line(db, 1, "-1", 7, 100);  // adjustment row: never counts
    expect_kept_equals_scanned(db, "lines without header");
    EXPECT_EQ(db.integer("SELECT count(FHeadTranType) FROM ICStockBillEntry"), 0);
    header(db, 1, 112, "1", "NULL");
    line(db, 2, "1", 7, 2);
    line(db, 2, "NULL", 7, 1);   // pre-sent row: counts
    line(db, 2, "2", 7, 4, 27);  // sells lent goods: moves nothing
    header(db, 2, 99, "NULL", "1");
    line(db, 3, "1", 7, 6);
    header(db, 3, 31, "2", "1");  // transfer: out of 1, into 2
    line(db, 4, "1", 8, 1);
    header(db, 4, 114, "1", "NULL");  // return to the supplier
    expect_kept_equals_scanned(db, "bills written");
    EXPECT_DOUBLE_EQ(db.real("SELECT FQty FROM ICStockQty WHERE FStockID = 1 AND FItemID = 7"),
                     10 + 5 - 2 - 1 - 6);

    db.exec("UPDATE ICStockBill SET FDeleted = 1 WHERE FInterID = 2");
    expect_kept_equals_scanned(db, "voided");
    db.exec("UPDATE ICStockBill SET FDeleted = 0 WHERE FInterID = 2");
    db.exec("UPDATE ICStockBill SET FTranType = 125, FOutStockID = 2 WHERE FInterID = 3");
    db.exec(
        "UPDATE ICStockBillEntry SET FQty = 9, FItemID = 8 WHERE FInterID = 1 AND FEntryID = 1");
    db.exec("UPDATE ICStockBillEntry SET FInterID = 4 WHERE FInterID = 1 AND FEntryID = 2");
    db.exec("UPDATE ICStockBillEntry SET FInterID = 4 WHERE FInterID = 4 AND FEntryID = 2");
    db.exec("UPDATE ICStockBillEntry SET FInterID = 77 WHERE FInterID = 4 AND FEntryID = 2");
    db.exec("UPDATE ICInitData SET FQty = 12 WHERE FStockID = 1");
    expect_kept_equals_scanned(db, "restored and changed");

    db.exec("BEGIN");
    db.exec("DELETE FROM ICStockBill WHERE FInterID = 1");
    line(db, 5, "1", 7, 50);
    header(db, 5, 115, "1", "NULL");
    db.exec("ROLLBACK");
    expect_kept_equals_scanned(db, "rolled back");

    db.exec("DELETE FROM ICStockBill WHERE FInterID = 1");  // its lines go with it
    db.exec("DELETE FROM ICStockBillEntry WHERE FInterID = 2 AND FEntryID IS NULL");
    db.exec("DELETE FROM ICInitData WHERE FStockID = 2");
    expect_kept_equals_scanned(db, "deleted");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICStockBillEntry WHERE FInterID = 1"), 0);

    // A statement that fails half-way leaves the counts as they were.
    EXPECT_FALSE(db.try_exec("INSERT INTO ICStockBill (FInterID, FTranType) VALUES (90, 112), "
                             "(2, 112)")
                     .empty());
    expect_kept_equals_scanned(db, "failed statement");
}

}  // namespace
