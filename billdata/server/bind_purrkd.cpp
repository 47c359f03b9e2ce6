// Binds the class PurRkd to the host: its methods, their parameters in order, optional ones marked.

#include "billdata/purrkd/purrkd.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_purrkd(Registry& registry) {
    registry.add(
        ClassBinder<PurRkd>("PurRkd")
            .method("Init", &PurRkd::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .method("SaveData", &PurRkd::SaveData,
                    {"TranType", "BillDate", "BillNo", "StockID", "OrgaID", "AcctID", "Remark",
                     "BillerID", "SettleID", "OldInterID", "RsBill", "SumQty", "SumAmount",
                     "rsBillDetail"})
            .method("UnblankOut", &PurRkd::UnblankOut, {"InterID"})
            .method("DeleteBill", &PurRkd::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("GetBillList", &PurRkd::GetBillList, {"TranType", "strFilter"})
            .method("GetBillList_Simple", &PurRkd::GetBillList_Simple, {"TranType", "strFilter"})
            .info());
}

}  // namespace billdata::server
