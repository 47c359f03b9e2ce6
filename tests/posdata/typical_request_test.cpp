// The whole life of a till sale on a database made by the command line's `init --demo`: save
// with a member card, list, fetch, correct, void, restore, delete.

#include <cstdlib>

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

class TypicalRequest : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string path = dir_.file("shop.db");
        const std::string cmd = std::string(BILLDATA_CLI) + " init " + path + " --demo >/dev/null";
        ASSERT_EQ(std::system(cmd.c_str()), 0);
        cs_ = "Provider=SQLite;Data Source=" + path;
        common::session() = common::SessionContext{};
        const ado::DateTime today = ado::DateTime::today();
        PosData().Init(cs_, static_cast<std::int16_t>(today.year()),
                       static_cast<std::int16_t>(today.month()));
        cn_ = ado::Connection::create();
        cn_->Open(cs_);
    }
    void TearDown() override {
        cn_->Close();
        common::session() = common::SessionContext{};
    }
    std::string text(const std::string& sql) {
        auto rs = cn_->Execute(sql);
        std::string v = rs->Eof() ? "<none>" : rs->Fields(std::size_t{0}).Value().to_string();
        rs->Close();
        return v;
    }
    // Rows of a sale, its header sums, the card and the order line it sold, in one line.
    std::string state(std::int32_t id) {
        const std::string i = std::to_string(id);
        return text("select count(*) from ICStockBillEntry where FInterID=" + i) + " lines, " +
               text("select count(*) from ICStockBillEntry_1 where FInterID=" + i) + " sizes, " +
               text("select FSumQty from ICStockBill where FInterID=" + i) + " pcs, " +
               text("select FSumAmount from ICStockBill where FInterID=" + i) + " amount, " +
               text("select FDeleted from ICStockBill where FInterID=" + i) + " void; card " +
               text("select FSumJf from Vip where FVipID=1001") + "/" +
               text("select FSumJf_Un from Vip where FVipID=1001") + "/" +
               text("select FSumBuyAmount from Vip where FVipID=1001") + "; history " +
               text("select count(*) from vipjf_History where FBillInterID=" + i) + "/" +
               text("select isnull(sum(FDeleted),0) from vipjf_History where FBillInterID=" + i) +
               "; ordered " + text("select FSaleQty from ICOrderEntry where FInterID=900");
    }

    TempDir dir_;
    std::string cs_;
    std::shared_ptr<ado::Connection> cn_;
};

TEST_F(TypicalRequest, SaveListFetchCorrectVoidRestoreDelete) {
    // A member order whose first line the customer collects at the till.
    cn_->Execute("insert into ICOrder(FInterID,FTranType,FBillNo) values(900,21,'XD1')");
    cn_->Execute("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FQty) values(900,0,1,3)");

    Sale s = member_sale(1001);  // card 1001 holds 240 points, 120 unused, 2400 of purchases
    s.BillDate = ado::DateTime::today();
    s.lines[0].ref_inter = 900, s.lines[0].ref_entry = 0, s.lines[0].ref_tran = 21;
    s.presend = {PreSend(7, 1, 39, 12, "赠品")};
    const auto id = save_sale(s);
    EXPECT_EQ(state(id),
              "3 lines, 3 sizes, 4 pcs, 150 amount, 0 void; card 390/270/2550; "
              "history 1/0; ordered 2");
    const std::string bill_no =
        text("select FBillNo from ICStockBill where FInterID=" + std::to_string(id));

    auto simple = PosData().GetBillList_Simple(99, "");
    EXPECT_EQ(simple->Fields("FInterID").Value().to_int32(), id);
    simple->MoveNext();
    EXPECT_TRUE(simple->Eof());
    auto full = PosData().GetBillList(99, "");
    int rows = 0;
    for (; !full->Eof(); full->MoveNext())
        ++rows;
    EXPECT_EQ(rows, 3);

    // The till rebuilds the sale from what GetPosBill gives, sells one T-shirt less and saves.
    s.lines.clear();
    s.presend.clear();
    for (auto rs = PosData().GetPosBill(id); !rs->Eof(); rs->MoveNext()) {
        auto v = [&](const char* name) { return rs->Fields(name).Value(); };
        if (v("FPreSend").to_int32() != 0) {
            s.presend.emplace_back(v("FItemID").to_int32(), v("FQty").to_double(),
                                   v("FRetailPrice").to_double(), v("FUnitCost").to_double(),
                                   "赠品");
            continue;
        }
        Line l(v("FItemID").to_int32(), v("FQty").to_double(), v("FPrice").to_double(),
               v("FRetailPrice").to_double(), v("FUnitCost").to_double());
        l.saler = v("FSalerID").to_int32();
        l.ref_inter = v("FRefInterID").to_int32();
        l.ref_entry = v("FRefEntryID").to_int32();
        l.ref_tran = l.ref_inter > 0 ? 21 : 0;
        l.color = v("FColor").to_string();
        l.size = v("FSizeID").to_int32();
        s.lines.push_back(l);
    }
    ASSERT_EQ(s.lines.size(), 2u);
    ASSERT_EQ(s.presend.size(), 1u);
    s.lines[0] = Line(1, 1, 40, 50, 30);
    s.lines[0].ref_inter = 900, s.lines[0].ref_tran = 21;
    s.SumAmount = s.SumJf = 110;
    s.StockBillID = id;
    EXPECT_EQ(save_sale(s), id);
    EXPECT_EQ(state(id),
              "3 lines, 3 sizes, 3 pcs, 110 amount, 0 void; card 350/230/2510; "
              "history 1/0; ordered 1");
    EXPECT_EQ(text("select FBillNo from ICStockBill where FInterID=" + std::to_string(id)),
              bill_no);
    EXPECT_EQ(text("select count(*) from ICStockBillEntry where FEntryID=0"), "1");

    PosData().DeleteBill(99, id, nullptr, true);
    EXPECT_EQ(state(id),
              "3 lines, 3 sizes, 3 pcs, 110 amount, 1 void; card 240/120/2400; "
              "history 1/1; ordered 0");
    PosData().UnblankOut(id);
    EXPECT_EQ(state(id),
              "3 lines, 3 sizes, 3 pcs, 110 amount, 0 void; card 350/230/2400; "
              "history 1/0; ordered 1");
    PosData().DeleteBill(99, id);
    EXPECT_EQ(state(id),
              "0 lines, 0 sizes, <none> pcs, <none> amount, <none> void; "
              "card 240/120/2290; history 0/0; ordered 0");
}

}  // namespace
}  // namespace billdata::testing
