#include "billdata/purrkd/purrkd.h"

#include <cmath>
#include <string>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/billcore/costing.h"
#include "billdata/billcore/operation.h"
#include "billdata/billcore/stock_bill_writer.h"
#include "billdata/common/audit.h"
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

// The select list, joins and kind condition that both receipt lists share after their columns.
const char* const kListFrom =
    "from ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID "
    "inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey "
    "inner join t_icitem a4 on a3.FItemID=a4.FItemID "
    "left join t_Size a5 on a3.FSizeID=a5.FItemID "
    "Left Join t_Supplier t4 ON t1.FOrgaID=t4.FItemID "
    "Left Join t_Stock t5 on t1.FInStockID=t5.FItemID "
    "Left Join t_Account t6 on t1.FAcctID=t6.FItemID "
    "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
    "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
    "Where t1.FTranType=";

// The session's restrictions; the order clause follows with no blank before it.
std::string restrictions() {
    std::string sql = billcore::list_window();
    if (common::session().ListStockID > 0)
        sql += " and t5.FItemID=" + std::to_string(common::session().ListStockID);
    return sql;
}

std::shared_ptr<ado::Recordset> open_list(const std::string& sql) {
    return common::open_recordset(sql, common::GetPromptString(), Handler::Common);
}

}  // namespace

void PurRkd::Init(const std::string& NewPromptString, std::int16_t NewCurYear,
                  std::int16_t NewCurPeriod) {
    common::init_session(NewPromptString, NewCurYear, NewCurPeriod);
}

bool PurRkd::SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                      std::int32_t StockID, std::int32_t OrgaID, std::int32_t AcctID,
                      const std::string& Remark, std::int32_t BillerID, std::int32_t SettleID,
                      std::int32_t& OldInterID, std::shared_ptr<ado::Recordset>& RsBill,
                      double SumQty, double SumAmount,
                      std::shared_ptr<ado::Recordset> rsBillDetail) {
    return common::guarded(Handler::DuplicateKey, [&]() -> bool {
        common::require_recordset(RsBill);
        if (RsBill->Eof()) throw ado::ComError::component("没有数据可以保存!");

        auto stocks = billcore::stock_list();
        billcore::Operation op(Handler::DuplicateKey);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        std::int32_t id = OldInterID;
        op.redraw_on_clash(id, TranType);

        if (OldInterID > 0) {
            // The old receipt is voided and the propagation worked out without it before the
            // transaction; both stand even if the save fails later.
            ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" +
                       std::to_string(OldInterID));
            billcore::CacuSptjd(cn, OldInterID, false);
        }

        op.transaction([&] {
            billcore::take_id_or_clear(op, OldInterID < 1, id, TranType, BillDate, BillNo);

            std::int32_t entry = 1;
            double retail_sum = 0;
            while (!RsBill->Eof()) {
                const std::string item = field(RsBill, "FItemID");
                const std::string qty = field(RsBill, "FQty");
                const std::string price = field(RsBill, "FPrice");
                const std::string his_price = field(RsBill, "FHisPrice");
                retail_sum += RsBill->Fields("FRetailAmount").Value().to_double();
                ex.execute([&] {
                    return "Insert Into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FPrice,"
                           "FAmount,FRetailPrice,FRetailAmount,FZkRate,FMemo,FHisPrice) Values(" +
                           std::to_string(id) + "," + std::to_string(entry) + "," + item + ",'" +
                           common::sql_text(field(RsBill, "FRowKey")) + "'," + qty + "," + price +
                           "," + field(RsBill, "FAmount") + "," + field(RsBill, "FRetailPrice") +
                           "," + field(RsBill, "FRetailAmount") + "," + field(RsBill, "FZkRate") +
                           ",'" + common::sql_text(field(RsBill, "FMemo")) + "'," + his_price + ")";
                });
                if (TranType == billcore::kind::kPurchaseReceipt)
                    ex.execute("Update t_icitem set FPurPrice=" + price +
                               ",FSupplierID=" + std::to_string(OrgaID) + " where fitemid=" + item);

                const double difference = RsBill->Fields("FPrice").Value().to_double() -
                                          RsBill->Fields("FHisPrice").Value().to_double();
                const bool changed = std::abs(Variant::round_half_even(difference, 4)) > 0.00001;
                auto insert_difference = [&](const std::string& stock, double amount,
                                             const std::string& memo) {
                    ex.execute([&] {
                        return "Insert Into ICStockbillEntry(FInterID,FEntryID,FTjStockID,FItemID,FQty,"
                               "FPrice,FAmount,FMemo,FHisPrice) Values(" +
                               std::to_string(id) + "," + std::to_string(-entry) + "," + stock +
                               "," + item + ",0," + common::sql_number(difference) + "," +
                               common::sql_number(amount) + ",'" + memo + "'," + his_price + ")";
                    });
                };
                if (TranType == billcore::kind::kPurchaseReturn && changed) {
                    // A return revalues only what it takes out of its own stock.
                    insert_difference(std::to_string(StockID),
                                      difference * RsBill->Fields("FQty").Value().to_double(), qty);
                }
                if (TranType == billcore::kind::kPurchaseReceipt && changed) {
                    // A receipt revalues the goods already on hand, wherever they are: one row per
                    // stock that holds the item, all sharing the line's negative entry id. The
                    // quantity asked is the item's in that stock over every bill — this receipt's
                    // own lines do not count yet, as its header is written after them.
                    const std::int32_t item_id = RsBill->Fields("FItemID").Value().to_int32();
                    stocks->MoveFirst();
                    while (!stocks->Eof()) {
                        const std::int32_t stock_id = stocks->Fields("FItemID").Value().to_int32();
                        const double on_hand = common::GetStockQty(cn, stock_id, item_id, 0);
                        if (on_hand != 0)
                            insert_difference(std::to_string(stock_id), difference * on_hand,
                                              common::sql_number(on_hand));
                        stocks->MoveNext();
                    }
                }
                ++entry;
                RsBill->MoveNext();
            }
            RsBill->Close();
            RsBill.reset();

            // Receipts have always been stored without a season: the quarter label is not worked
            // out until after the header is written, and then not stored.
            const std::string season;
            ex.execute([&] {
                return "Insert Into ICStockBill(FInterID,FTranType,FDate,FBillNo,FInStockID,FOrgaID,"
                       "FAcctID,FSettleID,FRemark,FBillerID,FYear,FPeriod,FSysTime,FSumQty,FSumAmount,"
                       "FSumRetailAmount,FSeason,FMonth) values(" +
                       std::to_string(id) + "," + std::to_string(TranType) + ",'" +
                       BillDate.to_string() + "','" + common::sql_text(BillNo) + "'," +
                       std::to_string(StockID) + "," + std::to_string(OrgaID) + "," +
                       std::to_string(AcctID) + "," + std::to_string(SettleID) + ",'" +
                       common::sql_text(Remark) + "'," + std::to_string(BillerID) + "," +
                       std::to_string(BillDate.year()) + "," + std::to_string(BillDate.month()) +
                       ",'" + billcore::now_text() + "'," + common::sql_number(SumQty) + "," +
                       common::sql_number(SumAmount) + "," + common::sql_number(retail_sum) + ",'" +
                       season + "','" + billcore::month_text(BillDate) + "')";
            });
            billcore::write_size_rows(ex, id, rsBillDetail);
        });
        OldInterID = id;

        if (common::GetCostStyle() == 1) {
            billcore::CacuSptjd(cn, id, true);
        } else {
            auto cmd = ado::Command::create();
            cmd->CommandText = "Sp_CacuCost";
            cmd->CommandType = ado::adCmdStoredProc;
            cmd->ActiveConnection = cn;
            cmd->Execute(nullptr, ado::adOptionUnspecified);
        }
        return true;
    });
}

void PurRkd::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                        std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, Cn);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        const std::string id = std::to_string(InterID);

        auto rs = ex.query(
            "select FTranType,isnull(FCheckerID,0) as FcheckerID,isnull(FDeleted,0) as FDeleted,"
            "FDate,FYear,FPeriod,FBillNo from ICStockBill where FInterID=" +
            id);
        if (rs->Eof()) return;
        billcore::check_removable(rs);
        const bool live = rs->Fields("FDeleted").Value().to_int32() == 0;
        rs->Close();

        // The propagation is worked out without the receipt while its rows still exist; a
        // receipt already void was left out when it was voided.
        if (DoBlankOut || live) {
            ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" + id);
            billcore::CacuSptjd(cn, InterID, false);
        }
        if (DoBlankOut) return;
        billcore::delete_stock_bill(ex, InterID);
    });
}

void PurRkd::UnblankOut(std::int32_t InterID) {
    billcore::Operation op(Handler::None);
    const auto& cn = op.connection();
    cn->Execute("Update ICStockBill set FDeleted=0 where FInterID=" + std::to_string(InterID));
    billcore::CacuSptjd(cn, InterID, true);
}

std::shared_ptr<ado::Recordset> PurRkd::GetBillList(std::int16_t TranType,
                                                    const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        return open_list(
            std::string(
                "select t1.FDate,t1.FBillNo,case t1.FSettleID when 0 then '现金' else '欠款' end as FSettle,t1.FInterID,"
                "t1.FSumRetailAmount,t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t5.FName as FStockName,"
                "t6.FName as FAcctName,FRemark,t4.FName as FSupplier,t1.FSettleID,"
                "t9.FUserName as FBiller,t10.FUserName as FChecker,FSumAmount,"
                "a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,"
                "a3.FQty*a2.FPrice as FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,"
                "a2.FZkRate,a2.FMemo,case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked ") +
            kListFrom + std::to_string(TranType) + strFilter + restrictions() +
            "order by t1.FDate desc,t1.FInterID desc,t1.FBillNo");
    });
}

std::shared_ptr<ado::Recordset> PurRkd::GetBillList_Simple(std::int16_t TranType,
                                                           const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        return open_list(
            std::string(
                "select t1.FDate,t1.FBillNo,case t1.FSettleID when 0 then '现金' else '欠款' end as FSettle,t1.FInterID,"
                "t1.FSumRetailAmount,t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t5.FName as FStockName,"
                "t6.FName as FAcctName,FRemark,t4.FName as FSupplier,t1.FSettleID,"
                "t9.FUserName as FBiller,t10.FUserName as FChecker,FSumAmount"
                ",case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked ") +
            kListFrom + std::to_string(TranType) + strFilter + restrictions() +
            "Group by t1.FInterID,t1.FDate,t1.FBillNo,t1.FSettleID,t1.FCheckerID,"
            "t1.FSumRetailAmount,t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t5.FName,"
            "t6.FName,FRemark,t4.FName,t9.FUserName,t10.FUserName,FSumAmount,t1.FDeleted "
            "order by t1.FDate desc,t1.FInterID desc,t1.FBillNo");
    });
}

}  // namespace billdata
