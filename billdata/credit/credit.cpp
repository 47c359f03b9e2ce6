#include "billdata/credit/credit.h"

#include <map>
#include <utility>
#include <vector>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/billcore/costing.h"
#include "billdata/billcore/operation.h"
#include "billdata/billcore/stock_bill_writer.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/filter_guard.h"
#include "billdata/common/handlers.h"
#include "billdata/common/numbering.h"
#include "billdata/common/session.h"

namespace billdata {

namespace {

using ado::ComError;
using ado::Variant;
using common::Executor;
using common::Handler;

constexpr std::int16_t kLend = billcore::kind::kCreditLend;
constexpr std::int16_t kReturn = billcore::kind::kCreditReturn;

// Returned quantities are compared after sums of decimals: a hair above what is out is rounding.
constexpr double kQtyTolerance = 1e-9;

using common::sql_number;

// A reference to a lent line: a lending line refers to nothing, so an unset value means 0.
std::string reference_text(const Variant& value) {
    if (value.is_empty() || value.is_null()) return "0";
    return sql_number(value);
}

// One line of the caller's RsBill, read and checked before any write: each value as its
// statement writes it.
struct Line {
    std::string item, row_key, qty, price, amount, retail_price, retail_amount, zk_rate, memo,
        unit_cost, cost, ref_inter, ref_entry;
    std::int32_t item_id = 0, ref_inter_id = 0, ref_entry_id = 0;
    double qty_value = 0;
};

Line read_line(ado::Recordset& rs) {
    Line l;
    l.item = sql_number(rs.Fields("FItemID").Value());
    l.row_key = common::sql_text(rs.Fields("FRowKey").Value().to_string());
    l.qty = sql_number(rs.Fields("FQty").Value());
    l.price = sql_number(rs.Fields("FPrice").Value());
    l.amount = sql_number(rs.Fields("FAmount").Value());
    l.retail_price = sql_number(rs.Fields("FRetailPrice").Value());
    l.retail_amount = sql_number(rs.Fields("FRetailAmount").Value());
    l.zk_rate = sql_number(rs.Fields("FZkRate").Value());
    l.memo = common::sql_text(rs.Fields("FMemo").Value().to_string());
    l.unit_cost = sql_number(rs.Fields("FUnitCost").Value());
    l.ref_inter = reference_text(rs.Fields("FRefInterID").Value());
    l.ref_entry = reference_text(rs.Fields("FRefEntryID").Value());
    l.item_id = rs.Fields("FItemID").Value().to_int32();
    l.ref_inter_id = Variant(l.ref_inter).to_int32();
    l.ref_entry_id = Variant(l.ref_entry).to_int32();
    l.qty_value = Variant(l.qty).to_double();
    l.cost = sql_number(l.qty_value * Variant(l.unit_cost).to_double());
    return l;
}

// The size/colour cells of rsBillDetail that are live (FDel 0), from its first row: each as the
// rest of its insert after the interior id.
std::vector<std::string> read_detail_rows(const std::shared_ptr<ado::Recordset>& rs) {
    std::vector<std::string> rows;
    if (!rs || (rs->Bof() && rs->Eof())) return rows;
    rs->MoveFirst();
    while (!rs->Eof()) {
        if (rs->Fields("FDel").Value().to_double() == 0) {
            rows.push_back(std::string(",").append(sql_number(rs->Fields("FItemID").Value())) +
                           ",'" + common::sql_text(rs->Fields("FRowKey").Value().to_string()) +
                           "'," + sql_number(rs->Fields("FSizeiD").Value()) + ",'" +
                           common::sql_text(rs->Fields("FColor").Value().to_string()) + "'," +
                           sql_number(rs->Fields("FColorEntryID").Value()) + "," +
                           sql_number(rs->Fields("FQty").Value()) + ")");
        }
        rs->MoveNext();
    }
    return rows;
}

// Returned quantities of the lent lines that the returns of bill `id` refer to: raised by a
// return as it is saved or restored, lowered while it is live and is voided, deleted or rewritten.
std::string raise_returned_sql(std::int32_t id) {
    return "Update t1 set t1.FRtnQty=isnull(t1.FRtnQty,0)+t2.FQty from icstockbillentry t1 inner "
           "join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid "
           "where t2.FInterID=" +
           std::to_string(id) + " and t2.FRefTranType=27";
}

std::string raise_returned_of_void_sql(std::int32_t id) {
    return "Update t1 set t1.FRtnQty=isnull(t1.FRtnQty,0)+t2.FQty from icstockbillentry t1 inner "
           "join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid "
           "inner join icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=" +
           std::to_string(id) + " and isnull(t3.FDeleted,0)=1 and t2.FRefTranType=27";
}

std::string lower_returned_sql(std::int32_t id) {
    return "Update t1 set t1.FRtnQty=isnull(t1.FRtnQty,0)-t2.FQty from icstockbillentry t1 inner "
           "join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid "
           "inner join icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=" +
           std::to_string(id) + " and isnull(t3.FDeleted,0)=0 and t2.FRefTranType=27";
}

// A return may only take back what is still out on the lent line: its quantity less what was
// returned and sold already, plus what this bill itself returned before it was rewritten.
void check_returns(Executor& ex, const std::vector<Line>& lines, std::int32_t old_inter_id) {
    std::map<std::pair<std::int32_t, std::int32_t>, double> taken;
    for (std::size_t n = 0; n < lines.size(); ++n) {
        const Line& l = lines[n];
        const std::string line_no = std::to_string(n + 1);
        auto lent = ex.query(
            "select t1.FItemID,t1.FQty,isnull(t1.FRtnQty,0) as FRtnQty,isnull(t1.FSaleQty,0) as "
            "FSaleQty from icstockbillentry t1 inner join icstockbill t3 on "
            "t1.finterid=t3.finterid where t1.FInterID=" +
            l.ref_inter + " and t1.FEntryID=" + l.ref_entry +
            " and t3.FTranType=27 and isnull(t3.FDeleted,0)=0");
        if (lent->Eof() || lent->Fields("FItemID").Value().to_int32() != l.item_id)
            throw ComError::component("借还单据第" + line_no + "行找不到对应的借出记录!");
        double out = lent->Fields("FQty").Value().to_double() -
                     lent->Fields("FRtnQty").Value().to_double() -
                     lent->Fields("FSaleQty").Value().to_double();
        lent->Close();
        if (old_inter_id > 0) {
            auto own = ex.query(
                "select isnull(sum(t2.FQty),0) as FQty from icstockbillentry t2 inner join "
                "icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=" +
                std::to_string(old_inter_id) +
                " and isnull(t3.FDeleted,0)=0 and t2.FRefTranType=27 and t2.FRefInterID=" +
                l.ref_inter + " and t2.FRefEntryID=" + l.ref_entry);
            if (!own->Eof()) out += own->Fields("FQty").Value().to_double();
            own->Close();
        }
        double& sum = taken[{l.ref_inter_id, l.ref_entry_id}];
        sum += l.qty_value;
        if (sum > out + kQtyTolerance)
            throw ComError::component("借还单据第" + line_no + "行的归还数量超过了未还数量!");
    }
}

// Whether returns or till sales refer to the lines of lending bill `id`: taking its lines away
// under them would count their goods twice.
bool has_returns_or_sales(Executor& ex, std::int32_t id) {
    auto used = ex.query(
        "select count(*) as FCount from icstockbillentry where FInterID=" + std::to_string(id) +
        " and (isnull(FRtnQty,0)<>0 or isnull(FSaleQty,0)<>0)");
    const bool referenced = used->Fields("FCount").Value().to_int32() > 0;
    used->Close();
    return referenced;
}

// The price-adjustment rows after a bill depend on the stock it moves (cost style 1 only).
void recalc_after(const std::shared_ptr<ado::Connection>& cn, std::int32_t id) {
    if (common::GetCostStyle() == 1) billcore::RecacuSptjd(cn, id);
}

}  // namespace

void Credit::Init(const std::string& NewPromptString, std::int16_t New_CurYear,
                  std::int16_t New_CurPeriod) {
    common::init_session(NewPromptString, New_CurYear, New_CurPeriod);
}

bool Credit::SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                      std::int32_t StockID, std::int32_t VipID, const std::string& Owner,
                      const std::string& Phone, const std::string& Remark, std::int32_t BillerID,
                      std::int32_t& OldInterID, std::shared_ptr<ado::Recordset>& RsBill,
                      std::shared_ptr<ado::Recordset>& rsBillDetail) {
    return common::guarded(Handler::DuplicateKey, [&] {
        if (TranType != kLend && TranType != kReturn)
            throw ComError::component("借货单据类型只能是借出(27)或借还(17)!");
        if (!RsBill || RsBill->Eof()) throw ComError::component("没有数据可以保存!");

        // Everything the caller gives is read and checked before the first statement.
        std::vector<Line> lines;
        double sum_qty = 0, sum_amount = 0, sum_retail = 0;
        while (!RsBill->Eof()) {
            lines.push_back(read_line(*RsBill));
            sum_qty += lines.back().qty_value;
            sum_amount += Variant(lines.back().amount).to_double();
            sum_retail += Variant(lines.back().retail_amount).to_double();
            RsBill->MoveNext();
        }
        const std::vector<std::string> detail_rows = read_detail_rows(rsBillDetail);

        billcore::Operation op(Handler::DuplicateKey);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        const std::int32_t old_id = OldInterID;
        const bool rewrite = old_id > 0;
        const bool cost_style_1 = common::GetCostStyle() == 1;
        std::int32_t id = old_id;
        std::string bill_no = BillNo;

        // One transaction: a failure anywhere leaves the old bill, the returned quantities it
        // booked and the counters as they were. The checks run inside it, so that no other till
        // books against the same lent lines between a check and the writes.
        op.transaction([&] {
            if (TranType == kReturn) check_returns(ex, lines, rewrite ? old_id : 0);
            if (rewrite && TranType == kLend && has_returns_or_sales(ex, old_id))
                throw ComError::component("保存单据失败，单据“" + BillNo + "”已有归还或销售记录！");

            if (rewrite) {
                // The old returns go back first, while the old bill is still live.
                ex.execute(lower_returned_sql(id));
                // Voided before its rows go, as under cost style 1 it always was; the adjustments
                // after it are rebuilt once the new rows are committed.
                if (cost_style_1)
                    ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" +
                               std::to_string(id));
                billcore::delete_stock_bill(ex, id);
            } else {
                bill_no = op.new_bill(id, TranType, BillDate);
            }
            // A clash on the interior id draws a fresh one. The header goes first, so a clash on
            // a line (rows left under that id by another program) means the header and the lines
            // before it were written under the old id: they move to the new one. Only this
            // bill's rows move — its header, and its lines numbered below the one that clashed.
            bool header_written = false;
            std::size_t lines_written = 0;
            op.redraw_on_clash(id, TranType, [&](std::int32_t clashed) {
                if (!header_written) return;
                ex.execute("Update ICStockBill set FInterID=" + std::to_string(id) +
                           " where FInterID=" + std::to_string(clashed));
                ex.execute("Update ICStockBillEntry set FInterID=" + std::to_string(id) +
                           " where FInterID=" + std::to_string(clashed) +
                           " and FEntryID between 1 and " + std::to_string(lines_written));
            });

            const std::string in_stock = TranType == kReturn ? std::to_string(StockID) : "0";
            const std::string out_stock = TranType == kLend ? std::to_string(StockID) : "0";
            const std::string now = ado::DateTime::now().to_string();
            ex.execute([&] {
                return "Insert Into ICStockBill(FInterID,FTranType,FDate,FBillNo,FInStockID,"
                       "FOutStockID,FVipID,FOrgaID,FOwner,FPhone,FRemark,FBillerID,FYear,FPeriod,"
                       "FSysTime,FSumQty,FSumAmount,FSumRetailAmount,FSeason,FMonth) values(" +
                       std::to_string(id) + "," + std::to_string(TranType) + ",'" +
                       BillDate.to_string() + "','" + common::sql_text(bill_no) + "'," + in_stock +
                       "," + out_stock + "," + std::to_string(VipID) + "," + std::to_string(VipID) +
                       ",'" + common::sql_text(Owner) + "','" + common::sql_text(Phone) + "','" +
                       common::sql_text(Remark) + "'," + std::to_string(BillerID) + "," +
                       std::to_string(BillDate.year()) + "," + std::to_string(BillDate.month()) +
                       ",'" + now + "'," + sql_number(sum_qty) + "," + sql_number(sum_amount) +
                       "," + sql_number(sum_retail) + ",'" + billcore::season_text(BillDate) +
                       "','" + billcore::month_text(BillDate) + "')";
            });
            header_written = true;

            // A return line points at its lent line; a lending line refers to nothing.
            const std::string ref_tran_type = TranType == kReturn ? std::to_string(kLend) : "0";
            for (std::size_t n = 0; n < lines.size(); ++n) {
                const Line& l = lines[n];
                ex.execute([&] {
                    return "Insert Into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,"
                           "FPrice,FAmount,FRetailPrice,FRetailAmount,FZkRate,FMemo,FUnitCost,"
                           "FCost,FRefInterID,FRefEntryID,FRefTranType) Values(" +
                           std::to_string(id) + "," + std::to_string(n + 1) + "," + l.item + ",'" +
                           l.row_key + "'," + l.qty + "," + l.price + "," + l.amount + "," +
                           l.retail_price + "," + l.retail_amount + "," + l.zk_rate + ",'" +
                           l.memo + "'," + l.unit_cost + "," + l.cost + "," + l.ref_inter + "," +
                           l.ref_entry + "," + ref_tran_type + ")";
                });
                lines_written = n + 1;
            }
            for (const std::string& row : detail_rows) {
                ex.execute([&] {
                    return "Insert Into ICStockBillEntry_1(FInterID,FItemID,FRowKey,FSizeID,"
                           "FColor,FColorEntryID,FQty) Values(" +
                           std::to_string(id) + row;
                });
            }
            billcore::write_unsized_rows(ex, id);
            ex.execute([&] { return raise_returned_sql(id); });
        });

        OldInterID = id;
        BillNo = bill_no;
        RsBill->Close();
        RsBill.reset();
        // The price adjustments after the bill are rebuilt from what is committed: where the old
        // bill stood and, if a clash moved it, where it stands now. A failure here leaves the
        // bill saved.
        if (rewrite) {
            recalc_after(cn, old_id);
            if (id != old_id) recalc_after(cn, id);
        }
        return true;
    });
}

void Credit::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                        std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, Cn);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        op.transaction(
            [&] {
                const std::string id = std::to_string(InterID);
                auto rs = ex.query(
                    "select FTranType,isnull(FCheckerID,0) as FcheckerID,isnull(FDeleted,0) as "
                    "FDeleted,FDate,FYear,FPeriod,FBillNo from ICStockBill where FInterID=" +
                    id);
                if (rs->Eof()) return;
                const std::string bill_no = rs->Fields("FBillNo").Value().to_string();
                if (rs->Fields("FCheckerID").Value().to_int32() > 0)
                    throw ComError::component("删除单据失败，单据“" + bill_no + "”已经审核！");
                const auto& s = common::session();
                if (rs->Fields("FYear").Value().to_int16() * 12 +
                        rs->Fields("FPeriod").Value().to_int16() <
                    s.CurYear * 12 + s.CurPeriod)
                    throw ComError::component("对不起,不能删除以前月份的单据!");
                const std::int16_t kind = rs->Fields("FTranType").Value().to_int16();
                if (kind != kLend && kind != kReturn)
                    throw ComError::component("删除单据失败，单据“" + bill_no + "”不是借货单据！");
                const bool live = rs->Fields("FDeleted").Value().to_int32() == 0;
                rs->Close();

                if (kind == kLend && live && has_returns_or_sales(ex, InterID))
                    throw ComError::component("删除单据失败，单据“" + bill_no +
                                              "”已有归还或销售记录！");

                if (live) {
                    ex.execute(lower_returned_sql(InterID));
                    ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" + id);
                    recalc_after(cn, InterID);
                }
                if (!DoBlankOut) billcore::delete_stock_bill(ex, InterID);
            },
            /*join_callers=*/true);
    });
}

void Credit::UnblankOut(std::int32_t InterID) {
    billcore::Operation op(Handler::None);
    const auto& cn = op.connection();
    Executor& ex = op.ex();
    op.transaction([&] {
        const std::string id = std::to_string(InterID);
        auto rs = ex.query("select FTranType,FBillNo from ICStockBill where FInterID=" + id);
        if (rs->Eof()) return;
        const std::int16_t kind = rs->Fields("FTranType").Value().to_int16();
        const std::string bill_no = rs->Fields("FBillNo").Value().to_string();
        rs->Close();
        if (kind != kLend && kind != kReturn)
            throw ComError::component("恢复单据失败，单据“" + bill_no + "”不是借货单据！");
        // Booked only while the bill is still void, so restoring a live bill books nothing twice.
        ex.execute(raise_returned_of_void_sql(InterID));
        ex.execute("Update ICStockBill set FDeleted=0 where FInterID=" + id);
        recalc_after(cn, InterID);
    });
}

std::shared_ptr<ado::Recordset> Credit::GetBillList(std::int16_t TranType,
                                                    const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        const auto& s = common::session();
        // The bill's own stock: the one lent from, or the one the goods came back to.
        const std::string stock_join = TranType == kLend
                                           ? "Left Join t_Stock t5 on t1.FOutStockID=t5.FItemID "
                                           : "Left Join t_Stock t5 on t1.FInStockID=t5.FItemID ";
        std::string sql =
            "select t1.FDate,t1.FBillNo,t1.FInterID,t1.FTranType,t1.FSumRetailAmount,"
            "t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t1.FSumAmount,"
            "t5.FName as FStockName,t11.FVipNo as FVipCard,t1.FOwner,t1.FPhone,t1.FRemark,"
            "t9.FUserName as FBiller,t10.FUserName as FChecker,"
            "a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,a3.FColor,a5.FName as FSize,a3.FQty,"
            "a2.FPrice,a3.FQty*a2.FPrice as FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as "
            "FRetailAmount,a2.FZkRate,a2.FMemo,a2.FRtnQty,a2.FSaleQty,"
            "case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
            "case isnull(t1.FCheckerID,0) when 0 then '' else '※' end as FChecked "
            "from ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID "
            "inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and "
            "a2.FRowKey=a3.FRowKey "
            "inner join t_icitem a4 on a3.FItemID=a4.FItemID "
            "left join t_Size a5 on a3.FSizeID=a5.FItemID " +
            stock_join +
            "Left Join Vip t11 on t1.FVipID=t11.FVipID "
            "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
            "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
            "Where t1.FTranType=" +
            std::to_string(TranType) + strFilter;
        if (s.ListDays > 0) {
            const ado::DateTime today = ado::DateTime::today();
            sql += " and t1.FDate between '" + today.add_days(1 - s.ListDays).to_string() +
                   "' and '" + today.add_days(1).to_string() + "'";
        }
        if (s.ListStockID > 0) sql += " and t5.FItemID=" + std::to_string(s.ListStockID);
        sql += " order by t1.FDate desc,t1.FInterID desc,t1.FBillNo";
        return common::open_recordset(sql, common::GetPromptString(), Handler::Common);
    });
}

}  // namespace billdata
