#pragma once
// A small raw-API helper for the schema tests: one database handle with the runtime registered.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <stdexcept>
#include <string>

#include "billdata/drivers/sqlite/tsql_runtime.h"

namespace billdata::testing {

class Db {
  public:
    explicit Db(const std::string& path) {
        if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK)
            throw std::runtime_error("cannot open " + path);
        drivers::sqlite::register_tsql_runtime(db_);
    }
    ~Db() { sqlite3_close(db_); }
    Db(const Db&) = delete;
    Db& operator=(const Db&) = delete;

    sqlite3* handle() const { return db_; }

    // Runs statements; returns the engine's message, empty on success.
    std::string try_exec(const std::string& sql) {
        char* msg = nullptr;
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return {};
        std::string text = msg ? msg : "error";
        sqlite3_free(msg);
        return text;
    }
    void exec(const std::string& sql) {
        std::string err = try_exec(sql);
        if (!err.empty()) throw std::runtime_error(err + " in: " + sql);
    }
    // First column of the first row (0 / "" when there is no row).
    long long integer(const std::string& sql) { return value<long long>(sql); }
    double real(const std::string& sql) { return value<double>(sql); }
    std::string text(const std::string& sql) { return value<std::string>(sql); }

  private:
    template <class T>
    T value(const std::string& sql) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
            std::string err = sqlite3_errmsg(db_);
            sqlite3_finalize(st);
            throw std::runtime_error(err + " in: " + sql);
        }
        T out{};
        if (sqlite3_step(st) == SQLITE_ROW) {
            if constexpr (std::is_same_v<T, long long>)
                out = sqlite3_column_int64(st, 0);
            else if constexpr (std::is_same_v<T, double>)
                out = sqlite3_column_double(st, 0);
            else {
                auto* p = sqlite3_column_text(st, 0);
                out = p ? reinterpret_cast<const char*>(p) : "";
            }
        }
        sqlite3_finalize(st);
        return out;
    }

    sqlite3* db_ = nullptr;
};

}  // namespace billdata::testing
