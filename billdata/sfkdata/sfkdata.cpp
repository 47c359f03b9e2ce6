#include "billdata/sfkdata/sfkdata.h"

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
using ado::Variant;
using common::Executor;
using common::Handler;

namespace {

using common::sql_number;

// The audit operations walk the caller's array with a 16-bit index, as the front ends have
// always counted them: an empty array has no bounds, and past 32768 elements the index
// overflows. Both fail before anything is written.
void check_id_array(const std::vector<std::int32_t>& ids) {
    if (ids.empty()) throw ComError::platform(ado::err::kSubscript);
    if (ids.size() > 32768) throw ComError::platform(ado::err::kOverflow);
}

// Marks (or clears) the audit mark of all bills of `ids` in one transaction on a connection of
// its own; the first failure rolls everything back.
void set_check_marks(const std::vector<std::int32_t>& ids, const std::string& head) {
    billcore::Operation op(Handler::Common);
    op.transaction([&] {
        check_id_array(ids);
        for (std::int32_t id : ids) {
            op.ex().execute(head + " where FInterID=" + std::to_string(id));
        }
    });
}

}  // namespace

void SFKData::Init(const std::string& NewPromptString, std::int16_t NewCurYear,
                   std::int16_t NewCurPeriod) {
    common::init_session(NewPromptString, NewCurYear, NewCurPeriod);
}

std::int32_t SFKData::SaveData(std::int16_t TranType, const DateTime& BillDate, std::string& BillNo,
                               std::int32_t AcctID, std::int32_t OrgaID, std::int32_t EmpID,
                               double SumAmount, double OddMent, const std::string& Memo,
                               std::int32_t BillerID, std::int32_t OldInterID,
                               std::int32_t OrderBillID, std::int32_t StockBillID) {
    return common::guarded(Handler::Common, [&]() -> std::int32_t {
        billcore::Operation op(Handler::Common);
        Executor& ex = op.ex();
        op.transaction([&] {
            std::int32_t inter_id = OldInterID;
            if (OldInterID < 1) {
                // Receipts and payments, whatever kind the caller stores, share the money bills'
                // ids.
                op.draw_interior_id(inter_id, billcore::kind::kReceipt);
                std::string prefix;
                BillNo = billcore::NextBillNo(ex, std::to_string(TranType), BillDate, prefix);
            } else {
                ex.execute("delete from wlbill where FInterID=" + std::to_string(OldInterID));
            }

            // The time of saving is this machine's clock, not the database's.
            const DateTime now = DateTime::now();
            ex.execute(
                "Insert Into WLBill(FInterID,FTranType,FSettleID,FEmpID,FDate,FBillNo,FAcctID,FOrgaID,"
                "FSettleAmount,FSumAmount,FOddMent,FMemo,FBillerID,FSysTime,FOrderBillID,FStockBillID)"
                " Values(" +
                std::to_string(inter_id) + "," + std::to_string(TranType) + ",0," +
                std::to_string(EmpID) + ",'" + BillDate.to_string() + "','" +
                common::sql_text(BillNo) + "'," + std::to_string(AcctID) + "," +
                std::to_string(OrgaID) + "," + sql_number(SumAmount + OddMent) + "," +
                sql_number(SumAmount) + "," + sql_number(OddMent) + ",'" + common::sql_text(Memo) +
                "'," + std::to_string(BillerID) + ",'" + now.date_string() + " " +
                now.time_string() + "'," + std::to_string(OrderBillID) + "," +
                std::to_string(StockBillID) + ")");
        });
        return 0;
    });
}

void SFKData::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                         std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, Cn);
        Executor& ex = op.ex();
        const std::string id = std::to_string(InterID);

        auto rs = ex.query(
            "select year(FDate) as FYear,month(FDate) as FPeriod,FBillNo,FTranType,FClosed,"
            "Isnull(FCheckerID,0) as FCheckerID,Isnull(FOrderBillID,0) as FOrderBillID "
            "from WLBill where FInterID=" +
            id);
        if (rs->Eof()) {
            rs->Close();
            return;
        }
        const auto& s = common::session();
        const std::int32_t bill_month =
            rs->Fields("FYear").Value().to_int32() * 12 + rs->Fields("FPeriod").Value().to_int32();
        if (bill_month < s.CurYear * 12 + s.CurPeriod)
            throw ComError::component("对不起,不能删除以前月份的单据!");
        if (rs->Fields("FCheckerID").Value().to_int32() > 0)
            throw ComError::component("对不起，该单据已经审核，不能删除或修改！");
        rs->Close();

        if (DoBlankOut) {
            ex.execute("Update WLBill set fdeleted=1 where FInterID=" + id);
        } else {
            ex.execute("delete from WLBill where FInterID=" + id);
            ex.execute("delete from WLBillEntry where FInterID=" + id);
        }
    });
}

std::shared_ptr<ado::Recordset> SFKData::GetBillList(std::int16_t TranType,
                                                     const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        std::string sql;
        if (TranType == billcore::kind::kPayment) {
            sql =
                "select t1.*,t3.FNumber as FOrgaNumber,t3.FName as FOrgaName,t4.FName as FAcctName,"
                "t5.FUserName as FBiller,t6.FUserName as FChecker,t8.FName as FEmp,"
                "case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked "
                "from WLBill t1 inner Join t_Supplier t3 ON t1.FOrgaID=t3.FItemID "
                "Left Join t_Account t4 ON t1.FAcctID=t4.FItemID "
                "Left Join t_User t5 ON t1.FBillerID=t5.FUserID "
                "Left Join t_User t6 ON t1.FCheckerID=t6.FUserID "
                "Left Join t_Emp t8 on t1.FEmpID=t8.FItemID  where fTranType=13 " +
                strFilter + " order by t1.FDate desc,t3.FNumber,t1.FBillNo";
        } else {
            // Every other kind lists the member receipts: the choice is on 13 alone.
            sql =
                "select t1.*,t4.FName as FAcctName,t5.FUserName as FBiller,"
                "t6.FUserName as FChecker,t8.FName as FEmp,t3.FOwner,t3.FVipNO,"
                "case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
                "case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked "
                "from WLBill t1 inner Join Vip t3 ON t1.FOrgaID=t3.FVipID"
                " Left Join t_Account t4 ON t1.FAcctID=t4.FItemID "
                "Left Join t_User t5 ON t1.FBillerID=t5.FUserID "
                "Left Join t_User t6 ON t1.FCheckerID=t6.FUserID "
                "Left Join t_Emp t8 on t1.FEmpID=t8.FItemID  where FTranType=23 " +
                strFilter + " order by t1.FDate desc,t1.FBillNo";
        }
        return common::open_recordset(sql, common::GetPromptString(), Handler::Common);
    });
}

std::vector<std::int32_t> SFKData::GetBillInterID(std::int16_t TranType,
                                                  const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    return common::guarded(Handler::Common, [&] {
        const char* partner =
            TranType == billcore::kind::kPayment
                ? "from WLBill t1 Inner Join t_Item t2 ON t1.FOrgaID=t2.FItemID "
                : "from WLBill t1 Inner Join t_VipCard t2 ON t1.FOrgaID=t2.FItemID ";
        const std::string sql = std::string("select t1.FInterID ") + partner +
                                "Left Join t_Account t4 ON t1.FAcctID=t4.FItemID "
                                "Left Join t_User t5 ON t1.FBillerID=t5.FUserID "
                                "Left Join t_User t6 ON t1.FCheckerID=t6.FUserID "
                                "where t1.FTranType=" +
                                std::to_string(TranType) + " and " + strFilter;
        auto rs = common::open_recordset(sql, common::GetPromptString(), Handler::Common);
        std::vector<std::int32_t> ids;
        while (!rs->Eof()) {
            ids.push_back(rs->Fields("FInterID").Value().to_int32());
            rs->MoveNext();
        }
        rs->Close();
        return ids;
    });
}

void SFKData::CheckBill(std::vector<std::int32_t>& InterID, std::int32_t CheckerID) {
    common::guarded(Handler::Common, [&] {
        set_check_marks(InterID, "Update WLBill set FCheckerID=" + std::to_string(CheckerID));
    });
}

void SFKData::UnCheckBill(std::vector<std::int32_t>& InterID, std::int32_t /*CheckerID*/) {
    common::guarded(Handler::Common,
                    [&] { set_check_marks(InterID, "Update WLBill set FCheckerID=0"); });
}

void SFKData::UnblankOut(std::int32_t InterID) {
    billcore::Operation op(Handler::None);
    Executor& ex = op.ex();
    ex.execute("Update WLBill set FDeleted=0 where FInterID=" + std::to_string(InterID));
}

}  // namespace billdata
