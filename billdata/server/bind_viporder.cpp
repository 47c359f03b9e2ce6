// Binds the class vipOrder to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/viporder/viporder.h")
#include "billdata/server/binder.h"
#include "billdata/viporder/viporder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires { &C::SaveData; }) {
        registry.add(
            ClassBinder<C>("vipOrder")
                .method("Init", &C::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"TranType", "BillDate", "BillNo", "Earnest", "AcctID", "Remark", "VipID",
                         "Owner", "Phone", "UserID", "ModifyInterID", "BillData"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .info());
    }
}

}  // namespace

void bind_viporder(Registry& registry) {
    bind<vipOrder>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_viporder(Registry&) {}

}  // namespace billdata::server

#endif
