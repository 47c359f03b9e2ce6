#pragma once
// The stored procedures of the embedded engine, written in C++ and called through
// ado::Command exactly as a server's procedures are.

#include <sqlite3.h>

#include <string_view>
#include <vector>

#include "billdata/ado/driver.h"

namespace billdata::drivers::sqlite {

// A procedure runs on the caller's database handle, inside the caller's transaction if one is
// open, reads its input arguments and writes its output arguments. Errors are raised as
// ado::ComError.
using ProcedureFn = void (*)(sqlite3* db, std::vector<ado::driver::ProcArg>& args);

// The procedure of that name (case-insensitive), or nullptr.
ProcedureFn find_procedure(std::string_view name);

// The query that sp_GetStockQty runs on `db` (?1 stock, ?2 item, ?3 the bill left out): for a
// program that measures the procedure's own cost against the engine's.
const char* stock_qty_statement(sqlite3* db);

// Finalises the statements that the built-in procedures keep prepared on `db`; called before the
// handle is closed.
void forget_procedure_statements(sqlite3* db);

}  // namespace billdata::drivers::sqlite
