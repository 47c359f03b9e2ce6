#include "billdata/viporder/viporder.h"

#include "common/fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

using ado::DateTime;
using ado::err::kComponent;
using Rows = std::vector<std::vector<ado::Variant>>;

class VipOrderTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // FItemID, FSalerID, FQty, FPrice, FAmount, FZkRate, FRetailPrice, FRetailAmount, FUnitCost,
    // FPreSend, FColor, FSizeID.
    static std::shared_ptr<ado::Recordset> lines(const Rows& r) {
        return caller_rows(
            {"FItemID", "FSalerID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice",
             "FRetailAmount", "FUnitCost", "FPreSend", "FColor", "FSizeID"},
            r);
    }
    static std::shared_ptr<ado::Recordset> three_rows() {
        return lines({{1, 1, 2, 89, 178, 0.9, 99, 198, 40, 0, "黑色", 2},
                      {3, 2, 1, 229, 229, 0.9, 259, 259, 110, 1, "蓝色", 6},
                      {5, 1, 1, 119, 119, 1, 129, 129, 45, 0, "", 0}});
    }
    void save(std::int16_t kind, std::string& no, double earnest, std::int32_t modify,
              std::shared_ptr<ado::Recordset> data) {
        std::int32_t acct = 2;
        vip.SaveData(kind, DateTime(2025, 3, 9), no, earnest, acct, "remark", 1001, "刘洋",
                     "13800000001", 3, modify, data);
        EXPECT_EQ(data, nullptr);  // the caller's reference is released
    }
    std::vector<std::string> table(const std::string& sql) const {
        return query_rows(connection_string(), sql);
    }

    vipOrder vip;
};

TEST_F(VipOrderTest, NewOrderWithItsEarnestReceipt) {
    std::string no;
    save(21, no, 100, 0, three_rows());
    EXPECT_EQ(no, "XD250309-001");
    const std::string where = " where FInterID=1";
    EXPECT_EQ(number("select count(*) from icorderEntry" + where + " and FRowKey=FEntryID"), 3);
    EXPECT_EQ(number("select count(*) from icorderEntry_1" + where + " and FColorEntryID=0"), 3);
    EXPECT_EQ(scalar("select FColor from icorderEntry_1" + where + " and FRowKey='1'").to_string(),
              "蓝色");
    EXPECT_EQ(number("select FPreSend from icorderEntry" + where + " and FEntryID=1"), 1);
    EXPECT_EQ(table("select FTranType,FSumQty,FSumAmount,FSumRetailAmount,FOwner,FPhone from "
                    "icorder" +
                    where),
              std::vector<std::string>{"21|4|526|586|刘洋|13800000001"});
    EXPECT_EQ(
        table("select FOrderBillID,FTranType,FSettleAmount,FSumAmount,FAcctID,FOrgaID,"
              "FBillerID,FMemo,FBillNo from WLBill"),
        std::vector<std::string>{"1|23|100|100|2|1001|3|会员订单：XD250309-001|SK250309-001"});

    // Earnest 0 still writes its receipt, with amounts 0.
    save(21, no, 0, 0, three_rows());
    EXPECT_EQ(number("select count(*) from WLBill where FOrderBillID=2 and FSumAmount=0 and "
                     "FSettleAmount=0"),
              1);

    // Another kind changes only the number's prefix; the stored kind stays 21.
    save(11, no, 10, 0, three_rows());
    EXPECT_EQ(no, "CD250309-001");
    EXPECT_EQ(number("select FTranType from icorder where FInterID=3"), 21);

    // The quantity sum is 16-bit: past 32767 the save fails and nothing stays.
    expect_com_error(
        [&] {
            save(21, no, 0, 0,
                 lines({{5, 1, 30000, 1, 1, 1, 1, 1, 1, 0, "", 0},
                        {5, 1, 3000, 1, 1, 1, 1, 1, 1, 0, "", 0}}));
        },
        kComponent, "溢出");
    EXPECT_EQ(number("select count(*) from icorder"), 3);
    EXPECT_EQ(number("select count(*) from icorderEntry"), 9);
}

TEST_F(VipOrderTest, ModifyingAndClashingIds) {
    // Order 57 with two lines and an earlier receipt 9.
    exec(
        "insert into ICOrder(FInterID,FTranType,FDate,FBillNo,FOrgaID) "
        "values(57,21,'2025-03-01','XD250301-001',1001)");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FRowKey,FItemID,FQty) values(57,0,'0',1,1)");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FRowKey,FItemID,FQty) values(57,1,'1',2,1)");
    exec("insert into WLBill(FInterID,FTranType,FOrderBillID) values(9,23,57)");
    exec("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(4,9,'')");

    std::string no = "XD250301-001";
    save(21, no, 50, 57, lines({{6, 1, 2, 139, 278, 1, 159, 318, 60, 0, "灰色", 0}}));
    EXPECT_EQ(no, "XD250301-001");
    EXPECT_EQ(table("select FItemID,(select FEarnest from icorder where FInterID=57) from "
                    "icorderEntry where FInterID=57"),
              std::vector<std::string>{"6|50"});
    EXPECT_EQ(table("select FInterID,FOrderBillID,FMemo from WLBill"),
              std::vector<std::string>{"10|57|会员订单：XD250301-001"});

    // An order another program wrote under the id the stock series hands out next: the clash
    // on the first line draws a fresh id and leaves that order alone.
    exec("insert into ICOrder(FInterID,FTranType,FBillNo) values(1,11,'CD-OTHER')");
    exec("insert into ICOrderEntry(FInterID,FEntryID,FRowKey,FItemID,FQty) values(1,0,'a',7,5)");
    no.clear();
    save(21, no, 20, 0, three_rows());
    EXPECT_EQ(table("select FInterID,count(*) from icorderEntry where FInterID<3 group by FInterID "
                    "order by FInterID"),
              (std::vector<std::string>{"1|1", "2|3"}));
    EXPECT_EQ(scalar("select FBillNo from icorder where FInterID=1").to_string(), "CD-OTHER");
    EXPECT_EQ(number("select FOrderBillID from WLBill where FSumAmount=20"), 2);
}

TEST_F(VipOrderTest, VoidDeleteRestoreAndList) {
    std::string no;
    save(21, no, 100, 0, three_rows());  // 1
    save(21, no, 30, 0, three_rows());   // 2

    vip.DeleteBill(21, 1, nullptr, true);
    EXPECT_EQ(number("select FDeleted from icorder where FInterID=1"), 1);
    EXPECT_EQ(number("select FDeleted from WLBill where FOrderBillID=1"), 1);
    auto rs = vip.GetBillList(21, "");
    EXPECT_EQ(fields(rs, {"FVipCard", "FInterID"}), "V0001 刘洋 Liu Yang|2");
    EXPECT_EQ(column(rs, "FDeleted"), (std::vector<std::string>{"", "", "", "※", "※", "※"}));
    EXPECT_EQ(column(vip.GetBillList(21, " and t1.FDeleted=0 and t12.FColor='黑色'"), "FSize"),
              std::vector<std::string>{"M"});

    vip.UnblankOut(1);
    EXPECT_EQ(
        number("select FDeleted+(select FDeleted from WLBill where FOrderBillID=1) from icorder "
               "where FInterID=1"),
        0);

    exec("update icorder set FCheckerID=5 where FInterID=2");
    expect_com_error([&] { vip.DeleteBill(21, 2); }, kComponent,
                     "删除单据失败，单据“XD250309-002”已经审核！");
    // A missing order fails on reading its number from the empty result.
    expect_com_error([&] { vip.DeleteBill(21, 77); }, kComponent,
                     ado::err::description(ado::err::kNoCurrentRecord));

    vip.DeleteBill(21, 1);
    EXPECT_EQ(table("select (select count(*) from icorder where FInterID=1),(select count(*) from "
                    "icorderEntry where FInterID=1),(select max(FOrderBillID) from WLBill),(select "
                    "count(*) from WLBill)"),
              std::vector<std::string>{"0|0|2|1"});
}

}  // namespace
}  // namespace billdata::testing
