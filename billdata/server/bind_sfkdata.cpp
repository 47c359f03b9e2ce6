// Binds the class SFKData to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"
#include "billdata/sfkdata/sfkdata.h"

namespace billdata::server {

void bind_sfkdata(Registry& registry) {
    registry.add(
        ClassBinder<SFKData>("SFKData")
            .method("Init", &SFKData::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .example(
                R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db", "NewCurYear": 2025,
                         "NewCurPeriod": 3})")
            .method("SaveData", &SFKData::SaveData,
                    {"TranType", "BillDate", "BillNo", "AcctID", "OrgaID", "EmpID", "SumAmount",
                     "OddMent", "Memo", "BillerID", "OldInterID", "OrderBillID", "StockBillID"})
            .example(R"({"TranType": 13, "BillDate": "2025-03-09", "BillNo": "", "AcctID": 2,
                "OrgaID": 101, "EmpID": 1, "SumAmount": 500, "OddMent": 0, "Memo": "货款",
                "BillerID": 1, "OldInterID": 0, "OrderBillID": 0, "StockBillID": 0})")
            .method("DeleteBill", &SFKData::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 13, "InterID": 1, "DoBlankOut": true})", {"SFKData.SaveData"})
            .method("GetBillList", &SFKData::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 13, "strFilter": ""})", {"SFKData.SaveData"})
            .method("GetBillInterID", &SFKData::GetBillInterID, {"TranType", "strFilter"})
            .example(R"({"TranType": 13, "strFilter": "1=1"})", {"SFKData.SaveData"})
            .method("CheckBill", &SFKData::CheckBill, {"InterID", "CheckerID"})
            .example(R"({"InterID": [1], "CheckerID": 2})", {"SFKData.SaveData"})
            .method("UnCheckBill", &SFKData::UnCheckBill, {"InterID", "CheckerID"})
            .example(R"({"InterID": [1], "CheckerID": 2})", {"SFKData.CheckBill"})
            .method("UnblankOut", &SFKData::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1})", {"SFKData.DeleteBill"})
            .info());
}

}  // namespace billdata::server
