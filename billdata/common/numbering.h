#pragma once
// Interior ids and daily bill numbers, drawn from the counter tables inside the saving
// operation's transaction, so that a rolled-back save gives its numbers back.

#include <cstdint>
#include <string>
#include <string_view>

#include "billdata/ado/datetime.h"
#include "billdata/common/handlers.h"

namespace billdata::common {

// Interior-id series of ICMaxNum.
inline constexpr std::int16_t kSeriesStockBill = 0;
inline constexpr std::int16_t kSeriesMoneyBill = 4;
inline constexpr std::int16_t kSeriesOrder = 11;

// The next interior id of a series. Step 0 means 1. A new series starts at 1. For series 0 the
// id is also kept above every id already in ICStockBill, while the counter itself moves by the
// step only (it may lag behind; the cross-check makes up for it on every call). Statements run
// through `ex`, so under its handler and inside its transaction.
std::int32_t NextInterID(Executor& ex, std::int16_t series, std::int16_t step);

// The next bill number of a kind (decimal text of the bill-kind code) for a bill date: prefix,
// two-digit year, month, day, "-", and the day's sequence padded to three digits. The prefix is
// used as it stands: the kind's own letters come from billcore::NextBillNo, which knows the
// kinds. A sequence above 32767 raises 6.
std::string NextBillNo(Executor& ex, std::string_view kind, const ado::DateTime& bill_date,
                       std::string_view prefix);

}  // namespace billdata::common
