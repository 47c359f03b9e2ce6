#pragma once
// Functions and collations that give translated statements SQL Server's semantics on SQLite.
// The SQLite emitter of billdata/dialect writes calls to them by the names of
// dialect/runtime_names.h; every connection of the embedded engine registers them. The parts
// live in tsql_runtime_text.cpp, tsql_runtime_numbers.cpp and tsql_runtime_dates.cpp.

#include <sqlite3.h>

namespace billdata::drivers::sqlite {

// Registers every runtime function and collation on the handle. Returns SQLITE_OK or the first
// error code.
int register_tsql_runtime(sqlite3* db);

}  // namespace billdata::drivers::sqlite
