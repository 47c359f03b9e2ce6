#include <string>

#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"

namespace billdata::drivers::sqlite {

namespace {

// The violated key as "Table.Col1,Col2". The engine names the columns only in its message
// ("UNIQUE constraint failed: T.a, T.b"), so this is the one place that reads the text; the
// class itself comes from the result code.
std::string violated_key(const std::string& message) {
    static const std::string marker = "constraint failed: ";
    auto at = message.find(marker);
    if (at == std::string::npos) return {};
    std::string rest = message.substr(at + marker.size());
    std::string table, columns;
    std::size_t pos = 0;
    while (pos <= rest.size()) {
        std::size_t comma = rest.find(", ", pos);
        std::string part =
            rest.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
        std::size_t dot = part.find('.');
        if (dot == std::string::npos) return rest;  // an index on expressions: no column names
        if (table.empty()) table = part.substr(0, dot);
        if (!columns.empty()) columns += ',';
        columns += part.substr(dot + 1);
        if (comma == std::string::npos) break;
        pos = comma + 2;
    }
    return table + "." + columns;
}

}  // namespace

ado::ComError database_error(sqlite3* db, int rc) {
    int code = rc;
    if (db) {
        const int ext = sqlite3_extended_errcode(db);
        if ((ext & 0xff) == (rc & 0xff)) code = ext;  // prefer the extended code of this error
    }
    std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    const bool txn_open = db && !sqlite3_get_autocommit(db);
    using ado::ErrorClass;
    namespace err = ado::err;
    switch (code & 0xff) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return ado::ComError(err::kLockTimeout, message)
                .classify(ErrorClass::Lock, code, {}, txn_open);
        case SQLITE_CONSTRAINT:
            if (code == SQLITE_CONSTRAINT_PRIMARYKEY || code == SQLITE_CONSTRAINT_UNIQUE)
                return ado::ComError(err::kIntegrity, message)
                    .classify(ErrorClass::DuplicateKey, code, violated_key(message), txn_open);
            return ado::ComError(err::kIntegrity, message)
                .classify(ErrorClass::Other, code, {}, txn_open);
        default: {
            // A runtime function's failure carries the server's own error number: that is the
            // native code the caller sees, as on the server.
            const int number = server_error_number(code);
            return ado::ComError(err::kDatabase, message)
                .classify(ErrorClass::Other, number ? number : code, {}, txn_open);
        }
    }
}

}  // namespace billdata::drivers::sqlite
