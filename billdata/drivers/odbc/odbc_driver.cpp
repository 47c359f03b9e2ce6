#include "billdata/drivers/odbc/odbc_driver.h"

#include <sql.h>
#include <sqlext.h>

#include <cctype>
#include <chrono>
#include <cstring>
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
#include "billdata/drivers/odbc/odbc_target.h"
#include "billdata/drivers/odbc/sqlserver_error.h"
#include "billdata/drivers/postgresql/catalog.h"
#include "billdata/drivers/postgresql/server_error.h"
#include "billdata/drivers/shape_binding.h"
#include "billdata/util/text.h"

namespace billdata::drivers::odbc {

namespace {

using ado::ComError;
using ado::Variant;
using ado::VarType;
using ado::driver::ColumnInfo;
namespace err = ado::err;
namespace pg = drivers::postgresql;

constexpr std::size_t kMaxCachedShapes = 512;
constexpr std::size_t kMaxVariantsPerShape = 8;
constexpr std::size_t kMaxIdlePerDatabase = 16;
constexpr int kVictimRetries = 5;

// ---- text: the ODBC calls take UTF-16, the library speaks UTF-8 ---------------------------

std::basic_string<SQLWCHAR> wide(std::string_view s) {
    std::basic_string<SQLWCHAR> out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        char32_t cp = 0xFFFD;
        std::size_t n = 1;
        if (c < 0x80) {
            cp = c;
        } else if ((c >> 5) == 6 && i + 1 < s.size()) {
            cp = ((c & 0x1Fu) << 6) | (static_cast<unsigned char>(s[i + 1]) & 0x3Fu);
            n = 2;
        } else if ((c >> 4) == 14 && i + 2 < s.size()) {
            cp = ((c & 0x0Fu) << 12) | ((static_cast<unsigned char>(s[i + 1]) & 0x3Fu) << 6) |
                 (static_cast<unsigned char>(s[i + 2]) & 0x3Fu);
            n = 3;
        } else if ((c >> 3) == 30 && i + 3 < s.size()) {
            cp = ((c & 0x07u) << 18) | ((static_cast<unsigned char>(s[i + 1]) & 0x3Fu) << 12) |
                 ((static_cast<unsigned char>(s[i + 2]) & 0x3Fu) << 6) |
                 (static_cast<unsigned char>(s[i + 3]) & 0x3Fu);
            n = 4;
        }
        i += n;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<SQLWCHAR>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<SQLWCHAR>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<SQLWCHAR>(cp));
        }
    }
    return out;
}

void append_utf8(std::string& out, const SQLWCHAR* w, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        char32_t cp = w[i];
        if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < n && w[i + 1] >= 0xDC00 && w[i + 1] < 0xE000)
            cp = 0x10000 + ((cp - 0xD800) << 10) + (w[++i] - 0xDC00);
        util::append_utf8(out, cp);
    }
}

// ---- diagnostics --------------------------------------------------------------------------

struct Diag {
    std::string state;
    int native = 0;
    std::string message;
};

// The first diagnostic record that says what went wrong (SQL Server follows an error with
// 3621, "the statement has been terminated").
Diag diagnostic(SQLSMALLINT type, SQLHANDLE handle) {
    Diag first;
    for (SQLSMALLINT i = 1;; ++i) {
        SQLWCHAR state[6] = {0}, text[2048];
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        const SQLRETURN rc = SQLGetDiagRecW(type, handle, i, state, &native, text, 2048, &length);
        if (!SQL_SUCCEEDED(rc)) break;
        Diag d;
        append_utf8(d.state, state, 5);
        d.native = static_cast<int>(native);
        append_utf8(d.message, text, static_cast<std::size_t>(std::min<SQLSMALLINT>(length, 2047)));
        if (i == 1) first = d;
        if (d.native != 3621 && d.state != "01000") return d;
    }
    return first;
}

// The server's own words: without the driver managers' and drivers' "[…]" prefixes, the
// "ERROR:" of a PostgreSQL message and what its ODBC driver adds after it.
std::string server_words(std::string message) {
    while (!message.empty() && message[0] == '[') {
        const auto close = message.find(']');
        if (close == std::string::npos) break;
        message.erase(0, close + 1);
    }
    for (const char* prefix : {"ERROR:  ", "ERROR: ", "FATAL:  "})
        if (message.rfind(prefix, 0) == 0) message.erase(0, std::strlen(prefix));
    if (auto tail = message.find(";\nError while"); tail != std::string::npos) message.erase(tail);
    while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
        message.pop_back();
    return message;
}

bool connection_lost(const Diag& d) {
    return d.state.rfind("08", 0) == 0 || d.state == "57P01" || d.state == "57P02" ||
           d.state == "57P03";
}

SQLHENV environment() {
    static SQLHENV env = [] {
        SQLHENV e = SQL_NULL_HENV;
        if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &e)))
            throw ComError(err::kConnection, "cannot start the ODBC driver manager");
        SQLSetEnvAttr(e, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
        return e;
    }();
    return env;
}

// Opens a physical connection; raises ComError (err::kConnection) naming where it tried.
SQLHDBC connect(const OdbcTarget& t) {
    SQLHDBC dbc = SQL_NULL_HDBC;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, environment(), &dbc)))
        throw ComError(err::kConnection, "cannot make an ODBC connection handle");
    SQLSetConnectAttrW(dbc, SQL_ATTR_LOGIN_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(t.connect_timeout_s)), 0);
    auto text = wide(t.odbc);
    const SQLRETURN rc =
        SQLDriverConnectW(dbc, nullptr, text.data(), static_cast<SQLSMALLINT>(text.size()), nullptr,
                          0, nullptr, SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(rc)) {
        const Diag d = diagnostic(SQL_HANDLE_DBC, dbc);
        SQLFreeHandle(SQL_HANDLE_DBC, dbc);
        throw ComError(err::kConnection,
                       "cannot connect through " + t.where + ": " +
                           (d.message.empty() ? d.state : server_words(d.message)));
    }
    return dbc;
}

// The translated text's parameters ($1, $2, … of the PostgreSQL emitter, a parameter written
// once per use) as ODBC markers: `order` receives, per marker, the number behind it (from 0).
std::string question_marks(const std::string& sql, std::vector<std::size_t>& order) {
    std::string out;
    out.reserve(sql.size());
    for (std::size_t i = 0; i < sql.size();) {
        const char c = sql[i];
        if (c == '\'' || c == '"') {
            const std::size_t end = sql.find(c, i + 1);
            const std::size_t stop = end == std::string::npos ? sql.size() : end + 1;
            out.append(sql, i, stop - i);
            i = stop;
            continue;
        }
        if (c == '$' && i + 1 < sql.size() &&
            std::isdigit(static_cast<unsigned char>(sql[i + 1]))) {
            std::size_t n = 0, j = i + 1;
            while (j < sql.size() && std::isdigit(static_cast<unsigned char>(sql[j])))
                n = n * 10 + static_cast<std::size_t>(sql[j++] - '0');
            order.push_back(n - 1);
            out += '?';
            i = j;
            continue;
        }
        out += c;
        ++i;
    }
    return out;
}

// ---- parameters ---------------------------------------------------------------------------

struct Param {
    SQLSMALLINT c_type = SQL_C_WCHAR;
    SQLSMALLINT sql_type = SQL_WVARCHAR;
    SQLULEN size = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT direction = SQL_PARAM_INPUT;
    std::int64_t integer = 0;
    double real = 0;
    SQL_TIMESTAMP_STRUCT date{};
    std::basic_string<SQLWCHAR> text;
    std::string digits_text;
    SQLLEN indicator = 0;

    void set_text(std::string_view s, bool unicode, std::size_t room = 0) {
        text = wide(s);
        c_type = SQL_C_WCHAR;
        sql_type = unicode ? SQL_WVARCHAR : SQL_VARCHAR;
        // One declared size for every value, so that the server keeps one plan.
        const std::size_t limit = unicode ? 4000 : 8000;
        size = std::max<SQLULEN>(text.size() <= limit ? limit : text.size(), 1);
        if (text.size() > limit) sql_type = unicode ? SQL_WLONGVARCHAR : SQL_LONGVARCHAR;
        indicator = static_cast<SQLLEN>(text.size() * sizeof(SQLWCHAR));
        text.resize(std::max(text.size(), room) + 1);
    }
    void set_null() {
        c_type = SQL_C_WCHAR;
        sql_type = SQL_WVARCHAR;
        size = 1;
        text.assign(1, 0);
        indicator = SQL_NULL_DATA;
    }
    SQLPOINTER buffer() {
        switch (c_type) {
            case SQL_C_SBIGINT:
                return &integer;
            case SQL_C_DOUBLE:
                return &real;
            case SQL_C_TYPE_TIMESTAMP:
                return &date;
            case SQL_C_CHAR:
                return digits_text.data();
            default:
                return text.data();
        }
    }
    SQLLEN buffer_length() const {
        if (c_type == SQL_C_WCHAR) return static_cast<SQLLEN>(text.size() * sizeof(SQLWCHAR));
        if (c_type == SQL_C_CHAR) return static_cast<SQLLEN>(digits_text.size() + 1);
        return 0;
    }
};

// A literal of a statement as the parameter that stands for it. SQL Server reads a parameter
// as its declared type, so each keeps the type the literal has: int or bigint, decimal with the
// literal's digits, float for an exponent, varchar or nvarchar.
Param literal_param(std::string_view token, const dialect::Literal& literal,
                    const dialect::LiteralValue& v, Dialect dialect) {
    Param p;
    if (dialect == Dialect::PostgreSql) {
        // Text of unknown type, which the server reads as its place needs.
        p.set_text(dialect::literal_text(v), false);
        return p;
    }
    switch (v.type) {
        case dialect::LiteralValue::Type::Integer:
            p.c_type = SQL_C_SBIGINT;
            p.integer = v.integer;
            p.sql_type =
                v.integer >= INT32_MIN && v.integer <= INT32_MAX ? SQL_INTEGER : SQL_BIGINT;
            p.indicator = 0;
            return p;
        case dialect::LiteralValue::Type::Real: {
            if (token.find_first_of("eE") != std::string_view::npos) {
                p.c_type = SQL_C_DOUBLE;
                p.sql_type = SQL_DOUBLE;
                p.real = v.real;
                return p;
            }
            p.c_type = SQL_C_CHAR;
            p.sql_type = SQL_DECIMAL;
            p.digits_text = std::string(token);
            if (!p.digits_text.empty() && p.digits_text[0] == '.') p.digits_text.insert(0, "0");
            const auto dot = p.digits_text.find('.');
            p.digits = static_cast<SQLSMALLINT>(
                dot == std::string::npos ? 0 : p.digits_text.size() - dot - 1);
            p.size = std::max<SQLULEN>(p.digits_text.size() - (dot == std::string::npos ? 0 : 1),
                                       static_cast<SQLULEN>(p.digits) + 1);
            p.indicator = static_cast<SQLLEN>(p.digits_text.size());
            return p;
        }
        case dialect::LiteralValue::Type::Text:
            p.set_text(v.text, literal.kind == dialect::Literal::Kind::NString);
            return p;
    }
    return p;
}

SQLRETURN bind_all(SQLHSTMT stmt, std::vector<Param>& params) {
    SQLFreeStmt(stmt, SQL_RESET_PARAMS);
    for (std::size_t i = 0; i < params.size(); ++i) {
        Param& p = params[i];
        const SQLRETURN rc = SQLBindParameter(stmt, static_cast<SQLUSMALLINT>(i + 1), p.direction,
                                              p.c_type, p.sql_type, p.size, p.digits, p.buffer(),
                                              p.buffer_length(), &p.indicator);
        if (!SQL_SUCCEEDED(rc)) return rc;
    }
    return SQL_SUCCESS;
}

// ---- physical connections -----------------------------------------------------------------

struct Statement {
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    explicit Statement(SQLHDBC dbc) { SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt); }
    ~Statement() {
        if (stmt) SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
};

// One statement shape prepared on the connection.
struct Prepared {
    std::unique_ptr<Statement> handle;
    std::string sql;
    ShapeBinding binding;
    std::vector<std::size_t> order;  // per marker, the bound literal (index into binding.bound)
    bool writes = false;
    bool counter = false;
    bool locks = false;
    long timeout = -1;  // the query timeout set on the handle
};
using PreparedPtr = std::shared_ptr<Prepared>;

struct Handle {
    SQLHDBC dbc = SQL_NULL_HDBC;
    std::string key;
    Dialect dialect = Dialect::SqlServer;
    std::shared_ptr<const dialect::Catalog> catalog;  // PostgreSQL dialect
    std::unordered_map<std::string, std::vector<PreparedPtr>> cache;
    std::map<std::string, std::string> key_columns;  // index → "Table.Col1,Col2"
    bool broken = false;
    ~Handle() {
        cache.clear();
        if (dbc) {
            SQLDisconnect(dbc);
            SQLFreeHandle(SQL_HANDLE_DBC, dbc);
        }
    }
};

IdlePool<Handle>& pool() {
    static IdlePool<Handle> p(kMaxIdlePerDatabase);
    return p;
}

CatalogCache& catalog_cache() {
    static CatalogCache c;
    return c;
}

// ---- reading rows -------------------------------------------------------------------------

VarType column_type(SQLSMALLINT type) {
    switch (type) {
        case SQL_BIT:
        case SQL_TINYINT:
        case SQL_SMALLINT:
        case SQL_INTEGER:
        case SQL_BIGINT:
            return VarType::Long;
        case SQL_REAL:
        case SQL_FLOAT:
        case SQL_DOUBLE:
        case SQL_DECIMAL:
        case SQL_NUMERIC:
            return VarType::Double;
        case SQL_TYPE_DATE:
        case SQL_TYPE_TIMESTAMP:
        case SQL_DATETIME:
            return VarType::Date;
        default:
            return VarType::String;
    }
}

// Reads column `col` (from 1) of the current row; false when the driver fails.
bool read_value(SQLHSTMT stmt, SQLUSMALLINT col, VarType type, Variant& out) {
    SQLLEN indicator = 0;
    switch (type) {
        case VarType::Long: {
            std::int64_t v = 0;
            if (!SQL_SUCCEEDED(SQLGetData(stmt, col, SQL_C_SBIGINT, &v, 0, &indicator)))
                return false;
            out = indicator == SQL_NULL_DATA ? Variant::null() : Variant(v);
            return true;
        }
        case VarType::Double: {
            double v = 0;
            if (!SQL_SUCCEEDED(SQLGetData(stmt, col, SQL_C_DOUBLE, &v, 0, &indicator)))
                return false;
            out = indicator == SQL_NULL_DATA ? Variant::null() : Variant(v);
            return true;
        }
        case VarType::Date: {
            SQL_TIMESTAMP_STRUCT t{};
            if (!SQL_SUCCEEDED(SQLGetData(stmt, col, SQL_C_TYPE_TIMESTAMP, &t, 0, &indicator)))
                return false;
            out = indicator == SQL_NULL_DATA
                      ? Variant::null()
                      : Variant(ado::DateTime(t.year, t.month, t.day, t.hour, t.minute, t.second));
            return true;
        }
        default:
            break;
    }
    std::string text;
    SQLWCHAR buffer[2048];
    for (;;) {
        const SQLRETURN rc = SQLGetData(stmt, col, SQL_C_WCHAR, buffer, sizeof buffer, &indicator);
        if (rc == SQL_NO_DATA) break;
        if (!SQL_SUCCEEDED(rc)) return false;
        if (indicator == SQL_NULL_DATA) {
            out = Variant::null();
            return true;
        }
        const std::size_t room = sizeof buffer / sizeof(SQLWCHAR) - 1;
        const std::size_t got =
            indicator == SQL_NO_TOTAL ||
                    static_cast<std::size_t>(indicator) / sizeof(SQLWCHAR) > room
                ? room
                : static_cast<std::size_t>(indicator) / sizeof(SQLWCHAR);
        append_utf8(text, buffer, got);
        if (rc == SQL_SUCCESS) break;
    }
    out.assign_text(text);
    return true;
}

// The rows of a query of the server's own SQL as texts, its $n parameters bound as text.
pg::Rows query_rows(SQLHDBC dbc, const char* sql, const std::vector<std::string>& values) {
    Statement s(dbc);
    std::vector<std::size_t> order;
    const std::string text = question_marks(sql, order);
    std::vector<Param> params(order.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        params[i].set_text(values.at(order[i]), true);
    auto w = wide(text);
    if (!SQL_SUCCEEDED(bind_all(s.stmt, params)) ||
        !SQL_SUCCEEDED(SQLExecDirectW(s.stmt, w.data(), static_cast<SQLINTEGER>(w.size())))) {
        const Diag d = diagnostic(SQL_HANDLE_STMT, s.stmt);
        throw ComError(err::kDatabase, server_words(d.message));
    }
    pg::Rows rows;
    SQLSMALLINT n = 0;
    SQLNumResultCols(s.stmt, &n);
    while (n > 0 && SQL_SUCCEEDED(SQLFetch(s.stmt))) {
        std::vector<std::string> row;
        for (SQLUSMALLINT c = 1; c <= static_cast<SQLUSMALLINT>(n); ++c) {
            Variant v;
            read_value(s.stmt, c, VarType::String, v);
            row.push_back(v.to_string());
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

class OdbcSession;

// Block fetches: at most this many rows, and about this many bytes of bound buffers, per
// fetch. A statement whose row is too wide for kMinBlockRows in the budget reads a row at a time.
constexpr std::size_t kMaxBlockRows = 256;
constexpr std::size_t kMinBlockRows = 8;
constexpr std::size_t kBlockBytes = std::size_t{1} << 20;
// A text column of a declared size up to this many characters gets a buffer that holds any of
// its values; a longer or unbounded one gets kLongTextChars and its longer values are read again
// on their own.
constexpr SQLULEN kMaxBoundChars = 4000;
constexpr SQLULEN kLongTextChars = 255;

// One column's values for a block of rows, bound column-wise.
struct BoundColumn {
    SQLSMALLINT c_type = SQL_C_WCHAR;
    SQLLEN width = 0;  // bytes per row
    std::vector<std::uint64_t> data;
    std::vector<SQLLEN> indicators;
    const unsigned char* at(std::size_t row) const {
        return reinterpret_cast<const unsigned char*>(data.data()) +
               row * static_cast<std::size_t>(width);
    }
};

// A live result: rows fetched from the ODBC driver as the caller reads them, a block of rows
// per fetch into bound buffers, or a row at a time where blocks cannot be bound.
class OdbcCursor final : public ado::driver::Cursor {
  public:
    // `dbc` null: a row at a time (a result read for its first row only).
    OdbcCursor(OdbcSession* session, SQLHSTMT stmt, std::unique_ptr<Statement> owned,
               SQLHDBC dbc = SQL_NULL_HDBC);
    ~OdbcCursor() override { close(); }
    const std::vector<ColumnInfo>& columns() const override { return columns_; }
    bool next(std::vector<Variant>& row) override;
    // Reads the rest into memory, so that the connection can run another statement.
    void drain();

  private:
    void close();
    void bind_block(SQLHDBC dbc, const std::vector<SQLULEN>& sizes);
    void unbind();
    bool read_bound(std::size_t index, std::vector<Variant>& row);
    [[noreturn]] void failed();
    OdbcSession* session_;
    SQLHSTMT stmt_;
    std::unique_ptr<Statement> owned_;  // a statement of its own, not a prepared shape's
    std::vector<ColumnInfo> columns_;
    bool open_ = true;
    std::deque<std::vector<Variant>> buffer_;
    // Block mode (block_rows_ > 0): the rows the last fetch brought and the next one to hand out.
    std::size_t block_rows_ = 0;
    std::vector<BoundColumn> bound_;
    std::vector<SQLUSMALLINT> status_;
    SQLULEN fetched_ = 0;
    std::size_t at_ = 0;
    bool reread_ = false;  // the driver reads a value again from a row of the block
};

class OdbcSession final : public ado::driver::Session {
  public:
    OdbcSession(std::unique_ptr<Handle> handle, OdbcTarget target, bool cache, bool pooled,
                bool reused)
        : h_(std::move(handle)),
          target_(std::move(target)),
          use_cache_(cache),
          pooled_(pooled),
          reused_(reused) {}
    ~OdbcSession() override {
        try {
            finish_cursor();
        } catch (const ComError&) {
            h_->broken = true;
        }
        if (cursor_) h_->broken = true;
        // Back in the pool clean: no transaction left open.
        if (tx_) {
            if (!SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, h_->dbc, SQL_ROLLBACK)))
                h_->broken = true;
            autocommit(true);
        }
        if (pooled_ && !h_->broken) pool().give_back(std::move(h_));
    }

    std::string_view engine() const override {
        return h_->dialect == Dialect::SqlServer ? "sqlserver" : "postgresql";
    }
    std::unique_ptr<ado::driver::Cursor> execute(std::string_view tsql,
                                                 const ado::driver::ExecOptions& options,
                                                 long* affected) override;
    void begin() override {
        if (tx_) throw ComError(err::kDatabase, "a transaction is already open");
        finish_cursor();
        if (!autocommit(false)) fail_connection();
        tx_ = true;
    }
    void commit() override {
        finish_cursor();
        if (!tx_)
            throw ComError(err::kDatabase,
                           "the transaction is no longer open: the server ended it");
        const SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, h_->dbc, SQL_COMMIT);
        if (!SQL_SUCCEEDED(rc)) {
            const Diag d = diagnostic(SQL_HANDLE_DBC, h_->dbc);
            SQLEndTran(SQL_HANDLE_DBC, h_->dbc, SQL_ROLLBACK);
            tx_ = false;
            autocommit(true);
            throw error_of(d, false);
        }
        tx_ = false;
        autocommit(true);
    }
    void rollback() override {
        finish_cursor();
        if (!tx_) return;
        tx_ = false;
        const SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, h_->dbc, SQL_ROLLBACK);
        autocommit(true);
        if (!SQL_SUCCEEDED(rc)) throw error_of(diagnostic(SQL_HANDLE_DBC, h_->dbc), false);
    }
    bool in_transaction() const override { return tx_; }
    std::unique_ptr<ado::driver::Cursor> call(std::string_view procedure,
                                              std::vector<ado::driver::ProcArg>& args,
                                              const ado::driver::ExecOptions& options) override;

    void cursor_gone(OdbcCursor* c) {
        if (cursor_ == c) cursor_ = nullptr;
    }
    // The error of a failed call on `stmt`: classified, the transaction's state settled.
    [[noreturn]] void fail(SQLHSTMT stmt);
    SQLHDBC dbc() const { return h_->dbc; }

  private:
    void finish_cursor() {
        if (cursor_) cursor_->drain();
    }
    bool autocommit(bool on) {
        return SQL_SUCCEEDED(SQLSetConnectAttrW(
            h_->dbc, SQL_ATTR_AUTOCOMMIT,
            reinterpret_cast<SQLPOINTER>(on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF), 0));
    }
    [[noreturn]] void fail_connection() {
        const Diag d = diagnostic(SQL_HANDLE_DBC, h_->dbc);
        h_->broken = true;
        throw error_of(d, false);
    }
    ComError error_of(const Diag& d, bool transaction_open);
    bool victim(const ComError& e) const {
        return h_->dialect == Dialect::SqlServer ? e.native_code() == 1205
                                                 : pg::transaction_lost(e.native_code());
    }
    PreparedPtr lookup(std::string_view tsql, const dialect::Shape& shape);
    PreparedPtr make_prepared(std::string_view tsql, const dialect::Shape& shape,
                              const ado::driver::ExecOptions& options);
    std::unique_ptr<ado::driver::Cursor> run(SQLHSTMT stmt, std::unique_ptr<Statement> owned,
                                             const std::string* direct, std::vector<Param>& params,
                                             long timeout, long* affected);
    std::unique_ptr<ado::driver::Cursor> run_once(std::string_view tsql,
                                                  const ado::driver::ExecOptions& options,
                                                  long* affected);
    void lock_counter(std::string_view tsql);
    std::string violated_key(const std::string& message);
    pg::Rows query(const char* sql, const std::vector<std::string>& params);
    void reconnect();

    std::unique_ptr<Handle> h_;
    OdbcTarget target_;
    bool use_cache_;
    bool pooled_;
    bool reused_;  // taken from the pool and not used yet: it may have lost its server
    bool tx_ = false;
    OdbcCursor* cursor_ = nullptr;
};

// ---- cursor -------------------------------------------------------------------------------

OdbcCursor::OdbcCursor(OdbcSession* session, SQLHSTMT stmt, std::unique_ptr<Statement> owned,
                       SQLHDBC dbc)
    : session_(session), stmt_(stmt), owned_(std::move(owned)) {
    SQLSMALLINT n = 0;
    SQLNumResultCols(stmt_, &n);
    columns_.resize(static_cast<std::size_t>(n));
    std::vector<SQLULEN> sizes(columns_.size());
    for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(n); ++i) {
        SQLWCHAR name[256];
        SQLSMALLINT length = 0, type = 0, digits = 0, nullable = 0;
        SQLULEN size = 0;
        SQLDescribeColW(stmt_, i, name, 256, &length, &type, &size, &digits, &nullable);
        ColumnInfo& c = columns_[i - 1];
        append_utf8(c.name, name, static_cast<std::size_t>(std::min<SQLSMALLINT>(length, 255)));
        c.type = column_type(type);
        const bool long_type =
            type == SQL_LONGVARCHAR || type == SQL_WLONGVARCHAR || type == SQL_LONGVARBINARY;
        // A text's size in characters; binary reads as two hexadecimal digits a byte, and
        // a few characters spare for the types whose text outgrows their declared size.
        const bool binary = type == SQL_BINARY || type == SQL_VARBINARY;
        sizes[i - 1] = long_type || size == 0 ? 0 : std::max<SQLULEN>(size * (binary ? 2 : 1), 32);
    }
    if (dbc != SQL_NULL_HDBC && n > 0) bind_block(dbc, sizes);
}

// Binds a buffer per column for a block of rows, or leaves the cursor reading a row at a time.
// A text longer than its buffer (an unbounded column, or a driver that under-states a size) is
// read again from its row with SQLSetPos and SQLGetData where the driver allows that within a
// block; where it does not, only statements whose texts all fit their buffers go in blocks.
void OdbcCursor::bind_block(SQLHDBC dbc, const std::vector<SQLULEN>& sizes) {
    SQLUINTEGER extensions = 0;
    SQLGetInfoW(dbc, SQL_GETDATA_EXTENSIONS, &extensions, sizeof extensions, nullptr);
    reread_ = (extensions & SQL_GD_BLOCK) != 0;
    std::vector<BoundColumn> bound(columns_.size());
    std::size_t row_bytes = sizeof(SQLUSMALLINT);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        BoundColumn& b = bound[i];
        switch (columns_[i].type) {
            case VarType::Long:
                b.c_type = SQL_C_SBIGINT;
                b.width = sizeof(std::int64_t);
                break;
            case VarType::Double:
                b.c_type = SQL_C_DOUBLE;
                b.width = sizeof(double);
                break;
            case VarType::Date:
                b.c_type = SQL_C_TYPE_TIMESTAMP;
                b.width = sizeof(SQL_TIMESTAMP_STRUCT);
                break;
            default: {
                SQLULEN chars = sizes[i];
                if (chars == 0 || chars > kMaxBoundChars) {
                    if (!reread_) return;
                    chars = kLongTextChars;
                }
                b.c_type = SQL_C_WCHAR;
                // Whole 8-byte units, so that every column's rows stay aligned.
                b.width = static_cast<SQLLEN>(((chars + 1) * sizeof(SQLWCHAR) + 7) / 8 * 8);
            }
        }
        row_bytes += static_cast<std::size_t>(b.width) + sizeof(SQLLEN);
    }
    const std::size_t rows = std::min(kMaxBlockRows, kBlockBytes / row_bytes);
    if (rows < kMinBlockRows) return;
    for (std::size_t i = 0; i < bound.size(); ++i) {
        BoundColumn& b = bound[i];
        b.data.resize(rows * static_cast<std::size_t>(b.width) / 8);
        b.indicators.resize(rows);
        if (!SQL_SUCCEEDED(SQLBindCol(stmt_, static_cast<SQLUSMALLINT>(i + 1), b.c_type,
                                      b.data.data(), b.width, b.indicators.data()))) {
            SQLFreeStmt(stmt_, SQL_UNBIND);
            return;
        }
    }
    status_.resize(rows);
    if (!SQL_SUCCEEDED(SQLSetStmtAttrW(stmt_, SQL_ATTR_ROW_BIND_TYPE,
                                       reinterpret_cast<SQLPOINTER>(SQL_BIND_BY_COLUMN), 0)) ||
        !SQL_SUCCEEDED(SQLSetStmtAttrW(stmt_, SQL_ATTR_ROW_ARRAY_SIZE,
                                       reinterpret_cast<SQLPOINTER>(rows), 0)) ||
        !SQL_SUCCEEDED(SQLSetStmtAttrW(stmt_, SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0)) ||
        !SQL_SUCCEEDED(SQLSetStmtAttrW(stmt_, SQL_ATTR_ROW_STATUS_PTR, status_.data(), 0))) {
        block_rows_ = rows;  // whatever was set is undone
        unbind();
        return;
    }
    bound_ = std::move(bound);
    block_rows_ = rows;
}

// The statement handle as a row-at-a-time cursor finds it: a prepared one serves again.
void OdbcCursor::unbind() {
    if (block_rows_ == 0) return;
    block_rows_ = 0;
    SQLFreeStmt(stmt_, SQL_UNBIND);
    SQLSetStmtAttrW(stmt_, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(1), 0);
    SQLSetStmtAttrW(stmt_, SQL_ATTR_ROWS_FETCHED_PTR, nullptr, 0);
    SQLSetStmtAttrW(stmt_, SQL_ATTR_ROW_STATUS_PTR, nullptr, 0);
}

void OdbcCursor::close() {
    if (!open_) return;
    open_ = false;
    SQLFreeStmt(stmt_, SQL_CLOSE);
    unbind();
    owned_.reset();
    if (session_) session_->cursor_gone(this);
    session_ = nullptr;
}

void OdbcCursor::failed() {
    OdbcSession* s = session_;
    session_ = nullptr;
    if (s) s->cursor_gone(this);
    try {
        if (s) s->fail(stmt_);
    } catch (...) {
        open_ = false;
        SQLFreeStmt(stmt_, SQL_CLOSE);
        unbind();
        owned_.reset();
        throw;
    }
    open_ = false;
    SQLFreeStmt(stmt_, SQL_CLOSE);
    unbind();
    owned_.reset();
    throw ComError(err::kDatabase, "the ODBC driver failed to read a row");
}

// Row `index` of the block; false when the driver fails to read a value again.
bool OdbcCursor::read_bound(std::size_t index, std::vector<Variant>& row) {
    row.resize(columns_.size());
    bool positioned = false;
    for (std::size_t i = 0; i < bound_.size(); ++i) {
        const BoundColumn& b = bound_[i];
        const SQLLEN indicator = b.indicators[index];
        Variant& out = row[i];
        if (indicator == SQL_NULL_DATA) {
            out = Variant::null();
            continue;
        }
        const unsigned char* p = b.at(index);
        switch (b.c_type) {
            case SQL_C_SBIGINT: {
                std::int64_t v = 0;
                std::memcpy(&v, p, sizeof v);
                out = Variant(v);
                continue;
            }
            case SQL_C_DOUBLE: {
                double v = 0;
                std::memcpy(&v, p, sizeof v);
                out = Variant(v);
                continue;
            }
            case SQL_C_TYPE_TIMESTAMP: {
                SQL_TIMESTAMP_STRUCT t{};
                std::memcpy(&t, p, sizeof t);
                out = Variant(ado::DateTime(t.year, t.month, t.day, t.hour, t.minute, t.second));
                continue;
            }
            default:
                break;
        }
        const auto room = static_cast<SQLLEN>(b.width - sizeof(SQLWCHAR));
        if (indicator == SQL_NO_TOTAL || indicator > room) {
            // Longer than its buffer: the whole value from the driver.
            if (!reread_) return false;
            if (!positioned &&
                !SQL_SUCCEEDED(SQLSetPos(stmt_, static_cast<SQLSETPOSIROW>(index + 1), SQL_POSITION,
                                         SQL_LOCK_NO_CHANGE)))
                return false;
            positioned = true;
            if (!read_value(stmt_, static_cast<SQLUSMALLINT>(i + 1), VarType::String, out))
                return false;
            continue;
        }
        std::string text;
        append_utf8(text, reinterpret_cast<const SQLWCHAR*>(p),
                    static_cast<std::size_t>(indicator) / sizeof(SQLWCHAR));
        out.assign_text(text);
    }
    return true;
}

bool OdbcCursor::next(std::vector<Variant>& row) {
    if (!buffer_.empty()) {
        row = std::move(buffer_.front());
        buffer_.pop_front();
        return true;
    }
    if (!open_) return false;
    if (block_rows_ > 0) {
        while (at_ >= fetched_) {
            const SQLRETURN rc = SQLFetch(stmt_);
            if (rc == SQL_NO_DATA) {
                close();
                return false;
            }
            if (!SQL_SUCCEEDED(rc)) failed();
            at_ = 0;
            if (fetched_ == 0) {
                close();
                return false;
            }
        }
        const std::size_t index = at_++;
        if (status_[index] == SQL_ROW_ERROR || !read_bound(index, row)) failed();
        return true;
    }
    const SQLRETURN rc = SQLFetch(stmt_);
    if (rc == SQL_NO_DATA) {
        close();
        return false;
    }
    row.resize(columns_.size());
    bool ok = SQL_SUCCEEDED(rc);
    for (std::size_t i = 0; ok && i < columns_.size(); ++i)
        ok = read_value(stmt_, static_cast<SQLUSMALLINT>(i + 1), columns_[i].type, row[i]);
    if (!ok) failed();
    return true;
}

void OdbcCursor::drain() {
    std::vector<Variant> row;
    std::deque<std::vector<Variant>> rest;
    while (open_ && next(row))
        rest.push_back(std::move(row));
    for (auto& r : rest)
        buffer_.push_back(std::move(r));
}

// ---- session ------------------------------------------------------------------------------

ComError OdbcSession::error_of(const Diag& d, bool transaction_open) {
    if (connection_lost(d)) {
        h_->broken = true;
        return pg::server_error(
            "08006", "the connection to the database server was lost: " + server_words(d.message),
            false);
    }
    if (d.state == "HYT00" || d.state == "HYT01" || d.state == "HY008" || d.state == "57014")
        return ado::driver::timeout_error(d.native, transaction_open);
    if (h_->dialect == Dialect::SqlServer)
        return sqlserver_error(
            d.native, server_words(d.message), transaction_open,
            d.native == 2627 || d.native == 2601 ? violated_key(d.message) : std::string());
    return pg::server_error(d.state, server_words(d.message), transaction_open,
                            d.state == "23505" ? violated_key(d.message) : std::string());
}

void OdbcSession::fail(SQLHSTMT stmt) {
    Diag d = diagnostic(SQL_HANDLE_STMT, stmt);
    // Drivers tell a connection that died under a statement by its state, or only by this.
    SQLUINTEGER dead = SQL_CD_FALSE;
    if (!connection_lost(d) &&
        SQL_SUCCEEDED(SQLGetConnectAttrW(h_->dbc, SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr)) &&
        dead == SQL_CD_TRUE)
        d.state = "08S01";
    SQLFreeStmt(stmt, SQL_CLOSE);
    bool open = tx_;
    if (tx_ && !connection_lost(d)) {
        bool gone = false;
        if (h_->dialect == Dialect::SqlServer) {
            // The server may have rolled the transaction back (a deadlock victim, some severe
            // errors), or left it uncommittable: then it is over for this operation.
            try {
                const pg::Rows state = query("SELECT XACT_STATE()", {});
                gone = state.empty() || state[0][0] != "1";
            } catch (const ComError&) {
                gone = true;
            }
        } else {
            gone = pg::transaction_lost(d.state);
        }
        if (gone) {
            SQLEndTran(SQL_HANDLE_DBC, h_->dbc, SQL_ROLLBACK);
            autocommit(true);
            tx_ = false;
            open = false;
        }
    }
    if (connection_lost(d)) tx_ = false;
    throw error_of(d, open);
}

pg::Rows OdbcSession::query(const char* sql, const std::vector<std::string>& values) {
    return query_rows(h_->dbc, sql, values);
}

std::string OdbcSession::violated_key(const std::string& message) {
    std::vector<std::string> names;
    if (h_->dialect == Dialect::SqlServer) {
        names = quoted_names(message);
    } else {
        // The constraint the message names, in double quotes.
        const auto open = message.find('"');
        const auto close = open == std::string::npos ? open : message.find('"', open + 1);
        if (close != std::string::npos) names.push_back(message.substr(open + 1, close - open - 1));
    }
    for (const std::string& name : names) {
        if (name.find('.') != std::string::npos) continue;  // the table, "dbo.ICStockBill"
        auto known = h_->key_columns.find(name);
        if (known != h_->key_columns.end()) return known->second;
        std::string key;
        try {
            if (h_->dialect == Dialect::PostgreSql) {
                key = pg::index_key(
                    [this](const char* sql, const std::vector<std::string>& p) {
                        return query(sql, p);
                    },
                    name, *h_->catalog);
            } else {
                const pg::Rows rows = query(
                    "SELECT OBJECT_NAME(i.object_id), c.name FROM sys.indexes i "
                    "JOIN sys.index_columns ic ON ic.object_id = i.object_id AND "
                    "ic.index_id = i.index_id JOIN sys.columns c ON c.object_id = ic.object_id "
                    "AND c.column_id = ic.column_id WHERE i.name = $1 AND "
                    "ic.is_included_column = 0 ORDER BY ic.key_ordinal",
                    {name});
                for (std::size_t i = 0; i < rows.size(); ++i)
                    key += (i ? "," : rows[i][0] + ".") + rows[i][1];
            }
        } catch (const ComError&) {
            continue;
        }
        if (key.empty()) continue;
        h_->key_columns[name] = key;
        return key;
    }
    return names.empty() ? std::string() : names.front();
}

PreparedPtr OdbcSession::lookup(std::string_view tsql, const dialect::Shape& shape) {
    auto it = h_->cache.find(shape.key);
    if (it == h_->cache.end()) return nullptr;
    for (const PreparedPtr& c : it->second)
        if (!(c->counter && c->locks != tx_) && c->binding.fits(tsql, shape)) return c;
    return nullptr;
}

// The hint that makes a counter read hold what it read, and the gap where its key would be
// when it has no row yet, until the transaction ends.
constexpr std::string_view kCounterHint = " WITH (UPDLOCK, ROWLOCK, HOLDLOCK)";

PreparedPtr OdbcSession::make_prepared(std::string_view tsql, const dialect::Shape& shape,
                                       const ado::driver::ExecOptions& options) {
    auto entry = std::make_shared<Prepared>();
    std::vector<std::size_t> parameters;
    try {
        if (h_->dialect == Dialect::SqlServer) {
            const dialect::Passthrough p = dialect::inspect_statement(tsql);
            if (options.read_only && p.writes) throw ado::driver::read_only_refusal();
            entry->writes = p.writes;
            entry->counter = is_counter_table(p.lockable_table);
            entry->locks = tx_ && entry->counter && p.lock_hint_at != std::string::npos;
            parameters = p.parameters;
            // The text as written, its bound literals as markers, the hint after the table.
            std::size_t copied = 0, k = 0;
            for (std::size_t offset : parameters) {
                const auto at =
                    std::find_if(shape.literals.begin(), shape.literals.end(),
                                 [&](const dialect::Literal& l) { return l.offset == offset; });
                if (entry->locks && p.lock_hint_at >= copied && p.lock_hint_at <= offset) {
                    entry->sql.append(tsql.substr(copied, p.lock_hint_at - copied));
                    entry->sql += kCounterHint;
                    copied = p.lock_hint_at;
                }
                entry->sql.append(tsql.substr(copied, offset - copied));
                entry->sql += '?';
                copied = offset + at->length;
                entry->order.push_back(k++);
            }
            if (entry->locks && p.lock_hint_at >= copied) {
                entry->sql.append(tsql.substr(copied, p.lock_hint_at - copied));
                entry->sql += kCounterHint;
                copied = p.lock_hint_at;
            }
            entry->sql.append(tsql.substr(copied));
        } else {
            dialect::TranslateOptions to;
            to.parameterise = true;
            dialect::Translation tr = dialect::translate_postgresql(tsql, *h_->catalog, to);
            if (options.read_only && tr.writes) throw ado::driver::read_only_refusal();
            entry->writes = tr.writes;
            entry->counter = is_counter_table(tr.lockable_table);
            entry->locks = tx_ && entry->counter;
            if (entry->locks) tr.sql += " FOR UPDATE";
            entry->sql = question_marks(tr.sql, entry->order);
            parameters = tr.parameters;
        }
    } catch (const dialect::DialectError& e) {
        throw ado::driver::translation_refusal(e.what(), e.server_number(), tx_);
    }
    entry->binding = ShapeBinding::of(tsql, shape, parameters);
    return entry;
}

void OdbcSession::lock_counter(std::string_view tsql) {
    // A transaction-scoped lock keyed on the statement's text (which names the counter's key):
    // FOR UPDATE alone locks nothing when the key has no row yet.
    Statement s(h_->dbc);
    std::vector<Param> params(1);
    params[0].set_text(tsql, false);
    static const auto sql = wide("SELECT pg_advisory_xact_lock(hashtextextended(?, 0))");
    auto text = sql;
    if (!SQL_SUCCEEDED(bind_all(s.stmt, params)) ||
        !SQL_SUCCEEDED(SQLExecDirectW(s.stmt, text.data(), static_cast<SQLINTEGER>(text.size()))))
        fail(s.stmt);
}

std::unique_ptr<ado::driver::Cursor> OdbcSession::run(SQLHSTMT stmt,
                                                      std::unique_ptr<Statement> owned,
                                                      const std::string* direct,
                                                      std::vector<Param>& params, long timeout,
                                                      long* affected) {
    SQLSetStmtAttrW(stmt, SQL_ATTR_QUERY_TIMEOUT,
                    reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(timeout)), 0);
    SQLRETURN rc = bind_all(stmt, params);
    if (SQL_SUCCEEDED(rc)) {
        if (direct) {
            auto w = wide(*direct);
            rc = SQLExecDirectW(stmt, w.data(), static_cast<SQLINTEGER>(w.size()));
        } else {
            rc = SQLExecute(stmt);
        }
    }
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA) fail(stmt);
    reused_ = false;
    SQLSMALLINT columns = 0;
    if (rc != SQL_NO_DATA) SQLNumResultCols(stmt, &columns);
    if (columns > 0) {
        if (affected) *affected = -1;
        auto cursor = std::make_unique<OdbcCursor>(this, stmt, std::move(owned), h_->dbc);
        cursor_ = cursor.get();
        return cursor;
    }
    if (affected) {
        SQLLEN n = 0;
        *affected = rc == SQL_NO_DATA || !SQL_SUCCEEDED(SQLRowCount(stmt, &n)) || n < 0
                        ? 0
                        : static_cast<long>(n);
    }
    // What triggers and the like sent after the statement's own count.
    while (rc != SQL_NO_DATA && SQL_SUCCEEDED(rc = SQLMoreResults(stmt))) {
    }
    SQLFreeStmt(stmt, SQL_CLOSE);
    return nullptr;
}

std::unique_ptr<ado::driver::Cursor> OdbcSession::run_once(std::string_view tsql,
                                                           const ado::driver::ExecOptions& options,
                                                           long* affected) {
    if (use_cache_) {
        dialect::Shape shape;
        try {
            shape = dialect::statement_shape(tsql);
        } catch (const dialect::DialectError& e) {
            throw ado::driver::translation_refusal(e.what(), e.server_number(), tx_);
        }
        PreparedPtr entry = lookup(tsql, shape);
        if (!entry) {
            entry = make_prepared(tsql, shape, options);
            entry->handle = std::make_unique<Statement>(h_->dbc);
            auto w = wide(entry->sql);
            if (!SQL_SUCCEEDED(
                    SQLPrepareW(entry->handle->stmt, w.data(), static_cast<SQLINTEGER>(w.size()))))
                fail(entry->handle->stmt);
            if (h_->cache.size() >= kMaxCachedShapes) h_->cache.clear();
            auto& variants = h_->cache[shape.key];
            if (variants.size() >= kMaxVariantsPerShape) variants.erase(variants.begin());
            variants.push_back(entry);
        }
        if (options.read_only && entry->writes) throw ado::driver::read_only_refusal();
        std::vector<Param> params;
        params.reserve(entry->order.size());
        dialect::LiteralValue v;
        bool bindable = true;
        for (std::size_t k : entry->order) {
            const dialect::Literal& l = shape.literals[entry->binding.bound.at(k)];
            const std::string_view token = tsql.substr(l.offset, l.length);
            if (!dialect::literal_value(token, v)) {
                bindable = false;
                break;
            }
            params.push_back(literal_param(token, l, v, h_->dialect));
        }
        if (bindable) {
            if (entry->locks && h_->dialect == Dialect::PostgreSql) lock_counter(tsql);
            return run(entry->handle->stmt, nullptr, nullptr, params, options.timeout_seconds,
                       affected);
        }
        // A literal the server reads its own way: the statement with its literals inline.
    }
    std::string sql;
    try {
        if (h_->dialect == Dialect::SqlServer) {
            const dialect::Passthrough p = dialect::inspect_statement(tsql);
            if (options.read_only && p.writes) throw ado::driver::read_only_refusal();
            sql = std::string(tsql);
            if (tx_ && is_counter_table(p.lockable_table) && p.lock_hint_at != std::string::npos)
                sql.insert(p.lock_hint_at, kCounterHint);
        } else {
            dialect::Translation tr = dialect::translate_postgresql(tsql, *h_->catalog);
            if (options.read_only && tr.writes) throw ado::driver::read_only_refusal();
            sql = std::move(tr.sql);
            if (tx_ && is_counter_table(tr.lockable_table)) {
                sql += " FOR UPDATE";
                lock_counter(tsql);
            }
        }
    } catch (const dialect::DialectError& e) {
        throw ado::driver::translation_refusal(e.what(), e.server_number(), tx_);
    }
    auto owned = std::make_unique<Statement>(h_->dbc);
    SQLHSTMT stmt = owned->stmt;
    std::vector<Param> none;
    return run(stmt, std::move(owned), &sql, none, options.timeout_seconds, affected);
}

void OdbcSession::reconnect() {
    auto fresh = std::make_unique<Handle>();
    fresh->dbc = connect(target_);
    fresh->key = h_->key;
    fresh->dialect = h_->dialect;
    fresh->catalog = h_->catalog;
    h_->broken = true;
    h_ = std::move(fresh);
}

std::unique_ptr<ado::driver::Cursor> OdbcSession::execute(std::string_view tsql,
                                                          const ado::driver::ExecOptions& options,
                                                          long* affected) {
    finish_cursor();
    for (int attempt = 0;; ++attempt) {
        const bool alone = !tx_;
        const bool reused = reused_;
        try {
            return run_once(tsql, options, affected);
        } catch (const ComError& e) {
            // A pooled connection whose server went away while it waited: the operation's
            // first statement goes to a new connection.
            if (reused && alone && h_->broken && attempt == 0) {
                reused_ = false;
                reconnect();
                continue;
            }
            // A statement in autocommit chosen as a deadlock victim was undone alone: it runs
            // again, as the embedded engine waits out a busy database.
            if (!alone || attempt >= kVictimRetries || !victim(e)) throw;
            std::this_thread::sleep_for(std::chrono::milliseconds(5 << attempt));
        }
    }
}

std::unique_ptr<ado::driver::Cursor> OdbcSession::call(std::string_view procedure,
                                                       std::vector<ado::driver::ProcArg>& args,
                                                       const ado::driver::ExecOptions& options) {
    finish_cursor();
    for (char c : procedure)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
            throw ComError(err::kDatabase,
                           "could not find stored procedure '" + util::excerpt(procedure) + "'");
    std::vector<Param> params;
    std::vector<std::size_t> written;  // per parameter, its argument
    params.reserve(args.size());
    std::string sql;
    const bool sqlserver = h_->dialect == Dialect::SqlServer;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        // PostgreSQL: a function with the in and in/out arguments, its outputs as columns.
        if (!sqlserver && a.direction != 1 && a.direction != 3) continue;
        if (sqlserver && a.direction == 4) continue;
        Param p;
        const bool null = a.value.is_null() || a.value.is_empty();
        const VarType type = a.type != VarType::Empty ? a.type : a.value.type();
        if (!sqlserver) {
            if (null)
                p.set_null();
            else
                p.set_text(a.value.to_string(), false);
        } else if (type == VarType::Long || type == VarType::Integer || type == VarType::Boolean) {
            p.c_type = SQL_C_SBIGINT;
            p.sql_type = SQL_INTEGER;
            p.integer = null ? 0 : static_cast<std::int64_t>(a.value.to_double());
        } else if (type == VarType::Double) {
            p.c_type = SQL_C_DOUBLE;
            p.sql_type = SQL_DOUBLE;
            p.real = null ? 0 : a.value.to_double();
        } else if (type == VarType::Date) {
            const ado::DateTime d = null ? ado::DateTime() : a.value.to_date();
            p.c_type = SQL_C_TYPE_TIMESTAMP;
            p.sql_type = SQL_TYPE_TIMESTAMP;
            p.size = 23;
            p.digits = 3;
            p.date.year = static_cast<SQLSMALLINT>(d.year());
            p.date.month = static_cast<SQLUSMALLINT>(d.month());
            p.date.day = static_cast<SQLUSMALLINT>(d.day());
            p.date.hour = static_cast<SQLUSMALLINT>(d.hour());
            p.date.minute = static_cast<SQLUSMALLINT>(d.minute());
            p.date.second = static_cast<SQLUSMALLINT>(d.second());
        } else {
            p.set_text(null ? std::string() : a.value.to_string(), true, 4000);
        }
        if (sqlserver) {
            p.direction = a.direction == 1   ? SQL_PARAM_INPUT
                          : a.direction == 2 ? SQL_PARAM_OUTPUT
                                             : SQL_PARAM_INPUT_OUTPUT;
            if (null) p.indicator = SQL_NULL_DATA;
        }
        params.push_back(std::move(p));
        written.push_back(i);
    }
    std::string markers;
    for (std::size_t i = 0; i < params.size(); ++i)
        markers += i ? ", ?" : "?";
    sql = sqlserver ? "{call " + std::string(procedure) + "(" + markers + ")}"
                    : "SELECT * FROM " + std::string(procedure) + "(" + markers + ")";
    Statement s(h_->dbc);
    SQLSetStmtAttrW(s.stmt, SQL_ATTR_QUERY_TIMEOUT,
                    reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(options.timeout_seconds)), 0);
    auto w = wide(sql);
    SQLRETURN rc = bind_all(s.stmt, params);
    if (SQL_SUCCEEDED(rc)) rc = SQLExecDirectW(s.stmt, w.data(), static_cast<SQLINTEGER>(w.size()));
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA) fail(s.stmt);
    reused_ = false;
    if (!sqlserver) {
        SQLSMALLINT n = 0;
        SQLNumResultCols(s.stmt, &n);
        OdbcCursor cursor(nullptr, s.stmt, nullptr);
        std::vector<Variant> row;
        if (n > 0 && cursor.next(row))
            for (auto& a : args) {
                if (a.direction == 1) continue;
                const std::string_view bare = !a.name.empty() && a.name[0] == '@'
                                                  ? std::string_view(a.name).substr(1)
                                                  : std::string_view(a.name);
                for (std::size_t i = 0; i < cursor.columns().size(); ++i)
                    if (util::iequals(cursor.columns()[i].name, bare)) a.value = row[i];
            }
        return nullptr;
    }
    // Output arguments arrive after every result the procedure sent.
    while (rc != SQL_NO_DATA && SQL_SUCCEEDED(rc = SQLMoreResults(s.stmt))) {
    }
    for (std::size_t k = 0; k < params.size(); ++k) {
        auto& a = args[written[k]];
        const Param& p = params[k];
        if (a.direction == 1) continue;
        if (p.indicator == SQL_NULL_DATA) {
            a.value = Variant::null();
        } else if (p.c_type == SQL_C_SBIGINT) {
            a.value = Variant(p.integer);
        } else if (p.c_type == SQL_C_DOUBLE) {
            a.value = Variant(p.real);
        } else if (p.c_type == SQL_C_TYPE_TIMESTAMP) {
            a.value = Variant(ado::DateTime(p.date.year, p.date.month, p.date.day, p.date.hour,
                                            p.date.minute, p.date.second));
        } else {
            std::string text;
            append_utf8(text, p.text.data(),
                        std::min(p.text.size() - 1,
                                 static_cast<std::size_t>(p.indicator) / sizeof(SQLWCHAR)));
            a.value = Variant(text);
        }
    }
    return nullptr;
}

// What every new connection runs first.
std::string connection_settings(const OdbcTarget& t) {
    if (t.dialect == Dialect::SqlServer)
        // Dates written year first; a lock wait ends as error 1222, which the service layer
        // retries; a failed statement is undone alone and the transaction goes on, whatever
        // the server's own default for new sessions.
        return "SET DATEFORMAT ymd; SET LOCK_TIMEOUT " + std::to_string(t.busy_ms) +
               "; SET XACT_ABORT OFF";
    std::string sql = "SET DateStyle TO 'ISO, YMD'; SET lock_timeout TO " +
                      std::to_string(t.busy_ms) + "; SET standard_conforming_strings TO on";
    const std::string zone = pg::local_time_zone();
    if (!zone.empty() && zone.find_first_of(" \\'") == std::string::npos)
        sql += "; SET TimeZone TO '" + zone + "'";
    return sql;
}

void run_script(SQLHDBC dbc, std::string_view sql, const std::string& where) {
    Statement s(dbc);
    auto w = wide(sql);
    SQLRETURN rc = SQLExecDirectW(s.stmt, w.data(), static_cast<SQLINTEGER>(w.size()));
    while (SQL_SUCCEEDED(rc))
        rc = SQLMoreResults(s.stmt);
    if (rc != SQL_NO_DATA) {
        const Diag d = diagnostic(SQL_HANDLE_STMT, s.stmt);
        throw ComError(where.empty() ? err::kDatabase : err::kConnection,
                       (where.empty() ? "" : "cannot use the connection to " + where + ": ") +
                           server_words(d.message));
    }
}

class OdbcDriver final : public ado::driver::Driver {
  public:
    std::string name() const override { return "odbc"; }
    bool accepts(const ado::ConnectionString& cs) const override { return odbc::accepts(cs); }

    std::shared_ptr<ado::driver::Session> open(const ado::ConnectionString& cs) override {
        OdbcTarget t = odbc_target(cs);
        const bool pooling = t.pooling && !switched_off("BILLDATA_POOLING");
        const bool cache = t.cache && !switched_off("BILLDATA_STATEMENT_CACHE");
        const std::string key = t.odbc + '\x1e' + connection_settings(t);
        std::unique_ptr<Handle> handle =
            pooling ? pool().take(key, [](const Handle&) { return true; }) : nullptr;
        if (handle && (t.dialect == Dialect::SqlServer || !handle->catalog->tables().empty()))
            return std::make_shared<OdbcSession>(std::move(handle), std::move(t), cache, true,
                                                 true);
        if (!handle) {
            handle = std::make_unique<Handle>();
            handle->dbc = connect(t);
            handle->key = key;
            handle->dialect = t.dialect;
            run_script(handle->dbc, connection_settings(t), t.where);
        }
        handle->catalog.reset();
        if (t.dialect == Dialect::PostgreSql) {
            handle->catalog = catalog_cache().find(key);
            if (!handle->catalog) {
                SQLHDBC dbc = handle->dbc;
                try {
                    handle->catalog = std::make_shared<const dialect::Catalog>(
                        pg::read_catalog([dbc](const char* sql, const std::vector<std::string>& p) {
                            return query_rows(dbc, sql, p);
                        }));
                } catch (const ComError& e) {
                    throw ComError(err::kConnection,
                                   "cannot read the schema at " + t.where + ": " + e.description());
                }
                catalog_cache().keep(key, handle->catalog);
            }
        }
        return std::make_shared<OdbcSession>(std::move(handle), std::move(t), cache, pooling,
                                             false);
    }
};

}  // namespace

bool postgresql_dialect(const ado::ConnectionString& cs) {
    return accepts(cs) && odbc_target(cs).dialect == Dialect::PostgreSql;
}

std::shared_ptr<ado::driver::Driver> make_driver() {
    return std::make_shared<OdbcDriver>();
}

std::size_t idle_connections() {
    return pool().idle_count();
}

struct ScriptConnection::Impl {
    SQLHDBC dbc = SQL_NULL_HDBC;
    ~Impl() {
        if (dbc) {
            SQLDisconnect(dbc);
            SQLFreeHandle(SQL_HANDLE_DBC, dbc);
        }
    }
};

ScriptConnection::ScriptConnection(const ado::ConnectionString& cs)
    : impl_(std::make_unique<Impl>()) {
    const OdbcTarget t = odbc_target(cs);
    impl_->dbc = connect(t);
    run_script(impl_->dbc, connection_settings(t), t.where);
}

ScriptConnection::~ScriptConnection() = default;

void ScriptConnection::exec(std::string_view sql) {
    run_script(impl_->dbc, sql, {});
}

std::string ScriptConnection::scalar(std::string_view sql) {
    Statement s(impl_->dbc);
    auto w = wide(sql);
    if (!SQL_SUCCEEDED(SQLExecDirectW(s.stmt, w.data(), static_cast<SQLINTEGER>(w.size()))))
        throw ComError(err::kDatabase, server_words(diagnostic(SQL_HANDLE_STMT, s.stmt).message));
    Variant v;
    if (!SQL_SUCCEEDED(SQLFetch(s.stmt)) || !read_value(s.stmt, 1, VarType::String, v)) return {};
    return v.to_string();
}

}  // namespace billdata::drivers::odbc
