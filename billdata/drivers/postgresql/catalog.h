#pragma once
// The schema catalogue of a server database, for the T-SQL translator.

#include <libpq-fe.h>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers::postgresql {

// Reads every table and view of the connection's current schema with its columns
// (information_schema.columns), typed by the server's type: integers → Integer; numeric, real,
// double precision → Real; date and timestamp → Date; character types → Text; anything else
// Unknown. The server keeps unquoted names in lower case: a database made by billdata init records
// the schema's spelling in t_SpelledNames (FTable, FColumn), and `spelling`, when given, spells
// what that table does not, so that `select *` names the columns as the statements do. Then the
// kept row counts and copies that the views t_KeptRowCounts and t_KeptCopies declare, as on the
// embedded engine. Raises ado::ComError (err::kDatabase, the server's message) when the
// schema cannot be read. The connection must not be in pipeline mode; it stays the caller's.
dialect::Catalog read_catalog(PGconn* conn, const dialect::Catalog* spelling = nullptr);

}  // namespace billdata::drivers::postgresql
