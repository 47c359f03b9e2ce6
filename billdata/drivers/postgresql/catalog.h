#pragma once
// The schema catalogue of a server database, for the T-SQL translator.

#include <libpq-fe.h>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers::postgresql {

// Reads every table and view of the connection's current schema with its columns
// (information_schema.columns), typed by the server's type: integers → Integer; numeric, real,
// double precision → Real; date and timestamp → Date; character types → Text; anything else
// Unknown. Names are spelled as the schema script spelled them where the server keeps them
// folded: the view t_KeptRowCounts and t_KeptCopies facts, as on the embedded engine, then name
// the tables and columns. Raises ado::ComError (err::kDatabase, the server's message) when the
// schema cannot be read. The connection must not be in pipeline mode; it stays the caller's.
dialect::Catalog read_catalog(PGconn* conn);

}  // namespace billdata::drivers::postgresql
