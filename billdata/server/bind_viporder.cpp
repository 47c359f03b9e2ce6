// Binds the class vipOrder to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"
#include "billdata/viporder/viporder.h"

namespace billdata::server {

void bind_viporder(Registry& registry) {
    registry.add(
        ClassBinder<vipOrder>("vipOrder")
            .method("Init", &vipOrder::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
            .method("SaveData", &vipOrder::SaveData,
                    {"TranType", "BillDate", "BillNo", "Earnest", "AcctID", "Remark", "VipID",
                     "Owner", "Phone", "UserID", "ModifyInterID", "BillData"})
            .method("DeleteBill", &vipOrder::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("UnblankOut", &vipOrder::UnblankOut, {"InterID"})
            .method("GetBillList", &vipOrder::GetBillList, {"TranType", "strFilter"})
            .info());
}

}  // namespace billdata::server
