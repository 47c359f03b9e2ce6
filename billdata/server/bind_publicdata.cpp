// Binds the class PublicData to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/publicdata/publicdata.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_publicdata(Registry& registry) {
    registry.add(
        ClassBinder<PublicData>("PublicData")
            .method("Init", &PublicData::Init, {"NewValue"})
            .example(R"({"NewValue": "Provider=SQLite;Data Source=shop.db"})")
            .method("GetBillData", &PublicData::GetBillData,
                    {"TranType", "QuerySql", "UserID", "ShowDetail"})
            .example(R"({"TranType": 99, "QuerySql": "", "UserID": 1, "ShowDetail": false})",
                     {"PosData.SaveData"})
            .method("UnblankOut", &PublicData::UnblankOut,
                    {"InterID", "TranType", "CurYear", "CurPeriod"})
            .example(R"({"InterID": 1, "TranType": 99, "CurYear": 2025, "CurPeriod": 3})",
                     {"PosData.DeleteBill"})
            .method("DelBill", &PublicData::DelBill,
                    {"InterID", "TranType", "CurYear", "CurPeriod", optional("DoBlankOut", false)})
            .example(R"({"InterID": 1, "TranType": 99, "CurYear": 2025, "CurPeriod": 3,
                         "DoBlankOut": true})",
                     {"PosData.SaveData"})
            .method("CheckBill", &PublicData::CheckBill, {"TranType", "InterID", "UserID"})
            .example(R"({"TranType": 99, "InterID": "1", "UserID": 2})", {"PosData.SaveData"})
            .method("UnCheckBill", &PublicData::UnCheckBill, {"TranType", "InterID", "UserID"})
            .example(R"({"TranType": 99, "InterID": "1", "UserID": 2})", {"PublicData.CheckBill"})
            .method("CacuSptjd", &PublicData::CacuSptjd, {"Cn", "InterID", "ReGen"})
            .no_example(
                "it works on the caller's open connection (Cn), which a call by name from the command line cannot pass")
            .method("RecacuSptjd", &PublicData::RecacuSptjd, {"Cn", "InterID"})
            .no_example(
                "it works on the caller's open connection (Cn), which a call by name from the command line cannot pass")
            .info());
}

}  // namespace billdata::server
