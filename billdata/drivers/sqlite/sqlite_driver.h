#pragma once
// The embedded engine's driver: connection options, statement execution through the T-SQL
// translator, transactions, stored-procedure dispatch and error classification.
//
// Connection string keywords: Provider=SQLite, Data Source=<file> (must exist; never created
// here), Synchronous=Normal|Full|Off (default Full: a committed sale survives a power cut),
// Busy Timeout=<ms> (default kDefaultBusyTimeoutMs), Lock Timeout=<s> (read by the service
// layer's lock retry). Any other keyword is refused, naming it.

#include <sqlite3.h>

#include <memory>
#include <string_view>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/drivers/sqlite/procedures.h"

namespace billdata::drivers::sqlite {

inline constexpr int kDefaultBusyTimeoutMs = 5000;

// The driver object that register_builtin_drivers() registers.
std::shared_ptr<ado::driver::Driver> make_driver();

// Makes a procedure callable through ado::Command on every embedded connection of this
// process, in addition to the built-in ones (an extension, or a test's own procedure). A name
// registered here wins over a built-in of the same name (case-insensitive). Thread-safe.
void register_procedure(std::string_view name, ProcedureFn fn);

// The ComError for a failed call on `db` that returned `rc`: classified from the extended
// result code (Lock → err::kLockTimeout, primary-key/unique violation → DuplicateKey with the
// key "Table.Col1,Col2" under err::kIntegrity, other constraints err::kIntegrity, anything else
// err::kDatabase), described by the engine's own message, with whether the transaction on `db`
// is still open. Procedures use it for their own statements.
ado::ComError database_error(sqlite3* db, int rc);

}  // namespace billdata::drivers::sqlite
