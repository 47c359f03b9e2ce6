#include "billdata/drivers/sqlite/sqlite_driver.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/shape_binding.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/drivers/sqlite/write_group.h"
#include "billdata/util/text.h"

namespace billdata::drivers::sqlite {

namespace {

using ado::ComError;
using ado::Variant;
using ado::VarType;
using ado::driver::ColumnInfo;
namespace err = ado::err;

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string upper(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return out;
}

// The engine keeps process-wide memory statistics by default, taking a global mutex at every
// allocation and release; nothing in the component reads them, and the price propagation's
// statements spent a third of their time on that mutex. Set as the library is loaded, before
// the engine starts; a process that started the engine earlier keeps its own setting (the call
// is refused then and changes nothing).
[[maybe_unused]] const int kNoMemoryStatistics = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);

// ---- procedures added at run time ---------------------------------------------------------

struct ProcedureTable {
    std::mutex mutex;
    std::map<std::string, ProcedureFn> by_name;  // lower-case name
};

ProcedureTable& procedure_table() {
    static ProcedureTable t;
    return t;
}

// `builtin` tells whether it is one of the driver's own procedures, which use only the handle
// they are given.
ProcedureFn lookup_procedure(std::string_view name, bool& builtin) {
    {
        ProcedureTable& t = procedure_table();
        std::lock_guard lock(t.mutex);
        auto it = t.by_name.find(lower(name));
        if (it != t.by_name.end()) {
            builtin = false;
            return it->second;
        }
    }
    builtin = true;
    return find_procedure(name);
}

// ---- catalogue cache ----------------------------------------------------------------------

// Reading the catalogue costs a pragma per table, and every operation opens a connection of its
// own, so catalogues are shared between connections. The key is the schema text itself: two
// files with the same schema share one catalogue, and a file whose schema changed (even one
// deleted and created again under the same name) never gets a stale one.
struct CatalogCache {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<const dialect::Catalog>> by_schema;
};

CatalogCache& catalog_cache() {
    static CatalogCache c;
    return c;
}

// ---- statements ---------------------------------------------------------------------------

struct StmtGuard {
    sqlite3_stmt* stmt = nullptr;
    ~StmtGuard() { sqlite3_finalize(stmt); }
};

VarType declared_type(const char* decl) {
    if (!decl) return VarType::Empty;
    std::string t = upper(decl);
    if (t.find("DATE") != std::string::npos) return VarType::Date;
    if (t.find("INT") != std::string::npos) return VarType::Long;
    for (const char* k : {"REAL", "FLOA", "DOUB", "NUM", "DEC"})
        if (t.find(k) != std::string::npos) return VarType::Double;
    for (const char* k : {"CHAR", "TEXT", "CLOB"})
        if (t.find(k) != std::string::npos) return VarType::String;
    return VarType::Empty;
}

std::string first_word(sqlite3_stmt* stmt) {
    std::string_view sql = sqlite3_sql(stmt);
    std::size_t i = 0;
    while (i < sql.size() && (sql[i] == ' ' || sql[i] == '\t' || sql[i] == '\r' || sql[i] == '\n'))
        ++i;
    std::size_t j = i;
    while (j < sql.size() && std::isalpha(static_cast<unsigned char>(sql[j])))
        ++j;
    return lower(sql.substr(i, j - i));
}

bool is_transaction_control(const std::string& word) {
    return word == "begin" || word == "commit" || word == "end" || word == "rollback" ||
           word == "savepoint" || word == "release";
}

// Statements that the engine refuses inside a transaction, or that change how the connection
// itself works: a write group is committed before them.
bool runs_outside_groups(const std::string& word) {
    return is_transaction_control(word) || word == "vacuum" || word == "attach" ||
           word == "detach" || word == "pragma";
}

std::string excerpt(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\n' || text.front() == '\t' ||
                             text.front() == '\r' || text.front() == ';'))
        text.remove_prefix(1);
    if (text.size() > 60) return std::string(text.substr(0, 60)) + "…";
    return std::string(text);
}

// ---- physical handles and their statement cache ------------------------------------------

// The kinds of literals, of a scanned shape or of a built statement.
bool is_number(const dialect::Literal& l) {
    return l.kind == dialect::Literal::Kind::Number;
}
bool is_number(const ado::StatementLiteral& l) {
    return l.kind == ado::StatementLiteral::Kind::Number;
}
// A whole number's value when the literal comes with it (a built statement's), else -1.
std::int64_t known_whole(const dialect::Literal&) {
    return -1;
}
std::int64_t known_whole(const ado::StatementLiteral& l) {
    return l.whole;
}
double known_real(const dialect::Literal&) {
    return -1;
}
double known_real(const ado::StatementLiteral& l) {
    return l.real;
}

// What stands between a text literal's quotes ('...' or N'...').
std::string_view text_body(std::string_view literal) {
    if (literal.front() != '\'') literal.remove_prefix(1);
    return literal.substr(1, literal.size() - 2);
}

// How many digits a number literal has after its point (none when it has an exponent, whose
// digits the caller reads its own way: it then takes more than any column keeps).
std::size_t decimals_of(std::string_view literal) {
    std::size_t decimals = 0;
    bool after_point = false;
    for (const char c : literal) {
        if (c == 'e' || c == 'E') return 99;
        decimals += after_point ? 1 : 0;
        after_point = after_point || c == '.';
    }
    return decimals;
}

// One prepared statement of the cache: the translation of a statement shape with its literals
// as parameters. `bound[k]` is the shape's literal bound to ?k+1; `kept` are the literals that
// the translation wrote inline, with the text they had, and a statement of the same shape uses
// this entry only when its own literals there are the same.
struct CachedStatement {
    sqlite3_stmt* stmt = nullptr;
    ShapeBinding binding;
    bool translation_writes = false;  // what the translator says: anything but a select
    bool writes = false;              // what the engine says, transaction control included
    bool outside_groups = false;      // a write group is committed before it (runs_outside_groups)
    std::vector<ColumnInfo> columns;  // empty when the statement yields no rows
    // Per parameter, what binding it takes: its literal, the decimal column type it is written
    // to (coded as dialect::Translation::parameter_scales, 0 for none) and, for such a type, the
    // magnitude below which a whole number fits it as it is.
    struct BindStep {
        std::size_t literal = 0;
        int scale = 0;
        std::int64_t whole_limit = 0;
        double real_limit = 0;  // the same for a decimal literal; 0 for money (its own range)
    };
    std::vector<BindStep> plan;
    void make_plan(const std::vector<int>& scales) {
        plan.clear();
        for (std::size_t k = 0; k < binding.bound.size(); ++k) {
            const int scale = k < scales.size() ? scales[k] : 0;
            const std::int64_t limit =
                scale != 0 ? decimal_whole_limit(scale) : std::numeric_limits<std::int64_t>::max();
            plan.push_back({binding.bound[k], scale, limit,
                            scale >= kMoneyTypeCode ? 0.0 : static_cast<double>(limit)});
        }
    }
    // How a built statement of this shape binds from its values, without its text, per
    // parameter as `plan`. Learnt from the first built statement; not when the translation
    // wrote a value inline.
    struct ValueStep {
        enum class From : std::uint8_t {
            FixedWhole,  // the skeleton's own whole number: `whole`
            Fixed,       // the skeleton's own literal: `fixed`, as written
            FixedText,   // the skeleton's own text: `fixed`, between its quotes
            Place,       // the value of the number's place `index`
            Lone,        // a text that is the value of place `index` alone
            Text,        // the skeleton's text literal `index`, with values inside
        };
        From from = From::Fixed;
        std::uint32_t index = 0;
        std::int64_t whole = -1;
        BindStep step;
        std::string fixed;
    };
    std::vector<ValueStep> value_plan;
    bool values_learnt = false;
    bool binds_values = false;
    void learn_values(const ado::Statement& built, std::string_view tsql) {
        using Origin = ado::Statement::Origin;
        values_learnt = true;
        const auto& origins = built.origins();
        const auto& literals = built.literals();
        if (origins.size() != binding.literal_count) return;
        for (const auto& kept : binding.kept)
            if (origins[kept.first].kind != Origin::Kind::Fixed) return;
        for (const BindStep& step : plan) {
            const ado::StatementLiteral& l = literals[step.literal];
            const Origin origin = origins[step.literal];
            ValueStep v;
            v.index = origin.index;
            v.step = step;
            if (origin.kind == Origin::Kind::Place) {
                v.from = ValueStep::From::Place;
            } else if (origin.kind == Origin::Kind::Text) {
                const std::int32_t lone = built.lone_place(origin.index);
                v.from = lone >= 0 ? ValueStep::From::Lone : ValueStep::From::Text;
                if (lone >= 0) v.index = static_cast<std::uint32_t>(lone);
            } else if (l.kind != ado::StatementLiteral::Kind::Number) {
                v.from = ValueStep::From::FixedText;
                v.fixed = std::string(text_body(tsql.substr(l.offset, l.length)));
            } else {
                v.from = l.whole >= 0 ? ValueStep::From::FixedWhole : ValueStep::From::Fixed;
                v.whole = l.whole;
                v.fixed = std::string(tsql.substr(l.offset, l.length));
            }
            value_plan.push_back(std::move(v));
        }
        binds_values = true;
    }
    bool busy = false;  // a cursor stands on it
    ~CachedStatement() { sqlite3_finalize(stmt); }
};
using CachedPtr = std::shared_ptr<CachedStatement>;

// Per handle; beyond this the cache starts afresh (a shop's statements have far fewer shapes).
constexpr std::size_t kMaxCachedShapes = 512;
constexpr std::size_t kMaxVariantsPerShape = 8;

// A physical connection with what belongs to it: its catalogue and its prepared statements. It
// outlives the Session that uses it when the pool takes it back.
struct Handle {
    sqlite3* db = nullptr;
    sqlite3_stmt* version_stmt = nullptr;
    int schema_version = -1;
    // The catalogue was last found current when the main database's data version (data_version)
    // was `verified_data_version`. That version moves with every commit, this connection's own
    // at once and another's when this connection next starts a transaction; while it has not
    // moved, nothing, the schema included, has changed.
    bool verified = false;
    unsigned verified_data_version = 0;
    std::shared_ptr<const dialect::Catalog> catalog;
    std::unordered_map<std::string, std::vector<CachedPtr>> cache;  // shape key → variants
    bool broken = false;  // an error that says the handle itself is not to be trusted
    // Synchronous=Full: the log is synced at every commit of a transaction and, for statements
    // run in autocommit, once when the connection is let go (see sync_log).
    bool sync_full = false;
    std::string pool_key;
    dev_t file_dev = 0;
    ino_t file_ino = 0;
    // The command timeout of what is running now (a step of a statement, or a procedure call),
    // read by the progress handler: the limit (0: none), the deadline, set at the handler's first
    // call, and whether the handler stopped the statement.
    struct Watch {
        std::int64_t limit_seconds = 0;
        bool started = false;
        bool fired = false;
        std::chrono::steady_clock::time_point deadline;

        void arm(long seconds) {
            // Beyond a century means no limit in practice, and keeps the deadline in range.
            limit_seconds = std::min<std::int64_t>(seconds, 100LL * 365 * 24 * 3600);
            started = false;
            fired = false;
        }
        void disarm() { limit_seconds = 0; }
    } watch;
    // Reused by every statement's shape scan, across the sessions that take the handle.
    dialect::Shape shape_buffer;
    // The write group of this handle; shared with the process's registry of open groups.
    std::shared_ptr<WriteGroup> group = std::make_shared<WriteGroup>();

    ~Handle() {
        {
            // The session committed its group before letting the handle go; closing rolls back
            // whatever is still open, so the registry must not keep it.
            std::lock_guard use(group->use);
            drop_group(*group);
            finalize_commands(*group);
            group->db = nullptr;
        }
        cache.clear();
        forget_procedure_statements(db);
        sqlite3_finalize(version_stmt);
        sqlite3_close_v2(db);  // an open transaction is rolled back
    }
};

// Durability of committed work. With synchronous=FULL the engine syncs the write-ahead log at
// every commit, and a statement run in autocommit is a commit of its own: the price propagation
// after a purchase receipt's save runs tens of thousands of them on one connection, and syncing
// each took far longer than the work itself. So a handle asked for Full runs the engine at
// NORMAL (which keeps the database consistent whatever happens, but may lose the last commits
// on a power cut) and syncs the log itself: after every COMMIT of a transaction, as the engine
// would, and once when a connection that wrote in autocommit is let go. Whatever an operation
// committed is on disk by the time the operation has released its connection, which is when
// its caller learns that it succeeded; a power cut during the operation leaves a prefix of its
// statements, as it would leave a prefix of them anyway.
int sync_log(sqlite3* db) {
    sqlite3_file* log = nullptr;
    int rc = sqlite3_file_control(db, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (rc != SQLITE_OK || !log || !log->pMethods) return SQLITE_OK;  // nothing written yet
    return log->pMethods->xSync(log, SQLITE_SYNC_NORMAL);
}

bool file_identity(const std::string& path, dev_t& dev, ino_t& ino) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    dev = st.st_dev;
    ino = st.st_ino;
    return true;
}

// How many virtual-machine steps the engine runs between calls of the progress handler. A
// statement that finishes in fewer (every statement of a till sale) never calls it, and a long
// one reads the clock once per this many steps: a few microseconds of work apart.
constexpr int kProgressSteps = 1000;

// The command timeout. The deadline is taken at the first call, a few microseconds into the
// step, so that the clock is read only by statements that run that long.
int on_progress(void* arg) {
    Handle::Watch& w = *static_cast<Handle::Watch*>(arg);
    if (w.limit_seconds <= 0) return 0;
    const auto now = std::chrono::steady_clock::now();
    if (!w.started) {
        w.started = true;
        w.deadline = now + std::chrono::seconds(w.limit_seconds);
        return 0;
    }
    if (now < w.deadline) return 0;
    w.fired = true;
    return 1;  // the statement stops with SQLITE_INTERRUPT
}

// Errors after which a handle is closed instead of going back to the pool.
bool breaks_handle(int rc) {
    switch (rc & 0xff) {
        case SQLITE_IOERR:
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_CANTOPEN:
        case SQLITE_NOMEM:
        case SQLITE_FULL:
        case SQLITE_PROTOCOL:
        case SQLITE_MISUSE:
            return true;
        default:
            return false;
    }
}

// Idle handles per connection (database file and options). Opening through the pool costs a
// stat of the file instead of an open, the pragmas, the runtime's registration and a catalogue
// read. A handle comes back only clean: no transaction, no statement running.
class HandlePool {
  public:
    static HandlePool& instance() {
        static HandlePool pool;
        return pool;
    }

    std::unique_ptr<Handle> take(const std::string& key, dev_t dev, ino_t ino) {
        std::vector<std::unique_ptr<Handle>> stale;  // closed outside the lock
        std::lock_guard lock(mutex_);
        auto it = idle_.find(key);
        if (it == idle_.end()) return nullptr;
        auto& list = it->second;
        while (!list.empty()) {
            std::unique_ptr<Handle> h = std::move(list.back());
            list.pop_back();
            --count_;
            // The same path may now name another file (removed and made again).
            if (h->file_dev == dev && h->file_ino == ino) return h;
            stale.push_back(std::move(h));
        }
        return nullptr;
    }

    void give_back(std::unique_ptr<Handle> h) {
        if (!clean(*h)) return;  // closed here
        std::lock_guard lock(mutex_);
        auto& list = idle_[h->pool_key];
        if (list.size() >= kMaxIdlePerKey || count_ >= kMaxIdle) return;
        list.push_back(std::move(h));
        ++count_;
    }

    std::size_t idle_count() {
        std::lock_guard lock(mutex_);
        return count_;
    }

  private:
    static constexpr std::size_t kMaxIdlePerKey = 8;
    static constexpr std::size_t kMaxIdle = 64;

    static bool clean(Handle& h) {
        if (h.broken) return false;
        if (!sqlite3_get_autocommit(h.db)) {
            sqlite3_exec(h.db, "ROLLBACK", nullptr, nullptr, nullptr);
            if (!sqlite3_get_autocommit(h.db)) return false;
        }
        for (sqlite3_stmt* st = sqlite3_next_stmt(h.db, nullptr); st;
             st = sqlite3_next_stmt(h.db, st))
            if (sqlite3_stmt_busy(st)) return false;
        return true;
    }

    std::mutex mutex_;
    std::unordered_map<std::string, std::vector<std::unique_ptr<Handle>>> idle_;
    std::size_t count_ = 0;
};

bool switched_off(const char* variable) {
    const char* v = std::getenv(variable);
    if (!v) return false;
    const std::string value = lower(v);
    return value == "off" || value == "0" || value == "false" || value == "no";
}

class SqliteSession;

// A live result over one prepared statement. The first row is stepped when the cursor is made,
// so that a failing query fails at Open/Execute as it does on a server.
class SqliteCursor final : public ado::driver::Cursor {
  public:
    // `columns`: those of the cache's statement, or of a statement run once (copied here).
    SqliteCursor(SqliteSession* session, sqlite3_stmt* stmt, CachedPtr cached,
                 const std::vector<ColumnInfo>& columns, long timeout_seconds)
        : session_(session),
          stmt_(stmt),
          cached_(std::move(cached)),
          columns_(cached_ ? Columns(cached_, &cached_->columns)
                           : std::make_shared<const std::vector<ColumnInfo>>(columns)),
          timeout_(timeout_seconds) {}
    ~SqliteCursor() override;

    const std::vector<ColumnInfo>& columns() const override { return *columns_; }
    bool next(std::vector<Variant>& row) override;

    void start();
    // Reads the rest of the result into memory and lets the statement go.
    void drain();
    // The session goes away first: let the statement go, yield nothing more.
    void detach();

  private:
    void read_row(std::vector<Variant>& row) const;
    [[noreturn]] void fail(int rc);
    void finish();

    SqliteSession* session_;
    sqlite3_stmt* stmt_;
    CachedPtr cached_;  // the cache's statement this cursor runs on, or null (finalised here)
    // The cache's statement's columns, kept as long as the cursor (finish lets the statement go),
    // else a copy.
    using Columns = std::shared_ptr<const std::vector<ColumnInfo>>;
    Columns columns_;
    long timeout_;           // bounds each step
    bool pending_ = false;   // the statement stands on a row not handed out yet
    bool buffered_ = false;  // drained: rows come from buffer_
    std::deque<std::vector<Variant>> buffer_;
};

class SqliteSession final : public ado::driver::Session {
  public:
    SqliteSession(std::unique_ptr<Handle> handle, bool cache, bool pooled,
                  std::chrono::milliseconds window)
        : handle_(std::move(handle)),
          db_(handle_->db),
          group_(*handle_->group),
          use_cache_(cache),
          pooled_(pooled),
          window_(window) {}
    ~SqliteSession() override {
        {
            std::lock_guard use(group_.use);
            for (SqliteCursor* c : std::vector<SqliteCursor*>(live_))
                c->detach();
            // close() commits the group, syncs what was committed outside transactions and
            // raises when it cannot; a session let go without it still does both, but a failure
            // here cannot be raised: the handle is not trusted again.
            if (group_.open && commit_carrying([&] { return commit_group(group_); }) != SQLITE_OK)
                handle_->broken = true;
            if (group_.failed != SQLITE_OK) handle_->broken = true;
            if (unsynced_ && sync_log(db_) != SQLITE_OK) handle_->broken = true;
        }
        if (pooled_) HandlePool::instance().give_back(std::move(handle_));
    }

    std::string_view engine() const override { return "sqlite"; }

    std::unique_ptr<ado::driver::Cursor> execute(std::string_view tsql,
                                                 const ado::driver::ExecOptions& options,
                                                 long* affected) override {
        return execute(tsql, nullptr, options, affected);
    }
    std::unique_ptr<ado::driver::Cursor> execute_statement(const ado::Statement& statement,
                                                           const ado::driver::ExecOptions& options,
                                                           long* affected) override {
        if (statement.key().empty()) return execute(statement.text(), nullptr, options, affected);
        return execute({}, &statement, options, affected);
    }
    void begin() override {
        auto use = enter();
        commit_own_group();
        schema_checked_ = false;
        run_control(TransactionCommand::Begin);
    }
    void commit() override {
        auto use = enter();
        schema_checked_ = false;
        run_control(TransactionCommand::Commit);
        if (handle_->sync_full) {
            const int rc = sync_log(db_);
            if (rc != SQLITE_OK) throw error(rc);
            unsynced_ = false;
        }
    }
    void rollback() override {
        auto use = enter();
        schema_checked_ = false;
        run_control(TransactionCommand::Rollback);
    }
    // A transaction of the caller's; a write group is none.
    bool in_transaction() const override {
        std::lock_guard use(group_.use);
        return callers_transaction();
    }
    void close() override {
        std::lock_guard use(group_.use);
        raise_lost_group();
        commit_own_group();
        if (!unsynced_) return;
        unsynced_ = false;
        const int rc = sync_log(db_);
        if (rc != SQLITE_OK) {
            // What the log holds may not be on disk: the handle is not given to anyone again.
            handle_->broken = true;
            throw database_error(nullptr, rc);  // the handle's last message is not this one's
        }
    }
    std::unique_ptr<ado::driver::Cursor> call(std::string_view procedure,
                                              std::vector<ado::driver::ProcArg>& args,
                                              const ado::driver::ExecOptions& options) override;

    void forget(SqliteCursor* c) {
        live_.erase(std::remove(live_.begin(), live_.end(), c), live_.end());
    }
    void refresh_catalog();
    // Opens the write group that `entry`, a statement to run outside any transaction, would
    // open when it runs; whether it did.
    bool open_group_first(const CachedStatement& entry, const ado::driver::ExecOptions& options);
    // Whether `entry` opens a write group when it runs now: a write outside a transaction opens
    // one that later ones join until it is committed; a read joins a group that is open and never
    // opens one.
    bool opens_group(const CachedStatement& entry) const {
        return entry.writes && !entry.outside_groups && !group_.open && window_.count() > 0 &&
               sqlite3_get_autocommit(db_);
    }
    // Notes the catalogue found current now (Handle::verified).
    void verified_now();
    // Runs `commit` (a commit of this connection's transaction), keeping the catalogue's check.
    template <class Commit>
    int commit_carrying(Commit commit);
    // One step of a statement under a command timeout (0: none).
    int step(sqlite3_stmt* stmt, long timeout_seconds) {
        handle_->watch.arm(timeout_seconds);
        const int rc = sqlite3_step(stmt);
        handle_->watch.disarm();
        return rc;
    }
    // The error for `rc` of the last step, noting whether it leaves the handle unfit for the pool.
    // A statement that fails inside a write group is undone alone, as in autocommit, unless the
    // engine gave up the whole transaction: then the group is gone with it.
    ComError error(int rc) {
        if (breaks_handle(rc)) handle_->broken = true;
        if (group_.open && sqlite3_get_autocommit(db_)) drop_group(group_);
        if ((rc & 0xff) == SQLITE_INTERRUPT && handle_->watch.fired)
            return ado::driver::timeout_error(rc, callers_transaction());
        return outside_group(database_error(db_, rc));
    }
    std::recursive_mutex& use_mutex() { return group_.use; }
    bool group_open() const { return group_.open.load(std::memory_order_acquire); }

  private:
    bool callers_transaction() const { return !sqlite3_get_autocommit(db_) && !group_.open; }
    // An error raised inside a write group reports the caller's transaction, not the group's.
    ComError outside_group(ComError e) const {
        if (group_.open)
            e.classify(e.error_class(), e.native_code(), e.violated_key(), callers_transaction());
        return e;
    }
    // Every call of the session starts here. The groups of other handles of the process on the
    // same file are committed first (this call then sees their writes and never waits for a lock
    // that they hold), then the handle is taken for the call; a group of its own that a commit
    // from outside lost is reported, one past its window committed.
    std::unique_lock<std::recursive_mutex> enter() {
        settle_file(group_);
        std::unique_lock use(group_.use);
        raise_lost_group();
        if (group_.open && GroupClock::now() >= group_.deadline) commit_own_group();
        return use;
    }
    void raise_lost_group() {
        if (group_.failed == SQLITE_OK) return;
        const int rc = group_.failed;
        group_.failed = SQLITE_OK;
        if (breaks_handle(rc)) handle_->broken = true;
        throw database_error(nullptr, rc);
    }
    void commit_own_group() {
        if (!group_.open) return;
        schema_checked_ = false;
        const int rc = commit_carrying([&] { return commit_group(group_); });
        if (rc != SQLITE_OK) {
            if (breaks_handle(rc)) handle_->broken = true;
            throw database_error(nullptr, rc);
        }
    }

    // Runs `tsql`; `built`, when given, is the statement it was built as, whose literals the
    // cache takes as they are instead of scanning the text for them.
    std::unique_ptr<ado::driver::Cursor> execute(std::string_view tsql, const ado::Statement* built,
                                                 const ado::driver::ExecOptions& options,
                                                 long* affected);
    void drain_cursors();
    void run_control(TransactionCommand command);
    bool has_more_statements(const char* tail, const char* end);
    dialect::Translation translate(std::string_view tsql, bool parameterise);
    // Prepares a translation: raises for a second statement; fills what the cache keeps.
    CachedPtr prepare(const dialect::Translation& tr);
    // Runs a statement through the cache, its shape given by `key` and `literals` (a scanned
    // shape's, or a built statement's own); nothing when a literal must be written inline.
    // `found`: its prepared statement when the caller has looked it up already.
    // `built`: the statement the text was built as, whose way of binding the entry learns.
    template <class Literals>
    std::optional<std::unique_ptr<ado::driver::Cursor>> run_cached(
        std::string_view tsql, const std::string& key, const Literals& literals,
        const ado::driver::ExecOptions& options, long* affected, CachedPtr found = nullptr,
        const ado::Statement* built = nullptr);
    template <class Literals>
    CachedPtr lookup(std::string_view tsql, const std::string& key, const Literals& literals);
    // The prepared statement that binds a built statement of this key from its values, if any.
    CachedPtr lookup_values(const std::string& key);
    // The statement of `entry` to run now: its own, or a twin when a cursor stands on it.
    CachedPtr take(const CachedPtr& entry);
    template <class Number>
    void fit_scaled(Number& n, int code);
    template <class Literals>
    bool bind(sqlite3_stmt* stmt, const CachedStatement& entry, std::string_view tsql,
              const Literals& literals);
    bool bind_values(sqlite3_stmt* stmt, const CachedStatement& entry, const ado::Statement& built);
    // Parameter `index`: a whole number's magnitude, fitted to the column it is bound for. In
    // line: a sale binds some 170 of them.
    [[gnu::always_inline]] void bind_whole(sqlite3_stmt* stmt, int index,
                                           const CachedStatement::BindStep& step,
                                           std::int64_t whole) {
        if (whole >= step.whole_limit) fit_scaled(whole, step.scale);
        const int rc = sqlite3_bind_int64(stmt, index, whole);
        if (rc != SQLITE_OK) throw error(rc);
    }
    // Parameter `index`: a number literal (`text` as written, without a minus, or empty when its
    // value is known: `whole`, or `real` with `decimals`), fitted to the column it is bound for.
    bool bind_number(sqlite3_stmt* stmt, int index, const CachedStatement::BindStep& step,
                     std::string_view text, std::int64_t whole, double real, std::size_t decimals);
    // Parameter `index`: a text literal, `body` what stands between its quotes. `stays`: the
    // body outlives the statement's run.
    void bind_body(sqlite3_stmt* stmt, int index, std::string_view body, bool stays);
    std::unique_ptr<ado::driver::Cursor> run(sqlite3_stmt* stmt, CachedPtr cached,
                                             const CachedStatement& entry,
                                             const ado::driver::ExecOptions& options,
                                             long* affected);

    std::unique_ptr<Handle> handle_;
    std::string text_buffer_;  // a text literal with values inside, while it is bound
    sqlite3* db_;
    WriteGroup& group_;
    bool use_cache_;
    bool pooled_;
    std::chrono::milliseconds window_;  // 0: every statement outside a transaction commits alone
    // The schema was checked inside the transaction now open. A transaction holds the write lock
    // from its BEGIN, so no other connection can change the schema until it ends: one check per
    // transaction is enough, where a statement in autocommit checks every time.
    bool schema_checked_ = false;
    // A statement committed outside a transaction of the caller's (in autocommit or in a write
    // group) since the log was last synced (Synchronous=Full).
    bool unsynced_ = false;
    std::vector<SqliteCursor*> live_;
};

// ---- cursor -------------------------------------------------------------------------------

SqliteCursor::~SqliteCursor() {
    if (!session_) {
        finish();
        return;
    }
    std::lock_guard use(session_->use_mutex());
    finish();
    session_->forget(this);
}

void SqliteCursor::finish() {
    if (cached_) {
        // The cache's statement goes back ready for the next statement of its shape, which
        // binds every parameter afresh.
        sqlite3_reset(stmt_);
        cached_->busy = false;
        cached_.reset();
    } else {
        sqlite3_finalize(stmt_);
    }
    stmt_ = nullptr;
    pending_ = false;
}

void SqliteCursor::fail(int rc) {
    ComError e = session_->error(rc);
    finish();
    throw e;
}

void SqliteCursor::start() {
    int rc = session_->step(stmt_, timeout_);
    if (rc == SQLITE_ROW) {
        pending_ = true;
    } else if (rc == SQLITE_DONE) {
        finish();
    } else {
        fail(rc);
    }
}

bool SqliteCursor::next(std::vector<Variant>& row) {
    if (buffered_) {
        if (buffer_.empty()) return false;
        row = std::move(buffer_.front());
        buffer_.pop_front();
        return true;
    }
    if (!stmt_) return false;
    // With no write group open, no other thread touches the handle (see WriteGroup::open): the
    // row needs no lock. With one open, the step keeps a commit from outside away.
    std::unique_lock<std::recursive_mutex> use;
    if (session_->group_open()) use = std::unique_lock(session_->use_mutex());
    if (!pending_) {
        int rc = session_->step(stmt_, timeout_);
        if (rc == SQLITE_DONE) {
            finish();  // no read lock is held past the last row
            return false;
        }
        if (rc != SQLITE_ROW) fail(rc);
    }
    pending_ = false;
    read_row(row);
    return true;
}

void SqliteCursor::drain() {
    if (buffered_) return;
    buffered_ = true;
    if (!stmt_) return;
    if (pending_) {
        buffer_.emplace_back();
        read_row(buffer_.back());
        pending_ = false;
    }
    for (;;) {
        int rc = session_->step(stmt_, timeout_);
        if (rc == SQLITE_DONE) break;
        if (rc != SQLITE_ROW) fail(rc);
        buffer_.emplace_back();
        read_row(buffer_.back());
    }
    finish();
}

void SqliteCursor::detach() {
    finish();
    if (session_) session_->forget(this);
    session_ = nullptr;
}

void SqliteCursor::read_row(std::vector<Variant>& row) const {
    const std::vector<ColumnInfo>& columns = *columns_;
    const int n = static_cast<int>(columns.size());
    row.resize(columns.size());
    for (int i = 0; i < n; ++i) {
        auto& out = row[static_cast<std::size_t>(i)];
        // The column's value itself, read with no further lookup of the column: the handle is
        // used by one thread at a time, and the value is read before the next step.
        sqlite3_value* value = sqlite3_column_value(stmt_, i);
        switch (sqlite3_value_type(value)) {
            case SQLITE_INTEGER:
                out = Variant(static_cast<std::int64_t>(sqlite3_value_int64(value)));
                break;
            case SQLITE_FLOAT:
                out = Variant(sqlite3_value_double(value));
                break;
            case SQLITE_NULL:
                out = Variant::null();
                break;
            default: {
                const auto* p = static_cast<const char*>(sqlite3_value_blob(value));
                std::string_view text(p ? p : "",
                                      static_cast<std::size_t>(sqlite3_value_bytes(value)));
                if (columns[static_cast<std::size_t>(i)].type == VarType::Date) {
                    if (auto d = ado::DateTime::parse(text)) {
                        out = Variant(*d);
                        break;
                    }
                }
                out.assign_text(text);
                break;
            }
        }
    }
}

// ---- session ------------------------------------------------------------------------------

unsigned data_version(sqlite3* db) {
    unsigned v = 0;
    sqlite3_file_control(db, nullptr, SQLITE_FCNTL_DATA_VERSION, &v);  // the main database
    return v;
}

void SqliteSession::refresh_catalog() {
    Handle& h = *handle_;
    // Inside a transaction the data version is that of the transaction's own view: unmoved since
    // the last check, no other connection has committed anything since.
    if (h.verified && h.catalog && !sqlite3_get_autocommit(db_) &&
        data_version(db_) == h.verified_data_version)
        return;
    h.verified = false;
    if (!h.version_stmt) {
        int rc = sqlite3_prepare_v2(db_, "PRAGMA schema_version", -1, &h.version_stmt, nullptr);
        if (rc != SQLITE_OK) throw error(rc);
    }
    int rc = sqlite3_step(h.version_stmt);
    if (rc != SQLITE_ROW) {
        ComError e = error(rc);
        sqlite3_reset(h.version_stmt);
        throw e;
    }
    const int version = sqlite3_column_int(h.version_stmt, 0);
    sqlite3_reset(h.version_stmt);  // holds no read transaction between statements
    if (h.catalog && version == h.schema_version) {
        verified_now();
        return;
    }

    // Translations were made against the old catalogue; statements of a cursor still running
    // stay alive through the cursor and are finalised when it lets them go.
    h.cache.clear();
    std::string schema;
    {
        StmtGuard g;
        rc =
            sqlite3_prepare_v2(db_, "select type, name, sql from sqlite_master order by type, name",
                               -1, &g.stmt, nullptr);
        if (rc != SQLITE_OK) throw error(rc);
        while ((rc = sqlite3_step(g.stmt)) == SQLITE_ROW) {
            for (int i = 0; i < 3; ++i) {
                const unsigned char* t = sqlite3_column_text(g.stmt, i);
                schema += t ? reinterpret_cast<const char*>(t) : "";
                schema += '\x1f';
            }
            schema += '\x1e';
        }
        if (rc != SQLITE_DONE) throw error(rc);
    }
    CatalogCache& cache = catalog_cache();
    {
        std::lock_guard lock(cache.mutex);
        auto it = cache.by_schema.find(schema);
        if (it != cache.by_schema.end()) {
            h.catalog = it->second;
            h.schema_version = version;
            verified_now();
            return;
        }
    }
    auto catalog = std::make_shared<const dialect::Catalog>(read_catalog(db_));
    {
        std::lock_guard lock(cache.mutex);
        if (cache.by_schema.size() >= 32) cache.by_schema.clear();  // bounded; rarely more than one
        cache.by_schema.emplace(std::move(schema), catalog);
    }
    h.catalog = std::move(catalog);
    h.schema_version = version;
    verified_now();
}

void SqliteSession::verified_now() {
    handle_->verified = true;
    handle_->verified_data_version = data_version(db_);
}

template <class Commit>
int SqliteSession::commit_carrying(Commit commit) {
    // A commit of this connection's own moves the data version but changes no schema (no
    // statement it runs does): a check made in the transaction holds on after it.
    Handle& h = *handle_;
    const bool carry =
        h.verified && !sqlite3_get_autocommit(db_) && data_version(db_) == h.verified_data_version;
    const int rc = commit();
    if (carry && rc == SQLITE_OK && sqlite3_get_autocommit(db_))
        h.verified_data_version = data_version(db_);
    else if (rc != SQLITE_OK)
        h.verified = false;
    return rc;
}

// A forward cursor and a write on the same connection: a service loop reads the rows of a query
// while it updates the very tables it reads. SQLite would let the write run under the open read,
// but what the read then returns is undefined (changed rows may be seen, skipped or seen twice),
// and a ROLLBACK aborts the read outright. A server hands such a loop the rows as of its query.
// So before anything that writes, every live cursor of this connection reads its remaining rows
// into memory and lets its statement go; the rows it yields are those of before the write.
void SqliteSession::drain_cursors() {
    const std::vector<SqliteCursor*> cursors = live_;
    for (SqliteCursor* c : cursors)
        c->drain();
}

void SqliteSession::run_control(TransactionCommand command) {
    drain_cursors();
    const int rc = command == TransactionCommand::Commit
                       ? commit_carrying([&] { return run_command(group_, command); })
                       : run_command(group_, command);
    if (rc != SQLITE_OK) throw error(rc);
}

bool SqliteSession::has_more_statements(const char* tail, const char* end) {
    // Whatever the engine would take as a statement after the first one, or text it cannot
    // read at all. Blanks, comments and a closing ';' prepare to nothing.
    if (!tail || tail >= end) return false;
    StmtGuard g;
    int rc = sqlite3_prepare_v2(db_, tail, static_cast<int>(end - tail), &g.stmt, nullptr);
    return rc != SQLITE_OK || g.stmt != nullptr;
}

dialect::Translation SqliteSession::translate(std::string_view tsql, bool parameterise) {
    try {
        dialect::TranslateOptions options;
        options.parameterise = parameterise;
        return dialect::translate_sqlite(tsql, *handle_->catalog, options);
    } catch (const dialect::DialectError& e) {
        throw ado::driver::translation_refusal(e.what(), e.server_number(), in_transaction());
    }
}

CachedPtr SqliteSession::prepare(const dialect::Translation& tr) {
    auto entry = std::make_shared<CachedStatement>();
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v2(db_, tr.sql.data(), static_cast<int>(tr.sql.size()), &entry->stmt,
                                &tail);
    if (rc != SQLITE_OK) throw error(rc);
    if (!entry->stmt) throw ComError(err::kDatabase, "the statement is empty");
    const char* end = tr.sql.data() + tr.sql.size();
    if (has_more_statements(tail, end))
        throw ComError(err::kDatabase,
                       "only one statement can run at a time; nothing was run. After the first "
                       "statement: " +
                           excerpt(std::string_view(tail, static_cast<std::size_t>(end - tail))));
    entry->translation_writes = tr.writes;
    const std::string word = first_word(entry->stmt);
    entry->outside_groups = runs_outside_groups(word);
    entry->writes = !sqlite3_stmt_readonly(entry->stmt) || is_transaction_control(word);
    const int ncol = sqlite3_column_count(entry->stmt);
    if (ncol > 0 && !entry->writes) {
        entry->columns.resize(static_cast<std::size_t>(ncol));
        for (int i = 0; i < ncol; ++i) {
            const char* name = sqlite3_column_name(entry->stmt, i);
            entry->columns[static_cast<std::size_t>(i)].name = name ? name : "";
            entry->columns[static_cast<std::size_t>(i)].type =
                declared_type(sqlite3_column_decltype(entry->stmt, i));
        }
    }
    return entry;
}

template <class Literals>
CachedPtr SqliteSession::lookup(std::string_view tsql, const std::string& key,
                                const Literals& literals) {
    auto it = handle_->cache.find(key);
    if (it == handle_->cache.end()) return nullptr;
    for (const CachedPtr& c : it->second)
        if (c->binding.fits(tsql, literals)) return c;
    return nullptr;
}

// A number bound for a decimal or money column, rounded to the column's scale as the runtime's
// check would round it in the statement; one that does not fit fails as the check would.
template <class Number>
void SqliteSession::fit_scaled(Number& n, int code) {
    std::string message;
    const int number = fit_decimal_column(n, code, message);
    if (number == 0) return;
    throw outside_group(
        ComError(err::kDatabase, std::move(message))
            .classify(ado::ErrorClass::Other, number, {}, !sqlite3_get_autocommit(db_)));
}

void SqliteSession::bind_body(sqlite3_stmt* stmt, int index, std::string_view body, bool stays) {
    int rc;
    if (body.find('\'') == std::string_view::npos) {
        rc = sqlite3_bind_text(stmt, index, body.data(), static_cast<int>(body.size()),
                               stays ? SQLITE_STATIC : SQLITE_TRANSIENT);
    } else {
        std::string text;  // its doubled quotes as one
        text.reserve(body.size());
        for (std::size_t i = 0; i < body.size(); ++i) {
            text.push_back(body[i]);
            if (body[i] == '\'' && i + 1 < body.size() && body[i + 1] == '\'') ++i;
        }
        rc = sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()),
                               SQLITE_TRANSIENT);
    }
    if (rc != SQLITE_OK) throw error(rc);
}

bool SqliteSession::bind_number(sqlite3_stmt* stmt, int index,
                                const CachedStatement::BindStep& step, std::string_view text,
                                std::int64_t whole, double real, std::size_t decimals) {
    if (text.size() <= 18 && (whole >= 0 || !text.empty())) {
        // Ids, kinds and counts: plain digits that always fit, read here directly unless
        // the statement came with their value.
        std::size_t i = text.size();
        if (whole < 0) {
            whole = 0;
            for (i = 0; i < text.size(); ++i) {
                const char c = text[i];
                if (c < '0' || c > '9') break;
                whole = whole * 10 + (c - '0');
            }
        }
        if (i == text.size()) {
            bind_whole(stmt, index, step, whole);
            return true;
        }
    }
    dialect::LiteralValue v;
    if (real >= 0) {
        v.type = dialect::LiteralValue::Type::Real;
        v.real = real;
        if (!text.empty()) decimals = decimals_of(text);
    } else if (!dialect::literal_value(text, v)) {
        return false;
    } else {
        decimals = decimals_of(text);
    }
    if (step.scale != 0) {
        if (v.type == dialect::LiteralValue::Type::Integer) fit_scaled(v.integer, step.scale);
        if (v.type == dialect::LiteralValue::Type::Real &&
            !(v.real < step.real_limit && decimals <= static_cast<std::size_t>(step.scale % 100)))
            fit_scaled(v.real, step.scale);  // else written with what the column keeps
    }
    const int rc = v.type == dialect::LiteralValue::Type::Integer
                       ? sqlite3_bind_int64(stmt, index, v.integer)
                       : sqlite3_bind_double(stmt, index, v.real);
    if (rc != SQLITE_OK) throw error(rc);
    return true;
}

template <class Literals>
bool SqliteSession::bind(sqlite3_stmt* stmt, const CachedStatement& entry, std::string_view tsql,
                         const Literals& literals) {
    // A statement without rows runs to its end before execute returns, while the caller's text
    // is alive: its strings are bound straight from the text, uncopied, when they hold no
    // doubled quote. A cursor outlives the text, so its strings are copied.
    const bool runs_now = entry.columns.empty();
    int index = 0;
    for (const CachedStatement::BindStep& step : entry.plan) {
        const auto& l = literals[step.literal];
        ++index;
        const std::string_view text = tsql.substr(l.offset, l.length);
        if (!is_number(l)) {
            bind_body(stmt, index, text_body(text), runs_now);
        } else if (!bind_number(stmt, index, step, text, known_whole(l), known_real(l), 0)) {
            return false;
        }
    }
    return true;
}

bool SqliteSession::bind_values(sqlite3_stmt* stmt, const CachedStatement& entry,
                                const ado::Statement& built) {
    using Value = ado::Statement::Value;
    using From = CachedStatement::ValueStep::From;
    constexpr std::int64_t kEighteenDigits = 999'999'999'999'999'999;
    const bool runs_now = entry.columns.empty();
    const std::vector<Value>& values = built.values();
    char number[ado::Variant::kDoubleTextRoom];
    int index = 0;
    for (const CachedStatement::ValueStep& from : entry.value_plan) {
        ++index;
        switch (from.from) {
            case From::FixedWhole:
                bind_whole(stmt, index, from.step, from.whole);
                continue;
            case From::Fixed:
                if (!bind_number(stmt, index, from.step, from.fixed, -1, -1, 0)) return false;
                continue;
            case From::FixedText:
                bind_body(stmt, index, from.fixed, true);
                continue;
            case From::Text:
                bind_body(stmt, index, text_body(built.text_literal(from.index, text_buffer_)),
                          false);
                continue;
            case From::Lone: {
                const Value& v = values[from.index];
                if (v.type == Value::Type::Quoted) {  // as given: its quotes are not doubled
                    const std::string_view t = built.text_of(v);
                    const int rc =
                        sqlite3_bind_text(stmt, index, t.data(), static_cast<int>(t.size()),
                                          runs_now ? SQLITE_STATIC : SQLITE_TRANSIENT);
                    if (rc != SQLITE_OK) throw error(rc);
                } else {
                    bind_body(stmt, index, built.text_of(v), runs_now);  // a number's too
                }
                continue;
            }
            case From::Place:
                break;
        }
        // A number's place: its value, or its text when the value alone does not say how the
        // text reads. A minus is no part of the literal.
        const Value& v = values[from.index];
        if (v.type == Value::Type::Whole && v.whole >= -kEighteenDigits &&
            v.whole <= kEighteenDigits) {
            bind_whole(stmt, index, from.step, v.whole < 0 ? -v.whole : v.whole);
            continue;
        }
        if (v.type == Value::Type::Real && v.size == 0) {
            const double magnitude = std::fabs(v.real);
            std::int64_t digits = 0;
            int decimals = 0;
            if (static_cast<double>(static_cast<std::int64_t>(magnitude)) == magnitude) {
                bind_whole(stmt, index, from.step, static_cast<std::int64_t>(magnitude));
                continue;
            }
            if (ado::Variant::few_decimals(magnitude, digits, decimals) &&
                digits < 1'000'000'000'000'000) {
                // At most 15 digits: the double reads back from them.
                if (!bind_number(stmt, index, from.step, {}, -1, magnitude,
                                 static_cast<std::size_t>(decimals)))
                    return false;
                continue;
            }
        }
        std::string_view text = built.text_of(v, number);
        if (!text.empty() && text.front() == '-') text.remove_prefix(1);
        if (!bind_number(stmt, index, from.step, text, -1, -1, 0)) return false;
    }
    return true;
}

CachedPtr SqliteSession::lookup_values(const std::string& key) {
    auto it = handle_->cache.find(key);
    if (it == handle_->cache.end() || it->second.size() != 1 || !it->second.front()->binds_values)
        return nullptr;
    return it->second.front();
}

CachedPtr SqliteSession::take(const CachedPtr& entry) {
    if (!entry->busy) return entry;
    // A cursor of the same shape is still open (a loop inside a loop): a statement of its own
    // for this one, let go when it is done.
    auto twin = std::make_shared<CachedStatement>(*entry);
    twin->stmt = nullptr;
    twin->busy = false;
    int rc = sqlite3_prepare_v2(db_, sqlite3_sql(entry->stmt), -1, &twin->stmt, nullptr);
    if (rc != SQLITE_OK) throw error(rc);
    return twin;
}

template <class Literals>
std::optional<std::unique_ptr<ado::driver::Cursor>> SqliteSession::run_cached(
    std::string_view tsql, const std::string& key, const Literals& literals,
    const ado::driver::ExecOptions& options, long* affected, CachedPtr found,
    const ado::Statement* built) {
    CachedPtr entry = found ? std::move(found) : lookup(tsql, key, literals);
    if (!entry) {
        dialect::Translation tr = translate(tsql, true);
        if (options.read_only && tr.writes) throw ado::driver::read_only_refusal();
        entry = prepare(tr);
        entry->binding = ShapeBinding::of(literals, tsql, tr.parameters);
        entry->make_plan(tr.parameter_scales);
        auto& cache = handle_->cache;
        if (cache.size() >= kMaxCachedShapes) cache.clear();
        auto& variants = cache[key];
        if (variants.size() >= kMaxVariantsPerShape) variants.erase(variants.begin());
        variants.push_back(entry);
    }
    if (built && !entry->values_learnt) entry->learn_values(*built, tsql);
    if (options.read_only && entry->translation_writes) throw ado::driver::read_only_refusal();
    CachedPtr use = take(entry);
    if (bind(use->stmt, *use, tsql, literals)) {
        use->busy = true;
        return run(use->stmt, use, *use, options, affected);
    }
    sqlite3_clear_bindings(use->stmt);  // a literal the engine reads its own way: inline
    return std::nullopt;
}

bool SqliteSession::open_group_first(const CachedStatement& entry,
                                     const ado::driver::ExecOptions& options) {
    if (options.read_only || !opens_group(entry)) return false;
    drain_cursors();  // as run does before it opens a group
    const int rc = open_group(group_, window_);
    if (rc != SQLITE_OK) throw error(rc);
    return true;
}

std::unique_ptr<ado::driver::Cursor> SqliteSession::execute(std::string_view tsql,
                                                            const ado::Statement* built,
                                                            const ado::driver::ExecOptions& options,
                                                            long* affected) {
    auto held = enter();
    // Inside a transaction (the caller's or a group) the write lock keeps the schema as it is.
    // A group opened first makes the check one of the data version (refresh_catalog), where
    // outside a transaction it reads the schema version in a transaction of its own.
    bool transaction = !sqlite3_get_autocommit(db_);
    // A built statement whose shape is prepared binds its values themselves, and its text is
    // never written: the text is for a new shape, and for values the translation writes inline.
    CachedPtr found;
    bool by_values = false;
    if (built && use_cache_) {
        found = lookup_values(built->key());
        by_values = found != nullptr;
        if (!by_values) {
            tsql = built->text();
            found = lookup(tsql, built->key(), built->literals());
        }
        if (!transaction && found && open_group_first(*found, options)) transaction = true;
    } else if (built) {
        tsql = built->text();
    }
    if (!schema_checked_ || !transaction) {
        const dialect::Catalog* before = handle_->catalog.get();
        refresh_catalog();
        schema_checked_ = transaction;
        if (handle_->catalog.get() != before && found) {
            found.reset();  // made against the old catalogue
            if (by_values) tsql = built->text();
            by_values = false;
        }
    }
    if (by_values) {
        if (options.read_only && found->translation_writes) throw ado::driver::read_only_refusal();
        CachedPtr use = take(found);
        if (bind_values(use->stmt, *use, *built)) {
            use->busy = true;
            return run(use->stmt, use, *use, options, affected);
        }
        sqlite3_clear_bindings(use->stmt);
        tsql = built->text();  // a value the engine reads its own way: as the text has it
    }
    if (use_cache_) {
        std::optional<std::unique_ptr<ado::driver::Cursor>> ran;
        if (built) {
            ran = run_cached(tsql, built->key(), built->literals(), options, affected,
                             std::move(found), built);
        } else {
            // The session's buffers, lent to this statement and given back however it ends.
            struct Lent {
                dialect::Shape& home;
                dialect::Shape shape;
                explicit Lent(dialect::Shape& h) : home(h), shape(std::move(h)) {}
                ~Lent() { home = std::move(shape); }
            } lent(handle_->shape_buffer);
            dialect::Shape& shape = lent.shape;
            try {
                dialect::statement_shape(tsql, shape);
            } catch (const dialect::DialectError& e) {
                throw ComError(err::kDatabase, e.what());
            }
            ran = run_cached(tsql, shape.key, shape.literals, options, affected);
        }
        if (ran) return std::move(*ran);
    }

    dialect::Translation tr = translate(tsql, false);
    if (options.read_only && tr.writes) throw ado::driver::read_only_refusal();
    CachedPtr entry = prepare(tr);
    sqlite3_stmt* stmt = entry->stmt;
    entry->stmt = nullptr;  // owned by the run from here on
    return run(stmt, nullptr, *entry, options, affected);
}

std::unique_ptr<ado::driver::Cursor> SqliteSession::run(sqlite3_stmt* stmt, CachedPtr cached,
                                                        const CachedStatement& entry,
                                                        const ado::driver::ExecOptions& options,
                                                        long* affected) {
    // Lets the statement go on every way out: back to the cache ready for reuse, or finalised.
    auto release = [&] {
        if (cached) {
            sqlite3_reset(stmt);
            cached->busy = false;
        } else {
            sqlite3_finalize(stmt);
        }
    };
    if (options.read_only && entry.writes) {
        release();
        throw ado::driver::read_only_refusal();
    }
    if (entry.writes) drain_cursors();
    if (entry.outside_groups) {
        try {
            commit_own_group();
        } catch (...) {
            release();
            throw;
        }
    } else if (opens_group(entry)) {
        const int rc = open_group(group_, window_);
        if (rc != SQLITE_OK) {
            ComError e = error(rc);
            release();
            throw e;
        }
    }

    if (!entry.columns.empty()) {
        auto cursor = std::make_unique<SqliteCursor>(this, stmt, std::move(cached), entry.columns,
                                                     options.timeout_seconds);
        live_.push_back(cursor.get());
        cursor->start();
        if (affected) *affected = -1;
        return cursor;
    }
    // A statement that changed no row commits nothing that needs syncing.
    const int changes_before = entry.writes ? sqlite3_total_changes(db_) : 0;
    int rc;
    while ((rc = step(stmt, options.timeout_seconds)) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) {
        ComError e = error(rc);
        release();
        throw e;
    }
    if (affected) *affected = sqlite3_changes(db_);
    if (entry.writes && handle_->sync_full && !callers_transaction() &&
        sqlite3_total_changes(db_) != changes_before)
        unsynced_ = true;
    release();
    return nullptr;
}

std::unique_ptr<ado::driver::Cursor> SqliteSession::call(std::string_view procedure,
                                                         std::vector<ado::driver::ProcArg>& args,
                                                         const ado::driver::ExecOptions& options) {
    bool builtin = false;
    ProcedureFn fn = lookup_procedure(procedure, builtin);
    if (!fn)
        throw ComError(err::kDatabase,
                       "could not find stored procedure '" + std::string(procedure) + "'");
    auto use = enter();
    // A procedure added at run time may reach the database through connections of its own,
    // which must neither miss the group's writes nor wait for its lock.
    if (!builtin) commit_own_group();
    drain_cursors();  // a procedure may write
    const int changes_before = sqlite3_total_changes(db_);
    // One timeout over the whole call: every statement the procedure runs stops once it is over.
    Handle::Watch& watch = handle_->watch;
    watch.arm(options.timeout_seconds);
    try {
        fn(db_, args);
    } catch (const ComError& e) {
        watch.disarm();
        if (group_.open && sqlite3_get_autocommit(db_)) drop_group(group_);
        if (watch.fired) throw ado::driver::timeout_error(SQLITE_INTERRUPT, callers_transaction());
        throw outside_group(e);
    } catch (...) {
        watch.disarm();
        if (group_.open && sqlite3_get_autocommit(db_)) drop_group(group_);
        if (watch.fired) throw ado::driver::timeout_error(SQLITE_INTERRUPT, callers_transaction());
        throw;
    }
    watch.disarm();
    if (watch.fired) throw ado::driver::timeout_error(SQLITE_INTERRUPT, callers_transaction());
    if (handle_->sync_full && !callers_transaction() &&
        sqlite3_total_changes(db_) != changes_before)
        unsynced_ = true;
    return nullptr;
}

// ---- driver -------------------------------------------------------------------------------

ComError bad_option(const std::string& why) {
    return ComError(err::kConnection, why);
}

class SqliteDriver final : public ado::driver::Driver {
  public:
    std::string name() const override { return "sqlite"; }
    std::string engine_version() const override {
        return std::string("SQLite ") + sqlite3_libversion();
    }

    bool accepts(const ado::ConnectionString& cs) const override {
        const std::string provider = lower(cs.get("provider"));
        return provider == "sqlite" || provider == "sqlite3";
    }

    std::shared_ptr<ado::driver::Session> open(const ado::ConnectionString& cs) override {
        const Options& o = options_of(cs);
        const bool pooling = o.pooling && !switched_off("BILLDATA_POOLING");
        const bool cache = o.cache && !switched_off("BILLDATA_STATEMENT_CACHE");
        const std::string& path = o.path;
        const std::string& sync = o.sync;
        const int busy_ms = o.busy_ms;
        const std::string& key = o.key;
        const std::chrono::milliseconds window(group_window(o));

        // Never create a database here: a mistyped path must not become an empty shop.
        dev_t dev = 0;
        ino_t ino = 0;
        if (!file_identity(path, dev, ino))
            throw bad_option("the database file '" + util::excerpt(path) + "' does not exist");

        if (pooling) {
            if (auto h = HandlePool::instance().take(key, dev, ino))
                return std::make_shared<SqliteSession>(std::move(h), cache, true, window);
        }

        sqlite3* raw = nullptr;
        int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
        if (rc != SQLITE_OK) {
            std::string msg = raw ? sqlite3_errmsg(raw) : sqlite3_errstr(rc);
            sqlite3_close_v2(raw);
            throw bad_option("cannot open the database '" + util::excerpt(path) + "': " + msg);
        }
        auto handle = std::make_unique<Handle>();  // closes the handle from here on
        handle->db = raw;
        handle->pool_key = key;
        handle->file_dev = dev;
        handle->file_ino = ino;
        handle->group->db = raw;
        handle->group->dev = dev;
        handle->group->ino = ino;
        handle->group->busy_ms = busy_ms;
        sqlite3_extended_result_codes(raw, 1);
        // The busy timeout, and while it runs, the groups of idle handles of this process that
        // hold the lock are committed.
        sqlite3_busy_handler(raw, wait_for_lock, handle->group.get());
        sqlite3_progress_handler(raw, kProgressSteps, on_progress, &handle->watch);
        handle->sync_full = sync == "FULL";
        const std::string pragmas = "PRAGMA journal_mode=WAL; PRAGMA synchronous=" +
                                    std::string(handle->sync_full ? "NORMAL" : sync) + ";";
        char* msg = nullptr;
        rc = sqlite3_exec(raw, pragmas.c_str(), nullptr, nullptr, &msg);
        if (rc != SQLITE_OK) {
            std::string text = msg ? msg : sqlite3_errstr(rc);
            sqlite3_free(msg);
            throw bad_option("cannot open the database '" + util::excerpt(path) + "': " + text);
        }
        rc = register_tsql_runtime(raw);
        if (rc != SQLITE_OK)
            throw bad_option("cannot register the runtime functions on '" + util::excerpt(path) +
                             "': " + sqlite3_errstr(rc));
        auto session = std::make_shared<SqliteSession>(std::move(handle), cache, pooling, window);
        try {
            session->refresh_catalog();
        } catch (const ComError& e) {
            throw bad_option("cannot read the schema of '" + util::excerpt(path) +
                             "': " + e.description());
        }
        return session;
    }

  private:
    // What a connection string asks for, checked once per string: every operation opens a
    // connection of its own with the same string.
    struct Options {
        std::string path, sync, key;
        int busy_ms = kDefaultBusyTimeoutMs;
        int group_ms = -1;  // not in the string
        bool pooling = true, cache = true;
    };

    // The string's Group Window, else BILLDATA_GROUP_WINDOW=<ms> (0: no groups), else the
    // default.
    static int group_window(const Options& o) {
        if (o.group_ms >= 0) return o.group_ms;
        const char* v = std::getenv("BILLDATA_GROUP_WINDOW");
        if (!v) return kDefaultGroupWindowMs;
        return parse_window(v, "the environment variable BILLDATA_GROUP_WINDOW");
    }

    static int parse_window(std::string_view v, const std::string& what) {
        int ms = 0;
        auto r = std::from_chars(v.data(), v.data() + v.size(), ms);
        if (r.ec != std::errc() || r.ptr != v.data() + v.size() || ms < 0 || ms > kMaxGroupWindowMs)
            throw bad_option(what + " must be a number of milliseconds from 0 to " +
                             std::to_string(kMaxGroupWindowMs) + ", not '" + util::excerpt(v) +
                             "'");
        return ms;
    }

    // The options of `cs`, valid until the thread's next call.
    static const Options& options_of(const ado::ConnectionString& cs) {
        thread_local std::vector<std::pair<std::string, Options>> recent;  // newest last
        for (auto it = recent.rbegin(); it != recent.rend(); ++it)
            if (it->first == cs.text()) return it->second;
        Options o = parse_options(cs);
        if (recent.size() >= 4) recent.erase(recent.begin());
        recent.emplace_back(cs.text(), std::move(o));
        return recent.back().second;
    }

    static Options parse_options(const ado::ConnectionString& cs) {
        cs.require_known({"provider", "data source", "synchronous", "busy timeout", "lock timeout",
                          "pooling", "statement cache", "group window"});
        Options o;
        o.path = cs.get("data source");
        if (o.path.empty()) throw bad_option("the connection string names no Data Source");

        o.sync = upper(cs.get("synchronous", "Full"));
        if (o.sync != "NORMAL" && o.sync != "FULL" && o.sync != "OFF")
            throw bad_option("Synchronous must be Normal, Full or Off, not '" +
                             util::excerpt(cs.get("synchronous")) + "'");
        if (cs.has("busy timeout")) {
            const std::string v = cs.get("busy timeout");
            auto r = std::from_chars(v.data(), v.data() + v.size(), o.busy_ms);
            if (r.ec != std::errc() || r.ptr != v.data() + v.size() || o.busy_ms < 0)
                throw bad_option("Busy Timeout must be a number of milliseconds, not '" +
                                 util::excerpt(v) + "'");
        }
        if (cs.has("lock timeout")) {
            double seconds = 0;
            if (!Variant::parse_number(cs.get("lock timeout"), seconds) || seconds < 0)
                throw bad_option("Lock Timeout must be a number of seconds, not '" +
                                 util::excerpt(cs.get("lock timeout")) + "'");
        }
        if (cs.has("group window"))
            o.group_ms = parse_window(cs.get("group window"), "Group Window");
        o.pooling = parse_switch(cs, "pooling");
        o.cache = parse_switch(cs, "statement cache");
        o.key = o.path + '\x1f' + o.sync + '\x1f' + std::to_string(o.busy_ms);
        return o;
    }

    // True|False|Yes|No|1|0, default true.
    static bool parse_switch(const ado::ConnectionString& cs, std::string_view keyword) {
        if (!cs.has(keyword)) return true;
        const std::string v = lower(cs.get(keyword));
        if (v == "true" || v == "yes" || v == "1") return true;
        if (v == "false" || v == "no" || v == "0") return false;
        throw bad_option(std::string(keyword) + " must be True or False, not '" +
                         util::excerpt(cs.get(keyword)) + "'");
    }
};

}  // namespace

std::size_t idle_handles() {
    return HandlePool::instance().idle_count();
}

void commit_write_groups() {
    commit_all_groups();
}

std::shared_ptr<ado::driver::Driver> make_driver() {
    return std::make_shared<SqliteDriver>();
}

void register_procedure(std::string_view name, ProcedureFn fn) {
    ProcedureTable& t = procedure_table();
    std::lock_guard lock(t.mutex);
    if (fn)
        t.by_name[lower(name)] = fn;
    else
        t.by_name.erase(lower(name));
}

}  // namespace billdata::drivers::sqlite
