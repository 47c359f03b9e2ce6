// Binds the class OtherBill to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/otherbill/otherbill.h")
#include "billdata/otherbill/otherbill.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires { &C::SaveData; }) {
        registry.add(
            ClassBinder<C>("OtherBill")
                .method("Init", &C::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"TranType", "BillDate", "BillNo", "InStockID", "Cause", "OutStockID",
                         "Remark", "BillerID", "OldInterID", "RsBill", "rsBillDetail"})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .method("GetBillList_Simple", &C::GetBillList_Simple, {"TranType", "strFilter"})
                .info());
    }
}

}  // namespace

void bind_otherbill(Registry& registry) {
    bind<OtherBill>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_otherbill(Registry&) {}

}  // namespace billdata::server

#endif
