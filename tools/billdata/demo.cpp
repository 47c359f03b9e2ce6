// `billdata demo`: one day at a small chain of clothes shops, played on a fresh embedded database
// by calling the library's classes as a front end would, and told step by step.
//
// Every bill is dated the same day of the database's current period, so the bill numbers and
// the numbers shown are the same on every run.

#include <unistd.h>
#include <algorithm>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/ado/datetime.h"
#include "billdata/billcore/bill_kinds.h"
#include "billdata/common/audit.h"
#include "billdata/credit/credit.h"
#include "billdata/initdata/initdata.h"
#include "billdata/orderbill/orderbill.h"
#include "billdata/otherbill/otherbill.h"
#include "billdata/posdata/posdata.h"
#include "billdata/purrkd/purrkd.h"
#include "billdata/schema/schema.h"
#include "billdata/sfkdata/sfkdata.h"
#include "billdata/util/text.h"
#include "billdata/viporder/viporder.h"
#include "cli.h"
#include "output.h"

namespace billdata::cli {

namespace {

using ado::ComError;
using ado::DateTime;
using ado::Recordset;
using ado::Variant;
using Rows = std::vector<std::vector<Variant>>;

constexpr std::int16_t kYear = 2025;
constexpr std::int16_t kPeriod = 3;
DateTime the_day() {
    return DateTime(2025, 3, 9);
}

// Ids of the demo master data.
constexpr std::int32_t kWarehouse = 1;  // 总仓
constexpr std::int32_t kNanjingRd = 2;  // 南京路店
constexpr std::int32_t kHuaihaiRd = 3;  // 淮海路店
constexpr std::int32_t kTShirt = 1;     // 纯棉T恤, sizes S-XL
constexpr std::int32_t kShirt = 2;      // 牛津衬衫, sizes S-XL
constexpr std::int32_t kJeans = 3;      // 修身牛仔裤, sizes 28-34
constexpr std::int32_t kChinos = 4;     // 休闲裤, sizes 28-34
constexpr std::int32_t kSocks = 7;      // 棉袜三双装, no sizes
constexpr std::int32_t kSizeM = 2, kSizeL = 3, kSize30 = 6, kSize32 = 7;
constexpr std::int32_t kMetroApparel = 101;  // supplier of the shirts
constexpr std::int32_t kSenma = 102;         // supplier of the trousers
constexpr std::int32_t kLiuYang = 1001, kZhaoLi = 1002;
constexpr std::int32_t kAdmin = 1, kManagerLi = 2, kCashierWang = 3;
constexpr std::int32_t kSalesLiNa = 2;
constexpr std::int32_t kCash = 1, kBank = 2;

// A record set filled the way a front end hands bill lines over, on its first row.
std::shared_ptr<Recordset> caller_rows(const std::vector<std::string>& fields, const Rows& rows) {
    return ado::make_recordset(fields, rows);
}

// Size/colour cells of a stock or order bill: one per (row key, item, size, colour, quantity).
std::shared_ptr<Recordset> size_cells(const Rows& cells) {
    Rows rows;
    for (const auto& c : cells)
        rows.push_back({0, c[1], c[0], c[2], c[3], 0, c[4]});
    return caller_rows({"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"},
                       rows);
}

// The storyteller: numbered chapters, plain sentences, and tables read from the database.
class Narrator {
  public:
    Narrator(std::ostream& out, std::string connection)
        : out_(out), connection_(std::move(connection)) {}

    void chapter(const std::string& title) {
        const std::string heading = std::to_string(++chapter_) + ". " + title;
        out_ << "\n" << heading << "\n" << std::string(display_width(heading), '=') << "\n";
    }
    void say(const std::string& text) { out_ << text << "\n"; }

    // Runs a query and prints its rows as a table.
    void table(const std::string& sql) {
        auto cn = open();
        auto rs = cn->Execute(sql);
        print_recordset(out_, *rs, Format::Table);
        rs->Close();
    }

    // Prints the named columns of a list a class returned, in that order. A list orders its
    // bills, not the lines of one bill: rows in a run with the same first column (a bill's
    // lines) are shown by their texts, so that the day reads the same on every engine.
    void list(const std::string& caption, const std::shared_ptr<Recordset>& rs,
              const std::vector<std::string>& columns) {
        std::vector<std::vector<Variant>> rows;
        for (; !rs->Eof(); rs->MoveNext()) {
            std::vector<Variant>& row = rows.emplace_back();
            for (const auto& name : columns)
                row.push_back(last_named(*rs, name).Value());
        }
        rs->Close();
        auto texts = [](const std::vector<Variant>& row) {
            std::vector<std::string> out;
            for (const Variant& v : row)
                out.push_back(v.to_string());
            return out;
        };
        for (auto run = rows.begin(); run != rows.end();) {
            auto end = std::find_if(run, rows.end(), [&](const std::vector<Variant>& r) {
                return r.front().to_string() != run->front().to_string();
            });
            std::stable_sort(run, end,
                             [&](const auto& a, const auto& b) { return texts(a) < texts(b); });
            run = end;
        }
        auto view = Recordset::create();
        for (const auto& name : columns)
            view->GetFields().Append(name, ado::adVariant);
        view->Open();
        for (const auto& row : rows) {
            view->AddNew();
            for (std::size_t i = 0; i < columns.size(); ++i)
                view->Fields(i).SetValue(row[i]);
            view->Update();
        }
        if (!rows.empty()) view->MoveFirst();
        out_ << caption << "\n";
        print_recordset(out_, *view, Format::Table);
    }

    // A list that selects t1.* and then a column of the same name (FDeleted shown as "※")
    // means the later one.
    static ado::Field& last_named(Recordset& rs, const std::string& name) {
        auto& fields = rs.GetFields();
        for (std::size_t i = fields.Count(); i-- > 0;)
            if (util::iequals(fields.Item(i).Name(), name)) return fields.Item(i);
        return fields.Item(name);  // the data layer's own "no such field" error
    }

    // The first column of the first row of a query (Empty when there is none).
    Variant value(const std::string& sql) {
        auto cn = open();
        auto rs = cn->Execute(sql);
        Variant v = rs->Eof() ? Variant() : rs->Fields(std::size_t{0}).Value();
        rs->Close();
        return v;
    }

    // Stock on hand of an item in a stock, over every live bill.
    double stock(std::int32_t stock_id, std::int32_t item_id) {
        return common::GetStockQty(open(), stock_id, item_id, 0);
    }

    const std::string& connection() const { return connection_; }

  private:
    std::shared_ptr<ado::Connection> open() {
        auto cn = ado::Connection::create();
        cn->Open(connection_);
        return cn;
    }

    std::ostream& out_;
    std::string connection_;
    int chapter_ = 0;
};

// A save that reports failure without raising an error is as unexpected as an error.
void saved(bool ok, const std::string& what) {
    if (!ok) throw ComError(ado::err::kDatabase, what + " was not saved");
}

std::string num(double v) {
    return Variant::format_double(v);
}
std::string id(std::int32_t v) {
    return std::to_string(v);
}

// The T-shirt's lines on every live stock bill, price-adjustment rows included: where the
// purchase price goes, this shows it.
constexpr const char* kTShirtTrail =
    "select t1.FBillNo,t2.FEntryID,isnull(t3.FName,'') as FTjStock,t2.FQty,"
    "t2.FPrice,t2.FHisPrice,t2.FUnitCost,t2.FAmount,t2.FMemo from ICStockBill t1 inner join "
    "ICStockBillEntry t2 on t1.FInterID=t2.FInterID left join t_Stock t3 on "
    "t2.FTjStockID=t3.FItemID where t2.FItemID=1 and isnull(t1.FDeleted,0)=0 order by "
    "t1.FInterID,t2.FEntryID desc";

class ShopDay {
  public:
    ShopDay(std::ostream& out, const std::string& connection) : n_(out, connection) {}

    void run() {
        opening_stock();
        morning_delivery();
        transfer();
        till_sales();
        afternoon_delivery();
        corrected_invoice();
        member_order();
        order_with_advance();
        lending();
        audit();
        void_and_restore();
        lists_of_the_day();
    }

  private:
    const std::string& cs() const { return n_.connection(); }

    void opening_stock() {
        n_.chapter("Opening stock");
        n_.say(
            "A new shop database with the demo master data: a warehouse and two shops, seven "
            "items,\nthree members. The opening stock was typed in per stock and item:");
        n_.table(
            "select t2.FName as FStock,t3.FName as FItem,t1.FQty,t1.FPrice,t1.FAmount from "
            "ICInitData t1 inner join t_Stock t2 on t1.FStockID=t2.FItemID inner join t_ICItem "
            "t3 on t1.FItemID=t3.FItemID order by t1.FStockID,t1.FItemID");
        InitData().CloseICInit(cs(), kYear, kPeriod);
        n_.say(
            "InitData.CloseICInit closes it into the balances of March 2025 and marks the stock "
            "side closed:");
        n_.table(
            "select t2.FName as FStock,count(*) as FItems,sum(t1.FBegQty) as FBegQty,"
            "sum(t1.FBegBal) as FBegBal from ICBal t1 inner join t_Stock t2 on "
            "t1.FStockID=t2.FItemID where t1.FYear=2025 and t1.FPeriod=3 group by t2.FName");
        n_.table("select FKey,FValue from t_SystemProfile where FKey='ICClosed'");
    }

    // A purchase receipt of one line per (row key, item, quantity, price, previous price).
    std::int32_t receive(std::string& bill_no, std::int32_t old_id, const Rows& lines,
                         const Rows& cells) {
        Rows rows;
        double qty = 0, amount = 0;
        for (const auto& l : lines) {
            const double q = l[2].to_double(), p = l[3].to_double();
            const double retail =
                n_.value("select FRetailPrice from t_ICItem where FItemID=" + l[1].to_string())
                    .to_double();
            rows.push_back({l[1], l[0], q, p, q * p, retail, q * retail, 1, "", l[4]});
            qty += q;
            amount += q * p;
        }
        auto rs = caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                               "FRetailAmount", "FZkRate", "FMemo", "FHisPrice"},
                              rows);
        PurRkd receipts;
        receipts.Init(cs(), kYear, kPeriod);
        std::int32_t inter_id = old_id;
        saved(
            receipts.SaveData(112, the_day(), bill_no, kWarehouse, kMetroApparel, kBank, "美邦到货",
                              kAdmin, 0, inter_id, rs, qty, amount, size_cells(cells)),
            "the purchase receipt");
        return inter_id;
    }

    double purchase_price(std::int32_t item) {
        return n_.value("select FPurPrice from t_ICItem where FItemID=" + id(item)).to_double();
    }

    void adjustment_rows(std::int32_t bill) {
        n_.table(
            "select t1.FEntryID,t2.FName as FTjStock,t1.FQty,t1.FPrice,t1.FAmount,t1.FMemo,"
            "t1.FHisPrice from ICStockBillEntry t1 inner join t_Stock t2 on "
            "t1.FTjStockID=t2.FItemID where t1.FInterID=" +
            id(bill) + " and t1.FEntryID<0 order by t1.FTjStockID");
    }

    void morning_delivery() {
        n_.chapter("Morning delivery: purchase receipt at a new price");
        const double before = purchase_price(kTShirt);
        n_.say(
            "美邦服饰 Metro Apparel delivers 30 T-shirts and 10 Oxford shirts to the warehouse.");
        n_.say("The T-shirt's purchase price was " + num(before) +
               "; this delivery costs 42. The shirts keep their 85.");
        morning_price_ = before;
        receipt_a_ =
            receive(receipt_a_no_, 0, {{"1", kTShirt, 30, 42, before}, {"2", kShirt, 10, 85, 85}},
                    {{"1", kTShirt, kSizeM, "黑色", 20},
                     {"1", kTShirt, kSizeL, "白色", 10},
                     {"2", kShirt, kSizeM, "蓝色", 10}});
        n_.say("PurRkd.SaveData (kind 112) saved receipt " + receipt_a_no_ +
               ". The item's purchase price is now " + num(purchase_price(kTShirt)) + ".");
        n_.say(
            "The goods already on hand are revalued by the difference: one price-adjustment row "
            "per\nstock that holds T-shirts (quantity 0, the revalued quantity in FMemo). The "
            "shirts, at an\nunchanged price, get none:");
        adjustment_rows(receipt_a_);
    }

    void show_stock(std::int32_t item, const std::string& name) {
        auto rs = caller_rows({"FItem", "FStock", "FQty"}, {});
        for (std::int32_t s : {kWarehouse, kNanjingRd, kHuaihaiRd}) {
            rs->AddNew();
            rs->Fields(std::size_t{0}).SetValue(name);
            rs->Fields(1).SetValue(
                n_.value("select FName from t_Stock where FItemID=" + id(s)).to_string());
            rs->Fields(2).SetValue(n_.stock(s, item));
            rs->Update();
        }
        rs->MoveFirst();
        n_.list("Stock on hand:", rs, {"FItem", "FStock", "FQty"});
    }

    void transfer() {
        n_.chapter("Transfer from the warehouse to the Nanjing Rd shop");
        auto lines = caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                                  "FRetailAmount", "FZkRate", "FMemo"},
                                 {{kTShirt, "1", 20, 42, 20 * 42, 99, 20 * 99, 1, ""}});
        auto cells =
            size_cells({{"1", kTShirt, kSizeM, "黑色", 10}, {"1", kTShirt, kSizeL, "白色", 10}});
        OtherBill bills;
        bills.Init(cs(), kYear, kPeriod);
        transfer_ = 0;
        saved(bills.SaveData(31, the_day(), transfer_no_, kNanjingRd, "补货", kWarehouse, "",
                             kManagerLi, transfer_, lines, cells),
              "the transfer");
        n_.say("OtherBill.SaveData (kind 31) saved transfer " + transfer_no_ +
               ": 20 T-shirts at the day's price of 42.");
        show_stock(kTShirt, "纯棉T恤");
    }

    // A till line: item, quantity, sale price, retail price, unit cost, colour, size.
    static std::vector<Variant> till_line(std::int32_t item, double qty, double price,
                                          double retail, double cost, const std::string& color,
                                          std::int32_t size) {
        const double rate = Variant::round_half_even(price / retail, 2);
        return {item, qty, price * qty, rate, retail, retail * qty, kSalesLiNa, 0,
                cost, 0,   0,           0,    color,  size,         price};
    }

    std::int32_t sell(const Rows& lines, double sum_amount, double cash, std::int32_t vip,
                      double points, double points_used, double paid_by_points) {
        auto rs = caller_rows({"FItemID", "FQty", "FAmount", "FZkRate", "FRetailPrice",
                               "FRetailAmount", "FSalerID", "FPreSend", "FUnitCost", "FRefInterId",
                               "FRefEntryID", "FRefTranType", "FColor", "FSizeID", "FPrice"},
                              lines);
        PosData till;
        till.Init(cs(), kYear, kPeriod);
        return till.SaveData(kNanjingRd, the_day(), rs, sum_amount, cash, 0, 0, 0, "", "早班", 0,
                             vip, kCashierWang, cash, cash + paid_by_points - sum_amount, 0,
                             nullptr, points, false, 1000, points_used, paid_by_points, "POS-01", 0,
                             "");
    }

    std::string bill_no(std::int32_t inter_id) {
        return n_.value("select FBillNo from ICStockBill where FInterID=" + id(inter_id))
            .to_string();
    }

    void show_members() {
        n_.table(
            "select FVipID,FVipNo,FOwner,FSumJf,FSumJf_Un,FSumBuyAmount,FBogus from Vip where "
            "FVipID in (1001,1002) order by FVipID");
    }

    void till_sales() {
        n_.chapter("Till sales at the Nanjing Rd shop");
        n_.say("The members' cards before the first sale:");
        show_members();

        const double cost = purchase_price(kTShirt);
        sale_1_ = sell({till_line(kTShirt, 2, 89, 99, cost, "黑色", kSizeM),
                        till_line(kSocks, 1, 39, 39, 12, "", 0)},
                       217, 220, kLiuYang, 217, 0, 0);
        n_.say(
            "PosData.SaveData: 刘洋 Liu Yang shows card V0001 and buys two T-shirts at 89 and "
            "socks at 39:\nsale " +
            bill_no(sale_1_) + ", 217 paid in cash, 217 points earned.");
        sale_2_ = sell({till_line(kJeans, 1, 229, 259, 110, "蓝色", kSize30)}, 229, 224, kZhaoLi,
                       343.5, 50, 5);
        n_.say(
            "赵丽 Zhao Li buys jeans at the member price of 229, pays 5 of it with 50 points "
            "and earns\npoints at the jeans' factor of 1.5: sale " +
            bill_no(sale_2_) + ".");
        sale_3_ = sell({till_line(kSocks, 3, 39, 39, 12, "", 0)}, 117, 120, 0, 0, 0, 0);
        n_.say("A walk-in customer buys three packs of socks without a card: sale " +
               bill_no(sale_3_) + ".");
        n_.say("\nThe cards afterwards (points, points not yet used, purchase total):");
        show_members();
        n_.say("Their points history (vipjf_History):");
        n_.table(
            "select t1.FVipID,t2.FBillNo,t1.Fjf,t1.FBiller,t1.FMemo from vipjf_History t1 inner "
            "join ICStockBill t2 on t1.FBillInterID=t2.FInterID order by t1.FBillInterID,t1.Fjf "
            "desc");
    }

    void afternoon_delivery() {
        n_.chapter("Afternoon delivery at a second price");
        n_.say("The T-shirt line of sale " + bill_no(sale_1_) + " was costed at " +
               num(purchase_price(kTShirt)) +
               ".\nIn the afternoon 40 more T-shirts arrive, now at 45:");
        receipt_b_ =
            receive(receipt_b_no_, 0, {{"1", kTShirt, 40, 45, purchase_price(kTShirt)}},
                    {{"1", kTShirt, kSizeM, "黑色", 20}, {"1", kTShirt, kSizeL, "白色", 20}});
        n_.say("Receipt " + receipt_b_no_ + " saved; the purchase price is now " +
               num(purchase_price(kTShirt)) +
               ". The T-shirts on hand when it came\nin are revalued by 3 each, stock by stock:");
        adjustment_rows(receipt_b_);
        n_.say(
            "Every T-shirt line of the day, in the order the bills were entered (negative entries "
            "are\nadjustments):");
        n_.table(kTShirtTrail);
    }

    void corrected_invoice() {
        n_.chapter("The supplier corrects the morning invoice");
        n_.say(
            "Metro Apparel's invoice for the morning delivery says 41, not 42. The receipt is "
            "saved\nagain under the same id and number (PurRkd.SaveData with OldInterID):");
        receive(receipt_a_no_, receipt_a_,
                {{"1", kTShirt, 30, 41, morning_price_}, {"2", kShirt, 10, 85, 85}},
                {{"1", kTShirt, kSizeM, "黑色", 20},
                 {"1", kTShirt, kSizeL, "白色", 10},
                 {"2", kShirt, kSizeM, "蓝色", 10}});
        n_.table(kTShirtTrail);
        n_.say(
            "The new price ran forward through the later bills: the transfer and the sale "
            "between the\ntwo deliveries now carry 41, the afternoon receipt's previous price "
            "(FHisPrice) is 41 and its\nadjustment rows revalue by 4; the purchase price stays " +
            num(purchase_price(kTShirt)) + ", the latest delivery's.");
    }

    void member_order() {
        n_.chapter("A member order with an earnest");
        auto rows = caller_rows(
            {"FItemID", "FSalerID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice",
             "FRetailAmount", "FUnitCost", "FPreSend", "FColor", "FSizeID"},
            {{kChinos, kSalesLiNa, 2, 199, 398, 199.0 / 229, 229, 458, 95, 0, "灰色", kSize30}});
        vipOrder orders;
        orders.Init(cs(), kYear, kPeriod);
        std::int32_t account = kCash;
        orders.SaveData(21, the_day(), member_order_no_, 100, account, "到货通知", kZhaoLi,
                        "赵丽 Zhao Li", "13800000002", kCashierWang, 0, rows);
        n_.say(
            "Zhao Li orders two chinos in grey, size 30, that the shop does not have, and "
            "pays an\nearnest of 100. vipOrder.SaveData writes order " +
            member_order_no_ + " and the receipt of the earnest:");
        n_.table(
            "select FBillNo,FTranType,FSumQty,FSumAmount,FEarnest,FOwner,FPhone from ICOrder "
            "where FTranType=21");
        n_.table("select FBillNo,FTranType,FSumAmount,FMemo from WLBill where FTranType=23");
    }

    void order_with_advance() {
        n_.chapter("An order placed with a supplier, paid in advance");
        auto lines = caller_rows({"FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                                  "FRetailPrice", "FRetailAmount", "FMemo"},
                                 {{kChinos, "1", 20, 1, 95, 1900, 229, 4580, "春季补货"}});
        auto cells =
            size_cells({{"1", kChinos, kSize30, "灰色", 10}, {"1", kChinos, kSize32, "灰色", 10}});
        OrderBill orders;
        orders.Init(cs(), kYear, kPeriod);
        std::int32_t inter_id = 0;
        saved(orders.SaveData(11, the_day(), order_no_, kSenma, "三月订货", kManagerLi, inter_id,
                              lines, 1000, kBank, cells) == "True",
              "the order");
        n_.say(
            "The chinos are running out: 20 are ordered from 森马纺织 Senma Textiles at 95, "
            "with 1000 paid\nin advance from the bank. OrderBill.SaveData writes order " +
            order_no_ +
            " and then, through SFKData,\nthe payment bill of the advance "
            "(kind 13) pointing at it:");
        n_.table(
            "select FBillNo,FTranType,FSumQty,FSumAmount,FEarnest from ICOrder where "
            "FTranType=11");
        n_.table(
            "select t1.FBillNo,t1.FTranType,t1.FSumAmount,t2.FBillNo as FOrderBillNo from WLBill "
            "t1 inner join ICOrder t2 on t1.FOrderBillID=t2.FInterID where t1.FTranType=13");
    }

    std::int32_t credit_bill(std::int16_t kind, std::string& bill_no, double qty,
                             std::int32_t ref_inter, std::int32_t ref_entry) {
        const double cost = purchase_price(kTShirt);
        auto lines = caller_rows(
            {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice", "FRetailAmount",
             "FZkRate", "FMemo", "FUnitCost", "FRefInterID", "FRefEntryID"},
            {{kTShirt, "1", qty, 89, qty * 89, 99, qty * 99, 89.0 / 99, "", cost, ref_inter,
              ref_entry}});
        auto cells = size_cells({{"1", kTShirt, kSizeL, "白色", qty}});
        Credit credit;
        credit.Init(cs(), kYear, kPeriod);
        std::int32_t inter_id = 0;
        saved(credit.SaveData(kind, the_day(), bill_no, kNanjingRd, kLiuYang, "刘洋 Liu Yang",
                              "13800000001", "试穿", kCashierWang, inter_id, lines, cells),
              "the credit bill");
        return inter_id;
    }

    void show_lent_line() {
        n_.table(
            "select t1.FBillNo,t2.FEntryID,t2.FQty,isnull(t2.FRtnQty,0) as FRtnQty,"
            "isnull(t2.FSaleQty,0) as FSaleQty from ICStockBill t1 inner join ICStockBillEntry "
            "t2 on t1.FInterID=t2.FInterID where t1.FInterID=" +
            id(lent_) + " and t2.FEntryID>=0");
    }

    void lending() {
        n_.chapter("Goods lent to a member, partly returned");
        const double before = n_.stock(kNanjingRd, kTShirt);
        lent_ = credit_bill(27, lent_no_, 3, 0, 0);
        n_.say(
            "Liu Yang takes three white T-shirts, size L, home to try: Credit.SaveData kind 27 "
            "saves\n" +
            lent_no_ + ". T-shirts at the Nanjing Rd shop: " + num(before) + " before, " +
            num(n_.stock(kNanjingRd, kTShirt)) + " now.");
        const auto entry =
            n_.value("select min(FEntryID) from ICStockBillEntry where FInterID=" + id(lent_) +
                     " and FEntryID>=0")
                .to_int32();
        returned_ = credit_bill(17, returned_no_, 2, lent_, entry);
        n_.say("She brings two back: kind 17 saves " + returned_no_ +
               ", its line pointing at the lent line.\nT-shirts at the shop now: " +
               num(n_.stock(kNanjingRd, kTShirt)) + ". The lent line counts what came back:");
        show_lent_line();
    }

    void audit() {
        n_.chapter("Audit, and a delete the audit forbids");
        billcore::SetCheckMark(billcore::kind::kPurchaseReceipt, id(receipt_b_), kManagerLi);
        n_.say("Manager Li audits the afternoon receipt " + receipt_b_no_ +
               " (common::SetCheckMark):");
        n_.table("select FBillNo,FCheckerID from ICStockBill where FInterID=" + id(receipt_b_));
        n_.say("Someone then tries to delete it with PurRkd.DeleteBill:");
        bool refused = false;
        try {
            PurRkd().DeleteBill(112, receipt_b_);
        } catch (const ComError& e) {
            if (e.number() != ado::err::kComponent) throw;
            refused = true;
            n_.say("  refused, error " + std::to_string(e.number()) + ": " + e.description());
        }
        if (!refused)
            throw ComError(ado::err::kDatabase,
                           "the audited receipt " + receipt_b_no_ + " was deleted");
        n_.say("The receipt is still there: " +
               n_.value("select count(*) from ICStockBill where FInterID=" + id(receipt_b_))
                   .to_string() +
               " row.");
    }

    void show_sales() {
        PosData till;
        n_.list("PosData.GetBillList_Simple:", till.GetBillList_Simple(99, ""),
                {"FBillNo", "FVipCard", "FDeleted", "FSumQty", "FSumAmount", "FCost", "FProfit"});
    }

    void void_and_restore() {
        n_.chapter("A sale voided, then restored");
        PosData till;
        till.Init(cs(), kYear, kPeriod);
        const std::string no = bill_no(sale_3_);
        till.DeleteBill(99, sale_3_, nullptr, true);
        n_.say("The walk-in sale " + no +
               " was rung up by mistake: PosData.DeleteBill with DoBlankOut\nvoids it. It stays "
               "in the list, marked ※, and its socks are back on the shelf (" +
               num(n_.stock(kNanjingRd, kSocks)) + " packs):");
        show_sales();
        till.UnblankOut(sale_3_);
        n_.say("It was a real sale after all: PosData.UnblankOut restores it (" +
               num(n_.stock(kNanjingRd, kSocks)) + " packs on the shelf):");
        show_sales();
    }

    void lists_of_the_day() {
        n_.chapter("The lists of the day");
        const std::vector<std::string> stock_bill = {"FBillNo", "FDeleted", "FChecked", "FSumQty",
                                                     "FSumAmount"};
        n_.list("Purchase receipts (PurRkd.GetBillList_Simple 112):",
                PurRkd().GetBillList_Simple(112, ""), stock_bill);
        n_.list("Transfers (OtherBill.GetBillList_Simple 31):",
                OtherBill().GetBillList_Simple(31, ""), stock_bill);
        n_.list("Till sales (PosData.GetBillList 99, one row per colour and size):",
                PosData().GetBillList(99, ""),
                {"FBillNo", "FVipCard", "FDeleted", "FName", "FColor", "FSize", "FQty", "FPrice"});
        n_.list("Member orders (vipOrder.GetBillList 21):", vipOrder().GetBillList(21, ""),
                {"FBillNo", "FDeleted", "FName", "FColor", "FSize", "FQty", "FEarnest"});
        n_.list("Orders (OrderBill.GetBillList_Simple 11):", OrderBill().GetBillList_Simple(11, ""),
                {"FBillNo", "FDeleted", "FSumQty", "FSumAmount", "FEarnest"});
        const std::vector<std::string> money = {"FBillNo", "FDeleted", "FSumAmount", "FMemo"};
        n_.list("Receipts (SFKData.GetBillList 23):", SFKData().GetBillList(23, ""), money);
        n_.list("Payments (SFKData.GetBillList 13):", SFKData().GetBillList(13, ""), money);
        const std::vector<std::string> lent = {"FBillNo", "FOwner", "FPhone", "FColor", "FQty"};
        n_.list("Goods lent (Credit.GetBillList 27):", Credit().GetBillList(27, ""), lent);
        n_.list("Lent goods returned (Credit.GetBillList 17):", Credit().GetBillList(17, ""), lent);
    }

    Narrator n_;
    double morning_price_ = 0;
    std::int32_t receipt_a_ = 0, receipt_b_ = 0, transfer_ = 0;
    std::int32_t sale_1_ = 0, sale_2_ = 0, sale_3_ = 0, lent_ = 0, returned_ = 0;
    std::string receipt_a_no_, receipt_b_no_, transfer_no_, member_order_no_, order_no_;
    std::string lent_no_, returned_no_;
};

// A scratch folder for a database nobody named, removed afterwards unless it is to be kept.
class ScratchDir {
  public:
    ScratchDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "billdata-demo-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw ComError(ado::err::kDatabase, "cannot make a temporary folder for the demo");
        path_ = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!keep_) std::filesystem::remove_all(path_, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    void keep() { keep_ = true; }

  private:
    std::filesystem::path path_;
    bool keep_ = false;
};

}  // namespace

int run_demo(const std::string& db, bool keep) {
    std::optional<ScratchDir> scratch;
    std::string path = db;
    if (path.empty()) {
        scratch.emplace();
        path = (scratch->path() / "shop.db").string();
    }
    const bool server = schema::is_server_database(path);
    if (!server && path.find('"') != std::string::npos)
        throw ComError(ado::err::kConnection, "the demo's database path must not contain '\"'");
    schema::create_database(path, true, kYear, kPeriod);
    std::cout << "billdata demo: one day, Sunday 9 March 2025, at a small chain of clothes "
                 "shops.\nDatabase: "
              << path << "\n";

    ShopDay(std::cout, server ? path : "Provider=SQLite;Data Source=\"" + path + "\"").run();

    if (scratch && keep) scratch->keep();
    std::cout << "\nThe day is done. "
              << (scratch && !keep ? "The database was a temporary file and is removed again."
                                   : "The database stays at " + path + ".")
              << "\n";
    return 0;
}

}  // namespace billdata::cli
