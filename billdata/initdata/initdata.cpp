#include "billdata/initdata/initdata.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <string_view>
#include <vector>

#include "billdata/billcore/operation.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"
#include "billdata/common/session.h"

namespace billdata {

namespace {

using common::Executor;
using common::Handler;

bool equals_ignore_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

// Year × 12 + period in the 16-bit arithmetic the period checks have always used: a result out
// of range is an overflow, not a wrapped number.
std::int16_t month_index(std::int16_t year, std::int16_t period) {
    const std::int32_t index = std::int32_t{year} * 12 + period;
    if (index < std::numeric_limits<std::int16_t>::min() ||
        index > std::numeric_limits<std::int16_t>::max())
        throw ado::ComError::platform(ado::err::kOverflow);
    return static_cast<std::int16_t>(index);
}

struct Periods {
    std::int16_t start = 0;    // start year × 12 + start period
    std::int16_t current = 0;  // current year × 12 + current period
    std::int16_t start_year = 0;
    std::int16_t start_period = 0;
};

// The start and current periods from the settings; a key that is missing counts as 0.
Periods read_periods(Executor& ex) {
    std::int16_t start_year = 0, start_period = 0, current_year = 0, current_period = 0;
    auto rs = ex.query(
        "select FKey,FValue from t_systemprofile where fkey in "
        "('StartYear','StartPeriod','CurrentYear','CurrentPeriod')");
    while (!rs->Eof()) {
        const std::string key = rs->Fields("FKey").Value().to_string();
        const ado::Variant& value = rs->Fields("FValue").Value();
        if (equals_ignore_case(key, "startyear")) start_year = value.to_int16();
        if (equals_ignore_case(key, "startperiod")) start_period = value.to_int16();
        if (equals_ignore_case(key, "currentyear")) current_year = value.to_int16();
        if (equals_ignore_case(key, "currentperiod")) current_period = value.to_int16();
        rs->MoveNext();
    }
    rs->Close();
    return Periods{month_index(start_year, start_period), month_index(current_year, current_period),
                   start_year, start_period};
}

// Statements of the cash close and reopen: no transaction, the common handler.
void run_common(const std::vector<std::string>& statements) {
    common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, common::GetPromptString());
        Executor& ex = op.ex();
        for (const std::string& sql : statements)
            ex.execute(sql);
    });
}

}  // namespace

void InitData::CloseICInit(const std::string& PromptString, std::int16_t StartYear,
                           std::int16_t StartPeriod) {
    const std::string y = std::to_string(StartYear);
    const std::string p = std::to_string(StartPeriod);
    billcore::Operation op(Handler::None, PromptString);
    Executor& ex = op.ex();
    ex.execute("delete from icbal where fyear=" + y + " and Fperiod=" + p);
    ex.execute("delete from icbal_Entry where fyear=" + y + " and Fperiod=" + p);
    ex.execute(
        "Insert Into ICBal(FYear,FPeriod,FStockID,FItemID,FBegQty,FBegPrice,FBegBal) select " + y +
        "," + p +
        ",FStockID,FItemID,sum(FQty),sum(FAmount)/sum(FQty),sum(FAmount) from ICInitData group "
        "by FStockID,FItemID");
    ex.execute(
        "Insert Into ICBal_Entry(FYear,FPeriod,FStockID,FItemID,FColor,FSizeID,FBegQty) select " +
        y + "," + p +
        ",FStockID,FItemID,FColor,FSizeID,sum(FQty) from ICInitData_Entry group by "
        "FStockID,FItemID,FColor,FSizeID");
    ex.execute("Update t_systemprofile set fValue='1' where fkey='ICClosed'");
    ex.execute(
        "Update t1 set t1.FPjCost=t2.FPrice from t_ICItem t1 Inner Join ICInitData t2 on "
        "t1.fitemid=t2.fitemid");
    ex.execute(
        "Update t1 set t1.FUnitCost=t2.FPrice,t1.FCost=t1.FQty*t2.FPrice from ICStockBillEntry t1 "
        "Inner Join ICInitData t2 on t1.fitemid=t2.fitemid where isnull(t1.FUnitCost,0)=0");
}

void InitData::UnCloseICInit(const std::string& PromptString) {
    billcore::Operation op(Handler::None, PromptString);
    Executor& ex = op.ex();
    const Periods periods = read_periods(ex);
    if (periods.start < periods.current)
        throw ado::ComError::component("启用期间与当前期间不一致，不能返回初始化！");
    ex.execute("truncate table icbal");
    ex.execute("truncate table icbal_Entry");
    ex.execute("Update t_systemprofile set fValue='0' where fkey='ICClosed'");
}

bool InitData::CloseWLInit(const std::string& PromptString) {
    return common::guarded(Handler::Common, [&] {
        billcore::Operation op(Handler::Common, PromptString);
        Executor& ex = op.ex();
        const Periods periods = read_periods(ex);
        if (periods.start != periods.current)
            throw ado::ComError::component("帐套当前月份与启用月份不一致,不能关闭初始化!");
        const std::string y = std::to_string(periods.start_year);
        const std::string p = std::to_string(periods.start_period);
        op.transaction([&] {
            ex.execute("truncate table WLBal");
            ex.execute("truncate table WLSettleBal");
            ex.execute("delete from ICStockBill where FTranType in (-12,-22)");
            ex.execute("Insert Into WLBal(FYear,FPeriod,FItemClassID,FOrgaID,FBegBal) select " + y +
                       "," + p + ",FItemClassID,FOrgaID,FAmount from WLInitData");
            ex.execute(
                "Insert Into ICStockBill(FInterID,FOrgaID,FTranType,FSumAmount) Select "
                "-FOrgaID,FOrgaID,Case FItemClassID when 1 then -22 else -12 end,FAmount From "
                "WLInitData");
            ex.execute("Update t_SystemProfile set FValue='1' where FKey='WLClosed'");
        });
        return true;
    });
}

bool InitData::UnCloseWLInit(const std::string& New_CnStr) {
    return common::guarded(Handler::Common, [&] {
        common::SetPromptString(New_CnStr);
        billcore::Operation op(Handler::Common, common::GetPromptString());
        Executor& ex = op.ex();
        const Periods periods = read_periods(ex);
        if (periods.start != periods.current)
            throw ado::ComError::component("帐套当前月份与启用月份不一致,不能返回初始化!");
        op.transaction([&] {
            ex.execute("Delete from WLBal");
            ex.execute("delete from WLSettleBal");
            // Matches partners by negated id, so the pseudo bills (whose FOrgaID is the partner id
            // itself) stay until the next close removes them by kind. Kept as the books expect it.
            ex.execute("delete from ICStockBill where FOrgaID in (select FItemID*-1 from t_Item)");
            ex.execute("Update t_SystemProfile set FValue='0' where FKey='WLClosed'");
        });
        return true;
    });
}

void InitData::SaveInitWLData(std::int32_t /*ItemClassID*/, std::shared_ptr<ado::Recordset>& rs) {
    common::guarded(Handler::Common, [&] {
        common::require_recordset(rs);
        // Every row is read before the staging table is emptied: a bad record set must not
        // leave the opening receivables and payables half replaced.
        std::vector<std::string> inserts;
        while (!rs->Eof()) {
            inserts.push_back("Insert Into WLInitData(FItemClassID,FOrgaID,FAmount) Values(2," +
                              common::sql_number(rs->Fields("FItemID").Value()) + "," +
                              common::sql_number(rs->Fields("FAmount").Value()) + ")");
            rs->MoveNext();
        }
        billcore::Operation op(Handler::Common, common::GetPromptString());
        Executor& ex = op.ex();
        ex.execute("truncate table WLInitData");
        for (const std::string& sql : inserts)
            ex.execute(sql);
    });
    rs.reset();
}

void InitData::CloseCashInit() {
    run_common({"delete from CashBal",
                "Insert Into CashBal(FItemClassID,FItemID,FAmount) select "
                "FItemClassID,FItemID,FAmount from CashInitData",
                "Update t_SystemProfile set FValue='1' where FKey='CashClosed'"});
}

void InitData::UnCloseCashInit() {
    run_common(
        {"delete from CashBal", "Update t_SystemProfile set FValue='0' where FKey='CashClosed'"});
}

}  // namespace billdata
