// Saving a till sale: lines, header sums, points and member card, sold quantities, failures.

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

using ado::err::kComponent;

class SaveTest : public PosTest {
  protected:
    // Everything a failed save must leave exactly as it was.
    std::string footprint() const {
        return text("select count(*) from ICStockBill") + "/" +
               text("select count(*) from ICStockBillEntry") + "/" +
               text("select count(*) from ICStockBillEntry_1") + "/" +
               text("select count(*) from vipjf_History") + "/" +
               text("select sum(FSumJf) + sum(FSumBuyAmount) from Vip") + "/" +
               text("select count(*) from ICBillNo") + "/" +
               text("select isnull(max(FMaxNum),-1) from ICMaxNum where FTranType=0");
    }
};

TEST_F(SaveTest, OddChangeIsSpreadByAmountOverSaleAmountPlusAbsoluteOddChange) {
    Sale s;
    s.lines = {Line(1, 1, 60, 70, 0), Line(1, 1, 30, 35, 0)};
    s.SumAmount = 89.5;
    s.OddMent = -0.5;
    auto id = std::to_string(save_sale(s));
    // 60 / (89.5 + 0.5) × -0.5 = -0.333…; dividing by 89.5 - 0.5 would give -0.34.
    EXPECT_DOUBLE_EQ(number("select FOddMentEntry from ICStockBillEntry where FEntryID=0"), -0.33);
    EXPECT_DOUBLE_EQ(number("select FOddMentEntry from ICStockBillEntry where FEntryID=1"), -0.17);
    EXPECT_DOUBLE_EQ(number("select FSumOddMent from ICStockBill where FInterID=" + id), -0.5);

    // A sale amount of 0 writes no odd change on any line and leaves the points as given.
    s.SumAmount = 0;
    s.SumJf = 40;
    s.GetDyq = 10;
    id = std::to_string(save_sale(s));
    EXPECT_EQ(count("ICStockBillEntry where FInterID=" + id + " and FOddMentEntry<>0"), 0);
    EXPECT_DOUBLE_EQ(number("select FSumJf from ICStockBill where FInterID=" + id), 40);
}

TEST_F(SaveTest, LinesPreSentGoodsAndHeaderSums) {
    Sale s = member_sale();
    s.BillDate = ado::DateTime(2025, 11, 5);
    s.presend = {PreSend(7, 2, 39, 12, "赠品 gift")};
    const auto id = std::to_string(save_sale(s));
    auto col = [&](const std::string& what, const std::string& where) {
        return scalar("select " + what + " from ICStockBillEntry where FInterID=" + id + " and " +
                      where);
    };
    EXPECT_EQ(count("ICStockBillEntry where FInterID=" + id), 3);
    // The pre-sent row continues the row keys, has no entry id, price or amount.
    EXPECT_TRUE(col("FEntryID", "FRowKey='2'").is_null());
    EXPECT_EQ(col("FPreSend", "FRowKey='2'").to_int32(), 1);
    EXPECT_DOUBLE_EQ(col("FAmount + FPrice + FZkRate", "FRowKey='2'").to_double(), 0);
    EXPECT_DOUBLE_EQ(col("FRetailAmount", "FRowKey='2'").to_double(), 78);
    EXPECT_DOUBLE_EQ(col("FCost", "FRowKey='2'").to_double(), 24);
    EXPECT_EQ(col("FMemo", "FRowKey='2'").to_string(), "赠品 gift");
    EXPECT_EQ(count("ICStockBillEntry_1 where FInterID=" + id +
                    " and FRowKey='1' and FColor='蓝色' and FSizeID=6 and FQty=1"),
              1);
    EXPECT_EQ(count("ICStockBillEntry_1 where FInterID=" + id), 3);

    EXPECT_EQ(text("select FBillNo + '|' + FSeason + '|' + FMonth from ICStockBill"),
              "pos251105-001|2025年4季度|2025年11月");
    auto head = [&](const std::string& c) {
        return number("select " + c + " from ICStockBill where FInterID=" + id);
    };
    EXPECT_EQ(head("FYear * 100 + FPeriod"), 202511);
    EXPECT_EQ(head("FBzkBillAmount"), 150);  // amounts of the sale lines only
    EXPECT_EQ(head("FSumQty"), 5);           // pre-sent goods counted
    EXPECT_EQ(head("FSumRetailAmount"), 278);
    EXPECT_EQ(head("FSumZkAmount"), 50);
    EXPECT_EQ(head("FSumCost"), 139);
    EXPECT_EQ(head("FSumProfit"), 11);
    EXPECT_EQ(head("FOrgaID"), 1002);
    EXPECT_EQ(head("FSettleID + FPosGetMoney"), 0);

    // Leading characters of the caller; a sale left owing is on credit.
    s.presend.clear();
    s.BillNoBegChar = "A";
    s.QkAmount = 30;
    const auto second = std::to_string(save_sale(s));
    EXPECT_EQ(text("select FBillNo from ICStockBill where FInterID=" + second), "A251105-002");
    EXPECT_EQ(number("select FSettleID from ICStockBill where FInterID=" + second), 1);
}

TEST_F(SaveTest, PointsShrinkAndExchangeGiveTwoHistoryRows) {
    Sale s = member_sale();
    s.lines = {Line(1, 1, 200, 200, 0)};
    s.SumAmount = 200;
    s.SumJf = 200;
    s.OddMent = -1;
    s.GetDyq = 20;
    s.GetJfAmount = 10;
    s.JfExchange = 100;
    const auto id = std::to_string(save_sale(s));
    // 29 of 200 not paid in money: 200 - 29 points.
    EXPECT_DOUBLE_EQ(number("select FSumJf from ICStockBill where FInterID=" + id), 171);
    // Card 1002 held 80 points and 800 of purchases; net points 171 - 100.
    EXPECT_EQ(
        count("Vip where FVipID=1002 and FSumJf=151 and FSumJf_Un=151 and FSumBuyAmount=1000"), 1);
    auto rs = open()->Execute(
        "select Fjf,FBiller,FMemo,FVipID,FDeleted from vipjf_History where FBillInterID=" + id +
        " order by FID");
    EXPECT_DOUBLE_EQ(rs->Fields("Fjf").Value().to_double(), 171);
    EXPECT_EQ(rs->Fields("FBiller").Value().to_string(), "admin");
    EXPECT_EQ(rs->Fields("FMemo").Value().to_string(),
              "消费增加积分,消费金额：200.00,单号:pos250309-001");
    EXPECT_EQ(rs->Fields("FVipID").Value().to_int32(), 1002);
    rs->MoveNext();
    EXPECT_DOUBLE_EQ(rs->Fields("Fjf").Value().to_double(), -100);
    EXPECT_EQ(rs->Fields("FMemo").Value().to_string(), "积分兑换金额：10.00,单号:pos250309-001");
    rs->MoveNext();
    EXPECT_TRUE(rs->Eof());

    // A share that does not divide evenly is rounded to two places.
    s.SumAmount = 300;
    s.SumJf = 100;
    s.OddMent = s.GetJfAmount = s.JfExchange = 0;
    s.GetDyq = 10;
    const auto second = std::to_string(save_sale(s));
    EXPECT_DOUBLE_EQ(number("select FSumJf from ICStockBill where FInterID=" + second), 96.67);
    EXPECT_EQ(count("vipjf_History where FBillInterID=" + second), 1);
}

TEST_F(SaveTest, MemberCardAndSaleWithoutCard) {
    // Card 1003 is provisional: it becomes a full card once its purchases reach the threshold.
    Sale s = member_sale(1003);
    save_sale(s);
    EXPECT_EQ(number("select FBogus from Vip where FVipID=1003"), 1);
    EXPECT_EQ(number("select FSumBuyAmount from Vip where FVipID=1003"), 150);
    s.AmountBogusToVip = 300;
    save_sale(s);
    EXPECT_EQ(number("select FBogus from Vip where FVipID=1003"), 0);
    EXPECT_EQ(number("select FSumJf_Un from Vip where FVipID=1003"), 300);
    EXPECT_EQ(count("vipjf_History where FVipID=1003"), 2);

    const std::string before = text("select sum(FSumJf + FSumJf_Un + FSumBuyAmount) from Vip");
    const auto id = std::to_string(save_sale(member_sale(0)));
    EXPECT_EQ(text("select sum(FSumJf + FSumJf_Un + FSumBuyAmount) from Vip"), before);
    EXPECT_EQ(count("vipjf_History where FBillInterID=" + id), 0);
    EXPECT_EQ(number("select FVipID from ICStockBill where FInterID=" + id), 0);
}

TEST_F(SaveTest, SoldQuantitiesOfReferencedLinesAndPurgeOfSoldOrders) {
    exec("insert into ICOrder(FInterID,FTranType,FDate,FBillNo) values(500,21,'2025-03-01','XD1')");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(500,0,1,'0',2)");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(500,1,3,'1',3)");
    exec("insert into ICOrderEntry_1(FInterID,FItemID,FRowKey,FQty) values(500,1,'0',2)");
    exec("insert into ICOrder(FInterID,FTranType,FDate,FBillNo) values(501,11,'2025-03-01','CD1')");
    exec(
        "insert into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FSaleQty) values(501,0,5,'0',1,1)");
    exec("insert into ICOrderEntry_1(FInterID,FItemID,FRowKey,FQty) values(501,5,'0',1)");
    exec(
        "insert into ICStockBill(FInterID,FTranType,FDate,FBillNo,FOutStockID) values(600,27,'2025-03-01','JC1',2)");
    exec(
        "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(600,0,5,'0',3)");

    Sale s = member_sale();
    s.lines[0].ref_inter = 500, s.lines[0].ref_entry = 0, s.lines[0].ref_tran = 21;
    s.lines[1].ref_inter = 600, s.lines[1].ref_entry = 0, s.lines[1].ref_tran = 27;
    save_sale(s);
    EXPECT_EQ(number("select FSaleQty from ICOrderEntry where FInterID=500 and FEntryID=0"), 2);
    EXPECT_EQ(number("select FSaleQty from ICOrderEntry where FInterID=500 and FEntryID=1"), 0);
    EXPECT_EQ(number("select FSaleQty from ICStockBillEntry where FInterID=600"), 1);
    EXPECT_EQ(count("ICOrderEntry"), 3);  // nothing purged without AutoDelRefBill

    // The purge runs over every order: fully sold lines go, and orders left without lines.
    Sale t = member_sale(0);
    t.lines.pop_back();
    t.lines[0].ref_inter = 500, t.lines[0].ref_entry = 1, t.lines[0].ref_tran = 21;
    t.AutoDelRefBill = true;
    save_sale(t);
    EXPECT_EQ(count("ICOrderEntry"), 1);
    EXPECT_EQ(count("ICOrderEntry where FInterID=500 and FEntryID=1 and FSaleQty=2"), 1);
    EXPECT_EQ(count("ICOrder"), 1);
    EXPECT_EQ(count("ICOrderEntry_1 where FInterID=501"), 0);
    EXPECT_EQ(number("select FSaleQty from ICStockBillEntry where FInterID=600"), 1);
}

TEST_F(SaveTest, FailedSaveLeavesNothingBehind) {
    const std::string before = footprint();
    // The database refuses the header, after the lines were written.
    sqlite_exec(
        "CREATE TRIGGER TR_Test_Refuse BEFORE INSERT ON ICStockBill WHEN new.FRemark='refused' "
        "BEGIN SELECT RAISE(ABORT,'disk full'); END");
    Sale s = member_sale();
    s.BillRemark = "refused";
    expect_com_error([&] { save_sale(s); }, kComponent, "disk full");
    EXPECT_EQ(footprint(), before);

    // The quantity total is 16 bits wide.
    s = member_sale();
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
    exec(
        "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(1,0,1,'0',1)");
    const auto id = save_sale(member_sale());
    EXPECT_EQ(id, 2);
    EXPECT_EQ(count("ICStockBillEntry where FInterID=2"), 2);
    EXPECT_EQ(count("ICStockBillEntry where FInterID=1"), 1);
    EXPECT_EQ(text("select FBillNo from ICStockBill where FInterID=2"), "pos250309-001");
    EXPECT_EQ(count("vipjf_History where FBillInterID=2"), 1);

    // A save that meets another till's write lock fails whole instead of waiting forever.
    PosData().Init(connection_string() + ";Busy Timeout=50", 2025, 3);
    auto holder = open();
    holder->BeginTrans();
    holder->Execute("update t_User set FDays=FDays where FUserID=1");
    const std::string before = footprint();
    try {
        save_sale(member_sale());
        ADD_FAILURE() << "a held write lock must fail the save";
    } catch (const ado::ComError& e) {
        EXPECT_EQ(e.number(), kComponent);
    }
    holder->RollbackTrans();
    EXPECT_EQ(footprint(), before);
    EXPECT_EQ(save_sale(member_sale()), 3);
}

}  // namespace
}  // namespace billdata::testing
