// Binds the class OrderBill to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/orderbill/orderbill.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_orderbill(Registry& registry) {
    registry.add(
        ClassBinder<OrderBill>("OrderBill")
            .method("Init", &OrderBill::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .method("SaveData", &OrderBill::SaveData,
                    {"TranType", "BillDate", "BillNo", "OrgaID", "Remark", "BillerID", "OldInterID",
                     "RsBill", "Amount", "AcctID", "rsBillDetail"})
            .method("UnblankOut", &OrderBill::UnblankOut, {"InterID"})
            .method("DeleteBill", &OrderBill::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("GetBill", &OrderBill::GetBill, {"TranType", "strFilter"})
            .method("GetBillList", &OrderBill::GetBillList, {"TranType", "strFilter"})
            .method("GetBillList_Simple", &OrderBill::GetBillList_Simple, {"TranType", "strFilter"})
            .method("GetBillInterID", &OrderBill::GetBillInterID, {"strFilter"})
            .info());
}

}  // namespace billdata::server
