#include "billdata/viporder/viporder.h"

#include <string>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/billcore/operation.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/filter_guard.h"
#include "billdata/common/handlers.h"
#include "billdata/common/numbering.h"
#include "billdata/common/session.h"

namespace billdata {

using ado::ComError;
using ado::DateTime;
using ado::Recordset;
using ado::Variant;
using common::Executor;
using common::Handler;

namespace {

using common::sql_number;

}  // namespace

void vipOrder::Init(const std::string& NewPromptString, std::int16_t New_CurYear,
                    std::int16_t New_CurPeriod) {
    common::init_session(NewPromptString, New_CurYear, New_CurPeriod);
}

void vipOrder::SaveData(std::int16_t TranType, const DateTime& BillDate, std::string& BillNo,
                        double Earnest, std::int32_t& AcctID, const std::string& Remark,
                        std::int32_t VipID, const std::string& Owner, const std::string& Phone,
                        std::int32_t UserID, std::int32_t ModifyInterID,
                        std::shared_ptr<Recordset>& BillData) {
    common::guarded(Handler::DuplicateKey, [&] {
        Recordset& rows = common::require_recordset(BillData);

        billcore::Operation op(Handler::DuplicateKey);
        Executor& ex = op.ex();
        op.transaction([&] {
            std::int32_t inter_id = ModifyInterID;
            if (ModifyInterID < 1) {
                op.draw_interior_id(inter_id, billcore::kind::kMemberOrder);
                std::string prefix;
                BillNo = billcore::NextBillNo(ex, std::to_string(TranType), BillDate, prefix);
                // Member orders draw their ids from the stock-bill series but live in ICOrder, so
                // another till's bill may already hold the id: draw again while nothing has been
                // written under it (the first line clashes before anything else is written).
                op.redraw_on_clash(inter_id, billcore::kind::kMemberOrder);
            } else {
                // The lines and size/colour rows go with the header (the database removes them).
                ex.execute("delete from icorder where FInterID=" + std::to_string(inter_id));
                ex.execute("delete from wlbill where FOrderBillID=" + std::to_string(inter_id));
            }

            std::int16_t entry = 0;
            double sum_retail = 0, sum_amount = 0;
            std::int16_t sum_qty = 0;
            while (!rows.Eof()) {
                const std::string row_key = std::to_string(entry);
                ex.execute([&] {
                    return "Insert Into icorderEntry(FInterID,FEntryID,FRowKey,FItemID,FSalerID,"
                           "FQty,FPrice,FAmount,FZkRate,FRetailPrice,FRetailAmount,FUnitCost,"
                           "FPreSend) Values(" +
                           std::to_string(inter_id) + "," + row_key + ",'" + row_key + "'," +
                           common::field_text(rows, "FItemID") + "," +
                           common::field_text(rows, "FSalerID") + "," +
                           common::field_text(rows, "FQty") + "," +
                           common::field_text(rows, "FPrice") + "," +
                           common::field_text(rows, "FAmount") + "," +
                           common::field_text(rows, "FZkRate") + "," +
                           common::field_text(rows, "FRetailPrice") + "," +
                           common::field_text(rows, "FRetailAmount") + "," +
                           common::field_text(rows, "FUnitCost") + "," +
                           common::field_text(rows, "FPreSend") + ")";
                });
                // Rows now stand under this id: from here on a clash must fail the save.
                ex.on_duplicate_interior_id(nullptr);

                sum_retail += rows.Fields("FRetailAmount").Value().to_double();
                // The quantity sum is a 16-bit integer, rounded as the platform assigns it.
                sum_qty =
                    Variant(static_cast<double>(sum_qty) + rows.Fields("Fqty").Value().to_double())
                        .to_int16();
                sum_amount += rows.Fields("FAmount").Value().to_double();

                ex.execute(
                    "Insert Into icorderEntry_1(FInterID,FRowKey,FItemID,FColor,FSizeID,"
                    "FColorEntryID,FQty) Values(" +
                    std::to_string(inter_id) + ",'" + row_key + "'," +
                    common::field_text(rows, "FItemID") + ",'" +
                    common::sql_text(common::field_text(rows, "FColor")) + "'," +
                    common::field_text(rows, "FSizeID") + ",0," + common::field_text(rows, "FQty") +
                    ")");

                if (entry == INT16_MAX) throw ComError::platform(ado::err::kOverflow);
                ++entry;
                rows.MoveNext();
            }
            BillData.reset();

            // The stored kind is always 21, whatever kind numbered the order.
            ex.execute([&] {
                return "Insert Into icorder(FInterID,FTranType,FDate,FEarnest,FAcctID,FDeleted,"
                       "FBillerID,FSysTime,FOrgaID,FBillNo,FSumQty,FSumAmount,FSumRetailAmount,"
                       "FRemark,FPhone,FOwner) values(" +
                       std::to_string(inter_id) + ",21,'" + BillDate.to_string() + "'," +
                       sql_number(Earnest) + "," + std::to_string(AcctID) + ",0," +
                       std::to_string(UserID) + ",getdate()," + std::to_string(VipID) + ",'" +
                       common::sql_text(BillNo) + "'," + std::to_string(sum_qty) + "," +
                       sql_number(sum_amount) + "," + sql_number(sum_retail) + ",'" +
                       common::sql_text(Remark) + "','" + common::sql_text(Phone) + "','" +
                       common::sql_text(Owner) + "')";
            });

            // The earnest's receipt is written always, amounts 0 included.
            std::int32_t receipt_id = 0;
            const std::string receipt_no =
                op.new_bill(receipt_id, billcore::kind::kReceipt, BillDate);
            op.redraw_on_clash(receipt_id, billcore::kind::kReceipt);
            ex.execute([&] {
                return "Insert Into WLBill(FInterID,FTranType,FSettleID,FEmpID,FDate,FBillNo,FAcctID,"
                       "FOrgaID,FSettleAmount,FSumAmount,FOddMent,FMemo,FBillerID,FSysTime,"
                       "FOrderBillID,FStockBillID) Values(" +
                       std::to_string(receipt_id) + ",23,0,0,'" + BillDate.to_string() + "','" +
                       receipt_no + "'," + std::to_string(AcctID) + "," + std::to_string(VipID) +
                       "," + sql_number(Earnest) + "," + sql_number(Earnest) + ",0,'会员订单：" +
                       common::sql_text(BillNo) + "'," + std::to_string(UserID) + ",getdate()," +
                       std::to_string(inter_id) + ",0)";
            });
        });
    });
}

void vipOrder::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                          std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, Cn);
        Executor& ex = op.ex();
        const std::string id = std::to_string(InterID);

        auto rs = ex.query(
            "select FDate,isnull(FCheckerID,0) as FCheckerId,FBillNo "
            "from icorder where FInterID=" +
            id);
        // The not-found message is built from the empty result's bill number, so the read of
        // that field is what the caller sees: the record-set error, not the message.
        if (rs->Eof())
            throw ComError::component("删除单据失败，单据“" +
                                      rs->Fields("FBillNo").Value().to_string() + "”已经不存在！");
        if (rs->Fields("FCheckerID").Value().to_int32() > 0)
            throw ComError::component("删除单据失败，单据“" +
                                      rs->Fields("FBillNo").Value().to_string() + "”已经审核！");
        rs->Close();

        if (DoBlankOut) {
            ex.execute("Update icorder set FDeleted=1 where FInterID=" + id);
            ex.execute("Update WLBill set FDeleted=1 where FOrderBillID=" + id);
        } else {
            ex.execute("delete from icorder where FInterID=" + id);
            ex.execute("Delete from WLBill where FOrderBillID=" + id);
        }
    });
}

void vipOrder::UnblankOut(std::int32_t InterID) {
    billcore::Operation op(Handler::None);
    Executor& ex = op.ex();
    ex.execute("Update icorder set FDeleted=0 where FInterID=" + std::to_string(InterID));
    ex.execute("Update WLBill set FDeleted=0 where FOrderBillID=" + std::to_string(InterID));
}

std::shared_ptr<Recordset> vipOrder::GetBillList(std::int16_t TranType,
                                                 const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        const std::string sql =
            "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNO + ' ' + t11.FOwner as FVipCard,"
            "t1.FSysTime,t2.FQty,t2.FPrice,t2.FAmount,t5.FName as FSaler,0 as FSdyh,t2.FSaleQty,"
            "t3.FName,t1.FRemark,t12.FColor,t13.FName as FSize,"
            "t3.FProductNo,t3.FUnit,t2.FZkRate,t2.FRetailPrice,t2.FRetailAmount,t2.FUnitCost,"
            "t2.FPreSend,"
            "t9.FUserName as FBiller,t10.FUserName as FChecker,t1.FEarnest,t4.FName as FAcctName,"
            "t2.FItemID,"
            "t12.FSizeID,t3.FSizeID as FSizeGroupID,t3.FRetailPrice_2 as FSalePrice,"
            "t2.FSalerID,t1.FPhone,t1.FOwner,t11.FVipNo,t11.FVipID,0 as FRefInteriD,"
            "0 as FRefEntryID "
            ",case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
            "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked "
            "from icorder t1 Inner Join icorderEntry t2 ON t1.FInterID=t2.FInterID "
            "left Join t_ICItem t3 ON t2.FItemID=t3.FItemID "
            "Left Join t_Account t4 ON t1.FAcctID=t4.FItemID "
            "Left Join t_Emp t5 ON t2.FSalerID=t5.FItemID "
            "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
            "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
            "Left Join Vip t11 on t1.FOrgaID=t11.FVipID "
            "Inner Join icorderEntry_1 t12 ON t2.FInterID=t12.FInterID and t2.FRowKey=t12.FrowKey "
            "Left Join t_Size t13 ON t12.FSizeID=t13.FItemID "
            "Where t1.FtranType=" +
            std::to_string(TranType) + strFilter +
            " order by t1.FDate desc,t1.FBillNo Desc,t2.FEntryID";
        return common::open_recordset(sql, common::GetPromptString(), Handler::Common);
    });
}

}  // namespace billdata
