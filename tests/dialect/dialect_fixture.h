#pragma once
// A real database with the schema a new database gets, the T-SQL runtime in it, and the
// catalogue read back from it; statements are translated for its engine and run there.
//   - the embedded engine: texts with the text collation, dates with the date collation, the
//     kept counts and copies;
//   - the server engine (when a test server is configured): a database of its own on it with the
//     server runtime and tables, statements translated with or without parameters, and the
//     parameters sent as text of unknown type, as the server driver sends them.

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <sqlite3.h>

#include <charconv>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/postgresql/catalog.h"
#include "billdata/drivers/postgresql/server_error.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/builtin_catalog.h"
#include "billdata/schema/schema.h"
#include "support/server_db.h"
#include "support/test_support.h"

namespace billdata::testing {

using Rows = std::vector<std::vector<std::string>>;

enum class Engine { Sqlite, Postgres, PostgresParameters };

inline std::string engine_name(const ::testing::TestParamInfo<Engine>& info) {
    const char* const names[] = {"Sqlite", "Postgres", "PostgresParameters"};
    return names[static_cast<int>(info.param)];
}

class DialectDb : public ::testing::Test {
  protected:
    virtual Engine engine() const { return Engine::Sqlite; }
    bool on_server() const { return engine() != Engine::Sqlite; }

    void SetUp() override {
        if (on_server()) {
            set_up_server();
            return;
        }
        ASSERT_EQ(sqlite3_open(dir_.file("bills.db").c_str(), &db_), SQLITE_OK);
        ASSERT_EQ(drivers::sqlite::register_tsql_runtime(db_), SQLITE_OK);
        raw("BEGIN;" + std::string(schema::sqlite_schema()) + "COMMIT;");
        catalog_ = drivers::sqlite::read_catalog(db_);
    }
    void TearDown() override {
        if (pg_) PQfinish(pg_);
        if (db_) sqlite3_close(db_);
    }

    // Runs SQL of the engine itself (set-up data), failing the test on an error.
    void raw(const std::string& sql) {
        if (on_server()) {
            std::unique_ptr<PGresult, decltype(&PQclear)> r(PQexec(pg_, sql.c_str()), PQclear);
            const ExecStatusType status = PQresultStatus(r.get());
            ASSERT_TRUE(status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK)
                << PQresultErrorMessage(r.get()) << "\n"
                << sql;
            return;
        }
        char* err = nullptr;
        int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err);
        std::string msg = err ? err : "";
        sqlite3_free(err);
        ASSERT_EQ(rc, SQLITE_OK) << msg << "\n" << sql;
    }

    // The catalogue read again after the tables changed.
    void reload_catalog() {
        catalog_ = on_server() ? drivers::postgresql::read_catalog(pg_, &schema::builtin_catalog())
                               : drivers::sqlite::read_catalog(db_);
    }

    dialect::Translation translate(const std::string& tsql) {
        if (!on_server()) return dialect::translate_sqlite(tsql, catalog_);
        dialect::TranslateOptions options;
        options.parameterise = engine() == Engine::PostgresParameters;
        return dialect::translate_postgresql(tsql, catalog_, options);
    }

    // Translates and runs one T-SQL statement; the rows as text ("NULL" for null; numbers in
    // their shortest form). Raises std::runtime_error with the engine's message on failure.
    Rows run(const std::string& tsql) {
        if (on_server()) return run_server(tsql, nullptr);
        return run_sqlite(translate(tsql).sql);
    }

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
        last_error_number_ = drivers::sqlite::server_error_number(sqlite3_extended_errcode(db_));
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
        std::vector<std::string> names;
        if (on_server()) {
            run_server(tsql, &names);
            return names;
        }
        std::string sql = translate(tsql).sql;
        sqlite3_stmt* stmt = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr), SQLITE_OK) << sql;
        for (int i = 0; stmt && i < sqlite3_column_count(stmt); ++i)
            names.push_back(sqlite3_column_name(stmt, i));
        sqlite3_finalize(stmt);
        return names;
    }

    // The engine's plan of a translated statement, all detail lines joined (embedded engine).
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
            case SQLITE_FLOAT:
                return shortest(sqlite3_column_double(stmt, i));
            default:
                return reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
        }
    }

    static std::string shortest(double d) {
        char buf[64];
        auto res = std::to_chars(buf, buf + sizeof(buf), d);
        return std::string(buf, res.ptr);
    }

    // The server dialect's error number of the last failed statement (0 when it had none).
    int last_error_number_ = 0;
    TempDir dir_;
    sqlite3* db_ = nullptr;
    PGconn* pg_ = nullptr;
    std::unique_ptr<ServerDatabase> server_;
    dialect::Catalog catalog_;

  private:
    void set_up_server() {
        if (postgres_server().empty()) {
            GTEST_SKIP() << "no PostgreSQL server (BILLDATA_TEST_POSTGRES is not set)";
        }
        server_ = std::make_unique<ServerDatabase>();
        pg_ = PQconnectdb(server_->conninfo().c_str());
        ASSERT_EQ(PQstatus(pg_), CONNECTION_OK) << PQerrorMessage(pg_);
        // The session as the server driver sets it: local time, dates read year first.
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        const long offset = local.tm_gmtoff / 60;
        char zone[64];
        std::snprintf(zone, sizeof(zone), "INTERVAL '%c%02ld:%02ld' HOUR TO MINUTE",
                      offset < 0 ? '-' : '+', std::labs(offset) / 60, std::labs(offset) % 60);
        raw("SET DateStyle = 'ISO, YMD'; SET client_encoding = 'UTF8'; "
            "SET standard_conforming_strings = on; SET TIME ZONE " +
            std::string(zone));
        raw(std::string(schema::postgresql_runtime()));
        raw(std::string(schema::postgresql_schema()));
        raw(schema::information_schema_sql(true));
        reload_catalog();
    }

    Rows run_server(const std::string& tsql, std::vector<std::string>* names) {
        const dialect::Translation t = translate(tsql);
        std::vector<std::string> values;
        for (std::size_t offset : t.parameters) {
            for (const dialect::Literal& l : t.literals) {
                if (l.offset != offset) continue;
                const std::string token = tsql.substr(l.offset, l.length);
                dialect::LiteralValue v;
                dialect::literal_value(token, v);
                values.push_back(v.type == dialect::LiteralValue::Type::Text ? v.text
                                 : v.type == dialect::LiteralValue::Type::Integer
                                     ? std::to_string(v.integer)
                                     : token);
            }
        }
        std::vector<const char*> pointers;
        for (const std::string& v : values)
            pointers.push_back(v.c_str());
        std::unique_ptr<PGresult, decltype(&PQclear)> r(
            PQexecParams(pg_, t.sql.c_str(), static_cast<int>(pointers.size()), nullptr,
                         pointers.data(), nullptr, nullptr, 0),
            PQclear);
        const ExecStatusType status = PQresultStatus(r.get());
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
            const char* state = PQresultErrorField(r.get(), PG_DIAG_SQLSTATE);
            last_error_number_ = state ? drivers::postgresql::dialect_number(state) : 0;
            throw std::runtime_error(std::string(PQresultErrorMessage(r.get())) + " in: " + t.sql);
        }
        Rows rows;
        for (int j = 0; names && j < PQnfields(r.get()); ++j)
            names->push_back(PQfname(r.get(), j));
        for (int i = 0; i < PQntuples(r.get()); ++i) {
            std::vector<std::string> row;
            for (int j = 0; j < PQnfields(r.get()); ++j) {
                if (PQgetisnull(r.get(), i, j)) {
                    row.emplace_back("NULL");
                    continue;
                }
                const char* text = PQgetvalue(r.get(), i, j);
                switch (PQftype(r.get(), j)) {
                    case 700:   // float4
                    case 701:   // float8
                    case 1700:  // numeric
                        row.push_back(shortest(std::strtod(text, nullptr)));
                        break;
                    default:
                        row.emplace_back(text);
                }
            }
            rows.push_back(std::move(row));
        }
        return rows;
    }
};

// A fixture of DialectDb whose cases run on every engine.
class OnEveryEngine : public DialectDb, public ::testing::WithParamInterface<Engine> {
  protected:
    Engine engine() const override { return GetParam(); }
};

#define BILLDATA_ON_EVERY_ENGINE(fixture)                                                \
    INSTANTIATE_TEST_SUITE_P(                                                            \
        Engines, fixture,                                                                \
        ::testing::Values(Engine::Sqlite, Engine::Postgres, Engine::PostgresParameters), \
        engine_name)

}  // namespace billdata::testing
