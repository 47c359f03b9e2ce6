#pragma once
// Small ASCII text helpers shared by the translator's pieces. SQL names compare without regard
// to case of ASCII letters only, as the database engines do.

#include <cstddef>
#include <string>
#include <string_view>

namespace billdata::dialect {

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

}  // namespace billdata::dialect
