// Every fixed statement the bill classes issue must find each column it names, and each
// unqualified column must belong to exactly one table of its statement, as SQL Server requires.
// SQLite checks both when it prepares a statement, so each statement is prepared (never run)
// against a freshly created schema. "Update t1 set … from …" has no SQLite form; it is checked
// as the select of its assigned columns and values over the same joins.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

#include "billdata/schema/schema.h"
#include "schema/schema_test_util.h"
#include "support/test_support.h"

using billdata::testing::Db;
using billdata::testing::TempDir;

namespace {

void tsql_getdate(sqlite3_context* ctx, int, sqlite3_value**) {
    sqlite3_result_text(ctx, "2025-03-09 10:00:00", -1, SQLITE_STATIC);
}
void tsql_datepart(sqlite3_context* ctx, int, sqlite3_value**) {
    sqlite3_result_int(ctx, 1);
}

// Only the names matter here (isnull is a keyword in SQLite and is spelt ifnull below): prepare
// fails on an unknown function before it checks columns.
void register_test_functions(sqlite3* db) {
    sqlite3_create_function(db, "getdate", 0, SQLITE_UTF8, nullptr, tsql_getdate, nullptr, nullptr);
    sqlite3_create_function(db, "year", 1, SQLITE_UTF8, nullptr, tsql_datepart, nullptr, nullptr);
    sqlite3_create_function(db, "month", 1, SQLITE_UTF8, nullptr, tsql_datepart, nullptr, nullptr);
}

std::vector<std::string> split_top_level(const std::string& s) {
    std::vector<std::string> parts;
    int depth = 0;
    bool quoted = false;
    std::string cur;
    for (char c : s) {
        if (c == '\'') quoted = !quoted;
        if (!quoted && c == '(') ++depth;
        if (!quoted && c == ')') --depth;
        if (!quoted && depth == 0 && c == ',') {
            parts.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    parts.push_back(cur);
    return parts;
}

std::string lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// "Update t1 set a=x,t1.b=y from T t1 join … where …" → "select t1.a,x,t1.b,y from T t1 …".
std::string update_from_as_select(const std::string& stmt) {
    std::string l = lower(stmt);
    std::size_t set = l.find(" set ");
    std::size_t from = l.find(" from ");
    std::string alias = stmt.substr(7, set - 7);
    std::string select = "select ";
    bool first = true;
    for (const std::string& a : split_top_level(stmt.substr(set + 5, from - set - 5))) {
        std::size_t eq = a.find('=');
        std::string target = a.substr(0, eq);
        if (target.find('.') == std::string::npos) target = alias + "." + target;
        select += (first ? "" : ",") + target + "," + a.substr(eq + 1);
        first = false;
    }
    return select + stmt.substr(from);
}

// The statements as the bill classes build them, with sample values in the variable places.
const std::vector<std::string>& statements() {
    static const std::vector<std::string> all = {
        // Interior ids, bill numbers, cost style, audit marks.
        "select * from ICMaxNum where FTranType=0",
        "Insert Into ICMaxNum(FtranType,FMaxNUm,FDescription) Values(4,1,'')",
        "Select max(finterID) as FMax,count(*) as Fcount from icstockbill",
        "Update ICMaxNum set FMaxNum=FMaxNum+1  Where FtranType=0",
        "select * from ICBillNo where FDate='2025-03-09' and FTranType=11",
        "Insert Into ICBillNo(FTranType,FDate,FMaxNum) values(11,'2025-03-09',1)",
        "Update ICBillNo set FMaxNum=2 where FTranType=11 and FDate='2025-03-09'",
        "select FValue from t_systemprofile where fkey='CostStyle'",
        "Update ICOrder set FCheckerID=3 where FInterID in (12,15)",
        "Update WLBill set FCheckerID=3 where FInterID in (12,15)",
        "Update ICSpTjd set FCheckerID=3 where FInterID in (12,15)",
        "Update ICStockBill set FCheckerID=3 where FInterID in (12,15)",
        "Update ICSptjd set FCheckerID=0 where FInterID in (12,15)",
        // Order bills.
        "delete from WLBill where FOrderBillID=5",
        "Insert Into ICOrderEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FZkRate,FPrice,FAmount,"
        "FRetailPrice,FRetailAmount,FMemo) Values(5,0,1,'1',2,1,10,20,12,24,'m')",
        "Insert Into ICOrder(FInterID,FTranType,FDate,FBillNo,FOrgaID,FRemark,FBillerID,FSumQty,"
        "FSumAmount,FSumRetailAmount,FEarnest,FacctID,FDeleted,FSysTime) values(5,11,'2025-03-09',"
        "'CD250309-001',101,'r',1,2,20,24,0,1,0,getdate())",
        "Insert Into ICOrderEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,FColorEntryID,FQty) "
        "Values(5,1,'1',2,'黑色',0,2)",
        "Insert Into ICOrderEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,FColorEntryID,FQty) "
        "select t1.FInterID,t1.FItemID,t1.FRowKey,0,'',0,Fqty from ICStockBillEntry t1 inner join "
        "t_icitem t3 on t1.fitemid=t3.fitemid where t1.FInterID=5 and isnull(t3.FSizeID,0)=0",
        "Update ICOrder set FDeleted=0 where FInterID=5",
        "Update WLBill set FDeleted=0 where FOrderBillID=5",
        "select isnull(FCheckerID,0) as FCheckerID,FBillNo from ICOrder where FInterID=5",
        "delete from ICOrderEntry where FInterID=5",
        "delete from ICOrderEntry_1 where FInterID=5",
        "select t1.FDeleted,t1.FDate,t1.FJhDate,t1.FBillNo,t1.FRemark,t1.FEarnest,t5.FName as "
        "FAcctName,t2.*,t3.FNumber,t3.FName,t3.FUnit,t3.FProductNo,t3.FSizeID,t3.FUnit,t3.FSizeID,"
        "t3.FPurYear + '.' + isnull(t3.FQuarter,'') as FPurYear,t4.FName as FOrgaName,"
        "t9.FUserName as FBiller,t10.FUserName as FChecker from ICOrder t1 Inner Join ICOrderEntry "
        "t2 ON t1.FInterID=t2.FInterID Inner Join t_ICItem t3 ON t2.FItemID=t3.FItemID Inner Join "
        "t_Item t4 ON t1.FOrgaID=t4.FItemID Left Join t_Account t5 ON t1.FAcctID=t5.FItemID Left "
        "Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON "
        "t1.FCheckerID=t10.FUserID  where 1=1 order by t1.FDate desc,t1.FBillNo Desc,t2.FEntryID",
        "select t1.FDate,t1.FBillNo,t1.FInterID,0 as FHisPrice,t1.FSumQty,t1.FSumAmount,"
        "t1.FSumRetailAmount,t1.FRemark,t4.FName as FSupplier,t9.FUserName as FBiller,t10.FUserName "
        "as FChecker,case t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FEarnest,t5.FName "
        "as FAcctName,a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,a3.FColor,a5.FName as FSize,"
        "a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as "
        "FRetailAmount,a2.FZkRate,a2.FMemo,case isnull(FCheckerID,0) when 0 then '' else '※' end as "
        "FChecked  from ICOrder t1 inner join icOrderEntry a2 on t1.FInterID=a2.FInterID inner join "
        "icorderentry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey inner join "
        "t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID Inner "
        "Join t_Supplier t4 ON t1.FOrgaID=t4.FItemID Left Join t_Account t5 ON "
        "t1.FAcctID=t5.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 "
        "ON t1.FCheckerID=t10.FUserID where FTranType=11 and t1.FDeleted=0 order by t1.FDate "
        "desc,t1.FInterID desc,t1.FBillNo",
        "select t1.FDate,t1.FBillNo,t1.FInterID,t1.FSysTime,t1.FSumQty,t1.FSumAmount,"
        "t1.FSumRetailAmount,t1.FRemark,t4.FName as FSupplier,t9.FUserName as FBiller,t10.FUserName "
        "as FChecker,case t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FEarnest,t5.FName "
        "as FAcctName,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked  from "
        "ICOrder t1 inner join icOrderEntry a2 on t1.FInterID=a2.FInterID inner join "
        "icorderentry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey inner join "
        "t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID Inner "
        "Join t_Supplier t4 ON t1.FOrgaID=t4.FItemID Left Join t_Account t5 ON "
        "t1.FAcctID=t5.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 "
        "ON t1.FCheckerID=t10.FUserID where FTranType=11 Group by t1.FInterID,t1.FDate,t1.FBillNo,"
        "t1.FSysTime,t1.FSumQty,t1.FSumAmount,t1.FSumRetailAmount,t1.FRemark,t4.FName,"
        "t9.FUserName,t10.FUserName,FCheckerID,t1.FDeleted,t1.FEarnest,t5.FName order by t1.FDate "
        "desc,t1.FInterID desc,t1.FBillNo",
        "select t1.FInterID from ICOrder t1 Inner Join ICOrderEntry t2 ON t1.FInterID=t2.FInterID "
        "Inner Join t_ICItem t3 ON t2.FItemID=t3.FItemID Left Join t_Item t4 ON "
        "t1.FOrgaID=t4.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 "
        "ON t1.FCheckerID=t10.FUserID Left Join t_Account t5 ON t1.FAcctID=t5.FItemID  where 1=1 "
        "group by t1.FInterID",
        // Purchase receipts.
        "select FItemID from t_Stock",
        "Update ICStockBill set FDeleted=1 where FInterID=7",
        "Delete from icstockbill where FInterID=7",
        "Delete from icstockbillEntry where FInterID=7",
        "Delete from icstockbillEntry_1 where FInterID=7",
        "Insert Into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FPrice,FAmount,"
        "FRetailPrice,FRetailAmount,FZkRate,FMemo,FHisPrice) Values(7,1,1,'1',10,40,400,99,990,1,"
        "'m',38)",
        "Update t_icitem set FPurPrice=40,FSupplierID=101 where fitemid=1",
        "Insert Into ICStockbillEntry(FInterID,FEntryID,FTjStockID,FItemID,FQty,FPrice,FAmount,"
        "FMemo,FHisPrice) Values(7,-1,1,1,0,2,20,'10',38)",
        "Insert Into ICStockBill(FInterID,FTranType,FDate,FBillNo,FInStockID,FOrgaID,FAcctID,"
        "FSettleID,FRemark,FBillerID,FYear,FPeriod,FSysTime,FSumQty,FSumAmount,FSumRetailAmount,"
        "FSeason,FMonth) values(7,112,'2025-03-09','ZP250309-001',1,101,1,0,'r',1,2025,3,"
        "'2025-03-09 10:00:00',10,400,990,'','2025年03月')",
        "Insert Into ICStockBillEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,FColorEntryID,FQty) "
        "Values(7,1,'1',2,'黑色',1,10)",
        "Insert Into ICStockBillEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,FColorEntryID,FQty) "
        "select t1.FInterID,t1.FItemID,t1.FRowKey,0,'',0,Fqty from ICStockBillEntry t1 inner join "
        "t_icitem t3 on t1.fitemid=t3.fitemid where t1.FInterID=7 and isnull(t3.FSizeID,0)=0",
        "select FTranType,isnull(FCheckerID,0) as FcheckerID,isnull(FDeleted,0) as FDeleted,FDate,"
        "FYear,FPeriod,FBillNo from ICStockBill where FInterID=7",
        "select t1.FDate,t1.FBillNo,case t1.FSettleID when 0 then '现金' else '欠款' end as "
        "FSettle,t1.FInterID,t1.FSumRetailAmount,t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t5.FName as "
        "FStockName,t6.FName as FAcctName,FRemark,t4.FName as FSupplier,t1.FSettleID,t9.FUserName "
        "as FBiller,t10.FUserName as FChecker,FSumAmount,a4.FNumber,a4.FProductNo,a4.FName,"
        "a4.FUnit,a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as FAmount,"
        "a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,a2.FZkRate,a2.FMemo,case "
        "t1.FDeleted when 0 then '' else '※' end as FDeleted,case isnull(FCheckerID,0) when 0 then "
        "'' else '※' end as FChecked from ICStockBill t1 inner join icStockBillEntry a2 on "
        "t1.FInterID=a2.FInterID inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and "
        "a2.FRowKey=a3.FRowKey inner join t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 "
        "on a3.FSizeID=a5.FItemID Left Join t_Supplier t4 ON t1.FOrgaID=t4.FItemID Left Join "
        "t_Stock t5 on t1.FInStockID=t5.FItemID Left Join t_Account t6 on t1.FAcctID=t6.FItemID "
        "Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON "
        "t1.FCheckerID=t10.FUserID Where t1.FTranType=112 and t1.FDate between '2025-03-01' and "
        "'2025-03-10' and t5.FItemID=2 order by t1.FDate desc,t1.FInterID desc,t1.FBillNo",
        "select t1.FDate,t1.FBillNo,case t1.FSettleID when 0 then '现金' else '欠款' end as "
        "FSettle,t1.FInterID,t1.FSumRetailAmount,t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t5.FName as "
        "FStockName,t6.FName as FAcctName,FRemark,t4.FName as FSupplier,t1.FSettleID,t9.FUserName "
        "as FBiller,t10.FUserName as FChecker,FSumAmount,case t1.FDeleted when 0 then '' else '※' "
        "end as FDeleted,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked from "
        "ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID inner join "
        "ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey inner join "
        "t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID Left "
        "Join t_Supplier t4 ON t1.FOrgaID=t4.FItemID Left Join t_Stock t5 on "
        "t1.FInStockID=t5.FItemID Left Join t_Account t6 on t1.FAcctID=t6.FItemID Left Join "
        "t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
        "Where t1.FTranType=112 Group by t1.FInterID,t1.FDate,t1.FBillNo,t1.FSettleID,"
        "t1.FCheckerID,t1.FSumRetailAmount,t1.FPrintTimes,t1.FSysTime,t1.FSumQty,t5.FName,"
        "t6.FName,FRemark,t4.FName,t9.FUserName,t10.FUserName,FSumAmount,t1.FDeleted order by "
        "t1.FDate desc,t1.FInterID desc,t1.FBillNo",
        // POS sales.
        "Select FBillNo,isnull(FPosGetMoney,0) as FPosGetMoney from icstockbill where FInterID=9",
        "Insert Into ICStockBillEntry(FInterID,FEntryID,FrowKey,FItemID,FQty,FPrice,FAmount,"
        "FZkRate,FRetailPrice,FRetailAmount,FOddMentEntry,FZkAmount,FSalerID,FPreSend,FUnitCost,"
        "FCost,FRefInterID,FRefEntryID,FRefTranType) Values(9,0,'0',1,1,89,89,0.9,99,99,0,10,1,0,"
        "40,40,0,0,0)",
        "Insert Into ICStockBillEntry_1(FInterID,FRowKey,FItemID,FColor,FSizeID,FColorEntryID,FQty) "
        "Values(9,'0',1,'黑色',2,0,1)",
        "Insert Into ICStockBillEntry(FInterID,FRowKey,FItemID,FQty,FPrice,FAmount,FZkRate,"
        "FRetailPrice,FRetailAmount,FZkAmount,FSalerID,FPreSend,FUnitCost,FCost,FRefInterID,"
        "FRefEntryID,FMemo) Values(9,'1',7,1,0,0,0,39,39,0,0,1,12,12,0,0,'gift')",
        "Insert Into ICStockBill(FInterID,FTranType,FDate,FOutStockID,FBillerID,FYear,FPeriod,"
        "FSysTime,FVipID,FBillNo,FGetCash,FBzkBillAmount,FSumQty,FSumAmount,FSumRetailAmount,"
        "FSumZkAmount,FGetDyq,FGetBlank,FSumCost,FSumProfit,FSumOddMent,FRemark,FClassName,"
        "FSettleID,FQkAmount,FOrgaID,FGetAmount,FChange,FSumJf,FSeason,FMonth,FJfExchange,"
        "FGetJfAmount,FMachine,FPosGetMoney,FGetQk) values(9,99,'2025-03-09',2,1,2025,3,getdate(),"
        "1001,'pos250309-001',89,89,1,89,99,10,0,0,40,49,0,'r','早班',0,0,1001,100,11,89,"
        "'2025年1季度','2025年03月',0,0,'POS1',0,0)",
        "Update Vip set FSumBuyAmount=isnull(FSumBuyAmount,0)+89,FSumJf_Un=isnull(FSumJf_Un,0)+89,"
        "FSumJf=isnull(FSumJf,0)+89,FEditTime=getdate() where FVipID=1001",
        "Update Vip set FBogus=0 where FVipID=1001 and FSumBuyAmount>=1000",
        "select FUserName from t_User where FUserID=1",
        "insert into vipjf_History(FBillInterID,FVipID,FDate,Fjf,FBiller,FMemo) values(9,1001,"
        "'2025-03-09',89,'admin','消费增加积分,消费金额：89.00,单号:pos250309-001')",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icstockbillentry t1 inner "
        "join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefEntryid "
        "where t2.FInterID=9 and t2.FRefTranType=27",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icOrderentry t1 inner join "
        "icStockBillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefEntryid where "
        "t2.FInterID=9 and t2.FRefTranType=21",
        "delete from icorderentry where FQty=isnull(FSaleqty,0)",
        "delete from icOrder where finterid not in (select finterid from icorderentry)",
        "delete from icOrderEntry_1 where finterid not in (select finterid from icorderentry)",
        "select isnull(FDeleted,0) as FDeleted,FDate,FYear,FPeriod,isnull(FCheckerID,0) as "
        "FCheckerId,FBillNo from ICStockBill where FInterID=9",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)-t2.Fqty from icstockbillentry t1 inner "
        "join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid "
        "inner join icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=9 and "
        "isnull(FDeleted,0)=0 and t2.FRefTranType=27",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)-t2.Fqty from icOrderEntry t1 inner join "
        "icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid inner "
        "join icstockbill t3 on t2.finterid=t3.finterid where t2.FInterID=9 and "
        "isnull(FDeleted,0)=0 and t2.FRefTranType=21 ",
        "Update t1 set t1.FSumJf_Un=isnull(FSumJf_Un,0)-t2.FSumJf,t1.FSumJf=isnull(t1.FSumJf,0)-"
        "t2.FSumJf,FSumBuyAmount=FSumBuyAmount-t2.FSumAmount from Vip t1 inner join icstockbill t2 "
        "on t1.fvipid=t2.fvipid where t2.fInterID=9 and isnull(FDeleted,0)=0",
        "Update VipJf_History set FDeleted=1 where FBillInterID=9",
        "delete from VipJf_History where FBillInterID=9",
        "Update t1 set t1.FSumJf_Un=isnull(FSumJf_Un,0)+t2.FSumJf,t1.FSumJf=isnull(t1.FSumJf,0)+"
        "t2.FSumJf from Vip t1 inner join icstockbill t2 on t1.fvipid=t2.fvipid where "
        "t2.fInterID=9",
        "Update t1 set t1.FSaleQty=isnull(t1.FSaleQty,0)+t2.Fqty from icstockbillentry t1 inner "
        "join icstockbillentry t2 on t1.finterid=t2.frefinterid and t1.fentryid=t2.frefentryid "
        "where t2.FInterID=9",
        "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo + t11.FOwner as FVipCard,case "
        "t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FSysTime,FSumAmount,t9.FUserName "
        "as FBiller,FSumRetailAmount,FSumQty,t5.FName as FSaler,t10.FUserName as FChecker,"
        "t1.FRemark,t1.FGetCash,FGetDyq,FGetBlank,FQkAmount,FSumCost as FCost,FSumProfit as "
        "FProfit ,t4.FName as FStockName,t1.FMachine,a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,"
        "a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as FAmount,"
        "a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,a2.FZkRate,a2.FMemo,case "
        "isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked from ICStockBill t1 inner "
        "join icStockBillEntry a2 on t1.FInterID=a2.FInterID inner join ICStockBillEntry_1 a3 on "
        "a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey inner join t_icitem a4 on "
        "a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID left Join t_Stock t4 "
        "ON t1.FoutStockID=t4.FItemID Left Join t_Emp t5 on a2.FSalerID=t5.FItemID Left Join "
        "t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
        "Left Join Vip t11 on t1.FVipID=t11.FVipID where FTranType=99  and t1.FDate between "
        "'2025-03-09' and '2025-03-10' and t4.FItemID=2 order by t1.FDate desc,t1.FBillNo desc",
        "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo + t11.FOwner as FVipCard,case "
        "t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FSysTime,FSumAmount,t9.FUserName "
        "as FBiller,FSumRetailAmount,FSumQty,t10.FUserName as FChecker,t1.FRemark,t1.FGetCash,"
        "FGetDyq,FGetBlank,FQkAmount,FSumCost as FCost,FSumProfit as FProfit ,t4.FName as "
        "FStockName,t1.FMachine,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked "
        "from ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID inner join "
        "icstockbillentry_1 a3 on a2.finterid=a3.finterid and a2.fRowKey=a3.FRowKey inner join "
        "t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID left "
        "Join t_Stock t4 ON t1.FoutStockID=t4.FItemID left Join t_Emp t5 ON "
        "a2.FSalerID=t5.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User "
        "t10 ON t1.FCheckerID=t10.FUserID Left Join Vip t11 on t1.FVipID=t11.FVipID where "
        "FTranType=99  group by t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo,t11.FOwner,"
        "t1.FDeleted,t1.FSysTime,FSumAmount,t9.FUserName,FSumRetailAmount,FSumQty,FCheckerID,"
        "t10.FUserName,t1.FRemark,t1.FGetCash,FGetDyq,FGetBlank,FQkAmount,FSumCost,FSumProfit,"
        "t4.FName,t1.FMachine order by t1.FDate desc,t1.FBillNo desc",
        "select t1.FInterID,t1.FDate as FBillDate,NULL as FDate,t1.FBillNo,t11.FVipNO + ' ' + "
        "t11.FOwner as FVipCard,t1.FPrintTimes,t1.FSysTime,t2.FQty,t2.FPrice,t2.FAmount,t5.FName "
        "as FSaler,case isnull(t3.FJfFactor,0) when 0 then 1 else t3.FJfFactor end as FJfFactor,"
        "t3.FName,t1.FRemark,t1.FDeleted,t12.FColor,t13.FName as FSize,t2.FRtnQTy,t2.FSaleQty,"
        "t3.FProductNo,t3.FUnit,t2.FZkRate,t2.FRetailPrice,t2.FRetailAmount,t2.FPreSend,"
        "t9.FUserName as FBiller,t10.FUserName as FChecker,t4.FName as FStockname,t2.FItemID,"
        "t12.FSizeID,t3.FSizeID as FSizeGroupID,t3.FRetailPrice_2 as FSalePrice,t2.FSdyh,"
        "t2.FUnitCost,t2.FSalerID,t1.FPhone,t1.FOwner,t11.FVipNo,t1.FVipId,t2.FRefInteriD,"
        "t2.FRefEntryID,t1.FClassName,t4.FName as FStockName,t4.FItemID as FStockID,t1.FMachine "
        "from ICStockBill t1 Inner Join ICStockBillEntry t2 ON t1.FInterID=t2.FInterID left Join "
        "t_ICItem t3 ON t2.FItemID=t3.FItemID Inner Join t_Stock t4 ON t1.FOutStockID=t4.FItemID "
        "Left Join t_Emp t5 ON t2.FSalerID=t5.FItemID Left Join t_User t9 on "
        "t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID Left Join Vip "
        "t11 on t1.FVipID=t11.FVipID Inner Join ICStockBillEntry_1 t12 ON t2.FInterID=t12.FInterID "
        "and t2.FRowKey=t12.FRowKey Left Join t_Size t13 ON t12.FSizeID=t13.FItemID Where "
        "t1.FInterID=9 order by t2.FRowKey",
        // Receipts and payments.
        "delete from wlbill where FInterID=4",
        "Insert Into WLBill(FInterID,FTranType,FSettleID,FEmpID,FDate,FBillNo,FAcctID,FOrgaID,"
        "FSettleAmount,FSumAmount,FOddMent,FMemo,FBillerID,FSysTime,FOrderBillID,FStockBillID) "
        "Values(4,13,0,1,'2025-03-09','Fkd250309-001',1,101,150,150,0,'m',1,'2025-03-09 10:00:00',"
        "5,0)",
        "select year(FDate) as FYear,month(FDate) as FPeriod,FBillNo,FTranType,FClosed,"
        "Isnull(FCheckerID,0) as FCheckerID,Isnull(FOrderBillID,0) as FOrderBillID from WLBill "
        "where FInterID=4",
        "Update WLBill set fdeleted=1 where FInterID=4",
        "delete from WLBillEntry where FInterID=4",
        "select t1.*,t3.FNumber as FOrgaNumber,t3.FName as FOrgaName,t4.FName as FAcctName,"
        "t5.FUserName as FBiller,t6.FUserName as FChecker,t8.FName as FEmp,case t1.FDeleted when 0 "
        "then '' else '※' end as FDeleted,case isnull(FCheckerID,0) when 0 then '' else '※' end as "
        "FChecked from WLBill t1 inner Join t_Supplier t3 ON t1.FOrgaID=t3.FItemID Left Join "
        "t_Account t4 ON t1.FAcctID=t4.FItemID Left Join t_User t5 ON t1.FBillerID=t5.FUserID Left "
        "Join t_User t6 ON t1.FCheckerID=t6.FUserID Left Join t_Emp t8 on t1.FEmpID=t8.FItemID  "
        "where fTranType=13  order by t1.FDate desc,t3.FNumber,t1.FBillNo",
        "select t1.*,t4.FName as FAcctName,t5.FUserName as FBiller,t6.FUserName as FChecker,"
        "t8.FName as FEmp,t3.FOwner,t3.FVipNO,case t1.FDeleted when 0 then '' else '※' end as "
        "FDeleted,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked from WLBill t1 "
        "inner Join Vip t3 ON t1.FOrgaID=t3.FVipID Left Join t_Account t4 ON "
        "t1.FAcctID=t4.FItemID Left Join t_User t5 ON t1.FBillerID=t5.FUserID Left Join t_User t6 "
        "ON t1.FCheckerID=t6.FUserID Left Join t_Emp t8 on t1.FEmpID=t8.FItemID  where "
        "FTranType=23  order by t1.FDate desc,t1.FBillNo",
        "select t1.FInterID from WLBill t1 Inner Join t_Item t2 ON t1.FOrgaID=t2.FItemID Left Join "
        "t_Account t4 ON t1.FAcctID=t4.FItemID Left Join t_User t5 ON t1.FBillerID=t5.FUserID Left "
        "Join t_User t6 ON t1.FCheckerID=t6.FUserID where t1.FTranType=13 and 1=1",
        "select t1.FInterID from WLBill t1 Inner Join t_VipCard t2 ON t1.FOrgaID=t2.FItemID Left "
        "Join t_Account t4 ON t1.FAcctID=t4.FItemID Left Join t_User t5 ON t1.FBillerID=t5.FUserID "
        "Left Join t_User t6 ON t1.FCheckerID=t6.FUserID where t1.FTranType=23 and 1=1",
        "Update WLBill set FCheckerID=0 where FInterID=4",
        // Other stock bills.
        "Insert Into ICStockBillEntry(FInterID,FEntryID,FItemID,FRowKey,FQty,FPrice,FAmount,"
        "FRetailPrice,FRetailAmount,FZkRate,FMemo,FUnitCost,FCost) Values(8,1,1,'1',5,40,200,99,"
        "495,1,'m',40,200)",
        "Insert Into ICStockBill(FInterID,FTranType,FDate,FBillNo,FInStockID,FOutStockID,FRemark,"
        "FBillerID,FYear,FPeriod,FSysTime,FSumQty,FSumAmount,FSumRetailAmount,FCause,FSeason,"
        "FMonth) values(8,31,'2025-03-09','DB250309-001',2,1,'r',1,2025,3,'2025-03-09 10:00:00',5,"
        "200,495,'补货','2025年1季度','2025年03月')",
        "select isnull(FCheckerID,0) as FcheckerID,isnull(FDeleted,0) as FDeleted,FDate,FYear,"
        "FPeriod,FBillNo from ICStockBill where FInterID=8",
        "select t1.FDate,t1.FBillNo,t1.FInterID,t1.FSumRetailAmount,t1.FCause,t1.FPrintTimes,"
        "t1.FSysTime,t1.FSumQty,t1.FSumAmount,t5.FName as FInStockName,t6.FName as FOutStockName,"
        "FRemark,t9.FUserName as FBiller,t10.FUserName as FChecker,t1.FTranType,a4.FNumber,"
        "a4.FProductNo,a4.FName,a4.FUnit,case t1.FDeleted when 0 then '' else '※' end as FDeleted,"
        "a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as FAmount,"
        "a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,a2.FZkRate,a2.FMemo,case "
        "isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked from ICStockBill t1 inner "
        "join icStockBillEntry a2 on t1.FInterID=a2.FInterID inner join ICStockBillEntry_1 a3 on "
        "a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey inner join t_icitem a4 on "
        "a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID Left Join t_Stock t5 "
        "on t1.FInStockID=t5.FItemID Left Join t_Stock t6 on t1.FOutStockID=t6.FItemID Left Join "
        "t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID "
        "Where t1.FTranType=31 and (t6.FItemID=3 or t6.FItemID=3) order by t1.FDate "
        "desc,t1.FInterID desc,t1.FBillNo",
        "select t1.FDate,t1.FBillNo,t1.FInterID,t1.FSumRetailAmount,t1.FCause,t1.FPrintTimes,case "
        "t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FSysTime,t1.FSumQty,"
        "t1.FSumAmount,t5.FName as FInStockName,t6.FName as FOutStockName,FRemark,t9.FUserName as "
        "FBiller,t10.FUserName as FChecker,t1.FTranType,case isnull(FCheckerID,0) when 0 then '' "
        "else '※' end as FChecked from ICStockBill t1 inner join icStockBillEntry a2 on "
        "t1.FInterID=a2.FInterID inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and "
        "a2.FRowKey=a3.FRowKey inner join t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 "
        "on a3.FSizeID=a5.FItemID Left Join t_Stock t5 on t1.FInStockID=t5.FItemID Left Join "
        "t_Stock t6 on t1.FOutStockID=t6.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID "
        "Left Join t_User t10 ON t1.FCheckerID=t10.FUserID Where t1.FTranType=115 and "
        "t5.FItemID=3 Group by t1.FInterID,t1.FDate,t1.FBillNo,t1.FSumRetailAmount,t1.FCause,"
        "t1.FPrintTimes,t1.FDeleted,t1.FSysTime,t1.FSumQty,t1.FSumAmount,t1.FCheckerID,t5.FName,"
        "t6.FName,FRemark,t9.FUserName,t10.FUserName,t1.FTranType order by t1.FDate "
        "desc,t1.FInterID desc,t1.FBillNo",
        // Bill query and cross-bill maintenance.
        "select isnull(Fdays,0) as FDays,isnull(FStockID,0) as FStockID from t_User where "
        "FUserID=2",
        "select FDate from ICOrder Where FInterID=5",
        "select FDate from WLBill Where FInterID=5",
        "select FDate from ICStockBill Where FInterID=5",
        // Purchase price propagation and adjustment rows.
        "select t1.FTranType,t1.FDate,t1.FInterId,t1.FBillNo,t2.FQty,t2.FPrice,t2.FHisPrice,"
        "t2.FItemID from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
        "where t1.FInterId=7 and FentryID>=0",
        "delete from icstockbillentry where FEntryID<0 and FItemID=1 and FInterID>7",
        "Update t_icitem set FPurPrice=40 where fitemid=1",
        "Select case isnull(t1.FInStockID,0) when 0 then t1.FOutStockID else t1.FInStockID end as "
        "FStockID,t1.FTranType,t1.FOrgaID,t1.FDate,t1.FInterID,t2.FEntryID,t2.FQty,t2.FPrice,"
        "t2.FHisPrice from icstockbill t1 inner join icstockbillentry t2 on "
        "t1.finterid=t2.finterid where isnull(t1.FDeleted,0)=0 and FItemID=1 and t1.FInterID>7 "
        "and FTranType in (112,114) and FEntryID>=0 order by t1.finterid",
        "Update ICStockBillEntry set FHisPrice=40 where FInterID=8 and FEntryID=1",
        "Update t_icitem set FPurPrice=42,FSupplierID=101 where fitemid=1",
        "Update t2 set t2.FUnitCost=42,FCost=FQty*42 from icstockbill t1 inner join "
        "icstockbillentry t2 on t1.finterid=t2.finterid where t1.FTranType in (17,27,99)  and "
        "t1.FInterID>7 and t2.FItemID=1",
        "Update t2 set t2.FPrice=42,FAmount=FQty*42 from icstockbill t1 inner join "
        "icstockbillentry t2 on t1.finterid=t2.finterid where t1.FTranType in (115,125,31)   and "
        "t1.FInterID>7 and t2.FItemID=1",
        "Insert Into ICStockbillEntry(FInterID,FEntryID,FTjStockID,FItemID,FQty,FPrice,FAmount,"
        "FMemo,FHisPrice) Values(8,-1,1,1,0,2,20,'10',40)",
        "select FInterID from ICStockBill where FDeleted=0 and FTranType in (112,114) and "
        "FInterID>7 order by FInterID limit 1",
        "delete from icstockbillentry where fentryid<0 and finterid=8",
        "select (case isnull(t1.FInStockID,0) when 0 then t1.FOutStockID else t1.FInStockID end) "
        "as FStockID,t1.FTranType,t2.FItemID,t2.FEntryID,t2.FQty,t2.FPrice,t2.FHisPrice from "
        "icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid where "
        "FEntryID>0 and t1.FInterID=8 order by fentryid ",
        "delete from icstockbillentry where FTjStockID=1 and FItemID=1 and FInterID>8",
        "Select t1.FTranType,t1.FOrgaID,t1.FDate,t1.FInterID,t2.FEntryID,t2.FQty,t2.FPrice,"
        "t2.FHisPrice from icstockbill t1 inner join icstockbillentry t2 on "
        "t1.finterid=t2.finterid where (FInStockID=1 or FOutStockID=1) and FEntryID>=0 and "
        "isnull(t1.FDeleted,0)=0 and FItemID=1 and t1.FInterID>8 and FTranType in (112,114) order "
        "by FDate,t1.finterid",
        // Member orders.
        "delete from icorder where FInterID=6",
        "delete from wlbill where FOrderBillID=6",
        "Insert Into icorderEntry(FInterID,FEntryID,FRowKey,FItemID,FSalerID,FQty,FPrice,FAmount,"
        "FZkRate,FRetailPrice,FRetailAmount,FUnitCost,FPreSend) Values(6,0,'0',1,1,1,89,89,0.9,99,"
        "99,40,0)",
        "Insert Into icorderEntry_1(FInterID,FRowKey,FItemID,FColor,FSizeID,FColorEntryID,FQty) "
        "Values(6,'0',1,'黑色',2,0,1)",
        "Insert Into icorder(FInterID,FTranType,FDate,FEarnest,FAcctID,FDeleted,FBillerID,FSysTime,"
        "FOrgaID,FBillNo,FSumQty,FSumAmount,FSumRetailAmount,FRemark,FPhone,FOwner) values(6,21,"
        "'2025-03-09',50,1,0,1,getdate(),1001,'XD250309-001',1,89,99,'r','13800000001','刘洋')",
        "Insert Into WLBill(FInterID,FTranType,FSettleID,FEmpID,FDate,FBillNo,FAcctID,FOrgaID,"
        "FSettleAmount,FSumAmount,FOddMent,FMemo,FBillerID,FSysTime,FOrderBillID,FStockBillID) "
        "Values(5,23,0,0,'2025-03-09','SK250309-001',1,1001,50,50,0,'会员订单：XD250309-001',1,"
        "getdate(),6,0)",
        "select FDate,isnull(FCheckerID,0) as FCheckerId,FBillNo from icorder where FInterID=6",
        "Update icorder set FDeleted=1 where FInterID=6",
        "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNO + ' ' + t11.FOwner as FVipCard,"
        "t1.FSysTime,t2.FQty,t2.FPrice,t2.FAmount,t5.FName as FSaler,0 as FSdyh,t2.FSaleQty,"
        "t3.FName,t1.FRemark,t12.FColor,t13.FName as FSize,t3.FProductNo,t3.FUnit,t2.FZkRate,"
        "t2.FRetailPrice,t2.FRetailAmount,t2.FUnitCost,t2.FPreSend,t9.FUserName as FBiller,"
        "t10.FUserName as FChecker,t1.FEarnest,t4.FName as FAcctName,t2.FItemID,t12.FSizeID,"
        "t3.FSizeID as FSizeGroupID,t3.FRetailPrice_2 as FSalePrice,t2.FSalerID,t1.FPhone,"
        "t1.FOwner,t11.FVipNo,t11.FVipID,0 as FRefInteriD,0 as FRefEntryID ,case t1.FDeleted when "
        "0 then '' else '※' end as FDeleted,case isnull(FCheckerID,0) when 0 then '' else '※' end "
        "as FChecked from icorder t1 Inner Join icorderEntry t2 ON t1.FInterID=t2.FInterID left "
        "Join t_ICItem t3 ON t2.FItemID=t3.FItemID Left Join t_Account t4 ON t1.FAcctID=t4.FItemID "
        "Left Join t_Emp t5 ON t2.FSalerID=t5.FItemID Left Join t_User t9 on "
        "t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID Left Join Vip "
        "t11 on t1.FOrgaID=t11.FVipID Inner Join icorderEntry_1 t12 ON t2.FInterID=t12.FInterID "
        "and t2.FRowKey=t12.FrowKey Left Join t_Size t13 ON t12.FSizeID=t13.FItemID Where "
        "t1.FtranType=21 order by t1.FDate desc,t1.FBillNo Desc,t2.FEntryID",
        // Opening data.
        "select FKey,FValue from t_systemprofile where fkey in ('StartYear','StartPeriod',"
        "'CurrentYear','CurrentPeriod')",
        "delete from icbal where fyear=2025 and Fperiod=3",
        "delete from icbal_Entry where fyear=2025 and Fperiod=3",
        "Insert Into ICBal(FYear,FPeriod,FStockID,FItemID,FBegQty,FBegPrice,FBegBal) select 2025,3,"
        "FStockID,FItemID,sum(FQty),sum(FAmount)/sum(FQty),sum(FAmount) from ICInitData group by "
        "FStockID,FItemID",
        "Insert Into ICBal_Entry(FYear,FPeriod,FStockID,FItemID,FColor,FSizeID,FBegQty) select "
        "2025,3,FStockID,FItemID,FColor,FSizeID,sum(FQty) from ICInitData_Entry group by FStockID,"
        "FItemID,FColor,FSizeID",
        "Update t_systemprofile set fValue='1' where fkey='ICClosed'",
        "Update t1 set t1.FPjCost=t2.FPrice from t_ICItem t1 Inner Join ICInitData t2 on "
        "t1.fitemid=t2.fitemid",
        "Update t1 set t1.FUnitCost=t2.FPrice,t1.FCost=t1.FQty*t2.FPrice from ICStockBillEntry t1 "
        "Inner Join ICInitData t2 on t1.fitemid=t2.fitemid where isnull(t1.FUnitCost,0)=0",
        "delete from WLBal",
        "delete from WLSettleBal",
        "delete from ICStockBill where FTranType in (-12,-22)",
        "Insert Into WLBal(FYear,FPeriod,FItemClassID,FOrgaID,FBegBal) select 2025,3,FItemClassID,"
        "FOrgaID,FAmount from WLInitData",
        "Insert Into ICStockBill(FInterID,FOrgaID,FTranType,FSumAmount) Select -FOrgaID,FOrgaID,"
        "Case FItemClassID when 1 then -22 else -12 end,FAmount From WLInitData",
        "Update t_SystemProfile set FValue='1' where FKey='WLClosed'",
        "delete from ICStockBill where FOrgaID in (select FItemID*-1 from t_Item)",
        "delete from WLInitData",
        "Insert Into WLInitData(FItemClassID,FOrgaID,FAmount) Values(2,101,5000)",
        "delete from CashBal",
        "Insert Into CashBal(FItemClassID,FItemID,FAmount) select FItemClassID,FItemID,FAmount "
        "from CashInitData",
        "delete from icbal",
        "delete from icbal_Entry",
    };
    return all;
}

}  // namespace

TEST(Statements, EveryColumnResolvesToExactlyOneTable) {
    TempDir dir;
    std::string path = dir.file("statements.db");
    billdata::schema::create_database(path, true, 2025, 3);
    Db db(path);
    register_test_functions(db.handle());

    int checked = 0;
    for (const std::string& stmt : statements()) {
        std::string sql = stmt;
        if (lower(sql).rfind("update ", 0) == 0 && lower(sql).find(" from ") != std::string::npos)
            sql = update_from_as_select(sql);
        for (std::size_t p = lower(sql).find("isnull("); p != std::string::npos;
             p = lower(sql).find("isnull(", p))
            sql.replace(p, 6, "ifnull");
        sqlite3_stmt* st = nullptr;
        int rc = sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &st, nullptr);
        EXPECT_EQ(rc, SQLITE_OK) << sqlite3_errmsg(db.handle()) << "\n  in: " << stmt;
        sqlite3_finalize(st);
        ++checked;
    }
    EXPECT_GT(checked, 100);
}

TEST(Statements, TheCheckCatchesAmbiguousAndUnknownColumns) {
    // The check above is only worth something if the engine really refuses these.
    TempDir dir;
    std::string path = dir.file("negative.db");
    billdata::schema::create_database(path, false, 2025, 3);
    Db db(path);
    register_test_functions(db.handle());
    auto refused = [&](const std::string& sql) {
        sqlite3_stmt* st = nullptr;
        int rc = sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &st, nullptr);
        std::string msg = sqlite3_errmsg(db.handle());
        sqlite3_finalize(st);
        return rc == SQLITE_OK ? std::string() : msg;
    };
    EXPECT_NE(refused("select FInterID from ICStockBill t1 inner join ICStockBillEntry t2 on "
                      "t1.FInterID=t2.FInterID")
                  .find("ambiguous"),
              std::string::npos);
    EXPECT_NE(refused("select FNoSuchColumn from ICStockBill").find("no such column"),
              std::string::npos);
    EXPECT_EQ(update_from_as_select("Update t2 set t2.FPrice=4,FAmount=FQty*4 from icstockbill t1 "
                                    "inner join icstockbillentry t2 on t1.a=t2.a where x=1"),
              "select t2.FPrice,4,t2.FAmount,FQty*4 from icstockbill t1 inner join "
              "icstockbillentry t2 on t1.a=t2.a where x=1");
}
