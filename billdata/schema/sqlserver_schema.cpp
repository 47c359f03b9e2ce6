#include "billdata/dialect/script.h"
#include "billdata/schema/schema.h"

namespace billdata::schema {

namespace {

// Generated at configure time from billdata/schema/sqlserver/billdata.sql.
constexpr std::string_view kSqlServerSchema =
#include "billdata/schema/sqlserver_script.inc"
    ;

std::vector<DeclaredColumn> read_declared_columns() {
    std::vector<DeclaredColumn> out;
    for (const dialect::ScriptTable& table : dialect::parse_script(kSqlServerSchema).tables) {
        for (const dialect::ScriptColumn& c : table.columns) {
            out.push_back(DeclaredColumn{table.name, c.name, c.type.name, c.type.length,
                                         c.type.precision, c.type.scale, c.nullable});
        }
    }
    return out;
}

}  // namespace

std::string_view sqlserver_schema() {
    return kSqlServerSchema;
}

const std::vector<DeclaredColumn>& sqlserver_declared_columns() {
    static const std::vector<DeclaredColumn> columns = read_declared_columns();
    return columns;
}

}  // namespace billdata::schema
