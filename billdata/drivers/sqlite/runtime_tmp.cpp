// Temporary stand-ins until the runtime and the catalogue reader land.
#include <cstring>
#include <string>

#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"

namespace billdata::drivers::sqlite {

namespace {
int compare_text(void*, int n1, const void* p1, int n2, const void* p2) {
    const auto* a = static_cast<const unsigned char*>(p1);
    const auto* b = static_cast<const unsigned char*>(p2);
    while (n1 > 0 && a[n1 - 1] == ' ')
        --n1;
    while (n2 > 0 && b[n2 - 1] == ' ')
        --n2;
    for (int i = 0; i < n1 && i < n2; ++i) {
        int x = a[i] >= 'A' && a[i] <= 'Z' ? a[i] + 32 : a[i];
        int y = b[i] >= 'A' && b[i] <= 'Z' ? b[i] + 32 : b[i];
        if (x != y) return x - y;
    }
    return n1 - n2;
}
int compare_bytes(void*, int n1, const void* p1, int n2, const void* p2) {
    int r = std::memcmp(p1, p2, static_cast<std::size_t>(n1 < n2 ? n1 : n2));
    return r != 0 ? r : n1 - n2;
}
}  // namespace

int register_tsql_runtime(sqlite3* db) {
    int rc = sqlite3_create_collation(db, "BDTEXT", SQLITE_UTF8, nullptr, compare_text);
    if (rc != SQLITE_OK) return rc;
    return sqlite3_create_collation(db, "BDDATE", SQLITE_UTF8, nullptr, compare_bytes);
}

dialect::Catalog read_catalog(sqlite3* db) {
    dialect::Catalog catalog;
    sqlite3_stmt* tables = nullptr;
    sqlite3_prepare_v2(db, "select name from sqlite_master where type='table'", -1, &tables,
                       nullptr);
    while (tables && sqlite3_step(tables) == SQLITE_ROW) {
        std::string table = reinterpret_cast<const char*>(sqlite3_column_text(tables, 0));
        sqlite3_stmt* cols = nullptr;
        std::string sql = "pragma table_info(\"" + table + "\")";
        sqlite3_prepare_v2(db, sql.c_str(), -1, &cols, nullptr);
        while (cols && sqlite3_step(cols) == SQLITE_ROW) {
            std::string name = reinterpret_cast<const char*>(sqlite3_column_text(cols, 1));
            const char* decl = reinterpret_cast<const char*>(sqlite3_column_text(cols, 2));
            std::string type = decl ? decl : "";
            dialect::ColumnType t = dialect::ColumnType::Unknown;
            if (type.find("INT") != std::string::npos)
                t = dialect::ColumnType::Integer;
            else if (type.find("DATE") != std::string::npos)
                t = dialect::ColumnType::Date;
            else if (type.find("REAL") != std::string::npos)
                t = dialect::ColumnType::Real;
            else if (type.find("TEXT") != std::string::npos)
                t = dialect::ColumnType::Text;
            catalog.add_column(table, name, t);
        }
        sqlite3_finalize(cols);
    }
    sqlite3_finalize(tables);
    return catalog;
}

}  // namespace billdata::drivers::sqlite
