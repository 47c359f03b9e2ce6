#include "billdata/orderbill/orderbill.h"

#include <string>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/billcore/operation.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/filter_guard.h"
#include "billdata/common/handlers.h"
#include "billdata/common/numbering.h"
#include "billdata/common/session.h"
#include "billdata/sfkdata/sfkdata.h"

namespace billdata {

using ado::ComError;
using ado::DateTime;
using ado::Recordset;
using ado::Variant;
using common::Executor;
using common::Handler;

namespace {

using common::sql_number;

// The joins that both order lists share; the filter may test the line (a2), size/colour row
// (a3), item (a4) and size (a5) columns.
constexpr const char* kListJoins =
    "from ICOrder t1 inner join icOrderEntry a2 on t1.FInterID=a2.FInterID "
    "inner join icorderentry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey "
    "inner join t_icitem a4 on a3.FItemID=a4.FItemID "
    "left join t_Size a5 on a3.FSizeID=a5.FItemID "
    "Inner Join t_Supplier t4 ON t1.FOrgaID=t4.FItemID "
    "Left Join t_Account t5 ON t1.FAcctID=t5.FItemID "
    "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
    "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID ";

std::shared_ptr<Recordset> open_list(const std::string& sql) {
    return common::open_recordset(sql, common::GetPromptString(), Handler::Common);
}

}  // namespace

void OrderBill::Init(const std::string& NewPromptString, std::int16_t NewCurYear,
                     std::int16_t NewCurPeriod) {
    common::init_session(NewPromptString, NewCurYear, NewCurPeriod);
}

std::string OrderBill::SaveData(std::int16_t TranType, const DateTime& BillDate,
                                std::string& BillNo, std::int32_t OrgaID, const std::string& Remark,
                                std::int32_t BillerID, std::int32_t& OldInterID,
                                std::shared_ptr<Recordset>& RsBill, double Amount,
                                std::int32_t AcctID, std::shared_ptr<Recordset>& rsBillDetail) {
    return common::guarded(Handler::Common, [&]() -> std::string {
        Recordset& lines = common::require_recordset(RsBill);
        Recordset& detail = common::require_recordset(rsBillDetail);

        billcore::Operation op(Handler::Common);
        const auto& cn = op.connection();
        Executor& ex = op.ex();
        std::int32_t inter_id = OldInterID;
        op.transaction([&] {
            if (OldInterID < 1) {
                // Order numbers are always drawn for kind 11, whatever kind the caller stores.
                BillNo = op.new_bill(inter_id, billcore::kind::kOrder, BillDate);
            } else {
                // A re-save removes the old order through the same checks as a delete (gone or
                // audited stops it), inside this transaction, and drops its payment bills: the
                // advance is written anew after the commit.
                DeleteBill(billcore::kind::kOrder, OldInterID, cn, false);
                ex.execute("delete from WLBill where FOrderBillID=" + std::to_string(OldInterID));
            }
            const std::string id = std::to_string(inter_id);

            std::int16_t entry = 0;
            double sum_qty = 0, sum_amount = 0, sum_retail = 0;
            while (!lines.Eof()) {
                ex.execute(
                    "Insert Into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,"
                    "FQty,FZkRate,FPrice,FAmount,FRetailPrice,FRetailAmount,FMemo) Values(" +
                    id + "," + std::to_string(entry) + "," + common::field_text(lines, "FItemID") +
                    ",'" + common::sql_text(common::field_text(lines, "FRowKey")) + "'," +
                    common::field_text(lines, "FQty") + "," + common::field_text(lines, "FZkRate") +
                    "," + common::field_text(lines, "FPrice") + "," +
                    common::field_text(lines, "FAmount") + "," +
                    common::field_text(lines, "FRetailPrice") + "," +
                    common::field_text(lines, "FRetailAmount") + ",'" +
                    common::sql_text(common::field_text(lines, "FMemo")) + "')");
                // The line counter is 16-bit: an order of more than 32768 lines cannot be saved.
                if (entry == INT16_MAX) throw ComError::platform(ado::err::kOverflow);
                ++entry;
                sum_qty += lines.Fields("FQty").Value().to_double();
                sum_amount += lines.Fields("FAmount").Value().to_double();
                sum_retail += lines.Fields("FRetailAmount").Value().to_double();
                lines.MoveNext();
            }

            // The header follows its lines and carries their sums, never the caller's.
            ex.execute(
                "Insert Into ICOrder(FInterID,FTranType,FDate,FBillNo,FOrgaID,FRemark,FBillerID,"
                "FSumQty,FSumAmount,FSumRetailAmount,FEarnest,FacctID,FDeleted,FSysTime) values(" +
                id + "," + std::to_string(TranType) + ",'" + BillDate.to_string() + "','" +
                common::sql_text(BillNo) + "'," + std::to_string(OrgaID) + ",'" +
                common::sql_text(Remark) + "'," + std::to_string(BillerID) + "," +
                sql_number(sum_qty) + "," + sql_number(sum_amount) + "," + sql_number(sum_retail) +
                "," + sql_number(Amount) + "," + std::to_string(AcctID) + ",0,getdate())");

            if (detail.RecordCount() > 0) detail.MoveFirst();
            while (!detail.Eof()) {
                const Variant& del = detail.Fields("FDel").Value();
                if (!del.is_null() && del.to_double() == 0) {
                    ex.execute(
                        "Insert Into ICOrderEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,"
                        "FColorEntryID,FQty) Values(" +
                        id + "," + common::field_text(detail, "FItemID") + ",'" +
                        common::sql_text(common::field_text(detail, "FRowKey")) + "'," +
                        common::field_text(detail, "FSizeiD") + ",'" +
                        common::sql_text(common::field_text(detail, "FColor")) + "'," +
                        common::field_text(detail, "FColorEntryID") + "," +
                        common::field_text(detail, "FQty") + ")");
                }
                detail.MoveNext();
            }

            // Items without sizes get one breakdown row each. The rows come from the stock-bill
            // line table under the same interior id: that is the statement the order screens have
            // always relied on, and it is kept as it stands.
            ex.execute(
                "Insert Into ICOrderEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,FColorEntryID,"
                "FQty) select t1.FInterID,t1.FItemID,t1.FRowKey,0,'',0,Fqty "
                "from ICStockBillEntry t1 inner join t_icitem t3 on t1.fitemid=t3.fitemid "
                "where t1.FInterID=" +
                id + " and isnull(t3.FSizeID,0)=0");
        });
        op.close();
        OldInterID = inter_id;

        // The advance is written after the order's commit, in the payment class's own
        // transaction: an order can stand without its payment bill if this fails.
        if (Amount != 0) {
            const auto& s = common::session();
            SFKData payments;
            payments.Init(common::GetPromptString(), s.CurYear, s.CurPeriod);
            std::string payment_no;
            payments.SaveData(billcore::kind::kPayment, BillDate, payment_no, AcctID, OrgaID, 0,
                              Amount, 0, "", BillerID, 0, inter_id, 0);
        }
        return "True";
    });
}

void OrderBill::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                           std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, Cn);
        Executor& ex = op.ex();
        const std::string id = std::to_string(InterID);

        auto rs = ex.query(
            "select isnull(FCheckerID,0) as FCheckerID,FBillNo from ICOrder where FInterID=" + id);
        if (rs->Eof()) throw ComError::component("删除单据失败，单据已经不存在！");
        if (rs->Fields("FCheckerID").Value().to_int32() != 0)
            throw ComError::component("删除单据失败，单据“" +
                                      rs->Fields("FBillNo").Value().to_string() + "”已经审核！");
        rs->Close();

        if (DoBlankOut) {
            ex.execute("Update ICOrder set FDeleted=1 where FInterID=" + id);
            ex.execute("Update WLBill set FDeleted=1 where FOrderBillID=" + id);
        } else {
            // The payment bills stay when an order is deleted; only voiding marks them.
            ex.execute("delete from ICOrder where FInterID=" + id);
            ex.execute("delete from ICOrderEntry where FInterID=" + id);
            ex.execute("delete from ICOrderEntry_1 where FInterID=" + id);
        }
    });
}

void OrderBill::UnblankOut(std::int32_t InterID) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common);
        Executor& ex = op.ex();
        ex.execute("Update ICOrder set FDeleted=0 where FInterID=" + std::to_string(InterID));
        ex.execute("Update WLBill set FDeleted=0 where FOrderBillID=" + std::to_string(InterID));
    });
}

std::shared_ptr<Recordset> OrderBill::GetBill(std::int16_t /*TranType*/,
                                              const std::string& strFilter) {
    common::require_safe_filter(strFilter, common::FilterPlace::WholeCondition);
    return common::guarded(Handler::Common, [&] {
        return open_list(
            "select t1.FDeleted,t1.FDate,t1.FJhDate,t1.FBillNo,t1.FRemark,t1.FEarnest,"
            "t5.FName as FAcctName,"
            "t2.*,t3.FNumber,t3.FName,t3.FUnit,t3.FProductNo,t3.FSizeID,"
            "t3.FUnit,t3.FSizeID,t3.FPurYear + '.' + isnull(t3.FQuarter,'') as FPurYear,"
            "t4.FName as FOrgaName,t9.FUserName as FBiller,t10.FUserName as FChecker "
            "from ICOrder t1 Inner Join ICOrderEntry t2 ON t1.FInterID=t2.FInterID "
            "Inner Join t_ICItem t3 ON t2.FItemID=t3.FItemID "
            "Inner Join t_Item t4 ON t1.FOrgaID=t4.FItemID "
            "Left Join t_Account t5 ON t1.FAcctID=t5.FItemID "
            "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
            "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
            " where " +
            strFilter + " order by t1.FDate desc,t1.FBillNo Desc,t2.FEntryID");
    });
}

std::shared_ptr<Recordset> OrderBill::GetBillList(std::int16_t TranType,
                                                  const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        return open_list(
            std::string("select t1.FDate,t1.FBillNo,t1.FInterID,0 as FHisPrice,"
                        "t1.FSumQty,t1.FSumAmount,t1.FSumRetailAmount,t1.FRemark,"
                        "t4.FName as FSupplier,"
                        "t9.FUserName as FBiller,t10.FUserName as FChecker,"
                        "case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                        "t1.FEarnest,t5.FName as FAcctName,a4.FNumber,a4.FProductNo,a4.FName,"
                        "a4.FUnit,"
                        "a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as "
                        "FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,"
                        "a2.FZkRate,a2.FMemo,"
                        "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked  ") +
            kListJoins + "where FTranType=" + std::to_string(TranType) + strFilter +
            " order by t1.FDate desc,t1.FInterID desc,t1.FBillNo");
    });
}

std::shared_ptr<Recordset> OrderBill::GetBillList_Simple(std::int16_t TranType,
                                                         const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        return open_list(
            std::string("select t1.FDate,t1.FBillNo,t1.FInterID,t1.FSysTime,"
                        "t1.FSumQty,t1.FSumAmount,t1.FSumRetailAmount,t1.FRemark,"
                        "t4.FName as FSupplier,"
                        "t9.FUserName as FBiller,t10.FUserName as FChecker,"
                        "case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                        "t1.FEarnest,t5.FName as FAcctName,"
                        "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked  ") +
            kListJoins + "where FTranType=" + std::to_string(TranType) + strFilter +
            " Group by t1.FInterID,t1.FDate,t1.FBillNo,t1.FSysTime,"
            "t1.FSumQty,t1.FSumAmount,t1.FSumRetailAmount,t1.FRemark,t4.FName,"
            "t9.FUserName,t10.FUserName,FCheckerID,t1.FDeleted,t1.FEarnest,t5.FName"
            " order by t1.FDate desc,t1.FInterID desc,t1.FBillNo");
    });
}

std::vector<std::int32_t> OrderBill::GetBillInterID(const std::string& strFilter) {
    common::require_safe_filter(strFilter, common::FilterPlace::WholeCondition);
    return common::guarded(Handler::Common, [&] {
        auto rs = open_list(
            "select t1.FInterID "
            "from ICOrder t1 "
            "Inner Join ICOrderEntry t2 ON t1.FInterID=t2.FInterID "
            "Inner Join t_ICItem t3 ON t2.FItemID=t3.FItemID "
            "Left Join t_Item t4 ON t1.FOrgaID=t4.FItemID "
            "Left Join t_User t9 on t1.FBillerID=t9.FUserID "
            "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
            "Left Join t_Account t5 ON t1.FAcctID=t5.FItemID "
            " where " +
            strFilter + " group by t1.FInterID");
        std::vector<std::int32_t> ids;
        while (!rs->Eof()) {
            ids.push_back(rs->Fields("FInterID").Value().to_int32());
            rs->MoveNext();
        }
        rs->Close();
        return ids;
    });
}

}  // namespace billdata
