#pragma once
// The writer pieces that the purchase receipt and the other stock bills share: both keep their
// bills in ICStockBill, ICStockBillEntry and ICStockBillEntry_1 and write them the same way.
// Internal to the library.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/billcore/operation.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"

namespace billdata::billcore {

// "2006年1季度": the quarter of a bill date, written into FSeason. Purchase receipts have always
// left FSeason empty and do not use it.
std::string season_text(const ado::DateTime& bill_date);

// "2006年03月": the month text of a bill date, written into FMonth.
std::string month_text(const ado::DateTime& bill_date);

// "YYYY-MM-DD HH:MM:SS" of the moment of saving, written into FSysTime.
std::string now_text();

// The two refusals of a removal, in their order, from the bill's look-up row (FcheckerID,
// FBillNo, FYear, FPeriod): an audited bill, then a bill of an earlier period than the session's.
void check_removable(const std::shared_ptr<ado::Recordset>& rs);

// The size/colour rows of `detail` whose FDel is 0, then one row for every line of the bill whose
// item has no size group. Statements carry `id` as it stands when each runs, so a fresh interior
// id drawn after a clash reaches them.
void write_size_rows(common::Executor& ex, const std::int32_t& id,
                     const std::shared_ptr<ado::Recordset>& detail);

// Items without a size group have no cells in the matrix: every line of the bill (adjustment
// rows included) whose item has none gets one row of its own quantity. `id` is read when the
// statement is built.
void write_unsized_rows(common::Executor& ex, const std::int32_t& id);

// The list restrictions of the session that every stock-bill list shares: the window of the
// last ListDays days (up to tomorrow's midnight) when ListDays > 0.
std::string list_window();

// Deletes the bill `id` outright: its header, its lines and its size/colour rows.
void delete_stock_bill(common::Executor& ex, std::int32_t id);

// Inside the save's transaction: a new bill (`is_new`) draws its interior id into `id` and its
// number into `bill_no`; a modified bill keeps `id` and its old header, lines and size/colour
// rows go, to be written again. `id` is read when each statement is built, so a fresh id drawn
// by the duplicate-key handler reaches the statements that follow.
void take_id_or_clear(Operation& op, bool is_new, std::int32_t& id, std::int16_t tran_type,
                      const ado::DateTime& bill_date, std::string& bill_no);

}  // namespace billdata::billcore
