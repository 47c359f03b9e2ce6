// Binds the class PosData to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/posdata/posdata.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_posdata(Registry& registry) {
    registry.add(
        ClassBinder<PosData>("PosData")
            .method("Init", &PosData::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
            .example(R"({"NewPromptString": "Provider=SQLite;Data Source=shop.db",
                         "New_CurYear": 2025, "New_CurPeriod": 3})")
            .method(
                "SaveData", &PosData::SaveData,
                {"StockID",    "BillDate",      "BillData", "SumAmount",      "GetCash",
                 "GetBlank",   "GetDyq",        "OddMent",  "BillRemark",     "ClassName",
                 "QkAmount",   "VipID",         "BillerID", "GetAmount",      "ChangeAmount",
                 "GetQk",      "rsPreSendItem", "SumJf",    "AutoDelRefBill", "AmountBogusToVip",
                 "JfExchange", "GetJfAmount",   "Machine",  "StockBillID",    "BillNoBegChar"})
            .reads("BillData", {"FItemID", "FQty", "FAmount", "FZkRate", "FRetailPrice",
                                "FRetailAmount", "FSalerID", "FPreSend", "FUnitCost", "FRefInterId",
                                "FRefEntryID", "FRefTranType", "FColor", "FSizeID", "FPrice"})
            .example(R"({"StockID": 2, "BillDate": "2025-03-09",
                "BillData": {"fields": ["FItemID", "FQty", "FAmount", "FZkRate", "FRetailPrice",
                    "FRetailAmount", "FSalerID", "FPreSend", "FUnitCost", "FRefInterId",
                    "FRefEntryID", "FRefTranType", "FColor", "FSizeID", "FPrice"],
                  "rows": [[1, 2, 178, 0.9, 99, 198, 2, 0, 40, 0, 0, 0, "黑色", 2, 89]]},
                "SumAmount": 178, "GetCash": 200, "GetBlank": 0, "GetDyq": 0, "OddMent": 0,
                "BillRemark": "", "ClassName": "早班", "QkAmount": 0, "VipID": 1001,
                "BillerID": 3, "GetAmount": 200, "ChangeAmount": 22, "GetQk": 0,
                "rsPreSendItem": null, "SumJf": 178, "AutoDelRefBill": false,
                "AmountBogusToVip": 1000, "JfExchange": 0, "GetJfAmount": 0, "Machine": "POS-01",
                "StockBillID": 0, "BillNoBegChar": ""})")
            .method("DeleteBill", &PosData::DeleteBill,
                    {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)})
            .example(R"({"TranType": 99, "InterID": 1, "DoBlankOut": true})", {"PosData.SaveData"})
            .method("UnblankOut", &PosData::UnblankOut, {"InterID"})
            .example(R"({"InterID": 1})", {"PosData.DeleteBill"})
            .method("GetBillList", &PosData::GetBillList, {"TranType", "strFilter"})
            .example(R"({"TranType": 99, "strFilter": ""})", {"PosData.SaveData"})
            .returns({"FInterID",     "FDate",         "FBillNo",
                      "FVipCard",     "FDeleted",      "FSysTime",
                      "FSumAmount",   "FBiller",       "FSumRetailAmount",
                      "FSumQty",      "FSaler",        "FChecker",
                      "FRemark",      "FGetCash",      "FGetDyq",
                      "FGetBlank",    "FQkAmount",     "FCost",
                      "FProfit",      "FStockName",    "FMachine",
                      "FNumber",      "FProductNo",    "FName",
                      "FUnit",        "FColor",        "FSize",
                      "FQty",         "FPrice",        "FAmount",
                      "FRetailPrice", "FRetailAmount", "FZkRate",
                      "FMemo",        "FChecked"})
            .method("GetBillList_Simple", &PosData::GetBillList_Simple, {"TranType", "strFilter"})
            .example(R"({"TranType": 99, "strFilter": " and t1.FVipID=1001"})",
                     {"PosData.SaveData"})
            .returns({"FInterID",  "FDate",      "FBillNo",  "FVipCard",         "FDeleted",
                      "FSysTime",  "FSumAmount", "FBiller",  "FSumRetailAmount", "FSumQty",
                      "FChecker",  "FRemark",    "FGetCash", "FGetDyq",          "FGetBlank",
                      "FQkAmount", "FCost",      "FProfit",  "FStockName",       "FMachine",
                      "FChecked"})
            .method("GetPosBill", &PosData::GetPosBill, {"BillID"})
            .example(R"({"BillID": 1})", {"PosData.SaveData"})
            .returns({"FInterID",     "FBillDate",  "FDate",        "FBillNo",       "FVipCard",
                      "FPrintTimes",  "FSysTime",   "FQty",         "FPrice",        "FAmount",
                      "FSaler",       "FJfFactor",  "FName",        "FRemark",       "FDeleted",
                      "FColor",       "FSize",      "FRtnQTy",      "FSaleQty",      "FProductNo",
                      "FUnit",        "FZkRate",    "FRetailPrice", "FRetailAmount", "FPreSend",
                      "FBiller",      "FChecker",   "FStockname",   "FItemID",       "FSizeID",
                      "FSizeGroupID", "FSalePrice", "FSdyh",        "FUnitCost",     "FSalerID",
                      "FPhone",       "FOwner",     "FVipNo",       "FVipId",        "FRefInteriD",
                      "FRefEntryID",  "FClassName", "FStockName",   "FStockID",      "FMachine"})
            .info());
}

}  // namespace billdata::server
