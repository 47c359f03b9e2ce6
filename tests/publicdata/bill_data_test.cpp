// PublicData over any bill kind: the list query with the user's restriction, and restore, void,
// delete and audit handed to the class that owns the kind, behind the calendar-month guard.

#include "billdata/orderbill/orderbill.h"
#include "billdata/otherbill/otherbill.h"
#include "billdata/publicdata/publicdata.h"
#include "purrkd/stock_fixture.h"

namespace billdata::testing {
namespace {

using ado::DateTime;
using ado::err::kComponent;

const std::string kNoCurrentRecord = ado::err::description(ado::err::kNoCurrentRecord);

class PublicDataTest : public StockBillTest {
  protected:
    static bool has_field(const std::shared_ptr<ado::Recordset>& rs, const std::string& name) {
        for (std::size_t i = 0; i < rs->GetFields().Count(); ++i)
            if (rs->Fields(i).Name() == name) return true;
        return false;
    }
    void order(int id, const std::string& date, int deleted = 0, int checker = 0) const {
        exec(
            "insert into ICOrder(FInterID,FTranType,FDate,FBillNo,FOrgaID,FDeleted,FCheckerID) "
            "values(" +
            std::to_string(id) + ",11,'" + date + "','CD" + std::to_string(id) + "',101," +
            std::to_string(deleted) + "," + std::to_string(checker) + ")");
    }
    // A stock-out bill of kind 125 from `stock`, dated today, saved by its own class.
    void stock_out_today(int stock) const {
        std::string no;
        std::int32_t id = 0;
        auto lines = caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                                  "FRetailAmount", "FZkRate", "FMemo"},
                                 {{6, "a", 2.0, 60.0, 120.0, 159.0, 318.0, 1.0, ""}});
        auto cells = size_cells({});
        ASSERT_TRUE(OtherBill().SaveData(125, DateTime::today(), no, stock, "出库", stock, "", 1,
                                         id, lines, cells));
    }
    int deleted_flag(const std::string& table, int id) const {
        return count("select FDeleted from " + table + " where FInterID=" + std::to_string(id));
    }

    PublicData pd_;
};

TEST_F(PublicDataTest, GetBillDataStoresTheUsersRestrictionForEveryLaterList) {
    stock_out_today(1);
    stock_out_today(3);
    auto& s = common::session();

    // The cashier of stock 3 sees only that stock's bills, for a week.
    auto rs = pd_.GetBillData(125, "", 3, false);
    EXPECT_EQ(s.ListDays, 7);
    EXPECT_EQ(s.ListStockID, 3);
    EXPECT_EQ(column(rs, "FOutStockName").size(), 1u);

    // An unknown user runs under the restriction that stands, here and in any later list.
    rs = pd_.GetBillData(125, "", 999, false);
    EXPECT_EQ(s.ListDays, 7);
    EXPECT_EQ(s.ListStockID, 3);
    EXPECT_EQ(column(rs, "FOutStockName").size(), 1u);
    EXPECT_EQ(column(OtherBill().GetBillList_Simple(125, ""), "FInterID").size(), 1u);

    // Null days and stock mean no limit; a user with both set replaces them.
    rs = pd_.GetBillData(125, "", 4, false);
    EXPECT_EQ(s.ListDays, 0);
    EXPECT_EQ(s.ListStockID, 0);
    EXPECT_EQ(column(rs, "FOutStockName").size(), 2u);
    pd_.GetBillData(125, " and 1=0", 2, false);
    EXPECT_EQ(s.ListDays, 30);
    EXPECT_EQ(s.ListStockID, 2);
}

TEST_F(PublicDataTest, GetBillDataChoosesTheListByShowDetailAndKind) {
    // An order of two breakdown rows: the detailed list has a row per size, the short one per bill.
    std::string no;
    std::int32_t id = 0;
    auto lines = caller_rows({"FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                              "FRetailPrice", "FRetailAmount", "FMemo"},
                             {{1, "r1", 3.0, 1.0, 40.0, 120.0, 99.0, 297.0, ""}});
    auto cells = size_cells({{0, 1, "r1", 1, "黑色", 1, 1}, {0, 1, "r1", 2, "黑色", 1, 2}});
    OrderBill().SaveData(11, DateTime(2025, 3, 9), no, 101, "", 1, id, lines, 0, 0, cells);

    auto simple = pd_.GetBillData(11, "", 1, false);
    EXPECT_TRUE(has_field(simple, "FSysTime"));
    EXPECT_FALSE(has_field(simple, "FHisPrice"));
    EXPECT_EQ(column(simple, "FBillNo"), std::vector<std::string>{no});
    auto detailed = pd_.GetBillData(11, "", 1, true);
    EXPECT_TRUE(has_field(detailed, "FHisPrice"));
    EXPECT_EQ(column(detailed, "FBillNo"), (std::vector<std::string>{no, no}));
    // The filter goes through untouched.
    EXPECT_TRUE(column(pd_.GetBillData(11, " and t1.FBillNo='x'", 1, true), "FBillNo").empty());

    // Credit bills have only the detailed list, whatever ShowDetail says.
    header(40, 17, "2025-03-05", 1, 1);
    exec(
        "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) values(40,1,6,'r',1)");
    exec("insert into ICStockBillEntry_1(FInterID,FItemID,FRowKey,FQty) values(40,6,'r',1)");
    auto credit = pd_.GetBillData(17, "", 1, false);
    EXPECT_TRUE(has_field(credit, "FVipCard"));
    EXPECT_EQ(column(credit, "FInterID"), std::vector<std::string>{"40"});
}

TEST_F(PublicDataTest, ReceiptKindsGetTheirClassInitWithTheSessionYearAndPeriod) {
    exec(
        "insert into WLBill(FInterID,FTranType,FDate,FBillNo,FOrgaID,FSumAmount,FDeleted) "
        "values(8,13,'2025-03-04','Fkd250304-001',101,50,0)");
    // Only PublicData's Init ran on this thread: year and period are still 0 and go as such.
    auto& s = common::session();
    s = common::SessionContext{};
    pd_.Init(connection_string());
    auto rs = pd_.GetBillData(13, "", 1, false);
    EXPECT_EQ(column(rs, "FBillNo"), std::vector<std::string>{"Fkd250304-001"});
    EXPECT_EQ(s.CurYear, 0);
    EXPECT_EQ(s.CurPeriod, 0);
    EXPECT_EQ(s.PromptString, connection_string());

    // After another class's Init, its year and period are what the receipt class is given.
    OrderBill().Init(connection_string(), 2024, 7);
    EXPECT_TRUE(column(pd_.GetBillData(23, "", 1, true), "FBillNo").empty());
    EXPECT_EQ(s.CurYear, 2024);
    EXPECT_EQ(s.CurPeriod, 7);
}

TEST_F(PublicDataTest, PeriodGuardComparesCalendarMonths) {
    order(1, "2025-02-28 23:59:00", 1);  // the month before
    order(2, "2025-03-01", 1);           // the current month
    order(3, "2025-04-02", 1);           // a later month

    expect_com_error([&] { pd_.UnblankOut(1, 11, 2025, 3); }, kComponent,
                     "对不起，不能恢复已前月份已作废的单据！");
    expect_com_error([&] { pd_.DelBill(1, 11, 2025, 3, true); }, kComponent,
                     "对不起，不能作废以前月份的单据！");
    expect_com_error([&] { pd_.DelBill(1, 11, 2025, 3); }, kComponent,
                     "对不起，不能删除以前月份的单据！");
    EXPECT_EQ(deleted_flag("ICOrder", 1), 1);
    // A refusal comes before the class's Init: the session keeps its period.
    EXPECT_EQ(common::session().CurPeriod, 3);

    pd_.UnblankOut(2, 11, 2025, 3);
    pd_.UnblankOut(3, 11, 2025, 3);
    EXPECT_EQ(deleted_flag("ICOrder", 2) + deleted_flag("ICOrder", 3), 0);
    // DoBlankOut left out deletes; the class was given the caller's year and period.
    pd_.DelBill(3, 11, 2025, 4);
    EXPECT_EQ(count("select count(*) from ICOrder where FInterID=3"), 0);
    EXPECT_EQ(common::session().CurPeriod, 4);

    // Across a year end, and the calendar month of a stock bill rather than its period.
    order(4, "2024-12-31", 1);
    expect_com_error([&] { pd_.UnblankOut(4, 11, 2025, 1); }, kComponent,
                     "对不起，不能恢复已前月份已作废的单据！");
    pd_.UnblankOut(4, 11, 2024, 12);
    EXPECT_EQ(deleted_flag("ICOrder", 4), 0);
    header(20, 17, "2025-02-27", 1, 1);
    exec("update ICStockBill set FPeriod=3 where FInterID=20");
    expect_com_error([&] { pd_.DelBill(20, 17, 2025, 3); }, kComponent,
                     "对不起，不能删除以前月份的单据！");
    EXPECT_EQ(count("select count(*) from ICStockBill where FInterID=20"), 1);

    // A year past what the guard's arithmetic holds is an overflow, not a wrapped comparison.
    expect_com_error([&] { pd_.UnblankOut(2, 11, 2731, 1); }, ado::err::kOverflow, "溢出");
}

TEST_F(PublicDataTest, RemovalReachesTheOwningClassWhoseErrorsPassUnchanged) {
    // Kind 17 is read from the stock bills and handed to the credit class, which checks the
    // accounting period itself: this bill's date is in the current month, its period is not.
    header(21, 17, "2025-03-02", 1, 1);
    exec("update ICStockBill set FPeriod=2 where FInterID=21");
    expect_com_error([&] { pd_.DelBill(21, 17, 2025, 3); }, kComponent,
                     "对不起,不能删除以前月份的单据!");
    header(22, 17, "2025-03-02", 1, 1);
    pd_.DelBill(22, 17, 2025, 3, true);
    EXPECT_EQ(deleted_flag("ICStockBill", 22), 1);

    // An audited order: the order class's own refusal.
    order(5, "2025-03-09", 0, 7);
    expect_com_error([&] { pd_.DelBill(5, 11, 2025, 3); }, kComponent,
                     "删除单据失败，单据“CD5”已经审核！");

    // An unknown id skips the guard and still reaches the class, which answers for it.
    expect_com_error([&] { pd_.DelBill(777, 11, 2025, 3); }, kComponent,
                     "删除单据失败，单据已经不存在！");
    expect_com_error([&] { pd_.DelBill(777, 99, 2025, 3); }, kComponent, kNoCurrentRecord);

    // Restoring an unknown id fails reading its date, before the order class would have
    // restored the receipts that still point at it.
    exec(
        "insert into WLBill(FInterID,FTranType,FDate,FBillNo,FOrgaID,FOrderBillID,FDeleted) "
        "values(9,13,'2025-03-04','Fkd1',101,777,1)");
    expect_com_error([&] { pd_.UnblankOut(777, 11, 2025, 3); }, ado::err::kNoCurrentRecord,
                     kNoCurrentRecord);
    EXPECT_EQ(deleted_flag("WLBill", 9), 1);

    // A kind outside the table passes the guard on the stock bills, then needs an object.
    header(30, 50, "2025-03-03", 1, 1, 1);
    expect_com_error([&] { pd_.UnblankOut(30, 50, 2025, 3); }, ado::err::kObjectRequired,
                     "要求对象");
    expect_com_error([&] { pd_.DelBill(30, 50, 2025, 3); }, ado::err::kObjectRequired, "要求对象");
    expect_com_error([&] { pd_.DelBill(30, 50, 2025, 4); }, kComponent,
                     "对不起，不能删除以前月份的单据！");
    EXPECT_EQ(deleted_flag("ICStockBill", 30), 1);
    EXPECT_EQ(common::session().CurPeriod, 3);
}

// Every kind's mark goes to its own header table, whichever table that is.
TEST_F(PublicDataTest, CheckAndUnCheckBillWriteTheMarkOfTheKindsTable) {
    order(1, "2024-01-05");  // long closed: auditing has no period guard
    order(2, "2025-03-09");
    header(10, 17, "2025-03-02", 1, 1);
    exec("insert into WLBill(FInterID,FTranType,FDate,FCheckerID) values(12,23,'2025-03-01',0)");
    exec("insert into ICSpTjd(FInterID,FCheckerID) values(12,0)");
    pd_.CheckBill(11, "1,2", 7);
    pd_.CheckBill(17, "10", 8);
    pd_.CheckBill(50, "12", 5);
    pd_.CheckBill(23, "12", 6);
    const std::string marks =
        "select (select FCheckerID from ICOrder where FInterID=1),(select FCheckerID from ICOrder "
        "where FInterID=2),(select FCheckerID from ICStockBill where FInterID=10),(select "
        "FCheckerID from ICSpTjd),(select FCheckerID from WLBill)";
    EXPECT_EQ(rows(marks), std::vector<std::string>{"7|7|8|5|6"});

    // Un-auditing writes 0 whatever user asks, through the other spelling of ICSpTjd too.
    pd_.UnCheckBill(11, "2", 7);
    pd_.UnCheckBill(50, "12", 9);
    EXPECT_EQ(rows(marks), std::vector<std::string>{"7|0|8|0|6"});
}

}  // namespace
}  // namespace billdata::testing
