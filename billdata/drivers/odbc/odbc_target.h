#pragma once
// Which database an ODBC connection reaches and how: the connection string of the data layer
// turned into the one the ODBC driver manager takes, with this library's own keywords taken out.

#include <string>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"

namespace billdata::drivers::odbc {

// The language the database speaks: SQL Server's own (statements go out as written), or
// PostgreSQL's (statements go through the translator, as on the native PostgreSQL driver).
enum class Dialect { SqlServer, PostgreSql };

inline constexpr int kDefaultConnectTimeoutSeconds = 10;
inline constexpr int kDefaultBusyTimeoutMs = 5000;
inline constexpr int kFetchBlock = 500;  // rows a PostgreSQL cursor sends at a time

struct OdbcTarget {
    std::string odbc;  // for SQLDriverConnect
    std::string
        where;  // what the messages name: "ODBC driver '…' at server '…'", "data source '…'"
    Dialect dialect = Dialect::SqlServer;
    int connect_timeout_s = kDefaultConnectTimeoutSeconds;
    int busy_ms = kDefaultBusyTimeoutMs;  // one statement's wait for a lock
    bool pooling = true;
    bool cache = true;  // one prepared statement per statement shape
};

// Whether the string selects the ODBC driver: an OLE DB provider of SQL Server (SQLOLEDB,
// SQLNCLI…, MSOLEDBSQL…), or an ODBC string (a Driver or DSN keyword and no Provider).
bool accepts(const ado::ConnectionString& cs);

// The ODBC connection of a string that accepts() takes:
// - an OLE DB string maps Data Source (host, host,port or host\instance, an optional "tcp:"
//   prefix), Initial Catalog, User ID and Password onto the FreeTDS driver's keywords (Server,
//   Port, Database, UID, PWD, TDS_Version=7.4, ClientCharset=UTF-8), or onto the driver that a
//   Driver keyword names; any other keyword is refused, naming it;
// - an ODBC string goes to the driver manager as it is, without this library's keywords (with
//   Dialect=PostgreSQL and no UseDeclareFetch of its own, rows read through a server cursor
//   kFetchBlock at a time).
// This library's keywords on both: Dialect (SQL Server | PostgreSQL), Connect Timeout, Busy
// Timeout (ms), Lock Timeout, Pooling, Statement Cache, Command Timeout. Raises ComError
// (err::kConnection) naming a bad value.
OdbcTarget odbc_target(const ado::ConnectionString& cs);

}  // namespace billdata::drivers::odbc
