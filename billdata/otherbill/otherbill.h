#pragma once
// OtherBill: the other stock bills — transfers between stocks (kind 31), other stock in (115) and
// other stock out (125) — in the stock-bill tables.
//
// Instances hold no state: everything an operation needs comes from this thread's session
// (Init) and its arguments. Not thread-safe across threads sharing an instance; every thread
// has its own session.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/ado/datetime.h"

namespace billdata {

class OtherBill {
  public:
    // Stores the connection string, year and period in this thread's session. Opens nothing.
    void Init(const std::string& NewPromptString, std::int16_t NewCurYear,
              std::int16_t NewCurPeriod);

    // Saves a bill from the lines of `RsBill` (from its current row to its end; none is
    // allowed: a header with zero sums) and the size/colour cells of `rsBillDetail`, in one
    // transaction on a connection of its own. OldInterID <= 0 saves a new bill (fresh interior
    // id and bill number, the number written to BillNo); OldInterID >= 1 replaces that bill
    // under the same id and the caller's BillNo, and under cost style 1 rebuilds the price
    // adjustments after it before and after the transaction. A line's unit cost and cost are its
    // price and amount; kind 125 writes InStockID as the issuing stock too. Returns true when the
    // save commits; OldInterID receives the interior id. RsBill is closed and reset to nullptr
    // once read. Raises ComError 0x800403E9 with a database error's own description (nothing of
    // the transaction committed). A clash on the interior id draws a fresh one and goes on.
    bool SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                  std::int32_t InStockID, const std::string& Cause, std::int32_t OutStockID,
                  const std::string& Remark, std::int32_t BillerID, std::int32_t& OldInterID,
                  std::shared_ptr<ado::Recordset>& RsBill,
                  std::shared_ptr<ado::Recordset>& rsBillDetail);

    // Voids (DoBlankOut) or deletes bill `InterID`; under cost style 1 the price adjustments
    // after it are rebuilt first (once: a bill already void is deleted without it). On `Cn` when
    // given (the caller's transaction, left open), else on a connection of its own inside one
    // transaction of its own, rolled back on any failure. An unknown id does nothing. Raises
    // ComError 0x800403E9 with "删除单据失败，单据“<no>”已经审核！" for an audited bill,
    // "对不起,不能删除以前月份的单据!" for one of an earlier period than the session's, or a
    // database error's description.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // Restores voided bill `InterID` and, under cost style 1, rebuilds the price adjustments
    // after it. No checks; errors reach the caller unchanged.
    void UnblankOut(std::int32_t InterID);

    // One row per size/colour cell of the bills of kind `TranType` matching `strFilter` (an SQL
    // condition beginning with its own "and", inserted as given), within the session's list
    // window and stock (the receiving stock for 115, the issuing stock otherwise); newest first.
    // Raises ComError 0x800403E9 with the database's description on failure.
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);

    // The same bills, one row each.
    std::shared_ptr<ado::Recordset> GetBillList_Simple(std::int16_t TranType,
                                                       const std::string& strFilter);
};

}  // namespace billdata
