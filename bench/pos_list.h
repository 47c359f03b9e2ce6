#pragma once
// The till sales list with its lines, as PosData builds it, for the list benchmarks of either
// engine: `filter` is added to the where clause ("and t1.FDate between … and …").

#include <string>

namespace billdata::bench {

inline std::string pos_list_statement(const std::string& filter) {
    return "select t1.FInterID,t1.FDate,t1.FBillNo,t11.FVipNo + t11.FOwner as FVipCard,case "
           "t1.FDeleted when 0 then '' else '※' end as "
           "FDeleted,t1.FSysTime,FSumAmount,t9.FUserName as FBiller,FSumRetailAmount,FSumQty,t5."
           "FName as FSaler,t10.FUserName as "
           "FChecker,t1.FRemark,t1.FGetCash,FGetDyq,FGetBlank,FQkAmount,FSumCost as "
           "FCost,FSumProfit as FProfit ,t4.FName as "
           "FStockName,t1.FMachine,a4.FNumber,a4.FProductNo,a4.FName,a4.FUnit,a3.FColor,a5.FName "
           "as FSize,a3.FQty,a2.FPrice,a3.FQty*a2.FPrice as "
           "FAmount,a2.FRetailPrice,a2.FRetailPrice*a3.FQty as "
           "FRetailAmount,a2.FZkRate,a2.FMemo,case isnull(FCheckerID,0) when 0 then '' else '※' "
           "end as FChecked from ICStockBill t1 inner join icStockBillEntry a2 on "
           "t1.FInterID=a2.FInterID inner join ICStockBillEntry_1 a3 on a2.finterid=a3.finterid "
           "and a2.FRowKey=a3.FRowKey inner join t_icitem a4 on a3.FItemID=a4.FItemID left join "
           "t_Size a5 on a3.FSizeID=a5.FItemID left Join t_Stock t4 ON "
           "t1.FoutStockID=t4.FItemID Left Join t_Emp t5 on a2.FSalerID=t5.FItemID Left Join "
           "t_User t9 on t1.FBillerID=t9.FUserID Left Join t_User t10 ON "
           "t1.FCheckerID=t10.FUserID Left Join Vip t11 on t1.FVipID=t11.FVipID where "
           "FTranType=99 " +
           filter + " order by t1.FDate desc,t1.FBillNo desc";
}

}  // namespace billdata::bench
