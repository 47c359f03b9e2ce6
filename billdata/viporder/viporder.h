#pragma once
// vipOrder: orders taken for member card holders (ICOrder kind 21), each with the receipt of its
// earnest (WLBill kind 23).

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata {

// Instances hold no state: every operation reads this thread's session, so instances are
// interchangeable on one thread and an instance must not be shared between threads. Refusals
// and database errors are raised as ado::ComError 0x800403E9 (err::kComponent) with the
// refusal's text or the database's own description, except where an operation says otherwise.
class vipOrder {
  public:
    // Stores the connection string, year and period in this thread's session. Opens nothing.
    void Init(const std::string& NewPromptString, std::int16_t New_CurYear,
              std::int16_t New_CurPeriod);

    // Writes a member order in one transaction on a connection of its own: per row of
    // `BillData` (from where it stands) one ICOrderEntry line and one ICOrderEntry_1 row, both
    // keyed by the line number (FEntryID 0, 1, …, FRowKey '0', '1', …); the header, always of
    // kind 21 (TranType only chooses the number's kind and prefix), with the row sums (the
    // quantity sum is 16-bit: above 32767 the save fails); and a kind-23 receipt of the
    // earnest with a new id of series 4, written also when Earnest is 0, whose memo is
    // "会员订单：" and the order's number.
    // ModifyInterID < 1: a new order with an id of series 0 and a new number in `BillNo`; a
    // clash of that id with a bill another till wrote draws a fresh one. Otherwise the header
    // and receipts of ModifyInterID are replaced (no audit check) under the same id and the
    // caller's `BillNo`. `AcctID` is only read. `BillData` is reset to nullptr once its rows
    // are read. On failure nothing stays.
    void SaveData(std::int16_t TranType, const ado::DateTime& BillDate, std::string& BillNo,
                  double Earnest, std::int32_t& AcctID, const std::string& Remark,
                  std::int32_t VipID, const std::string& Owner, const std::string& Phone,
                  std::int32_t UserID, std::int32_t ModifyInterID,
                  std::shared_ptr<ado::Recordset>& BillData);

    // Voids (DoBlankOut: FDeleted 1 on the order and its receipts) or deletes the order and its
    // receipts. An audited order is refused with "删除单据失败，单据“<number>”已经审核！". An
    // order that does not exist fails with the record-set error of reading a field at its end
    // (err::kNoCurrentRecord's description) under 0x800403E9. With `Cn` the statements run on
    // the caller's connection and inside its transaction; without it, on a connection of its
    // own, each statement committing by itself.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // Restores a voided order and its receipts; no checks. Errors reach the caller unchanged.
    void UnblankOut(std::int32_t InterID);

    // One row per size/colour row of each line of the orders of kind `TranType`, newest first;
    // `strFilter` is appended after the kind condition (empty, or beginning with "and "). A
    // forward-only record set that the caller owns.
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);
};

}  // namespace billdata
