// Binds the class OtherBill to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/otherbill/otherbill.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_otherbill(Registry& registry) {
    registry.add(
        ClassBinder<OtherBill>("OtherBill")
            .method("Init", &OtherBill::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .example(
                R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db", "NewCurYear": 2025,
                         "NewCurPeriod": 3})")
            .method("SaveData", &OtherBill::SaveData,
                    {"TranType", "BillDate", "BillNo", "InStockID", "Cause", "OutStockID", "Remark",
                     "BillerID", "OldInterID", "RsBill", "rsBillDetail"})
            .reads("RsBill", {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                              "FRetailAmount", "FZkRate", "FMemo"})
            .reads("rsBillDetail",
                   {"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"})
            .example(
                R"({"TranType": 31, "BillDate": "2025-03-09", "BillNo": "", "InStockID": 2, "Cause": "补货", "OutStockID": 1, "Remark": "",
                "BillerID": 2, "OldInterID": 0,
                "RsBill": {"fields": ["FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice", "FRetailAmount", "FZkRate", "FMemo"],
                  "rows": [[1, "1", 20, 40, 800, 99, 1980, 1, ""]]},
                "rsBillDetail": {"fields": ["FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"],
                  "rows": [[0, 1, "1", 2, "黑色", 0, 10], [0, 1, "1", 3, "白色", 0, 10]]}})")
            .method("UnblankOut", &OtherBill::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1})", {"OtherBill.DeleteBill"})
            .method("DeleteBill", &OtherBill::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 31, "InterID": 1, "DoBlankOut": true})",
                     {"OtherBill.SaveData"})
            .method("GetBillList", &OtherBill::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 31, "strFilter": ""})", {"OtherBill.SaveData"})
            .returns({"FDate",      "FBillNo",      "FInterID",      "FSumRetailAmount",
                      "FCause",     "FPrintTimes",  "FSysTime",      "FSumQty",
                      "FSumAmount", "FInStockName", "FOutStockName", "FRemark",
                      "FBiller",    "FChecker",     "FTranType",     "FNumber",
                      "FProductNo", "FName",        "FUnit",         "FDeleted",
                      "FColor",     "FSize",        "FQty",          "FPrice",
                      "FAmount",    "FRetailPrice", "FRetailAmount", "FZkRate",
                      "FMemo",      "FChecked"})
            .method("GetBillList_Simple", &OtherBill::GetBillList_Simple, {"TranType", "strFilter"})
            .example(R"({"TranType": 31, "strFilter": "and t1.FBillNo<>''"})",
                     {"OtherBill.SaveData"})
            .returns({"FDate", "FBillNo", "FInterID", "FSumRetailAmount", "FCause", "FPrintTimes",
                      "FDeleted", "FSysTime", "FSumQty", "FSumAmount", "FInStockName",
                      "FOutStockName", "FRemark", "FBiller", "FChecker", "FTranType", "FChecked"})
            .info());
}

}  // namespace billdata::server
