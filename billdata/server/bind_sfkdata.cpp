// Binds the class SFKData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/sfkdata/sfkdata.h")
#include "billdata/server/binder.h"
#include "billdata/sfkdata/sfkdata.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires {
                      &C::SaveData;
                      &C::CheckBill;
                  }) {
        registry.add(
            ClassBinder<C>("SFKData")
                .method("Init", &C::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"TranType", "BillDate", "BillNo", "AcctID", "OrgaID", "EmpID", "SumAmount",
                         "OddMent", "Memo", "BillerID", "OldInterID", "OrderBillID", "StockBillID"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .method("GetBillInterID", &C::GetBillInterID, {"TranType", "strFilter"})
                .method("CheckBill", &C::CheckBill, {"InterID", "CheckerID"})
                .method("UnCheckBill", &C::UnCheckBill, {"InterID", "CheckerID"})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .info());
    }
}

}  // namespace

void bind_sfkdata(Registry& registry) {
    bind<SFKData>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_sfkdata(Registry&) {}

}  // namespace billdata::server

#endif
