#pragma once
// The database schema per engine and the creation of a new embedded database.

#include <sqlite3.h>

#include <string>
#include <string_view>
#include <vector>

namespace billdata::schema {

// The DDL script of the embedded engine: tables, indexes and triggers, several statements
// separated by ';'. Its text and date columns name the collations BDTEXT and BDDATE, so it runs
// only on a handle where drivers::sqlite::register_tsql_runtime has been called. Static text;
// thread-safe.
std::string_view sqlite_schema();

// The same schema for SQL Server, with the stored procedures sp_GetStockQty and Sp_CacuCost,
// batches separated by GO lines. Byte for byte the file billdata/schema/sqlserver/billdata.sql.
// Static text; thread-safe.
std::string_view sqlserver_schema();

// A column as the SQL Server script declares it.
struct DeclaredColumn {
    std::string table;
    std::string column;
    std::string type;   // the type's name as written, lower case: int, nvarchar, decimal, datetime
    int length = 0;     // a text's declared length, -1 for max; 0 for the other types
    int precision = 0;  // a decimal's precision and scale; 0 for the other types
    int scale = 0;
    bool nullable = true;
};

// Every column of every table of sqlserver_schema(), tables and columns in declared order, read
// from the script by the dialect's script parser once per process. Thread-safe.
const std::vector<DeclaredColumn>& sqlserver_declared_columns();

// Whether `target` names a database on a server (a PostgreSQL connection string or URI, an OLE DB
// or ODBC string) rather than an embedded database file.
bool is_server_database(const std::string& target);

// The PostgreSQL scripts, run in this order on an empty database: the server functions that
// translated statements call (billdata/schema/postgresql/runtime.sql), then the collation bd_ci,
// tables, indexes, triggers and the functions sp_getstockqty and sp_cacucost
// (billdata/schema/postgresql/billdata.sql). Each holds several statements separated by ';',
// function bodies between $$, and runs in one transaction. Byte for byte the files. Static
// text; thread-safe.
std::string_view postgresql_runtime();
std::string_view postgresql_schema();

// The tables t_SchemaTables and t_SchemaColumns: every table and column of the SQL Server script,
// with its declared type, as the server's INFORMATION_SCHEMA.TABLES and .COLUMNS describe them
// (the translator reads them for those two views). For the embedded engine (`server` false;
// part of sqlite_schema()) or for PostgreSQL (run after postgresql_schema()).
std::string information_schema_sql(bool server);

// Creates a new embedded database at `path`: the schema in one transaction, WAL journal, the
// settings rows of t_SystemProfile (StartYear, StartPeriod, CurrentYear, CurrentPeriod = `year`
// and `period`, or this month when either is 0; ICClosed, WLClosed, CashClosed = "0"), the
// interior-id series 11 seeded at 1,000,000,000, and with `demo` the master data of a small
// shop. Raises ado::ComError (err::kDatabase) when the file already holds tables, when the
// period is out of range or when the engine fails; the file is then left as it was (a file that
// did not exist before is removed again). Not thread-safe for the same path.
// When `path` is a server's connection string (is_server_database), the same schema, settings
// and data are created in that existing database, which must hold no tables yet, in one
// transaction: a failure leaves it empty. A SQL Server database (an OLE DB or ODBC string of the
// ODBC driver) gets billdata/schema/sqlserver/billdata.sql batch by batch; a PostgreSQL one,
// natively or through ODBC, the PostgreSQL scripts.
void create_database(const std::string& path, bool demo, int year = 0, int period = 0);

// Brings a database made by an earlier build up to date without touching its data, in one
// transaction (a failure leaves it as it was): the tables t_SchemaTables and t_SchemaColumns
// when either is missing, and on PostgreSQL the runtime functions as this build has them.
// `target` is what create_database takes, or a `Provider=SQLite;Data Source=…` string. Returns
// what it did, a line each; empty when the database was up to date (and for a SQL Server
// database, which needs neither). Running it again is harmless. Raises ado::ComError
// (err::kDatabase) for a file that does not exist or a database that holds no bill data tables,
// and when the engine fails.
std::vector<std::string> upgrade_database(const std::string& target);

// Inserts the demo master data (stocks, items with and without size groups, sizes, colours,
// suppliers, customers, accounts, staff, users, members, opening stock, receivables and cash)
// into a database that holds the schema and no master data yet. Runs on the caller's handle and
// inside the caller's transaction; raises ado::ComError (err::kDatabase) on an engine error.
void add_demo_data(sqlite3* db);

// The demo master data as SQL: INSERT statements separated by ';' that run unchanged on the
// embedded engine (what add_demo_data runs) and on PostgreSQL, after the schema. Static text;
// thread-safe.
std::string_view demo_data_sql();

}  // namespace billdata::schema
