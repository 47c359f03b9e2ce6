// Saving a till sale: lines, header sums, points and member card, sold quantities, failures.

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

using ado::err::kComponent;
using Texts = std::vector<std::string>;

class SaveTest : public PosTest {
  protected:
    // Everything a failed save must leave exactly as it was.
    Texts footprint() const {
        return rows(
            "select (select count(*) from ICStockBill),(select count(*) from ICStockBillEntry),"
            "(select count(*) from ICStockBillEntry_1),(select count(*) from vipjf_History),"
            "(select sum(FSumJf) + sum(FSumBuyAmount) from Vip),(select count(*) from ICBillNo),"
            "(select isnull(max(FMaxNum),-1) from ICMaxNum where FTranType=0)");
    }
    Texts head(const std::string& columns, std::int32_t id) const {
        return rows("select " + columns + " from ICStockBill where FInterID=" + std::to_string(id));
    }
};

TEST_F(SaveTest, OddChangeIsSpreadByAmountOverSaleAmountPlusAbsoluteOddChange) {
    Sale s;
    s.lines = {Line(1, 1, 60, 70, 0), Line(1, 1, 30, 35, 0)};
    s.SumAmount = 89.5;
    s.OddMent = -0.5;
    auto id = save_sale(s);
    // 60 / (89.5 + 0.5) × -0.5 = -0.333…; dividing by 89.5 - 0.5 would give -0.34.
    EXPECT_EQ(rows("select FOddMentEntry from ICStockBillEntry order by FEntryID"),
              (Texts{"-0.33", "-0.17"}));
    EXPECT_EQ(head("FSumOddMent", id), Texts{"-0.5"});

    // A sale amount of 0 writes no odd change on any line and leaves the points as given.
    s.SumAmount = 0;
    s.SumJf = 40;
    s.GetDyq = 10;
    id = save_sale(s);
    EXPECT_EQ(
        count("ICStockBillEntry where FInterID=" + std::to_string(id) + " and FOddMentEntry<>0"),
        0);
    EXPECT_EQ(head("FSumJf", id), Texts{"40"});
}

TEST_F(SaveTest, LinesPreSentGoodsAndHeaderSums) {
    Sale s = member_sale();
    s.BillDate = ado::DateTime(2025, 11, 5);
    s.presend = {PreSend(7, 2, 39, 12, "赠品 gift")};
    const auto id = save_sale(s);
    const std::string where = " where FInterID=" + std::to_string(id);
    // The pre-sent row continues the row keys, has no entry id, price or amount.
    EXPECT_EQ(rows("select count(*) from ICStockBillEntry" + where), Texts{"3"});
    EXPECT_EQ(rows("select isnull(FEntryID,-9),FPreSend,FAmount+FPrice+FZkRate,FRetailAmount,FCost,"
                   "FMemo from ICStockBillEntry" +
                   where + " and FRowKey='2'"),
              Texts{"-9|1|0|78|24|赠品 gift"});
    EXPECT_EQ(rows("select FRowKey,FColor,FSizeID,FQty from ICStockBillEntry_1" + where +
                   " order by FRowKey"),
              (Texts{"0|黑色|2|2", "1|蓝色|6|1", "2||0|2"}));
    // Sale-line amounts only in FBzkBillAmount, pre-sent goods counted in the quantity.
    EXPECT_EQ(head("FBillNo,FSeason,FMonth,FYear,FPeriod,FBzkBillAmount,FSumQty,FSumRetailAmount,"
                   "FSumZkAmount,FSumCost,FSumProfit,FOrgaID,FSettleID,FPosGetMoney",
                   id),
              Texts{"pos251105-001|2025年4季度|2025年11月|2025|11|150|5|278|50|139|11|1002|0|0"});

    // Leading characters of the caller; a sale left owing is on credit.
    s.presend.clear();
    s.BillNoBegChar = "A";
    s.QkAmount = 30;
    EXPECT_EQ(head("FBillNo,FSettleID", save_sale(s)), Texts{"A251105-002|1"});
}

TEST_F(SaveTest, PointsShrinkAndExchangeGiveTwoHistoryRows) {
    Sale s = member_sale();
    s.lines = {Line(1, 1, 200, 200, 0)};
    s.SumAmount = s.SumJf = 200;
    s.OddMent = -1;
    s.GetDyq = 20;
    s.GetJfAmount = 10;
    s.JfExchange = 100;
    const auto id = save_sale(s);
    // 29 of 200 not paid in money: 200 - 29 points.
    EXPECT_EQ(head("FSumJf", id), Texts{"171"});
    // Card 1002 held 80 points and 800 of purchases; net points 171 - 100.
    EXPECT_EQ(rows("select FSumJf,FSumJf_Un,FSumBuyAmount from Vip where FVipID=1002"),
              Texts{"151|151|1000"});
    EXPECT_EQ(rows("select Fjf,FBiller,FMemo,FVipID,FDeleted from vipjf_History where "
                   "FBillInterID=" +
                   std::to_string(id) + " order by FID"),
              (Texts{"171|admin|消费增加积分,消费金额：200.00,单号:pos250309-001|1002|0",
                     "-100|admin|积分兑换金额：10.00,单号:pos250309-001|1002|0"}));

    // A share that does not divide evenly is rounded to two places.
    s.SumAmount = 300;
    s.SumJf = 100;
    s.OddMent = s.GetJfAmount = s.JfExchange = 0;
    s.GetDyq = 10;
    const auto second = save_sale(s);
    EXPECT_EQ(head("FSumJf", second), Texts{"96.67"});
    EXPECT_EQ(count("vipjf_History where FBillInterID=" + std::to_string(second)), 1);
}

TEST_F(SaveTest, MemberCardAndSaleWithoutCard) {
    // Card 1003 is provisional: it becomes a full card once its purchases reach the threshold.
    Sale s = member_sale(1003);
    save_sale(s);
    const std::string card = "select FBogus,FSumBuyAmount,FSumJf_Un from Vip where FVipID=1003";
    EXPECT_EQ(rows(card), Texts{"1|150|150"});
    s.AmountBogusToVip = 300;
    save_sale(s);
    EXPECT_EQ(rows(card), Texts{"0|300|300"});

    const Texts before = rows("select sum(FSumJf + FSumJf_Un + FSumBuyAmount) from Vip");
    const auto id = save_sale(member_sale(0));
    EXPECT_EQ(rows("select sum(FSumJf + FSumJf_Un + FSumBuyAmount) from Vip"), before);
    EXPECT_EQ(count("vipjf_History where FBillInterID=" + std::to_string(id)), 0);
    EXPECT_EQ(head("FVipID", id), Texts{"0"});
}

TEST_F(SaveTest, SoldQuantitiesOfReferencedLinesAndPurgeOfSoldOrders) {
    exec("insert into ICOrder(FInterID,FTranType,FBillNo) values(500,21,'XD1')");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(500,0,1,'0',2)");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(500,1,3,'1',3)");
    exec("insert into ICOrderEntry_1(FInterID,FItemID,FRowKey,FQty) values(500,1,'0',2)");
    exec("insert into ICOrder(FInterID,FTranType,FBillNo) values(501,11,'CD1')");
    exec(
        "insert into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FSaleQty) "
        "values(501,0,5,'0',1,1)");
    exec("insert into ICOrderEntry_1(FInterID,FItemID,FRowKey,FQty) values(501,5,'0',1)");
    exec("insert into ICStockBill(FInterID,FTranType,FBillNo) values(600,27,'JC1')");
    exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(600,0,5,3)");
    const std::string sold =
        "select FInterID,FEntryID,FSaleQty from ICOrderEntry union all "
        "select FInterID,FEntryID,FSaleQty from ICStockBillEntry where "
        "FInterID=600 order by 1,2";

    Sale s = member_sale();
    s.lines[0].ref(500, 0, 21);
    s.lines[1].ref(600, 0, 27);
    save_sale(s);
    // Nothing purged without AutoDelRefBill.
    EXPECT_EQ(rows(sold), (Texts{"500|0|2", "500|1|0", "501|0|1", "600|0|1"}));

    // The purge runs over every order: fully sold lines go, and orders left without lines.
    Sale t = member_sale(0);
    t.lines.pop_back();
    t.lines[0].ref(500, 1, 21);
    t.AutoDelRefBill = true;
    save_sale(t);
    EXPECT_EQ(rows(sold), (Texts{"500|1|2", "600|0|1"}));
    EXPECT_EQ(rows("select FInterID from ICOrder"), Texts{"500"});
    EXPECT_EQ(count("ICOrderEntry_1 where FInterID=501"), 0);
}

TEST_F(SaveTest, FailedSaveLeavesNothingBehind) {
    // (A database that fails a write part way is the fault sweep's: tests/faults.)
    const Texts before = footprint();
    // The quantity total is 16 bits wide.
    Sale s = member_sale();
    s.lines[0].qty = 40000;
    expect_com_error([&] { save_sale(s); }, kComponent, "溢出");
    EXPECT_EQ(footprint(), before);

    // An unknown biller's name cannot be read for the points history.
    s = member_sale();
    s.BillerID = 77;
    expect_com_error([&] { save_sale(s); }, kComponent,
                     ado::err::description(ado::err::kNoCurrentRecord));
    EXPECT_EQ(footprint(), before);
}

TEST_F(SaveTest, ClashOnInteriorIdDrawsFreshIdAndLocksAreRaised) {
    // A line written under id 1 by another program, without its header: the counter and the
    // header cross-check both hand out 1, and the first line clashes.
    exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(1,0,1,1)");
    EXPECT_EQ(save_sale(member_sale()), 2);
    EXPECT_EQ(rows("select FInterID,count(*) from ICStockBillEntry group by FInterID order by 1"),
              (Texts{"1|1", "2|2"}));
    EXPECT_EQ(head("FBillNo", 2), Texts{"pos250309-001"});
    EXPECT_EQ(count("vipjf_History where FBillInterID=2"), 1);

    // A save that meets another till's write lock fails whole instead of waiting forever.
    PosData().Init(connection_string() + ";Busy Timeout=50", 2025, 3);
    auto holder = open();
    holder->BeginTrans();
    // The counters: every save raises one, on every engine.
    holder->Execute("update ICMaxNum set FMaxNum=FMaxNum");
    const Texts before = footprint();
    EXPECT_EQ(error_of([&] { save_sale(member_sale()); }).number(), kComponent);
    holder->RollbackTrans();
    EXPECT_EQ(footprint(), before);
    EXPECT_EQ(save_sale(member_sale()), 3);
}

}  // namespace
}  // namespace billdata::testing
