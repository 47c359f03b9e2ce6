// Binds the class PublicData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/publicdata/publicdata.h")
#include "billdata/publicdata/publicdata.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires {
                      &C::GetBillData;
                      &C::DelBill;
                      &C::CheckBill;
                  }) {
        registry.add(ClassBinder<C>("PublicData")
                         .method("Init", &C::Init, {"NewValue"})
                         .method("GetBillData", &C::GetBillData,
                                 {"TranType", "QuerySql", "UserID", "ShowDetail"})
                         .method("UnblankOut", &C::UnblankOut,
                                 {"InterID", "TranType", "CurYear", "CurPeriod"})
                         .method("DelBill", &C::DelBill,
                                 {"InterID", "TranType", "CurYear", "CurPeriod",
                                  optional("DoBlankOut", false)})
                         .method("CheckBill", &C::CheckBill, {"TranType", "InterID", "UserID"})
                         .method("UnCheckBill", &C::UnCheckBill, {"TranType", "InterID", "UserID"})
                         .method("CacuSptjd", &C::CacuSptjd, {"Cn", "InterID", "ReGen"})
                         .method("RecacuSptjd", &C::RecacuSptjd, {"Cn", "InterID"})
                         .info());
    }
}

}  // namespace

void bind_publicdata(Registry& registry) {
    bind<PublicData>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_publicdata(Registry&) {}

}  // namespace billdata::server

#endif
