#pragma once
// The error handlers of the operations and the statement runner that applies them.
//
// Every public operation has exactly one handler:
//  - None: an error reaches the caller as it is, with its own number and description;
//  - Common: an error of the lock class is cleared and the failing statement runs again (with
//    backoff, up to the connection's lock timeout); any other error is raised as the component
//    error 0x800403E9 with its own description;
//  - DuplicateKey: a duplicate on the bill's interior id draws a fresh interior id and runs the
//    failing statement again, built anew with that id; any other error (locks included) is
//    raised as 0x800403E9.
// Errors are told apart by the class the driver gives them, never by their text. A statement
// stopped by its command timeout (ErrorClass::Timeout) shares the lock error's number but is no
// lock: it is never retried, and reaches the caller as any other error does.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "billdata/ado/ado.h"
#include "billdata/ado/statement.h"
#include "billdata/util/function_ref.h"

namespace billdata::common {

enum class Handler { None, Common, DuplicateKey };

// The lock timeout of a connection string ("Lock Timeout=<s>", default 60 s).
std::chrono::milliseconds lock_timeout_of(std::string_view connection_string);

// True when a duplicate-key error violated a key that holds the interior id (FInterID).
bool is_interior_id_duplicate(const ado::ComError& e);

// Raises `e` as the handler says (never returns).
[[noreturn]] void raise_as(Handler handler, const ado::ComError& e);

// Runs the body of an operation under its handler: with Common and DuplicateKey, a ComError
// that is not already the component's error is raised again as 0x800403E9 with its own
// description; with None errors pass unchanged.
template <class Fn>
decltype(auto) guarded(Handler handler, Fn&& fn) {
    if (handler == Handler::None) return fn();
    try {
        return fn();
    } catch (const ado::ComError& e) {
        raise_as(handler, e);
    }
}

// Retries `fn` while it fails with a lock-class error, with backoff, until `timeout` has passed;
// then the lock error is raised. Any other error passes unchanged. When the engine rolled back a
// transaction that was open (a deadlock victim) the error is raised at once: the work must never
// go on in autocommit.
template <class Fn>
decltype(auto) retry_on_lock(std::chrono::milliseconds timeout, bool in_transaction, Fn&& fn);

// Runs the statements of one operation on one connection under the operation's handler.
// Not thread-safe; lives as long as the operation.
class Executor {
  public:
    Executor(std::shared_ptr<ado::Connection> connection, Handler handler);
    ~Executor();
    Executor(Executor&&) = default;

    const std::shared_ptr<ado::Connection>& connection() const { return connection_; }
    Handler handler() const { return handler_; }

    // The DuplicateKey handler's way to draw a fresh interior id (it also updates whatever the
    // statement builders read).
    void on_duplicate_interior_id(std::function<void()> draw_fresh_id) {
        fresh_id_ = std::move(draw_fresh_id);
    }

    // Runs one statement built by `build`; after a retry the text is built again, so a fresh
    // interior id reaches it. Returns the records affected.
    long execute(const std::function<std::string()>& build);
    long execute(std::string_view sql);
    // The same for a statement that `build` makes from its skeleton into the executor's reused
    // statement (built again after a retry).
    long execute(util::FunctionRef<void(ado::Statement&)> build);
    // Runs a query on the connection and returns its forward-only record set.
    std::shared_ptr<ado::Recordset> query(std::string_view sql);
    std::shared_ptr<ado::Recordset> query(util::FunctionRef<void(ado::Statement&)> build);

    // Begin/commit/rollback on the connection, under the same lock policy.
    void begin();
    void commit();
    void rollback();

  private:
    template <class Fn>
    auto run(Fn&& fn) -> decltype(fn());

    std::shared_ptr<ado::Connection> connection_;
    Handler handler_;
    std::chrono::milliseconds lock_timeout_;
    std::function<void()> fresh_id_;
    std::unique_ptr<ado::Statement> statement_;  // the thread's spare buffers while it lives
};

// Opens a forward-only record set on a statement through a private connection of the connection
// string, with the Common handler's lock retry. Errors other than locks pass unchanged.
std::shared_ptr<ado::Recordset> open_recordset(std::string_view sql,
                                               std::string_view connection_string, Handler handler);

// --- implementation of the template ---

void sleep_backoff(int attempt);

template <class Fn>
decltype(auto) retry_on_lock(std::chrono::milliseconds timeout, bool in_transaction, Fn&& fn) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (int attempt = 0;; ++attempt) {
        try {
            return fn();
        } catch (const ado::ComError& e) {
            if (e.error_class() != ado::ErrorClass::Lock) throw;
            if (in_transaction && !e.transaction_open()) throw;
            if (std::chrono::steady_clock::now() >= deadline) throw;
            sleep_backoff(attempt);
        }
    }
}

}  // namespace billdata::common
