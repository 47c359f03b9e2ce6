#include "billdata/credit/credit.h"

#include "billdata/billcore/bill_kinds.h"
#include "billdata/common/audit.h"
#include "common/fixture.h"
#include "posdata/pos_fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

constexpr std::int32_t kShop = 2;  // 南京路店: 100 pairs of socks (item 7) and T-shirts (item 1)
constexpr std::int32_t kMember = 1001;
constexpr std::int32_t kSocks = 7;   // no size group
constexpr std::int32_t kTShirt = 1;  // size group 1

struct LineIn {
    std::int32_t item;
    std::string row_key;
    double qty;
    double price;
    std::int32_t ref_inter = 0;
    std::int32_t ref_entry = 0;
    std::string memo = "";
};

// Lines at retail twice the price, discount 0.5, unit cost half the price.
std::shared_ptr<ado::Recordset> bill_lines(const std::vector<LineIn>& lines) {
    std::vector<std::vector<ado::Variant>> rows;
    for (const LineIn& l : lines)
        rows.push_back({l.item, l.row_key, l.qty, l.price, l.qty * l.price, l.price * 2,
                        l.qty * l.price * 2, 0.5, l.memo, l.price / 2, l.ref_inter, l.ref_entry});
    return caller_rows(
        {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice", "FRetailAmount",
         "FZkRate", "FMemo", "FUnitCost", "FRefInterID", "FRefEntryID"},
        rows);
}

class CreditTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // Saves a bill dated 2025-03-10 for the member; returns its interior id.
    std::int32_t save(std::int16_t kind, const std::vector<LineIn>& lines, std::int32_t old_id = 0,
                      std::shared_ptr<ado::Recordset> cells = nullptr, std::string bill_no = "") {
        auto rs = bill_lines(lines);
        std::int32_t id = old_id;
        EXPECT_TRUE(credit_.SaveData(kind, ado::DateTime(2025, 3, 10), bill_no, kShop, kMember,
                                     "刘洋", "13800000001", "试穿", 1, id, rs, cells));
        EXPECT_EQ(rs, nullptr);
        last_bill_no_ = bill_no;
        return id;
    }
    // A save that must be refused with `message`, giving back the id and number unchanged.
    void refused(std::int16_t kind, std::shared_ptr<ado::Recordset> rs, const std::string& message,
                 std::int32_t old_id = 0, const std::string& bill_no = "",
                 const std::string& remark = "") {
        std::shared_ptr<ado::Recordset> none;
        std::string no = bill_no;
        std::int32_t id = old_id;
        expect_com_error(
            [&] {
                credit_.SaveData(kind, ado::DateTime(2025, 3, 10), no, kShop, kMember, "", "",
                                 remark, 1, id, rs, none);
            },
            ado::err::kComponent, message);
        EXPECT_EQ(id, old_id);
        EXPECT_EQ(no, bill_no);
    }

    // Every row of a query as "a|b|c;" text.
    std::string rows(const std::string& sql) const {
        std::string out;
        for (const auto& row : query_rows(connection_string(), sql))
            out += row + ";";
        return out;
    }
    double stock(std::int32_t item) const { return common::GetStockQty(open(), kShop, item, 0); }
    // FRtnQty|FSaleQty of a lent line.
    std::string lent(std::int32_t id, int entry = 1) const {
        return rows("select FRtnQty,FSaleQty from ICStockBillEntry where FInterID=" +
                    std::to_string(id) + " and FEntryID=" + std::to_string(entry));
    }
    // Bills, lines, interior-id counter and bill numbers: all 0 before the first save.
    std::string nothing_written() const {
        return rows(
            "select (select count(*) from ICStockBill),(select count(*) from "
            "ICStockBillEntry),(select count(*) from ICMaxNum where FTranType=0),(select "
            "count(*) from ICBillNo)");
    }
    int count(const std::string& from) const {
        return scalar("select count(*) from " + from).to_int32();
    }

    Credit credit_;
    std::string last_bill_no_;
};

// Three pairs of socks lent from the shop, one brought back, one sold to the member at the till.
class LentGoods : public CreditTest {
  protected:
    void SetUp() override {
        CreditTest::SetUp();
        if (IsSkipped()) return;
        lend_ = save(27, {{kSocks, "0", 3, 12}});
        back_ = save(17, {{kSocks, "0", 1, 12, lend_, 1}});
        Sale sale;
        sale.BillDate = ado::DateTime(2025, 3, 11);
        sale.VipID = kMember;
        sale.lines = {Line(kSocks, 1, 39, 39, 6).ref(lend_, 1, 27)};
        sale.SumAmount = sale.GetCash = sale.GetAmount = 39;
        ASSERT_GT(save_sale(sale), 0);
    }
    std::int32_t lend_ = 0;
    std::int32_t back_ = 0;
};

// Each step of the lent goods' life books the returned and sold quantities of the lent line once.
TEST_F(LentGoods, ReturnsAndTillSalesAreBookedOnTheLentLineOnce) {
    // The till's line refers to the lent line and raises its sold quantity; the goods already
    // left with the lending, so the stock does not move.
    EXPECT_EQ(lent(lend_), "1|1;");
    EXPECT_EQ(stock(kSocks), 98);

    // Returning more than is still out is refused and writes nothing.
    const int bills = count("ICStockBill");
    refused(17, bill_lines({{kSocks, "0", 2, 12, lend_, 1}}),
            "借还单据第1行的归还数量超过了未还数量!");
    EXPECT_EQ(count("ICStockBill"), bills);

    // A lending with returns or sales can be neither deleted nor rewritten.
    expect_com_error([&] { credit_.DeleteBill(27, lend_); }, ado::err::kComponent,
                     "删除单据失败，单据“JC250310-001”已有归还或销售记录！");
    refused(27, bill_lines({{kSocks, "0", 5, 12}}),
            "保存单据失败，单据“JC250310-001”已有归还或销售记录！", lend_, "JC250310-001");
    EXPECT_EQ(lent(lend_), "1|1;");

    // Voiding and restoring the return book its goods once each, however often they are asked.
    credit_.DeleteBill(17, back_, nullptr, true);
    EXPECT_EQ(rows("select FDeleted from ICStockBill where FInterID=" + std::to_string(back_)),
              "1;");
    EXPECT_EQ(lent(lend_), "0|1;");
    credit_.DeleteBill(17, back_, nullptr, true);
    EXPECT_EQ(lent(lend_), "0|1;");
    credit_.UnblankOut(back_);
    EXPECT_EQ(lent(lend_), "1|1;");
    credit_.UnblankOut(back_);
    EXPECT_EQ(lent(lend_), "1|1;");

    // Deleting the live return gives its goods back and removes every row of it.
    credit_.DeleteBill(17, back_);
    EXPECT_EQ(lent(lend_), "0|1;");
    const std::string id = std::to_string(back_);
    EXPECT_EQ(rows("select (select count(*) from ICStockBill where FInterID=" + id +
                   "),(select count(*) from ICStockBillEntry where FInterID=" + id +
                   "),(select count(*) from ICStockBillEntry_1 where FInterID=" + id + ")"),
              "0|0|0;");
}

TEST_F(CreditTest, SavedRowsCarryMemberStockAndSizes) {
    const std::int32_t lend =
        save(27, {{kTShirt, "a", 2, 40, 0, 0, "回家试"}, {kSocks, "b", 1, 12}}, 0,
             size_cells({{0, kTShirt, "a", 1, "黑色", 3, 1},
                         {0, kTShirt, "a", 2, "白色", 3, 1},
                         {1, kTShirt, "a", 3, "红色", 3, 5}}));
    EXPECT_EQ(rows("select FTranType,FDate,FBillNo,FInStockID,FOutStockID,FVipID,FOrgaID,FOwner,"
                   "FPhone,FRemark,FBillerID,FYear,FPeriod,FSumQty,FSumAmount,FSumRetailAmount,"
                   "FSeason,FMonth,FDeleted,FCheckerID from ICStockBill where FInterID=" +
                   std::to_string(lend)),
              "27|2025-03-10|JC250310-001|0|2|1001|1001|刘洋|13800000001|试穿|1|2025|3|3|92|184|"
              "2025年1季度|2025年03月|0|0;");
    EXPECT_EQ(rows("select FEntryID,FItemID,FRowKey,FQty,FPrice,FAmount,FRetailPrice,FRetailAmount,"
                   "FZkRate,FMemo,FUnitCost,FCost,FRefInterID,FRefEntryID,FRefTranType from "
                   "ICStockBillEntry where FInterID=" +
                   std::to_string(lend) + " order by FEntryID"),
              "1|1|a|2|40|80|80|160|0.5|回家试|20|40|0|0|0;2|7|b|1|12|12|24|24|0.5||6|6|0|0|0;");
    // Cells deleted in the front end are skipped; the item without sizes gets its row.
    EXPECT_EQ(rows("select FItemID,FRowKey,FSizeID,FColor,FColorEntryID,FQty from "
                   "ICStockBillEntry_1 where FInterID=" +
                   std::to_string(lend) + " order by FItemID,FSizeID"),
              "1|a|1|黑色|3|1;1|a|2|白色|3|1;7|b|0||0|1;");
}

TEST_F(CreditTest, RewriteKeepsIdAndNumberAndRebooksReturns) {
    const std::int32_t lend = save(27, {{kSocks, "0", 3, 12}, {kTShirt, "1", 2, 40}});
    const std::int32_t back = save(17, {{kSocks, "0", 2, 12, lend, 1}});
    const std::string number = last_bill_no_;
    EXPECT_EQ(lent(lend), "2|0;");

    // Rewritten to take back all three socks and one T-shirt: the old return of two counts as
    // still available to this bill, and the returned quantity is not doubled.
    EXPECT_EQ(save(17, {{kSocks, "0", 3, 12, lend, 1}, {kTShirt, "1", 1, 40, lend, 2}}, back,
                   nullptr, number),
              back);
    EXPECT_EQ(last_bill_no_, number);
    EXPECT_EQ(lent(lend, 1), "3|0;");
    EXPECT_EQ(lent(lend, 2), "1|0;");
    // The socks get their size row automatically; the T-shirt has sizes and no cells were given.
    EXPECT_EQ(count("ICStockBillEntry_1 where FInterID=" + std::to_string(back)), 1);
    EXPECT_EQ(scalar("select FSumQty from ICStockBill where FInterID=" + std::to_string(back))
                  .to_double(),
              4);

    // A return must match the lent line's item.
    refused(17, bill_lines({{kSocks, "0", 1, 12, lend, 2}}), "借还单据第1行找不到对应的借出记录!");
}

TEST_F(CreditTest, RefusedOrFailedSaveGivesBackIdAndNumber) {
    refused(27, bill_lines({}), "没有数据可以保存!");
    refused(99, bill_lines({{kSocks, "0", 1, 12}}), "借货单据类型只能是借出(27)或借还(17)!");
    refused(17, bill_lines({{kSocks, "0", 1, 12, 4242, 1}}), "借还单据第1行找不到对应的借出记录!");
    auto no_qty = bill_lines({{kSocks, "0", 1, 12}});
    no_qty->Fields("FQty").SetValue(ado::Variant::null());
    refused(27, no_qty, "无效使用 Null");
    // A remark longer than its column is the server's refusal, and nothing of the bill stays.
    refused(27, bill_lines({{kSocks, "0", 1, 12}}),
            "String or binary data would be truncated in table 'ICStockBill', column 'FRemark'. "
            "Truncated value: '" +
                std::string(255, 'r') + "'.",
            0, "", std::string(256, 'r'));
    EXPECT_EQ(nothing_written(), "0|0|0|0;");

    // A save that fails part way gives neither back either (what stays is the fault sweep's).
    refuse("INSERT", "ICStockBillEntry", "new.FEntryID=2", "disk full");
    refused(27, bill_lines({{kSocks, "0", 1, 12}, {kTShirt, "1", 1, 40}}), "disk full", 0, "keep");
}

TEST_F(CreditTest, FailedChangeLeavesTheBillAsItWas) {
    const std::int32_t lend = save(27, {{kSocks, "0", 3, 12}, {kTShirt, "1", 2, 40}}, 0,
                                   size_cells({{0, kTShirt, "1", 2, "黑色", 3, 2}}));
    const std::int32_t back = save(17, {{kSocks, "0", 2, 12, lend, 1}});
    const std::string number = last_bill_no_;
    auto snapshot = [&] {
        return rows("select * from ICStockBill order by FInterID") +
               rows("select * from ICStockBillEntry order by FInterID,FEntryID") +
               rows("select * from ICStockBillEntry_1 order by FInterID,FRowKey,FSizeID");
    };
    const std::string before = snapshot();
    ASSERT_EQ(lent(lend), "2|0;");

    // The change of the return fails at its size rows, after its old rows were taken out and its
    // new header and line written.
    refuse("INSERT", "ICStockBillEntry_1", "", "disk full");
    auto rs = bill_lines({{kSocks, "0", 3, 12, lend, 1, "it's"}});
    std::shared_ptr<ado::Recordset> none;
    std::string no = number;
    std::int32_t id = back;
    expect_com_error(
        [&] {
            credit_.SaveData(17, ado::DateTime(2025, 3, 10), no, kShop, kMember, "", "", "it's", 1,
                             id, rs, none);
        },
        ado::err::kComponent, "disk full");
    EXPECT_EQ(id, back);
    EXPECT_EQ(no, number);
    EXPECT_NE(rs, nullptr);  // the caller keeps its lines to try again
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(lent(lend), "2|0;");
}

TEST_F(CreditTest, ClashOnALineMovesTheBillToAFreshId) {
    // A line left under id 1 by another program: the header takes id 1, the first line clashes.
    exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(1,1,5,9)");
    const std::int32_t lend = save(27, {{kSocks, "0", 3, 12}});
    EXPECT_EQ(lend, 2);
    EXPECT_EQ(rows("select FInterID from ICStockBill"), "2;");
    EXPECT_EQ(rows("select FInterID,FItemID,FQty from ICStockBillEntry order by FInterID"),
              "1|5|9;2|7|3;");

    // A clash on the second line takes the header and the first line along to the fresh id.
    exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(3,2,5,9)");
    EXPECT_EQ(save(27, {{kSocks, "0", 1, 12}, {kTShirt, "1", 1, 40}}), 4);
    EXPECT_EQ(rows("select FInterID,FEntryID,FItemID from ICStockBillEntry where FInterID>2 "
                   "order by FInterID,FEntryID"),
              "3|2|5;4|1|7;4|2|1;");
    EXPECT_EQ(rows("select FInterID from ICStockBill order by FInterID"), "2;4;");
}

TEST_F(CreditTest, DeleteRefusalsAndCallerConnection) {
    const std::int32_t lend = save(27, {{kSocks, "0", 3, 12}});
    const std::string id = std::to_string(lend);

    // Unknown bills are no error and change nothing.
    credit_.DeleteBill(27, 4242);
    EXPECT_EQ(count("ICStockBill"), 1);

    // Audited comes first, voiding included.
    billcore::SetCheckMark(27, id, 2);
    common::init_session(connection_string(), 2025, 4);
    expect_com_error([&] { credit_.DeleteBill(27, lend, nullptr, true); }, ado::err::kComponent,
                     "删除单据失败，单据“JC250310-001”已经审核！");
    billcore::ClearCheckMark(27, id, 2);
    expect_com_error([&] { credit_.DeleteBill(27, lend); }, ado::err::kComponent,
                     "对不起,不能删除以前月份的单据!");

    // A bill of a later period than the session's may go; on the caller's connection it stays
    // inside the caller's transaction.
    common::init_session(connection_string(), 2025, 2);
    auto cn = open();
    cn->BeginTrans();
    credit_.DeleteBill(27, lend, cn);
    EXPECT_TRUE(cn->InTransaction());
    cn->RollbackTrans();
    cn->Close();
    EXPECT_EQ(count("ICStockBill"), 1);
    credit_.DeleteBill(27, lend);
    EXPECT_EQ(count("ICStockBill"), 0);
    EXPECT_EQ(count("ICStockBillEntry"), 0);

    // Bills of other kinds are not this class's to remove or restore.
    exec(
        "insert into ICStockBill(FInterID,FTranType,FBillNo,FYear,FPeriod,FDeleted) "
        "values(77,125,'QC1',2025,3,1)");
    expect_com_error([&] { credit_.DeleteBill(27, 77); }, ado::err::kComponent,
                     "删除单据失败，单据“QC1”不是借货单据！");
    expect_com_error([&] { credit_.UnblankOut(77); }, ado::err::kComponent,
                     "恢复单据失败，单据“QC1”不是借货单据！");
    EXPECT_EQ(scalar("select FDeleted from ICStockBill where FInterID=77").to_int32(), 1);
}

TEST_F(CreditTest, ListsByKindWithMemberAndRestrictions) {
    const std::int32_t lend =
        save(27, {{kTShirt, "a", 2, 40}}, 0,
             size_cells({{0, kTShirt, "a", 1, "黑色", 3, 1}, {0, kTShirt, "a", 2, "白色", 3, 1}}));
    save(17, {{kTShirt, "0", 1, 40, lend, 1}}, 0, size_cells({{0, kTShirt, "0", 1, "黑色", 3, 1}}));

    // One row per size/colour row, with the member card, owner, phone and the lending shop.
    auto rs = credit_.GetBillList(27, "");
    EXPECT_EQ(fields(rs, {"FVipCard", "FOwner", "FPhone", "FStockName", "FRtnQty", "FDeleted"}),
              "V0001|刘洋|13800000001|南京路店 Nanjing Rd shop|1|");
    EXPECT_EQ(column(rs, "FInterID").size(), 2u);

    // The caller's filter, and the user's own stock: the lending shop for 27, the receiving
    // shop for 17.
    EXPECT_TRUE(credit_.GetBillList(27, " and t1.FBillNo='none'")->Eof());
    common::session().ListStockID = 3;
    EXPECT_TRUE(credit_.GetBillList(27, "")->Eof());
    EXPECT_TRUE(credit_.GetBillList(17, "")->Eof());
    common::session().ListStockID = kShop;
    EXPECT_FALSE(credit_.GetBillList(27, "")->Eof());
    EXPECT_EQ(credit_.GetBillList(17, "")->Fields("FBillNo").Value().to_string(), "JR250310-001");

    // The day window: the last 30 days up to tomorrow.
    common::session().ListDays = 30;
    const ado::DateTime today = ado::DateTime::today();
    exec("update ICStockBill set FDate='" + today.add_days(-30).to_string() + "'");
    EXPECT_TRUE(credit_.GetBillList(27, "")->Eof());
    exec("update ICStockBill set FDate='" + today.add_days(-29).to_string() + "'");
    EXPECT_FALSE(credit_.GetBillList(27, "")->Eof());
}

}  // namespace
}  // namespace billdata::testing
