#pragma once
// The billdata command line, as a function so that other programs (the tests' own build of it)
// can run it after registering classes of their own.

#include <string>

#include "output.h"

namespace billdata::cli {

// Parses the command line and runs the command; returns the exit status: 0, 1 when the command
// or a call failed, kExitOutputLost when what it printed could not be written.
int run(int argc, char** argv);

// Standard output could not be written (closed, full, a broken device): the answers are lost, so
// the program says so on standard error and stops reading calls.
inline constexpr int kExitOutputLost = 2;

// Whether standard output took everything printed so far (it is flushed first); when it did not,
// says so on standard error.
bool output_written();

// The database of a command: the --db option, else $BILLDATA_DB; ComError when neither is set.
// A value with no '=' in it is the path of an embedded database file, whatever its name; anything
// else is a connection string.
std::string database_from(const std::string& option);

// `billdata call`: sets the session as an Init would (the connection string, and the year and
// period given or else the database's CurrentYear/CurrentPeriod), calls Class.Method with the
// JSON arguments and prints the answer. `format` empty: a table on a terminal, JSON otherwise.
int run_call(const std::string& db, int year, int period, const std::string& format,
             const std::string& target, const std::string& args_json);

// `billdata batch`: JSON lines {"call": "Class.Method", "args": {…}} from standard input, one
// JSON answer line per call on standard output, in order, in one session context. With `db`
// set, the session starts as `call` would set it; otherwise the stream calls Init itself. Each
// answer is flushed before the next line is read; when it cannot be written, the batch stops
// there with kExitOutputLost.
int run_batch(const std::string& db);

// `billdata demo`: a day at a shop played on a new embedded database with demo master data and
// told on standard output. `db` empty: a temporary file, removed afterwards unless `keep`;
// otherwise the new database file to create (refused when it already holds tables), which stays.
// Returns 0; an unexpected error is thrown as ComError.
int run_demo(const std::string& db, bool keep);

}  // namespace billdata::cli
