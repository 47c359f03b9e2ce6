#include "billdata/drivers/postgresql/catalog.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/util/text.h"

namespace billdata::drivers::postgresql {

namespace {

Rows pq_query(PGconn* conn, const char* sql, const std::vector<std::string>& params) {
    std::vector<const char*> values;
    for (const std::string& p : params)
        values.push_back(p.c_str());
    PGresult* r = PQexecParams(conn, sql, static_cast<int>(values.size()), nullptr, values.data(),
                               nullptr, nullptr, 0);
    if (PQresultStatus(r) != PGRES_TUPLES_OK) {
        std::string message = PQresultErrorMessage(r);
        PQclear(r);
        while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
            message.pop_back();
        throw ado::ComError(ado::err::kDatabase, message);
    }
    Rows rows(static_cast<std::size_t>(PQntuples(r)));
    for (int i = 0; i < PQntuples(r); ++i)
        for (int j = 0; j < PQnfields(r); ++j)
            rows[static_cast<std::size_t>(i)].emplace_back(PQgetvalue(r, i, j));
    PQclear(r);
    return rows;
}

dialect::ColumnType type_of(const std::string& t) {
    if (t == "integer" || t == "smallint" || t == "bigint" || t == "boolean")
        return dialect::ColumnType::Integer;
    if (t == "numeric" || t == "real" || t == "double precision") return dialect::ColumnType::Real;
    if (t == "date" || t.rfind("timestamp", 0) == 0) return dialect::ColumnType::Date;
    if (t == "character" || t == "character varying" || t == "text" || t == "bpchar")
        return dialect::ColumnType::Text;
    return dialect::ColumnType::Unknown;
}

}  // namespace

dialect::Catalog read_catalog(PGconn* conn, const dialect::Catalog* spelling) {
    return read_catalog(
        [conn](const char* sql, const std::vector<std::string>& params) {
            return pq_query(conn, sql, params);
        },
        spelling);
}

dialect::Catalog read_catalog(const Query& run, const dialect::Catalog* spelling) {
    auto query = [&run](const char* sql) { return run(sql, {}); };
    // The names as the schema spells them, where the database records them: the server keeps
    // unquoted names in lower case, and record-set field names should read as on every engine.
    std::map<std::string, std::string> spelled;  // lower-case "table" or "table.column"
    if (!query("SELECT 1 FROM information_schema.tables WHERE table_schema = "
               "current_schema() AND table_name = 't_spellednames'")
             .empty()) {
        for (const auto& row : query("SELECT FTable, FColumn FROM t_SpelledNames")) {
            spelled.emplace(util::lower_copy(row[0]), row[0]);
            spelled.emplace(util::lower_copy(row[0]) + "." + util::lower_copy(row[1]), row[1]);
        }
    }
    if (spelling)
        for (const std::string& table : spelling->tables()) {
            spelled.emplace(util::lower_copy(table), table);
            for (const std::string& column : spelling->columns(table))
                spelled.emplace(util::lower_copy(table) + "." + util::lower_copy(column), column);
        }
    auto spell = [&](const std::string& key, const std::string& fallback) {
        auto it = spelled.find(key);
        return it == spelled.end() ? fallback : it->second;
    };
    dialect::Catalog catalog;
    const Rows columns = query(
        "SELECT c.table_name, c.column_name, "
        "CASE WHEN c.data_type = 'USER-DEFINED' THEN c.udt_name ELSE c.data_type END, "
        "c.is_nullable FROM information_schema.columns c WHERE c.table_schema = current_schema() "
        "ORDER BY c.table_name, c.ordinal_position");
    for (const auto& row : columns) {
        const std::string table = spell(row[0], row[0]);
        const std::string column = spell(row[0] + "." + row[1], row[1]);
        catalog.add_column(table, column, type_of(row[2]));
        // Ordering needs it: the server sorts NULLs apart from how this engine does by default,
        // and a column that holds none can keep its index order.
        if (row[3] == "NO") catalog.set_not_null(table, column);
    }
    if (catalog.has_table("t_KeptRowCounts"))
        for (const auto& row : query("SELECT FTable, FCountTable FROM t_KeptRowCounts"))
            catalog.add_kept_row_count(row[0], row[1]);
    if (catalog.has_table("t_KeptCopies"))
        for (const auto& row : query("SELECT FTable, FColumn, FFromTable, FFromColumn, FKey "
                                     "FROM t_KeptCopies"))
            catalog.add_copied_column({row[0], row[1], row[2], row[3], row[4]});
    if (catalog.has_table(dialect::kDeclaredTypesTable))
        for (const auto& row : query(dialect::kDeclaredTypesQuery))
            dialect::add_declared_type_row(catalog, row);
    return catalog;
}

std::string index_key(const Query& query, const std::string& index,
                      const dialect::Catalog& catalog) {
    if (index.empty()) return {};
    const Rows rows = query(
        "SELECT t.relname, a.attname FROM pg_class i JOIN pg_index x ON x.indexrelid = i.oid "
        "JOIN pg_class t ON t.oid = x.indrelid "
        "JOIN pg_attribute a ON a.attrelid = x.indrelid AND a.attnum = ANY(x.indkey) "
        "WHERE i.relname = $1 ORDER BY array_position(x.indkey::int2[], a.attnum)",
        {index});
    if (rows.empty()) return index;
    const std::string& table = rows[0][0];
    std::string key(catalog.table_name(table).empty() ? std::string_view(table)
                                                      : catalog.table_name(table));
    key += '.';
    const std::vector<std::string> declared = catalog.columns(table);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string name = rows[i][1];
        for (const std::string& d : declared)
            if (util::iequals(d, name)) name = d;
        if (i) key += ',';
        key += name;
    }
    return key;
}

std::string local_time_zone() {
    if (const char* tz = std::getenv("TZ"); tz && *tz) return tz[0] == ':' ? tz + 1 : tz;
    std::error_code ec;
    const auto target = std::filesystem::read_symlink("/etc/localtime", ec).string();
    const auto at = target.find("zoneinfo/");
    return ec || at == std::string::npos ? std::string() : target.substr(at + 9);
}

}  // namespace billdata::drivers::postgresql
