#pragma once
// Functions and collations that give translated statements SQL Server's semantics on SQLite.
// The SQLite emitter of billdata/dialect writes calls to them by the names of
// dialect/runtime_names.h; every connection of the embedded engine registers them. The parts
// live in tsql_runtime_text.cpp, tsql_runtime_numbers.cpp and tsql_runtime_dates.cpp.

#include <sqlite3.h>

#include <cstdint>
#include <limits>
#include <string>

namespace billdata::drivers::sqlite {

// Registers every runtime function and collation on the handle. Returns SQLITE_OK or the first
// error code.
int register_tsql_runtime(sqlite3* db);

// A runtime function that fails as the server would (a conversion, an overflow, a subquery with
// more than one row) carries the server's error number in the extended result code: the primary
// code SQLITE_ERROR with the number above it. The driver's error classification reads it back.
constexpr int server_error_code(int number) {
    return SQLITE_ERROR | (number << 8);
}
// A number bound for a column of the decimal or money type `code` (coded as bd_dfit's second
// argument): rounded to the column's scale as bd_dfit does. 0 when it fits; otherwise the
// error's number, with its message: 8115 beyond the column's precision, SQLITE_ERROR beyond what
// the engine holds exactly.
int fit_decimal_column(std::int64_t& n, int code, std::string& message);
int fit_decimal_column(double& x, int code, std::string& message);
// A scaled type as kDecimalFit codes it: precision × 100 + scale, plus this for money.
inline constexpr int kMoneyTypeCode = 10000;
// The bound below which, in magnitude, a whole number fits such a column as it is.
inline std::int64_t decimal_whole_limit(int code) {
    static constexpr std::int64_t kLimit[] = {1,
                                              10,
                                              100,
                                              1000,
                                              10000,
                                              100000,
                                              1000000,
                                              10000000,
                                              100000000,
                                              1000000000,
                                              10000000000,
                                              100000000000,
                                              1000000000000,
                                              10000000000000,
                                              100000000000000,
                                              1000000000000000,
                                              10000000000000000,
                                              100000000000000000,
                                              1000000000000000000};
    const int whole = code / 100 % 100 - code % 100;
    return whole > 18 ? std::numeric_limits<std::int64_t>::max() : kLimit[whole];
}
// Whether a whole number fits such a column as it is (the short way of the first).
inline bool whole_fits_decimal(std::int64_t n, int code) {
    const std::int64_t limit = decimal_whole_limit(code);
    return n < limit && n > -limit;
}

// The server's error number an extended result code carries; 0 when it carries none (the
// engine's own extended codes of SQLITE_ERROR stay far below the server's numbers).
constexpr int server_error_number(int extended_code) {
    return (extended_code & 0xff) == SQLITE_ERROR && (extended_code >> 8) >= 100
               ? extended_code >> 8
               : 0;
}

}  // namespace billdata::drivers::sqlite
