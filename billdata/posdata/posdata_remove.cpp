// Voiding, deleting and restoring a till sale.

#include "billdata/billcore/costing.h"
#include "billdata/billcore/operation.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"
#include "billdata/common/session.h"
#include "billdata/posdata/posdata.h"

namespace billdata {

namespace {

using common::Handler;

}  // namespace

void PosData::DeleteBill(std::int16_t /*TranType*/, std::int32_t InterID,
                         std::shared_ptr<ado::Connection> Cn, bool DoBlankOut) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, Cn);
        const auto& cn = op.connection();
        common::Executor& ex = op.ex();
        const std::string id = std::to_string(InterID);

        auto rs = ex.query(
            "select isnull(FDeleted,0) as FDeleted,FDate,FYear,FPeriod,isnull(FCheckerID,0) as FCheckerId,FBillNo from ICStockBill where FInterID=" +
            id);
        // On a missing bill the message is built from the empty result, and reading it fails
        // first: the caller gets the record set's own "no current record" text.
        if (rs->Eof())
            throw ado::ComError::component("删除单据失败，单据“" +
                                           rs->Fields("FBillNo").Value().to_string() +
                                           "”已经不存在！");
        const bool was_void = rs->Fields("FDeleted").Value().to_int32() != 0;
        const std::int32_t bill_month =
            rs->Fields("FYear").Value().to_int32() * 12 + rs->Fields("FPeriod").Value().to_int32();
        const std::int32_t checker = rs->Fields("FCheckerId").Value().to_int32();
        const std::string bill_no = rs->Fields("FBillNo").Value().to_string();
        rs->Close();

        const common::SessionContext& s = common::session();
        if (bill_month < s.CurYear * 12 + s.CurPeriod)
            throw ado::ComError::component("对不起,不能作废或删除以前月份的单据!");
        if (checker > 0)
            throw ado::ComError::component("删除单据失败，单据“" + bill_no + "”已经审核！");

        // The reversals are filtered on the void mark, so a void bill is never reversed twice.
        ex.execute(
            "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)-t2.Fqty from icstockbillentry t1 inner join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid inner join icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=" +
            id + " and isnull(FDeleted,0)=0 and t2.FRefTranType=27");
        ex.execute(
            "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)-t2.Fqty from icOrderEntry t1 inner join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid inner join icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=" +
            id + " and isnull(FDeleted,0)=0 and t2.FRefTranType=21 ");
        // Takes back the bill's stored points (not the net credited at saving) and the purchase
        // amount; the front ends' reports are built on exactly these totals.
        ex.execute(
            "Update t1 set t1.FSumJf_Un=isnull(FSumJf_Un,0)-t2.FSumJf,t1.FSumJf=isnull(t1.FSumJf,0)-t2.FSumJf,FSumBuyAmount=FSumBuyAmount-t2.FSumAmount from Vip t1 inner join icstockbill t2 on t1.fvipid=t2.fvipid where t2.fInterID=" +
            id + " and isnull(FDeleted,0)=0");

        if (DoBlankOut) {
            ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" + id);
            ex.execute("Update VipJf_History set FDeleted=1 where FBillInterID=" + id);
            billcore::RecacuSptjd(cn, InterID);
        } else {
            if (!was_void) {
                // Costs are rebuilt without this sale while its rows still exist.
                ex.execute("Update ICStockBill set FDeleted=1 where FInterID=" + id);
                billcore::RecacuSptjd(cn, InterID);
            }
            // The lines and size/colour rows go with the header (a trigger of the schema).
            ex.execute("delete from ICStockBill where FInterID=" + id);
            ex.execute("delete from VipJf_History where FBillInterID=" + id);
        }
    });
}

void PosData::UnblankOut(std::int32_t InterID) {
    billcore::Operation op(Handler::None);
    common::Executor& ex = op.ex();
    const std::string id = std::to_string(InterID);
    ex.execute("Update ICStockBill set FDeleted=0 where FInterID=" + id);
    // The card's purchase total stays as DeleteBill left it.
    ex.execute(
        "Update t1 set t1.FSumJf_Un=isnull(FSumJf_Un,0)+t2.FSumJf,t1.FSumJf=isnull(t1.FSumJf,0)+t2.FSumJf from Vip t1 inner join icstockbill t2 on t1.fvipid=t2.fvipid where t2.fInterID=" +
        id);
    ex.execute("Update VipJf_History set FDeleted=0 where FBillInterID=" + id);
    // No filter on the referenced kind: every referenced id pair is matched in both tables.
    ex.execute(
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icstockbillentry t1 inner join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid where t2.FInterID=" +
        id);
    ex.execute(
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icOrderEntry t1 inner join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid where t2.FInterID=" +
        id);
    billcore::RecacuSptjd(op.connection(), InterID);
}

}  // namespace billdata
