#pragma once
// SQL Server's errors as the data layer's: classified by the server's native error number,
// never by the text.

#include <string>
#include <string_view>
#include <vector>

#include "billdata/ado/com_error.h"

namespace billdata::drivers::odbc {

struct SqlServerErrorKind {
    int native;
    ado::ErrorClass error_class;
    std::int32_t number;    // the data layer's error number
    bool ends_transaction;  // the server rolls the whole transaction back
};

// The classification of a native error number: 1205 (deadlock victim) a lock error that ends
// the transaction; 1222 (lock request timeout) a lock error; 2627 and 2601 (duplicate key) a
// duplicate key; 547 (constraint conflict) and 515 (null into a column that takes none)
// integrity errors; 8115 (arithmetic overflow), 8134 (divide by zero) and 245 (conversion
// failed) and anything else a database error.
SqlServerErrorKind sqlserver_error_kind(int native);

// The names a duplicate-key message quotes ('…' or “…”), in order: the constraint or index and
// the table, whichever way the server's language orders them.
std::vector<std::string> quoted_names(std::string_view message);

// The ComError of a server error: its class from the native number, the violated key (as
// "Table.Col1,Col2") for a duplicate, whether the transaction is still open.
ado::ComError sqlserver_error(int native, std::string message, bool transaction_open,
                              std::string violated_key = {});

}  // namespace billdata::drivers::odbc
