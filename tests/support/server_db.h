#pragma once
// The tests' database servers. The run's engine (BILLDATA_TEST_ENGINE) picks one:
//   - postgresql / odbc: the PostgreSQL server named by BILLDATA_TEST_POSTGRES (a connection
//     string to its maintenance database, as scripts/with-postgres.sh sets it), natively or
//     through its ODBC driver;
//   - sqlserver: the SQL Server named by BILLDATA_TEST_SQLSERVER (an OLE DB or ODBC connection
//     string to a login that may create databases, on its master database), through ODBC.
// Each test makes databases of its own on the server and drops them afterwards.

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/test_support.h"

namespace billdata::testing {

// The PostgreSQL server's connection string, or empty when none is configured.
std::string postgres_server();
// The SQL Server's connection string (BILLDATA_TEST_SQLSERVER), or empty when none is configured.
std::string sqlserver_server();

// A new empty database on the run's server (SQL Server on the sqlserver engine, the PostgreSQL
// server otherwise), dropped when the object goes whatever happened to it (on SQL Server its
// sessions are ended first). std::runtime_error when there is no server or it refuses.
class ServerDatabase {
  public:
    ServerDatabase();
    ~ServerDatabase();
    ServerDatabase(const ServerDatabase&) = delete;
    ServerDatabase& operator=(const ServerDatabase&) = delete;

    const std::string& name() const { return name_; }
    // What the component takes for this database: `Provider=PostgreSQL;…;Database=<name>`; on
    // the odbc engine the ODBC string of the same database (`Driver={PostgreSQL Unicode};…;
    // Dialect=PostgreSQL`); on SQL Server the configured string with its database replaced.
    const std::string& connection_string() const { return connection_string_; }
    // The same database in libpq's `key=value` form (PostgreSQL only).
    const std::string& conninfo() const { return conninfo_; }
    bool sqlserver() const { return sqlserver_; }

    // Runs SQL of the server itself on a connection of its own (set-up, or reading past the
    // component); std::runtime_error with the server's message on failure. Rows as "a|b|" texts
    // ("NULL" for a null), in the order the server sends them. On SQL Server a query that the
    // component's parser reads as one select is read through the data layer; anything else
    // (definitions, a batch) runs as a script and gives no rows.
    std::vector<std::string> exec(const std::string& sql) const;
    // The first column of the first row of a query of the server's own SQL ("" when there is
    // none), on a connection of its own; std::runtime_error as exec.
    std::string scalar(const std::string& sql) const;
    // Makes the component's PostgreSQL schema here, with its runtime functions and the
    // information-schema views (PostgreSQL only); `then` runs in the same script.
    void create_postgresql_schema(const std::string& then = {}) const;
    // The same on any database of the PostgreSQL server (libpq conninfo).
    static std::vector<std::string> exec_on(const std::string& conninfo, const std::string& sql);

  private:
    std::string name_;
    std::string connection_string_;
    std::string conninfo_;
    bool sqlserver_ = false;
};

// The engine this run's cases go to, from BILLDATA_TEST_ENGINE as ctest sets it for the runs of
// the folders that run on every engine: "sqlite" (unset), "postgresql" (the tests' PostgreSQL
// server through its native driver), "odbc" (the same server through its ODBC driver) or
// "sqlserver" (the SQL Server of BILLDATA_TEST_SQLSERVER).
std::string test_engine();

// Whether this run's cases go to a server (PostgreSQL natively or through ODBC, or SQL Server).
bool on_test_server();
// Whether they go to SQL Server.
bool on_sqlserver();

// Why this run's cases cannot run: the variable that names the engine's server when it is
// unset; empty when they can (the embedded engine, or a server configured).
std::string missing_test_server();

// A new empty database of the run's engine for a test that reaches it through the program: a
// file in a folder of its own, or (on_test_server()) a new database on the test server.
// std::runtime_error as ServerDatabase when that server is not configured.
class EngineDatabase {
  public:
    EngineDatabase();
    // What `billdata init` and --db take: the file's path or the server's connection string.
    const std::string& target() const { return target_; }
    // The same for ado::Connection::Open.
    std::string connection_string() const;
    // The server database, or nullptr for a file.
    const ServerDatabase* server() const { return server_.get(); }
    const TempDir& dir() const { return dir_; }

  private:
    TempDir dir_;
    std::unique_ptr<ServerDatabase> server_;
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

// The texts sent to SQL Server for the tests' databases.
// A name in brackets, a ']' in it doubled.
std::string sqlserver_quoted(std::string_view name);
// The server's connection string with its database replaced by `name`: Initial Catalog in an
// OLE DB string, Database in an ODBC string; every other keyword kept.
std::string sqlserver_database_string(const std::string& server, const std::string& name);
// A new database `name` with the collation the component needs (case-insensitive,
// accent-sensitive), with committed rows read without waiting for writers.
std::vector<std::string> sqlserver_create_database(const std::string& name);
// `name` dropped if it is there, its sessions ended (rolled back) first.
std::string sqlserver_drop_database(const std::string& name);
// A trigger that makes `table` refuse `event` (INSERT, UPDATE, DELETE) with `message` when a
// row where `when` holds (an expression on `new`, the rows written; empty: any row) is written.
// The error ends the statement and the transaction it is in.
std::string sqlserver_refusal_trigger(const std::string& event, const std::string& table,
                                      const std::string& when, const std::string& message);
// One text that changes with any write to these tables: each one's name, row count and checksum
// of its rows (SQL Server's own functions, for ServerDatabase::scalar).
std::string sqlserver_contents_query(const std::vector<std::string>& tables);

// libpq's conninfo for a `Provider=PostgreSQL;Host=…;Port=…;Database=…;User ID=…;Password=…`
// string (the keys the test server uses), or its ODBC form (Servername, UID, PWD).
std::string postgres_conninfo(const std::string& connection_string);

}  // namespace billdata::testing
