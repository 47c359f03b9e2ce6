// Binds the class PurRkd to the host: its methods, their parameters in order, optional ones marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/purrkd/purrkd.h")
#include "billdata/purrkd/purrkd.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires { &C::SaveData; }) {
        registry.add(
            ClassBinder<C>("PurRkd")
                .method("Init", &C::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"TranType", "BillDate", "BillNo", "StockID", "OrgaID", "AcctID", "Remark",
                         "BillerID", "SettleID", "OldInterID", "RsBill", "SumQty", "SumAmount",
                         "rsBillDetail"})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .method("GetBillList_Simple", &C::GetBillList_Simple, {"TranType", "strFilter"})
                .info());
    }
}

}  // namespace

void bind_purrkd(Registry& registry) {
    bind<PurRkd>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_purrkd(Registry&) {}

}  // namespace billdata::server

#endif
