#pragma once
// Audit marks and the stock-quantity lookup, shared by the bill classes.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "billdata/ado/ado.h"

namespace billdata::common {

// Writes the checker's user id into FCheckerID of `header_table` (the bills' header table,
// chosen by kind in billcore::SetCheckMark) for the bills named by `inter_ids` (decimal ids
// separated by commas, inserted into the statement as they stand), on a connection of its own
// from the session string; one statement, no transaction. Common handler; error 9 becomes
// "没有需要审核的单据!". An empty list is refused by the database and raised with its message;
// a list holding anything but digits, commas and blanks is refused before anything runs
// (0x800403E9 "单据内码只能是以逗号分隔的整数：“…”！"), since it would go into the statement as
// SQL.
void SetCheckMark(std::string_view header_table, std::string_view inter_ids,
                  std::int32_t checker_id);

// Writes 0 back (the user id is accepted and not used); error 9 becomes "没有需要反审核的单据!";
// the id list is checked as for SetCheckMark.
void ClearCheckMark(std::string_view header_table, std::string_view inter_ids,
                    std::int32_t user_id);

// The quantity of an item in a stock over all bills except `inter_id`, from the stored procedure
// sp_GetStockQty, on the caller's connection (inside its transaction, if one is open). No
// handler of its own: errors reach the calling operation's handler.
double GetStockQty(const std::shared_ptr<ado::Connection>& cn, std::int32_t stock_id,
                   std::int32_t item_id, std::int32_t inter_id);

}  // namespace billdata::common
