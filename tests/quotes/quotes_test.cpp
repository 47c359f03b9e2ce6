// Texts with single quotes in them, saved through every bill class and read back exactly as they
// were given: a quote is part of the value, never the end of a statement's literal.

#include "billdata/credit/credit.h"
#include "billdata/orderbill/orderbill.h"
#include "billdata/otherbill/otherbill.h"
#include "billdata/purrkd/purrkd.h"
#include "billdata/sfkdata/sfkdata.h"
#include "billdata/viporder/viporder.h"
#include "posdata/pos_fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

using ado::DateTime;

// A quote alone, two in a row, and quotes at both ends of a value.
const std::string kName = "O'Brien";
const std::string kRemark = "it's ''odd'";
const std::string kPhone = "'138";
const std::string kKey = "k'1";
const std::string kMemo = "note'";
const std::string kColor = "红'黑";
const std::string kBillNo = "NO'1";
const DateTime kDate(2025, 3, 9);

class QuotedTexts : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // The first row of a query as "a|b|c".
    std::string row(const std::string& sql) const {
        auto cn = open();
        auto rs = cn->Execute(sql);
        std::string out;
        for (std::size_t i = 0; !rs->Eof() && i < rs->GetFields().Count(); ++i)
            out += (i ? "|" : "") + rs->Fields(i).Value().to_string();
        return out;
    }
    // Number, remark, first line's key and note, and its size row's key and colour of a bill in
    // the stock-bill tables.
    std::string stock_bill(std::int32_t id) const {
        return row(
            "select h.FBillNo,h.FRemark,e.FRowKey,e.FMemo,s.FRowKey,s.FColor from ICStockBill h "
            "inner join ICStockBillEntry e on e.FInterID=h.FInterID and e.FEntryID=1 "
            "inner join ICStockBillEntry_1 s on s.FInterID=h.FInterID and s.FRowKey=e.FRowKey "
            "where h.FInterID=" +
            std::to_string(id));
    }
    // One size/colour cell of the T-shirt under the line key with the quote.
    static std::shared_ptr<ado::Recordset> cells() {
        return caller_rows(
            {"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"},
            {{0, 1, kKey, 2, kColor, 1, 2}});
    }
    const std::string expected_ =
        kBillNo + "|" + kRemark + "|" + kKey + "|" + kMemo + "|" + kKey + "|" + kColor;
};

TEST_F(QuotedTexts, PurchaseReceipt) {
    auto lines = [] {
        return caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FHisPrice", "FAmount",
                            "FRetailPrice", "FRetailAmount", "FZkRate", "FMemo"},
                           {{1, kKey, 2, 40, 40, 80, 99, 198, 0.8, kMemo}});
    };
    std::string no;
    std::int32_t id = 0;
    for (std::string given : {std::string(), kBillNo}) {  // new, then changed under that number
        no = given;
        auto rs = lines();
        ASSERT_TRUE(
            PurRkd().SaveData(112, kDate, no, 2, 102, 2, kRemark, 1, 0, id, rs, 2, 80, cells()));
    }
    EXPECT_EQ(stock_bill(id), expected_);
}

TEST_F(QuotedTexts, OtherStockBill) {
    std::string no;
    std::int32_t id = 0;
    for (std::string given : {std::string(), kBillNo}) {
        no = given;
        auto rs = caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                               "FRetailAmount", "FZkRate", "FMemo"},
                              {{1, kKey, 2, 40, 80, 99, 198, 0.8, kMemo}});
        auto detail = cells();
        ASSERT_TRUE(OtherBill().SaveData(31, kDate, no, 2, kName, 1, kRemark, 4, id, rs, detail));
    }
    EXPECT_EQ(stock_bill(id), expected_);
    EXPECT_EQ(row("select FCause from ICStockBill"), kName);
}

TEST_F(QuotedTexts, CreditBill) {
    std::string no;
    std::int32_t id = 0;
    for (std::string given : {std::string(), kBillNo}) {
        no = given;
        auto rs = caller_rows(
            {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice", "FRetailAmount",
             "FZkRate", "FMemo", "FUnitCost", "FRefInterID", "FRefEntryID"},
            {{1, kKey, 2, 40, 80, 99, 198, 0.8, kMemo, 30, 0, 0}});
        auto detail = cells();
        ASSERT_TRUE(
            Credit().SaveData(27, kDate, no, 2, 1001, kName, kPhone, kRemark, 1, id, rs, detail));
    }
    EXPECT_EQ(stock_bill(id), expected_);
    EXPECT_EQ(row("select FOwner,FPhone from ICStockBill"), kName + "|" + kPhone);
}

TEST_F(QuotedTexts, OrderBill) {
    std::string no;
    std::int32_t id = 0;
    for (std::string given : {std::string(), kBillNo}) {
        no = given;
        auto rs = caller_rows({"FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                               "FRetailPrice", "FRetailAmount", "FMemo"},
                              {{1, kKey, 2, 0.8, 40, 80, 99, 198, kMemo}});
        auto detail = cells();
        ASSERT_EQ(OrderBill().SaveData(11, kDate, no, 101, kRemark, 1, id, rs, 0, 2, detail),
                  "True");
    }
    EXPECT_EQ(row("select h.FBillNo,h.FRemark,e.FRowKey,e.FMemo,s.FRowKey,s.FColor from ICOrder h "
                  "inner join ICOrderEntry e on e.FInterID=h.FInterID "
                  "inner join ICOrderEntry_1 s on s.FInterID=h.FInterID and s.FRowKey=e.FRowKey "
                  "where h.FInterID=" +
                  std::to_string(id)),
              expected_);
}

TEST_F(QuotedTexts, MemberOrderAndItsReceipt) {
    auto rows = [] {
        return caller_rows(
            {"FItemID", "FSalerID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice",
             "FRetailAmount", "FUnitCost", "FPreSend", "FColor", "FSizeID"},
            {{1, 1, 2, 40, 80, 0.8, 99, 198, 30, 0, kColor, 2}});
    };
    std::string no;
    std::int32_t acct = 2;
    auto data = rows();
    vipOrder().SaveData(21, kDate, no, 50, acct, kRemark, 1001, kName, kPhone, 3, 0, data);
    const std::int32_t id = scalar("select FInterID from ICOrder").to_int32();
    no = kBillNo;
    data = rows();
    vipOrder().SaveData(21, kDate, no, 50, acct, kRemark, 1001, kName, kPhone, 3, id, data);
    EXPECT_EQ(row("select h.FBillNo,h.FRemark,h.FOwner,h.FPhone,s.FColor from ICOrder h "
                  "inner join ICOrderEntry_1 s on s.FInterID=h.FInterID"),
              kBillNo + "|" + kRemark + "|" + kName + "|" + kPhone + "|" + kColor);
    EXPECT_EQ(row("select FMemo from WLBill"), "会员订单：" + kBillNo);
}

TEST_F(QuotedTexts, ReceiptOrPayment) {
    SFKData sfk;
    std::string no;
    sfk.SaveData(13, kDate, no, 1, 101, 2, 50, 0, kRemark, 1, 0, 0, 0);
    const std::int32_t id = scalar("select FInterID from WLBill").to_int32();
    no = kBillNo;
    sfk.SaveData(13, kDate, no, 1, 101, 2, 50, 0, kRemark, 1, id, 0, 0);
    EXPECT_EQ(row("select FBillNo,FMemo from WLBill"), kBillNo + "|" + kRemark);
}

TEST_F(QuotedTexts, TillSaleWithPointsAndItsCorrection) {
    // The cashier's name is read from the database and written into the points history.
    exec("update t_User set FUserName='O''Brien' where FUserID=1");
    Sale s = member_sale();
    s.BillRemark = kRemark;
    s.ClassName = kName;
    s.Machine = kPhone;
    s.BillNoBegChar = "P'";
    s.lines[0].color = kColor;
    s.presend = {PreSend(7, 1, 20, 8, kMemo)};
    const std::int32_t id = save_sale(s);
    // A correction writes the number it reads back from the bill.
    s.StockBillID = id;
    const std::int32_t again = save_sale(s);
    const std::string where = " where FInterID=" + std::to_string(again);
    EXPECT_EQ(row("select FBillNo,FRemark,FClassName,FMachine from ICStockBill" + where),
              "P'250309-001|" + kRemark + "|" + kName + "|" + kPhone);
    EXPECT_EQ(row("select FColor from ICStockBillEntry_1" + where + " and FRowKey='0'"), kColor);
    EXPECT_EQ(row("select FMemo from ICStockBillEntry" + where + " and FPreSend=1"), kMemo);
    EXPECT_EQ(
        row("select FBiller,FMemo from vipjf_History where FBillInterID=" + std::to_string(again)),
        kName + "|消费增加积分,消费金额：150.00,单号:P'250309-001");
}

}  // namespace
}  // namespace billdata::testing
