#include "billdata/drivers/postgresql/catalog.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"

namespace billdata::drivers::postgresql {

namespace {

using Result = std::unique_ptr<PGresult, decltype(&PQclear)>;

// The rows of a query that must succeed.
Result query(PGconn* conn, const std::string& sql) {
    Result r(PQexec(conn, sql.c_str()), PQclear);
    if (PQresultStatus(r.get()) != PGRES_TUPLES_OK) {
        throw ado::ComError(ado::err::kDatabase,
                            r ? PQresultErrorMessage(r.get()) : PQerrorMessage(conn));
    }
    return r;
}

std::string lower(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    }
    return s;
}

}  // namespace

dialect::ColumnType column_type_of(std::string_view t) {
    if (t == "smallint" || t == "integer" || t == "bigint") return dialect::ColumnType::Integer;
    if (t == "numeric" || t == "real" || t == "double precision") return dialect::ColumnType::Real;
    if (t == "date" || t.starts_with("timestamp") || t.starts_with("time ")) {
        return dialect::ColumnType::Date;
    }
    if (t == "character" || t == "character varying" || t == "text") {
        return dialect::ColumnType::Text;
    }
    return dialect::ColumnType::Unknown;
}

dialect::Catalog read_catalog(PGconn* conn, const dialect::Catalog* spelling) {
    Result columns =
        query(conn,
              "SELECT table_name, column_name, data_type FROM information_schema.columns "
              "WHERE table_schema = current_schema() "
              "ORDER BY table_name, ordinal_position");
    dialect::Catalog catalog;
    std::string table;
    std::map<std::string, std::string> spelled;  // lower case → the spelling's name
    for (int i = 0; i < PQntuples(columns.get()); ++i) {
        const std::string t = PQgetvalue(columns.get(), i, 0);
        if (t != table) {
            table = t;
            spelled.clear();
            if (spelling != nullptr) {
                for (const std::string& name : spelling->columns(table))
                    spelled.emplace(lower(name), name);
            }
        }
        std::string column = PQgetvalue(columns.get(), i, 1);
        if (auto it = spelled.find(lower(column)); it != spelled.end()) column = it->second;
        catalog.add_column(table, column, column_type_of(PQgetvalue(columns.get(), i, 2)));
    }
    if (catalog.has_table(kKeptRowCountsView)) {
        Result facts =
            query(conn, "SELECT FTable, FCountTable FROM " + std::string(kKeptRowCountsView));
        for (int i = 0; i < PQntuples(facts.get()); ++i)
            catalog.add_kept_row_count(PQgetvalue(facts.get(), i, 0),
                                       PQgetvalue(facts.get(), i, 1));
    }
    if (catalog.has_table(kKeptCopiesView)) {
        Result facts = query(conn, "SELECT FTable, FColumn, FFromTable, FFromColumn, FKey FROM " +
                                       std::string(kKeptCopiesView));
        for (int i = 0; i < PQntuples(facts.get()); ++i) {
            catalog.add_copied_column({PQgetvalue(facts.get(), i, 0), PQgetvalue(facts.get(), i, 1),
                                       PQgetvalue(facts.get(), i, 2), PQgetvalue(facts.get(), i, 3),
                                       PQgetvalue(facts.get(), i, 4)});
        }
    }
    return catalog;
}

}  // namespace billdata::drivers::postgresql
