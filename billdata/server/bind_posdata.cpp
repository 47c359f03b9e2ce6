// Binds the class PosData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/posdata/posdata.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_posdata(Registry& registry) {
    registry.add(
        ClassBinder<PosData>("PosData")
            .method("Init", &PosData::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
            .method(
                "SaveData", &PosData::SaveData,
                {"StockID",    "BillDate",      "BillData", "SumAmount",      "GetCash",
                 "GetBlank",   "GetDyq",        "OddMent",  "BillRemark",     "ClassName",
                 "QkAmount",   "VipID",         "BillerID", "GetAmount",      "ChangeAmount",
                 "GetQk",      "rsPreSendItem", "SumJf",    "AutoDelRefBill", "AmountBogusToVip",
                 "JfExchange", "GetJfAmount",   "Machine",  "StockBillID",    "BillNoBegChar"})
            .method("DeleteBill", &PosData::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .method("UnblankOut", &PosData::UnblankOut, {"InterID"})
            .method("GetBillList", &PosData::GetBillList, {"TranType", "strFilter"})
            .method("GetBillList_Simple", &PosData::GetBillList_Simple, {"TranType", "strFilter"})
            .method("GetPosBill", &PosData::GetPosBill, {"BillID"})
            .info());
}

}  // namespace billdata::server
