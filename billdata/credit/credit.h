#pragma once
// Credit: goods lent to a member to try at home (kind 27, "JC"), and lent goods brought back
// (kind 17, "JR"), kept in the stock-bill tables with the member, owner and phone on the header.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata {

// A lending bill takes goods out of a stock; a return bill brings them back, each of its lines
// pointing at the lent line (FRefInterID/FRefEntryID, FRefTranType 27) and raising that line's
// returned quantity FRtnQty while the return is live. Goods the member keeps are sold at the
// till, whose line refers to the lent line in the same way and raises its FSaleQty.
//
// Instances hold no state of their own: they read this thread's session (connection string,
// current year and period, list restriction). An instance must not be shared between threads;
// every thread has its own session. Every operation that has no `Cn` opens a connection of its
// own and closes it on every way out.
class Credit {
  public:
    // Stores the connection string, year and period in this thread's session. Opens nothing.
    void Init(const std::string& NewPromptString, std::int16_t New_CurYear,
              std::int16_t New_CurPeriod);

    // Saves a new bill (OldInterID <= 0) or rewrites bill OldInterID under the same interior id.
    // TranType 27 lends from StockID (FOutStockID); 17 takes back into StockID (FInStockID).
    // RsBill: the lines from its current row to its end (FItemID, FRowKey, FQty, FPrice, FAmount,
    // FRetailPrice, FRetailAmount, FZkRate, FMemo, FUnitCost, FRefInterID, FRefEntryID);
    // rsBillDetail (may be nullptr): size/colour cells (FDel, FItemID, FRowKey, FSizeiD, FColor,
    // FColorEntryID, FQty), items without sizes get one row per line automatically.
    // A return line must point at a line of a live lending bill for the same item, and a bill
    // must not take back more than is still out (lent − returned − sold); a lending bill that
    // returns or till sales refer to is not rewritten
    // ("保存单据失败，单据“…”已有归还或销售记录！").
    //
    // All or nothing, in one transaction on a connection of its own: the header first, then the
    // lines, their size/colour rows, and the returned quantities of the lent lines; a rewrite
    // first takes back the old bill's returns and rows. On success: true, BillNo gets a new
    // bill's number ("JC"/"JR" + date + sequence; a rewrite keeps the caller's), OldInterID the
    // interior id, RsBill is closed and released; then, under cost style 1, the price
    // adjustments after a rewritten bill are rebuilt (an error there leaves the bill saved).
    // Refusals (0x800403E9): "没有数据可以保存!" for no lines,
    // "借货单据类型只能是借出(27)或借还(17)!" for another kind, and the checks above. A duplicate
    // interior id draws a fresh one and goes on; any other database error is raised as
    // 0x800403E9 with its own text. A save that fails writes nothing (the old bill of a rewrite
    // stays as it was), and BillNo, OldInterID, RsBill and rsBillDetail keep their values.
    bool SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                  std::int32_t StockID, std::int32_t VipID, const std::string& Owner,
                  const std::string& Phone, const std::string& Remark, std::int32_t BillerID,
                  std::int32_t& OldInterID, std::shared_ptr<ado::Recordset>& RsBill,
                  std::shared_ptr<ado::Recordset>& rsBillDetail);

    // Voids (DoBlankOut true) or deletes a credit bill; TranType is not used. An unknown InterID
    // does nothing. Refusals (0x800403E9, nothing changed): an audited bill "删除单据失败，单据“…”
    // 已经审核！", then a bill of an earlier period than the session's "对不起,不能删除以前月份的
    // 单据!", a bill that is no credit bill "删除单据失败，单据“…”不是借货单据！", and a lending
    // bill that returns or till sales refer to "删除单据失败，单据“…”已有归还或销售记录！". While
    // the bill is live its returns are taken back from FRtnQty. With `Cn` the work runs on the
    // caller's connection and inside the caller's transaction; without it, on a connection of
    // its own in one transaction. Common handler: database errors 0x800403E9 with their text.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // Restores a voided bill and books its returns into FRtnQty again (a bill that is not void
    // is marked live and nothing is booked twice). No period or audit check. One transaction on
    // a connection of its own; errors reach the caller as they are.
    void UnblankOut(std::int32_t InterID);

    // One row per size/colour row of the bills of kind TranType matching `strFilter` (a
    // condition that starts with its own " and "), with the member card, owner and phone,
    // restricted by the session's ListDays and ListStockID (the issuing stock for 27, the
    // receiving stock for 17); newest first. A forward-only record set on a private connection,
    // owned by the caller. Common handler.
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);
};

}  // namespace billdata
