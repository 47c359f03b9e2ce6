#include "billdata/schema/schema.h"

namespace billdata::schema {

namespace {

// Generated at configure time from billdata/schema/postgresql/runtime.sql and billdata.sql.
constexpr std::string_view kRuntime =
#include "billdata/schema/postgresql_runtime.inc"
    ;

constexpr std::string_view kSchema =
#include "billdata/schema/postgresql_script.inc"
    ;

}  // namespace

std::string_view postgresql_runtime() {
    return kRuntime;
}

std::string_view postgresql_schema() {
    return kSchema;
}

}  // namespace billdata::schema
