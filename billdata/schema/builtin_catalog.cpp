#include "billdata/schema/builtin_catalog.h"

#include <sqlite3.h>

#include <memory>
#include <string>

#include "billdata/ado/com_error.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"

namespace billdata::schema {

namespace {

dialect::Catalog load() {
    sqlite3* raw = nullptr;
    if (sqlite3_open(":memory:", &raw) != SQLITE_OK) {
        sqlite3_close(raw);
        throw ado::ComError(ado::err::kDatabase, "cannot open an in-memory database");
    }
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(raw, sqlite3_close);
    drivers::sqlite::register_tsql_runtime(db.get());
    std::string script(sqlite_schema());
    char* message = nullptr;
    if (sqlite3_exec(db.get(), script.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        std::string text = message ? message : "unknown error";
        sqlite3_free(message);
        throw ado::ComError(ado::err::kDatabase, "the embedded schema does not load: " + text);
    }
    return drivers::sqlite::read_catalog(db.get());
}

}  // namespace

const dialect::Catalog& builtin_catalog() {
    static const dialect::Catalog catalog = load();
    return catalog;
}

}  // namespace billdata::schema
