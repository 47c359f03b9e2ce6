#include "billdata/orderbill/orderbill.h"

#include "common/fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

using ado::DateTime;
using ado::err::kComponent;
using Rows = std::vector<std::vector<ado::Variant>>;

class OrderBillTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // Lines: FItemID, FRowKey, FQty, FZkRate, FPrice, FAmount, FRetailPrice, FRetailAmount, FMemo.
    static std::shared_ptr<ado::Recordset> lines(const Rows& rows) {
        return caller_rows({"FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                            "FRetailPrice", "FRetailAmount", "FMemo"},
                           rows);
    }
    // Breakdown: FDel, FItemID, FRowKey, FSizeiD, FColor, FColorEntryID, FQty.
    static std::shared_ptr<ado::Recordset> detail(const Rows& rows) {
        return caller_rows(
            {"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"}, rows);
    }
    // Saves an order of two lines (a T-shirt in sizes, a belt without) for supplier 101.
    std::string save_two_lines(std::int32_t& id, std::string& no, double amount) {
        auto rs = lines(
            {{1, "r1", 3, 1, 40, 120, 99, 297, "tee"}, {5, "r2", 2, 0.9, 45, 90, 129, 258, ""}});
        auto d = detail({{0, 1, "r1", 1, "黑色", 1, 1},
                         {0, 1, "r1", 2, "黑色", 1, 2},
                         {1, 1, "r1", 3, "白色", 2, 5},  // deleted in the editor: not written
                         {0, 5, "r2", 0, "", 0, 2}});
        return order.SaveData(11, DateTime(2025, 3, 9), no, 101, "first", 1, id, rs, amount, 2, d);
    }

    OrderBill order;
};

TEST_F(OrderBillTest, NewOrderWritesLinesHeaderAndAdvance) {
    std::int32_t id = 0;
    std::string no;
    EXPECT_EQ(save_two_lines(id, no, 0), "True");
    EXPECT_EQ(id, 1000000001);
    EXPECT_EQ(no, "CD250309-001");
    const std::string where = " where FInterID=" + std::to_string(id);
    // Amount 0: no payment bill.
    EXPECT_EQ(rows("select FSumQty,FSumAmount,FSumRetailAmount,FTranType,FDeleted,(select count(*) "
                   "from ICOrderEntry" +
                   where + " and FEntryID in (0,1)),(select count(*) from ICOrderEntry_1" + where +
                   "),(select count(*) from WLBill) from ICOrder" + where),
              std::vector<std::string>{"5|210|555|11|0|2|3|0"});

    // An advance of 150 becomes a kind-13 payment bill pointing at the order.
    std::int32_t id2 = 0;
    save_two_lines(id2, no, 150);
    EXPECT_EQ(no, "CD250309-002");
    EXPECT_EQ(number("select FEarnest from ICOrder where FInterID=" + std::to_string(id2)), 150);
    EXPECT_EQ(rows("select FOrderBillID,FTranType,FSumAmount,FAcctID,FOrgaID,FEmpID,FBillNo from "
                   "WLBill"),
              std::vector<std::string>{std::to_string(id2) + "|13|150|2|101|0|Fkd250309-001"});

    // The size-less copy reads the stock-bill lines under the order's id, as it always has.
    exec(
        "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty) "
        "values(1000000003,0,6,'s1',4)");
    std::int32_t id3 = 0;
    save_two_lines(id3, no, 0);
    EXPECT_EQ(number("select FQty from ICOrderEntry_1 where FInterID=1000000003 and FItemID=6 and "
                     "FSizeID=0 and FColor='' and FColorEntryID=0"),
              4);
}

TEST_F(OrderBillTest, ModifyingReplacesTheOrderUnlessAudited) {
    std::int32_t id = 0;
    std::string no;
    save_two_lines(id, no, 150);
    const std::string where = " where FInterID=" + std::to_string(id);

    // Audited: refused, nothing changes, the id is given back as it was.
    exec("update ICOrder set FCheckerID=4" + where);
    std::int32_t old = id;
    auto rs = lines({{2, "x", 1, 1, 85, 85, 199, 199, ""}});
    auto d = detail({{0, 2, "x", 2, "白色", 2, 1}});
    expect_com_error(
        [&] { order.SaveData(11, DateTime(2025, 3, 9), no, 102, "again", 1, old, rs, 0, 1, d); },
        kComponent, "删除单据失败，单据“CD250309-001”已经审核！");
    EXPECT_EQ(old, id);
    EXPECT_EQ(number("select count(*) from ICOrderEntry" + where), 2);
    EXPECT_EQ(number("select count(*) from WLBill where FOrderBillID=" + std::to_string(id)), 1);

    // Not audited: same id, the caller's number, payment bills gone, lines rebuilt.
    exec("update ICOrder set FCheckerID=0" + where);
    rs->MoveFirst();
    no = "CD-KEPT";
    EXPECT_EQ(order.SaveData(11, DateTime(2025, 3, 9), no, 102, "again", 1, old, rs, 0, 1, d),
              "True");
    EXPECT_EQ(old, id);
    EXPECT_EQ(rows("select FBillNo,FSumQty,(select count(*) from WLBill) from ICOrder" + where),
              std::vector<std::string>{"CD-KEPT|1|0"});
    EXPECT_EQ(rows("select FItemID from ICOrderEntry" + where +
                   " union all select FItemID from "
                   "ICOrderEntry_1" +
                   where),
              (std::vector<std::string>{"2", "2"}));

    std::int32_t gone = 42;
    rs->MoveFirst();
    expect_com_error(
        [&] { order.SaveData(11, DateTime(2025, 3, 9), no, 102, "", 1, gone, rs, 0, 1, d); },
        kComponent, "删除单据失败，单据已经不存在！");

    // A new order that fails part way gives the caller no id (the rows and counters left are
    // the fault sweep's to check).
    std::int32_t fresh = 0;
    refuse("INSERT", "ICOrderEntry", "new.FMemo='refused'", "disk full");
    auto bad = lines({{1, "q", 1, 1, 40, 40, 99, 99, "refused"}});
    expect_com_error(
        [&] { order.SaveData(11, DateTime(2025, 3, 9), no, 101, "", 1, fresh, bad, 0, 1, d); },
        kComponent, "disk full");
    EXPECT_EQ(fresh, 0);
}

TEST_F(OrderBillTest, VoidDeleteRestoreAndLists) {
    std::int32_t a = 0, b = 0;
    std::string no;
    save_two_lines(a, no, 150);
    save_two_lines(b, no, 0);

    order.DeleteBill(11, a, nullptr, true);
    EXPECT_EQ(number("select FDeleted from ICOrder where FInterID=" + std::to_string(a)), 1);
    EXPECT_EQ(number("select FDeleted from WLBill"), 1);

    // One row per size cell, the void order's marked.
    EXPECT_EQ(column(order.GetBillList(11, ""), "FDeleted"),
              (std::vector<std::string>{"", "", "", "※", "※", "※"}));
    auto rs = order.GetBillList_Simple(11, " and t1.FDeleted=0");
    EXPECT_EQ(fields(rs, {"FInterID", "FSupplier"}), std::to_string(b) + "|美邦服饰 Metro Apparel");
    EXPECT_EQ(column(rs, "FInterID").size(), 1u);
    EXPECT_EQ(
        fields(order.GetBill(11, "t1.FInterID=" + std::to_string(b)), {"FEntryID", "FOrgaName"}),
        "0|美邦服饰 Metro Apparel");
    EXPECT_EQ(order.GetBillInterID("t1.FOrgaID=101"), (std::vector<std::int32_t>{a, b}));
    EXPECT_TRUE(order.GetBillInterID("t1.FOrgaID=102").empty());
    // The statements end in " where " and their order or group clause: a filter is required.
    EXPECT_THROW(order.GetBill(11, ""), ado::ComError);
    EXPECT_THROW(order.GetBillInterID(""), ado::ComError);

    order.UnblankOut(a);
    order.UnblankOut(12345);  // no such order: nothing happens
    EXPECT_EQ(number("select sum(FDeleted) from ICOrder"), 0);
    EXPECT_EQ(number("select FDeleted from WLBill"), 0);

    // Deleting removes the three order tables' rows and leaves the payment bill.
    order.DeleteBill(11, a);
    const std::string of_a = " where FInterID=" + std::to_string(a);
    EXPECT_EQ(rows("select (select count(*) from ICOrderEntry" + of_a +
                   "),(select count(*) from ICOrderEntry_1" + of_a +
                   "),(select count(*) from WLBill where FOrderBillID=" + std::to_string(a) + ")"),
              std::vector<std::string>{"0|0|1"});
    expect_com_error([&] { order.DeleteBill(11, a); }, kComponent,
                     "删除单据失败，单据已经不存在！");
}

}  // namespace
}  // namespace billdata::testing
