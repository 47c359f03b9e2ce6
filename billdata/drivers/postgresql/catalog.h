#pragma once
// The schema catalogue of a server database, for the T-SQL translator.

#include <libpq-fe.h>

#include <functional>
#include <string>
#include <vector>

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

// The rows of a query of the server's own SQL, as texts, with its parameters ($1, $2, …) bound
// as text; raises ado::ComError (err::kDatabase, the server's message) when it fails. The same
// reading over any connection that reaches the server (libpq, ODBC).
using Rows = std::vector<std::vector<std::string>>;
using Query = std::function<Rows(const char* sql, const std::vector<std::string>& params)>;
dialect::Catalog read_catalog(const Query& query, const dialect::Catalog* spelling = nullptr);

// The key a unique index (or the constraint that made it) covers, as the schema catalogue
// spells it: "ICStockBillEntry.FInterID,FEntryID"; the index's own name when the server does not
// know it.
std::string index_key(const Query& query, const std::string& index,
                      const dialect::Catalog& catalog);

// The machine's time zone by name, so that getdate() on the server is this machine's local
// time as it is on the embedded engine. Empty when it cannot be told (the server's own then).
std::string local_time_zone();

}  // namespace billdata::drivers::postgresql
