// Saving a till sale.

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <utility>
#include <vector>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/billcore/costing.h"
#include "billdata/billcore/operation.h"
#include "billdata/billcore/stock_bill_writer.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"
#include "billdata/common/numbering.h"
#include "billdata/common/session.h"
#include "billdata/posdata/posdata.h"

namespace billdata {

namespace {

using ado::QuotedText;
using ado::Skeleton;
using ado::Statement;
using ado::Variant;
using common::Handler;
using common::sql_number;

// The statements a sale writes for each line and once per sale, "{}" where each value goes.
const Skeleton kSoldLine(
    "Insert Into ICStockBillEntry(FInterID,FEntryID,FrowKey,FItemID,FQty,FPrice,FAmount,FZkRate,FRetailPrice,FRetailAmount,FOddMentEntry,FZkAmount,FSalerID,FPreSend,FUnitCost,FCost,FRefInterID,FRefEntryID,FRefTranType) Values({},{},'{}',{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{})");
const Skeleton kPreSentLine(
    "Insert Into ICStockBillEntry(FInterID,FRowKey,FItemID,FQty,FPrice,FAmount,FZkRate,FRetailPrice,FRetailAmount,FZkAmount,FSalerID,FPreSend,FUnitCost,FCost,FRefInterID,FRefEntryID,FMemo) Values({},'{}',{},{},0,0,0,{},{},0,0,1,{},{},0,0,'{}')");
const Skeleton kSizeRow(
    "Insert Into ICStockBillEntry_1(FInterID,FRowKey,FItemID,FColor,FSizeID,FColorEntryID,FQty) Values({},'{}',{},'{}',{},0,{})");
const Skeleton kHeader(
    "Insert Into ICStockBill(FInterID,FTranType,FDate,FOutStockID,FBillerID,FYear,FPeriod,FSysTime,FVipID,FBillNo,FGetCash,FBzkBillAmount,FSumQty,FSumAmount,FSumRetailAmount,FSumZkAmount,FGetDyq,FGetBlank,FSumCost,FSumProfit,FSumOddMent,FRemark,FClassName,FSettleID,FQkAmount,FOrgaID,FGetAmount,FChange,FSumJf,FSeason,FMonth,FJfExchange,FGetJfAmount,FMachine,FPosGetMoney,FGetQk) values({},99,'{}',{},{},{},{},getdate(),{},'{}',{},{},{},{},{},{},{},{},{},{},{},'{}','{}',{},{},{},{},{},{},'{}','{}',{},{},'{}',{},{})");
const Skeleton kVipTotals(
    "Update Vip set FSumBuyAmount=isnull(FSumBuyAmount,0)+{},FSumJf_Un=isnull(FSumJf_Un,0)+{},FSumJf=isnull(FSumJf,0)+{},FEditTime=getdate() where FVipID={}");
const Skeleton kVipFullCard("Update Vip set FBogus=0 where FVipID={} and FSumBuyAmount>={}");
const Skeleton kPointsEarned(
    "insert into vipjf_History(FBillInterID,FVipID,FDate,Fjf,FBiller,FMemo) values({},{},'{}',{},'{}','消费增加积分,消费金额：{},单号:{}')");
const Skeleton kPointsSpent(
    "insert into vipjf_History(FBillInterID,FVipID,FDate,Fjf,FBiller,FMemo) values({},{},'{}',{},'{}','积分兑换金额：{},单号:{}')");
const Skeleton kUserName("select FUserName from t_User where FUserID={}");
const Skeleton kLentSold(
    "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icstockbillentry t1 inner join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefEntryid where t2.FInterID={} and t2.FRefTranType=27");
const Skeleton kOrderedSold(
    "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icOrderentry t1 inner join icStockBillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefEntryid where t2.FInterID={} and t2.FRefTranType=21");

// An amount with two decimals for the points-history memo, rounded half away from zero on the
// decimal digits the amount is written with (89.5 -> "89.50", 2.675 -> "2.68").
std::string format_two_decimals(double v) {
    std::string s = Variant::format_double(v);
    if (s.find_first_of("eE") != std::string::npos) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.2f", v);
        return buf;
    }
    const bool negative = s.front() == '-';
    if (negative) s.erase(0, 1);
    const auto dot = s.find('.');
    std::string whole = dot == std::string::npos ? s : s.substr(0, dot);
    std::string frac = dot == std::string::npos ? std::string() : s.substr(dot + 1);
    if (frac.size() < 3) frac.resize(3, '0');
    std::string digits = whole + frac.substr(0, 2);
    if (frac[2] >= '5') {
        int i = static_cast<int>(digits.size()) - 1;
        for (; i >= 0 && digits[i] == '9'; --i)
            digits[i] = '0';
        if (i >= 0)
            ++digits[i];
        else
            digits.insert(digits.begin(), '1');
    }
    const bool zero = digits.find_first_not_of('0') == std::string::npos;
    std::string out(negative && !zero ? "-" : "");
    out.append(digits, 0, digits.size() - 2);
    out += '.';
    out.append(digits, digits.size() - 2, 2);
    return out;
}

// The caller's fields by name, each looked up once however many rows are read. The names are
// this file's literals, so their addresses tell them apart: a small table keyed by the address
// finds a field read before at once, the list of all of them when two addresses share a slot.
class FieldsByName {
  public:
    explicit FieldsByName(ado::Recordset& rs) : rs_(rs) {}
    const Variant& operator()(const char* name) {
        auto& slot = slots_[(reinterpret_cast<std::uintptr_t>(name) * 0x9E3779B97F4A7C15ULL) >>
                            (64 - kSlotBits)];
        if (slot.first == name) return slot.second->Value();
        ado::Field* field = nullptr;
        for (const auto& [seen, f] : seen_)
            if (seen == name) field = f;
        if (!field) {
            field = &rs_.Fields(name);
            seen_.emplace_back(name, field);
        }
        slot = {name, field};
        return field->Value();
    }

  private:
    static constexpr int kSlotBits = 7;
    ado::Recordset& rs_;
    std::vector<std::pair<const char*, ado::Field*>> seen_;
    std::array<std::pair<const char*, ado::Field*>, (1u << kSlotBits)> slots_{};
};

}  // namespace

std::int32_t PosData::SaveData(std::int32_t StockID, const ado::DateTime& BillDate,
                               std::shared_ptr<ado::Recordset>& BillData, double SumAmount,
                               double GetCash, double GetBlank, double GetDyq, double OddMent,
                               const std::string& BillRemark, const std::string& ClassName,
                               double QkAmount, std::int32_t VipID, std::int32_t BillerID,
                               double GetAmount, double ChangeAmount, double GetQk,
                               std::shared_ptr<ado::Recordset> rsPreSendItem, double SumJf,
                               bool AutoDelRefBill, double AmountBogusToVip, double JfExchange,
                               double GetJfAmount, const std::string& Machine,
                               std::int32_t StockBillID, const std::string& BillNoBegChar) {
    return common::guarded(Handler::DuplicateKey, [&]() -> std::int32_t {
        billcore::Operation op(Handler::DuplicateKey);
        common::Executor& ex = op.ex();

        // A corrected sale keeps its number and whether the till has already handed in its
        // money.
        std::string bill_no;
        bool pos_get_money = false;
        if (StockBillID > 0) {
            auto rs = ex.query(
                "Select FBillNo,isnull(FPosGetMoney,0) as FPosGetMoney from icstockbill where FInterID=" +
                std::to_string(StockBillID));
            if (!rs->Eof()) {
                bill_no = rs->Fields("FbillNo").Value().to_string();
                pos_get_money = rs->Fields("FPosGetMoney").Value().to_bool();
            }
            rs->Close();
        }

        std::int32_t inter_id = 0;
        // The one size/colour row of a sold or pre-sent line, from the current row behind `v`.
        auto size_row = [&](FieldsByName& v, std::int32_t key) {
            ex.execute([&](Statement& st) {
                st.build(kSizeRow, inter_id, key, v("FItemID"), QuotedText{v("FColor").to_string()},
                         v("FSizeID"), v("FQty"));
            });
        };
        op.transaction([&] {
            if (StockBillID < 1) {
                bill_no = op.new_bill(inter_id, billcore::kind::kPosSale, BillDate, BillNoBegChar);
            } else {
                inter_id = StockBillID;
                // Removes the old sale and everything it booked, inside this transaction. A sale
                // that no longer exists is refused here and nothing is saved.
                DeleteBill(billcore::kind::kPosSale, inter_id, op.connection(), false);
            }
            // The number comes with the caller's prefix or from the bill being corrected.
            const std::string bill_no_text = common::sql_text(bill_no);
            // Two tills that drew the same id clash on the first line: take a fresh id and go on.
            op.redraw_on_clash(inter_id, billcore::kind::kPosSale);

            ado::Recordset& lines = common::require_recordset(BillData);
            std::int32_t line = 0;
            double cost_total = 0, retail_total = 0, discount_total = 0, amount_total = 0;
            // Kept at 16 bits: a sale of more than 32,767 pieces fails with an overflow.
            std::int16_t qty_total = 0;
            auto add_qty = [&](double qty) {
                qty_total = Variant(static_cast<double>(qty_total) + qty).to_int16();
            };

            for (FieldsByName v(lines); !lines.Eof(); lines.MoveNext()) {
                const double qty = v("FQty").to_double();
                const double amount = v("FAmount").to_double();
                const double retail_amount = v("FRetailAmount").to_double();
                const double unit_cost = v("FUnitCost").to_double();
                // The odd change is spread over the lines by their share of the sale amount plus
                // the odd change itself.
                double odd_entry = 0;
                if (SumAmount != 0) {
                    const double divisor = SumAmount + std::fabs(OddMent);
                    if (divisor == 0) throw ado::ComError(11, "除数为零");
                    odd_entry = Variant::round_half_even(amount / divisor * OddMent, 2);
                }
                const std::int32_t key = line;
                ex.execute([&](Statement& st) {
                    st.build(kSoldLine, inter_id, key, key, v("FItemID"), v("FQty"), v("FPrice"),
                             v("FAmount"), v("FZkRate"), v("FRetailPrice"), v("FRetailAmount"),
                             odd_entry, retail_amount - amount, v("FSalerID"), v("FPreSend"),
                             v("FUnitCost"), unit_cost * qty, v("FRefInterId"), v("FRefEntryID"),
                             v("FRefTranType"));
                });
                cost_total += qty * unit_cost;
                retail_total += retail_amount;
                discount_total += retail_amount - amount;
                amount_total += amount;
                add_qty(qty);
                size_row(v, key);
                ++line;
            }

            // Goods handed over in advance continue the line numbering; they carry no entry id, no
            // price and no amount, only their retail value and cost.
            if (rsPreSendItem) {
                ado::Recordset& items = *rsPreSendItem;
                for (FieldsByName v(items); !items.Eof(); items.MoveNext()) {
                    const double qty = v("FQty").to_double();
                    const double retail_price = v("FRetailPrice").to_double();
                    const double unit_cost = v("FUnitCost").to_double();
                    const std::int32_t key = line;
                    ex.execute([&](Statement& st) {
                        st.build(kPreSentLine, inter_id, key, v("FItemID"), v("FQty"),
                                 v("FRetailPrice"), retail_price * qty, v("FUnitCost"),
                                 unit_cost * qty, QuotedText{v("Fmemo").to_string()});
                    });
                    cost_total += unit_cost * qty;
                    retail_total += retail_price * qty;
                    add_qty(qty);
                    size_row(v, key);
                    ++line;
                }
            }

            const int year = BillDate.year();
            const int month = BillDate.month();
            const std::string season = billcore::season_text(BillDate);
            const std::string month_text = billcore::month_text(BillDate);

            // Points shrink by the share of the sale paid with odd change, vouchers and points.
            double sum_jf = SumJf;
            if (SumAmount != 0)
                sum_jf = sum_jf - Variant::round_half_even(
                                      (OddMent + GetDyq + GetJfAmount) / SumAmount * sum_jf, 2);

            const std::string date = BillDate.to_string();
            ex.execute([&](Statement& st) {
                st.build(kHeader, inter_id, date, StockID, BillerID, year, month, VipID,
                         bill_no_text, GetCash, amount_total, qty_total, SumAmount, retail_total,
                         discount_total, GetDyq, GetBlank, cost_total, SumAmount - cost_total,
                         OddMent, QuotedText{BillRemark}, QuotedText{ClassName},
                         QkAmount != 0 ? 1 : 0, QkAmount, VipID, GetAmount, ChangeAmount,
                         Variant::round_half_even(sum_jf, 2), season, month_text, JfExchange,
                         GetJfAmount, QuotedText{Machine}, pos_get_money ? 1 : 0, GetQk);
            });
            BillData.reset();

            if (VipID > 0) {
                // Both the unused balance and the lifetime total move by the points earned less
                // the points redeemed.
                const double net = sum_jf - JfExchange;
                ex.execute(
                    [&](Statement& st) { st.build(kVipTotals, SumAmount, net, net, VipID); });
                // A provisional card becomes a full card once its purchases reach the threshold.
                ex.execute([&](Statement& st) { st.build(kVipFullCard, VipID, AmountBogusToVip); });
                // The cashier's name as the user table holds it, quotes and all: the statement
                // GetUserName runs, read here on the sale's own connection (the sale writes no
                // user row) rather than on a second one opened for it.
                std::string biller;
                {
                    auto rs = ex.query([&](Statement& st) { st.build(kUserName, BillerID); });
                    biller = common::sql_text(rs->Fields("FUserName").Value().to_string());
                    rs->Close();
                }
                ex.execute([&](Statement& st) {
                    st.build(kPointsEarned, inter_id, VipID, date, sum_jf, biller,
                             format_two_decimals(SumAmount), bill_no_text);
                });
                if (JfExchange != 0) {
                    ex.execute([&](Statement& st) {
                        st.build(kPointsSpent, inter_id, VipID, date, -JfExchange, biller,
                                 format_two_decimals(GetJfAmount), bill_no_text);
                    });
                }
            }
        });

        // Outside the transaction: a failure from here on leaves the sale saved.
        ex.execute([&](Statement& st) { st.build(kLentSold, inter_id); });
        ex.execute([&](Statement& st) { st.build(kOrderedSold, inter_id); });
        if (AutoDelRefBill) {
            // Purges every fully sold order line, not only those of this sale.
            ex.execute("delete from icorderentry where FQty=isnull(FSaleqty,0)");
            ex.execute(
                "delete from icOrder where finterid not in (select finterid from icorderentry)");
            ex.execute(
                "delete from icOrderEntry_1 where finterid not in (select finterid from icorderentry)");
        }
        if (common::GetCostStyle() == 1 && StockBillID > 0)
            billcore::RecacuSptjd(op.connection(), StockBillID);
        return inter_id;
    });
}

}  // namespace billdata
