#pragma once
// A calendar date with an optional time of day, as the platform's Date type holds it.

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace billdata::ado {

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
