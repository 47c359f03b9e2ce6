#pragma once
// The schema catalogue of a server database, for the T-SQL translator.

#include <libpq-fe.h>

#include <string_view>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers::postgresql {

// The views through which the database declares what its triggers keep (the same as the
// embedded engine's): t_KeptRowCounts (FTable, FCountTable) and t_KeptCopies (FTable, FColumn,
// FFromTable, FFromColumn, FKey).
inline constexpr std::string_view kKeptRowCountsView = "t_KeptRowCounts";
inline constexpr std::string_view kKeptCopiesView = "t_KeptCopies";

// Reads the tables and views of the connection's current schema with their columns
// (information_schema.columns, in column order) and maps each data type: smallint, integer,
// bigint → Integer; numeric, real, double precision → Real; date, time and timestamp types →
// Date; character types and text → Text; anything else Unknown. Then the kept row counts and
// copies that the database declares in the views above, where it has them.
//
// The server keeps unquoted names in lower case. When `spelling` is given, a column that it also
// has (names compared without regard to case) takes its spelling from there, so that `select *`
// names the columns as the statements spell them.
//
// Raises ado::ComError (err::kDatabase, the server's message) when the schema cannot be read.
// Reads only, outside any transaction of its own; the connection stays the caller's.
dialect::Catalog read_catalog(PGconn* conn, const dialect::Catalog* spelling = nullptr);

// The catalogue type of a data type as information_schema names it, by the rule above.
dialect::ColumnType column_type_of(std::string_view data_type);

}  // namespace billdata::drivers::postgresql
