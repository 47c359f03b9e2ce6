#include "billdata/schema/schema.h"

namespace billdata::schema {

namespace {

// Generated at configure time from billdata/schema/sqlserver/billdata.sql.
constexpr std::string_view kSqlServerSchema =
#include "billdata/schema/sqlserver_script.inc"
    ;

}  // namespace

std::string_view sqlserver_schema() {
    return kSqlServerSchema;
}

}  // namespace billdata::schema
