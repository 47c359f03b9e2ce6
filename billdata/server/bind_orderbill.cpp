// Binds the class OrderBill to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/orderbill/orderbill.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_orderbill(Registry& registry) {
    registry.add(
        ClassBinder<OrderBill>("OrderBill")
            .method("Init", &OrderBill::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .example(
                R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db", "NewCurYear": 2025,
                         "NewCurPeriod": 3})")
            .method("SaveData", &OrderBill::SaveData,
                    {"TranType", "BillDate", "BillNo", "OrgaID", "Remark", "BillerID", "OldInterID",
                     "RsBill", "Amount", "AcctID", "rsBillDetail"})
            .reads("RsBill", {"FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                              "FRetailPrice", "FRetailAmount", "FMemo"})
            .reads("rsBillDetail",
                   {"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"})
            .example(R"({"TranType": 11, "BillDate": "2025-03-09", "BillNo": "", "OrgaID": 102,
                "Remark": "三月订货", "BillerID": 2, "OldInterID": 0,
                "RsBill": {"fields": ["FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                    "FRetailPrice", "FRetailAmount", "FMemo"],
                  "rows": [[4, "1", 20, 1, 95, 1900, 229, 4580, "春季补货"]]},
                "Amount": 1000, "AcctID": 2,
                "rsBillDetail": {"fields": ["FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"],
                  "rows": [[0, 4, "1", 6, "灰色", 0, 10], [0, 4, "1", 7, "灰色", 0, 10]]}})")
            .method("UnblankOut", &OrderBill::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1000000001})", {"OrderBill.DeleteBill"})
            .method("DeleteBill", &OrderBill::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 11, "InterID": 1000000001, "DoBlankOut": true})",
                     {"OrderBill.SaveData"})
            .method("GetBill", &OrderBill::GetBill, {"TranType", "strFilter"})
            .example(R"({"TranType": 11, "strFilter": "t1.FInterID=1000000001"})",
                     {"OrderBill.SaveData"})
            .returns({"FDeleted",     "FDate",         "FJhDate",  "FBillNo",  "FRemark",
                      "FEarnest",     "FAcctName",     "FInterID", "FEntryID", "FItemID",
                      "FRowKey",      "FQty",          "FZkRate",  "FPrice",   "FAmount",
                      "FRetailPrice", "FRetailAmount", "FMemo",    "FSalerID", "FUnitCost",
                      "FPreSend",     "FSaleQty",      "FNumber",  "FName",    "FUnit",
                      "FProductNo",   "FSizeID",       "FUnit",    "FSizeID",  "FPurYear",
                      "FOrgaName",    "FBiller",       "FChecker"})
            .method("GetBillList", &OrderBill::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 11, "strFilter": ""})", {"OrderBill.SaveData"})
            .returns({"FDate",
                      "FBillNo",
                      "FInterID",
                      "FHisPrice",
                      "FSumQty",
                      "FSumAmount",
                      "FSumRetailAmount",
                      "FRemark",
                      "FSupplier",
                      "FBiller",
                      "FChecker",
                      "FDeleted",
                      "FEarnest",
                      "FAcctName",
                      "FNumber",
                      "FProductNo",
                      "FName",
                      "FUnit",
                      "FColor",
                      "FSize",
                      "FQty",
                      "FPrice",
                      "FAmount",
                      "FRetailPrice",
                      "FRetailAmount",
                      "FZkRate",
                      "FMemo",
                      "FChecked"})
            .method("GetBillList_Simple", &OrderBill::GetBillList_Simple, {"TranType", "strFilter"})
            .example(R"({"TranType": 11, "strFilter": "and t1.FOrgaID=102"})",
                     {"OrderBill.SaveData"})
            .returns({"FDate", "FBillNo", "FInterID", "FSysTime", "FSumQty", "FSumAmount",
                      "FSumRetailAmount", "FRemark", "FSupplier", "FBiller", "FChecker", "FDeleted",
                      "FEarnest", "FAcctName", "FChecked"})
            .method("GetBillInterID", &OrderBill::GetBillInterID, {"strFilter"})
            .example(R"({"strFilter": "t1.FOrgaID=102"})", {"OrderBill.SaveData"})
            .info());
}

}  // namespace billdata::server
