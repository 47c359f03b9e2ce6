#pragma once
// What the parts of the T-SQL runtime share: the texts (tsql_runtime_text.cpp), numbers
// (tsql_runtime_numbers.cpp) and dates (tsql_runtime_dates.cpp) functions, and the collations
// with the registration (tsql_runtime.cpp). Internal to the SQLite driver.

#include <sqlite3.h>

#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace billdata::drivers::sqlite::runtime {

// ---- messages (the server's own wording) -------------------------------------------------

inline constexpr const char* kBadFloat = "从数据类型 varchar 转换为 float 时出错。";

// ---- registration ------------------------------------------------------------------------

struct FunctionDef {
    std::string_view name;  // NUL-terminated: the names are literals
    int args;
    void (*fn)(sqlite3_context*, int, sqlite3_value**);
};

std::span<const FunctionDef> text_functions();
std::span<const FunctionDef> number_functions();
std::span<const FunctionDef> date_functions();
std::span<const FunctionDef> convert_functions();
std::span<const FunctionDef> decimal_functions();

// Aggregates: the single value of a subquery used as a value (error 512 on a second row).
int register_aggregates(sqlite3* db);
// Aggregates: exact sums and averages of decimals.
int register_decimal_aggregates(sqlite3* db);

// ---- values and results ------------------------------------------------------------------

inline std::string_view value_text(sqlite3_value* v) {
    const unsigned char* p = sqlite3_value_text(v);
    if (p == nullptr) return {};
    return std::string_view(reinterpret_cast<const char*>(p),
                            static_cast<std::size_t>(sqlite3_value_bytes(v)));
}

inline bool is_number(sqlite3_value* v) {
    int t = sqlite3_value_type(v);
    return t == SQLITE_INTEGER || t == SQLITE_FLOAT;
}

// The text of a number as the server writes it: integers plainly, reals in their shortest
// exact form without a trailing ".0".
std::string number_text(sqlite3_value* v);

// Any value as text: a number as number_text writes it, anything else as its text.
inline std::string text_of(sqlite3_value* v) {
    return is_number(v) ? number_text(v) : std::string(value_text(v));
}

inline bool any_null(int argc, sqlite3_value** argv) {
    for (int i = 0; i < argc; ++i) {
        if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
    }
    return false;
}

inline void result_error(sqlite3_context* ctx, const std::string& message) {
    sqlite3_result_error(ctx, message.data(), static_cast<int>(message.size()));
}

// The server's error `number` with its message (see server_error_code).
void result_server_error(sqlite3_context* ctx, int number, const std::string& message);

inline void result_text(sqlite3_context* ctx, const std::string& s) {
    sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

// ---- texts -------------------------------------------------------------------------------

inline unsigned char fold(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? c + 32 : c;
}

inline std::string_view trim_trailing_blanks(std::string_view s) {
    while (!s.empty() && s.back() == ' ')
        s.remove_suffix(1);
    return s;
}

inline std::string_view trim_blanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
        s.remove_suffix(1);
    return s;
}

// The text collation's order: ASCII letters without regard to case, trailing blanks ignored.
inline int compare_text(std::string_view a, std::string_view b) {
    a = trim_trailing_blanks(a);
    b = trim_trailing_blanks(b);
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        unsigned char x = fold(static_cast<unsigned char>(a[i]));
        unsigned char y = fold(static_cast<unsigned char>(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

// Cuts `text` to `length` characters (UTF-8) when length >= 0, and with `pad` fills it up to
// that length with blanks, as char(n) does.
void fit_length(std::string& text, long long length, bool pad);

// ---- numbers -----------------------------------------------------------------------------

// Reads a number as the server converts text to float ('' is 0, blanks around are allowed).
bool parse_double(std::string_view s, double& out);

// ---- dates -------------------------------------------------------------------------------

// The form bd_dt writes ('YYYY-MM-DD HH:MM:SS'), which sorts chronologically byte by byte.
inline bool is_canonical(std::string_view s) {
    return s.size() == 19 && s[4] == '-' && s[7] == '-' && s[10] == ' ' && s[13] == ':' &&
           s[16] == ':';
}

// compare_dates for texts that are not both in the canonical form.
int compare_parsed_dates(std::string_view a, std::string_view b);

// The date collation's order: chronological whatever date form either side is written in;
// texts that are no date sort after the dates, by their bytes.
inline int compare_dates(std::string_view a, std::string_view b) {
    if (is_canonical(a) && is_canonical(b)) {
        int c = std::memcmp(a.data(), b.data(), 19);
        return c < 0 ? -1 : c > 0 ? 1 : 0;
    }
    return compare_parsed_dates(a, b);
}

}  // namespace billdata::drivers::sqlite::runtime
