// Binds the class PosData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/posdata/posdata.h")
#include "billdata/posdata/posdata.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires {
                      &C::SaveData;
                      &C::GetPosBill;
                  }) {
        registry.add(
            ClassBinder<C>("PosData")
                .method("Init", &C::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
                .method("SaveData", &C::SaveData,
                        {"StockID",       "BillDate",    "BillData",       "SumAmount",
                         "GetCash",       "GetBlank",    "GetDyq",         "OddMent",
                         "BillRemark",    "ClassName",   "QkAmount",       "VipID",
                         "BillerID",      "GetAmount",   "ChangeAmount",   "GetQk",
                         "rsPreSendItem", "SumJf",       "AutoDelRefBill", "AmountBogusToVip",
                         "JfExchange",    "GetJfAmount", "Machine",        "StockBillID",
                         "BillNoBegChar"})
                .method("DeleteBill", &C::DeleteBill,
                        {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
                .method("UnblankOut", &C::UnblankOut, {"InterID"})
                .method("GetBillList", &C::GetBillList, {"TranType", "strFilter"})
                .method("GetBillList_Simple", &C::GetBillList_Simple, {"TranType", "strFilter"})
                .method("GetPosBill", &C::GetPosBill, {"BillID"})
                .info());
    }
}

}  // namespace

void bind_posdata(Registry& registry) {
    bind<PosData>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_posdata(Registry&) {}

}  // namespace billdata::server

#endif
