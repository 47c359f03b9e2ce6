#include "billdata/posdata/posdata.h"

#include "billdata/common/filter_guard.h"
#include "billdata/common/handlers.h"
#include "billdata/common/session.h"

namespace billdata {

namespace {

using common::Handler;

// The user's list window and own stock, appended after the caller's filter. The window runs
// from N-1 days back to tomorrow, so a sale written just before midnight is still listed.
std::string list_restrictions() {
    const common::SessionContext& s = common::session();
    std::string sql;
    if (s.ListDays > 0) {
        const ado::DateTime today = ado::DateTime::today();
        sql += " and t1.FDate between '" + today.add_days(-s.ListDays + 1).to_string() + "' and '" +
               today.add_days(1).to_string() + "'";
    }
    if (s.ListStockID > 0) sql += " and t4.FItemID=" + std::to_string(s.ListStockID);
    return sql;
}

std::shared_ptr<ado::Recordset> open_list(const std::string& sql) {
    return common::guarded(Handler::Common, [&] {
        return common::open_recordset(sql, common::GetPromptString(), Handler::Common);
    });
}

}  // namespace

void PosData::Init(const std::string& NewPromptString, std::int16_t New_CurYear,
                   std::int16_t New_CurPeriod) {
    common::init_session(NewPromptString, New_CurYear, New_CurPeriod);
}

std::shared_ptr<ado::Recordset> PosData::GetBillList(std::int16_t /*TranType*/,
                                                     const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    std::string sql =
        "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo + t11.FOwner as FVipCard,case t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FSysTime,FSumAmount,t9.FUserName as FBiller,FSumRetailAmount,FSumQty,t5.FName as FSaler,t10.FUserName as FChecker,t1.FRemark,t1.FGetCash,FGetDyq,FGetBlank,FQkAmount,FSumCost as FCost,FSumProfit as FProfit ,t4.FName as FStockName,t1.FMachine,a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,a3.FColor,a5.FName as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as FRetailAmount,a2.FZkRate,a2.FMemo,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked "
        "from ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid and a2.FRowKey=a3.FRowKey inner join t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID left Join t_Stock t4 ON t1.FoutStockID=t4.FItemID Left Join t_Emp t5 on a2.FSalerID=t5.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID Left Join Vip t11 on t1.FVipID=t11.FVipID "
        "where FTranType=99 ";
    sql += strFilter;
    sql += list_restrictions();
    sql += " order by t1.FDate desc,t1.FBillNo desc";
    return open_list(sql);
}

std::shared_ptr<ado::Recordset> PosData::GetBillList_Simple(std::int16_t /*TranType*/,
                                                            const std::string& strFilter) {
    common::require_safe_filter(strFilter);
    std::string sql =
        "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo + t11.FOwner as FVipCard,case t1.FDeleted when 0 then '' else '※' end as FDeleted,t1.FSysTime,FSumAmount,t9.FUserName as FBiller,FSumRetailAmount,FSumQty,t10.FUserName as FChecker,t1.FRemark,t1.FGetCash,FGetDyq,FGetBlank,FQkAmount,FSumCost as FCost,FSumProfit as FProfit ,t4.FName as FStockName,t1.FMachine,case isnull(FCheckerID,0) when 0 then '' else '※' end as FChecked "
        "from ICStockBill t1 inner join icStockBillEntry a2 on t1.FInterID=a2.FInterID inner join icstockbillentry_1 a3 on a2.finterid=a3.finterid and a2.fRowKey=a3.FRowKey inner join t_icitem a4 on a3.FItemID=a4.FItemID left join t_Size a5 on a3.FSizeID=a5.FItemID left Join t_Stock t4 ON t1.FoutStockID=t4.FItemID left Join t_Emp t5 ON a2.FSalerID=t5.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID Left Join Vip t11 on t1.FVipID=t11.FVipID "
        "where FTranType=99 ";
    sql += strFilter;
    sql += list_restrictions();
    sql +=
        " group by t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo,t11.FOwner,t1.FDeleted,t1.FSysTime,FSumAmount,t9.FUserName,FSumRetailAmount,FSumQty,FCheckerID,t10.FUserName,t1.FRemark,t1.FGetCash,FGetDyq,FGetBlank,FQkAmount,FSumCost,FSumProfit,t4.FName,t1.FMachine"
        " order by t1.FDate desc,t1.FBillNo desc";
    return open_list(sql);
}

std::shared_ptr<ado::Recordset> PosData::GetPosBill(std::int32_t BillID) {
    const std::string sql =
        "select t1.FInterID,t1.FDate as FBillDate,NULL as FDate,t1.FBillNo,t11.FVipNO + ' ' + t11.FOwner as FVipCard,t1.FPrintTimes,t1.FSysTime,t2.FQty,t2.FPrice,t2.FAmount,t5.FName as FSaler,case isnull(t3.FJfFactor,0) when 0 then 1 else t3.FJfFactor end as FJfFactor,t3.FName,t1.FRemark,t1.FDeleted,t12.FColor,t13.FName as FSize,t2.FRtnQTy,t2.FSaleQty,t3.FProductNo,t3.FUnit,t2.FZkRate,t2.FRetailPrice,t2.FRetailAmount,t2.FPreSend,t9.FUserName as FBiller,t10.FUserName as FChecker,t4.FName as FStockname,t2.FItemID,t12.FSizeID,t3.FSizeID as FSizeGroupID,t3.FRetailPrice_2 as FSalePrice,t2.FSdyh,t2.FUnitCost,t2.FSalerID,t1.FPhone,t1.FOwner,t11.FVipNo,t1.FVipId,t2.FRefInteriD,t2.FRefEntryID,t1.FClassName,t4.FName as FStockName,t4.FItemID as FStockID,t1.FMachine "
        "from ICStockBill t1 Inner Join ICStockBillEntry t2 ON t1.FInterID=t2.FInterID left Join t_ICItem t3 ON t2.FItemID=t3.FItemID Inner Join t_Stock t4 ON t1.FOutStockID=t4.FItemID Left Join t_Emp t5 ON t2.FSalerID=t5.FItemID Left Join t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON t1.FCheckerID=t10.FUserID Left Join Vip t11 on t1.FVipID=t11.FVipID Inner Join ICStockBillEntry_1 t12 ON t2.FInterID=t12.FInterID and t2.FRowKey=t12.FRowKey Left Join t_Size t13 ON t12.FSizeID=t13.FItemID "
        "Where t1.FInterID=" +
        std::to_string(BillID) + " order by t2.FRowKey";
    return open_list(sql);
}

std::string PosData::GetUserName(std::int32_t UserID) {
    auto rs = common::open_recordset(
        "select FUserName from t_User where FUserID=" + std::to_string(UserID),
        common::GetPromptString(), Handler::None);
    std::string name = rs->Fields("FUserName").Value().to_string();
    rs->Close();
    return name;
}

}  // namespace billdata
