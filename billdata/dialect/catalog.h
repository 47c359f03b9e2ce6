#pragma once
// The schema catalogue the translator reads: tables and their columns with types, and what the
// database keeps up to date by itself (row counts, copies of columns), which a translation may
// read instead of computing it. Plain data; a const Catalog is safe to share between threads.

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "billdata/dialect/types.h"

namespace billdata::dialect {

enum class ColumnType { Unknown, Integer, Real, Text, Date };

// `table.column` holds `from_table.from_column` of the `from_table` row with the same `key`
// (NULL while there is none), kept so by the database on every change of either table. Under an
// inner join of the two tables on `key`, a test of the original holds exactly where the same
// test of the copy holds.
struct CopiedColumn {
    std::string table;
    std::string column;
    std::string from_table;
    std::string from_column;
    std::string key;
};

// Tables and their columns with types; names are matched without regard to case. The
// translator uses it to tell text concatenation from addition and date comparisons from text
// comparisons, to resolve unqualified column names, and to read kept values.
class Catalog {
  public:
    void add_column(std::string_view table, std::string_view column, ColumnType type);
    bool has_table(std::string_view table) const;
    // The table's name as the catalogue spells it; empty when there is no such table.
    std::string_view table_name(std::string_view table) const;
    // Unknown when the table or column is not in the catalogue.
    ColumnType column_type(std::string_view table, std::string_view column) const;
    // Whether the table has the column (a column of Unknown type counts); its type goes to
    // *type when it has and type is not null.
    bool find_column(std::string_view table, std::string_view column,
                     ColumnType* type = nullptr) const;
    // The same, with the column's server type to *sql: the declared one, or what its ColumnType
    // tells when none is declared (type_from_column).
    bool find_column(std::string_view table, std::string_view column, ColumnType* type,
                     SqlType* sql) const;
    // Declares the column's server type (the schema script's declaration), kept next to the
    // ColumnType the engines need. Ignored, returning false, unless the table has the column.
    bool set_declared_type(std::string_view table, std::string_view column, const SqlType& type);
    // The declared server type; Unknown when none is declared or there is no such column.
    SqlType declared_type(std::string_view table, std::string_view column) const;
    // Records that the column can hold no NULL (NOT NULL in the database). Ignored, returning
    // false, unless the table has the column.
    bool set_not_null(std::string_view table, std::string_view column);
    // Whether the column is known to hold no NULL; false when unknown.
    bool not_null(std::string_view table, std::string_view column) const;
    // Every table's name as the catalogue spells it, in no particular order.
    std::vector<std::string> tables() const;
    // Column names of a table in the order they were added (empty when there is no such table).
    std::vector<std::string> columns(std::string_view table) const;

    // Declares that the one-row table `counts` keeps the row count of `table` in its column
    // named after `table`. Ignored, returning false, unless both tables and that column are in
    // the catalogue (declare facts after the columns).
    bool add_kept_row_count(std::string_view table, std::string_view counts);
    // The one-row table that keeps `table`'s row count, as the catalogue spells it; empty when
    // none does.
    std::string_view kept_row_count(std::string_view table) const;

    // Declares a copied column. Ignored, returning false, unless the catalogue has both tables
    // with the columns named (the key in both). Names are stored as the catalogue spells them.
    bool add_copied_column(const CopiedColumn& copy);
    const std::vector<CopiedColumn>& copied_columns() const { return copies_; }

  private:
    struct Table {
        std::string name;
        std::vector<std::pair<std::string, ColumnType>> columns;  // declared order
        std::map<std::string, std::size_t, std::less<>> index;    // lower-case name → position
        std::string kept_row_count;     // the table that keeps this one's row count, if any
        std::vector<SqlType> declared;  // by position; shorter than columns when not all are
        std::vector<bool> not_null;     // by position; shorter than columns when not all are
    };
    const Table* find_table(std::string_view table) const;
    // The column's name as declared, or nullptr when the table has no such column.
    const std::string* column_name(const Table& t, std::string_view column) const;

    std::map<std::string, Table, std::less<>> tables_;  // lower-case name → table
    std::vector<CopiedColumn> copies_;
};

// A database keeps its columns' declared server types in the table t_SchemaColumns, written from
// the SQL Server script when the database is made. kDeclaredTypesQuery reads them, and each row
// of it goes into the catalogue through add_declared_type_row (a NULL read as an empty text). A
// database made before that table existed has none: its columns are then typed by what the
// engines need alone, and no exactness is claimed for them.
inline constexpr std::string_view kDeclaredTypesTable = "t_SchemaColumns";
inline constexpr const char* kDeclaredTypesQuery =
    "SELECT TABLE_NAME, COLUMN_NAME, DATA_TYPE, CHARACTER_MAXIMUM_LENGTH, NUMERIC_PRECISION, "
    "NUMERIC_SCALE FROM t_SchemaColumns";
void add_declared_type_row(Catalog& catalog, const std::vector<std::string>& row);

}  // namespace billdata::dialect
