// The text functions of the T-SQL runtime: conversion to varchar, the length check of a text
// written to a column, LEFT, RIGHT, SUBSTRING,
// CHARINDEX, REPLACE, REPLICATE, REVERSE, STUFF, LIKE and PATINDEX, on UTF-8 texts counted in
// characters.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/dialect/runtime_names.h"
#include "billdata/drivers/sqlite/tsql_runtime_internal.h"

namespace billdata::drivers::sqlite::runtime {

namespace {

namespace names = dialect::runtime;

constexpr const char* kBadLeftLength = "传递给 LEFT 或 SUBSTRING 函数的长度参数无效。";
constexpr const char* kBadRightLength = "传递给 RIGHT 函数的长度参数无效。";

// Length in bytes of the UTF-8 character that starts with byte c.
inline std::size_t utf8_len(unsigned char c) {
    if (c < 0x80) return 1;
    if ((c >> 5) == 0x6) return 2;
    if ((c >> 4) == 0xE) return 3;
    if ((c >> 3) == 0x1E) return 4;
    return 1;
}

std::size_t char_count(std::string_view s) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < s.size(); i += utf8_len(static_cast<unsigned char>(s[i])))
        ++n;
    return n;
}

// Byte offset of character number `chars` (0-based), or s.size() past the end.
std::size_t byte_offset(std::string_view s, std::size_t chars) {
    std::size_t i = 0;
    while (chars > 0 && i < s.size()) {
        i += utf8_len(static_cast<unsigned char>(s[i]));
        --chars;
    }
    return i < s.size() ? i : s.size();
}

// Decodes one character at s[i], advancing i; ASCII letters folded to lower case.
std::uint32_t next_char(std::string_view s, std::size_t& i) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    std::size_t len = utf8_len(c);
    if (len == 1 || i + len > s.size()) {
        ++i;
        return fold(c);
    }
    std::uint32_t cp = c & (0x7F >> len);
    for (std::size_t k = 1; k < len; ++k)
        cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += len;
    return cp;
}

void fn_varchar(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string text = text_of(argv[0]);
    fit_length(text, sqlite3_value_int64(argv[1]), argc > 2);
    result_text(ctx, text);
}

// bd_fit(value, n, table, column): a text written to a column of n characters. Longer is the
// server's error 2628, unless what is past n is blanks alone, which are cut off silently (as
// the server does with ANSI_PADDING on). Anything but a text goes through as it is.
void fn_fit(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) != SQLITE_TEXT) {
        sqlite3_result_value(ctx, argv[0]);
        return;
    }
    const std::string_view s = value_text(argv[0]);
    const long long n = sqlite3_value_int64(argv[1]);
    // No more bytes than n means no more characters either.
    if (static_cast<long long>(s.size()) <= n || static_cast<long long>(char_count(s)) <= n) {
        sqlite3_result_value(ctx, argv[0]);
        return;
    }
    const std::size_t cut = byte_offset(s, static_cast<std::size_t>(n));
    if (trim_trailing_blanks(s.substr(cut)).empty()) {
        sqlite3_result_text(ctx, s.data(), static_cast<int>(cut), SQLITE_TRANSIENT);
        return;
    }
    result_server_error(ctx, 2628,
                        "String or binary data would be truncated in table '" +
                            std::string(value_text(argv[2])) + "', column '" +
                            std::string(value_text(argv[3])) + "'. Truncated value: '" +
                            std::string(s.substr(0, cut)) + "'.");
}

void fn_left(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    long long n = sqlite3_value_int64(argv[1]);
    if (n < 0) {
        sqlite3_result_error(ctx, kBadLeftLength, -1);
        return;
    }
    std::string s = text_of(argv[0]);
    s.resize(byte_offset(s, static_cast<std::size_t>(n)));
    result_text(ctx, s);
}

void fn_right(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    long long n = sqlite3_value_int64(argv[1]);
    if (n < 0) {
        sqlite3_result_error(ctx, kBadRightLength, -1);
        return;
    }
    std::string s = text_of(argv[0]);
    std::size_t total = char_count(s);
    std::size_t skip =
        static_cast<std::size_t>(n) >= total ? 0 : total - static_cast<std::size_t>(n);
    result_text(ctx, s.substr(byte_offset(s, skip)));
}

void fn_substring(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    long long start = sqlite3_value_int64(argv[1]);
    long long length = sqlite3_value_int64(argv[2]);
    if (length < 0) {
        sqlite3_result_error(ctx, kBadLeftLength, -1);
        return;
    }
    std::string s = text_of(argv[0]);
    // Positions before the first character count towards the length, as on the server.
    long long first = start < 1 ? 1 : start;
    long long end = start + length;  // one past the last position
    if (end <= first) {
        result_text(ctx, std::string());
        return;
    }
    std::size_t b = byte_offset(s, static_cast<std::size_t>(first - 1));
    std::size_t e = byte_offset(s, static_cast<std::size_t>(end - 1));
    result_text(ctx, s.substr(b, e - b));
}

// Finds `needle` in `hay` from character `from` (0-based), comparing as the text collation
// does; returns the 0-based character position or -1.
long long find_folded(std::string_view hay, std::string_view needle, std::size_t from_byte) {
    if (needle.empty()) return -1;
    for (std::size_t i = from_byte; i + needle.size() <= hay.size();
         i += utf8_len(static_cast<unsigned char>(hay[i]))) {
        bool match = true;
        for (std::size_t k = 0; k < needle.size(); ++k) {
            if (fold(static_cast<unsigned char>(hay[i + k])) !=
                fold(static_cast<unsigned char>(needle[k]))) {
                match = false;
                break;
            }
        }
        if (match) return static_cast<long long>(i);
    }
    return -1;
}

void fn_charindex(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string needle = text_of(argv[0]);
    std::string hay = text_of(argv[1]);
    long long start = argc > 2 ? sqlite3_value_int64(argv[2]) : 1;
    if (start < 1) start = 1;
    std::size_t from = byte_offset(hay, static_cast<std::size_t>(start - 1));
    long long at = find_folded(hay, needle, from);
    sqlite3_result_int64(ctx, at < 0
                                  ? 0
                                  : static_cast<long long>(char_count(std::string_view(hay).substr(
                                        0, static_cast<std::size_t>(at)))) +
                                        1);
}

void fn_replace(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string s = text_of(argv[0]);
    std::string find = text_of(argv[1]);
    std::string with = text_of(argv[2]);
    if (find.empty()) {
        result_text(ctx, s);
        return;
    }
    std::string out;
    std::size_t i = 0;
    for (;;) {
        long long at = find_folded(s, find, i);
        if (at < 0) break;
        out.append(s, i, static_cast<std::size_t>(at) - i);
        out.append(with);
        i = static_cast<std::size_t>(at) + find.size();
    }
    out.append(s, i, std::string::npos);
    result_text(ctx, out);
}

// REPLICATE: NULL for a negative count; the result stops at the server's 8000 characters of a
// text that is not of unlimited length.
void fn_replicate(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    long long n = sqlite3_value_int64(argv[1]);
    if (n < 0) {
        sqlite3_result_null(ctx);
        return;
    }
    constexpr std::size_t kMaxChars = 8000;
    std::string s = text_of(argv[0]);
    std::string out;
    std::size_t chars = 0;
    const std::size_t each = char_count(s);
    for (long long i = 0; i < n && chars < kMaxChars && each > 0; ++i, chars += each)
        out.append(s);
    out.resize(byte_offset(out, kMaxChars));
    result_text(ctx, out);
}

// REVERSE, character by character.
void fn_reverse(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string s = text_of(argv[0]);
    std::string out;
    out.reserve(s.size());
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i < s.size(); i += utf8_len(static_cast<unsigned char>(s[i])))
        starts.push_back(i);
    std::size_t end = s.size();
    for (auto it = starts.rbegin(); it != starts.rend(); ++it) {
        out.append(s, *it, end - *it);
        end = *it;
    }
    result_text(ctx, out);
}

// STUFF(text, start, length, new): `length` characters from `start` replaced by `new` (a NULL
// `new` only deletes). NULL when start is not a position of the text or the length is negative.
void fn_stuff(sqlite3_context* ctx, int, sqlite3_value** argv) {
    for (int i = 0; i < 3; ++i) {
        if (sqlite3_value_type(argv[i]) == SQLITE_NULL) {
            sqlite3_result_null(ctx);
            return;
        }
    }
    std::string s = text_of(argv[0]);
    const long long start = sqlite3_value_int64(argv[1]);
    const long long length = sqlite3_value_int64(argv[2]);
    const std::size_t total = char_count(s);
    if (start < 1 || static_cast<unsigned long long>(start) > total || length < 0) {
        sqlite3_result_null(ctx);
        return;
    }
    const std::size_t from = static_cast<std::size_t>(start - 1);
    const std::size_t cut = static_cast<unsigned long long>(length) >= total - from
                                ? total
                                : from + static_cast<std::size_t>(length);
    std::string out = s.substr(0, byte_offset(s, from));
    if (sqlite3_value_type(argv[3]) != SQLITE_NULL) out.append(text_of(argv[3]));
    out.append(s, byte_offset(s, cut), std::string::npos);
    result_text(ctx, out);
}

// LIKE with the server's patterns: % and _, [abc], [a-z] and [^…] classes, an optional escape
// character; letters compare without regard to case and trailing blanks do not count.
class LikeMatcher {
  public:
    LikeMatcher(std::string_view pattern, std::uint32_t escape, bool has_escape)
        : p_(pattern), escape_(escape), has_escape_(has_escape) {}

    bool match(std::string_view s) const {
        std::size_t pi = 0, si = 0;
        std::size_t star_p = std::string_view::npos, star_s = 0;
        while (si < s.size()) {
            if (pi < p_.size()) {
                std::size_t next_p = pi;
                std::uint32_t pc = next_char(p_, next_p);
                if (pc == '%') {
                    star_p = next_p;
                    star_s = si;
                    pi = next_p;
                    continue;
                }
                std::size_t next_s = si;
                std::uint32_t sc = next_char(s, next_s);
                std::size_t after = pi;
                if (single(after, sc)) {
                    pi = after;
                    si = next_s;
                    continue;
                }
            }
            if (star_p == std::string_view::npos) return false;
            pi = star_p;
            std::size_t ns = star_s;
            next_char(s, ns);
            star_s = ns;
            si = ns;
        }
        while (pi < p_.size()) {
            std::size_t next_p = pi;
            if (next_char(p_, next_p) != '%') return false;
            pi = next_p;
        }
        return true;
    }

  private:
    // Whether the pattern element at pi matches character c; advances pi past the element.
    bool single(std::size_t& pi, std::uint32_t c) const {
        std::uint32_t pc = next_char(p_, pi);
        if (has_escape_ && pc == escape_) {
            if (pi >= p_.size()) return false;
            return next_char(p_, pi) == c;
        }
        if (pc == '_') return true;
        if (pc == '%') return false;
        if (pc == '[') {
            std::size_t j = pi;
            bool negate = false;
            if (j < p_.size() && p_[j] == '^') {
                negate = true;
                ++j;
            }
            bool found = false;
            bool closed = false;
            bool first = true;
            while (j < p_.size()) {
                if (p_[j] == ']' && !first) {
                    ++j;
                    closed = true;
                    break;
                }
                first = false;
                std::uint32_t lo = next_char(p_, j);
                std::uint32_t hi = lo;
                if (j + 1 < p_.size() && p_[j] == '-' && p_[j + 1] != ']') {
                    ++j;
                    hi = next_char(p_, j);
                }
                if (c >= lo && c <= hi) found = true;
            }
            if (!closed) return c == '[';  // an unclosed bracket is a plain character
            pi = j;
            return found != negate;
        }
        return pc == c;
    }

    std::string_view p_;
    std::uint32_t escape_;
    bool has_escape_;
};

void fn_like(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string value = text_of(argv[0]);
    std::string pattern = text_of(argv[1]);
    std::uint32_t escape = 0;
    bool has_escape = false;
    if (argc > 2) {
        std::string_view e = value_text(argv[2]);
        if (char_count(e) != 1) {
            sqlite3_result_error(ctx, "转义符无效。", -1);
            return;
        }
        std::size_t i = 0;
        escape = next_char(e, i);
        has_escape = true;
    }
    LikeMatcher m(trim_trailing_blanks(pattern), escape, has_escape);
    sqlite3_result_int(ctx, m.match(trim_trailing_blanks(value)) ? 1 : 0);
}

// PATINDEX: the position where the pattern's match starts, 0 for none. A pattern that starts
// with % finds its remainder at the first position from which the rest of the text matches it;
// any other pattern matches the whole text or nothing.
void fn_patindex(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string pattern = text_of(argv[0]);
    std::string value = text_of(argv[1]);
    std::string_view p = trim_trailing_blanks(pattern);
    std::string_view s = trim_trailing_blanks(value);
    if (p.empty() || p.front() != '%') {
        sqlite3_result_int(ctx, LikeMatcher(p, 0, false).match(s) ? 1 : 0);
        return;
    }
    LikeMatcher rest(p.substr(1), 0, false);
    long long position = 1;
    for (std::size_t i = 0;; i += utf8_len(static_cast<unsigned char>(s[i])), ++position) {
        if (rest.match(s.substr(std::min(i, s.size())))) {
            sqlite3_result_int64(ctx, position);
            return;
        }
        if (i >= s.size()) break;
    }
    sqlite3_result_int(ctx, 0);
}

constexpr FunctionDef kTextFunctions[] = {
    {names::kVarchar, 2, fn_varchar},
    {names::kVarchar, 3, fn_varchar},
    {names::kLeft, 2, fn_left},
    {names::kRight, 2, fn_right},
    {names::kSubstring, 3, fn_substring},
    {names::kCharIndex, 2, fn_charindex},
    {names::kCharIndex, 3, fn_charindex},
    {names::kReplace, 3, fn_replace},
    {names::kLike, 2, fn_like},
    {names::kLike, 3, fn_like},
    {names::kReplicate, 2, fn_replicate},
    {names::kReverse, 1, fn_reverse},
    {names::kStuff, 4, fn_stuff},
    {names::kPatIndex, 2, fn_patindex},
    {names::kFit, 4, fn_fit},
};

}  // namespace

void fit_length(std::string& text, long long length, bool pad) {
    if (length < 0) return;
    text.resize(byte_offset(text, static_cast<std::size_t>(length)));
    if (pad) {
        std::size_t n = char_count(text);
        if (n < static_cast<std::size_t>(length))
            text.append(static_cast<std::size_t>(length) - n, ' ');
    }
}

std::span<const FunctionDef> text_functions() {
    return kTextFunctions;
}

}  // namespace billdata::drivers::sqlite::runtime
