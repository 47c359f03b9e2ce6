#pragma once
// The driver for databases reached through ODBC (unixODBC's driver manager): SQL Server through
// the FreeTDS driver, and any server whose ODBC driver is named in the connection string.
//
// Connection string: an OLE DB string of SQL Server (Provider=SQLOLEDB|SQLNCLI…|MSOLEDBSQL…;
// Data Source=host[,port];Initial Catalog=…;User ID=…;Password=…), or an ODBC string
// (Driver={…};… or DSN=…;…) passed to the driver manager as it is; both take this library's
// keywords (odbc_target.h): Dialect, Connect Timeout, Busy Timeout, Lock Timeout, Pooling,
// Statement Cache, Command Timeout.
//
// SQL Server (the default dialect): each statement goes out as written, after the check that
// it is exactly one statement; its literals are bound as parameters, so that one prepared
// statement per statement shape and connection serves them all. Every connection runs
// SET DATEFORMAT ymd, SET LOCK_TIMEOUT <Busy Timeout> and SET XACT_ABORT OFF. A counter read inside
// a transaction (ICMaxNum, ICBillNo) gets WITH (UPDLOCK, ROWLOCK, HOLDLOCK) after its table: the
// row read is held until the transaction ends, and so is the gap where a key that has no row yet
// would go, so that two tills never draw the same number. Errors are classified by the native
// number (sqlserver_error.h); after an error inside a transaction SELECT XACT_STATE() tells whether
// the server has ended it.
//
// Dialect=PostgreSQL: the statements are translated as for the native PostgreSQL driver, and
// get what that driver gives them: a failed statement inside a transaction is undone alone (the
// ODBC driver's statement-level rollback), a deadlock or serialization failure ends the
// transaction, counter reads lock their key; errors are classified by SQLSTATE.
//
// Rows are streamed: a cursor fetches a block of rows at a time into buffers bound per column
// (a row at a time where a row is too wide for blocks, or where a text may outgrow its buffer and
// the ODBC driver cannot read it again from within a block).

#include <cstddef>
#include <memory>

#include "billdata/ado/driver.h"

namespace billdata::drivers::odbc {

// The driver object that register_builtin_drivers() registers.
std::shared_ptr<ado::driver::Driver> make_driver();

// A plain connection for creating the schema of a Dialect=PostgreSQL database, past the
// translator. Raises ComError (err::kConnection) naming where it tried when it cannot connect,
// (err::kDatabase) with the server's message when a statement fails. Not thread-safe.
class ScriptConnection {
  public:
    explicit ScriptConnection(const ado::ConnectionString& cs);
    ~ScriptConnection();
    ScriptConnection(const ScriptConnection&) = delete;
    ScriptConnection& operator=(const ScriptConnection&) = delete;

    // Runs one or more statements of the server's own SQL.
    void exec(std::string_view sql);
    // The first column of the first row of a query, as text ("" when there is none).
    std::string scalar(std::string_view sql);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Whether a connection string selects a database that speaks PostgreSQL through ODBC.
bool postgresql_dialect(const ado::ConnectionString& cs);

// Connections waiting in the pool (tests, diagnostics).
std::size_t idle_connections();

}  // namespace billdata::drivers::odbc
