#pragma once
// The schema catalogue of an embedded database, for the T-SQL translator.

#include <sqlite3.h>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers::sqlite {

// Reads every table and view with its columns (PRAGMA table_info) and maps each declared type
// by what it contains: INT → Integer; REAL, FLOA, DOUB, NUM, DEC → Real; DATE, TIME → Date;
// CHAR, TEXT, CLOB → Text; anything else Unknown. Raises ado::ComError (err::kDatabase, the
// engine's message) when the schema cannot be read. Reads only; the handle stays the caller's.
dialect::Catalog read_catalog(sqlite3* db);

// The catalogue type of a declared column type, by the rule above.
dialect::ColumnType column_type_of(const char* declared);

}  // namespace billdata::drivers::sqlite
