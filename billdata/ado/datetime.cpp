#include "billdata/ado/datetime.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace billdata::ado {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

using calendar::Civil;
using calendar::civil_from_days;
using calendar::days_from_civil;
using calendar::days_in_month;
using calendar::floor_div;

const std::int64_t kSerialZero = days_from_civil(1899, 12, 30);

// Reads 1..max_digits decimal digits at `pos`; false when there is none.
bool read_digits(std::string_view s, std::size_t& pos, std::size_t min_digits,
                 std::size_t max_digits, int& out) {
    std::size_t n = 0;
    int v = 0;
    while (pos + n < s.size() && n < max_digits && s[pos + n] >= '0' && s[pos + n] <= '9') {
        v = v * 10 + (s[pos + n] - '0');
        ++n;
    }
    if (n < min_digits) return false;
    pos += n;
    out = v;
    return true;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

DateTime::DateTime(int year, int month, int day, int hour, int minute, int second) {
    // Out-of-range parts roll over into the next unit, as the platform's DateSerial does.
    std::int64_t y = year + floor_div(month - 1, 12);
    auto m = static_cast<unsigned>(month - 1 - floor_div(month - 1, 12) * 12 + 1);
    std::int64_t days = days_from_civil(y, m, 1) + day - 1;
    std::int64_t secs = static_cast<std::int64_t>(hour) * 3600 + minute * 60 + second;
    days += floor_div(secs, kSecondsPerDay);
    secs -= floor_div(secs, kSecondsPerDay) * kSecondsPerDay;
    Civil c = civil_from_days(days);
    year_ = static_cast<std::int16_t>(c.year);
    month_ = static_cast<std::int8_t>(c.month);
    day_ = static_cast<std::int8_t>(c.day);
    hour_ = static_cast<std::int8_t>(secs / 3600);
    minute_ = static_cast<std::int8_t>(secs / 60 % 60);
    second_ = static_cast<std::int8_t>(secs % 60);
}

DateTime DateTime::from_serial(double serial) {
    // The integer part counts days (negative before 1899-12-30); the fraction's absolute value
    // is always the time of day, also for negative serials.
    if (!std::isfinite(serial)) return DateTime();
    double whole = std::trunc(serial);
    auto days = static_cast<std::int64_t>(whole);
    auto secs = static_cast<std::int64_t>(std::llround(std::fabs(serial - whole) * kSecondsPerDay));
    if (secs >= kSecondsPerDay) {
        secs -= kSecondsPerDay;
        ++days;
    }
    Civil c = civil_from_days(kSerialZero + days);
    return DateTime(static_cast<int>(c.year), static_cast<int>(c.month), static_cast<int>(c.day), 0,
                    0, static_cast<int>(secs));
}

double DateTime::to_serial() const {
    auto days = static_cast<double>(
        days_from_civil(year_, static_cast<unsigned>(month_), static_cast<unsigned>(day_)) -
        kSerialZero);
    double frac = (hour_ * 3600.0 + minute_ * 60.0 + second_) / kSecondsPerDay;
    return days >= 0 ? days + frac : days - frac;
}

std::optional<DateTime> DateTime::parse(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
        s.remove_suffix(1);
    std::size_t pos = 0;
    int y = 0, m = 0, d = 0, hh = 0, mi = 0, ss = 0;
    std::size_t run = 0;
    while (run < s.size() && is_digit(s[run]))
        ++run;
    if (run == 8) {  // YYYYMMDD
        read_digits(s, pos, 4, 4, y);
        read_digits(s, pos, 2, 2, m);
        read_digits(s, pos, 2, 2, d);
    } else if (run == 4 && pos + 4 < s.size() && (s[4] == '-' || s[4] == '/')) {
        const char sep = s[4];
        read_digits(s, pos, 4, 4, y);
        ++pos;
        if (!read_digits(s, pos, 1, 2, m)) return std::nullopt;
        if (pos >= s.size() || s[pos] != sep) return std::nullopt;
        ++pos;
        if (!read_digits(s, pos, 1, 2, d)) return std::nullopt;
    } else {
        return std::nullopt;
    }
    if (pos < s.size()) {
        if (s[pos] == 'T' || s[pos] == 't') {
            ++pos;
        } else if (s[pos] == ' ') {
            while (pos < s.size() && s[pos] == ' ')
                ++pos;
        } else {
            return std::nullopt;
        }
        if (!read_digits(s, pos, 1, 2, hh)) return std::nullopt;
        if (pos >= s.size() || s[pos] != ':') return std::nullopt;
        ++pos;
        if (!read_digits(s, pos, 2, 2, mi)) return std::nullopt;
        if (pos < s.size() && s[pos] == ':') {
            ++pos;
            if (!read_digits(s, pos, 2, 2, ss)) return std::nullopt;
            if (pos < s.size() && s[pos] == '.') {
                ++pos;
                std::size_t start = pos;
                while (pos < s.size() && is_digit(s[pos]))
                    ++pos;
                if (pos == start) return std::nullopt;
            }
        }
        if (pos != s.size()) return std::nullopt;
    }
    if (y < 1 || m < 1 || m > 12 || d < 1 || d > days_in_month(y, m)) return std::nullopt;
    if (hh > 23 || mi > 59 || ss > 59) return std::nullopt;
    return DateTime(y, m, d, hh, mi, ss);
}

DateTime DateTime::now() {
    std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    return DateTime(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
}

DateTime DateTime::today() {
    return now().date_only();
}

namespace {

// `n` as `width` digits with leading zeros; a sale writes its date twice, so no printf.
char* digits(char* out, int n, int width) {
    for (int i = width - 1; i >= 0; --i, n /= 10)
        out[i] = static_cast<char>('0' + n % 10);
    return out + width;
}

}  // namespace

std::string DateTime::date_string() const {
    if (year_ < 0 || year_ > 9999) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", year_, month_, day_);
        return buf;
    }
    char buf[10];
    char* at = digits(buf, year_, 4);
    *at++ = '-';
    at = digits(at, month_, 2);
    *at++ = '-';
    digits(at, day_, 2);
    return std::string(buf, sizeof buf);
}

std::string DateTime::time_string() const {
    char buf[8];
    char* at = digits(buf, hour_, 2);
    *at++ = ':';
    at = digits(at, minute_, 2);
    *at++ = ':';
    digits(at, second_, 2);
    return std::string(buf, sizeof buf);
}

std::string DateTime::to_string() const {
    if (!has_time()) return date_string();
    return date_string() + " " + time_string();
}

DateTime DateTime::add_days(int days) const {
    return DateTime(year_, month_, day_ + days, hour_, minute_, second_);
}

DateTime DateTime::add_seconds(std::int64_t seconds) const {
    std::int64_t days = floor_div(seconds, kSecondsPerDay);
    std::int64_t rest = seconds - days * kSecondsPerDay;
    return DateTime(year_, month_, day_ + static_cast<int>(days), hour_, minute_,
                    second_ + static_cast<int>(rest));
}

int DateTime::day_of_week() const {
    return calendar::day_of_week(
        days_from_civil(year_, static_cast<unsigned>(month_), static_cast<unsigned>(day_)));
}

}  // namespace billdata::ado
