// The till's history lists and the retrieval of one sale.

#include <vector>

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

using Texts = std::vector<std::string>;

class ListTest : public PosTest {
  protected:
    void SetUp() override {
        PosTest::SetUp();
        if (IsSkipped()) return;
        const ado::DateTime today = ado::DateTime::today();
        Sale s = member_sale(1001);
        s.BillDate = today;
        s.BillNoBegChar = "T";
        today_ = save_sale(s);  // stock 2, two lines
        s.VipID = 0;
        s.StockID = 3;
        s.BillDate = today.add_days(-2);
        s.BillNoBegChar = "B";
        before_ = save_sale(s);
        s.StockID = 2;
        s.BillDate = today.add_days(1);
        s.BillNoBegChar = "N";
        tomorrow_ = save_sale(s);
        s.BillDate = today;
        s.BillNoBegChar = "U";
        later_today_ = save_sale(s);
        PosData().DeleteBill(99, before_, nullptr, true);
        exec("update ICStockBill set FCheckerID=1 where FInterID=" + std::to_string(tomorrow_));
    }
    Texts simple(const std::string& filter = "") {
        return column(PosData().GetBillList_Simple(99, filter), "FInterID");
    }
    std::string id(std::int32_t v) const { return std::to_string(v); }
    std::int32_t today_ = 0, before_ = 0, tomorrow_ = 0, later_today_ = 0;
};

TEST_F(ListTest, BothListsNewestFirstWithMarks) {
    // Newest date first; the same date by descending bill number ("U…" before "T…").
    EXPECT_EQ(simple(), (Texts{id(tomorrow_), id(later_today_), id(today_), id(before_)}));
    EXPECT_EQ(column(PosData().GetBillList(99, ""), "FInterID"),
              (Texts{id(tomorrow_), id(tomorrow_), id(later_today_), id(later_today_), id(today_),
                     id(today_), id(before_), id(before_)}));

    // The profit is the amount less the cost, 150 - 115.
    EXPECT_EQ(fields(PosData().GetBillList_Simple(99, " and t1.FInterID=" + id(today_)),
                     {"FVipCard", "FStockName", "FBiller", "FProfit"}),
              "V0001刘洋 Liu Yang|南京路店 Nanjing Rd shop|admin|35");
    EXPECT_EQ(column(PosData().GetBillList_Simple(99, ""), "FDeleted"), (Texts{"", "", "", "※"}));
    EXPECT_EQ(column(PosData().GetBillList_Simple(99, ""), "FChecked"), (Texts{"※", "", "", ""}));
    EXPECT_EQ(fields(PosData().GetBillList(99, " and t1.FInterID=" + id(today_)),
                     {"FSize", "FColor", "FRetailAmount", "FSaler"}),
              "M|黑色|100|张敏 Zhang Min");

    // The caller's filter narrows both lists.
    EXPECT_EQ(simple(" and t1.FDeleted=0").size(), 3u);
    EXPECT_EQ(column(PosData().GetBillList(99, " and t1.FDeleted=0"), "FInterID").size(), 6u);
    for (const char* bad : {" and FNoSuchColumn=1", " and"}) {
        const ado::ComError e = error_of([&] { PosData().GetBillList_Simple(99, bad); });
        EXPECT_EQ(e.number(), ado::err::kComponent) << bad;
        EXPECT_FALSE(e.description().empty());
    }
}

TEST_F(ListTest, UserDayWindowAndOwnStock) {
    common::session().ListDays = 1;  // today and tomorrow
    EXPECT_EQ(simple(), (Texts{id(tomorrow_), id(later_today_), id(today_)}));
    common::session().ListDays = 3;
    EXPECT_EQ(simple().size(), 4u);
    common::session().ListDays = 0;
    common::session().ListStockID = 3;
    EXPECT_EQ(simple(), (Texts{id(before_)}));
    EXPECT_EQ(column(PosData().GetBillList(99, ""), "FInterID"), (Texts{id(before_), id(before_)}));
    common::session().ListDays = 1;
    EXPECT_TRUE(simple().empty());
}

TEST_F(ListTest, SaleRetrievalAndMissingStockRow) {
    auto rs = PosData().GetPosBill(today_);
    EXPECT_EQ(fields(rs, {"FVipCard", "FStockID"}), "V0001 刘洋 Liu Yang|2");
    EXPECT_TRUE(rs->Fields("FDate").Value().is_null());
    EXPECT_EQ(rs->Fields("FBillDate").Value().to_date(), ado::DateTime::today());
    // The jeans count 1.5 points per unit of money.
    EXPECT_EQ(column(rs, "FJfFactor"), (Texts{"1", "1.5"}));
    rs = PosData().GetPosBill(today_);
    rs->MoveNext();
    EXPECT_EQ(fields(rs, {"FSizeID", "FSizeGroupID"}), "6|2");

    // An item without a points factor counts 1 (the scarf has 0).
    Sale s;
    s.lines = {Line(6, 1, 100, 159, 60)};
    s.StockID = 9;  // no such stock
    const auto orphan = save_sale(s);
    EXPECT_TRUE(PosData().GetPosBill(orphan)->Eof());
    exec("update ICStockBill set FOutStockID=1 where FInterID=" + id(orphan));
    EXPECT_EQ(column(PosData().GetPosBill(orphan), "FJfFactor"), Texts{"1"});
    exec("update ICStockBill set FOutStockID=9 where FInterID=" + id(orphan));
    rs = PosData().GetBillList_Simple(99, " and t1.FInterID=" + id(orphan));
    ASSERT_FALSE(rs->Eof());
    EXPECT_TRUE(rs->Fields("FStockName").Value().is_null());
    EXPECT_EQ(column(PosData().GetBillList(99, " and t1.FInterID=" + id(orphan)), "FInterID"),
              (Texts{id(orphan)}));
}

}  // namespace
}  // namespace billdata::testing
