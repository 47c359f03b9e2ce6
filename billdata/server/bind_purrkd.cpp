// Binds the class PurRkd to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/purrkd/purrkd.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_purrkd(Registry& registry) {
    registry.add(
        ClassBinder<PurRkd>("PurRkd")
            .method("Init", &PurRkd::Init, {"NewPromptString", "NewCurYear", "NewCurPeriod"})
            .example(
                R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db", "NewCurYear": 2025,
                         "NewCurPeriod": 3})")
            .method("SaveData", &PurRkd::SaveData,
                    {"TranType", "BillDate", "BillNo", "StockID", "OrgaID", "AcctID", "Remark",
                     "BillerID", "SettleID", "OldInterID", "RsBill", "SumQty", "SumAmount",
                     "rsBillDetail"})
            .reads("RsBill", {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                              "FRetailAmount", "FZkRate", "FMemo", "FHisPrice"})
            .reads("rsBillDetail",
                   {"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"})
            .example(
                R"({"TranType": 112, "BillDate": "2025-03-09", "BillNo": "", "StockID": 1, "OrgaID": 101, "AcctID": 2, "Remark": "美邦到货",
                "BillerID": 1, "SettleID": 0, "OldInterID": 0,
                "RsBill": {"fields": ["FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice", "FRetailAmount", "FZkRate", "FMemo", "FHisPrice"],
                  "rows": [[1, "1", 20, 42, 840, 99, 1980, 1, "", 40]]},
                "SumQty": 20, "SumAmount": 840,
                "rsBillDetail": {"fields": ["FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"],
                  "rows": [[0, 1, "1", 2, "黑色", 0, 10], [0, 1, "1", 3, "白色", 0, 10]]}})")
            .method("UnblankOut", &PurRkd::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1})", {"PurRkd.DeleteBill"})
            .method("DeleteBill", &PurRkd::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 112, "InterID": 1, "DoBlankOut": true})", {"PurRkd.SaveData"})
            .method("GetBillList", &PurRkd::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 112, "strFilter": ""})", {"PurRkd.SaveData"})
            .returns(
                {"FDate",        "FBillNo",       "FSettle",    "FInterID",   "FSumRetailAmount",
                 "FPrintTimes",  "FSysTime",      "FSumQty",    "FStockName", "FAcctName",
                 "FRemark",      "FSupplier",     "FSettleID",  "FBiller",    "FChecker",
                 "FSumAmount",   "FNumber",       "FProductNo", "FName",      "FUnit",
                 "FColor",       "FSize",         "FQty",       "FPrice",     "FAmount",
                 "FRetailPrice", "FRetailAmount", "FZkRate",    "FMemo",      "FDeleted",
                 "FChecked"})
            .method("GetBillList_Simple", &PurRkd::GetBillList_Simple, {"TranType", "strFilter"})
            .example(R"({"TranType": 112, "strFilter": "and t1.FBillNo<>''"})", {"PurRkd.SaveData"})
            .returns({"FDate", "FBillNo", "FSettle", "FInterID", "FSumRetailAmount", "FPrintTimes",
                      "FSysTime", "FSumQty", "FStockName", "FAcctName", "FRemark", "FSupplier",
                      "FSettleID", "FBiller", "FChecker", "FSumAmount", "FDeleted", "FChecked"})
            .info());
}

}  // namespace billdata::server
