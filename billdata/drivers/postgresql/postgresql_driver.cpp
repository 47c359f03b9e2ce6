#include "billdata/drivers/postgresql/postgresql_driver.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/connection_options.h"
#include "billdata/drivers/idle_pool.h"
#include "billdata/drivers/postgresql/catalog.h"
#include "billdata/drivers/postgresql/server_error.h"
#include "billdata/drivers/shape_binding.h"
#include "billdata/util/text.h"

namespace billdata::drivers::postgresql {

namespace {

using ado::ComError;
using ado::Variant;
using ado::VarType;
using ado::driver::ColumnInfo;
namespace err = ado::err;
using Clock = std::chrono::steady_clock;

// Type oids of the server's built-in types that the rows carry.
constexpr Oid kBool = 16, kInt8 = 20, kInt2 = 21, kInt4 = 23, kOid = 26, kFloat4 = 700,
              kFloat8 = 701, kNumeric = 1700, kDate = 1082, kTimestamp = 1114, kTimestampTz = 1184;

ComError bad_option(const std::string& why) {
    return ComError(err::kConnection, why);
}

// ---- options ------------------------------------------------------------------------------

struct Options {
    std::vector<std::pair<std::string, std::string>> params;  // libpq keywords and values
    std::string where;                                        // "host h port p" for messages
    std::string key;                                          // pool key
    int busy_ms = kDefaultBusyTimeoutMs;
    bool pooling = true, cache = true;
};

Options parse_options(const ado::ConnectionString& cs) {
    Options o;
    const bool uri = cs.has("uri");
    if (!uri)
        cs.require_known({"provider", "host", "port", "database", "user id", "password",
                          "connect timeout", "busy timeout", "lock timeout", "pooling",
                          "statement cache"});
    const int connect_s =
        whole_option(cs, "connect timeout", kDefaultConnectTimeoutSeconds, "seconds");
    o.busy_ms = whole_option(cs, "busy timeout", kDefaultBusyTimeoutMs, "milliseconds");
    check_lock_timeout(cs);
    o.pooling = switch_option(cs, "pooling");
    o.cache = switch_option(cs, "statement cache");

    o.params.emplace_back("connect_timeout", std::to_string(connect_s));
    o.params.emplace_back("client_encoding", "UTF8");
    o.params.emplace_back("application_name", "billdata");
    // Dates are written and read as ISO text, year first; a lock wait ends as a lock error
    // that the service layer retries, as the embedded engine's busy timeout does.
    std::string server_options =
        "-c DateStyle=ISO,YMD -c lock_timeout=" + std::to_string(o.busy_ms) +
        " -c standard_conforming_strings=on";
    const std::string zone = local_time_zone();
    if (!zone.empty() && zone.find_first_of(" \\'") == std::string::npos)
        server_options += " -c TimeZone=" + zone;
    o.params.emplace_back("options", server_options);
    if (uri) {
        o.params.emplace_back("dbname", cs.get("uri"));  // expanded by libpq
        o.where = "the server of " + util::excerpt(cs.get("uri"));
    } else {
        static const std::pair<const char*, const char*> kKeys[] = {{"host", "host"},
                                                                    {"port", "port"},
                                                                    {"database", "dbname"},
                                                                    {"user id", "user"},
                                                                    {"password", "password"}};
        for (const auto& [ours, theirs] : kKeys)
            if (cs.has(ours)) o.params.emplace_back(theirs, cs.get(ours));
        o.where = "host '" + util::excerpt(cs.get("host", "localhost")) + "' port " +
                  util::excerpt(cs.get("port", "5432"));
    }
    for (const auto& [k, v] : o.params)
        o.key += k + '\x1f' + v + '\x1e';
    return o;
}

// Opens a physical connection; raises ComError (err::kConnection) naming where it tried.
PGconn* connect(const Options& o) {
    std::vector<const char*> keys, values;
    for (const auto& [k, v] : o.params) {
        keys.push_back(k.c_str());
        values.push_back(v.c_str());
    }
    keys.push_back(nullptr);
    values.push_back(nullptr);
    PGconn* conn = PQconnectdbParams(keys.data(), values.data(), 1);
    if (!conn) throw bad_option("cannot connect to " + o.where + ": out of memory");
    if (PQstatus(conn) != CONNECTION_OK) {
        std::string message = PQerrorMessage(conn);
        PQfinish(conn);
        while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
            message.pop_back();
        throw bad_option("cannot connect to the database server at " + o.where + ": " + message);
    }
    // The server's notices ("… already exists, skipping") are not the caller's output: libpq
    // would print them on the process's standard error.
    PQsetNoticeProcessor(
        conn, [](void*, const char*) {}, nullptr);
    return conn;
}

CatalogCache& catalog_cache() {
    static CatalogCache c;
    return c;
}

// ---- physical connections -----------------------------------------------------------------

// One statement shape prepared on the server.
struct Prepared {
    std::string name;  // of the server's prepared statement
    std::string sql;
    ShapeBinding binding;
    bool writes = false;
    bool counter = false;    // reads a counter table
    bool locks = false;      // a counter read inside a transaction
    bool on_server = false;  // prepared on this connection already
};
using PreparedPtr = std::shared_ptr<Prepared>;

constexpr std::size_t kMaxCachedShapes = 512;
constexpr std::size_t kMaxVariantsPerShape = 8;
constexpr std::size_t kMaxIdlePerDatabase = 16;
constexpr int kVictimRetries = 5;

struct Handle {
    PGconn* conn = nullptr;
    std::string key;
    std::shared_ptr<const dialect::Catalog> catalog;
    std::unordered_map<std::string, std::vector<PreparedPtr>> cache;
    std::map<std::string, std::string> key_columns;  // unique index → "Table.Col1,Col2"
    int next_name = 0;
    bool broken = false;
    ~Handle() { PQfinish(conn); }
};

// Whether a connection that waited in the pool still reaches its server. An idle connection
// gets nothing from the server unless it is going away (a restart, a shutdown, a terminated
// session send their last word and close the socket), so anything to read means it is gone;
// this shows without a round trip.
bool still_connected(PGconn* conn) {
    if (PQstatus(conn) != CONNECTION_OK) return false;
    pollfd p{PQsocket(conn), POLLIN, 0};
    return poll(&p, 1, 0) == 0;
}

IdlePool<Handle>& pool() {
    static IdlePool<Handle> p(kMaxIdlePerDatabase);
    return p;
}

// Back in the pool only a handle that is whole, connected and outside any transaction.
void give_back(std::unique_ptr<Handle> h) {
    if (h->broken || PQstatus(h->conn) != CONNECTION_OK ||
        PQtransactionStatus(h->conn) != PQTRANS_IDLE)
        return;
    pool().give_back(std::move(h));
}

// ---- results ------------------------------------------------------------------------------

struct Result {
    PGresult* r = nullptr;
    explicit Result(PGresult* p = nullptr) : r(p) {}
    ~Result() { PQclear(r); }
    Result(Result&& o) noexcept : r(o.r) { o.r = nullptr; }
    Result& operator=(Result&& o) noexcept {
        std::swap(r, o.r);
        return *this;
    }
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;
    ExecStatusType status() const { return PQresultStatus(r); }
    explicit operator bool() const { return r != nullptr; }
};

VarType column_type(Oid type) {
    switch (type) {
        case kBool:
        case kInt2:
        case kInt4:
        case kInt8:
        case kOid:
            return VarType::Long;
        case kFloat4:
        case kFloat8:
        case kNumeric:
            return VarType::Double;
        case kDate:
        case kTimestamp:
        case kTimestampTz:
            return VarType::Date;
        default:
            return VarType::String;
    }
}

void read_value(const PGresult* r, int row, int col, Oid type, Variant& out) {
    if (PQgetisnull(r, row, col)) {
        out = Variant::null();
        return;
    }
    const char* p = PQgetvalue(r, row, col);
    const std::string_view text(p, static_cast<std::size_t>(PQgetlength(r, row, col)));
    switch (type) {
        case kBool:
            out = Variant(static_cast<std::int64_t>(text == "t" ? 1 : 0));
            return;
        case kInt2:
        case kInt4:
        case kInt8:
        case kOid: {
            std::int64_t v = 0;
            if (std::from_chars(text.data(), text.data() + text.size(), v).ec == std::errc()) {
                out = Variant(v);
                return;
            }
            break;
        }
        case kFloat4:
        case kFloat8:
        case kNumeric: {
            double v = 0;
            if (std::from_chars(text.data(), text.data() + text.size(), v).ec == std::errc()) {
                out = Variant(v);
                return;
            }
            break;
        }
        case kDate:
        case kTimestamp:
            if (auto d = ado::DateTime::parse(text)) {
                out = Variant(*d);
                return;
            }
            break;
        default:
            break;
    }
    out.assign_text(text);
}

// What the server said about a failed statement, kept until the round trip is over: the
// violated key is looked up only then.
struct Failure {
    std::string state, message, constraint;
    bool lost = false;  // the connection is gone
};

Failure failure_of(PGconn* conn, const PGresult* r) {
    Failure f;
    const char* state = r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr;
    const char* primary = r ? PQresultErrorField(r, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
    const char* constraint = r ? PQresultErrorField(r, PG_DIAG_CONSTRAINT_NAME) : nullptr;
    f.state = state ? state : "08006";
    f.message = primary ? primary : r ? PQresultErrorMessage(r) : PQerrorMessage(conn);
    while (!f.message.empty() && (f.message.back() == '\n' || f.message.back() == ' '))
        f.message.pop_back();
    if (constraint) f.constraint = constraint;
    f.lost = connection_lost(f.state) || PQstatus(conn) != CONNECTION_OK;
    return f;
}

class PgSession;

// A live result in single-row mode: the server sends the rows as the caller reads them.
class PgCursor final : public ado::driver::Cursor {
  public:
    PgCursor(PgSession* session, Result first, long timeout_seconds);
    ~PgCursor() override;
    const std::vector<ColumnInfo>& columns() const override { return columns_; }
    bool next(std::vector<Variant>& row) override;
    // Reads the rest into memory, so that the connection can run another statement.
    void drain();

  private:
    void take(const Result& r, std::vector<Variant>& row) const;
    // The server has sent the whole result (or failed: `failed`): the rest of the round trip.
    void end_stream(const Result* failed);
    PgSession* session_;
    std::vector<ColumnInfo> columns_;
    std::vector<Oid> types_;
    long timeout_;
    Result pending_;         // a row not handed out yet
    bool streaming_ = true;  // the server is still sending this result
    std::deque<std::vector<Variant>> buffer_;
};

// What one round trip sends: the statement, with a savepoint around it inside a transaction
// and, for a counter read there, the lock of its key before it.
struct Request {
    const std::string* sql = nullptr;  // text, when not prepared
    Prepared* prepared = nullptr;      // the shape's prepared statement
    std::vector<std::string> values;   // parameters as text
    std::vector<bool> nulls;           // parameters sent as NULL (empty: none)
    std::string lock_key;              // counter read: the advisory lock's key text
};

class PgSession final : public ado::driver::Session {
  public:
    PgSession(std::unique_ptr<Handle> handle, bool cache, bool pooled)
        : h_(std::move(handle)), conn_(h_->conn), use_cache_(cache), pooled_(pooled) {}
    ~PgSession() override {
        try {
            finish_cursor();
        } catch (const ComError&) {
            h_->broken = true;
        }
        if (cursor_) h_->broken = true;  // a round trip left unfinished
        if (pooled_) give_back(std::move(h_));
    }

    std::string_view engine() const override { return "postgresql"; }

    std::unique_ptr<ado::driver::Cursor> execute(std::string_view tsql,
                                                 const ado::driver::ExecOptions& options,
                                                 long* affected) override;
    void begin() override {
        if (in_transaction()) throw ComError(err::kDatabase, "a transaction is already open");
        finish_cursor();
        // Sent with the first statement of the transaction: one round trip less per save.
        pending_begin_ = true;
    }
    void commit() override {
        finish_cursor();
        if (pending_begin_) {
            pending_begin_ = false;
            return;
        }
        if (PQtransactionStatus(conn_) == PQTRANS_IDLE)
            throw ComError(err::kDatabase,
                           "the transaction is no longer open: the server ended it");
        control("COMMIT");
    }
    void rollback() override {
        finish_cursor();
        if (pending_begin_) {
            pending_begin_ = false;
            return;
        }
        if (PQtransactionStatus(conn_) == PQTRANS_IDLE) return;
        control("ROLLBACK");
    }
    bool in_transaction() const override {
        return pending_begin_ || PQtransactionStatus(conn_) != PQTRANS_IDLE;
    }
    std::unique_ptr<ado::driver::Cursor> call(std::string_view procedure,
                                              std::vector<ado::driver::ProcArg>& args,
                                              const ado::driver::ExecOptions& options) override;

    // Waits for the next result, at most until the deadline; past it the statement is
    // cancelled and its error (57014) is the timeout.
    Result get_result();
    void arm(long seconds) {
        fired_ = false;
        deadline_ = seconds > 0
                        ? Clock::now() + std::chrono::seconds(std::min(seconds, 3153600000L))
                        : Clock::time_point::max();
    }
    void cursor_gone(PgCursor* c) {
        if (cursor_ == c) cursor_ = nullptr;
    }
    // After the statement's own results: the rest of the round trip, and the recovery of the
    // transaction when the statement failed.
    void finish_round(const Result* failure);
    ComError error_of(const Failure& f);

  private:
    void finish_cursor() {
        if (cursor_) cursor_->drain();
    }
    void control(const char* sql);
    void send(const Request& req, bool prepare);
    std::unique_ptr<ado::driver::Cursor> run(const Request& req, bool prepare, long timeout,
                                             long* affected);
    // run(), and outside a transaction once more when the server chose the statement as a
    // deadlock or serialization victim.
    std::unique_ptr<ado::driver::Cursor> run_alone(const Request& req, const Prepared* prepared,
                                                   long timeout, long* affected);
    PreparedPtr lookup(std::string_view tsql, const dialect::Shape& shape, bool in_tx);
    dialect::Translation translate(std::string_view tsql, bool parameterise);
    std::string violated_key(const std::string& index);
    [[noreturn]] void lost_connection();

    std::unique_ptr<Handle> h_;
    PGconn* conn_;
    bool use_cache_;
    bool pooled_;
    bool pending_begin_ = false;
    PgCursor* cursor_ = nullptr;
    // What the current round trip holds after the statement: the release of its savepoint.
    bool round_has_savepoint_ = false;
    bool round_open_ = false;
    Clock::time_point deadline_ = Clock::time_point::max();
    bool fired_ = false;
};

// ---- cursor -------------------------------------------------------------------------------

PgCursor::PgCursor(PgSession* session, Result first, long timeout_seconds)
    : session_(session), timeout_(timeout_seconds) {
    const int n = PQnfields(first.r);
    columns_.resize(static_cast<std::size_t>(n));
    types_.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        columns_[static_cast<std::size_t>(i)].name = PQfname(first.r, i);
        types_[static_cast<std::size_t>(i)] = PQftype(first.r, i);
        columns_[static_cast<std::size_t>(i)].type = column_type(PQftype(first.r, i));
    }
    if (first.status() == PGRES_SINGLE_TUPLE) {
        pending_ = std::move(first);
    } else {
        // No rows at all: the result is complete.
        end_stream(nullptr);
    }
}

PgCursor::~PgCursor() {
    // What nobody will read is read past: the round trip must end before the connection can
    // run anything else (cancelling instead could reach the connection's next statement).
    try {
        pending_ = Result();
        std::vector<Variant> row;
        while (streaming_ && session_ && next(row)) {
        }
    } catch (const ComError&) {
        // The error of a result nobody reads any more; the session has recovered from it.
    }
}

void PgCursor::end_stream(const Result* failed) {
    PgSession* s = session_;
    session_ = nullptr;
    streaming_ = false;
    if (!s) return;
    s->cursor_gone(this);
    s->finish_round(failed);
}

void PgCursor::take(const Result& r, std::vector<Variant>& row) const {
    row.resize(columns_.size());
    for (std::size_t i = 0; i < columns_.size(); ++i)
        read_value(r.r, 0, static_cast<int>(i), types_[i], row[i]);
}

bool PgCursor::next(std::vector<Variant>& row) {
    if (!buffer_.empty()) {
        row = std::move(buffer_.front());
        buffer_.pop_front();
        return true;
    }
    if (pending_) {
        take(pending_, row);
        pending_ = Result();
        return true;
    }
    if (!streaming_ || !session_) return false;
    session_->arm(timeout_);
    Result r;
    try {
        r = session_->get_result();
    } catch (...) {
        session_->cursor_gone(this);
        session_ = nullptr;
        streaming_ = false;
        throw;
    }
    if (r && r.status() == PGRES_SINGLE_TUPLE) {
        take(r, row);
        return true;
    }
    if (r && r.status() == PGRES_TUPLES_OK) {
        end_stream(nullptr);
        return false;
    }
    end_stream(&r);  // raises the error of the failed result
    return false;
}

void PgCursor::drain() {
    std::vector<Variant> row;
    std::deque<std::vector<Variant>> rest;
    if (pending_) {
        take(pending_, row);
        pending_ = Result();
        rest.push_back(std::move(row));
    }
    while (streaming_ && session_ && next(row))
        rest.push_back(std::move(row));
    for (auto& r : rest)
        buffer_.push_back(std::move(r));
}

// ---- session ------------------------------------------------------------------------------

void PgSession::lost_connection() {
    h_->broken = true;
    round_open_ = false;
    std::string message = PQerrorMessage(conn_);
    while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
        message.pop_back();
    throw server_error("08006", "the connection to the database server was lost: " + message,
                       false);
}

Result PgSession::get_result() {
    while (PQisBusy(conn_)) {
        int wait_ms = -1;
        if (deadline_ != Clock::time_point::max()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now())
                    .count();
            if (left <= 0) {
                // Past the command timeout: ask the server to stop the statement and wait for
                // its answer, which is the cancellation's error.
                if (PGcancel* cancel = PQgetCancel(conn_)) {
                    char buffer[256];
                    PQcancel(cancel, buffer, sizeof buffer);
                    PQfreeCancel(cancel);
                }
                fired_ = true;
                deadline_ = Clock::time_point::max();
                continue;
            }
            wait_ms = static_cast<int>(std::min<long long>(left, 60'000));
        }
        pollfd p{PQsocket(conn_), POLLIN, 0};
        const int rc = poll(&p, 1, wait_ms);
        if (rc < 0 && errno != EINTR) lost_connection();
        if (rc > 0 && !PQconsumeInput(conn_)) lost_connection();
    }
    Result r(PQgetResult(conn_));
    if (!r && PQstatus(conn_) != CONNECTION_OK) lost_connection();
    return r;
}

ComError PgSession::error_of(const Failure& f) {
    if (f.lost) h_->broken = true;
    if (fired_ && f.state == "57014") return ado::driver::timeout_error(57014, in_transaction());
    return server_error(f.state, f.message, !f.lost && in_transaction(),
                        f.state == "23505" && !f.lost ? violated_key(f.constraint) : std::string());
}

void PgSession::finish_round(const Result* failed) {
    // The rest of the round trip: the savepoint's release (or its abandonment after an error)
    // and the synchronisation point.
    std::optional<Failure> failure;
    if (failed) {
        failure = failure_of(conn_, failed->r);
        while (Result more = get_result()) {
        }
    }
    for (;;) {
        Result r = get_result();
        if (!r) continue;  // the end of one query's results
        if (r.status() == PGRES_PIPELINE_SYNC) break;
        if (r.status() == PGRES_FATAL_ERROR && !failure) failure = failure_of(conn_, r.r);
    }
    const bool had_savepoint = round_has_savepoint_;
    round_open_ = false;
    round_has_savepoint_ = false;
    if (!failure) return;
    if (PQtransactionStatus(conn_) == PQTRANS_INERROR) {
        // The server abandons a transaction at its first error. A deadlock or serialization
        // victim is gone for good; any other failed statement is undone alone, as SQL Server
        // does, and the transaction goes on.
        const bool keep = had_savepoint && !transaction_lost(failure->state);
        control(keep ? "ROLLBACK TO SAVEPOINT bd_statement; RELEASE SAVEPOINT bd_statement"
                     : "ROLLBACK");
    }
    throw error_of(*failure);
}

void PgSession::control(const char* sql) {
    // Several statements in one text: the simple protocol, which a pipeline does not take.
    PQexitPipelineMode(conn_);
    if (!PQsendQuery(conn_, sql)) lost_connection();
    arm(0);
    std::optional<Failure> failure;
    while (Result r = get_result()) {
        if (r.status() == PGRES_FATAL_ERROR && !failure) failure = failure_of(conn_, r.r);
    }
    if (!PQenterPipelineMode(conn_)) lost_connection();
    if (failure) throw error_of(*failure);
}

void PgSession::send(const Request& req, bool prepare) {
    auto ok = [&](int rc) {
        if (!rc) lost_connection();
    };
    const bool in_tx = in_transaction();
    if (pending_begin_) {
        ok(PQsendQueryParams(conn_, "BEGIN", 0, nullptr, nullptr, nullptr, nullptr, 0));
        pending_begin_ = false;
    }
    round_has_savepoint_ = in_tx;
    if (in_tx)
        ok(PQsendQueryParams(conn_, "SAVEPOINT bd_statement", 0, nullptr, nullptr, nullptr, nullptr,
                             0));
    if (!req.lock_key.empty()) {
        const char* key = req.lock_key.c_str();
        ok(PQsendQueryParams(conn_, "SELECT pg_advisory_xact_lock(hashtextextended($1, 0))", 1,
                             nullptr, &key, nullptr, nullptr, 0));
    }
    std::vector<const char*> values;
    values.reserve(req.values.size());
    for (std::size_t i = 0; i < req.values.size(); ++i)
        values.push_back(i < req.nulls.size() && req.nulls[i] ? nullptr : req.values[i].c_str());
    const int n = static_cast<int>(values.size());
    if (req.prepared) {
        if (prepare)
            ok(PQsendPrepare(conn_, req.prepared->name.c_str(), req.prepared->sql.c_str(), n,
                             nullptr));
        ok(PQsendQueryPrepared(conn_, req.prepared->name.c_str(), n, values.data(), nullptr,
                               nullptr, 0));
    } else {
        ok(PQsendQueryParams(conn_, req.sql->c_str(), n, nullptr, values.data(), nullptr, nullptr,
                             0));
    }
    if (in_tx)
        ok(PQsendQueryParams(conn_, "RELEASE SAVEPOINT bd_statement", 0, nullptr, nullptr, nullptr,
                             nullptr, 0));
    ok(PQpipelineSync(conn_));
    round_open_ = true;
}

std::unique_ptr<ado::driver::Cursor> PgSession::run(const Request& req, bool prepare, long timeout,
                                                    long* affected) {
    finish_cursor();
    arm(timeout);
    const bool had_begin = pending_begin_;
    send(req, prepare);
    // The results of what goes before the statement: BEGIN, SAVEPOINT, the lock, PREPARE.
    const int before = (had_begin ? 1 : 0) + (round_has_savepoint_ ? 1 : 0) +
                       (req.lock_key.empty() ? 0 : 1) + (req.prepared && prepare ? 1 : 0);
    for (int i = 0; i < before; ++i) {
        Result r = get_result();
        if (r.status() != PGRES_COMMAND_OK && r.status() != PGRES_TUPLES_OK) {
            if (req.prepared && prepare && i == before - 1) req.prepared->on_server = false;
            finish_round(&r);
        }
        while (Result more = get_result()) {
        }
    }
    if (req.prepared && prepare) req.prepared->on_server = true;
    PQsetSingleRowMode(conn_);
    Result r = get_result();
    switch (r.status()) {
        case PGRES_SINGLE_TUPLE:
        case PGRES_TUPLES_OK: {
            if (affected) *affected = -1;
            auto cursor = std::make_unique<PgCursor>(this, std::move(r), timeout);
            if (round_open_) cursor_ = cursor.get();
            return cursor;
        }
        case PGRES_COMMAND_OK: {
            if (affected) {
                const char* n = PQcmdTuples(r.r);
                *affected = n && *n ? std::atol(n) : 0;
            }
            while (Result more = get_result()) {
            }
            finish_round(nullptr);
            return nullptr;
        }
        default:
            finish_round(&r);
            return nullptr;
    }
}

std::unique_ptr<ado::driver::Cursor> PgSession::run_alone(const Request& req,
                                                          const Prepared* prepared, long timeout,
                                                          long* affected) {
    // A statement in autocommit is a transaction of its own: when the server ends it as a
    // deadlock or serialization victim, nothing but that statement was undone, so running it
    // again is safe — as the embedded engine waits out a busy database. Inside a transaction
    // the victim's whole transaction is gone and the error goes to the caller.
    const bool alone = !in_transaction();
    for (int attempt = 0;; ++attempt) {
        try {
            return run(req, prepared && !prepared->on_server, timeout, affected);
        } catch (const ComError& e) {
            if (!alone || attempt >= kVictimRetries || !transaction_lost(e.native_code())) throw;
            std::this_thread::sleep_for(std::chrono::milliseconds(5 << attempt));
        }
    }
}

dialect::Translation PgSession::translate(std::string_view tsql, bool parameterise) {
    try {
        dialect::TranslateOptions options;
        options.parameterise = parameterise;
        return dialect::translate_postgresql(tsql, *h_->catalog, options);
    } catch (const dialect::DialectError& e) {
        throw ado::driver::translation_refusal(e.what(), e.server_number(), in_transaction());
    }
}

PreparedPtr PgSession::lookup(std::string_view tsql, const dialect::Shape& shape, bool in_tx) {
    auto it = h_->cache.find(shape.key);
    if (it == h_->cache.end()) return nullptr;
    for (const PreparedPtr& c : it->second)
        if (!(c->counter && c->locks != in_tx) && c->binding.fits(tsql, shape)) return c;
    return nullptr;
}

std::unique_ptr<ado::driver::Cursor> PgSession::execute(std::string_view tsql,
                                                        const ado::driver::ExecOptions& options,
                                                        long* affected) {
    finish_cursor();
    const bool in_tx = in_transaction();
    if (use_cache_) {
        dialect::Shape shape;
        try {
            shape = dialect::statement_shape(tsql);
        } catch (const dialect::DialectError& e) {
            throw ComError(err::kDatabase, e.what());
        }
        PreparedPtr entry = lookup(tsql, shape, in_tx);
        if (!entry) {
            dialect::Translation tr = translate(tsql, true);
            if (options.read_only && tr.writes) throw ado::driver::read_only_refusal();
            entry = std::make_shared<Prepared>();
            entry->name = "bd" + std::to_string(++h_->next_name);
            entry->sql = std::move(tr.sql);
            entry->writes = tr.writes;
            entry->counter = is_counter_table(tr.lockable_table);
            entry->locks = in_tx && entry->counter;
            if (entry->locks) entry->sql += " FOR UPDATE";
            entry->binding = ShapeBinding::of(tsql, shape, tr.parameters);
            auto& cache = h_->cache;
            if (cache.size() >= kMaxCachedShapes) {
                // The server's statements go with the entries that named them.
                cache.clear();
                control("DEALLOCATE ALL");
            }
            auto& variants = cache[shape.key];
            if (variants.size() >= kMaxVariantsPerShape) variants.erase(variants.begin());
            variants.push_back(entry);
        }
        if (options.read_only && entry->writes) throw ado::driver::read_only_refusal();
        Request req;
        req.prepared = entry.get();
        req.values.reserve(entry->binding.bound.size());
        dialect::LiteralValue v;
        bool bindable = true;
        for (std::size_t index : entry->binding.bound) {
            const dialect::Literal& l = shape.literals[index];
            if (!dialect::literal_value(tsql.substr(l.offset, l.length), v)) {
                bindable = false;
                break;
            }
            req.values.push_back(dialect::literal_text(v));
        }
        if (bindable) {
            if (entry->locks) req.lock_key = std::string(tsql);
            return run_alone(req, entry.get(), options.timeout_seconds, affected);
        }
        // A literal the server reads its own way: the statement with its literals inline.
    }
    dialect::Translation tr = translate(tsql, false);
    if (options.read_only && tr.writes) throw ado::driver::read_only_refusal();
    if (in_tx && is_counter_table(tr.lockable_table)) tr.sql += " FOR UPDATE";
    Request req;
    req.sql = &tr.sql;
    if (in_tx && is_counter_table(tr.lockable_table)) req.lock_key = std::string(tsql);
    return run_alone(req, nullptr, options.timeout_seconds, affected);
}

std::string PgSession::violated_key(const std::string& index) {
    if (index.empty()) return {};
    auto known = h_->key_columns.find(index);
    if (known != h_->key_columns.end()) return known->second;
    // The unique index's table and columns from the server's catalogue, once per index.
    PQexitPipelineMode(conn_);
    std::string key;
    try {
        key = index_key(
            [this](const char* sql, const std::vector<std::string>& params) {
                std::vector<const char*> values;
                for (const std::string& p : params)
                    values.push_back(p.c_str());
                Result q(PQexecParams(conn_, sql, static_cast<int>(values.size()), nullptr,
                                      values.data(), nullptr, nullptr, 0));
                Rows rows;
                if (q.status() == PGRES_TUPLES_OK)
                    for (int i = 0; i < PQntuples(q.r); ++i)
                        rows.push_back({PQgetvalue(q.r, i, 0), PQgetvalue(q.r, i, 1)});
                return rows;
            },
            index, *h_->catalog);
    } catch (...) {
        PQenterPipelineMode(conn_);
        throw;
    }
    PQenterPipelineMode(conn_);
    h_->key_columns[index] = key;
    return key;
}

std::unique_ptr<ado::driver::Cursor> PgSession::call(std::string_view procedure,
                                                     std::vector<ado::driver::ProcArg>& args,
                                                     const ado::driver::ExecOptions& options) {
    for (char c : procedure)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
            throw ComError(err::kDatabase,
                           "could not find stored procedure '" + util::excerpt(procedure) + "'");
    std::string sql = "SELECT * FROM " + std::string(procedure) + "(";
    Request req;
    for (const auto& a : args) {
        if (a.direction != 1 && a.direction != 3) continue;
        const bool null = a.value.is_null() || a.value.is_empty();
        req.values.push_back(null ? std::string() : a.value.to_string());
        req.nulls.push_back(null);
        sql += (req.values.size() > 1 ? ", $" : "$") + std::to_string(req.values.size());
    }
    sql += ")";
    req.sql = &sql;
    auto cursor = run(req, false, options.timeout_seconds, nullptr);
    if (!cursor) return nullptr;
    std::vector<Variant> row;
    const bool has_row = cursor->next(row);
    const auto& columns = cursor->columns();
    for (auto& a : args) {
        if (a.direction == 1) continue;
        const std::string_view bare =
            !a.name.empty() && a.name[0] == '@' ? std::string_view(a.name).substr(1) : a.name;
        for (std::size_t i = 0; i < columns.size() && has_row; ++i)
            if (util::iequals(columns[i].name, bare)) a.value = row[i];
    }
    while (cursor->next(row)) {
    }
    return nullptr;
}

// ---- driver -------------------------------------------------------------------------------

class PgDriver final : public ado::driver::Driver {
  public:
    std::string name() const override { return "postgresql"; }
    std::string engine_version() const override {
        const int v = PQlibVersion();
        return "libpq " + std::to_string(v / 10000) + "." + std::to_string(v % 10000);
    }
    bool accepts(const ado::ConnectionString& cs) const override { return postgresql::accepts(cs); }

    std::shared_ptr<ado::driver::Session> open(const ado::ConnectionString& cs) override {
        const Options o = options_of(cs);
        const bool pooling = o.pooling && !switched_off("BILLDATA_POOLING");
        const bool cache = o.cache && !switched_off("BILLDATA_STATEMENT_CACHE");
        std::unique_ptr<Handle> handle =
            pooling ? pool().take(o.key, [](const Handle& h) { return still_connected(h.conn); })
                    : nullptr;
        if (handle && !handle->catalog->tables().empty())
            return std::make_shared<PgSession>(std::move(handle), cache, true);
        if (handle) {
            // It waited in the pool while the database had no schema: read the schema again.
            PQexitPipelineMode(handle->conn);
            handle->catalog.reset();
        } else {
            handle = std::make_unique<Handle>();
            handle->conn = connect(o);
            handle->key = o.key;
        }
        handle->catalog = catalog_cache().find(o.key);
        if (!handle->catalog) {
            try {
                handle->catalog =
                    std::make_shared<const dialect::Catalog>(read_catalog(handle->conn));
            } catch (const ComError& e) {
                throw bad_option("cannot read the schema at " + o.where + ": " + e.description());
            }
            catalog_cache().keep(o.key, handle->catalog);
        }
        if (!PQenterPipelineMode(handle->conn))
            throw bad_option("cannot use the connection to " + o.where + ": " +
                             PQerrorMessage(handle->conn));
        return std::make_shared<PgSession>(std::move(handle), cache, pooling);
    }

  private:
    static Options options_of(const ado::ConnectionString& cs) {
        thread_local std::vector<std::pair<std::string, Options>> recent;  // newest last
        for (auto it = recent.rbegin(); it != recent.rend(); ++it)
            if (it->first == cs.text()) return it->second;
        Options o = parse_options(cs);
        if (recent.size() >= 4) recent.erase(recent.begin());
        recent.emplace_back(cs.text(), o);
        return o;
    }
};

}  // namespace

bool accepts(const ado::ConnectionString& cs) {
    if (cs.has("uri")) return true;
    const std::string provider = util::lower_copy(cs.get("provider"));
    return provider == "postgresql" || provider == "postgres";
}

std::shared_ptr<ado::driver::Driver> make_driver() {
    return std::make_shared<PgDriver>();
}

std::size_t idle_connections() {
    return pool().idle_count();
}

ServerConnection::ServerConnection(const ado::ConnectionString& cs) {
    conn_ = connect(parse_options(cs));
}

ServerConnection::~ServerConnection() {
    PQfinish(conn_);
}

void ServerConnection::exec(std::string_view sql) {
    const std::string text(sql);
    if (!PQsendQuery(conn_, text.c_str())) throw ComError(err::kDatabase, PQerrorMessage(conn_));
    std::string error;
    while (PGresult* r = PQgetResult(conn_)) {
        if (PQresultStatus(r) == PGRES_FATAL_ERROR && error.empty()) {
            error = PQresultErrorMessage(r);
            while (!error.empty() && (error.back() == '\n' || error.back() == ' '))
                error.pop_back();
        }
        PQclear(r);
    }
    if (!error.empty()) throw ComError(err::kDatabase, error);
}

std::string ServerConnection::scalar(std::string_view sql) {
    const std::string text(sql);
    Result r(PQexec(conn_, text.c_str()));
    if (r.status() != PGRES_TUPLES_OK) {
        std::string error = PQresultErrorMessage(r.r);
        while (!error.empty() && (error.back() == '\n' || error.back() == ' '))
            error.pop_back();
        throw ComError(err::kDatabase, error);
    }
    return PQntuples(r.r) > 0 && !PQgetisnull(r.r, 0, 0) ? PQgetvalue(r.r, 0, 0) : "";
}

}  // namespace billdata::drivers::postgresql
