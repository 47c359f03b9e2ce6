#pragma once
// The statement log: with BILLDATA_SQL_LOG=<file> in the environment, every statement the
// component issues is appended to that file, one per line, exactly as it was built (before any
// translation). A support engineer turns it on at a shop to see what a till sent.

#include <string_view>

namespace billdata::ado::sql_log {

// Appends one statement (a newline inside it written as the two characters "\n", a carriage
// return as "\r") when the variable is set; does nothing otherwise. The variable is read at each
// call, so it can be set or cleared while the program runs. Logging never fails an operation: a
// file that cannot be opened or written is told once on standard error (per file named) and the
// statements go on unlogged. Thread-safe.
void write(std::string_view statement);

// Whether write() may have anything to do now: the variable is set, or a log file is still open
// (the next write closes it). A connection asks once when it opens and leaves out write() for
// its statements when not: reading the environment at every statement of a till sale costs more
// than the rest of the log's check. So the variable takes effect for connections opened after it
// is set or cleared. Thread-safe.
bool wanted();

}  // namespace billdata::ado::sql_log
