// Binds the class Credit to the host: its methods, their parameters in order, optional ones marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/credit/credit.h")
#include "billdata/credit/credit.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires { &C::SaveData; }) {
        registry.add(
            ClassBinder<C>("Credit")
                .method("Init", &C::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"TranType", "BillDate", "BillNo", "StockID", "VipID", "Owner", "Phone",
                         "Remark", "BillerID", "OldInterID", "RsBill", "rsBillDetail"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .info());
    }
}

}  // namespace

void bind_credit(Registry& registry) {
    bind<Credit>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_credit(Registry&) {}

}  // namespace billdata::server

#endif
