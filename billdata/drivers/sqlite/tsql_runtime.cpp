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

}  // namespace

int register_tsql_runtime(sqlite3* db) {
    int rc = sqlite3_create_collation_v2(db, names::kTextCollation.data(), SQLITE_UTF8, nullptr,
                                         collate_text, nullptr);
    if (rc != SQLITE_OK) return rc;
    rc = sqlite3_create_collation_v2(db, names::kDateCollation.data(), SQLITE_UTF8, nullptr,
                                     collate_date, nullptr);
    if (rc != SQLITE_OK) return rc;
    for (const auto functions :
         {runtime::date_functions(), runtime::number_functions(), runtime::text_functions(),
          runtime::convert_functions(), runtime::decimal_functions()}) {
        for (const runtime::FunctionDef& f : functions) {
            rc = sqlite3_create_function_v2(db, f.name.data(), f.args,
                                            SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                                            nullptr, f.fn, nullptr, nullptr, nullptr);
            if (rc != SQLITE_OK) return rc;
        }
    }
    rc = runtime::register_aggregates(db);
    if (rc != SQLITE_OK) return rc;
    return runtime::register_decimal_aggregates(db);
}

}  // namespace billdata::drivers::sqlite
