// The PostgreSQL scripts on a real server: what they create against the embedded schema, and the
// keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
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

class PostgresSchema : public ::testing::Test {
  protected:
    void SetUp() override {
        if (billdata::testing::postgres_server().empty())
            GTEST_SKIP() << "no PostgreSQL server configured (BILLDATA_TEST_POSTGRES is not set)";
        pg_ = std::make_unique<ServerDatabase>();
        pg_->create_postgresql_schema();
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

}  // namespace
