#include "billdata/common/handlers.h"

#include <algorithm>
#include <thread>

#include "billdata/ado/driver.h"
#include "billdata/util/text.h"

namespace billdata::common {

using ado::ComError;
using ado::ErrorClass;

std::chrono::milliseconds lock_timeout_of(std::string_view connection_string) {
    constexpr std::chrono::milliseconds fallback{60'000};
    try {
        auto cs = ado::ConnectionString::parse(connection_string);
        if (!cs.has("lock timeout")) return fallback;
        double seconds = ado::Variant(cs.get("lock timeout")).to_double();
        if (seconds < 0) return fallback;
        return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
    } catch (const ComError&) {
        // A bad string fails where the connection is opened, with its own message.
        return fallback;
    }
}

bool is_interior_id_duplicate(const ComError& e) {
    if (e.error_class() != ErrorClass::DuplicateKey) return false;
    const std::string& key = e.violated_key();
    auto dot = key.find('.');
    std::string_view columns =
        dot == std::string::npos ? std::string_view(key) : std::string_view(key).substr(dot + 1);
    while (!columns.empty()) {
        auto comma = columns.find(',');
        std::string_view col = columns.substr(0, comma);
        if (util::iequals(util::trim(col), "FInterID")) return true;
        if (comma == std::string_view::npos) break;
        columns.remove_prefix(comma + 1);
    }
    return false;
}

void raise_as(Handler handler, const ComError& e) {
    if (handler == Handler::None || e.number() == ado::err::kComponent) throw e;
    ComError raised = ComError::component(e.description());
    if (!e.cleanup_failure().empty()) raised.attach_cleanup_failure(e.cleanup_failure());
    throw raised;
}

void sleep_backoff(int attempt) {
    // 5 ms doubling to a ceiling of 250 ms: short waits while a till commits, no busy spinning
    // while a long report holds the lock.
    int ms = 5 << std::min(attempt, 6);
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(ms, 250)));
}

namespace {

// Every operation makes an executor with the session's connection string: parsed once per
// thread while the string stays the same.
std::chrono::milliseconds lock_timeout_cached(const std::string& connection_string) {
    thread_local std::string last_string;
    thread_local std::chrono::milliseconds last_timeout{-1};
    if (last_timeout.count() < 0 || last_string != connection_string) {
        last_timeout = lock_timeout_of(connection_string);
        last_string = connection_string;
    }
    return last_timeout;
}

// The buffers of built statements, kept from one operation to the next of the thread so that
// a till's sales find them grown to their statements' size.
thread_local std::vector<std::unique_ptr<ado::Statement>> spare_statements;

}  // namespace

Executor::Executor(std::shared_ptr<ado::Connection> connection, Handler handler)
    : connection_(std::move(connection)),
      handler_(handler),
      lock_timeout_(lock_timeout_cached(connection_->ConnectionString())) {
    if (spare_statements.empty()) {
        statement_ = std::make_unique<ado::Statement>();
    } else {
        statement_ = std::move(spare_statements.back());
        spare_statements.pop_back();
    }
}

Executor::~Executor() {
    // Operations nest a few deep at most; beyond that the buffers are let go.
    if (statement_ && spare_statements.size() < 4)
        spare_statements.push_back(std::move(statement_));
}

template <class Fn>
auto Executor::run(Fn&& fn) -> decltype(fn()) {
    switch (handler_) {
        case Handler::None:
            return fn();
        case Handler::Common:
            return retry_on_lock(lock_timeout_, connection_->InTransaction(), fn);
        case Handler::DuplicateKey:
            for (;;) {
                try {
                    return fn();
                } catch (const ComError& e) {
                    if (!fresh_id_ || !is_interior_id_duplicate(e)) throw;
                    if (connection_->InTransaction() && !e.transaction_open()) throw;
                    fresh_id_();
                }
            }
    }
    return fn();
}

long Executor::execute(const std::function<std::string()>& build) {
    return run([&] {
        long affected = 0;
        connection_->Execute(build(), &affected, ado::adExecuteNoRecords);
        return affected;
    });
}

long Executor::execute(util::FunctionRef<void(ado::Statement&)> build) {
    return run([&] {
        long affected = 0;
        build(*statement_);
        connection_->Execute(*statement_, &affected, ado::adExecuteNoRecords);
        return affected;
    });
}

long Executor::execute(std::string_view sql) {
    return run([&] {
        long affected = 0;
        connection_->Execute(sql, &affected, ado::adExecuteNoRecords);
        return affected;
    });
}

std::shared_ptr<ado::Recordset> Executor::query(util::FunctionRef<void(ado::Statement&)> build) {
    return run([&] {
        build(*statement_);
        return connection_->Execute(*statement_);
    });
}

std::shared_ptr<ado::Recordset> Executor::query(std::string_view sql) {
    return run([&] { return connection_->Execute(sql); });
}

void Executor::begin() {
    run([&] { return connection_->BeginTrans(); });
}

void Executor::commit() {
    run([&] {
        connection_->CommitTrans();
        return 0;
    });
}

void Executor::rollback() {
    connection_->RollbackTrans();
}

std::shared_ptr<ado::Recordset> open_recordset(std::string_view sql,
                                               std::string_view connection_string,
                                               Handler handler) {
    auto open = [&] {
        auto rs = ado::Recordset::create();
        rs->Open(sql, connection_string, ado::adOpenUnspecified, ado::adLockUnspecified,
                 ado::adCmdText);
        return rs;
    };
    if (handler != Handler::Common) return open();
    return retry_on_lock(lock_timeout_of(connection_string), false, open);
}

}  // namespace billdata::common
