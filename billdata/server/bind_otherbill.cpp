// Binds the class OtherBill to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/otherbill/otherbill.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_otherbill(Registry& registry) {
    registry.add(
        ClassBinder<OtherBill>("OtherBill")
            .method("Init", &OtherBill::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .method("SaveData", &OtherBill::SaveData,
                    {"TranType", "BillDate", "BillNo", "InStockID", "Cause", "OutStockID", "Remark",
                     "BillerID", "OldInterID", "RsBill", "rsBillDetail"})
            .method("UnblankOut", &OtherBill::UnblankOut, {"InterID"})
            .method("DeleteBill", &OtherBill::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("GetBillList", &OtherBill::GetBillList, {"TranType", "strFilter"})
            .method("GetBillList_Simple", &OtherBill::GetBillList_Simple, {"TranType", "strFilter"})
            .info());
}

}  // namespace billdata::server
