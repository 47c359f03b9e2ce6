#pragma once
// A fresh database per test, with the session pointed at it: an embedded file, or with
// BILLDATA_TEST_ENGINE=postgresql (or odbc) a new database on the tests' PostgreSQL server, with
// BILLDATA_TEST_ENGINE=sqlserver one on the shop's SQL Server, so that every case runs on every
// engine (cases skip with a reason when that server is not configured).

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "support/caller_rows.h"
#include "support/server_db.h"
#include "support/test_support.h"

namespace billdata::testing {

class DatabaseTest : public ::testing::Test {
  protected:
    void SetUp() override {
        path_ = dir_.file("shop.db");
        if (on_server()) {
            if (const std::string why = missing_test_server(); !why.empty()) GTEST_SKIP() << why;
            server_ = std::make_unique<ServerDatabase>();
            schema::create_database(server_->connection_string(), demo(), 2025, 3);
        } else {
            schema::create_database(path_, demo(), 2025, 3);
        }
        common::session() = common::SessionContext{};
        common::init_session(connection_string(), 2025, 3);
    }
    void TearDown() override { common::session() = common::SessionContext{}; }

    // Whether this run's cases go to a server.
    static bool on_server() { return on_test_server(); }

    virtual bool demo() const { return false; }
    std::string connection_string() const {
        return server_ ? server_->connection_string() : "Provider=SQLite;Data Source=" + path_;
    }

    std::shared_ptr<ado::Connection> open() const {
        auto cn = ado::Connection::create();
        cn->Open(connection_string());
        return cn;
    }
    // Runs a statement on a connection of its own.
    void exec(const std::string& sql) const {
        auto cn = open();
        cn->Execute(sql);
        cn->Close();
    }
    // The first column of the first row of a query (Empty when there is no row).
    ado::Variant scalar(const std::string& sql) const {
        auto cn = open();
        auto rs = cn->Execute(sql);
        ado::Variant v = rs->Eof() ? ado::Variant() : rs->Fields(std::size_t{0}).Value();
        rs->Close();
        cn->Close();
        return v;
    }
    double number(const std::string& sql) const { return scalar(sql).to_double(); }
    // Every row of a query, the columns of a row joined by '|'.
    std::vector<std::string> rows(const std::string& sql) const {
        return query_rows(connection_string(), sql);
    }

    // Makes the database refuse `event` (INSERT, UPDATE, DELETE) on `table` for the rows where
    // `when` holds (an expression on `new`; empty: all), with `message`, past the component: a
    // trigger that stands for a full disk or another program's rule.
    void refuse(const std::string& event, const std::string& table, const std::string& when,
                const std::string& message) const {
        if (server_ && server_->sqlserver()) {
            server_->exec(sqlserver_refusal_trigger(event, table, when, message));
            return;
        }
        if (server_) {
            server_->exec(
                "CREATE FUNCTION bd_test_refuse() RETURNS trigger LANGUAGE plpgsql AS "
                "$$BEGIN RAISE EXCEPTION '" +
                message + "'; END$$");
            server_->exec("CREATE TRIGGER tr_test_refuse BEFORE " + event + " ON " + table +
                          " FOR EACH ROW" + (when.empty() ? "" : " WHEN (" + when + ")") +
                          " EXECUTE FUNCTION bd_test_refuse()");
            return;
        }
        sqlite_exec("CREATE TRIGGER TR_Test_Refuse BEFORE " + event + " ON " + table +
                    (when.empty() ? "" : " WHEN " + when) + " BEGIN SELECT RAISE(ABORT,'" +
                    message + "'); END");
    }

    // Runs an SQLite statement on the file directly, past the component.
    void sqlite_exec(const std::string& sql) const {
        drivers::sqlite::commit_write_groups();
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
        drivers::sqlite::register_tsql_runtime(db);
        char* message = nullptr;
        const int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message);
        EXPECT_EQ(rc, SQLITE_OK) << (message ? message : "");
        sqlite3_free(message);
        sqlite3_close(db);
    }

    TempDir dir_;
    std::string path_;
    std::unique_ptr<ServerDatabase> server_;
};

// Expects `fn` to raise a ComError with this number and description.
template <class Fn>
void expect_com_error(Fn&& fn, std::int32_t number, const std::string& description) {
    try {
        fn();
        ADD_FAILURE() << "expected ComError " << number << " \"" << description << "\"";
    } catch (const ado::ComError& e) {
        EXPECT_EQ(e.number(), number) << e.description();
        EXPECT_EQ(e.description(), description);
    }
}

}  // namespace billdata::testing
