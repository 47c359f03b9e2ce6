// Binds the class Credit to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/credit/credit.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_credit(Registry& registry) {
    registry.add(
        ClassBinder<Credit>("Credit")
            .method("Init", &Credit::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
            .example(
                R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db", "New_CurYear": 2025,
                         "New_CurPeriod": 3})")
            .method("SaveData", &Credit::SaveData,
                    {"TranType", "BillDate", "BillNo", "StockID", "VipID", "Owner", "Phone",
                     "Remark", "BillerID", "OldInterID", "RsBill", "rsBillDetail"})
            .reads("RsBill",
                   {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                    "FRetailAmount", "FZkRate", "FMemo", "FUnitCost", "FRefInterID", "FRefEntryID"})
            .reads("rsBillDetail",
                   {"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"})
            .example(R"({"TranType": 27, "BillDate": "2025-03-09", "BillNo": "", "StockID": 2,
                "VipID": 1001, "Owner": "刘洋 Liu Yang", "Phone": "13800000001", "Remark": "试穿",
                "BillerID": 3, "OldInterID": 0,
                "RsBill": {"fields": ["FItemID", "FRowKey", "FQty", "FPrice", "FAmount",
                    "FRetailPrice", "FRetailAmount", "FZkRate", "FMemo", "FUnitCost",
                    "FRefInterID", "FRefEntryID"],
                  "rows": [[1, "1", 3, 89, 267, 99, 297, 0.9, "", 40, 0, 0]]},
                "rsBillDetail": {"fields": ["FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"],
                  "rows": [[0, 1, "1", 3, "白色", 0, 3]]}})")
            .method("DeleteBill", &Credit::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 27, "InterID": 1, "DoBlankOut": true})", {"Credit.SaveData"})
            .method("UnblankOut", &Credit::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1})", {"Credit.DeleteBill"})
            .method("GetBillList", &Credit::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 27, "strFilter": ""})", {"Credit.SaveData"})
            .returns(
                {"FDate",        "FBillNo",       "FInterID",   "FTranType",  "FSumRetailAmount",
                 "FPrintTimes",  "FSysTime",      "FSumQty",    "FSumAmount", "FStockName",
                 "FVipCard",     "FOwner",        "FPhone",     "FRemark",    "FBiller",
                 "FChecker",     "FNumber",       "FProductNo", "FName",      "FUnit",
                 "FColor",       "FSize",         "FQty",       "FPrice",     "FAmount",
                 "FRetailPrice", "FRetailAmount", "FZkRate",    "FMemo",      "FRtnQty",
                 "FSaleQty",     "FDeleted",      "FChecked"})
            .info());
}

}  // namespace billdata::server
