#include "billdata/publicdata/publicdata.h"

#include "purrkd/stock_fixture.h"

namespace billdata::testing {
namespace {

// Item 6 (no sizes) opens with 20 in stock 1 and nothing elsewhere.
constexpr int kItem = 6;

class PropagationTest : public StockBillTest {
  protected:
    // A purchase at 70 (previously 60) into stock 1, followed by sales, a transfer, voided bills,
    // a receipt into stock 2 at 80, a return from stock 1 at 75 and a receipt at the unchanged 80.
    void history() const {
        header(10, 112, "2025-03-01", 1, 0);
        line(10, 1, kItem, 10, 70, 60);
        header(11, 99, "2025-03-02", 0, 1);
        line(11, 1, kItem, 2, 99);
        header(12, 112, "2025-03-03", 2, 0, 0, 102);
        line(12, 1, kItem, 5, 80, 0);
        header(13, 31, "2025-03-04", 3, 1);
        line(13, 1, kItem, 4, 1);
        header(14, 112, "2025-03-05", 1, 0, 1, 103);  // voided: not part of the walk
        line(14, 1, kItem, 9, 90, 0);
        header(15, 99, "2025-03-05", 0, 1, 1);  // voided sale: still re-priced
        line(15, 1, kItem, 1, 99);
        header(16, 114, "2025-03-06", 1, 0);
        line(16, 1, kItem, 3, 75, 0);
        header(17, 112, "2025-03-07", 1, 0, 0, 101);
        line(17, 1, kItem, 6, 80, 0);
        adjustment(17, -1, 2, kItem);  // left by an earlier run: removed by the walk
        adjustment(9, -1, 1, kItem);   // before the bill: not touched
    }
    double value(const std::string& column, int id) const {
        return scalar("select " + column +
                      " from ICStockBillEntry where FEntryID=1 and FInterID=" + std::to_string(id))
            .to_double();
    }
};

TEST_F(PropagationTest, CarriesAPurchasePriceThroughLaterBillsOfTwoStocks) {
    history();
    auto cn = open();
    PublicData().CacuSptjd(cn, 10, true);

    // Stock 1 holds 27 besides bill 12 (20 + 10 - 2 - 4 - 3 + 6), stock 3 the 4 transferred in,
    // stock 2 nothing: bill 12 revalues stocks 1 and 3. The return revalues what it takes out
    // of its own stock at the running price 80. The receipt at the unchanged price adds nothing.
    const std::vector<std::string> expected = {"9|-1|1|6|0|1|1|stale|0", "12|-1|1|6|0|10|270|27|70",
                                               "12|-1|3|6|0|10|40|4|70", "16|-1|1|6|0|-5|-15|3|80"};
    EXPECT_EQ(adjustments(), expected);

    // Each receipt at a new price records the price before it and becomes the running price.
    EXPECT_DOUBLE_EQ(value("FHisPrice", 12), 70);
    EXPECT_DOUBLE_EQ(value("FHisPrice", 17), 0);   // unchanged price: left alone
    EXPECT_DOUBLE_EQ(value("FHisPrice", 14), 0);   // voided: skipped by the walk
    EXPECT_DOUBLE_EQ(value("FUnitCost", 11), 70);  // sold between 10 and 12
    EXPECT_DOUBLE_EQ(value("FCost", 11), 140);
    EXPECT_DOUBLE_EQ(value("FUnitCost", 15), 80);  // voided sale after 12, still re-priced
    EXPECT_DOUBLE_EQ(value("FPrice", 13), 80);     // transfer after 12
    EXPECT_DOUBLE_EQ(value("FAmount", 13), 320);
    EXPECT_EQ(rows("select FPurPrice,FSupplierID from t_ICItem where FItemID=6"),
              std::vector<std::string>{"80|102"});

    // A second run gives the very same rows.
    const auto first = all_lines();
    PublicData().CacuSptjd(cn, 10, true);
    EXPECT_EQ(all_lines(), first);
    cn->Close();
}

TEST_F(PropagationTest, WithoutRegenBringsBackThePriceBeforeTheBill) {
    history();
    auto cn = open();
    PublicData().CacuSptjd(cn, 10, false);
    // Without the bill's own price the sale after it is at the price before it.
    EXPECT_DOUBLE_EQ(value("FUnitCost", 11), 60);
    // Bill 12 is now 20 above the running price 60.
    EXPECT_EQ(rows("select FPrice,FAmount,FMemo,FHisPrice from ICStockBillEntry where FInterID=12 "
                   "and FEntryID<0 and FTjStockID=1"),
              std::vector<std::string>{"20|540|27|60"});
    cn->Close();
}

TEST_F(PropagationTest, OtherCostStyleRunsNoStatement) {
    history();
    set_cost_style_2();
    const auto before = all_lines();
    auto cn = open();
    SqlLog log(log_path());
    PublicData().CacuSptjd(cn, 10, true);
    PublicData().RecacuSptjd(cn, 10);
    // Only the cost-style setting is read, once (it is cached for the thread).
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(all_lines(), before);
    cn->Close();
}

class RegenerationTest : public StockBillTest {
  protected:
    // A sale (20), then purchase bill N = 21 at 70 after 60 into stock 1 (with an entry-0 line
    // at a changed price that the rebuild ignores), a receipt into stock 2 at 80 after 70, a
    // receipt into stock 1 at 90 after 80 and a return from stock 1 at 85 after 90.
    void history(double n_his_price = 60) const {
        header(20, 99, "2025-03-01", 0, 1);
        line(20, 1, kItem, 3, 99);
        header(21, 112, "2025-03-02", 1, 0);
        line(21, 0, 5, 1, 50, 45);
        line(21, 1, kItem, 10, 70, n_his_price);
        adjustment(21, -1, 2, kItem);
        header(22, 112, "2025-03-03", 2, 0);
        line(22, 1, kItem, 5, 80, 70);
        adjustment(22, -1, 2, kItem);
        adjustment(22, -1, 3, kItem);
        header(23, 112, "2025-03-05", 1, 0);
        line(23, 1, kItem, 4, 90, 80);
        adjustment(23, -1, 1, kItem);
        header(24, 114, "2025-03-04", 1, 0);
        line(24, 1, kItem, 2, 85, 90);
    }
};

TEST_F(RegenerationTest, RebuildsTheRowsOfTheNextPurchaseAndItsLaterBillsByStock) {
    history();
    auto cn = open();
    const auto prices_before = rows(
        "select FInterID,FEntryID,FPrice,FHisPrice,FUnitCost from ICStockBillEntry "
        "where FEntryID>=0 order by FInterID,FEntryID");
    PublicData().RecacuSptjd(cn, 20);

    // Stock 1 holds 19 besides N (20 - 3 + 4 - 2), stock 2 holds 5; stock 3 none, so its old
    // row on bill 22 stays. Bill 22 has nothing in stock 2 besides itself: a row of amount 0.
    const std::vector<std::string> expected = {
        "21|-1|1|6|0|10|190|19|60", "21|-1|2|6|0|10|50|5|60",   "22|-1|2|6|0|10|0|0|70",
        "22|-1|3|6|0|1|1|stale|0",  "23|-1|1|6|0|10|250|25|80", "24|-1|1|6|0|-5|-10|2|90"};
    EXPECT_EQ(adjustments(), expected);
    // No price of any line moves.
    EXPECT_EQ(rows("select FInterID,FEntryID,FPrice,FHisPrice,FUnitCost from ICStockBillEntry "
                   "where FEntryID>=0 order by FInterID,FEntryID"),
              prices_before);
    cn->Close();
}

TEST_F(RegenerationTest, UnchangedPriceNoLaterBillOrOnlyVoidedOnesKeepTheRows) {
    // N's line at its previous price: N's own rows go, the later bills keep theirs.
    history(70);
    auto cn = open();
    PublicData().RecacuSptjd(cn, 20);
    const std::vector<std::string> kept = {"22|-1|2|6|0|1|1|stale|0", "22|-1|3|6|0|1|1|stale|0",
                                           "23|-1|1|6|0|1|1|stale|0"};
    EXPECT_EQ(adjustments(), kept);

    // No purchase bill after 24, and one after 30 that is voided: nothing at all changes.
    header(31, 112, "2025-03-09", 1, 0, 1);
    line(31, 1, kItem, 1, 99, 1);
    adjustment(31, -1, 1, kItem);
    const auto before = all_lines();
    PublicData().RecacuSptjd(cn, 24);
    PublicData().RecacuSptjd(cn, 30);
    EXPECT_EQ(all_lines(), before);
    cn->Close();
}

}  // namespace
}  // namespace billdata::testing
