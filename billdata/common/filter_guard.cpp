#include "billdata/common/filter_guard.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/util/text.h"

namespace billdata::common {

namespace {

// Words that, outside parentheses, end the where clause (so that what the list appends would no
// longer be part of it) or begin another statement (T-SQL needs no ';' between statements).
// Sorted, lower case.
constexpr std::array<std::string_view, 55> kEndingWords = {
    "alter",    "backup",  "begin",    "break",     "bulk",     "checkpoint", "close",
    "commit",   "compute", "continue", "create",    "dbcc",     "deallocate", "declare",
    "delete",   "deny",    "drop",     "else",      "end",      "exec",       "execute",
    "fetch",    "for",     "from",     "go",        "goto",     "grant",      "group",
    "having",   "if",      "insert",   "into",      "kill",     "merge",      "open",
    "option",   "order",   "print",    "raiserror", "restore",  "return",     "revoke",
    "rollback", "save",    "select",   "set",       "shutdown", "throw",      "truncate",
    "update",   "use",     "waitfor",  "where",     "while",    "with"};
static_assert(std::is_sorted(kEndingWords.begin(), kEndingWords.end()));

constexpr bool is_name_start(char c) {
    const auto u = static_cast<unsigned char>(c);
    const auto folded = static_cast<unsigned char>(u | 0x20);
    return (folded >= 'a' && folded <= 'z') || u >= 0x80 || c == '_' || c == '#';
}
constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool is_name_char(char c) {
    return is_name_start(c) || is_digit(c) || c == '@' || c == '$';
}

// The length of a Unicode space character at `i` (no-break, ideographic, the typographic
// spaces, the byte-order mark), or 0. Taken as a blank between words, so that a word written
// between such spaces is still seen as a word, whatever the engine makes of them.
std::size_t unicode_space(std::string_view s, std::size_t i) {
    const auto at = [&](std::size_t k) {
        return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u;
    };
    if (at(0) == 0xC2 && at(1) == 0xA0) return 2;                   // U+00A0
    if (at(0) == 0xE3 && at(1) == 0x80 && at(2) == 0x80) return 3;  // U+3000
    if (at(0) == 0xEF && at(1) == 0xBB && at(2) == 0xBF) return 3;  // U+FEFF
    if (at(0) == 0xE2 && at(1) == 0x80 &&
        ((at(2) >= 0x80 && at(2) <= 0x8B) || at(2) == 0xA8 || at(2) == 0xA9 || at(2) == 0xAF))
        return 3;  // U+2000..U+200B, U+2028, U+2029, U+202F
    if (at(0) == 0xE2 && at(1) == 0x81 && at(2) == 0x9F) return 3;  // U+205F
    return 0;
}

// The filter from `pos` on, cut after a few characters: at the end of a word, never inside a
// UTF-8 character.
std::string excerpt(std::string_view filter, std::size_t pos) {
    constexpr std::size_t kCharacters = 24, kLongestWord = 16;
    std::string_view rest = util::trim(filter.substr(std::min(pos, filter.size())));
    std::size_t end = 0;
    for (std::size_t count = 0; end < rest.size() && count < kCharacters; ++count) {
        ++end;
        while (end < rest.size() && (static_cast<unsigned char>(rest[end]) & 0xC0) == 0x80)
            ++end;
    }
    for (std::size_t more = 0;
         more < kLongestWord && end < rest.size() && static_cast<unsigned char>(rest[end]) < 0x80 &&
         is_name_char(rest[end]);
         ++more)
        ++end;
    std::string out(util::trim(rest.substr(0, end)));
    if (end < rest.size()) out += "…";
    return out;
}

[[noreturn]] void refuse(std::string_view reason, std::string_view filter, std::size_t pos) {
    throw ado::ComError::component("查询条件" + std::string(reason) + "：“" + excerpt(filter, pos) +
                                   "”！");
}

// The end of a quoted text or name that opens at `start` with `quote` and closes with `close`
// (doubled to stand for itself), or npos when the filter ends inside it.
std::size_t quoted_end(std::string_view s, std::size_t start, char close) {
    for (std::size_t i = start + 1; i < s.size(); ++i) {
        if (s[i] != close) continue;
        if (i + 1 < s.size() && s[i + 1] == close) {
            ++i;
            continue;
        }
        return i + 1;
    }
    return std::string_view::npos;
}

// The end of a block comment that opens at `start`; they nest, as the server reads them.
std::size_t comment_end(std::string_view s, std::size_t start) {
    int depth = 1;
    std::size_t i = start + 2;
    while (i + 1 < s.size()) {
        if (s[i] == '/' && s[i + 1] == '*') {
            ++depth;
            i += 2;
        } else if (s[i] == '*' && s[i + 1] == '/') {
            i += 2;
            if (--depth == 0) return i;
        } else {
            ++i;
        }
    }
    return std::string_view::npos;
}

// The end of a number at `i`, read as the server reads one: "1order" is 1 and a keyword.
std::size_t number_end(std::string_view s, std::size_t i) {
    while (i < s.size() && is_digit(s[i]))
        ++i;
    if (i < s.size() && s[i] == '.') {
        ++i;
        while (i < s.size() && is_digit(s[i]))
            ++i;
    }
    if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
        std::size_t j = i + 1;
        if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
        if (j < s.size() && is_digit(s[j])) {
            i = j;
            while (i < s.size() && is_digit(s[i]))
                ++i;
        }
    }
    return i;
}

}  // namespace

void require_safe_filter(std::string_view filter, FilterPlace place) {
    // What is open at the current point: '(' or 'c' (a case expression), with where it opened.
    struct Open {
        char kind;
        std::size_t pos;
    };
    std::vector<Open> open;
    std::size_t between = std::string_view::npos;  // a top-level between still waiting for its and
    const std::string_view s = filter;
    std::size_t i = 0;
    while (i < s.size()) {
        const char c = s[i];
        const char next = i + 1 < s.size() ? s[i + 1] : '\0';
        if (c == '\'' || ((c == 'N' || c == 'n') && next == '\'')) {
            const std::size_t end = quoted_end(s, c == '\'' ? i : i + 1, '\'');
            if (end == std::string_view::npos) refuse("中的字符串没有结束", s, i);
            i = end;
        } else if (c == '[' || c == '"') {
            const std::size_t end = quoted_end(s, i, c == '[' ? ']' : '"');
            if (end == std::string_view::npos) refuse("中的名称没有结束", s, i);
            i = end;
        } else if (c == '-' && next == '-') {
            refuse("中不能有注释", s, i);
        } else if (c == '/' && next == '*') {
            const std::size_t end = comment_end(s, i);
            if (end == std::string_view::npos) refuse("中的注释没有结束", s, i);
            i = end;
        } else if (c == '(') {
            open.push_back({'(', i++});
        } else if (c == ')') {
            if (open.empty()) refuse("中多了右括号", s, i);
            if (open.back().kind == 'c') refuse("中的 case 没有对应的 end", s, open.back().pos);
            open.pop_back();
            ++i;
        } else if (c == ';') {
            refuse("中不能有分号", s, i);
        } else if (is_digit(c) || (c == '.' && is_digit(next))) {
            i = number_end(s, i);
        } else if (c == '@') {
            ++i;
            while (i < s.size() && is_name_char(s[i]) && !unicode_space(s, i))
                ++i;
        } else if (const std::size_t blank = unicode_space(s, i)) {
            i += blank;
        } else if (is_name_start(c)) {
            const std::size_t start = i;
            while (i < s.size() && is_name_char(s[i]) && !unicode_space(s, i))
                ++i;
            const std::string word = util::lower_copy(s.substr(start, i - start));
            if (word == "case") {
                open.push_back({'c', start});
            } else if (word == "end" && !open.empty() && open.back().kind == 'c') {
                open.pop_back();
            } else if (open.empty()) {
                if (word == "or" && place == FilterPlace::AfterConditions)
                    refuse("中的 or 必须放在括号内", s, start);
                if (word == "union" || word == "except" || word == "intersect")
                    refuse("中不能有 " + word, s, start);
                if (std::binary_search(kEndingWords.begin(), kEndingWords.end(), word))
                    refuse("中不能有关键字 " + word, s, start);
                // "x between a" with nothing after it would take the list's own condition for
                // its upper bound.
                if (word == "between") between = start;
                if (word == "and") between = std::string_view::npos;
            }
        } else {
            ++i;
        }
    }
    if (!open.empty()) {
        if (open.back().kind == 'c') refuse("中的 case 没有对应的 end", s, open.back().pos);
        refuse("中的左括号没有闭合", s, open.back().pos);
    }
    if (between != std::string_view::npos) refuse("中的 between 缺少 and", s, between);
}

}  // namespace billdata::common
