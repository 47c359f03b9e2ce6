// The T-SQL runtime's collations and the registration of the whole runtime on a handle.

#include "billdata/drivers/sqlite/tsql_runtime.h"

#include <string_view>

#include "billdata/dialect/runtime_names.h"
#include "billdata/drivers/sqlite/tsql_runtime_internal.h"

namespace billdata::drivers::sqlite {

namespace {

namespace names = dialect::runtime;

int collate_text(void*, int na, const void* a, int nb, const void* b) {
    return runtime::compare_text(
        std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(na)),
        std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(nb)));
}

int collate_date(void*, int na, const void* a, int nb, const void* b) {
    return runtime::compare_dates(
        std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(na)),
        std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(nb)));
}

// The database's name, as INFORMATION_SCHEMA's TABLE_CATALOG gives it: the main file's name
// without its folder and extension ("main" for a database in memory).
void database_name(sqlite3_context* ctx, int, sqlite3_value**) {
    const char* file = sqlite3_db_filename(sqlite3_context_db_handle(ctx), "main");
    std::string_view name = file ? file : "";
    const std::size_t slash = name.find_last_of("/\\");
    if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
    if (name.empty()) name = "main";
    sqlite3_result_text(ctx, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
}

}  // namespace

int register_tsql_runtime(sqlite3* db) {
    int rc = sqlite3_create_collation_v2(db, names::kTextCollation.data(), SQLITE_UTF8, nullptr,
                                         collate_text, nullptr);
    if (rc != SQLITE_OK) return rc;
    rc = sqlite3_create_collation_v2(db, names::kDateCollation.data(), SQLITE_UTF8, nullptr,
                                     collate_date, nullptr);
    if (rc != SQLITE_OK) return rc;
    for (const auto functions :
         {runtime::date_functions(), runtime::number_functions(), runtime::text_functions()}) {
        for (const runtime::FunctionDef& f : functions) {
            rc = sqlite3_create_function_v2(db, f.name.data(), f.args,
                                            SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                                            nullptr, f.fn, nullptr, nullptr, nullptr);
            if (rc != SQLITE_OK) return rc;
        }
    }
    // The same on every call of a connection, but not a function of its arguments alone.
    return sqlite3_create_function_v2(db, "bd_database_name", 0, SQLITE_UTF8 | SQLITE_INNOCUOUS,
                                      nullptr, database_name, nullptr, nullptr, nullptr);
}

}  // namespace billdata::drivers::sqlite
