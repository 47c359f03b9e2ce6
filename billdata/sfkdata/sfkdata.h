#pragma once
// SFKData: receipts and payments (WLBill kinds 13 and 23) — money received from or paid to a
// business partner, optionally tied to the order or the stock bill that it settles.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"

namespace billdata {

// Instances hold no state: every operation reads this thread's session (connection string,
// current year and period), so instances are interchangeable on one thread and an instance must
// not be shared between threads. Refusals and database errors are raised as ado::ComError
// 0x800403E9 (err::kComponent) with the refusal's text or the database's own description.
class SFKData {
  public:
    // Stores the connection string, year and period in this thread's session. Opens nothing.
    void Init(const std::string& NewPromptString, std::int16_t NewCurYear,
              std::int16_t NewCurPeriod);

    // Writes one receipt or payment bill in one transaction on a connection of its own.
    // OldInterID < 1: a new bill with an interior id of series 4 and a bill number of kind
    // `TranType` for `BillDate`, written back into `BillNo` (before the row is written, so a
    // failed save still leaves the drawn number there). Otherwise the row of OldInterID is
    // replaced from the arguments alone (audit and void marks are not carried over), keeping
    // the caller's `BillNo`. FSettleAmount is SumAmount + OddMent; FSysTime is this machine's
    // clock. Always returns 0 (a new bill's id is found again through GetBillInterID).
    // On failure nothing is written: a corrected bill keeps its old row.
    std::int32_t SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                          std::int32_t AcctID, std::int32_t OrgaID, std::int32_t EmpID,
                          double SumAmount, double OddMent, const std::string& Memo,
                          std::int32_t BillerID, std::int32_t OldInterID, std::int32_t OrderBillID,
                          std::int32_t StockBillID);

    // Voids (DoBlankOut) or deletes bill `InterID` (deleting also removes its WLBillEntry rows).
    // A bill that does not exist is left alone without error. Refused when the bill is dated in
    // a month before the session's year and period ("对不起,不能删除以前月份的单据!") or is
    // audited ("对不起，该单据已经审核，不能删除或修改！"). With `Cn` the statements run on the
    // caller's connection and inside its transaction (it is neither opened nor closed);
    // without it, on a connection of its own, each statement committing by itself.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // The bills of kind 13 (partners are suppliers) when TranType is 13, otherwise the bills of
    // kind 23 (partners are members), narrowed by `strFilter` (inserted as it stands after the
    // kind condition, so it is empty or begins with "and "). A forward-only record set that the
    // caller owns; voided and audited bills carry "※" in FDeleted and FChecked.
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);

    // The interior ids of the bills of kind `TranType` that match `strFilter` (a condition,
    // always required: "1=1" for all). Empty when nothing matches.
    std::vector<std::int32_t> GetBillInterID(std::int16_t TranType, const std::string& strFilter);

    // Audits (writes CheckerID into) every bill of `InterID` in one transaction: all or none.
    // An id that does not exist touches nothing. An empty array is refused with "下标越界".
    void CheckBill(std::vector<std::int32_t>& InterID, std::int32_t CheckerID);

    // Clears the audit mark of every bill of `InterID` in one transaction: all or none.
    void UnCheckBill(std::vector<std::int32_t>& InterID, std::int32_t CheckerID);

    // Restores a voided bill; no period or audit check. Errors reach the caller unchanged.
    void UnblankOut(std::int32_t InterID);
};

}  // namespace billdata
