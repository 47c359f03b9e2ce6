#pragma once
// Helpers for tests that need a real embedded database file.

#include <sqlite3.h>

#include <stdexcept>
#include <string>

#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "support/raw_db.h"

namespace billdata::testing {

// Creates the database file and runs `script` on it directly on the engine (table definitions
// are no statements the data layer runs). The runtime's collations are registered first, since
// the tables declare them.
inline void create_database(const std::string& path, const std::string& script) {
    RawDb(path, /*create=*/true).exec(script);
}

// The script of the table of declared column types the catalogue reads, declaring one column
// decimal(precision, scale) (a decimal the driver rounds to its scale when it binds a value).
inline std::string declared_decimal(const std::string& table, const std::string& column,
                                    int precision, int scale) {
    return "create table t_SchemaColumns(TABLE_NAME TEXT, COLUMN_NAME TEXT, DATA_TYPE TEXT, "
           "CHARACTER_MAXIMUM_LENGTH INTEGER, NUMERIC_PRECISION INTEGER, NUMERIC_SCALE INTEGER);"
           "insert into t_SchemaColumns values('" +
           table + "', '" + column + "', 'decimal', null, " + std::to_string(precision) + ", " +
           std::to_string(scale) + ");";
}

// A value read straight from the file, bypassing the data layer (which first commits the write
// groups of the process, as a connection of the driver would).
inline std::string scalar(const std::string& path, const std::string& sql) {
    drivers::sqlite::commit_write_groups();
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    drivers::sqlite::register_tsql_runtime(db);
    sqlite3_stmt* stmt = nullptr;
    std::string out = "<error>";
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK) {
        int rc = sqlite3_step(stmt);
        if (rc == SQLITE_ROW) {
            const unsigned char* t = sqlite3_column_text(stmt, 0);
            out = t ? reinterpret_cast<const char*>(t) : "<null>";
        } else if (rc == SQLITE_DONE) {
            out = "<none>";
        }
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return out;
}

inline std::string sqlite_connection(const std::string& path, const std::string& extra = {}) {
    return "Provider=SQLite;Data Source=" + path + extra;
}

// The usual small table of the data-layer tests, declared as the schema declares its columns.
inline const char* kItemTable =
    "create table T(FID INTEGER PRIMARY KEY, FName TEXT COLLATE BDTEXT, FQty REAL, "
    "FDate DATETIME COLLATE BDDATE);"
    "insert into T values(1,'shirt',2.5,'2025-03-09 00:00:00');"
    "insert into T values(2,'coat',4,'2025-03-10 14:30:00');"
    "insert into T values(3,'hat',NULL,NULL);";

}  // namespace billdata::testing
