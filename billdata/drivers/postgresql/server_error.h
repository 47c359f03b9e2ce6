#pragma once
// The server's errors as the data layer's: classified by SQLSTATE, never by the text.

#include <string>
#include <string_view>

#include "billdata/ado/com_error.h"

namespace billdata::drivers::postgresql {

// Deadlock (40P01) and serialization failure (40001): the server has chosen this transaction
// as the one to end; it cannot go on.
bool transaction_lost(std::string_view state);
// The server dialect's error number of a state: the runtime raises its errors as 'B' and the
// number in four digits; three of the engine's own states are errors the dialect numbers too.
// 0 for any other state.
int dialect_number(std::string_view state);
// The same for the native code of an error this driver raised.
bool transaction_lost(int native_code);

// The connection itself is gone (class 08, the server shutting down): the handle is not used
// again.
bool connection_lost(std::string_view state);

// The ComError for a server error: 23505 a duplicate key (err::kIntegrity, DuplicateKey, with
// the key as "Table.Col1,Col2"), other class-23 violations err::kIntegrity, deadlock,
// serialization failure and lock not available (55P03) lock errors (err::kLockTimeout,
// ErrorClass::Lock), anything else err::kDatabase; the native code is the SQLSTATE's number.
ado::ComError server_error(std::string_view state, std::string message, bool transaction_open,
                           std::string violated_key = {});

}  // namespace billdata::drivers::postgresql
