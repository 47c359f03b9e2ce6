#include <sqlite3.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/drivers/odbc/odbc_driver.h"
#include "billdata/drivers/postgresql/postgresql_driver.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "billdata/util/text.h"

namespace billdata::schema {

namespace {

[[noreturn]] void fail(std::string message) {
    throw ado::ComError(ado::err::kDatabase, std::move(message));
}

void exec(sqlite3* db, const std::string& sql) {
    char* msg = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
        std::string text = msg ? msg : sqlite3_errmsg(db);
        sqlite3_free(msg);
        fail(text);
    }
}

// Closes the handle on every exit; removes a file that this call created when it fails.
class NewDatabase {
  public:
    explicit NewDatabase(const std::string& path)
        : path_(path), existed_(std::filesystem::exists(path)) {
        int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                                 nullptr);
        if (rc != SQLITE_OK) {
            std::string text = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
            cleanup();
            fail("cannot open database file " + util::excerpt(path) + ": " + text);
        }
    }
    ~NewDatabase() {
        if (!committed_)
            cleanup();
        else
            sqlite3_close(db_);
    }
    NewDatabase(const NewDatabase&) = delete;
    NewDatabase& operator=(const NewDatabase&) = delete;

    sqlite3* db() const { return db_; }
    void committed() { committed_ = true; }

  private:
    void cleanup() {
        if (db_) sqlite3_close(db_);
        db_ = nullptr;
        if (!existed_) {
            std::error_code ec;
            for (const char* suffix : {"", "-journal", "-wal", "-shm"})
                std::filesystem::remove(path_ + suffix, ec);
        }
    }

    std::string path_;
    bool existed_;
    sqlite3* db_ = nullptr;
    bool committed_ = false;
};

int count_tables(sqlite3* db) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT count(*) FROM sqlite_master WHERE type='table'", -1, &st,
                           nullptr) != SQLITE_OK) {
        std::string text = sqlite3_errmsg(db);
        sqlite3_finalize(st);
        fail(text);
    }
    int n = 0;
    int rc = sqlite3_step(st);
    if (rc == SQLITE_ROW) n = sqlite3_column_int(st, 0);
    sqlite3_finalize(st);
    if (rc != SQLITE_ROW) fail(sqlite3_errmsg(db));
    return n;
}

// The rows every new database starts with, on any engine: the settings of t_SystemProfile and
// the first interior id of order bills.
std::vector<std::string> starting_rows(int year, int period) {
    std::vector<std::string> rows;
    auto setting = [&](const char* key, const std::string& value) {
        rows.push_back(std::string("INSERT INTO t_SystemProfile (FKey, FValue) VALUES ('") + key +
                       "', '" + value + "')");
    };
    setting("StartYear", std::to_string(year));
    setting("StartPeriod", std::to_string(period));
    setting("CurrentYear", std::to_string(year));
    setting("CurrentPeriod", std::to_string(period));
    setting("ICClosed", "0");
    setting("WLClosed", "0");
    setting("CashClosed", "0");
    // Order bills and member orders share ICOrder; member orders draw their ids from series 0,
    // which starts at 1, so order bills start far above it.
    rows.push_back(
        "INSERT INTO ICMaxNum (FTranType, FMaxNum, FDescription) VALUES (11, 1000000000, '')");
    return rows;
}

void check_period(int& year, int& period) {
    if (year == 0 || period == 0) {
        std::time_t t = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
        std::tm local{};
        localtime_r(&t, &local);
        if (year == 0) year = local.tm_year + 1900;
        if (period == 0) period = local.tm_mon + 1;
    }
    if (year < 1753 || year > 9999 || period < 1 || period > 12)
        fail("invalid start period " + std::to_string(year) + "/" + std::to_string(period) +
             ": the year must lie between 1753 and 9999 and the period between 1 and 12");
}

// Quotes a text for a statement.
std::string sql_text(std::string_view text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') out += '\'';
        out += c;
    }
    return out + "'";
}

// The server keeps unquoted names in lower case; the table t_SpelledNames records every table
// and column as the schema spells them (the embedded schema, read back from a scratch database
// in memory), so that the driver names record-set fields alike on every engine.
std::string spelled_names() {
    sqlite3* db = nullptr;
    if (sqlite3_open(":memory:", &db) != SQLITE_OK) fail("cannot open a scratch database");
    std::string sql;
    try {
        if (drivers::sqlite::register_tsql_runtime(db) != SQLITE_OK)
            fail(std::string("cannot register the SQL runtime: ") + sqlite3_errmsg(db));
        exec(db, std::string(sqlite_schema()));
        const dialect::Catalog catalog = drivers::sqlite::read_catalog(db);
        sql =
            "CREATE TABLE t_SpelledNames (FTable varchar(128) NOT NULL, FColumn varchar(128) "
            "NOT NULL, PRIMARY KEY (FTable, FColumn));\nINSERT INTO t_SpelledNames VALUES ";
        bool first = true;
        for (const std::string& table : catalog.tables())
            for (const std::string& column : catalog.columns(table)) {
                sql += first ? "" : ", ";
                // Appended piece by piece: g++ 12 at -O3 warns falsely on "(" + string.
                sql += '(';
                sql += sql_text(table);
                sql += ", ";
                sql += sql_text(column);
                sql += ')';
                first = false;
            }
    } catch (...) {
        sqlite3_close(db);
        throw;
    }
    sqlite3_close(db);
    return sql;
}

// The PostgreSQL schema through either of the connections that reach such a server (libpq's,
// or an ODBC driver's).
template <class Connection>
void create_server_database(const ado::ConnectionString& cs, bool demo, int year, int period) {
    Connection server(cs);
    if (server.scalar("SELECT count(*) FROM pg_tables WHERE schemaname = current_schema()") != "0")
        fail("the database already holds tables; a new database is created only in an empty one");
    server.exec("BEGIN");
    try {
        server.exec(postgresql_runtime());
        server.exec(postgresql_schema());
        server.exec(information_schema_sql(true));
        server.exec(spelled_names());
        for (const std::string& row : starting_rows(year, period))
            server.exec(row);
        if (demo) server.exec(demo_data_sql());
        server.exec("COMMIT");
    } catch (...) {
        try {
            server.exec("ROLLBACK");
        } catch (const ado::ComError&) {
            // The connection is gone, and the transaction with it.
        }
        throw;
    }
}

// The batches of a SQL Server script: the text between lines that hold only GO.
std::vector<std::string> go_batches(std::string_view script) {
    std::vector<std::string> batches(1);
    while (!script.empty()) {
        const auto end = script.find('\n');
        const std::string_view line = script.substr(0, end);
        script.remove_prefix(end == std::string_view::npos ? script.size() : end + 1);
        if (util::iequals(util::trim(line), "GO")) {
            batches.emplace_back();
            continue;
        }
        batches.back().append(line);
        batches.back() += '\n';
    }
    std::erase_if(batches, [](const std::string& b) { return util::trim(b).empty(); });
    return batches;
}

// An existing empty SQL Server database: the script's batches, the starting rows and the demo
// data, all in one transaction.
void create_sqlserver_database(const ado::ConnectionString& cs, bool demo, int year, int period) {
    drivers::odbc::ScriptConnection server(cs);
    if (server.scalar("SELECT count(*) FROM sys.tables") != "0")
        fail("the database already holds tables; a new database is created only in an empty one");
    server.exec("BEGIN TRANSACTION");
    try {
        for (const std::string& batch : go_batches(sqlserver_schema()))
            server.exec(batch);
        for (const std::string& row : starting_rows(year, period))
            server.exec(row);
        if (demo) server.exec(demo_data_sql());
        server.exec("COMMIT TRANSACTION");
    } catch (...) {
        try {
            server.exec("IF @@TRANCOUNT > 0 ROLLBACK TRANSACTION");
        } catch (const ado::ComError&) {
            // The connection is gone, and the transaction with it.
        }
        throw;
    }
}

}  // namespace

bool is_server_database(const std::string& target) {
    const std::string_view t = util::trim(target);
    if (t.find("://") == std::string_view::npos && t.find('=') == std::string_view::npos)
        return false;
    try {
        const auto cs = ado::ConnectionString::parse(t);
        return drivers::postgresql::accepts(cs) || drivers::odbc::postgresql_dialect(cs) ||
               ado::driver::find_driver(cs)->name() == "odbc";
    } catch (const ado::ComError&) {
        return false;
    }
}

void create_database(const std::string& path, bool demo, int year, int period) {
    check_period(year, period);
    if (is_server_database(path)) {
        const auto cs = ado::ConnectionString::parse(path);
        if (drivers::postgresql::accepts(cs)) {
            create_server_database<drivers::postgresql::ServerConnection>(cs, demo, year, period);
        } else if (drivers::odbc::postgresql_dialect(cs)) {
            create_server_database<drivers::odbc::ScriptConnection>(cs, demo, year, period);
        } else {
            create_sqlserver_database(cs, demo, year, period);
        }
        return;
    }

    NewDatabase file(path);
    sqlite3* db = file.db();
    if (drivers::sqlite::register_tsql_runtime(db) != SQLITE_OK)
        fail(std::string("cannot register the SQL runtime: ") + sqlite3_errmsg(db));
    if (count_tables(db) > 0)
        fail("the database " + util::excerpt(path) +
             " already holds tables; a new database is created only " + "in a new or empty file");

    exec(db, "BEGIN IMMEDIATE");
    try {
        exec(db, std::string(sqlite_schema()));
        for (const std::string& row : starting_rows(year, period))
            exec(db, row);
        if (demo) add_demo_data(db);
        exec(db, "COMMIT");
    } catch (...) {
        sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
    exec(db, "PRAGMA journal_mode=WAL");
    file.committed();
}

}  // namespace billdata::schema
