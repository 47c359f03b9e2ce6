#pragma once
// The embedded engine's driver: connection options, statement execution through the T-SQL
// translator, transactions, stored-procedure dispatch and error classification.
//
// Connection string keywords: Provider=SQLite, Data Source=<file> (must exist; never created
// here), Synchronous=Normal|Full|Off (default Full: a committed sale survives a power cut),
// Busy Timeout=<ms> (default kDefaultBusyTimeoutMs), Lock Timeout=<s> (read by the service
// layer's lock retry), Pooling=True|False and Statement Cache=True|False (both default True; the
// environment variables BILLDATA_POOLING=off and BILLDATA_STATEMENT_CACHE=off turn them off for
// the whole process), Group Window=<ms> (default kDefaultGroupWindowMs, 0 turns grouping off;
// the environment variable BILLDATA_GROUP_WINDOW=<ms> sets it for every connection of the
// process whose string does not), and the
// data layer's Command Timeout=<s>. Any other keyword is refused, naming it.
//
// Write groups: a statement that writes outside a transaction of the caller's opens a write
// transaction (BEGIN IMMEDIATE) that the driver commits by itself; the connection's next
// statements outside a transaction, reads included, run inside it. Statement texts and the
// SQL log are what they are without it. The group is committed when it has been open for the
// window (checked when the connection's next call arrives, and by a timer thread of the
// process for a connection left idle, so that another process never waits longer than the
// window for the lock), before the connection is closed or given back to the pool, before
// BeginTrans, before a procedure added at run time, and before any other connection of the
// process runs anything on the same file (so it sees the group's writes, and no connection of
// the process waits for a lock that another one of the process holds: a connection that finds
// the file locked also commits the idle groups of the process on it). A statement that fails
// inside a group is undone alone, as in autocommit; where the engine gives up the whole
// transaction (I/O error, full disk, no memory, interrupt), the error reaches the caller and
// the group's earlier work is lost, as a power cut at that moment would lose it. With
// Synchronous=Full the grouped work reaches the disk when the connection is let go, as
// autocommit work does.
//
// Command timeout: a progress handler stops a step that outlives it (SQLITE_INTERRUPT, raised as
// ado::driver::timeout_error). The engine then resets the statement; a write it stopped inside a
// transaction rolls the whole transaction back, which the error reports.
//
// Pooling: closing a session gives its physical handle back to a pool of the same database file
// and options, when it is clean (no open transaction, no statement running, no error that spoils
// the handle); the next open takes it instead of opening the file again.
// Statement cache: each handle keeps the statements it prepared, keyed by the statement's shape
// (its text without literal values); a later statement of the same shape binds its literals to
// the prepared statement instead of being translated and prepared again.

#include <sqlite3.h>

#include <cstddef>
#include <memory>
#include <string_view>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/drivers/sqlite/procedures.h"

namespace billdata::drivers::sqlite {

inline constexpr int kDefaultBusyTimeoutMs = 5000;
inline constexpr int kDefaultGroupWindowMs = 10;
inline constexpr int kMaxGroupWindowMs = 1000;

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

// Handles waiting in the pool, over all databases of this process (for tests and diagnostics).
std::size_t idle_handles();

// Commits every write group open in this process now: for code that reads a database file
// without going through the driver.
void commit_write_groups();

}  // namespace billdata::drivers::sqlite
