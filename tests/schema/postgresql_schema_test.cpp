// The PostgreSQL scripts on a real server: what they create against the embedded schema, the
// keys, and both procedures against the embedded ones on the same rows.
#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/server_db.h"
#include "support/test_support.h"

using billdata::testing::RawDb;
using billdata::testing::ServerDatabase;
using billdata::testing::TempDir;

namespace {

class PostgresSchema : public ::testing::Test {
  protected:
    void SetUp() override {
        if (billdata::testing::postgres_server().empty())
            GTEST_SKIP() << "no PostgreSQL server configured (BILLDATA_TEST_POSTGRES is not set)";
        pg_ = std::make_unique<ServerDatabase>();
        pg_->exec(std::string(billdata::schema::postgresql_runtime()) + "\n" +
                  std::string(billdata::schema::postgresql_schema()) + "\n" +
                  billdata::schema::information_schema_sql(true));
    }

    std::vector<std::string> pg_rows(const std::string& sql) const {
        auto rows = pg_->exec(sql);
        std::sort(rows.begin(), rows.end());
        return rows;
    }
    std::string pg_value(const std::string& sql) const {
        auto rows = pg_->exec(sql);
        return rows.empty() ? "" : rows.front();
    }

    std::unique_ptr<ServerDatabase> pg_;
};

// Stock on hand per stock and item as kept (in ten-thousandths, so that both engines print
// it alike).
const char* kKeptBalances = R"sql(
SELECT FStockID, FItemID, CAST(round(sum(FQty) * 10000) AS INTEGER) FROM ICStockQty
GROUP BY FStockID, FItemID HAVING sum(FQty) <> 0
)sql";

TEST_F(PostgresSchema, HoldsEveryEmbeddedTableAndColumnWithItsKindOfTypeAndTheDemoData) {
    TempDir dir;
    const std::string path = dir.file("shop.db");
    billdata::schema::create_database(path, true, 2025, 3);
    RawDb lite(path);

    // Server columns as "table.column|type|collation|", names as the server folds them.
    std::set<std::string> server;
    for (const auto& row : pg_->exec(
             "SELECT table_name || '.' || column_name, data_type, coalesce(collation_name, '') "
             "FROM information_schema.columns WHERE table_schema = 'public'"))
        server.insert(row);
    std::size_t compared = 0;
    for (const auto& row : lite.rows(
             "SELECT lower(m.name) || '.' || lower(p.name), upper(p.type) FROM sqlite_master m, "
             "pragma_table_info(m.name) p WHERE m.type IN ('table', 'view')")) {
        const std::string column = row.substr(0, row.find('|'));
        const std::string type = row.substr(row.find('|') + 1);
        std::vector<std::string> expected;
        if (type.rfind("TEXT", 0) == 0)
            expected = {"character|bd_ci|"};
        else if (type.rfind("DATETIME", 0) == 0)
            expected = {"timestamp without time zone||"};
        else if (type == "REAL|")
            expected = {"numeric||"};
        else if (type == "INTEGER|")
            expected = {"integer||", "bigint||"};
        else
            expected = {"integer||", "text||", "bigint||"};  // a view's constant rows
        bool found = false;
        for (const auto& e : expected)
            found = found || server.count(column + "|" + e) > 0;
        EXPECT_TRUE(found) << column << " (" << type << ") missing or of another type";
        ++compared;
    }
    EXPECT_GT(compared, 250u);

    // Every index and trigger by its name (the statements' plans and the kept totals need them).
    std::set<std::string> objects;
    for (const auto& row : pg_->exec("SELECT indexname FROM pg_indexes WHERE schemaname = "
                                     "'public' UNION SELECT tgname FROM pg_trigger"))
        objects.insert(row);
    const auto embedded = lite.rows(
        "SELECT lower(name) FROM sqlite_master WHERE type IN ('index', 'trigger') AND sql "
        "IS NOT NULL");
    EXPECT_GT(embedded.size(), 50u);
    for (const auto& name : embedded)
        EXPECT_EQ(objects.count(name), 1u) << name;

    // The demo master data runs unchanged on the server, and the kept balance follows it.
    pg_->exec(std::string(billdata::schema::demo_data_sql()));
    for (const char* t : {"t_Stock", "t_ICItem", "Vip", "ICInitData", "ICInitData_Entry"})
        EXPECT_EQ(pg_value(std::string("SELECT count(*) FROM ") + t),
                  std::to_string(lite.integer(std::string("SELECT count(*) FROM ") + t)) + "|")
            << t;
    EXPECT_EQ(pg_rows(kKeptBalances), lite.rows(kKeptBalances));
    EXPECT_EQ(pg_rows(kKeptBalances).size(), 10u);
}

TEST_F(PostgresSchema, KeysCompareAsTheEmbeddedEngineDoes) {
    for (const char* t : {"ICStockBillEntry", "ICOrderEntry"}) {
        SCOPED_TRACE(t);
        const std::string insert =
            std::string("INSERT INTO ") + t + " (FInterID, FEntryID, FItemID) VALUES ";
        // Adjustment rows share negative entry ids and pre-sent rows have none.
        pg_->exec(insert +
                  "(1, 1, 7), (1, 2, 7), (1, -1, 7), (1, -1, 8), (1, NULL, 7), "
                  "(1, NULL, 8), (2, 1, 7)");
        EXPECT_THROW(pg_->exec(insert + "(1, 2, 9)"), std::runtime_error);
        EXPECT_THROW(pg_->exec(insert + "(2, 0, 9), (2, 0, 9)"), std::runtime_error);
        EXPECT_EQ(pg_value(std::string("SELECT count(*) FROM ") + t), "7|");
    }

    // Text keys ignore case and trailing blanks, and keep the value as written.
    pg_->exec("INSERT INTO t_SystemProfile (FKey, FValue) VALUES ('CurrentYear', '2025')");
    EXPECT_THROW(pg_->exec("INSERT INTO t_SystemProfile (FKey) VALUES ('currentyear  ')"),
                 std::runtime_error);
    EXPECT_EQ(pg_value("SELECT FKey FROM t_SystemProfile WHERE FKey = 'CURRENTYEAR '"),
              "CurrentYear|");
    pg_->exec(
        "INSERT INTO t_Stock (FItemID, FName) VALUES (1, 'b'), (2, 'A '), (3, 'a'), (4, 'B')");
    EXPECT_EQ(pg_rows("SELECT count(DISTINCT FName) FROM t_Stock"), std::vector<std::string>{"2|"});
    EXPECT_EQ(pg_->exec("SELECT FItemID FROM t_Stock ORDER BY FName, FItemID"),
              (std::vector<std::string>{"2|", "3|", "1|", "4|"}));
}

// The same rows on the embedded engine and on the server. Bills of every kind, in the current
// period (2025-03), before it and after it, by FYear/FPeriod or by date only; a voided bill,
// pre-sent and adjustment rows, a line selling lent goods, lines without a header, an item that
// starts from its FPjCost and one that goes below zero.
const char* kCostedRows = R"sql(
INSERT INTO t_ICItem (FItemID, FNumber, FPjCost) VALUES (1, 'A', 40), (2, 'B', 50), (3, 'C', 0);
INSERT INTO ICInitData (FStockID, FItemID, FQty, FAmount) VALUES (1, 1, 10, 400), (2, 1, 3, 130);
INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice) VALUES
    (1, 1, 1, 5, 46.37), (1, 2, 2, 4, 55), (1, 3, 1, 2, 47.11),
    (2, 1, 1, 3, 99), (2, NULL, 1, 1, 99), (2, -1, 1, 0, 12), (2, 2, 3, 2, 80),
    (3, 1, 1, 4, 50.5),
    (4, 1, 2, 1, 61.3),
    (5, 1, 2, 2, 0),
    (6, 1, 2, 1, 0),
    (7, 1, 1, 2, 0),
    (8, 1, 3, 5, 30.25),
    (9, 1, 1, 1, 99),
    (10, 1, 3, 1, 99), (10, 2, 1, 1, 99),
    (11, 1, 1, 7, 3);
INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice, FRefTranType) VALUES
    (2, 3, 1, 2, 99, 27);
INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FOutStockID, FYear, FPeriod, FDate,
                         FDeleted) VALUES
    (1, 112, 1, NULL, 2025, 2, '2025-02-10', 0),
    (2, 99, NULL, 1, 2025, 3, '2025-03-01', 0),
    (3, 31, 2, 1, 2025, 3, '2025-03-02', 0),
    (4, 114, 1, NULL, 2025, 3, '2025-03-03', 0),
    (5, 27, NULL, 1, 2025, 3, '2025-03-03', 0),
    (6, 17, 1, NULL, 2025, 3, '2025-03-04', 0),
    (7, 125, NULL, 2, NULL, NULL, '2025-04-02', 0),
    (8, 115, 1, NULL, 2025, 3, '2025-03-05', 0),
    (9, 99, NULL, 1, 2025, 3, '2025-03-05', 1),
    (10, 99, NULL, 1, NULL, NULL, '2025-02-27', 0);
)sql";

TEST_F(PostgresSchema, ProceduresGiveTheEmbeddedResults) {
    TempDir dir;
    const std::string path = dir.file("shop.db");
    billdata::schema::create_database(path, false, 2025, 3);
    RawDb lite(path);
    auto cn = billdata::ado::Connection::create();
    cn->Open("Provider=SQLite;Data Source=" + path);
    pg_->exec(
        "INSERT INTO t_SystemProfile (FKey, FValue) VALUES ('CurrentYear', '2025'), "
        "('CurrentPeriod', '3')");
    auto both = [&](const std::string& sql) {
        lite.exec(sql);
        pg_->exec(sql);
    };
    both(kCostedRows);

    using namespace billdata::ado;
    for (int stock : {1, 2})
        for (int item : {1, 2, 3})
            for (int inter : {0, 2, 3}) {
                auto cmd = Command::create();
                cmd->CommandText = "sp_GetStockQty";
                cmd->CommandType = adCmdStoredProc;
                cmd->ActiveConnection = cn;
                cmd->Parameters().Append(
                    cmd->CreateParameter("@StockID", adInteger, adParamInput, 0, stock));
                cmd->Parameters().Append(
                    cmd->CreateParameter("@ItemID", adInteger, adParamInput, 0, item));
                cmd->Parameters().Append(
                    cmd->CreateParameter("@InterID", adInteger, adParamInput, 0, inter));
                cmd->Parameters().Append(
                    cmd->CreateParameter("@RtnQty", adDouble, adParamOutput, 0));
                cmd->Execute();
                const double embedded = cmd->Parameters().Item("@RtnQty").Value().to_double();
                const std::string server =
                    pg_value("SELECT rtnqty FROM sp_getstockqty(" + std::to_string(stock) + "," +
                             std::to_string(item) + "," + std::to_string(inter) + ")");
                EXPECT_DOUBLE_EQ(std::stod(server), embedded)
                    << "stock " << stock << ", item " << item << ", bill " << inter;
            }

    // Costs in ten-thousandths, so that both engines print them alike.
    auto costs = [&](const std::function<std::string(const std::string&)>& scaled) {
        return "SELECT FInterID, FEntryID, FItemID, " + scaled("FUnitCost") + ", " +
               scaled("FCost") + " FROM ICStockBillEntry UNION ALL SELECT FItemID, NULL, NULL, " +
               scaled("FPjCost") + ", NULL FROM t_ICItem";
    };
    const std::string lite_costs =
        costs([](const std::string& c) { return "CAST(round(" + c + " * 10000) AS INTEGER)"; });
    const std::string pg_costs =
        costs([](const std::string& c) { return "round(" + c + " * 10000)::bigint"; });
    auto recalculate_and_compare = [&](const std::string& step) {
        SCOPED_TRACE(step);
        auto cmd = Command::create();
        cmd->CommandText = "Sp_CacuCost";
        cmd->CommandType = adCmdStoredProc;
        cmd->ActiveConnection = cn;
        cmd->Execute();
        pg_->exec("SELECT sp_cacucost()");
        const auto expected = lite.rows(lite_costs);
        EXPECT_EQ(pg_rows(pg_costs), expected);
        EXPECT_EQ(lite.integer("SELECT count(*) FROM ICCostDirty"), 0);
        EXPECT_EQ(pg_value("SELECT count(*) FROM ICCostDirty"), "0|");
        return expected;
    };
    const auto first = recalculate_and_compare("first run");
    // Changes that make only some items dirty: a later receipt and a re-priced early line.
    both(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice) VALUES "
        "(12, 1, 1, 6, 61.7); INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FYear, "
        "FPeriod) VALUES (12, 112, 1, 2025, 3);"
        "UPDATE ICStockBillEntry SET FPrice = 33 WHERE FInterID = 8 AND FEntryID = 1;");
    EXPECT_NE(recalculate_and_compare("after a receipt and a new price"), first);
    // An earlier current period makes every item dirty and more bills writable.
    both("UPDATE t_SystemProfile SET FValue = '2' WHERE FKey = 'CurrentPeriod'");
    recalculate_and_compare("after the period moved back");
}

}  // namespace
