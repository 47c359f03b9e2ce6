// The whole life of a till sale on a database made by the command line's `init --demo`: save
// with a member card, fetch it back as the till does, correct it from what was fetched, delete.

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
    }
    void TearDown() override { common::session() = common::SessionContext{}; }
    // Rows of a sale and its header sums, the card, the points history and the order line it
    // sold, in one line.
    std::string state(std::int32_t id) const {
        const std::string i = std::to_string(id);
        return query_rows(
            cs_, "select (select count(*) from ICStockBillEntry where FInterID=" + i +
                     "),(select count(*) from ICStockBillEntry_1 where FInterID=" + i +
                     "),(select FSumQty from ICStockBill where FInterID=" + i +
                     "),(select FSumAmount from ICStockBill where FInterID=" + i +
                     "),FSumJf,FSumJf_Un,FSumBuyAmount,(select count(*) from vipjf_History "
                     "where FBillInterID=" +
                     i +
                     "),(select FSaleQty from ICOrderEntry where FInterID=900) from Vip "
                     "where FVipID=1001")[0];
    }

    TempDir dir_;
    std::string cs_;
};

TEST_F(TypicalRequest, SaveFetchCorrectDelete) {
    // A member order whose first line the customer collects at the till.
    auto cn = ado::Connection::create();
    cn->Open(cs_);
    cn->Execute("insert into ICOrder(FInterID,FTranType,FBillNo) values(900,21,'XD1')");
    cn->Execute("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FQty) values(900,0,1,3)");
    cn->Close();

    Sale s = member_sale(1001);  // card 1001 holds 240 points, 120 unused, 2400 of purchases
    s.BillDate = ado::DateTime::today();
    s.lines[0].ref(900, 0, 21);
    s.presend = {PreSend(7, 1, 39, 12, "赠品")};
    const auto id = save_sale(s);
    const std::string bill_no_sql =
        "select FBillNo from ICStockBill where FInterID=" + std::to_string(id);
    const auto bill_no = query_rows(cs_, bill_no_sql);
    EXPECT_EQ(state(id), "3|3|4|150|390|270|2550|1|2");

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
        l.ref(v("FRefInterID").to_int32(), v("FRefEntryID").to_int32(),
              v("FRefInterID").to_int32() > 0 ? 21 : 0);
        l.color = v("FColor").to_string();
        l.size = v("FSizeID").to_int32();
        s.lines.push_back(l);
    }
    ASSERT_EQ(s.lines.size(), 2u);
    ASSERT_EQ(s.presend.size(), 1u);
    s.lines[0] = Line(1, 1, 40, 50, 30).ref(900, 0, 21);
    s.SumAmount = s.SumJf = 110;
    s.StockBillID = id;
    EXPECT_EQ(save_sale(s), id);
    EXPECT_EQ(state(id), "3|3|3|110|350|230|2510|1|1");
    EXPECT_EQ(query_rows(cs_, bill_no_sql), bill_no);

    PosData().DeleteBill(99, id);
    EXPECT_EQ(state(id), "0|0|||240|120|2400|0|0");
}

}  // namespace
}  // namespace billdata::testing
