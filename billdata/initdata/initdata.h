#pragma once
// InitData: closing the opening balances (stock, receivables/payables, cash) into the balances
// of the start period, and returning to initialisation.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata {

// The class has no Init of its own: the stock and receivable/payable operations take their
// connection string as an argument, the others use this thread's session string (set by the
// Init of any class, or by UnCloseWLInit). Instances hold no state; an instance must not be
// shared between threads, but every thread may use its own. Every operation opens a connection
// of its own and closes it on every exit.
class InitData {
  public:
    // Replaces the stock balances of period StartYear/StartPeriod by the opening stock
    // (ICInitData, ICInitData_Entry), sets ICClosed to "1", starts the goods' average cost at the
    // opening price and gives bill lines saved without a unit cost the opening price. Runs on a
    // connection of `PromptString` (the session is not touched), statement by statement with no
    // transaction; a database error reaches the caller as it is, and what ran before it stays.
    void CloseICInit(const std::string& PromptString, std::int16_t StartYear,
                     std::int16_t StartPeriod);

    // Removes the stock balances of every period and sets ICClosed to "0", unless the current
    // period is later than the start period: then ComError 0x800403E9 "启用期间与当前期间不一致，
    // 不能返回初始化！" and nothing changes. No transaction; database errors reach the caller as
    // they are.
    void UnCloseICInit(const std::string& PromptString);

    // In the start period only: replaces the receivable/payable balances (WLBal, WLSettleBal) and
    // the opening pseudo bills (kinds -12 and -22, interior id = minus the partner id) by the
    // staging rows of WLInitData and sets WLClosed to "1", in one transaction on a connection of
    // `PromptString`. True once committed. Refusal: 0x800403E9 "帐套当前月份与启用月份不一致,不能
    // 关闭初始化!" before anything changes; database errors 0x800403E9 with their own text, and
    // then nothing of the close stays.
    bool CloseWLInit(const std::string& PromptString);

    // Stores `New_CnStr` as this thread's session string, then in the start period only empties
    // the receivable/payable balances, removes the stock bills whose partner is a negated partner
    // id, and sets WLClosed to "0", in one transaction. True once committed. Refusal: 0x800403E9
    // "帐套当前月份与启用月份不一致,不能返回初始化!"; database errors 0x800403E9 with their text.
    bool UnCloseWLInit(const std::string& New_CnStr);

    // Replaces all staging rows of WLInitData by the rows of `rs` from its current position to
    // its end, each with item class 2 (`ItemClassID` is accepted and not used). On success the
    // caller's reference is released (rs becomes nullptr). The rows are read before anything is
    // written, so a record set that lacks a field (3265) or is missing (424) fails with 0x800403E9
    // and leaves WLInitData as it was. Session string; no transaction.
    void SaveInitWLData(std::int32_t ItemClassID, std::shared_ptr<ado::Recordset>& rs);

    // Replaces the cash balances by CashInitData and sets CashClosed to "1". Session string; no
    // transaction; database errors 0x800403E9 with their own text.
    void CloseCashInit();

    // Empties the cash balances and sets CashClosed to "0". As CloseCashInit.
    void UnCloseCashInit();
};

}  // namespace billdata
