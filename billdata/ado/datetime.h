#pragma once
// A calendar date with an optional time of day, as the platform's Date type holds it.

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace billdata::ado {

// The proleptic Gregorian calendar, exact for any year; the day arithmetic of DateTime and of
// the embedded engine's date functions.
namespace calendar {

constexpr bool is_leap_year(std::int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Days of a month (1-12) of a year.
constexpr int days_in_month(std::int64_t year, int month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap_year(year) ? 29 : kDays[month - 1];
}

// a / b rounded towards negative infinity.
constexpr std::int64_t floor_div(std::int64_t a, std::int64_t b) {
    std::int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

// Days since 1970-01-01 of a date (month 1-12, day 1-31).
constexpr std::int64_t days_from_civil(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yoe = static_cast<unsigned>(year - era * 400);
    const unsigned doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

struct Civil {
    std::int64_t year;
    unsigned month;
    unsigned day;
};

// The date that is `days` days after 1970-01-01.
constexpr Civil civil_from_days(std::int64_t days) {
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t y = static_cast<std::int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    return {y + (m <= 2), m, d};
}

// Day of the week of the date `days` days after 1970-01-01 (a Thursday): 1 = Sunday … 7.
constexpr int day_of_week(std::int64_t days) {
    return static_cast<int>(((days + 4) % 7 + 7) % 7) + 1;
}

}  // namespace calendar

// Local date-time with a resolution of one second. Plain value type; thread-safe to copy.
class DateTime {
  public:
    DateTime() = default;  // 1899-12-30 00:00:00, the platform's date zero
    DateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

    // Days since 1899-12-30 with the time of day as the fraction (the platform's serial date).
    static DateTime from_serial(double serial);
    double to_serial() const;

    // Parses the forms SQL Server and the front ends write: 'YYYY-MM-DD', 'YYYY-MM-DD HH:MM[:SS]',
    // 'YYYY-MM-DDTHH:MM:SS', 'YYYYMMDD', 'YYYY/MM/DD' (each with an optional time, optional
    // fractional seconds, which are dropped). Returns nothing for anything else or an invalid date.
    static std::optional<DateTime> parse(std::string_view text);
    static DateTime now();    // local time
    static DateTime today();  // local date, midnight

    int year() const { return year_; }
    int month() const { return month_; }
    int day() const { return day_; }
    int hour() const { return hour_; }
    int minute() const { return minute_; }
    int second() const { return second_; }
    bool has_time() const { return hour_ != 0 || minute_ != 0 || second_ != 0; }
    DateTime date_only() const { return DateTime(year_, month_, day_); }

    // 'YYYY-MM-DD' when there is no time of day, else 'YYYY-MM-DD HH:MM:SS' — the one form
    // written into every statement.
    std::string to_string() const;
    std::string date_string() const;  // 'YYYY-MM-DD'
    std::string time_string() const;  // 'HH:MM:SS'

    DateTime add_days(int days) const;
    DateTime add_seconds(std::int64_t seconds) const;
    int day_of_week() const;  // 1 = Sunday … 7 = Saturday

    auto operator<=>(const DateTime&) const = default;

  private:
    std::int16_t year_ = 1899;
    std::int8_t month_ = 12, day_ = 30, hour_ = 0, minute_ = 0, second_ = 0;
};

}  // namespace billdata::ado
