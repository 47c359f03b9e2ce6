// Voiding, deleting, restoring and re-saving a till sale, and what each reverses.

#include <chrono>
#include <thread>

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

using ado::err::kComponent;

class RemoveTest : public PosTest {
  protected:
    // A member sale (card 1002: 80 points, 800 of purchases before it) whose first line sold
    // order line 500/0 and whose second line sold lent line 600/0.
    std::int32_t referencing_sale() {
        exec("insert into ICOrder(FInterID,FTranType,FBillNo) values(500,21,'XD1')");
        exec("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FQty) values(500,0,1,5)");
        exec("insert into ICStockBill(FInterID,FTranType,FBillNo) values(600,27,'JC1')");
        exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(600,0,3,4)");
        Sale s = member_sale();
        s.lines[0].ref(500, 0, 21);
        s.lines[1].ref(600, 0, 27);
        return save_sale(s);
    }
    // Card 1002's points, unused points and purchases, and the sold quantities of 500/0, 600/0.
    std::string effects() const {
        return rows(
            "select FSumJf,FSumJf_Un,FSumBuyAmount,(select FSaleQty from ICOrderEntry "
            "where FInterID=500),(select FSaleQty from ICStockBillEntry where FInterID="
            "600) from Vip where FVipID=1002")[0];
    }
    std::string marks(std::int32_t id) const {
        const std::string i = std::to_string(id);
        return rows("select FDeleted,(select sum(FDeleted) from vipjf_History where FBillInterID=" +
                    i + ") from ICStockBill where FInterID=" + i)[0];
    }
};

TEST_F(RemoveTest, PeriodAndAuditRefusals) {
    const std::string earlier = "对不起,不能作废或删除以前月份的单据!";
    Sale s = member_sale();
    s.BillDate = ado::DateTime(2025, 2, 28);
    const auto february = save_sale(s);
    const std::string before = effects();
    for (bool blank : {true, false})
        expect_com_error([&] { PosData().DeleteBill(99, february, nullptr, blank); }, kComponent,
                         earlier);
    EXPECT_EQ(effects(), before);
    EXPECT_EQ(marks(february), "0|0");

    // December of the previous year is an earlier month in January; the period is refused
    // before the audit mark is looked at.
    s.BillDate = ado::DateTime(2024, 12, 31);
    const auto december = save_sale(s);
    exec("update ICStockBill set FCheckerID=3 where FInterID=" + std::to_string(december));
    PosData().Init(connection_string(), 2025, 1);
    expect_com_error([&] { PosData().DeleteBill(99, december); }, kComponent, earlier);

    // A later period than the session's is accepted; an audited sale is refused by number.
    PosData().Init(connection_string(), 2025, 3);
    s.BillDate = ado::DateTime(2025, 4, 2);
    const auto april = save_sale(s);
    exec("update ICStockBill set FCheckerID=3 where FInterID=" + std::to_string(april));
    expect_com_error([&] { PosData().DeleteBill(99, april, nullptr, true); }, kComponent,
                     "删除单据失败，单据“pos250402-001”已经审核！");
    exec("update ICStockBill set FCheckerID=0 where FInterID=" + std::to_string(april));
    PosData().DeleteBill(99, april, nullptr, true);
    EXPECT_EQ(marks(april), "1|1");

    // A sale that does not exist fails on reading the empty result.
    expect_com_error([&] { PosData().DeleteBill(99, 4242); }, kComponent,
                     ado::err::description(ado::err::kNoCurrentRecord));
}

TEST_F(RemoveTest, VoidTwiceThenDeleteReversesOnlyOnce) {
    const auto id = referencing_sale();
    const std::string i = std::to_string(id);
    EXPECT_EQ(effects(), "230|230|950|2|1");
    PosData().DeleteBill(99, id, nullptr, true);
    EXPECT_EQ(effects(), "80|80|800|0|0");
    EXPECT_EQ(marks(id), "1|1");
    EXPECT_EQ(count("ICStockBillEntry where FInterID=" + i), 2);  // a void sale keeps its lines

    PosData().DeleteBill(99, id, nullptr, true);
    EXPECT_EQ(effects(), "80|80|800|0|0");
    EXPECT_EQ(marks(id), "1|1");

    PosData().DeleteBill(99, id);
    EXPECT_EQ(effects(), "80|80|800|0|0");
    EXPECT_EQ(rows("select (select count(*) from ICStockBill where FInterID=" + i +
                   ")+(select count(*) from ICStockBillEntry where FInterID=" + i +
                   ")+(select count(*) from ICStockBillEntry_1 where FInterID=" + i +
                   ")+(select count(*) from vipjf_History where FBillInterID=" + i + ")"),
              std::vector<std::string>{"0"});

    // Deleting a live sale reverses it, then removes it.
    const auto live = save_sale(member_sale());
    PosData().DeleteBill(99, live);
    EXPECT_EQ(effects(), "80|80|800|0|0");
    EXPECT_EQ(count("ICStockBill"), 1);  // the lent-goods bill 600 only
}

TEST_F(RemoveTest, DeleteOnCallersConnectionStaysInsideItsTransaction) {
    const auto id = referencing_sale();
    auto cn = open();
    cn->BeginTrans();
    PosData().DeleteBill(99, id, cn, false);
    EXPECT_EQ(cn->State(), ado::adStateOpen);
    EXPECT_TRUE(cn->InTransaction());
    auto rs =
        cn->Execute("select count(*) as n from ICStockBill where FInterID=" + std::to_string(id));
    EXPECT_EQ(rs->Fields("n").Value().to_int32(), 0);
    rs->Close();
    cn->RollbackTrans();
    EXPECT_EQ(effects(), "230|230|950|2|1");
    EXPECT_EQ(count("ICStockBillEntry where FInterID=" + std::to_string(id)), 2);
}

TEST_F(RemoveTest, LockWaitIsRetriedUntilTheOtherTillCommits) {
    const auto id = save_sale(member_sale());
    PosData().Init(connection_string() + ";Busy Timeout=20", 2025, 3);
    auto holder = open();
    holder->BeginTrans();
    std::thread other_till([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        holder->CommitTrans();
    });
    PosData().DeleteBill(99, id, nullptr, true);
    other_till.join();
    EXPECT_EQ(marks(id), "1|1");
    EXPECT_EQ(effects(), "80|80|800||");
}

TEST_F(RemoveTest, UnblankOutRestoresPointsButNotPurchasesAndCountsALiveSaleTwice) {
    const auto id = referencing_sale();
    PosData().DeleteBill(99, id, nullptr, true);
    PosData().UnblankOut(id);
    EXPECT_EQ(marks(id), "0|0");
    EXPECT_EQ(effects(), "230|230|800|2|1");

    // Nothing stops a restore of a live sale: its points and quantities are booked again.
    PosData().UnblankOut(id);
    EXPECT_EQ(effects(), "380|380|800|4|2");
    EXPECT_EQ(marks(id), "0|0");
}

TEST_F(RemoveTest, ResaveKeepsNumberAndReplacesLines) {
    const auto id = referencing_sale();
    const std::string i = std::to_string(id);
    exec("update ICStockBill set FPosGetMoney=1 where FInterID=" + i);
    const std::string counters_sql =
        "select (select FMaxNum from ICMaxNum where FTranType=0),(select sum(FMaxNum) from "
        "ICBillNo)";
    const auto counters = rows(counters_sql);

    Sale s = member_sale();
    s.lines = {Line(1, 1, 45, 50, 30)};
    s.lines[0].ref(500, 0, 21);
    s.SumAmount = s.SumJf = 45;
    s.StockBillID = id;
    EXPECT_EQ(save_sale(s), id);
    EXPECT_EQ(rows("select FBillNo,FPosGetMoney,FSumAmount,(select count(*) from ICStockBillEntry "
                   "where FInterID=" +
                   i + "),(select count(*) from ICStockBillEntry_1 where FInterID=" + i +
                   ") from ICStockBill where FInterID=" + i)[0],
              "pos250309-001|1|45|1|1");
    EXPECT_EQ(effects(), "125|125|845|1|0");
    EXPECT_EQ(rows("select FMemo from vipjf_History where FBillInterID=" + i),
              std::vector<std::string>{"消费增加积分,消费金额：45.00,单号:pos250309-001"});
    EXPECT_EQ(rows(counters_sql), counters);

    // A sale that vanished meanwhile is refused by the removal and nothing is saved.
    s.StockBillID = 777;
    const std::string before = effects() + "/" + text("select count(*) from ICStockBillEntry");
    expect_com_error([&] { save_sale(s); }, kComponent,
                     ado::err::description(ado::err::kNoCurrentRecord));
    EXPECT_EQ(effects() + "/" + text("select count(*) from ICStockBillEntry"), before);
    EXPECT_EQ(count("ICStockBill where FInterID=777"), 0);
}

}  // namespace
}  // namespace billdata::testing
