#pragma once
// A real embedded database with the schema a new database gets (texts with the text collation,
// dates with the date collation, the kept counts and copies), the T-SQL runtime registered, and
// the catalogue read back from the file.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <charconv>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "support/test_support.h"

namespace billdata::testing {

using Rows = std::vector<std::vector<std::string>>;

class DialectDb : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(sqlite3_open(dir_.file("bills.db").c_str(), &db_), SQLITE_OK);
        ASSERT_EQ(drivers::sqlite::register_tsql_runtime(db_), SQLITE_OK);
        raw("BEGIN;" + std::string(schema::sqlite_schema()) + "COMMIT;");
        catalog_ = drivers::sqlite::read_catalog(db_);
    }
    void TearDown() override { sqlite3_close(db_); }

    // Runs SQL of the engine itself (set-up data), failing the test on an error.
    void raw(const std::string& sql) {
        char* err = nullptr;
        int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err);
        std::string msg = err ? err : "";
        sqlite3_free(err);
        ASSERT_EQ(rc, SQLITE_OK) << msg << "\n" << sql;
    }

    dialect::Translation translate(const std::string& tsql) {
        return dialect::translate_sqlite(tsql, catalog_);
    }

    // Translates and runs one T-SQL statement; the rows as text ("NULL" for null; reals in
    // their shortest form). Raises std::runtime_error with the engine's message on failure.
    Rows run(const std::string& tsql) { return run_sqlite(translate(tsql).sql); }

    Rows run_sqlite(const std::string& sql) {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
            throw std::runtime_error(std::string(sqlite3_errmsg(db_)) + " in: " + sql);
        }
        Rows rows;
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            std::vector<std::string> row;
            for (int i = 0; i < sqlite3_column_count(stmt); ++i)
                row.push_back(cell(stmt, i));
            rows.push_back(std::move(row));
        }
        std::string msg = sqlite3_errmsg(db_);
        sqlite3_finalize(stmt);
        if (rc != SQLITE_DONE) throw std::runtime_error(msg);
        return rows;
    }

    // The single value of a one-row, one-column result.
    std::string value(const std::string& tsql) {
        Rows rows = run(tsql);
        if (rows.size() != 1 || rows[0].size() != 1) {
            throw std::runtime_error("expected one value from: " + tsql);
        }
        return rows[0][0];
    }

    // The names of the result columns of a translated select.
    std::vector<std::string> column_names(const std::string& tsql) {
        std::string sql = translate(tsql).sql;
        sqlite3_stmt* stmt = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr), SQLITE_OK) << sql;
        std::vector<std::string> names;
        for (int i = 0; stmt && i < sqlite3_column_count(stmt); ++i)
            names.push_back(sqlite3_column_name(stmt, i));
        sqlite3_finalize(stmt);
        return names;
    }

    // The engine's plan of a translated statement, all detail lines joined.
    std::string plan(const std::string& tsql) {
        Rows rows = run_sqlite("EXPLAIN QUERY PLAN " + translate(tsql).sql);
        std::string out;
        for (const auto& r : rows)
            out += r.back() + "\n";
        return out;
    }

    static std::string cell(sqlite3_stmt* stmt, int i) {
        switch (sqlite3_column_type(stmt, i)) {
            case SQLITE_NULL:
                return "NULL";
            case SQLITE_INTEGER:
                return std::to_string(sqlite3_column_int64(stmt, i));
            case SQLITE_FLOAT: {
                char buf[64];
                auto res = std::to_chars(buf, buf + sizeof(buf), sqlite3_column_double(stmt, i));
                return std::string(buf, res.ptr);
            }
            default:
                return reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
        }
    }

    TempDir dir_;
    sqlite3* db_ = nullptr;
    dialect::Catalog catalog_;
};

}  // namespace billdata::testing
