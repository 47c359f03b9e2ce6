#pragma once
// ASCII text helpers shared by every layer. Names of tables, columns, fields, parameters and
// connection-string keywords compare without regard to the case of ASCII letters only, as the
// database engines and the platform's collections do.

#include <cstddef>
#include <string>
#include <string_view>

namespace billdata::util {

constexpr char ascii_lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

inline bool iequals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (ascii_lower(a[i]) != ascii_lower(b[i])) return false;
    }
    return true;
}

inline std::string lower_copy(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = ascii_lower(c);
    return out;
}

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Without leading and trailing blanks (spaces, tabs, line ends).
inline std::string_view trim(std::string_view s) {
    while (!s.empty() && is_blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && is_blank(s.back()))
        s.remove_suffix(1);
    return s;
}

}  // namespace billdata::util
