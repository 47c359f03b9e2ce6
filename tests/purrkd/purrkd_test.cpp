#include "billdata/purrkd/purrkd.h"

#include "stock_fixture.h"

namespace billdata::testing {
namespace {

const ado::DateTime kDate(2025, 3, 9);

class PurRkdTest : public StockBillTest {
  protected:
    // Saves a receipt into stock 1 from supplier 102; returns the interior id.
    std::int32_t save(std::int16_t kind, std::shared_ptr<ado::Recordset> lines,
                      std::shared_ptr<ado::Recordset> cells = nullptr, std::int32_t old_id = 0,
                      std::string bill_no = "", const std::string& remark = "note") {
        PurRkd().SaveData(kind, kDate, bill_no, 1, 102, 2, remark, 1, 0, old_id, lines, 12, 600,
                          cells);
        last_bill_no_ = bill_no;
        return old_id;
    }
    std::string last_bill_no_;
};

TEST_F(PurRkdTest, SavesFromTheCurrentLineOnwardWithHeaderAndSizeRows) {
    auto lines = receipt_lines({{1, "r0", 1, 40, 40}, {1, "r1", 3, 42, 42}, {5, "r2", 2, 45, 45}});
    lines->MoveNext();  // the caller stands on the second line
    auto cells = size_cells({{0, 1, "r1", 2, "黑色", 1, 2},
                             {1, 1, "r1", 3, "黑色", 1, 5},  // deleted in the front end
                             {0, 1, "r1", 3, "白色", 2, 1}});
    std::string bill_no;
    std::int32_t id = 0;
    EXPECT_TRUE(
        PurRkd().SaveData(112, kDate, bill_no, 1, 102, 2, "first", 3, 1, id, lines, 5, 174, cells));
    EXPECT_EQ(lines, nullptr);
    EXPECT_GT(id, 0);
    EXPECT_EQ(bill_no, "ZP250309-001");

    const std::string where = " where FInterID=" + std::to_string(id);
    EXPECT_EQ(rows("select FEntryID,FItemID,FRowKey,FQty,FPrice,FAmount,FRetailPrice,FRetailAmount,"
                   "FZkRate,FMemo,FHisPrice from ICStockBillEntry" +
                   where + " order by FEntryID"),
              (std::vector<std::string>{"1|1|r1|3|42|126|84|252|1|mr1|42",
                                        "2|5|r2|2|45|90|90|180|1|mr2|45"}));
    EXPECT_EQ(rows("select FTranType,FDate,FBillNo,FInStockID,FOrgaID,FAcctID,FSettleID,FRemark,"
                   "FBillerID,FYear,FPeriod,FSumQty,FSumAmount,FSumRetailAmount,FSeason,FMonth "
                   "from ICStockBill" +
                   where),
              std::vector<std::string>{
                  "112|2025-03-09|ZP250309-001|1|102|2|1|first|3|2025|3|5|174|432||2025年03月"});
    EXPECT_FALSE(scalar("select FSysTime from ICStockBill" + where).to_string().empty());
    // The live cells, then one row per line whose item has no sizes.
    EXPECT_EQ(rows("select FItemID,FRowKey,FSizeID,FColor,FColorEntryID,FQty from "
                   "ICStockBillEntry_1" +
                   where + " order by FItemID,FSizeID,FColor"),
              (std::vector<std::string>{"1|r1|2|黑色|1|2", "1|r1|3|白色|2|1", "5|r2|0||0|2"}));
    // A receipt sets the purchase price and supplier of its items.
    EXPECT_EQ(rows("select FItemID,FPurPrice,FSupplierID from t_ICItem where FItemID in (1,5) "
                   "order by FItemID"),
              (std::vector<std::string>{"1|42|102", "5|45|102"}));
}

TEST_F(PurRkdTest, PriceDifferenceRowsByKind) {
    exec("insert into t_Stock(FItemID,FNumber,FName) values(4,'04','空仓 Empty store')");
    exec("insert into ICInitData(FStockID,FItemID,FQty,FAmount,FPrice) values(2,5,7,315,45)");
    exec("insert into ICInitData(FStockID,FItemID,FQty,FAmount,FPrice) values(3,5,4,180,45)");

    // Kind 112: one row per stock holding the item (30, 7 and 4), none for the empty store,
    // all under the line's negative number; the receipt's own 10 do not count.
    std::int32_t id = save(112, receipt_lines({{6, "a", 1, 60, 60}, {5, "b", 10, 50, 45}}));
    EXPECT_EQ(rows("select FEntryID,FTjStockID,FItemID,FQty,FPrice,FAmount,FMemo,FHisPrice from "
                   "ICStockBillEntry where FEntryID<0 and FInterID=" +
                   std::to_string(id) + " order by FTjStockID"),
              (std::vector<std::string>{"-2|1|5|0|5|150|30|45", "-2|2|5|0|5|35|7|45",
                                        "-2|3|5|0|5|20|4|45"}));
    // Items without sizes get a size row for each of their entry rows, difference rows included.
    EXPECT_EQ(count("select count(*) from ICStockBillEntry_1 where FInterID=" + std::to_string(id)),
              5);

    // A difference of 0.00001 is no difference once rounded.
    id = save(112, receipt_lines({{5, "c", 2, 45.00001, 45}}));
    EXPECT_EQ(count("select count(*) from ICStockBillEntry where FEntryID<0 and FInterID=" +
                    std::to_string(id)),
              0);

    // Kind 114: one row, for the bill's own stock, from the line quantity; no master update.
    exec("update t_ICItem set FPurPrice=1,FSupplierID=0 where FItemID=5");
    id = save(114, receipt_lines({{5, "d", 3, 40, 45}}));
    EXPECT_EQ(rows("select FEntryID,FTjStockID,FQty,FPrice,FAmount,FMemo,FHisPrice from "
                   "ICStockBillEntry where FEntryID<0 and FInterID=" +
                   std::to_string(id)),
              std::vector<std::string>{"-1|1|0|-5|-15|3|45"});
    EXPECT_EQ(last_bill_no_, "ZT250309-001");

    // Any other kind writes neither.
    id = save(115, receipt_lines({{5, "e", 3, 40, 45}}));
    EXPECT_EQ(count("select count(*) from ICStockBillEntry where FEntryID<0 and FInterID=" +
                    std::to_string(id)),
              0);
    // The propagation after the return and the other kind left the price where 114 put it back.
    EXPECT_EQ(rows("select FSupplierID from t_ICItem where FItemID=5"),
              std::vector<std::string>{"0"});
}

TEST_F(PurRkdTest, ModifiedReceiptKeepsIdAndNumberAndReplacesItsRows) {
    const std::int32_t id = save(112, receipt_lines({{5, "a", 2, 45, 45}, {6, "b", 1, 60, 60}}));
    const std::string number = last_bill_no_;
    std::int32_t again = save(112, receipt_lines({{7, "x", 4, 12, 12}}), nullptr, id, number);
    EXPECT_EQ(again, id);
    EXPECT_EQ(last_bill_no_, number);
    EXPECT_EQ(rows("select FBillNo,isnull(FDeleted,0) from ICStockBill"),
              std::vector<std::string>{number + "|0"});
    EXPECT_EQ(rows("select FInterID,FEntryID,FItemID from ICStockBillEntry"),
              std::vector<std::string>{std::to_string(id) + "|1|7"});
    EXPECT_EQ(rows("select FItemID,FQty from ICStockBillEntry_1"), std::vector<std::string>{"7|4"});
    // Only one number was drawn.
    EXPECT_EQ(count("select FMaxNum from ICBillNo where FTranType=112"), 1);
}

TEST_F(PurRkdTest, RefusedOrFailedReceiptGivesNoId) {
    auto empty = receipt_lines({});
    std::string no;
    std::int32_t id = 0;
    SqlLog log(log_path());
    expect_com_error(
        [&] { PurRkd().SaveData(112, kDate, no, 1, 102, 2, "", 1, 0, id, empty, 0, 0, nullptr); },
        ado::err::kComponent, "没有数据可以保存!");
    EXPECT_TRUE(log.lines().empty());

    // A receipt that fails part way gives no id back (what stays is the fault sweep's to check).
    refuse("INSERT", "ICStockBill", "", "disk full");
    auto lines = receipt_lines({{5, "a", 2, 50, 45}});
    expect_com_error(
        [&] { PurRkd().SaveData(112, kDate, no, 1, 102, 2, "", 1, 0, id, lines, 2, 100, nullptr); },
        ado::err::kComponent, "disk full");
    EXPECT_EQ(id, 0);
}

TEST_F(PurRkdTest, ClashOnTheInteriorIdDrawsAFreshOne) {
    // Another program wrote a line under the id the counter hands out next, without a header.
    exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(1,1,7,1)");
    const std::int32_t id = save(112, receipt_lines({{5, "a", 2, 45, 45}}));
    EXPECT_EQ(id, 2);
    EXPECT_EQ(rows("select FInterID from ICStockBill"), std::vector<std::string>{"2"});
    EXPECT_EQ(rows("select FInterID,FItemID from ICStockBillEntry order by FInterID"),
              (std::vector<std::string>{"1|7", "2|5"}));
}

TEST_F(PurRkdTest, CostStepByCostStyle) {
    header(90, 99, "2025-03-20", 0, 1);
    line(90, 1, 5, 1, 129);
    {
        // Style 1: the propagation prices the later sale at the new price.
        SqlLog log(log_path());
        save(112, receipt_lines({{5, "a", 2, 50, 45}}));
        EXPECT_EQ(log.count("Sp_CacuCost"), 0);
    }
    EXPECT_EQ(rows("select FUnitCost from ICStockBillEntry where FInterID=90"),
              std::vector<std::string>{"50"});

    common::session().CostStyle = 0;
    set_cost_style_2();
    SqlLog log(log_path());
    log.clear();
    save(112, receipt_lines({{6, "b", 2, 70, 60}}));
    EXPECT_EQ(log.count("Sp_CacuCost"), 1);
    EXPECT_EQ(log.count("delete from icstockbillentry where FEntryID<0"), 0);
}

class PurRkdRemovalTest : public PurRkdTest {
  protected:
    void SetUp() override {
        PurRkdTest::SetUp();
        if (IsSkipped()) return;
        id_ = save(112, receipt_lines({{5, "a", 2, 50, 45}}));
    }
    std::int32_t id_ = 0;
};

TEST_F(PurRkdRemovalTest, VoidRestoreAndDeleteRecomputeOnce) {
    SqlLog log(log_path());
    PurRkd().DeleteBill(112, id_, nullptr, true);
    EXPECT_EQ(count("select FDeleted from ICStockBill"), 1);
    EXPECT_EQ(log.count("select t1.FTranType,t1.FDate,t1.FInterId"), 1);
    // Voided: the master price is back to the one before the receipt.
    EXPECT_EQ(rows("select FPurPrice from t_ICItem where FItemID=5"),
              std::vector<std::string>{"45"});

    PurRkd().UnblankOut(id_);
    EXPECT_EQ(count("select FDeleted from ICStockBill"), 0);
    EXPECT_EQ(rows("select FPurPrice from t_ICItem where FItemID=5"),
              std::vector<std::string>{"50"});

    // Deleting a void receipt runs no second recomputation.
    PurRkd().DeleteBill(112, id_, nullptr, true);
    log.clear();
    PurRkd().DeleteBill(112, id_);
    EXPECT_EQ(log.count("select t1.FTranType,t1.FDate,t1.FInterId"), 0);
    EXPECT_EQ(count("select (select count(*) from ICStockBill)+(select count(*) from "
                    "ICStockBillEntry)+(select count(*) from ICStockBillEntry_1)"),
              0);

    // A live one: once, before its rows go. An unknown id: nothing.
    const std::int32_t other = save(112, receipt_lines({{6, "b", 1, 70, 60}}));
    log.clear();
    auto cn = open();
    cn->BeginTrans();
    PurRkd().DeleteBill(112, other, cn);
    PurRkd().DeleteBill(112, 9999, cn);
    EXPECT_TRUE(cn->InTransaction());
    cn->CommitTrans();
    cn->Close();
    const int recompute = log.find("select t1.FTranType,t1.FDate,t1.FInterId");
    EXPECT_GE(recompute, 0);
    EXPECT_LT(recompute, log.find("delete from ICStockBill where FInterID="));
    EXPECT_EQ(log.count("select t1.FTranType,t1.FDate,t1.FInterId"), 1);
    EXPECT_EQ(count("select count(*) from ICStockBill"), 0);
}

TEST_F(PurRkdRemovalTest, AuditAndPeriodRefusals) {
    exec("update ICStockBill set FCheckerID=2");
    expect_com_error([&] { PurRkd().DeleteBill(112, id_, nullptr, true); }, ado::err::kComponent,
                     "删除单据失败，单据“ZP250309-001”已经审核！");
    exec("update ICStockBill set FCheckerID=0,FYear=2024,FPeriod=12");
    PurRkd().Init(connection_string(), 2025, 1);
    expect_com_error([&] { PurRkd().DeleteBill(112, id_); }, ado::err::kComponent,
                     "对不起,不能删除以前月份的单据!");
    EXPECT_EQ(count("select count(*) from ICStockBill where isnull(FDeleted,0)=0"), 1);

    // A later period than the session's is accepted.
    exec("update ICStockBill set FYear=2025,FPeriod=2");
    PurRkd().DeleteBill(112, id_);
    EXPECT_EQ(count("select count(*) from ICStockBill"), 0);
}

TEST_F(PurRkdRemovalTest, ListsWithTheSessionRestrictions) {
    auto cells = size_cells({{0, 1, "s", 2, "黑色", 1, 1}, {0, 1, "s", 3, "黑色", 1, 2}});
    const std::int32_t sized = save(112, receipt_lines({{1, "s", 3, 40, 40}}), cells);
    std::string no;
    std::int32_t elsewhere = 0;
    auto lines = receipt_lines({{7, "t", 5, 12, 12}});
    PurRkd().SaveData(112, kDate, no, 2, 101, 1, "", 1, 0, elsewhere, lines, 5, 60, nullptr);
    PurRkd().DeleteBill(112, elsewhere, nullptr, true);

    auto list = PurRkd().GetBillList(112, " and t1.FSumQty>0");
    std::vector<std::string> seen;
    for (; !list->Eof(); list->MoveNext())
        seen.push_back(fields(list, {"FInterID", "FSize", "FDeleted", "FStockName"}));
    // Newest id first; one row per size cell.
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0], std::to_string(elsewhere) + "||※|南京路店 Nanjing Rd shop");
    EXPECT_EQ(seen[1].substr(0, seen[1].find('|')), std::to_string(sized));
    EXPECT_EQ(seen[3], std::to_string(id_) + "||" + "|总仓 Main warehouse");

    // The user's own stock: stock 1.
    common::session().ListStockID = 1;
    EXPECT_EQ(column(PurRkd().GetBillList_Simple(112, ""), "FInterID").size(), 2u);
    // A window of one day keeps today's receipt only.
    std::int32_t today_id = 0;
    auto today_lines = receipt_lines({{7, "u", 1, 12, 12}});
    PurRkd().SaveData(112, ado::DateTime::today(), no, 1, 101, 1, "", 1, 0, today_id, today_lines,
                      1, 12, nullptr);
    common::session().ListDays = 1;
    EXPECT_EQ(column(PurRkd().GetBillList(112, ""), "FInterID"),
              std::vector<std::string>{std::to_string(today_id)});
}

}  // namespace
}  // namespace billdata::testing
