#pragma once
// PurRkd: purchase receipts (kind 112) and returns to the supplier (kind 114) in the stock-bill
// tables, with the price-difference rows that keep stock values right when a purchase price
// differs from the item's previous cost.
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

class PurRkd {
  public:
    // Stores the connection string, year and period in this thread's session. Opens nothing.
    void Init(const std::string& NewPromptString, std::int16_t NewCurYear,
              std::int16_t NewCurPeriod);

    // Saves a receipt from the lines of `RsBill` (from its current row to its end) and the
    // size/colour cells of `rsBillDetail`, in one transaction on a connection of its own.
    // OldInterID <= 0 saves a new receipt (fresh interior id and bill number, the number written
    // to BillNo); OldInterID > 0 replaces that receipt under the same id and the caller's BillNo.
    // Kind 112 also updates the items' purchase price and supplier; 112 and 114 write the
    // price-difference rows. Afterwards the cost step runs (price propagation under cost style
    // 1, otherwise Sp_CacuCost). On success returns true and writes the id to OldInterID.
    // RsBill is closed and reset to nullptr once its lines are read. Raises ComError
    // 0x800403E9: "没有数据可以保存!" when RsBill has no line (nothing written, no connection
    // opened), or a database error's own description — the transaction is then not committed.
    // A clash on the interior id draws a fresh one and goes on.
    bool SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                  std::int32_t StockID, std::int32_t OrgaID, std::int32_t AcctID,
                  const std::string& Remark, std::int32_t BillerID, std::int32_t SettleID,
                  std::int32_t& OldInterID, std::shared_ptr<ado::Recordset>& RsBill, double SumQty,
                  double SumAmount, std::shared_ptr<ado::Recordset> rsBillDetail);

    // Voids (DoBlankOut) or deletes receipt `InterID`, recomputing the price propagation without
    // it first (once: a receipt already void is deleted without it). On `Cn` when given (the
    // caller's transaction, left open), else on a connection of its own without a transaction.
    // An unknown id does nothing. Raises ComError 0x800403E9 with "删除单据失败，单据“<no>”已经
    // 审核！" for an audited receipt, "对不起,不能删除以前月份的单据!" for one of an earlier period
    // than the session's (nothing changed then), or a database error's description.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // Restores voided receipt `InterID` and recomputes the price propagation with it. No checks;
    // errors reach the caller unchanged (the restore may stand without the recomputation).
    void UnblankOut(std::int32_t InterID);

    // One row per size/colour cell of the receipts of kind `TranType` matching `strFilter` (an
    // SQL condition beginning with its own "and", inserted as given), within the session's list
    // window and stock; newest first. The record set is the caller's (a private connection).
    // Raises ComError 0x800403E9 with the database's description on failure.
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);

    // The same receipts, one row each.
    std::shared_ptr<ado::Recordset> GetBillList_Simple(std::int16_t TranType,
                                                       const std::string& strFilter);
};

}  // namespace billdata
