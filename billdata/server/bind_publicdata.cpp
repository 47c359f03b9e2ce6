// Binds the class PublicData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/publicdata/publicdata.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_publicdata(Registry& registry) {
    registry.add(
        ClassBinder<PublicData>("PublicData")
            .method("Init", &PublicData::Init, {"NewValue"})
            .method("GetBillData", &PublicData::GetBillData,
                    {"TranType", "QuerySql", "UserID", "ShowDetail"})
            .method("UnblankOut", &PublicData::UnblankOut,
                    {"InterID", "TranType", "CurYear", "CurPeriod"})
            .method("DelBill", &PublicData::DelBill,
                    {"InterID", "TranType", "CurYear", "CurPeriod", optional("DoBlankOut", false)})
            .method("CheckBill", &PublicData::CheckBill, {"TranType", "InterID", "UserID"})
            .method("UnCheckBill", &PublicData::UnCheckBill, {"TranType", "InterID", "UserID"})
            .method("CacuSptjd", &PublicData::CacuSptjd, {"Cn", "InterID", "ReGen"})
            .method("RecacuSptjd", &PublicData::RecacuSptjd, {"Cn", "InterID"})
            .info());
}

}  // namespace billdata::server
