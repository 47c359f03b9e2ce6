// Binds the class OrderBill to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/orderbill/orderbill.h")
#include "billdata/orderbill/orderbill.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires {
                      &C::SaveData;
                      &C::GetBillInterID;
                  }) {
        registry.add(
            ClassBinder<C>("OrderBill")
                .method("Init", &C::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"TranType", "BillDate", "BillNo", "OrgaID", "Remark", "BillerID",
                         "OldInterID", "RsBill", "Amount", "AcctID", "rsBillDetail"})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("GetBill", &C::GetBill, {"TranType", "strFilter"})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .method("GetBillList_Simple", &C::GetBillList_Simple, {"TranType", "strFilter"})
                .method("GetBillInterID", &C::GetBillInterID, {"strFilter"})
                .info());
    }
}

}  // namespace

void bind_orderbill(Registry& registry) {
    bind<OrderBill>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_orderbill(Registry&) {}

}  // namespace billdata::server

#endif
