#pragma once
// The schema catalogue of an embedded database, for the T-SQL translator.

#include <sqlite3.h>

#include <string_view>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers::sqlite {

// The views through which a database declares what its triggers keep, one row per fact:
//   t_KeptRowCounts (FTable, FCountTable): the one-row table FCountTable keeps FTable's row
//     count in its column named after FTable;
//   t_KeptCopies (FTable, FColumn, FFromTable, FFromColumn, FKey): FTable.FColumn holds
//     FFromTable.FFromColumn of the FFromTable row with the same FKey.
inline constexpr std::string_view kKeptRowCountsView = "t_KeptRowCounts";
inline constexpr std::string_view kKeptCopiesView = "t_KeptCopies";

// Reads every table and view with its columns (PRAGMA table_info) and maps each declared type
// by what it contains: INT → Integer; REAL, FLOA, DOUB, NUM, DEC → Real; DATE, TIME → Date;
// CHAR, TEXT, CLOB → Text; anything else Unknown. Then the kept row counts and copies that the
// database declares in the views above, where it has them (a fact that names a table or column
// the database does not have is left out). Raises ado::ComError (err::kDatabase, the engine's
// message) when the schema cannot be read. Reads only; the handle stays the caller's.
dialect::Catalog read_catalog(sqlite3* db);

// The catalogue type of a declared column type, by the rule above.
dialect::ColumnType column_type_of(const char* declared);

}  // namespace billdata::drivers::sqlite
