#pragma once
// PublicData: operations over any bill kind, dispatched to the class that owns the kind, and the
// costing service published to front ends. Instances hold no state of their own (the
// session is per thread); an instance is not to be shared between threads.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata {

class PublicData {
  public:
    // Stores the connection string in this thread's session; sets no year or period.
    void Init(const std::string& NewValue);

    // Lists bills of kind `TranType` through the class that owns the kind. First reads the list
    // restriction of user `UserID` (t_User.FDays, FStockID; null counts as 0) into this thread's
    // session, where every later list of every class reads it; an unknown user leaves the
    // previous restriction in place. Kinds 13 and 23 get their class's Init with the session's
    // string, year and period. `QuerySql` goes untouched to GetBillList (ShowDetail true, or kinds
    // 13, 17, 21, 23, 27, which have no simple list) or GetBillList_Simple. Returns that record
    // set; the caller owns it. No handler of its own: database errors and the list operation's
    // errors reach the caller as they are; a kind outside the table fails with ComError 424.
    std::shared_ptr<ado::Recordset> GetBillData(std::int16_t TranType, const std::string& QuerySql,
                                                std::int32_t UserID, bool ShowDetail);

    // Restores voided bill `InterID` of kind `TranType` through its owning class (after that
    // class's Init with the session string, CurYear and CurPeriod). Refused with the component
    // error "对不起，不能恢复已前月份已作废的单据！" when the bill's calendar month lies before
    // CurYear/CurPeriod; an unknown id fails reading the bill's date (error 3021). Either way
    // nothing has changed. A kind outside the table fails with ComError 424, nothing changed.
    // No handler of its own: the owning class's errors reach the caller as they are.
    void UnblankOut(std::int32_t InterID, std::int16_t TranType, std::int16_t CurYear,
                    std::int16_t CurPeriod);

    // Voids (DoBlankOut true) or deletes bill `InterID` of kind `TranType` through its owning
    // class's DeleteBill on that class's own connection, after its Init with the session string,
    // CurYear and CurPeriod. A bill dated in a calendar month before CurYear/CurPeriod is
    // refused with "对不起，不能作废以前月份的单据！" or "对不起，不能删除以前月份的单据！" and
    // nothing changes; an id with no head row skips that check and still reaches the class. A
    // kind outside the table fails with ComError 424, nothing changed. No handler of its own.
    void DelBill(std::int32_t InterID, std::int16_t TranType, std::int16_t CurYear,
                 std::int16_t CurPeriod, bool DoBlankOut = false);

    // Audits the bills of kind `TranType` named by `InterID` (decimal ids separated by commas,
    // inserted as they stand): their FCheckerID becomes `UserID`. No period check; the shared
    // audit mark's handler and messages apply.
    void CheckBill(std::int16_t TranType, const std::string& InterID, std::int32_t UserID);

    // Removes the audit mark (FCheckerID 0) from the bills named as for CheckBill; `UserID` is
    // accepted and not used.
    void UnCheckBill(std::int16_t TranType, const std::string& InterID, std::int32_t UserID);

    // The costing service published to front ends, as billcore::CacuSptjd and
    // billcore::RecacuSptjd (billdata/billcore/costing.h): the purchase-price propagation, cost
    // style 1 only, on the caller's connection `Cn`, no handler of its own.
    void CacuSptjd(std::shared_ptr<ado::Connection> Cn, std::int32_t InterID, bool ReGen);
    void RecacuSptjd(std::shared_ptr<ado::Connection> Cn, std::int32_t InterID);
};

}  // namespace billdata
