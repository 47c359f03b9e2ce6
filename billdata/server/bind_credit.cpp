// Binds the class Credit to the host: its methods, their parameters in order, optional ones marked.

#include "billdata/credit/credit.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_credit(Registry& registry) {
    registry.add(
        ClassBinder<Credit>("Credit")
            .method("Init", &Credit::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
            .method("SaveData", &Credit::SaveData,
                    {"TranType", "BillDate", "BillNo", "StockID", "VipID", "Owner", "Phone",
                     "Remark", "BillerID", "OldInterID", "RsBill", "rsBillDetail"})
            .method("DeleteBill", &Credit::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("UnblankOut", &Credit::UnblankOut, {"InterID"})
            .method("GetBillList", &Credit::GetBillList, {"TranType", "strFilter"})
            .info());
}

}  // namespace billdata::server
