#include "billdata/otherbill/otherbill.h"

#include "purrkd/stock_fixture.h"

namespace billdata::testing {
namespace {

// Lines of an other stock bill: item, row key, quantity, price.
std::shared_ptr<ado::Recordset> bill_lines(
    const std::vector<std::tuple<int, std::string, double, double>>& lines) {
    std::vector<std::vector<ado::Variant>> rows;
    for (const auto& [item, key, qty, price] : lines)
        rows.push_back({item, key, qty, price, qty * price, price * 2, qty * price * 2, 1.0, key});
    return caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                        "FRetailAmount", "FZkRate", "FMemo"},
                       rows);
}

class OtherBillTest : public StockBillTest {
  protected:
    std::int32_t save(std::int16_t kind, const ado::DateTime& date,
                      std::shared_ptr<ado::Recordset> lines, int in_stock = 2, int out_stock = 1,
                      std::int32_t old_id = 0, std::shared_ptr<ado::Recordset> cells = nullptr) {
        std::string no = bill_no_;
        EXPECT_TRUE(OtherBill().SaveData(kind, date, no, in_stock, "调拨", out_stock, "r", 4,
                                         old_id, lines, cells));
        bill_no_ = no;
        return old_id;
    }
    std::string bill_no_;
};

TEST_F(OtherBillTest, SavesHeaderSumsSeasonAndStockColumns) {
    // No lines: a header with zero sums.
    std::int32_t id = save(31, ado::DateTime(2025, 3, 9), bill_lines({}));
    EXPECT_EQ(bill_no_, "DB250309-001");
    EXPECT_EQ(rows("select FTranType,FInStockID,FOutStockID,FCause,FRemark,FBillerID,FSumQty,"
                   "FSumAmount,FSumRetailAmount,FSeason,FMonth from ICStockBill where FInterID=" +
                   std::to_string(id)),
              std::vector<std::string>{"31|2|1|调拨|r|4|0|0|0|2025年1季度|2025年03月"});
    EXPECT_EQ(count("select count(*) from ICStockBillEntry"), 0);

    // Kind 125 carries the receiving stock as the issuing one; a November date's texts; the
    // lines' unit cost and cost are their price and amount.
    bill_no_.clear();
    auto cells = size_cells({{0, 1, "a", 2, "黑色", 1, 3}, {2, 1, "a", 3, "黑色", 1, 9}});
    id = save(125, ado::DateTime(2006, 11, 15), bill_lines({{1, "a", 3, 40}, {6, "b", 2, 60}}), 3,
              1, 0, cells);
    EXPECT_EQ(bill_no_, "QC061115-001");
    const std::string where = " where FInterID=" + std::to_string(id);
    EXPECT_EQ(rows("select FInStockID,FOutStockID,FSumQty,FSumAmount,FSumRetailAmount,FSeason,"
                   "FMonth,FYear,FPeriod from ICStockBill" +
                   where),
              std::vector<std::string>{"3|3|5|240|480|2006年4季度|2006年11月|2006|11"});
    EXPECT_EQ(rows("select FEntryID,FItemID,FPrice,FAmount,FUnitCost,FCost from ICStockBillEntry" +
                   where + " order by FEntryID"),
              (std::vector<std::string>{"1|1|40|120|40|120", "2|6|60|120|60|120"}));
    EXPECT_EQ(
        rows("select FItemID,FSizeID,FQty from ICStockBillEntry_1" + where + " order by FItemID"),
        (std::vector<std::string>{"1|2|3", "6|0|2"}));
}

TEST_F(OtherBillTest, ModificationRebuildsAdjustmentsBeforeAndAfterUnderCostStyleOne) {
    header(5, 112, "2025-03-01", 1, 0);
    line(5, 1, 6, 4, 70, 60);
    const std::int32_t id = save(115, ado::DateTime(2025, 3, 9), bill_lines({{6, "a", 2, 60}}));
    header(id + 1, 112, "2025-03-10", 1, 0);
    line(id + 1, 1, 6, 1, 80, 70);
    {
        SqlLog log(log_path());
        const std::string number = bill_no_;
        EXPECT_EQ(save(115, ado::DateTime(2025, 3, 9), bill_lines({{6, "x", 5, 61}}), 1, 0, id),
                  id);
        EXPECT_EQ(bill_no_, number);
        const std::string next = "select top 1 FInterID from ICStockBill where FDeleted=0";
        const int voided =
            log.find("Update ICStockBill set FDeleted=1 where FInterID=" + std::to_string(id));
        const int before = log.find(next);
        const int rewritten = log.find("Delete from icstockbill where FInterID=");
        const int after = log.find(next, rewritten);
        EXPECT_GE(voided, 0);
        EXPECT_GT(before, voided);
        EXPECT_GT(rewritten, before);
        EXPECT_GT(after, log.find("Insert Into ICStockBill("));
        EXPECT_EQ(log.count(next), 2);
    }
    // The rebuild after the bill counts its new quantity: stock 1 holds 20 + 5 + 4 besides the
    // next receipt, and 20 + 5 + 1 besides bill 5, which comes after it.
    ASSERT_EQ(id, 1);
    EXPECT_EQ(rows("select FInterID,FTjStockID,FAmount,FMemo from ICStockBillEntry where "
                   "FEntryID<0 order by FInterID"),
              (std::vector<std::string>{"2|1|290|29", "5|1|260|26"}));
    EXPECT_EQ(rows("select FEntryID,FRowKey,FQty,isnull(FDeleted,0) from ICStockBillEntry t2 "
                   "inner join ICStockBill t1 on t1.FInterID=t2.FInterID where t1.FInterID=" +
                   std::to_string(id)),
              std::vector<std::string>{"1|x|5|0"});

    // Another cost style: neither the void mark nor the rebuild.
    common::session().CostStyle = 0;
    set_cost_style_2();
    SqlLog log(log_path());
    log.clear();
    save(115, ado::DateTime(2025, 3, 9), bill_lines({{6, "y", 1, 61}}), 1, 0, id);
    EXPECT_EQ(log.count("Update ICStockBill set FDeleted=1"), 0);
    EXPECT_EQ(log.count("select top 1 FInterID"), 0);
}

TEST_F(OtherBillTest, RemovalRefusalsAndItsOwnTransaction) {
    const std::int32_t id = save(31, ado::DateTime(2025, 3, 9), bill_lines({{6, "a", 2, 60}}));
    exec("update ICStockBill set FCheckerID=3");
    expect_com_error([&] { OtherBill().DeleteBill(31, id); }, ado::err::kComponent,
                     "删除单据失败，单据“DB250309-001”已经审核！");
    exec("update ICStockBill set FCheckerID=0,FYear=2024,FPeriod=12");
    OtherBill().Init(connection_string(), 2025, 1);
    expect_com_error([&] { OtherBill().DeleteBill(31, id, nullptr, true); }, ado::err::kComponent,
                     "对不起,不能删除以前月份的单据!");
    exec("update ICStockBill set FYear=2025,FPeriod=1");

    // A delete that fails after voiding rolls the void back with it.
    refuse("DELETE", "ICStockBillEntry_1", "", "size rows are kept");
    expect_com_error([&] { OtherBill().DeleteBill(31, id); }, ado::err::kComponent,
                     "size rows are kept");
    EXPECT_EQ(count("select isnull(FDeleted,0) from ICStockBill"), 0);
}

TEST_F(OtherBillTest, VoidRestoreAndDeleteRebuildOnceUnderCostStyleOne) {
    const std::int32_t id = save(125, ado::DateTime(2025, 3, 9), bill_lines({{6, "a", 2, 60}}));
    SqlLog log(log_path());
    OtherBill().DeleteBill(125, id, nullptr, true);
    EXPECT_EQ(count("select FDeleted from ICStockBill"), 1);
    EXPECT_EQ(log.count("select top 1 FInterID"), 1);
    OtherBill().UnblankOut(id);
    EXPECT_EQ(count("select FDeleted from ICStockBill"), 0);
    EXPECT_EQ(log.count("select top 1 FInterID"), 2);

    // A live bill on the caller's connection: one rebuild before its rows go, the caller's
    // transaction left open.
    log.clear();
    auto cn = open();
    cn->BeginTrans();
    OtherBill().DeleteBill(125, id, cn);
    EXPECT_TRUE(cn->InTransaction());
    cn->CommitTrans();
    cn->Close();
    EXPECT_EQ(log.count("select top 1 FInterID"), 1);
    EXPECT_LT(log.find("select top 1 FInterID"), log.find("delete from ICStockBill where"));
    EXPECT_EQ(count("select count(*) from ICStockBill"), 0);
    EXPECT_EQ(count("select count(*) from ICStockBillEntry"), 0);
}

TEST_F(OtherBillTest, ListStockRestrictionByKind) {
    const ado::DateTime date(2025, 3, 9);
    const std::int32_t in115 = save(115, date, bill_lines({{6, "a", 1, 60}}), 3, 1);
    save(115, date, bill_lines({{6, "a", 1, 60}}), 2, 3);
    const std::int32_t out125 = save(125, date, bill_lines({{6, "a", 1, 60}}), 3, 1);
    save(125, date, bill_lines({{6, "a", 1, 60}}), 2, 3);
    const std::int32_t from3 = save(31, date, bill_lines({{6, "a", 1, 60}}), 1, 3);
    save(31, date, bill_lines({{6, "a", 1, 60}}), 3, 1);  // only received into 3: not listed

    auto ids = [](std::shared_ptr<ado::Recordset> rs) { return column(rs, "FInterID"); };
    using Ids = std::vector<std::string>;
    EXPECT_EQ(ids(OtherBill().GetBillList(31, "")).size(), 2u);
    common::session().ListStockID = 3;
    EXPECT_EQ(ids(OtherBill().GetBillList(115, "")), Ids{std::to_string(in115)});
    EXPECT_EQ(ids(OtherBill().GetBillList(125, "")), Ids{std::to_string(out125)});
    EXPECT_EQ(ids(OtherBill().GetBillList(31, "")), Ids{std::to_string(from3)});
    EXPECT_EQ(ids(OtherBill().GetBillList_Simple(125, " and t1.FSumQty=1")),
              Ids{std::to_string(out125)});
    EXPECT_EQ(
        fields(OtherBill().GetBillList_Simple(31, ""), {"FInStockName", "FOutStockName", "FCause"}),
        "总仓 Main warehouse|淮海路店 Huaihai Rd shop|调拨");

    // A filter that is no SQL reaches the caller as the database's message.
    EXPECT_EQ(error_of([] { OtherBill().GetBillList(31, " and nosuchcolumn=1"); }).number(),
              ado::err::kComponent);
}

}  // namespace
}  // namespace billdata::testing
