// Binds the class vipOrder to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"
#include "billdata/viporder/viporder.h"

namespace billdata::server {

void bind_viporder(Registry& registry) {
    registry.add(
        ClassBinder<vipOrder>("vipOrder")
            .method("Init", &vipOrder::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
            .example(
                R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db", "New_CurYear": 2025,
                         "New_CurPeriod": 3})")
            .method("SaveData", &vipOrder::SaveData,
                    {"TranType", "BillDate", "BillNo", "Earnest", "AcctID", "Remark", "VipID",
                     "Owner", "Phone", "UserID", "ModifyInterID", "BillData"})
            .reads("BillData",
                   {"FItemID", "FSalerID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice",
                    "FRetailAmount", "FUnitCost", "FPreSend", "FColor", "FSizeID"})
            .example(R"({"TranType": 21, "BillDate": "2025-03-09", "BillNo": "", "Earnest": 100,
                "AcctID": 1, "Remark": "到货通知", "VipID": 1002, "Owner": "赵丽 Zhao Li",
                "Phone": "13800000002", "UserID": 3, "ModifyInterID": 0,
                "BillData": {"fields": ["FItemID", "FSalerID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice", "FRetailAmount", "FUnitCost", "FPreSend", "FColor", "FSizeID"],
                  "rows": [[4, 2, 2, 199, 398, 0.87, 229, 458, 95, 0, "灰色", 6]]}})")
            .method("DeleteBill", &vipOrder::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 21, "InterID": 1, "DoBlankOut": true})", {"vipOrder.SaveData"})
            .method("UnblankOut", &vipOrder::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1})", {"vipOrder.DeleteBill"})
            .method("GetBillList", &vipOrder::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 21, "strFilter": ""})", {"vipOrder.SaveData"})
            .returns({"FInterID",    "FDate",       "FBillNo",  "FVipCard",     "FSysTime",
                      "FQty",        "FPrice",      "FAmount",  "FSaler",       "FSdyh",
                      "FSaleQty",    "FName",       "FRemark",  "FColor",       "FSize",
                      "FProductNo",  "FUnit",       "FZkRate",  "FRetailPrice", "FRetailAmount",
                      "FUnitCost",   "FPreSend",    "FBiller",  "FChecker",     "FEarnest",
                      "FAcctName",   "FItemID",     "FSizeID",  "FSizeGroupID", "FSalePrice",
                      "FSalerID",    "FPhone",      "FOwner",   "FVipNo",       "FVipID",
                      "FRefInteriD", "FRefEntryID", "FDeleted", "FChecked"})
            .info());
}

}  // namespace billdata::server
