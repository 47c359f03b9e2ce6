// `billdata demo` run through the program: what it tells, and what it leaves in the database.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/common/audit.h"
#include "support/caller_rows.h"
#include "support/test_support.h"
#include "tools/cli_run.h"

namespace billdata::testing {
namespace {

// Every row of a query as "a|b;c|d" text.
std::string rows(const std::string& db, const std::string& sql) {
    const std::vector<std::string> all = query_rows(db, sql);
    std::string out;
    for (std::size_t i = 0; i < all.size(); ++i)
        out += (i ? ";" : "") + all[i];
    return out;
}

double stock(const std::string& db, std::int32_t stock_id, std::int32_t item_id) {
    auto cn = ado::Connection::create();
    cn->Open(db);
    return common::GetStockQty(cn, stock_id, item_id, 0);
}

// The first line of `text` after `from` that contains `what` ("" when there is none).
std::string line_with(const std::string& text, const std::string& what, const std::string& from) {
    const auto start = text.find(from);
    if (start == std::string::npos) return "";
    const auto at = text.find(what, start);
    if (at == std::string::npos) return "";
    const auto begin = text.rfind('\n', at);
    const auto end = text.find('\n', at);
    return text.substr(begin + 1, end - begin - 1);
}

// The database a run reports on its "Database: " line.
std::string reported_database(const std::string& out) {
    const std::string tag = "Database: ";
    const auto at = out.find(tag);
    if (at == std::string::npos) return "";
    return out.substr(at + tag.size(), out.find('\n', at) - at - tag.size());
}

// The narration without the lines that name the database.
std::string without_database(const std::string& out) {
    std::string kept;
    std::size_t start = 0;
    for (std::size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = out.substr(start, end - start);
        if (line.rfind("Database: ", 0) != 0 && line.rfind("The day is done.", 0) != 0)
            kept += line + "\n";
    }
    return kept + out.substr(start);
}

using Demo = EngineCase;

// The day on a temporary file, or on a server database: there the same story as on the file.
TEST_F(Demo, TellsTheDayOnATemporaryDatabase) {
    const EngineDatabase shop;
    CliRun day = run_cli(shop.server() ? "demo --db '" + shop.target() + "'" : "demo");
    ASSERT_EQ(day.status, 0) << day.out;

    // The audited receipt's delete is refused with the component's error and message.
    EXPECT_NE(
        day.out.find("refused, error -2147220503: 删除单据失败，单据“ZP250309-002”已经审核！"),
        std::string::npos)
        << day.out;
    // The voided sale is listed with the mark, and again without it once restored.
    const std::string voided = line_with(day.out, "pos250309-003 |", "with DoBlankOut");
    EXPECT_NE(voided.find("※"), std::string::npos) << day.out;
    const std::string restored = line_with(day.out, "pos250309-003 |", "UnblankOut restores");
    EXPECT_NE(restored.find("117"), std::string::npos) << day.out;
    EXPECT_EQ(restored.find("※"), std::string::npos) << restored;
    // Member points and the price carried forward are told.
    EXPECT_NE(day.out.find("消费增加积分,消费金额：217.00,单号:pos250309-001"), std::string::npos);
    EXPECT_NE(day.out.find("积分兑换金额：5.00,单号:pos250309-002"), std::string::npos);
    EXPECT_NE(day.out.find("the purchase price stays 45"), std::string::npos);

    if (shop.server()) {
        EXPECT_EQ(reported_database(day.out), shop.target());
        EXPECT_EQ(without_database(day.out), without_database(run_cli("demo").out));
        return;
    }

    // The temporary database is gone afterwards; with --keep it stays.
    const std::string temporary = reported_database(day.out);
    ASSERT_FALSE(temporary.empty()) << day.out;
    EXPECT_FALSE(std::filesystem::exists(temporary)) << temporary;

    CliRun kept = run_cli("demo --keep");
    ASSERT_EQ(kept.status, 0) << kept.out;
    const std::string path = reported_database(kept.out);
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
    EXPECT_NE(kept.out.find("The database stays at " + path), std::string::npos);
    std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

TEST_F(Demo, DatabaseHoldsWhatTheDayDid) {
    const EngineDatabase shop;
    const std::string& db = shop.target();
    CliRun day = run_cli("demo --db '" + db + "'");
    ASSERT_EQ(day.status, 0) << day.out;
    EXPECT_EQ(reported_database(day.out), db);

    // Bills by kind: receipts, transfer, sales, lent and returned goods; orders; money bills.
    EXPECT_EQ(rows(db,
                   "select FTranType,count(*) from ICStockBill group by FTranType order by "
                   "FTranType"),
              "17|1;27|1;31|1;99|3;112|2");
    EXPECT_EQ(rows(db,
                   "select FTranType,count(*),sum(FEarnest) from ICOrder group by FTranType "
                   "order by FTranType"),
              "11|1|1000;21|1|100");
    EXPECT_EQ(rows(db, "select FTranType,FSumAmount from WLBill order by FTranType"),
              "13|1000;23|100");
    EXPECT_EQ(rows(db, "select FValue from t_SystemProfile where FKey='ICClosed'"), "1");

    // After the morning invoice was corrected to 41, the afternoon receipt at 45 revalues by 4
    // the T-shirts each stock holds besides it: the warehouse's 100 + 30 - 20, and what the shop
    // holds at the end of the day (the rows are rebuilt as later bills come and go).
    const double shop_tshirts = stock(db, 2, 1);
    EXPECT_EQ(shop_tshirts, 20 + 20 - 2 - 3 + 2);
    EXPECT_EQ(rows(db,
                   "select t2.FTjStockID,t2.FPrice,t2.FAmount,t2.FMemo,t2.FHisPrice from "
                   "ICStockBill t1 inner join ICStockBillEntry t2 on t1.FInterID=t2.FInterID "
                   "where t1.FBillNo='ZP250309-002' and t2.FEntryID<0 order by FTjStockID"),
              "1|4|440|110|41;2|4|" + ado::Variant::format_double(4 * shop_tshirts) + "|" +
                  ado::Variant::format_double(shop_tshirts) + "|41");
    EXPECT_EQ(rows(db, "select FPurPrice from t_ICItem where FItemID=1"), "45");
    EXPECT_EQ(rows(db,
                   "select t2.FUnitCost,t2.FCost from ICStockBill t1 inner join "
                   "ICStockBillEntry t2 on t1.FInterID=t2.FInterID where "
                   "t1.FBillNo='pos250309-001' and t2.FItemID=1"),
              "41|82");

    // Three lent, two back: the lent line counts the two (the shop's stock is checked above).
    EXPECT_EQ(rows(db,
                   "select t2.FQty,t2.FRtnQty from ICStockBill t1 inner join "
                   "ICStockBillEntry t2 on t1.FInterID=t2.FInterID where t1.FTranType=27"),
              "3|2");

    // The audit mark stands, the restored sale is live and its socks sold again.
    EXPECT_EQ(rows(db, "select FCheckerID from ICStockBill where FBillNo='ZP250309-002'"), "2");
    EXPECT_EQ(rows(db, "select FDeleted from ICStockBill where FBillNo='pos250309-003'"), "0");
    EXPECT_EQ(stock(db, 2, 7), 100 - 1 - 3);
    EXPECT_EQ(rows(db,
                   "select FVipID,FSumJf,FSumJf_Un,FSumBuyAmount from Vip where FVipID in "
                   "(1001,1002) order by FVipID"),
              "1001|457|337|2617;1002|366|366|1029");
}

TEST_F(Demo, RefusesADatabaseThatAlreadyHoldsTables) {
    const EngineDatabase shop;
    const std::string& db = shop.target();
    ASSERT_EQ(run_cli("init '" + db + "' --demo").status, 0);
    CliRun day = run_cli("demo --db '" + db + "'");
    EXPECT_EQ(day.status, 1) << day.out;
    EXPECT_NE(day.out.find("billdata: error"), std::string::npos) << day.out;
    EXPECT_EQ(day.out.find("1. Opening stock"), std::string::npos) << day.out;
    EXPECT_EQ(rows(db, "select count(*) from ICStockBill"), "0");
    EXPECT_EQ(rows(db, "select FValue from t_SystemProfile where FKey='ICClosed'"), "0");
}

}  // namespace
}  // namespace billdata::testing
