#pragma once
// The interface between the data-access objects and a database engine. Only billdata/ado and
// the drivers include this; service classes never do.

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/ado/statement.h"
#include "billdata/ado/variant.h"

namespace billdata::ado {

// The command timeout of a connection unless its string or its caller says otherwise, in
// seconds: the platform's default.
inline constexpr long kDefaultCommandTimeout = 30;

// An ADO-style connection string: `keyword=value;…`, keywords case-insensitive, a value may be
// enclosed in "…" or '…' when it holds ';'. A bare path ending in ".db" means
// `Provider=SQLite;Data Source=<path>`; a `postgresql://…` (or `postgres://…`) URI means
// `Provider=PostgreSQL` with the URI as keyword "uri", read by that driver. Parsing raises ComError
// (err::kConnection) for malformed text; each driver refuses keywords it does not know
// (require_known).
class ConnectionString {
  public:
    static ConnectionString parse(std::string_view text);

    const std::string& text() const { return text_; }
    // Value of a keyword (case-insensitive), or `fallback` when absent.
    std::string get(std::string_view keyword, std::string_view fallback = {}) const;
    bool has(std::string_view keyword) const;
    // Raises ComError naming the first keyword that is not in `known` (lower-case names) nor
    // one that the data layer reads for every engine ("command timeout").
    void require_known(const std::vector<std::string>& known) const;
    // "Command Timeout=<s>": a whole number of seconds, 0 for no limit; kDefaultCommandTimeout
    // when absent. ComError (err::kConnection) naming a value that is not such a number.
    long command_timeout() const;
    const std::map<std::string, std::string>& items() const { return items_; }  // lower-case keys

  private:
    std::string text_;
    std::map<std::string, std::string> items_;
};

namespace driver {

struct ColumnInfo {
    std::string name;
    VarType type = VarType::Empty;  // declared type when known (Date for date columns), else Empty
};

// A live result: rows are produced one at a time, never all held in memory.
class Cursor {
  public:
    virtual ~Cursor() = default;
    virtual const std::vector<ColumnInfo>& columns() const = 0;
    // Reads the next row into `row` (resized to columns().size()); false at the end. Waiting for
    // the row is bounded by the timeout of the statement that made the cursor (timeout_error);
    // the time the caller takes between rows does not count.
    virtual bool next(std::vector<Variant>& row) = 0;
};

struct ExecOptions {
    bool read_only = false;  // a statement that would write is refused (list operations)
    // The command timeout in seconds, 0 for no limit. It bounds each wait of the caller: for a
    // statement's result (its first row, or its completion), then for each next row of its
    // cursor, and for a procedure call as a whole. A statement that outlives it is stopped and
    // raises timeout_error(): reset, holding no lock, its connection usable; a write stopped
    // inside a transaction may cost the transaction (the error says whether it is still open).
    long timeout_seconds = 0;
};

// The error of a statement stopped by its command timeout: err::kTimeout with the platform's
// description "查询超时已过期", class ErrorClass::Timeout, the engine's native code and whether
// the transaction on the connection is still open.
ComError timeout_error(int native_code, bool transaction_open);

// The refusal of a statement that would write, run where only reading is allowed (the list
// operations' record sets): err::kDatabase, the same text on every engine.
ComError read_only_refusal();

// A statement the translator refuses: err::kDatabase with the translator's words. A refusal the
// server would raise too (a column neither grouped nor aggregated) carries the server's error
// number as its native code, as the same statement on the server would.
ComError translation_refusal(const char* what, int server_number, bool in_transaction);

// One argument of a stored-procedure call. `direction` uses the ADO values (1 in, 2 out,
// 3 in/out, 4 return value); output values are written back into `value`.
struct ProcArg {
    std::string name;  // with the leading '@'
    VarType type = VarType::Empty;
    int direction = 1;
    Variant value;
};

// One physical connection to a database. Not thread-safe: one thread uses a session at a time.
// Errors are raised as ComError, classified (ComError::error_class) from the engine's native
// code, with the violated key and whether the transaction is still open.
class Session {
  public:
    virtual ~Session() = default;
    virtual std::string_view engine() const = 0;  // "sqlite", "sqlserver", "postgresql"

    // Runs exactly one T-SQL statement (a second statement in the text is refused before
    // anything runs). Returns a cursor when the statement yields rows, else nullptr;
    // `affected` (if given) receives the number of rows changed, -1 for a query.
    virtual std::unique_ptr<Cursor> execute(std::string_view tsql, const ExecOptions& options,
                                            long* affected) = 0;
    // The same for a built statement. A driver whose statement cache can take the statement's
    // own account of its literals overrides this; by default its text runs as any other.
    virtual std::unique_ptr<Cursor> execute_statement(const Statement& statement,
                                                      const ExecOptions& options, long* affected) {
        return execute(statement.text(), options, affected);
    }

    // BEGIN (on SQLite: BEGIN IMMEDIATE, so the write lock is taken at once), COMMIT, ROLLBACK.
    virtual void begin() = 0;
    virtual void commit() = 0;
    virtual void rollback() = 0;
    virtual bool in_transaction() const = 0;

    // Calls a stored procedure by name (case-insensitive); output arguments are written back.
    // Returns its rows if it yields any, else nullptr. options.timeout_seconds bounds the call.
    virtual std::unique_ptr<Cursor> call(std::string_view procedure, std::vector<ProcArg>& args,
                                         const ExecOptions& options) = 0;

    // The caller is done with the connection: what the session still owes the database (on
    // SQLite, the sync of work committed in autocommit) is done now, and raises if it fails,
    // so that the failure reaches the caller instead of being lost when the session goes.
    // Record sets still open on the session may go on reading.
    virtual void close() {}
};

class Driver {
  public:
    virtual ~Driver() = default;
    virtual std::string name() const = 0;
    // The version of the engine this driver reaches, as its library reports it ("SQLite 3.40.1"),
    // or "" when the engine has no library of its own in this process.
    virtual std::string engine_version() const { return {}; }
    // True when this driver serves the connection string (by its Provider, Driver or path).
    virtual bool accepts(const ConnectionString& cs) const = 0;
    // Opens a physical connection; raises ComError (err::kConnection) when it cannot.
    virtual std::shared_ptr<Session> open(const ConnectionString& cs) = 0;
};

// Drivers are registered explicitly (a self-registering object in a static library would be
// dropped by the linker). register_builtin_drivers() is idempotent and is called by the
// registry itself before the first lookup.
void register_driver(std::shared_ptr<Driver> driver);
void register_builtin_drivers();
// Every registered driver (the built-in ones included), in the order of registration.
std::vector<std::shared_ptr<Driver>> registered_drivers();
// The driver for a connection string; raises ComError naming the provider when none serves it.
std::shared_ptr<Driver> find_driver(const ConnectionString& cs);

}  // namespace driver
}  // namespace billdata::ado
