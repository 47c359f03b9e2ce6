// The row counts and stock balances that triggers keep, on the embedded engine and on the
// server, checked against what a full scan of the tables says after every kind of change,
// rolled-back ones included (and, on the server, two writers at once).
#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/server_db.h"
#include "support/test_support.h"

using billdata::testing::RawDb;
using billdata::testing::ServerDatabase;
using billdata::testing::TempDir;

namespace {

// Stock on hand per stock and item summed over the whole history (in ten-thousandths): the
// definition that the kept balance must match.
const char* kScannedBalances = R"sql(
SELECT FStockID, FItemID, CAST(round(sum(FQty) * 10000) AS INTEGER) FROM (
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
      AND NOT (h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27)) m
WHERE FStockID IS NOT NULL AND FItemID IS NOT NULL
GROUP BY FStockID, FItemID HAVING sum(FQty) <> 0
)sql";

const char* kKeptBalances = R"sql(
SELECT FStockID, FItemID, CAST(round(sum(FQty) * 10000) AS INTEGER) FROM ICStockQty
GROUP BY FStockID, FItemID HAVING sum(FQty) <> 0
)sql";

std::string line(int inter, const std::string& entry, int item, double qty, int ref_kind = 0) {
    return "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FRefTranType) "
           "VALUES (" +
           std::to_string(inter) + "," + entry + "," + std::to_string(item) + "," +
           std::to_string(qty) + "," + std::to_string(ref_kind) + ");";
}

std::string header(int inter, int kind, const std::string& in, const std::string& out) {
    return "INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FOutStockID) VALUES (" +
           std::to_string(inter) + "," + std::to_string(kind) + "," + in + "," + out + ");";
}

// A server connection of its own that stays open between statements (a transaction left open).
class Session {
  public:
    explicit Session(const std::string& conninfo) : pg_(PQconnectdb(conninfo.c_str())) {}
    ~Session() { PQfinish(pg_); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The server's message, empty on success.
    std::string run(const std::string& sql) {
        PGresult* r = PQexec(pg_, sql.c_str());
        const ExecStatusType status = PQresultStatus(r);
        std::string error =
            status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK ? "" : PQresultErrorMessage(r);
        PQclear(r);
        return error;
    }

  private:
    PGconn* pg_;
};

// The parameter: on the tests' PostgreSQL server (else a new embedded database file).
class KeptTotals : public ::testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        if (!GetParam()) {
            billdata::schema::create_database(dir_.file("shop.db"), false, 2025, 3);
            lite_ = std::make_unique<RawDb>(dir_.file("shop.db"));
            return;
        }
        if (billdata::testing::postgres_server().empty())
            GTEST_SKIP() << "no PostgreSQL server configured (BILLDATA_TEST_POSTGRES is not set)";
        pg_ = std::make_unique<ServerDatabase>();
        pg_->create_postgresql_schema();
    }

    void exec(const std::string& sql) const { lite_ ? lite_->exec(sql) : (void)pg_->exec(sql); }
    // The rows as "a|b|" texts, sorted.
    std::vector<std::string> rows(const std::string& sql) const {
        if (lite_) return lite_->rows(sql);
        auto rows = pg_->exec(sql);
        std::sort(rows.begin(), rows.end());
        return rows;
    }
    std::string value(const std::string& sql) const {
        const auto all = rows(sql);
        return all.empty() ? "" : all.front();
    }

    void expect_kept_equals_counted(const std::string& step) const {
        SCOPED_TRACE(step);
        // Every line carries its bill's kind, or nothing while its header is not written.
        EXPECT_EQ(rows("SELECT e.FInterID, e.FEntryID FROM ICStockBillEntry e WHERE "
                       "e.FHeadTranType IS DISTINCT FROM (SELECT h.FTranType FROM "
                       "ICStockBill h WHERE h.FInterID = e.FInterID)"),
                  std::vector<std::string>{});
        EXPECT_EQ(rows(kKeptBalances), rows(kScannedBalances));
        for (const char* t : {"ICStockBill", "ICStockBillEntry", "ICStockBillEntry_1", "ICOrder",
                              "ICOrderEntry", "ICOrderEntry_1", "WLBill", "WLBillEntry", "ICSpTjd"})
            EXPECT_EQ(value(std::string("SELECT ") + t + " FROM t_TableRows"),
                      value(std::string("SELECT count(*) FROM ") + t))
                << t;
    }

    TempDir dir_;
    std::unique_ptr<RawDb> lite_;
    std::unique_ptr<ServerDatabase> pg_;
};
std::string engine_name(const ::testing::TestParamInfo<bool>& engine) {
    return engine.param ? "Server" : "Embedded";
}
INSTANTIATE_TEST_SUITE_P(Engines, KeptTotals, ::testing::Bool(), engine_name);

TEST_P(KeptTotals, FollowEveryChangeOfBillsLinesAndOpeningData) {
    expect_kept_equals_counted("empty");
    EXPECT_EQ(value("SELECT count(*) FROM t_TableRows"), "1|");
    EXPECT_EQ(rows("SELECT FTable, FCountTable FROM t_KeptRowCounts WHERE FTable = 'WLBill'"),
              std::vector<std::string>{"WLBill|t_TableRows|"});

    exec("INSERT INTO ICInitData (FStockID, FItemID, FQty) VALUES (1, 7, 10), (2, 7, 4)");
    // Lines first, header after: they count from the moment the header is written.
    exec(line(1, "1", 7, 5) + line(1, "2", 8, 3) + line(1, "-1", 7, 100));
    expect_kept_equals_counted("lines without header");
    EXPECT_EQ(value("SELECT count(FHeadTranType) FROM ICStockBillEntry"), "0|");
    // A pre-sent row counts; an adjustment row and a line selling lent goods move nothing.
    exec(header(1, 112, "1", "NULL") + line(2, "1", 7, 2) + line(2, "NULL", 7, 1) +
         line(2, "2", 7, 4, 27) + header(2, 99, "NULL", "1") + line(3, "1", 7, 6) +
         header(3, 31, "2", "1") + line(4, "1", 8, 1) + header(4, 114, "1", "NULL"));
    exec(
        "INSERT INTO ICOrderEntry (FInterID, FEntryID, FItemID) VALUES (9, 1, 7), (9, 2, 7);"
        "INSERT INTO ICOrderEntry_1 (FInterID, FItemID) VALUES (9, 7);"
        "INSERT INTO ICOrder (FInterID, FTranType) VALUES (9, 11);"
        "INSERT INTO ICStockBillEntry_1 (FInterID, FItemID) VALUES (1, 7), (2, 7);");
    expect_kept_equals_counted("bills written");
    EXPECT_EQ(value("SELECT CAST(sum(FQty) AS INTEGER) FROM ICStockQty WHERE FStockID = 1 AND "
                    "FItemID = 7"),
              std::to_string(10 + 5 - 2 - 1 - 6) + "|");

    exec("UPDATE ICStockBill SET FDeleted = 1 WHERE FInterID = 2");
    expect_kept_equals_counted("voided");
    exec(
        "UPDATE ICStockBill SET FDeleted = 0 WHERE FInterID = 2;"
        "UPDATE ICStockBill SET FTranType = 125, FOutStockID = 2 WHERE FInterID = 3;"
        "UPDATE ICStockBillEntry SET FQty = 9, FItemID = 8 WHERE FInterID = 1 AND FEntryID = 1;"
        "UPDATE ICStockBillEntry SET FInterID = 4 WHERE FInterID = 1 AND FEntryID = 2;"
        "UPDATE ICStockBillEntry SET FInterID = 4 WHERE FInterID = 4 AND FEntryID = 2;"
        "UPDATE ICStockBillEntry SET FInterID = 77 WHERE FInterID = 4 AND FEntryID = 2;"
        "UPDATE ICStockBill SET FInterID = 5 WHERE FInterID = 4;"
        "UPDATE ICInitData SET FQty = 12 WHERE FStockID = 1;");
    expect_kept_equals_counted("restored and changed");

    exec("BEGIN; DELETE FROM ICStockBill WHERE FInterID = 1;" + line(6, "1", 7, 50) +
         header(6, 115, "1", "NULL") + "ROLLBACK;");
    expect_kept_equals_counted("rolled back");

    // A header's delete takes its lines and size/colour rows with it, and nothing else.
    exec(
        "DELETE FROM ICStockBill WHERE FInterID = 1; DELETE FROM ICOrder WHERE FInterID = 9;"
        "DELETE FROM ICStockBillEntry WHERE FInterID = 2 AND FEntryID IS NULL;"
        "DELETE FROM ICInitData WHERE FStockID = 2;");
    expect_kept_equals_counted("deleted");
    EXPECT_EQ(value("SELECT count(*) FROM ICStockBillEntry WHERE FInterID = 1"), "0|");
    EXPECT_EQ(value("SELECT count(*) FROM ICStockBillEntry_1 WHERE FInterID = 1"), "0|");
    EXPECT_EQ(value("SELECT count(*) FROM ICStockBillEntry_1 WHERE FInterID = 2"), "1|");
    EXPECT_EQ(
        value("SELECT count(*) FROM ICOrderEntry") + value("SELECT count(*) FROM ICOrderEntry_1"),
        "0|0|");

    // A statement that fails half-way leaves the totals as they were.
    EXPECT_THROW(exec("INSERT INTO ICStockBill (FInterID, FTranType) VALUES (90, 112), (2, 112)"),
                 std::runtime_error);
    expect_kept_equals_counted("failed statement");
    if (!pg_) return;

    // Two tills saving a sale of the same item from the same stock at once: the second neither
    // waits for the first's commit nor deadlocks with it, and both are counted.
    Session first(pg_->conninfo()), second(pg_->conninfo());
    ASSERT_EQ(first.run("BEGIN; " + line(20, "1", 7, 1) + line(20, "2", 8, 1) +
                        header(20, 99, "NULL", "1")),
              "");
    ASSERT_EQ(second.run("SET lock_timeout = '2s'; BEGIN; " + line(21, "1", 8, 2) +
                         line(21, "2", 7, 2) + header(21, 99, "NULL", "1") + "COMMIT;"),
              "");
    ASSERT_EQ(first.run("COMMIT"), "");
    expect_kept_equals_counted("two writers");
}

}  // namespace
