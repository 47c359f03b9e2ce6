#include "support/raw_db.h"

#include <algorithm>
#include <stdexcept>

#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"

namespace billdata::testing {

RawDb::RawDb(const std::string& path, bool create) {
    const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        sqlite3_close(db_);
        throw std::runtime_error("cannot open " + path);
    }
    drivers::sqlite::register_tsql_runtime(db_);
}

RawDb::~RawDb() {
    sqlite3_close(db_);
}

std::string RawDb::try_exec(const std::string& sql) const {
    drivers::sqlite::commit_write_groups();  // past the driver: it cannot do this for us
    char* msg = nullptr;
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return {};
    std::string text = msg ? msg : "error";
    sqlite3_free(msg);
    return text;
}

void RawDb::exec(const std::string& sql) const {
    const std::string error = try_exec(sql);
    if (!error.empty()) throw std::runtime_error(error + " in: " + sql);
}

sqlite3_stmt* RawDb::prepare(const std::string& sql) const {
    drivers::sqlite::commit_write_groups();
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
        sqlite3_finalize(stmt);
        fail(sql);
    }
    return stmt;
}

void RawDb::fail(const std::string& sql) const {
    throw std::runtime_error(std::string(sqlite3_errmsg(db_)) + " in: " + sql);
}

long long RawDb::integer(const std::string& sql) const {
    sqlite3_stmt* stmt = prepare(sql);
    const long long v = sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_int64(stmt, 0) : 0;
    sqlite3_finalize(stmt);
    return v;
}

double RawDb::real(const std::string& sql) const {
    sqlite3_stmt* stmt = prepare(sql);
    const double v = sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_double(stmt, 0) : 0.0;
    sqlite3_finalize(stmt);
    return v;
}

std::string RawDb::text(const std::string& sql) const {
    sqlite3_stmt* stmt = prepare(sql);
    std::string v;
    if (sqlite3_step(stmt) == SQLITE_ROW) {
        const unsigned char* t = sqlite3_column_text(stmt, 0);
        if (t) v = reinterpret_cast<const char*>(t);
    }
    sqlite3_finalize(stmt);
    return v;
}

std::vector<std::string> RawDb::rows(const std::string& sql) const {
    sqlite3_stmt* stmt = prepare(sql);
    std::vector<std::string> out;
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        std::string row;
        for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
            const std::string name = sqlite3_column_name(stmt, i);
            if (name == "FSysTime" || name == "FEditTime") continue;
            const unsigned char* t = sqlite3_column_text(stmt, i);
            row += t ? reinterpret_cast<const char*>(t) : "NULL";
            row += '|';
        }
        out.push_back(std::move(row));
    }
    sqlite3_finalize(stmt);
    if (rc != SQLITE_DONE) fail(sql);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace billdata::testing
