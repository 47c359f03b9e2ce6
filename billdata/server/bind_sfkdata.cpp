// Binds the class SFKData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"
#include "billdata/sfkdata/sfkdata.h"

namespace billdata::server {

void bind_sfkdata(Registry& registry) {
    registry.add(
        ClassBinder<SFKData>("SFKData")
            .method("Init", &SFKData::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .method("SaveData", &SFKData::SaveData,
                    {"TranType", "BillDate", "BillNo", "AcctID", "OrgaID", "EmpID", "SumAmount",
                     "OddMent", "Memo", "BillerID", "OldInterID", "OrderBillID", "StockBillID"})
            .method("DeleteBill", &SFKData::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("GetBillList", &SFKData::GetBillList, {"TranType", "strFilter"})
            .method("GetBillInterID", &SFKData::GetBillInterID, {"TranType", "strFilter"})
            .method("CheckBill", &SFKData::CheckBill, {"InterID", "CheckerID"})
            .method("UnCheckBill", &SFKData::UnCheckBill, {"InterID", "CheckerID"})
            .method("UnblankOut", &SFKData::UnblankOut, {"InterID"})
            .info());
}

}  // namespace billdata::server
