// The till's history lists and the retrieval of one sale.

#include <vector>

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

// One field of every row, in the order the record set gives them.
std::vector<std::string> column(std::shared_ptr<ado::Recordset> rs, const char* name) {
    std::vector<std::string> out;
    for (; !rs->Eof(); rs->MoveNext())
        out.push_back(rs->Fields(name).Value().to_string());
    rs->Close();
    return out;
}

using Texts = std::vector<std::string>;

class ListTest : public PosTest {
  protected:
    void SetUp() override {
        PosTest::SetUp();
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

    auto rs = PosData().GetBillList_Simple(99, " and t1.FInterID=" + id(today_));
    EXPECT_EQ(rs->Fields("FVipCard").Value().to_string(), "V0001刘洋 Liu Yang");
    EXPECT_EQ(rs->Fields("FStockName").Value().to_string(), "南京路店 Nanjing Rd shop");
    EXPECT_EQ(rs->Fields("FBiller").Value().to_string(), "admin");
    EXPECT_DOUBLE_EQ(rs->Fields("FProfit").Value().to_double(), 150 - 115);
    rs->Close();
    EXPECT_EQ(column(PosData().GetBillList_Simple(99, ""), "FDeleted"), (Texts{"", "", "", "※"}));
    EXPECT_EQ(column(PosData().GetBillList_Simple(99, ""), "FChecked"), (Texts{"※", "", "", ""}));

    rs = PosData().GetBillList(99, " and t1.FInterID=" + id(today_));
    EXPECT_EQ(rs->Fields("FSize").Value().to_string(), "M");
    EXPECT_EQ(rs->Fields("FColor").Value().to_string(), "黑色");
    EXPECT_DOUBLE_EQ(rs->Fields("FRetailAmount").Value().to_double(), 100);
    EXPECT_EQ(rs->Fields("FSaler").Value().to_string(), "张敏 Zhang Min");
    rs->Close();

    // The caller's filter narrows both lists.
    EXPECT_EQ(simple(" and t1.FDeleted=0").size(), 3u);
    EXPECT_EQ(column(PosData().GetBillList(99, " and t1.FDeleted=0"), "FInterID").size(), 6u);
    for (const char* bad : {" and FNoSuchColumn=1", " and"}) {
        EXPECT_THROW(
            try { PosData().GetBillList_Simple(99, bad); } catch (const ado::ComError& e) {
                EXPECT_EQ(e.number(), ado::err::kComponent);
                EXPECT_FALSE(e.description().empty());
                throw;
            },
            ado::ComError);
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
    EXPECT_EQ(rs->Fields("FVipCard").Value().to_string(), "V0001 刘洋 Liu Yang");
    EXPECT_EQ(rs->Fields("FStockID").Value().to_int32(), 2);
    EXPECT_TRUE(rs->Fields("FDate").Value().is_null());
    EXPECT_EQ(rs->Fields("FBillDate").Value().to_date(), ado::DateTime::today());
    EXPECT_DOUBLE_EQ(rs->Fields("FJfFactor").Value().to_double(), 1);
    rs->MoveNext();
    EXPECT_DOUBLE_EQ(rs->Fields("FJfFactor").Value().to_double(), 1.5);  // jeans
    EXPECT_EQ(rs->Fields("FSizeID").Value().to_int32(), 6);
    EXPECT_EQ(rs->Fields("FSizeGroupID").Value().to_int32(), 2);
    rs->MoveNext();
    EXPECT_TRUE(rs->Eof());
    rs->Close();

    // An item without a points factor counts 1 (the scarf has 0).
    Sale s;
    s.lines = {Line(6, 1, 100, 159, 60)};
    s.StockID = 9;  // no such stock
    const auto orphan = save_sale(s);
    rs = PosData().GetPosBill(orphan);
    EXPECT_TRUE(rs->Eof());
    rs->Close();
    exec("update ICStockBill set FOutStockID=1 where FInterID=" + id(orphan));
    rs = PosData().GetPosBill(orphan);
    EXPECT_DOUBLE_EQ(rs->Fields("FJfFactor").Value().to_double(), 1);
    rs->Close();
    exec("update ICStockBill set FOutStockID=9 where FInterID=" + id(orphan));
    rs = PosData().GetBillList_Simple(99, " and t1.FInterID=" + id(orphan));
    ASSERT_FALSE(rs->Eof());
    EXPECT_TRUE(rs->Fields("FStockName").Value().is_null());
    rs->Close();
    EXPECT_EQ(column(PosData().GetBillList(99, " and t1.FInterID=" + id(orphan)), "FInterID"),
              (Texts{id(orphan)}));
}

}  // namespace
}  // namespace billdata::testing
