#include "billdata/drivers/sqlite/catalog.h"

#include <string>
#include <vector>

#include "billdata/ado/com_error.h"

namespace billdata::drivers::sqlite {

namespace {

bool contains(const std::string& upper, const char* part) {
    return upper.find(part) != std::string::npos;
}

[[noreturn]] void fail(sqlite3* db) {
    throw ado::ComError(ado::err::kDatabase, sqlite3_errmsg(db));
}

// A prepared statement that finalises itself.
class Statement {
  public:
    Statement(sqlite3* db, const std::string& sql) {
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt_, nullptr) != SQLITE_OK) fail(db);
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    sqlite3_stmt* get() const { return stmt_; }

  private:
    sqlite3_stmt* stmt_ = nullptr;
};

std::string column_text(sqlite3_stmt* stmt, int col) {
    const unsigned char* p = sqlite3_column_text(stmt, col);
    return p ? std::string(reinterpret_cast<const char*>(p)) : std::string();
}

}  // namespace

dialect::ColumnType column_type_of(const char* declared) {
    std::string upper = declared ? declared : "";
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    }
    if (contains(upper, "INT")) return dialect::ColumnType::Integer;
    if (contains(upper, "REAL") || contains(upper, "FLOA") || contains(upper, "DOUB") ||
        contains(upper, "NUM") || contains(upper, "DEC")) {
        return dialect::ColumnType::Real;
    }
    if (contains(upper, "DATE") || contains(upper, "TIME")) return dialect::ColumnType::Date;
    if (contains(upper, "CHAR") || contains(upper, "TEXT") || contains(upper, "CLOB")) {
        return dialect::ColumnType::Text;
    }
    return dialect::ColumnType::Unknown;
}

dialect::Catalog read_catalog(sqlite3* db) {
    std::vector<std::string> tables;
    {
        Statement list(db,
                       "SELECT name FROM sqlite_schema WHERE type IN ('table', 'view') AND "
                       "name NOT LIKE 'sqlite\\_%' ESCAPE '\\' ORDER BY name");
        int rc;
        while ((rc = sqlite3_step(list.get())) == SQLITE_ROW)
            tables.push_back(column_text(list.get(), 0));
        if (rc != SQLITE_DONE) fail(db);
    }
    dialect::Catalog catalog;
    for (const auto& table : tables) {
        std::string quoted = "\"";
        for (char c : table) {
            if (c == '"') quoted.push_back('"');
            quoted.push_back(c);
        }
        quoted.push_back('"');
        Statement info(db, "PRAGMA table_info(" + quoted + ")");
        int rc;
        while ((rc = sqlite3_step(info.get())) == SQLITE_ROW) {
            const char* type = reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 2));
            catalog.add_column(table, column_text(info.get(), 1), column_type_of(type));
        }
        if (rc != SQLITE_DONE) fail(db);
    }
    if (catalog.has_table(kKeptRowCountsView)) {
        Statement facts(db, "SELECT FTable, FCountTable FROM " + std::string(kKeptRowCountsView));
        int rc;
        while ((rc = sqlite3_step(facts.get())) == SQLITE_ROW)
            catalog.add_kept_row_count(column_text(facts.get(), 0), column_text(facts.get(), 1));
        if (rc != SQLITE_DONE) fail(db);
    }
    if (catalog.has_table(kKeptCopiesView)) {
        Statement facts(db, "SELECT FTable, FColumn, FFromTable, FFromColumn, FKey FROM " +
                                std::string(kKeptCopiesView));
        int rc;
        while ((rc = sqlite3_step(facts.get())) == SQLITE_ROW) {
            catalog.add_copied_column({column_text(facts.get(), 0), column_text(facts.get(), 1),
                                       column_text(facts.get(), 2), column_text(facts.get(), 3),
                                       column_text(facts.get(), 4)});
        }
        if (rc != SQLITE_DONE) fail(db);
    }
    if (catalog.has_table(dialect::kDeclaredTypesTable)) {
        Statement types(db, dialect::kDeclaredTypesQuery);
        int rc;
        std::vector<std::string> row(6);
        while ((rc = sqlite3_step(types.get())) == SQLITE_ROW) {
            for (int i = 0; i < 6; ++i)
                row[static_cast<std::size_t>(i)] = column_text(types.get(), i);
            dialect::add_declared_type_row(catalog, row);
        }
        if (rc != SQLITE_DONE) fail(db);
    }
    return catalog;
}

}  // namespace billdata::drivers::sqlite
