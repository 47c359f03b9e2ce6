#pragma once
// A fresh embedded database per test, with the session pointed at it.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "support/test_support.h"

namespace billdata::testing {

class DatabaseTest : public ::testing::Test {
  protected:
    void SetUp() override {
        path_ = dir_.file("shop.db");
        schema::create_database(path_, demo(), 2025, 3);
        common::session() = common::SessionContext{};
        common::init_session(connection_string(), 2025, 3);
    }
    void TearDown() override { common::session() = common::SessionContext{}; }

    virtual bool demo() const { return false; }
    std::string connection_string() const { return "Provider=SQLite;Data Source=" + path_; }

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

    // Runs an SQLite statement on the file directly, past the component: a trigger that makes the
    // database refuse a statement stands for a full disk or another program's rule.
    void sqlite_exec(const std::string& sql) const {
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
