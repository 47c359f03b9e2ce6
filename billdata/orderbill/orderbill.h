#pragma once
// OrderBill: customer order bills (ICOrder kind 11) with their lines, their size/colour rows and
// the payment bills of their advances.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"

namespace billdata {

// Instances hold no state: every operation reads this thread's session, so instances are
// interchangeable on one thread and an instance must not be shared between threads. Refusals
// and database errors are raised as ado::ComError 0x800403E9 (err::kComponent) with the
// refusal's text or the database's own description.
class OrderBill {
  public:
    // Stores the connection string, year and period in this thread's session. Opens nothing.
    void Init(const std::string& NewPromptString, std::int16_t NewCurYear,
              std::int16_t NewCurPeriod);

    // Writes an order in one transaction on a connection of its own: one ICOrderEntry row per
    // row of `RsBill` from where it stands (FEntryID 0, 1, …), then the header with the line
    // sums, then the ICOrderEntry_1 rows of `rsBillDetail` whose FDel is 0.
    // OldInterID < 1: a new order with an id of series 11 and a number of kind 11 ("CD…")
    // written into `BillNo`. Otherwise the order OldInterID is removed first (refused when it is
    // gone or audited) together with its payment bills, and rewritten under the same id with
    // the caller's `BillNo`. On success returns "True" and OldInterID holds the order's id;
    // when `Amount` is not 0 a kind-13 payment bill of that amount pointing at the order is
    // then written through SFKData in its own transaction (a failure there is raised, the
    // order stays). On a failure of the order itself nothing stays and OldInterID is unchanged.
    // The caller keeps both record sets; they are only read (and left at their end).
    std::string SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                         std::int32_t OrgaID, const std::string& Remark, std::int32_t BillerID,
                         std::int32_t& OldInterID, std::shared_ptr<ado::Recordset>& RsBill,
                         double Amount, std::int32_t AcctID,
                         std::shared_ptr<ado::Recordset>& rsBillDetail);

    // Voids (DoBlankOut: the order and its payment bills get FDeleted 1) or deletes the order
    // (header, lines and size/colour rows; its payment bills stay). Refused with
    // "删除单据失败，单据已经不存在！" when there is no such order and with
    // "删除单据失败，单据“<number>”已经审核！" when it is audited; nothing changes then. With
    // `Cn` the statements run on the caller's connection and inside its transaction; without
    // it, on a connection of its own, each statement committing by itself.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // Restores a voided order and its payment bills; no checks (an unknown id changes nothing).
    void UnblankOut(std::int32_t InterID);

    // One order with its lines; `strFilter` is the whole condition and must not be empty.
    // A forward-only record set that the caller owns.
    std::shared_ptr<ado::Recordset> GetBill(std::int16_t TranType, const std::string& strFilter);

    // One row per size/colour row of the orders of kind `TranType`; `strFilter` is appended
    // after the kind condition (empty, or beginning with "and ").
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);

    // One row per order of kind `TranType`; the filter may test the line, item, colour and size
    // columns as GetBillList's does.
    std::shared_ptr<ado::Recordset> GetBillList_Simple(std::int16_t TranType,
                                                       const std::string& strFilter);

    // The interior ids of the orders matching `strFilter` (the whole condition, not empty);
    // empty when nothing matches.
    std::vector<std::int32_t> GetBillInterID(const std::string& strFilter);
};

}  // namespace billdata
