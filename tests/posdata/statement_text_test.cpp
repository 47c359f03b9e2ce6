// The statements a till sale sends, read back from the statement log: the database contract is
// the exact text, odd blanks and spellings included.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <vector>

#include "posdata/pos_fixture.h"

namespace billdata::testing {
namespace {

std::vector<std::string> read_lines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class StatementTexts : public PosTest {
  protected:
    void SetUp() override {
        PosTest::SetUp();
        // Cost style 2, so that no price-adjustment statements join the log; the next sale is
        // interior id 5, the id of the statement corpus.
        exec("insert into t_SystemProfile(FKey,FValue) values('CostStyle','1')");
        exec("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0,4,'')");
        log_ = dir_.file("sql.log");
        setenv("BILLDATA_SQL_LOG", log_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("BILLDATA_SQL_LOG");
        PosTest::TearDown();
    }
    std::string log_;
};

TEST_F(StatementTexts, SaleRemovalAndListsSendTheirExactTexts) {
    Sale s;
    s.lines = {Line(1, 2, 45, 50, 30)};
    s.lines[0].saler = 4;
    s.lines[0].color = "红";
    s.presend = {PreSend(7, 1, 20, 8, "gift")};
    s.SumAmount = 89.5;
    s.OddMent = -0.5;
    s.GetCash = s.GetAmount = 100;
    s.ChangeAmount = 10.5;
    s.VipID = 1002;
    s.SumJf = 89.5;
    s.JfExchange = 20;
    s.GetJfAmount = 2;
    ASSERT_EQ(save_sale(s), 5);
    const std::vector<std::string> expected = {
        "Insert Into ICStockBillEntry(FInterID,FEntryID,FrowKey,FItemID,FQty,FPrice,FAmount,FZkRate,FRetailPrice,FRetailAmount,FOddMentEntry,FZkAmount,FSalerID,FPreSend,FUnitCost,FCost,FRefInterID,FRefEntryID,FRefTranType) Values(5,0,'0',1,2,45,90,0.9,50,100,-0.5,10,4,0,30,60,0,0,0)",
        "Insert Into ICStockBillEntry_1(FInterID,FRowKey,FItemID,FColor,FSizeID,FColorEntryID,FQty) Values(5,'0',1,'红',2,0,2)",
        "Insert Into ICStockBillEntry(FInterID,FRowKey,FItemID,FQty,FPrice,FAmount,FZkRate,FRetailPrice,FRetailAmount,FZkAmount,FSalerID,FPreSend,FUnitCost,FCost,FRefInterID,FRefEntryID,FMemo) Values(5,'1',7,1,0,0,0,20,20,0,0,1,8,8,0,0,'gift')",
        "Insert Into ICStockBillEntry_1(FInterID,FRowKey,FItemID,FColor,FSizeID,FColorEntryID,FQty) Values(5,'1',7,'',0,0,1)",
        "Insert Into ICStockBill(FInterID,FTranType,FDate,FOutStockID,FBillerID,FYear,FPeriod,FSysTime,FVipID,FBillNo,FGetCash,FBzkBillAmount,FSumQty,FSumAmount,FSumRetailAmount,FSumZkAmount,FGetDyq,FGetBlank,FSumCost,FSumProfit,FSumOddMent,FRemark,FClassName,FSettleID,FQkAmount,FOrgaID,FGetAmount,FChange,FSumJf,FSeason,FMonth,FJfExchange,FGetJfAmount,FMachine,FPosGetMoney,FGetQk) values(5,99,'2025-03-09',2,1,2025,3,getdate(),1002,'pos250309-001',100,90,3,89.5,120,10,0,0,68,21.5,-0.5,'remark','早班',0,0,1002,100,10.5,88,'2025年1季度','2025年03月',20,2,'POS1',0,0)",
        "Update Vip set FSumBuyAmount=isnull(FSumBuyAmount,0)+89.5,FSumJf_Un=isnull(FSumJf_Un,0)+68,FSumJf=isnull(FSumJf,0)+68,FEditTime=getdate() where FVipID=1002",
        "Update Vip set FBogus=0 where FVipID=1002 and FSumBuyAmount>=1000",
        "select FUserName from t_User where FUserID=1",
        "insert into vipjf_History(FBillInterID,FVipID,FDate,Fjf,FBiller,FMemo) values(5,1002,'2025-03-09',88,'admin','消费增加积分,消费金额：89.50,单号:pos250309-001')",
        "insert into vipjf_History(FBillInterID,FVipID,FDate,Fjf,FBiller,FMemo) values(5,1002,'2025-03-09',-20,'admin','积分兑换金额：2.00,单号:pos250309-001')",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icstockbillentry t1 inner join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefEntryid where t2.FInterID=5 and t2.FRefTranType=27",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icOrderentry t1 inner join icStockBillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefEntryid where t2.FInterID=5 and t2.FRefTranType=21",
    };
    std::vector<std::string> logged = read_lines(log_);
    auto first = std::find(logged.begin(), logged.end(), expected.front());
    ASSERT_NE(first, logged.end());
    EXPECT_EQ(std::vector<std::string>(first, std::min(first + expected.size(), logged.end())),
              expected);

    // Removal, restore and the reading side: every text is one of the statement corpus (ids 5).
    const std::size_t before = read_lines(log_).size();
    PosData().DeleteBill(99, 5, nullptr, true);
    PosData().UnblankOut(5);
    PosData().DeleteBill(99, 5);
    PosData().GetBillList(99, "")->Close();
    PosData().GetBillList_Simple(99, "")->Close();
    PosData().GetPosBill(5)->Close();
    const auto corpus_lines =
        read_lines(std::string(BILLDATA_SOURCE_DIR) + "/tests/data/statements.sql");
    const std::set<std::string> corpus(corpus_lines.begin(), corpus_lines.end());
    logged = read_lines(log_);
    logged.erase(logged.begin(), logged.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(logged.size(), 6u + 5u + 7u + 3u);
    for (const std::string& line : logged)
        EXPECT_TRUE(corpus.count(line)) << line;
}

}  // namespace
}  // namespace billdata::testing
