#pragma once
// Text helpers shared by every layer. Names of tables, columns, fields, parameters and
// connection-string keywords compare without regard to the case of ASCII letters only, as the
// database engines and the platform's collections do. Error messages quote a caller's text
// through excerpt().

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
        if (a[i] != b[i] && ascii_lower(a[i]) != ascii_lower(b[i])) return false;
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

// Appends the UTF-8 form of the code point `cp` (at most U+10FFFF; surrogates are the caller's
// to pair first).
inline void append_utf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// The byte offset of the first byte that is not part of well-formed UTF-8 (a stray continuation
// byte, a sequence cut short, an overlong form, a surrogate, a code point past U+10FFFF), or npos
// when the whole text is well-formed.
inline std::size_t invalid_utf8_at(std::string_view s) {
    const std::size_t n = s.size();
    std::size_t i = 0;
    while (i < n) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t len = 0;
        unsigned char lo = 0x80, hi = 0xBF;  // the allowed range of the second byte
        if (c >= 0xC2 && c <= 0xDF) {
            len = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            len = 3;
            if (c == 0xE0) lo = 0xA0;
            if (c == 0xED) hi = 0x9F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            len = 4;
            if (c == 0xF0) lo = 0x90;
            if (c == 0xF4) hi = 0x8F;
        } else {
            return i;
        }
        if (i + len > n) return i;
        for (std::size_t k = 1; k < len; ++k) {
            const auto b = static_cast<unsigned char>(s[i + k]);
            if (b < (k == 1 ? lo : 0x80) || b > (k == 1 ? hi : 0xBF)) return i;
        }
        i += len;
    }
    return std::string_view::npos;
}

// How much of a caller's text an error message quotes: the text itself when it is short, else
// its first `max` bytes (never cutting a UTF-8 character in two) and "…", so that a megabyte of
// input never comes back in a message.
inline constexpr std::size_t kExcerptBytes = 100;
inline std::string excerpt(std::string_view s, std::size_t max = kExcerptBytes) {
    if (s.size() <= max) return std::string(s);
    std::size_t cut = max;
    while (cut > 0 && (static_cast<unsigned char>(s[cut]) & 0xC0) == 0x80)
        --cut;
    return std::string(s.substr(0, cut)) + "…";
}

}  // namespace billdata::util
