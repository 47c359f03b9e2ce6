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

// Finalises the statements that the built-in procedures keep prepared on `db`; called before the
// handle is closed.
void forget_procedure_statements(sqlite3* db);

}  // namespace billdata::drivers::sqlite
