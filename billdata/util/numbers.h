#pragma once
// Whether a double holds a decimal number exactly as its text writes it. Up to 15 significant
// digits every decimal survives the trip; beyond, only one whose double reads back as the same
// digits (as every amount the component computes and writes with the shortest text of its
// double).

#include <charconv>
#include <cmath>
#include <string>
#include <string_view>
#include <system_error>

namespace billdata::util {

// The significant digits of a plain decimal text (no exponent; sign, leading and trailing
// zeros dropped) and the power of ten of the first one.
inline std::string decimal_digits(std::string_view text, int& exponent) {
    std::string digits;
    int point = -1, first = -1, i = 0;
    for (char c : text) {
        if (c == '.') {
            point = i;
            continue;
        }
        if (c < '0' || c > '9') continue;
        if (first < 0 && c != '0') first = i;
        if (first >= 0) digits.push_back(c);
        ++i;
    }
    if (point < 0) point = i;
    while (!digits.empty() && digits.back() == '0')
        digits.pop_back();
    exponent = first < 0 ? 0 : point - first - 1;
    return digits;
}

// True when `value` (the double read from `text`) is exactly the decimal `text` writes. A text
// with an exponent is a float, held as it is.
inline bool double_holds_decimal(std::string_view text, double value) {
    std::size_t significant = 0;
    bool leading = true;
    for (char c : text) {
        if (c == 'e' || c == 'E') return true;
        if (c < '0' || c > '9' || (leading && c == '0')) continue;
        leading = false;
        ++significant;
    }
    if (significant <= 15) return true;
    if (!std::isfinite(value)) return false;
    int exponent = 0, back_exponent = 0;
    const std::string digits = decimal_digits(text, exponent);
    char buf[400];
    auto w = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed);
    if (w.ec != std::errc()) return false;
    return decimal_digits(std::string_view(buf, static_cast<std::size_t>(w.ptr - buf)),
                          back_exponent) == digits &&
           back_exponent == exponent;
}

}  // namespace billdata::util
