#pragma once
// The tests' PostgreSQL server: the one named by BILLDATA_TEST_POSTGRES (a connection string to
// its maintenance database, as scripts/with-postgres.sh sets it). Each test makes databases of
// its own on it and drops them afterwards.

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace billdata::testing {

// The server's connection string, or empty when no server is configured.
std::string postgres_server();

// A new empty database on the test server, dropped (its connections ended) when the object goes.
// std::runtime_error when there is no server or it refuses.
class PostgresDatabase {
  public:
    PostgresDatabase();
    ~PostgresDatabase();
    PostgresDatabase(const PostgresDatabase&) = delete;
    PostgresDatabase& operator=(const PostgresDatabase&) = delete;

    const std::string& name() const { return name_; }
    // `Provider=PostgreSQL;…;Database=<name>` for the component; on the odbc engine the ODBC
    // string of the same database (`Driver={PostgreSQL Unicode};…;Dialect=PostgreSQL`).
    const std::string& connection_string() const { return connection_string_; }
    // The same database in libpq's `key=value` form.
    const std::string& conninfo() const { return conninfo_; }

    // Runs SQL of the server itself on a connection of its own (set-up, or reading past the
    // component); std::runtime_error with the server's message on failure. Rows as "a|b|" texts
    // ("NULL" for a null), in the order the server sends them.
    std::vector<std::string> exec(const std::string& sql) const;
    // The same on any database of the server (libpq conninfo).
    static std::vector<std::string> exec_on(const std::string& conninfo, const std::string& sql);

  private:
    std::string name_;
    std::string connection_string_;
    std::string conninfo_;
};

// The engine this run's cases go to, from BILLDATA_TEST_ENGINE as ctest sets it for the runs of
// the folders that run on every engine: "sqlite" (unset), "postgresql" (the tests' PostgreSQL
// server through its native driver) or "odbc" (the same server through its ODBC driver).
std::string test_engine();

// Whether this run's cases go to the tests' PostgreSQL server (natively or through ODBC).
bool on_test_server();

// A new empty database of the run's engine for a test that reaches it through the program: a
// file in a folder of its own, or (on_test_server()) a new database on the test server.
// std::runtime_error as PostgresDatabase when that server is not configured.
class EngineDatabase {
  public:
    EngineDatabase();
    // What `billdata init` and --db take: the file's path or the server's connection string.
    const std::string& target() const { return target_; }
    // The same for ado::Connection::Open.
    std::string connection_string() const;
    // The server database, or nullptr for a file.
    const PostgresDatabase* server() const { return server_.get(); }
    const TempDir& dir() const { return dir_; }

  private:
    TempDir dir_;
    std::unique_ptr<PostgresDatabase> server_;
    std::string target_;
};

// A PostgreSQL cluster of the test's own, for the cases that stop, restart or reconfigure the
// server (the shared one serves other tests at the same time): created in a temporary
// directory (as user nobody when the tests run as root), on a Unix socket there; a role
// `billdata_pw` with password "secret" must log in with it. Stopped and removed when the object
// goes. std::runtime_error when the server programs are missing or it does not start.
class PrivateServer {
  public:
    PrivateServer();
    ~PrivateServer();
    PrivateServer(const PrivateServer&) = delete;
    PrivateServer& operator=(const PrivateServer&) = delete;

    // `Provider=PostgreSQL;Host=<dir>;Port=…;Database=postgres;User ID=postgres`.
    const std::string& connection_string() const { return connection_string_; }
    const std::string& socket_dir() const { return dir_; }
    int port() const { return port_; }
    void stop();  // fast shutdown: sessions are ended
    void start();
    void restart() {
        stop();
        start();
    }

  private:
    void run(const std::string& command) const;
    std::string dir_, bin_, as_server_;
    int port_ = 5439;
    std::string connection_string_;
};

// libpq's conninfo for a `Provider=PostgreSQL;Host=…;Port=…;Database=…;User ID=…;Password=…`
// string (the keys the test server uses), or its ODBC form (Servername, UID, PWD).
std::string postgres_conninfo(const std::string& connection_string);

}  // namespace billdata::testing
