#include "billdata/drivers/sqlite/sqlite_driver.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"

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

// ---- procedures added at run time ---------------------------------------------------------

struct ProcedureTable {
    std::mutex mutex;
    std::map<std::string, ProcedureFn> by_name;  // lower-case name
};

ProcedureTable& procedure_table() {
    static ProcedureTable t;
    return t;
}

ProcedureFn lookup_procedure(std::string_view name) {
    {
        ProcedureTable& t = procedure_table();
        std::lock_guard lock(t.mutex);
        auto it = t.by_name.find(lower(name));
        if (it != t.by_name.end()) return it->second;
    }
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
    sqlite3_stmt* release() {
        sqlite3_stmt* s = stmt;
        stmt = nullptr;
        return s;
    }
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

bool is_transaction_control(sqlite3_stmt* stmt) {
    std::string_view sql = sqlite3_sql(stmt);
    std::size_t i = 0;
    while (i < sql.size() && (sql[i] == ' ' || sql[i] == '\t' || sql[i] == '\r' || sql[i] == '\n'))
        ++i;
    std::size_t j = i;
    while (j < sql.size() && std::isalpha(static_cast<unsigned char>(sql[j])))
        ++j;
    std::string word = lower(sql.substr(i, j - i));
    return word == "begin" || word == "commit" || word == "end" || word == "rollback" ||
           word == "savepoint" || word == "release";
}

std::string excerpt(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\n' || text.front() == '\t' ||
                             text.front() == '\r' || text.front() == ';'))
        text.remove_prefix(1);
    if (text.size() > 60) return std::string(text.substr(0, 60)) + "…";
    return std::string(text);
}

ComError read_only_refusal() {
    return ComError(err::kDatabase,
                    "this record set is read-only: a statement that writes is not run here");
}

class SqliteSession;

// A live result over one prepared statement. The first row is stepped when the cursor is made,
// so that a failing query fails at Open/Execute as it does on a server.
class SqliteCursor final : public ado::driver::Cursor {
  public:
    SqliteCursor(SqliteSession* session, sqlite3_stmt* stmt, std::vector<ColumnInfo> columns)
        : session_(session), stmt_(stmt), columns_(std::move(columns)) {}
    ~SqliteCursor() override;

    const std::vector<ColumnInfo>& columns() const override { return columns_; }
    bool next(std::vector<Variant>& row) override;

    void start();
    // Reads the rest of the result into memory and lets the statement go.
    void drain();
    // The session goes away first: let the statement go, yield nothing more.
    void detach();

  private:
    void read_row(std::vector<Variant>& row) const;
    [[noreturn]] void fail(int rc);
    void finish() {
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
        pending_ = false;
    }

    SqliteSession* session_;
    sqlite3_stmt* stmt_;
    std::vector<ColumnInfo> columns_;
    bool pending_ = false;   // the statement stands on a row not handed out yet
    bool buffered_ = false;  // drained: rows come from buffer_
    std::deque<std::vector<Variant>> buffer_;
};

class SqliteSession final : public ado::driver::Session {
  public:
    explicit SqliteSession(sqlite3* db) : db_(db) {}
    ~SqliteSession() override {
        for (SqliteCursor* c : live_)
            c->detach();
        sqlite3_finalize(version_stmt_);
        sqlite3_close_v2(db_);  // an open transaction is rolled back
    }

    std::string_view engine() const override { return "sqlite"; }

    std::unique_ptr<ado::driver::Cursor> execute(std::string_view tsql,
                                                 const ado::driver::ExecOptions& options,
                                                 long* affected) override;
    void begin() override { run_control("BEGIN IMMEDIATE"); }
    void commit() override { run_control("COMMIT"); }
    void rollback() override { run_control("ROLLBACK"); }
    bool in_transaction() const override { return !sqlite3_get_autocommit(db_); }
    std::unique_ptr<ado::driver::Cursor> call(std::string_view procedure,
                                              std::vector<ado::driver::ProcArg>& args) override;

    sqlite3* db() const { return db_; }
    void forget(SqliteCursor* c) {
        live_.erase(std::remove(live_.begin(), live_.end(), c), live_.end());
    }
    void refresh_catalog();

  private:
    void drain_cursors();
    void run_control(const char* sql);
    bool has_more_statements(const char* tail, const char* end);

    sqlite3* db_;
    sqlite3_stmt* version_stmt_ = nullptr;
    int schema_version_ = -1;
    std::shared_ptr<const dialect::Catalog> catalog_;
    std::vector<SqliteCursor*> live_;
};

// ---- cursor -------------------------------------------------------------------------------

SqliteCursor::~SqliteCursor() {
    sqlite3_finalize(stmt_);
    if (session_) session_->forget(this);
}

void SqliteCursor::fail(int rc) {
    ComError e = database_error(session_->db(), rc);
    finish();
    throw e;
}

void SqliteCursor::start() {
    int rc = sqlite3_step(stmt_);
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
    if (!pending_) {
        int rc = sqlite3_step(stmt_);
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
        int rc = sqlite3_step(stmt_);
        if (rc == SQLITE_DONE) break;
        if (rc != SQLITE_ROW) fail(rc);
        buffer_.emplace_back();
        read_row(buffer_.back());
    }
    finish();
}

void SqliteCursor::detach() {
    finish();
    session_ = nullptr;
}

void SqliteCursor::read_row(std::vector<Variant>& row) const {
    const int n = static_cast<int>(columns_.size());
    row.resize(columns_.size());
    for (int i = 0; i < n; ++i) {
        auto& out = row[static_cast<std::size_t>(i)];
        switch (sqlite3_column_type(stmt_, i)) {
            case SQLITE_INTEGER:
                out = Variant(static_cast<std::int64_t>(sqlite3_column_int64(stmt_, i)));
                break;
            case SQLITE_FLOAT:
                out = Variant(sqlite3_column_double(stmt_, i));
                break;
            case SQLITE_NULL:
                out = Variant::null();
                break;
            default: {
                const auto* p = static_cast<const char*>(sqlite3_column_blob(stmt_, i));
                std::string_view text(p ? p : "",
                                      static_cast<std::size_t>(sqlite3_column_bytes(stmt_, i)));
                if (columns_[static_cast<std::size_t>(i)].type == VarType::Date) {
                    if (auto d = ado::DateTime::parse(text)) {
                        out = Variant(*d);
                        break;
                    }
                }
                out = Variant(text);
                break;
            }
        }
    }
}

// ---- session ------------------------------------------------------------------------------

void SqliteSession::refresh_catalog() {
    if (!version_stmt_) {
        int rc = sqlite3_prepare_v2(db_, "PRAGMA schema_version", -1, &version_stmt_, nullptr);
        if (rc != SQLITE_OK) throw database_error(db_, rc);
    }
    int rc = sqlite3_step(version_stmt_);
    if (rc != SQLITE_ROW) {
        ComError e = database_error(db_, rc);
        sqlite3_reset(version_stmt_);
        throw e;
    }
    const int version = sqlite3_column_int(version_stmt_, 0);
    sqlite3_reset(version_stmt_);  // holds no read transaction between statements
    if (catalog_ && version == schema_version_) return;

    std::string schema;
    {
        StmtGuard g;
        rc =
            sqlite3_prepare_v2(db_, "select type, name, sql from sqlite_master order by type, name",
                               -1, &g.stmt, nullptr);
        if (rc != SQLITE_OK) throw database_error(db_, rc);
        while ((rc = sqlite3_step(g.stmt)) == SQLITE_ROW) {
            for (int i = 0; i < 3; ++i) {
                const unsigned char* t = sqlite3_column_text(g.stmt, i);
                schema += t ? reinterpret_cast<const char*>(t) : "";
                schema += '\x1f';
            }
            schema += '\x1e';
        }
        if (rc != SQLITE_DONE) throw database_error(db_, rc);
    }
    CatalogCache& cache = catalog_cache();
    {
        std::lock_guard lock(cache.mutex);
        auto it = cache.by_schema.find(schema);
        if (it != cache.by_schema.end()) {
            catalog_ = it->second;
            schema_version_ = version;
            return;
        }
    }
    auto catalog = std::make_shared<const dialect::Catalog>(read_catalog(db_));
    {
        std::lock_guard lock(cache.mutex);
        if (cache.by_schema.size() >= 32) cache.by_schema.clear();  // bounded; rarely more than one
        cache.by_schema.emplace(std::move(schema), catalog);
    }
    catalog_ = std::move(catalog);
    schema_version_ = version;
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

void SqliteSession::run_control(const char* sql) {
    drain_cursors();
    StmtGuard g;
    int rc = sqlite3_prepare_v2(db_, sql, -1, &g.stmt, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_step(g.stmt);
    if (rc != SQLITE_DONE && rc != SQLITE_OK) throw database_error(db_, rc);
}

bool SqliteSession::has_more_statements(const char* tail, const char* end) {
    // Whatever the engine would take as a statement after the first one, or text it cannot
    // read at all. Blanks, comments and a closing ';' prepare to nothing.
    if (!tail || tail >= end) return false;
    StmtGuard g;
    int rc = sqlite3_prepare_v2(db_, tail, static_cast<int>(end - tail), &g.stmt, nullptr);
    return rc != SQLITE_OK || g.stmt != nullptr;
}

std::unique_ptr<ado::driver::Cursor> SqliteSession::execute(std::string_view tsql,
                                                            const ado::driver::ExecOptions& options,
                                                            long* affected) {
    refresh_catalog();
    dialect::Translation tr;
    try {
        tr = dialect::translate_sqlite(tsql, *catalog_);
    } catch (const dialect::DialectError& e) {
        throw ComError(err::kDatabase, e.what());
    }
    if (options.read_only && tr.writes) throw read_only_refusal();

    StmtGuard g;
    const char* tail = nullptr;
    int rc =
        sqlite3_prepare_v2(db_, tr.sql.data(), static_cast<int>(tr.sql.size()), &g.stmt, &tail);
    if (rc != SQLITE_OK) throw database_error(db_, rc);
    if (!g.stmt) throw ComError(err::kDatabase, "the statement is empty");
    const char* end = tr.sql.data() + tr.sql.size();
    if (has_more_statements(tail, end))
        throw ComError(err::kDatabase,
                       "only one statement can run at a time; nothing was run. After the first "
                       "statement: " +
                           excerpt(std::string_view(tail, static_cast<std::size_t>(end - tail))));
    const bool writes = !sqlite3_stmt_readonly(g.stmt) || is_transaction_control(g.stmt);
    if (options.read_only && writes) throw read_only_refusal();
    if (writes) drain_cursors();

    const int ncol = sqlite3_column_count(g.stmt);
    if (ncol > 0 && !writes) {
        std::vector<ColumnInfo> columns(static_cast<std::size_t>(ncol));
        for (int i = 0; i < ncol; ++i) {
            const char* name = sqlite3_column_name(g.stmt, i);
            columns[static_cast<std::size_t>(i)].name = name ? name : "";
            columns[static_cast<std::size_t>(i)].type =
                declared_type(sqlite3_column_decltype(g.stmt, i));
        }
        auto cursor = std::make_unique<SqliteCursor>(this, g.release(), std::move(columns));
        live_.push_back(cursor.get());
        cursor->start();
        if (affected) *affected = -1;
        return cursor;
    }
    while ((rc = sqlite3_step(g.stmt)) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) throw database_error(db_, rc);
    if (affected) *affected = sqlite3_changes(db_);
    return nullptr;
}

std::unique_ptr<ado::driver::Cursor> SqliteSession::call(std::string_view procedure,
                                                         std::vector<ado::driver::ProcArg>& args) {
    ProcedureFn fn = lookup_procedure(procedure);
    if (!fn)
        throw ComError(err::kDatabase,
                       "could not find stored procedure '" + std::string(procedure) + "'");
    drain_cursors();  // a procedure may write
    fn(db_, args);
    return nullptr;
}

// ---- driver -------------------------------------------------------------------------------

ComError bad_option(const std::string& why) {
    return ComError(err::kConnection, why);
}

class SqliteDriver final : public ado::driver::Driver {
  public:
    std::string name() const override { return "sqlite"; }

    bool accepts(const ado::ConnectionString& cs) const override {
        const std::string provider = lower(cs.get("provider"));
        return provider == "sqlite" || provider == "sqlite3";
    }

    std::shared_ptr<ado::driver::Session> open(const ado::ConnectionString& cs) override {
        cs.require_known(
            {"provider", "data source", "synchronous", "busy timeout", "lock timeout"});
        const std::string path = cs.get("data source");
        if (path.empty()) throw bad_option("the connection string names no Data Source");

        const std::string sync = upper(cs.get("synchronous", "Full"));
        if (sync != "NORMAL" && sync != "FULL" && sync != "OFF")
            throw bad_option("Synchronous must be Normal, Full or Off, not '" +
                             cs.get("synchronous") + "'");
        int busy_ms = kDefaultBusyTimeoutMs;
        if (cs.has("busy timeout")) {
            const std::string v = cs.get("busy timeout");
            auto r = std::from_chars(v.data(), v.data() + v.size(), busy_ms);
            if (r.ec != std::errc() || r.ptr != v.data() + v.size() || busy_ms < 0)
                throw bad_option("Busy Timeout must be a number of milliseconds, not '" + v + "'");
        }
        if (cs.has("lock timeout")) {
            double seconds = 0;
            if (!Variant::parse_number(cs.get("lock timeout"), seconds) || seconds < 0)
                throw bad_option("Lock Timeout must be a number of seconds, not '" +
                                 cs.get("lock timeout") + "'");
        }

        // Never create a database here: a mistyped path must not become an empty shop.
        std::error_code ec;
        if (!std::filesystem::is_regular_file(path, ec))
            throw bad_option("the database file '" + path + "' does not exist");

        sqlite3* raw = nullptr;
        int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
        if (rc != SQLITE_OK) {
            std::string msg = raw ? sqlite3_errmsg(raw) : sqlite3_errstr(rc);
            sqlite3_close_v2(raw);
            throw bad_option("cannot open the database '" + path + "': " + msg);
        }
        auto session = std::make_shared<SqliteSession>(raw);  // closes the handle from here on
        sqlite3_extended_result_codes(raw, 1);
        sqlite3_busy_timeout(raw, busy_ms);
        const std::string pragmas = "PRAGMA journal_mode=WAL; PRAGMA synchronous=" + sync + ";";
        char* msg = nullptr;
        rc = sqlite3_exec(raw, pragmas.c_str(), nullptr, nullptr, &msg);
        if (rc != SQLITE_OK) {
            std::string text = msg ? msg : sqlite3_errstr(rc);
            sqlite3_free(msg);
            throw bad_option("cannot open the database '" + path + "': " + text);
        }
        rc = register_tsql_runtime(raw);
        if (rc != SQLITE_OK)
            throw bad_option("cannot register the runtime functions on '" + path +
                             "': " + sqlite3_errstr(rc));
        try {
            session->refresh_catalog();
        } catch (const ComError& e) {
            throw bad_option("cannot read the schema of '" + path + "': " + e.description());
        }
        return session;
    }
};

}  // namespace

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
