#include "billdata/otherbill/otherbill.h"

#include <string>

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

using ado::Variant;
using common::Executor;
using common::Handler;

namespace {

std::string field(const std::shared_ptr<ado::Recordset>& rs, const char* name) {
    return rs->Fields(name).Value().to_string();
}

// The list restrictions: the date window, then the stock by kind. Other stock in (115) is the
// receiving stock's, other stock out (125) the issuing stock's; every other kind tests the
// issuing stock in both halves of its condition, as the lists have always done.
std::string restrictions(std::int16_t tran_type) {
    std::string sql = billcore::list_window();
    const std::int32_t stock = common::session().ListStockID;
    if (stock > 0) {
        const std::string s = std::to_string(stock);
        if (tran_type == billcore::kind::kOtherIn)
            sql += " and t5.FItemID=" + s;
        else if (tran_type == billcore::kind::kOtherOut)
            sql += " and t6.FItemID=" + s;
        else
            sql += " and (t6.FItemID=" + s + " or " + "t6.FItemID=" + s + ")";
    }
    return sql;
}

const char* const kListFrom =
    "from ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID "
    "inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey "
    "inner join t_icitem a4 on a3.FItemID=a4.FItemID "
    "left join t_Size a5 on a3.FSizeID=a5.FItemID "
    "Left Join t_Stock t5 on t1.FInStockID=t5.FItemID "
    "Left Join t_Stock t6 on t1.FOutStockID=t6.FItemID "
    "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
    "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
    "Where t1.FTranType=";

}  // namespace

void OtherBill::Init(const std::string& NewPromptString, std::int16_t NewCurYear,
                     std::int16_t NewCurPeriod) {
    common::init_session(NewPromptString, NewCurYear, NewCurPeriod);
}

bool OtherBill::SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                         std::int32_t InStockID, const std::string& Cause, std::int32_t OutStockID,
                         const std::string& Remark, std::int32_t BillerID, std::int32_t& OldInterID,
                         std::shared_ptr<ado::Recordset>& RsBill,
                         std::shared_ptr<ado::Recordset>& rsBillDetail) {
    return common::guarded(Handler::DuplicateKey, [&]() -> bool {
        common::require_recordset(RsBill);
        billcore::Operation op(Handler::DuplicateKey);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        const std::int32_t old_id = OldInterID;
        std::int32_t id = old_id;
        op.redraw_on_clash(id, TranType);

        const bool propagate = common::GetCostStyle() == 1;
        if (old_id >= 1 && propagate) {
            // The adjustments after the old bill are rebuilt without it before it is replaced.
            ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" +
                       std::to_string(old_id));
            billcore::RecacuSptjd(cn, old_id);
        }

        op.transaction([&] {
            billcore::take_id_or_clear(op, old_id < 1, id, TranType, BillDate, BillNo);

            std::int32_t entry = 1;
            double qty_sum = 0, amount_sum = 0, retail_sum = 0;
            while (!RsBill->Eof()) {
                const std::string price = field(RsBill, "FPrice");
                const std::string amount = field(RsBill, "FAmount");
                // The unit cost of a line is its price and its cost its amount.
                ex.execute([&] {
                    return "Insert Into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FPrice,"
                           "FAmount,FRetailPrice,FRetailAmount,FZkRate,FMemo,FUnitCost,FCost) Values(" +
                           std::to_string(id) + "," + std::to_string(entry) + "," +
                           field(RsBill, "FItemID") + ",'" +
                           common::sql_text(field(RsBill, "FRowKey")) + "'," +
                           field(RsBill, "FQty") + "," + price + "," + amount + "," +
                           field(RsBill, "FRetailPrice") + "," + field(RsBill, "FRetailAmount") +
                           "," + field(RsBill, "FZkRate") + ",'" +
                           common::sql_text(field(RsBill, "FMemo")) + "'," + price + "," + amount +
                           ")";
                });
                retail_sum += RsBill->Fields("FRetailAmount").Value().to_double();
                qty_sum += RsBill->Fields("FQty").Value().to_double();
                amount_sum += RsBill->Fields("FAmount").Value().to_double();
                ++entry;
                RsBill->MoveNext();
            }
            RsBill->Close();
            RsBill.reset();

            // Other stock out carries the receiving stock in both stock columns; kept as the books
            // have always recorded it.
            const std::int32_t issuing =
                TranType == billcore::kind::kOtherOut ? InStockID : OutStockID;
            ex.execute([&] {
                return "Insert Into ICStockBill(FInterID,FTranType,FDate,FBillNo,FInStockID,FOutStockID,"
                       "FRemark,FBillerID,FYear,FPeriod,FSysTime,FSumQty,FSumAmount,FSumRetailAmount,"
                       "FCause,FSeason,FMonth) values(" +
                       std::to_string(id) + "," + std::to_string(TranType) + ",'" +
                       BillDate.to_string() + "','" + common::sql_text(BillNo) + "'," +
                       std::to_string(InStockID) + "," + std::to_string(issuing) + ",'" +
                       common::sql_text(Remark) + "'," + std::to_string(BillerID) + "," +
                       std::to_string(BillDate.year()) + "," + std::to_string(BillDate.month()) +
                       ",'" + billcore::now_text() + "'," + common::sql_number(qty_sum) + "," +
                       common::sql_number(amount_sum) + "," + common::sql_number(retail_sum) +
                       ",'" + common::sql_text(Cause) + "','" + billcore::season_text(BillDate) +
                       "','" + billcore::month_text(BillDate) + "')";
            });
            billcore::write_size_rows(ex, id, rsBillDetail);
        });

        if (old_id >= 1 && propagate) billcore::RecacuSptjd(cn, old_id);
        OldInterID = id;
        return true;
    });
}

void OtherBill::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                           std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        // On its own connection the removal is one transaction; on the caller's it joins theirs.
        billcore::Operation op(Handler::Common, Cn);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        op.transaction(
            [&] {
                const std::string id = std::to_string(InterID);

                auto rs = ex.query(
                    "select isnull(FCheckerID,0) as FcheckerID,isnull(FDeleted,0) as FDeleted,FDate,"
                    "FYear,FPeriod,FBillNo from ICStockBill where FInterID=" +
                    id);
                if (!rs->Eof()) {
                    billcore::check_removable(rs);
                    const bool live = rs->Fields("FDeleted").Value().to_int32() == 0;
                    rs->Close();

                    if (DoBlankOut || live) {
                        ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" + id);
                        if (common::GetCostStyle() == 1) billcore::RecacuSptjd(cn, InterID);
                    }
                    if (!DoBlankOut) billcore::delete_stock_bill(ex, InterID);
                } else {
                    rs->Close();
                }
            },
            /*join_callers=*/true);
    });
}

void OtherBill::UnblankOut(std::int32_t InterID) {
    billcore::Operation op(Handler::None);
    const auto& cn = op.connection();
    cn->Execute("Update ICStockBill set FDeleted=0 where FInterID=" + std::to_string(InterID));
    if (common::GetCostStyle() == 1) billcore::RecacuSptjd(cn, InterID);
}

std::shared_ptr<ado::Recordset> OtherBill::GetBillList(std::int16_t TranType,
                                                       const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        return common::open_recordset(
            std::string(
                "select t1.FDate,t1.FBillNo,t1.FInterID,t1.FSumRetailAmount,t1.FCause,"
                "t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t1.FSumAmount,"
                "t5.FName as FInStockName,t6.FName as FOutStockName,FRemark,"
                "t9.FUserName as FBiller,t10.FUserName as FChecker,t1.FTranType,"
                "a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                "a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,"
                "a2.FZkRate,a2.FMemo,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked ") +
                kListFrom + std::to_string(TranType) + strFilter + restrictions(TranType) +
                "order by t1.FDate desc,t1.FInterID desc,t1.FBillNo",
            common::GetPromptString(), Handler::Common);
    });
}

std::shared_ptr<ado::Recordset> OtherBill::GetBillList_Simple(std::int16_t TranType,
                                                              const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        return common::open_recordset(
            std::string(
                "select t1.FDate,t1.FBillNo,t1.FInterID,t1.FSumRetailAmount,t1.FCause,"
                "t1.FPrintTimes,case t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FSysTime,t1.FSumQty,t1.FSumAmount,"
                "t5.FName as FInStockName,t6.FName as FOutStockName,FRemark,"
                "t9.FUserName as FBiller,t10.FUserName as FChecker,t1.FTranType,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked ") +
                kListFrom + std::to_string(TranType) + strFilter + restrictions(TranType) +
                " Group by t1.FInterID,t1.FDate,t1.FBillNo,t1.FSumRetailAmount,t1.FCause,"
                "t1.FPrintTimes,t1.FDeleted,t1.FSysTime,t1.FSumQty,t1.FSumAmount,t1.FCheckerID,"
                "t5.FName,t6.FName,FRemark,t9.FUserName,t10.FUserName,t1.FTranType "
                "order by t1.FDate desc,t1.FInterID desc,t1.FBillNo",
            common::GetPromptString(), Handler::Common);
    });
}

}  // namespace billdata
