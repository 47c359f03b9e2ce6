#pragma once
// PosData: the till's data service — saving a retail sale (kind 99) with its lines, pre-sent
// goods, member card and points history; voiding, restoring and deleting a sale with the
// reversal of what saving it did; the till's history lists and one sale for reprinting.
//
// Instances hold no state: the connection string, year and period live in this thread's session
// (common::session()), so every instance on a thread sees the last Init. Not thread-safe across
// threads sharing one instance; every thread has its own session. All errors are ado::ComError.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata {

class PosData {
  public:
    // Stores the connection string, year and period into this thread's session. Opens nothing,
    // checks nothing: a bad string shows at the first operation.
    void Init(const std::string& NewPromptString, std::int16_t New_CurYear,
              std::int16_t New_CurPeriod);

    // One row per colour/size row of every till sale, newest first (same date: descending bill
    // number); `strFilter` is appended as it stands (" and …"), then the user's day window and
    // own stock from the session when they are above 0. `TranType` is not used. The caller owns
    // the forward-only record set, which reads through a private connection. Any failure is
    // raised as 0x800403E9 with its own description; lock waits are retried.
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t TranType,
                                                const std::string& strFilter);

    // As GetBillList with one row per sale (header columns only). A sale without lines is in
    // neither list.
    std::shared_ptr<ado::Recordset> GetBillList_Simple(std::int16_t TranType,
                                                       const std::string& strFilter);

    // The lines of sale `BillID` with what a front end needs to rebuild them for a corrected
    // save, in row-key order; empty when the sale or its stock row does not exist. Failures as
    // for the lists.
    std::shared_ptr<ado::Recordset> GetPosBill(std::int32_t BillID);

    // Voids (`DoBlankOut` true) or deletes sale `InterID`: while the sale is live, first takes
    // back the sold quantities it added to referenced stock and order lines and what it booked
    // on the member card; marks (void) or removes (delete) its points history; lets the price
    // adjustments be rebuilt without it. With `Cn` the statements run on the caller's
    // connection and inside its transaction, which is left open; without it on a connection of
    // its own, each statement committing by itself. Refusals, raised as 0x800403E9 before
    // anything is written: a bill of an earlier month than the session's, an audited bill, and
    // a bill that does not exist (with the record set's own "no current record" description).
    // Database errors are raised as 0x800403E9 with their own description; lock waits retried.
    void DeleteBill(std::int16_t TranType, std::int32_t InterID,
                    std::shared_ptr<ado::Connection> Cn = nullptr, bool DoBlankOut = false);

    // Restores sale `InterID` and books its points and sold quantities again, on a connection of
    // its own without a transaction. Checks nothing — not the period, the audit mark, nor
    // whether the sale is void at all (a live sale counts twice) — and does not restore the
    // card's purchase total. Errors reach the caller as they are.
    void UnblankOut(std::int32_t InterID);

    // Saves one till sale in one transaction on a connection of its own and returns its
    // interior id. `StockBillID` > 0 saves sale `StockBillID` again: it keeps its id, bill
    // number and FPosGetMoney, and the old sale is removed through DeleteBill inside the same
    // transaction. `BillData` (the lines) is read, never written, and released (set to nullptr)
    // once the header is written; `rsPreSendItem` may be nullptr. After the commit, outside the
    // transaction, the sold quantities of the referenced stock and order lines are raised,
    // fully sold order lines purged when `AutoDelRefBill`, and the price adjustments rebuilt
    // for a corrected sale under cost style 1; a failure there leaves the sale saved. A clash on
    // the interior id draws a fresh one and goes on; every other failure (lock waits included)
    // is raised as 0x800403E9 with its own description and nothing of the sale is committed.
    std::int32_t SaveData(std::int32_t StockID, const ado::DateTime& BillDate,
                          std::shared_ptr<ado::Recordset>& BillData, double SumAmount,
                          double GetCash, double GetBlank, double GetDyq, double OddMent,
                          const std::string& BillRemark, const std::string& ClassName,
                          double QkAmount, std::int32_t VipID, std::int32_t BillerID,
                          double GetAmount, double ChangeAmount, double GetQk,
                          std::shared_ptr<ado::Recordset> rsPreSendItem, double SumJf,
                          bool AutoDelRefBill, double AmountBogusToVip, double JfExchange,
                          double GetJfAmount, const std::string& Machine, std::int32_t StockBillID,
                          const std::string& BillNoBegChar);

  private:
    // FUserName of a user, read through a private connection of the session string. No
    // handler; an unknown user fails with the record set's "no current record" error.
    std::string GetUserName(std::int32_t UserID);
};

}  // namespace billdata
