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
        const auto all = query_rows(connection_string(), sql);
        return all.empty() ? "" : all[0];
    }
    // Saves a new bill, then saves it again under its id and the quoted number; its id.
    template <class Save>
    static std::int32_t saved_twice(Save&& save) {
        std::int32_t id = 0;
        for (std::string no : {std::string(), kBillNo})
            save(no, id);
        return id;
    }
    // Number, remark, first line's key and note, and its size row's key and colour of a bill in
    // the stock-bill tables (or, `order`, the order tables).
    std::string bill(std::int32_t id, bool order = false) const {
        const std::string t = order ? "ICOrder" : "ICStockBill";
        return row("select h.FBillNo,h.FRemark,e.FRowKey,e.FMemo,s.FRowKey,s.FColor from " + t +
                   " h inner join " + t + "Entry e on e.FInterID=h.FInterID and e.FEntryID=" +
                   (order ? "0" : "1") + " inner join " + t +
                   "Entry_1 s on s.FInterID=h.FInterID and s.FRowKey=e.FRowKey where h.FInterID=" +
                   std::to_string(id));
    }
    // One size/colour cell of the T-shirt under the line key with the quote.
    static std::shared_ptr<ado::Recordset> cells() {
        return size_cells({{0, 1, kKey, 2, kColor, 1, 2}});
    }
    // One line of the T-shirt under that key, with these fields after FItemID and FRowKey.
    static std::shared_ptr<ado::Recordset> line(std::vector<std::string> names,
                                                std::vector<ado::Variant> values) {
        names.insert(names.begin(), {"FItemID", "FRowKey"});
        values.insert(values.begin(), {1, kKey});
        return caller_rows(names, {values});
    }
    const std::string expected_ =
        kBillNo + "|" + kRemark + "|" + kKey + "|" + kMemo + "|" + kKey + "|" + kColor;
};

// The stock bills' and orders' lines: new, then changed under the quoted number.
TEST_F(QuotedTexts, StockBillsAndOrders) {
    const std::vector<std::string> stock = {"FQty",          "FPrice",  "FAmount", "FRetailPrice",
                                            "FRetailAmount", "FZkRate", "FMemo"};
    const std::vector<ado::Variant> values = {2, 40, 80, 99, 198, 0.8, kMemo};
    auto with = [](std::vector<std::string> a, std::vector<std::string> b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    auto also = [&](std::vector<ado::Variant> b) {
        std::vector<ado::Variant> a = values;
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    EXPECT_EQ(bill(saved_twice([&](std::string& no, std::int32_t& id) {
                  auto rs = line(with(stock, {"FHisPrice"}), also({40}));
                  ASSERT_TRUE(PurRkd().SaveData(112, kDate, no, 2, 102, 2, kRemark, 1, 0, id, rs, 2,
                                                80, cells()));
              })),
              expected_);
    EXPECT_EQ(bill(saved_twice([&](std::string& no, std::int32_t& id) {
                  auto rs = line(stock, values);
                  auto detail = cells();
                  ASSERT_TRUE(
                      OtherBill().SaveData(31, kDate, no, 2, kName, 1, kRemark, 4, id, rs, detail));
              })),
              expected_);
    EXPECT_EQ(row("select FCause from ICStockBill where FTranType=31"), kName);
    EXPECT_EQ(bill(saved_twice([&](std::string& no, std::int32_t& id) {
                  auto rs = line(with(stock, {"FUnitCost", "FRefInterID", "FRefEntryID"}),
                                 also({30, 0, 0}));
                  auto detail = cells();
                  ASSERT_TRUE(Credit().SaveData(27, kDate, no, 2, 1001, kName, kPhone, kRemark, 1,
                                                id, rs, detail));
              })),
              expected_);
    EXPECT_EQ(row("select FOwner,FPhone from ICStockBill where FTranType=27"),
              kName + "|" + kPhone);
    EXPECT_EQ(bill(saved_twice([&](std::string& no, std::int32_t& id) {
                       auto rs = line(stock, values);
                       auto detail = cells();
                       ASSERT_EQ(OrderBill().SaveData(11, kDate, no, 101, kRemark, 1, id, rs, 0, 2,
                                                      detail),
                                 "True");
                   }),
                   true),
              expected_);
}

// A member order and a money bill give the caller no id: the second save names the first's.
TEST_F(QuotedTexts, MemberOrderItsReceiptAndAPayment) {
    saved_twice([&](std::string& no, std::int32_t& id) {
        auto data = caller_rows(
            {"FItemID", "FSalerID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice",
             "FRetailAmount", "FUnitCost", "FPreSend", "FColor", "FSizeID"},
            {{1, 1, 2, 40, 80, 0.8, 99, 198, 30, 0, kColor, 2}});
        std::int32_t acct = 2;
        vipOrder().SaveData(21, kDate, no, 50, acct, kRemark, 1001, kName, kPhone, 3, id, data);
        id = scalar("select FInterID from ICOrder").to_int32();
    });
    EXPECT_EQ(row("select h.FBillNo,h.FRemark,h.FOwner,h.FPhone,s.FColor from ICOrder h "
                  "inner join ICOrderEntry_1 s on s.FInterID=h.FInterID"),
              kBillNo + "|" + kRemark + "|" + kName + "|" + kPhone + "|" + kColor);
    EXPECT_EQ(row("select FMemo from WLBill"), "会员订单：" + kBillNo);

    const std::int32_t payment = saved_twice([&](std::string& no, std::int32_t& id) {
        SFKData().SaveData(13, kDate, no, 1, 101, 2, 50, 0, kRemark, 1, id, 0, 0);
        id = scalar("select FInterID from WLBill where FTranType=13").to_int32();
    });
    EXPECT_EQ(row("select FBillNo,FMemo from WLBill where FInterID=" + std::to_string(payment)),
              kBillNo + "|" + kRemark);
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
