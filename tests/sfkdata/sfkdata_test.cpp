#include "billdata/sfkdata/sfkdata.h"

#include "common/fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

using ado::DateTime;
using ado::err::kComponent;
using Texts = std::vector<std::string>;

class SFKDataTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // A new bill of `kind` for partner `orga`; returns its number.
    std::string save(std::int16_t kind, DateTime date, double amount, std::int32_t orga,
                     double oddment = 0) {
        std::string no;
        EXPECT_EQ(sfk.SaveData(kind, date, no, 1, orga, 2, amount, oddment, "memo", 1, 0, 0, 0), 0);
        return no;
    }

    SFKData sfk;
};

TEST_F(SFKDataTest, SavesNewBillsAndCorrections) {
    EXPECT_EQ(save(13, DateTime(2025, 3, 9), 100, 101, 5), "Fkd250309-001");
    EXPECT_EQ(save(23, DateTime(2025, 3, 9), 80, 1001), "SK250309-001");
    EXPECT_EQ(
        rows("select FTranType,FSettleAmount,FSumAmount,FOddMent from WLBill where FInterID=1"),
        Texts{"13|105|100|5"});
    // The time of saving is this machine's clock.
    EXPECT_EQ(scalar("select FSysTime from WLBill where FInterID=1").to_date().date_only(),
              DateTime::today());
    EXPECT_EQ(number("select FMaxNum from ICMaxNum where FTranType=4"), 2);

    // A correction replaces the row under the same id and the caller's number, from the
    // arguments alone: audit and void marks are not carried over; odd amount 0 settles the sum.
    exec("update WLBill set FCheckerID=9,FDeleted=1 where FInterID=1");
    std::string no = "MANUAL-1";
    EXPECT_EQ(sfk.SaveData(13, DateTime(2025, 3, 10), no, 2, 102, 0, 60, 0, "fixed", 1, 1, 7, 8),
              0);
    EXPECT_EQ(no, "MANUAL-1");
    EXPECT_EQ(
        rows("select FBillNo,FSettleAmount,FCheckerID,FDeleted,FOrderBillID,FStockBillID from "
             "WLBill where FInterID=1"),
        Texts{"MANUAL-1|60|0|0|7|8"});
    EXPECT_EQ(number("select FMaxNum from ICMaxNum where FTranType=4"), 2);

    // A failing insert leaves the corrected bill as it was.
    refuse("INSERT", "WLBill", "new.FMemo='refused'", "disk full");
    expect_com_error(
        [&] {
            sfk.SaveData(13, DateTime(2025, 3, 10), no, 2, 102, 0, 1, 0, "refused", 1, 1, 0, 0);
        },
        kComponent, "disk full");
    EXPECT_EQ(number("select FSumAmount from WLBill where FInterID=1"), 60);
}

TEST_F(SFKDataTest, DeleteRefusesEarlierMonthsAndAuditedBills) {
    save(13, DateTime(2025, 2, 28), 10, 101);  // 1: an earlier month
    save(13, DateTime(2025, 3, 1), 20, 101);   // 2: audited below
    save(13, DateTime(2025, 4, 2), 30, 101);   // 3: a later month
    save(23, DateTime(2025, 3, 5), 40, 1001);  // 4: voided, then deleted
    exec("update WLBill set FCheckerID=3 where FInterID=2");
    exec("insert into WLBillEntry(FInterID,FEntryID,FBillInterID,FAmount) values(4,0,77,40)");

    expect_com_error([&] { sfk.DeleteBill(13, 1); }, kComponent, "对不起,不能删除以前月份的单据!");
    expect_com_error([&] { sfk.DeleteBill(13, 2, nullptr, true); }, kComponent,
                     "对不起，该单据已经审核，不能删除或修改！");
    expect_com_error([&] { sfk.DeleteBill(13, 2); }, kComponent,
                     "对不起，该单据已经审核，不能删除或修改！");
    EXPECT_EQ(number("select count(*) from WLBill where FInterID in (1,2) and FDeleted=0"), 2);

    sfk.DeleteBill(13, 3);
    sfk.DeleteBill(23, 4, nullptr, true);
    EXPECT_EQ(number("select FDeleted from WLBill where FInterID=4"), 1);
    sfk.UnblankOut(4);
    EXPECT_EQ(number("select FDeleted from WLBill where FInterID=4"), 0);
    sfk.DeleteBill(23, 4, nullptr, true);
    sfk.DeleteBill(23, 4);    // a voided bill can be deleted, with its lines
    sfk.DeleteBill(23, 999);  // nothing to delete: no error
    EXPECT_EQ(number("select count(*) from WLBill where FInterID in (3,4)"), 0);
    EXPECT_EQ(number("select count(*) from WLBillEntry"), 0);

    // On the caller's connection the caller's transaction decides.
    save(13, DateTime(2025, 3, 20), 50, 101);  // 5
    auto cn = open();
    cn->BeginTrans();
    sfk.DeleteBill(13, 5, cn);
    EXPECT_TRUE(cn->InTransaction());
    cn->RollbackTrans();
    cn->Close();
    EXPECT_EQ(number("select count(*) from WLBill where FInterID=5"), 1);

    // Restoring has no handler: a connection failure keeps its own number.
    common::init_session("Provider=SQLite;Data Source=" + dir_.file("no/such/dir.db"), 2025, 3);
    const std::int32_t restoring = error_of([&] { sfk.UnblankOut(4); }).number();
    EXPECT_NE(restoring, 0);
    EXPECT_NE(restoring, kComponent);
    EXPECT_EQ(error_of([&] { sfk.DeleteBill(13, 4); }).number(), kComponent);
}

TEST_F(SFKDataTest, AuditMarksAreAllOrNone) {
    save(13, DateTime(2025, 3, 9), 10, 101);
    save(13, DateTime(2025, 3, 9), 20, 102);
    save(13, DateTime(2025, 3, 9), 30, 103);
    std::vector<std::int32_t> ids{1, 999, 2};
    sfk.CheckBill(ids, 7);  // an id that does not exist touches nothing
    EXPECT_EQ(number("select sum(FCheckerID) from WLBill"), 14);
    sfk.UnCheckBill(ids, 7);
    EXPECT_EQ(number("select sum(FCheckerID) from WLBill"), 0);

    std::vector<std::int32_t> none;
    expect_com_error([&] { sfk.CheckBill(none, 7); }, kComponent, "下标越界");

    // A statement that fails halfway rolls back the marks already written.
    refuse("UPDATE", "WLBill", "new.FInterID=3", "bill 3 is locked");
    std::vector<std::int32_t> all{1, 2, 3};
    expect_com_error([&] { sfk.CheckBill(all, 7); }, kComponent, "bill 3 is locked");
    EXPECT_EQ(number("select sum(FCheckerID) from WLBill"), 0);
}

TEST_F(SFKDataTest, ListsAndIdQueries) {
    save(13, DateTime(2025, 3, 9), 10, 101);    // 1
    save(23, DateTime(2025, 3, 9), 20, 1001);   // 2
    save(23, DateTime(2025, 3, 10), 30, 1002);  // 3
    sfk.DeleteBill(23, 3, nullptr, true);

    auto rs = sfk.GetBillList(13, "");
    EXPECT_EQ(fields(rs, {"FOrgaName", "FAcctName"}), "美邦服饰 Metro Apparel|现金 Cash");
    EXPECT_EQ(column(rs, "FInterID"), Texts{"1"});

    // Every kind but 13 lists the member receipts, newest first.
    rs = sfk.GetBillList(99, "");
    EXPECT_EQ(fields(rs, {"FVipNO", "FChecked"}), "V0002|");
    EXPECT_EQ(column(rs, "FInterID"), (Texts{"3", "2"}));
    EXPECT_EQ(column(sfk.GetBillList(23, " and t1.FDeleted=0"), "FInterID"), Texts{"2"});

    EXPECT_EQ(sfk.GetBillInterID(13, "1=1"), std::vector<std::int32_t>{1});
    EXPECT_EQ(sfk.GetBillInterID(23, "t1.FSumAmount>25"), std::vector<std::int32_t>{3});
    EXPECT_TRUE(sfk.GetBillInterID(23, "t1.FSumAmount>100").empty());
    // The " and " is always written: an empty filter is refused by the database.
    auto e = error_of([&] { sfk.GetBillInterID(23, ""); });
    EXPECT_EQ(e.number(), kComponent);
    EXPECT_FALSE(e.description().empty());
}

}  // namespace
}  // namespace billdata::testing
