// Bringing a database made by an earlier build up to date: the tables the translator reads the
// declared types and the server's INFORMATION_SCHEMA from, and on PostgreSQL the functions that
// translated statements call. Nothing else is touched, and everything happens in one
// transaction, so a failure leaves the database as it was.

#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/drivers/odbc/odbc_driver.h"
#include "billdata/drivers/postgresql/postgresql_driver.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "billdata/util/text.h"

namespace billdata::schema {

namespace {

[[noreturn]] void fail(std::string message) {
    throw ado::ComError(ado::err::kDatabase, std::move(message));
}

constexpr const char* kNotBilldata =
    " holds no bill data tables (t_SystemProfile is missing): only a database made by "
    "`billdata init` is upgraded";

// ---- embedded databases ------------------------------------------------------------------

class File {
  public:
    explicit File(const std::string& path) {
        // An existing file only: upgrading a name that is not there must not create it.
        if (!std::filesystem::exists(path)) fail("no database file " + util::excerpt(path));
        const int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr);
        if (rc != SQLITE_OK) {
            const std::string text = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
            fail("cannot open database file " + util::excerpt(path) + ": " + text);
        }
        sqlite3_busy_timeout(db_, 5000);
        if (drivers::sqlite::register_tsql_runtime(db_) != SQLITE_OK)
            fail(std::string("cannot register the SQL runtime: ") + sqlite3_errmsg(db_));
    }
    ~File() { sqlite3_close(db_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    void exec(const std::string& sql) {
        char* msg = nullptr;
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
            std::string text = msg ? msg : sqlite3_errmsg(db_);
            sqlite3_free(msg);
            fail(text);
        }
    }
    bool has_table(const char* name) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db_,
                               "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1 "
                               "COLLATE NOCASE",
                               -1, &st, nullptr) != SQLITE_OK)
            fail(sqlite3_errmsg(db_));
        sqlite3_bind_text(st, 1, name, -1, SQLITE_STATIC);
        const int rc = sqlite3_step(st);
        sqlite3_finalize(st);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) fail(sqlite3_errmsg(db_));
        return rc == SQLITE_ROW;
    }
    // The rows of a one-column query, sorted, one per line.
    std::string rows(const char* sql) {
        std::set<std::string> out;
        char* msg = nullptr;
        auto add = [](void* set, int, char** values, char**) {
            static_cast<std::set<std::string>*>(set)->insert(values[0] ? values[0] : "");
            return 0;
        };
        if (sqlite3_exec(db_, sql, add, &out, &msg) != SQLITE_OK) {
            std::string text = msg ? msg : sqlite3_errmsg(db_);
            sqlite3_free(msg);
            fail(text);
        }
        std::string text;
        for (const std::string& row : out)
            text += row + "\n";
        return text;
    }

  private:
    sqlite3* db_ = nullptr;
};

// The declared-types tables are made again from this build's script every time, so that a
// database whose tables came from an older script gets this one's types; what changed is
// reported: the tables that were missing, or that their rows were different.
constexpr const char* kDropSchemaTables =
    "DROP TABLE IF EXISTS t_SchemaTables; DROP TABLE IF EXISTS t_SchemaColumns;";
// Every row of both tables as one text each.
constexpr const char* kSchemaRows =
    "SELECT TABLE_NAME || '|' || COLUMN_NAME || '|' || ORDINAL_POSITION || '|' || IS_NULLABLE || "
    "'|' || DATA_TYPE || '|' || coalesce(CHARACTER_MAXIMUM_LENGTH, -1) || '|' || "
    "coalesce(NUMERIC_PRECISION, -1) || '|' || coalesce(NUMERIC_SCALE, -1) FROM t_SchemaColumns "
    "UNION ALL SELECT TABLE_NAME || '|' || TABLE_TYPE FROM t_SchemaTables";

template <class Has>
std::vector<std::string> missing_schema_tables(Has has) {
    std::vector<std::string> missing;
    for (const char* name : {"t_SchemaTables", "t_SchemaColumns"})
        if (!has(name)) missing.emplace_back(name);
    return missing;
}

// What remaking the tables did: nothing to say when the rows are the same as before.
std::vector<std::string> schema_tables_report(const std::vector<std::string>& missing,
                                              const std::string& before, const std::string& after) {
    if (!missing.empty()) {
        std::string text = "created ";
        for (std::size_t i = 0; i < missing.size(); ++i)
            text += (i ? " and " : "") + missing[i];
        return {text + " (the declared column types)"};
    }
    if (before != after)
        return {
            "updated t_SchemaTables and t_SchemaColumns to this version's declared column "
            "types"};
    return {};
}

std::vector<std::string> upgrade_file(const std::string& path) {
    File file(path);
    std::vector<std::string> done;
    file.exec("BEGIN IMMEDIATE");
    try {
        if (!file.has_table("t_SystemProfile"))
            fail("the database " + util::excerpt(path) + kNotBilldata);
        const auto missing =
            missing_schema_tables([&](const char* name) { return file.has_table(name); });
        const std::string before = missing.empty() ? file.rows(kSchemaRows) : "";
        file.exec(kDropSchemaTables);
        file.exec(information_schema_sql(false));
        done = schema_tables_report(missing, before, file.rows(kSchemaRows));
        file.exec("COMMIT");
    } catch (...) {
        try {
            file.exec("ROLLBACK");
        } catch (const ado::ComError&) {
            // Nothing was begun, or the engine already rolled back.
        }
        throw;
    }
    return done;
}

// ---- PostgreSQL ----------------------------------------------------------------------------

// The runtime functions of the current schema, each signature with a digest of its definition.
constexpr const char* kRuntimeFunctions =
    "SELECT coalesce(string_agg(p.oid::regprocedure::text || '=' || "
    "md5(pg_get_functiondef(p.oid)), E'\\n' ORDER BY p.oid::regprocedure::text), '') "
    "FROM pg_proc p WHERE p.pronamespace = current_schema()::regnamespace "
    "AND p.proname LIKE 'bd\\_%'";

// Every runtime function of the current schema dropped, so that the script makes them again as
// this build has them: one whose arguments or result changed could not be replaced in place,
// and one this build no longer has goes. No table or trigger depends on them.
constexpr const char* kDropRuntimeFunctions = R"sql(
DO $$
DECLARE
    f regprocedure;
BEGIN
    FOR f IN SELECT p.oid::regprocedure FROM pg_proc p
             WHERE p.pronamespace = current_schema()::regnamespace AND p.proname LIKE 'bd\_%'
    LOOP
        EXECUTE 'DROP FUNCTION ' || f::text;
    END LOOP;
END
$$;
)sql";

std::map<std::string, std::string> runtime_functions(const std::string& listing) {
    std::map<std::string, std::string> out;
    std::size_t at = 0;
    while (at < listing.size()) {
        std::size_t end = listing.find('\n', at);
        if (end == std::string::npos) end = listing.size();
        const std::string line = listing.substr(at, end - at);
        const std::size_t eq = line.rfind('=');
        if (eq != std::string::npos) out.emplace(line.substr(0, eq), line.substr(eq + 1));
        at = end + 1;
    }
    return out;
}

template <class Connection>
std::vector<std::string> upgrade_server(const ado::ConnectionString& cs) {
    Connection server(cs);
    auto has = [&](const std::string& name) {
        return server.scalar(
                   "SELECT count(*) FROM pg_tables WHERE schemaname = current_schema() "
                   "AND tablename = '" +
                   util::lower_copy(name) + "'") != "0";
    };
    std::vector<std::string> done;
    server.exec("BEGIN");
    try {
        if (!has("t_SystemProfile")) fail("the database" + std::string(kNotBilldata));
        const auto before = runtime_functions(server.scalar(kRuntimeFunctions));
        server.exec(kDropRuntimeFunctions);
        server.exec(postgresql_runtime());
        const auto after = runtime_functions(server.scalar(kRuntimeFunctions));
        int added = 0, changed = 0;
        for (const auto& [signature, digest] : after) {
            auto it = before.find(signature);
            if (it == before.end()) {
                ++added;
            } else if (it->second != digest) {
                ++changed;
            }
        }
        int removed = 0;
        for (const auto& [signature, digest] : before)
            if (!after.contains(signature)) ++removed;
        if (added || changed || removed)
            done.push_back("runtime functions: " + std::to_string(added) + " added, " +
                           std::to_string(changed) + " changed, " + std::to_string(removed) +
                           " removed");
        const auto missing = missing_schema_tables(has);
        const std::string rows =
            std::string("SELECT coalesce(md5(string_agg(r, ',' ORDER BY r)), '') FROM (") +
            kSchemaRows + ") AS t(r)";
        const std::string rows_before = missing.empty() ? server.scalar(rows) : "";
        server.exec(kDropSchemaTables);
        server.exec(information_schema_sql(true));
        for (std::string& line : schema_tables_report(missing, rows_before, server.scalar(rows)))
            done.push_back(std::move(line));
        server.exec("COMMIT");
    } catch (...) {
        try {
            server.exec("ROLLBACK");
        } catch (const ado::ComError&) {
            // The connection is gone, and the transaction with it.
        }
        throw;
    }
    return done;
}

}  // namespace

std::vector<std::string> upgrade_database(const std::string& target) {
    const std::string_view t = util::trim(target);
    if (is_server_database(target)) {
        const auto cs = ado::ConnectionString::parse(t);
        if (drivers::postgresql::accepts(cs))
            return upgrade_server<drivers::postgresql::ServerConnection>(cs);
        if (drivers::odbc::postgresql_dialect(cs))
            return upgrade_server<drivers::odbc::ScriptConnection>(cs);
        // The server itself describes its tables and columns and runs T-SQL as it is.
        return {};
    }
    if (t.find('=') == std::string_view::npos) return upgrade_file(std::string(t));
    const auto cs = ado::ConnectionString::parse(t);
    const std::string path = cs.get("data source");
    if (path.empty()) fail("the connection string names no database file (Data Source)");
    return upgrade_file(path);
}

}  // namespace billdata::schema
