// The date functions of the T-SQL runtime: conversion to datetime and date, DATEPART,
// DATEADD, DATEDIFF and conversion to text in convert's styles, reading the date forms the
// server reads with DATEFORMAT ymd. The calendar is ado's.

#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "billdata/ado/datetime.h"
#include "billdata/dialect/runtime_names.h"
#include "billdata/drivers/sqlite/tsql_runtime_internal.h"

namespace billdata::drivers::sqlite::runtime {

namespace {

namespace names = dialect::runtime;
namespace calendar = ado::calendar;

constexpr const char* kBadDate = "从字符串转换日期和/或时间时，转换失败。";
constexpr const char* kDateOutOfRange =
    "从 varchar 数据类型到 datetime 数据类型的转换产生一个超出范围的值。";

struct DateTime {
    int year = 1900, month = 1, day = 1, hour = 0, minute = 0, second = 0, millis = 0;
};

// Days since 1970-01-01 of the date's day, and the date's day set from such a number.
std::int64_t day_number(const DateTime& dt) {
    return calendar::days_from_civil(dt.year, static_cast<unsigned>(dt.month),
                                     static_cast<unsigned>(dt.day));
}

void set_day(DateTime& dt, std::int64_t days) {
    const calendar::Civil c = calendar::civil_from_days(days);
    dt.year = static_cast<int>(c.year);
    dt.month = static_cast<int>(c.month);
    dt.day = static_cast<int>(c.day);
}

bool read_digits(std::string_view s, std::size_t& i, std::size_t min, std::size_t max, int& out) {
    std::size_t start = i;
    int value = 0;
    while (i < s.size() && i - start < max && s[i] >= '0' && s[i] <= '9') {
        value = value * 10 + (s[i] - '0');
        ++i;
    }
    if (i - start < min) return false;
    out = value;
    return true;
}

bool parse_time(std::string_view s, std::size_t& i, DateTime& dt) {
    if (!read_digits(s, i, 1, 2, dt.hour)) return false;
    if (i >= s.size() || s[i] != ':') return false;
    ++i;
    if (!read_digits(s, i, 1, 2, dt.minute)) return false;
    if (i < s.size() && s[i] == ':') {
        ++i;
        if (!read_digits(s, i, 1, 2, dt.second)) return false;
        if (i < s.size() && (s[i] == '.' || s[i] == ':')) {
            ++i;
            std::size_t start = i;
            int frac = 0;
            if (!read_digits(s, i, 1, 9, frac)) return false;
            std::size_t n = i - start;
            while (n > 3) {
                frac /= 10;
                --n;
            }
            while (n < 3) {
                frac *= 10;
                ++n;
            }
            dt.millis = frac;
        }
    }
    // An AM/PM suffix.
    std::size_t j = i;
    while (j < s.size() && s[j] == ' ')
        ++j;
    if (j + 1 < s.size() + 0 && j + 2 <= s.size()) {
        char a = static_cast<char>(fold(static_cast<unsigned char>(s[j])));
        char b = static_cast<char>(fold(static_cast<unsigned char>(s[j + 1])));
        if ((a == 'a' || a == 'p') && b == 'm') {
            if (dt.hour < 1 || dt.hour > 12) return false;
            if (a == 'p' && dt.hour != 12) dt.hour += 12;
            if (a == 'a' && dt.hour == 12) dt.hour = 0;
            i = j + 2;
        }
    }
    return dt.hour < 24 && dt.minute < 60 && dt.second < 60;
}

long long to_millis(const DateTime& dt);
DateTime from_millis(long long ms);

// A datetime keeps time in three-hundredths of a second: .999 is the next second.
void round_to_ticks(DateTime& dt) {
    const int ticks = (dt.millis * 3 + 5) / 10;
    const int millis = (ticks * 1000 + 150) / 300;
    if (millis == dt.millis) return;
    dt.millis = 0;
    dt = from_millis(to_millis(dt) + millis);
}

// Reads the date forms the server reads with DATEFORMAT ymd: 'YYYY-MM-DD', 'YYYY/MM/DD',
// 'YYYY.MM.DD', 'YYYYMMDD', each with an optional time after a blank or 'T', or a time alone.
// A text of those forms whose year, month or day does not exist sets *out_of_range.
bool parse_date(std::string_view s, DateTime& dt, bool* out_of_range = nullptr) {
    s = trim_blanks(s);
    dt = DateTime{};
    if (s.empty()) return true;  // '' is 1900-01-01
    std::size_t i = 0;
    std::size_t digits = 0;
    while (digits < s.size() && s[digits] >= '0' && s[digits] <= '9')
        ++digits;
    if (digits < s.size() && s[digits] == ':') {
        if (!parse_time(s, i, dt)) return false;
        round_to_ticks(dt);
        return i == s.size();
    }
    if (digits == 8) {
        read_digits(s, i, 4, 4, dt.year);
        read_digits(s, i, 2, 2, dt.month);
        read_digits(s, i, 2, 2, dt.day);
    } else if (digits == 4 && i + 4 < s.size() && (s[4] == '-' || s[4] == '/' || s[4] == '.')) {
        const char sep = s[4];
        read_digits(s, i, 4, 4, dt.year);
        ++i;
        if (!read_digits(s, i, 1, 2, dt.month)) return false;
        if (i >= s.size() || s[i] != sep) return false;
        ++i;
        if (!read_digits(s, i, 1, 2, dt.day)) return false;
    } else {
        return false;
    }
    if (dt.year < 1753 || dt.year > 9999 || dt.month < 1 || dt.month > 12 || dt.day < 1 ||
        dt.day > calendar::days_in_month(dt.year, dt.month)) {
        if (out_of_range) *out_of_range = true;
        return false;
    }
    if (i == s.size()) return true;
    if (s[i] != ' ' && s[i] != 'T' && s[i] != 't') return false;
    while (i < s.size() && (s[i] == ' ' || s[i] == 'T' || s[i] == 't'))
        ++i;
    if (!parse_time(s, i, dt)) return false;
    while (i < s.size() && s[i] == ' ')
        ++i;
    if (i != s.size()) return false;
    round_to_ticks(dt);
    return true;
}

// Any value as a date: text in the forms above, or a number of days since 1900-01-01.
enum class DateRead { Ok, Null, Bad, OutOfRange };

DateRead read_date(sqlite3_value* v, DateTime& dt) {
    switch (sqlite3_value_type(v)) {
        case SQLITE_NULL:
            return DateRead::Null;
        case SQLITE_INTEGER:
        case SQLITE_FLOAT: {
            double days = sqlite3_value_double(v);
            double whole = std::floor(days);
            set_day(dt, calendar::days_from_civil(1900, 1, 1) + static_cast<long long>(whole));
            long long ms = std::llround((days - whole) * 86400000.0);
            dt.hour = static_cast<int>(ms / 3600000);
            dt.minute = static_cast<int>(ms / 60000 % 60);
            dt.second = static_cast<int>(ms / 1000 % 60);
            dt.millis = static_cast<int>(ms % 1000);
            return DateRead::Ok;
        }
        default: {
            bool out_of_range = false;
            if (parse_date(value_text(v), dt, &out_of_range)) return DateRead::Ok;
            return out_of_range ? DateRead::OutOfRange : DateRead::Bad;
        }
    }
}

// A function's date argument: true with `dt` read; otherwise the function's result is already
// set (null for a null argument, the conversion error for text that is no date).
bool date_argument(sqlite3_context* ctx, sqlite3_value* v, DateTime& dt) {
    switch (read_date(v, dt)) {
        case DateRead::Null:
            sqlite3_result_null(ctx);
            return false;
        case DateRead::Bad:
            result_server_error(ctx, 241, kBadDate);
            return false;
        case DateRead::OutOfRange:
            result_server_error(ctx, 242, kDateOutOfRange);
            return false;
        case DateRead::Ok:
            break;
    }
    return true;
}

long long to_millis(const DateTime& dt) {
    return ((day_number(dt) * 24 + dt.hour) * 60 + dt.minute) * 60000LL + dt.second * 1000LL +
           dt.millis;
}

DateTime from_millis(long long ms) {
    DateTime dt;
    long long days = ms >= 0 ? ms / 86400000 : -((-ms + 86399999) / 86400000);
    long long rest = ms - days * 86400000;
    set_day(dt, days);
    dt.hour = static_cast<int>(rest / 3600000);
    dt.minute = static_cast<int>(rest / 60000 % 60);
    dt.second = static_cast<int>(rest / 1000 % 60);
    dt.millis = static_cast<int>(rest % 1000);
    return dt;
}

void put2(std::string& out, int v) {
    out.push_back(static_cast<char>('0' + v / 10 % 10));
    out.push_back(static_cast<char>('0' + v % 10));
}
void put4(std::string& out, int v) {
    put2(out, v / 100);
    put2(out, v % 100);
}
void put3(std::string& out, int v) {
    out.push_back(static_cast<char>('0' + v / 100 % 10));
    put2(out, v % 100);
}

std::string canonical(const DateTime& dt) {
    std::string out;
    out.reserve(19);
    put4(out, dt.year);
    out.push_back('-');
    put2(out, dt.month);
    out.push_back('-');
    put2(out, dt.day);
    out.push_back(' ');
    put2(out, dt.hour);
    out.push_back(':');
    put2(out, dt.minute);
    out.push_back(':');
    put2(out, dt.second);
    return out;
}

// A date as text in one of convert's styles.
std::string format_date(const DateTime& dt, int style) {
    static const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::string out;
    auto ymd = [&](char sep, bool century) {
        if (century)
            put4(out, dt.year);
        else
            put2(out, dt.year % 100);
        if (sep) out.push_back(sep);
        put2(out, dt.month);
        if (sep) out.push_back(sep);
        put2(out, dt.day);
    };
    auto mdy = [&](char sep, bool century) {
        put2(out, dt.month);
        out.push_back(sep);
        put2(out, dt.day);
        out.push_back(sep);
        if (century)
            put4(out, dt.year);
        else
            put2(out, dt.year % 100);
    };
    auto dmy = [&](char sep, bool century) {
        put2(out, dt.day);
        out.push_back(sep);
        put2(out, dt.month);
        out.push_back(sep);
        if (century)
            put4(out, dt.year);
        else
            put2(out, dt.year % 100);
    };
    auto hms = [&]() {
        put2(out, dt.hour);
        out.push_back(':');
        put2(out, dt.minute);
        out.push_back(':');
        put2(out, dt.second);
    };
    switch (style) {
        case 1:
            mdy('/', false);
            break;
        case 101:
            mdy('/', true);
            break;
        case 2:
            ymd('.', false);
            break;
        case 102:
            ymd('.', true);
            break;
        case 3:
            dmy('/', false);
            break;
        case 103:
            dmy('/', true);
            break;
        case 4:
            dmy('.', false);
            break;
        case 104:
            dmy('.', true);
            break;
        case 5:
            dmy('-', false);
            break;
        case 105:
            dmy('-', true);
            break;
        case 10:
            mdy('-', false);
            break;
        case 110:
            mdy('-', true);
            break;
        case 11:
            ymd('/', false);
            break;
        case 111:
            ymd('/', true);
            break;
        case 12:
            ymd(0, false);
            break;
        case 112:
            ymd(0, true);
            break;
        case 8:
        case 108:
            hms();
            break;
        case 20:
        case 120:
            ymd('-', true);
            out.push_back(' ');
            hms();
            break;
        case 21:
        case 121:
            ymd('-', true);
            out.push_back(' ');
            hms();
            out.push_back('.');
            put3(out, dt.millis);
            break;
        case 23:
            ymd('-', true);
            break;
        case 126:
            ymd('-', true);
            out.push_back('T');
            hms();
            if (dt.millis) {
                out.push_back('.');
                put3(out, dt.millis);
            }
            break;
        default: {  // 0 and 100: "Jan  5 2024  8:30AM"
            out.append(kMonths[dt.month - 1]);
            out.push_back(' ');
            if (dt.day < 10) out.push_back(' ');
            out.append(std::to_string(dt.day));
            out.push_back(' ');
            put4(out, dt.year);
            out.push_back(' ');
            int h = dt.hour % 12 == 0 ? 12 : dt.hour % 12;
            if (h < 10) out.push_back(' ');
            out.append(std::to_string(h));
            out.push_back(':');
            put2(out, dt.minute);
            out.append(dt.hour < 12 ? "AM" : "PM");
            break;
        }
    }
    return out;
}

void fn_dt(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    if (date_argument(ctx, argv[0], dt)) result_text(ctx, canonical(dt));
}

// ISDATE: 1 for a text the date reader takes, else 0 (NULL and a blank text included).
void fn_isdate(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    const std::string text =
        sqlite3_value_type(argv[0]) == SQLITE_NULL ? std::string() : text_of(argv[0]);
    const bool date = !trim_blanks(text).empty() && parse_date(text, dt);
    sqlite3_result_int(ctx, date ? 1 : 0);
}

void fn_date(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    if (date_argument(ctx, argv[0], dt)) result_text(ctx, format_date(dt, 23));
}

enum class Part {
    Year,
    Quarter,
    Month,
    DayOfYear,
    Day,
    Week,
    Weekday,
    Hour,
    Minute,
    Second,
    Millisecond,
    Days,
    Bad
};

Part part_of(sqlite3_value* v) {
    std::string_view p = value_text(v);
    static const std::pair<std::string_view, Part> kParts[] = {
        {names::part::kYear, Part::Year},
        {names::part::kQuarter, Part::Quarter},
        {names::part::kMonth, Part::Month},
        {names::part::kDayOfYear, Part::DayOfYear},
        {names::part::kDay, Part::Day},
        {names::part::kWeek, Part::Week},
        {names::part::kWeekday, Part::Weekday},
        {names::part::kHour, Part::Hour},
        {names::part::kMinute, Part::Minute},
        {names::part::kSecond, Part::Second},
        {names::part::kMillisecond, Part::Millisecond},
        {names::part::kDays, Part::Days},
    };
    for (const auto& [name, part] : kParts) {
        if (p == name) return part;
    }
    return Part::Bad;
}

// Day of the week, 1 = Sunday … 7 = Saturday (the server's default first day).
int weekday(const DateTime& dt) {
    return calendar::day_of_week(day_number(dt));
}

int day_of_year(const DateTime& dt) {
    return static_cast<int>(day_number(dt) - calendar::days_from_civil(dt.year, 1, 1)) + 1;
}

void fn_datepart(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    if (!date_argument(ctx, argv[1], dt)) return;
    long long r = 0;
    switch (part_of(argv[0])) {
        case Part::Year:
            r = dt.year;
            break;
        case Part::Quarter:
            r = (dt.month - 1) / 3 + 1;
            break;
        case Part::Month:
            r = dt.month;
            break;
        case Part::DayOfYear:
            r = day_of_year(dt);
            break;
        case Part::Day:
        case Part::Days:
            r = dt.day;
            break;
        case Part::Week: {
            DateTime jan1 = dt;
            jan1.month = 1;
            jan1.day = 1;
            r = (day_of_year(dt) + weekday(jan1) - 2) / 7 + 1;
            break;
        }
        case Part::Weekday:
            r = weekday(dt);
            break;
        case Part::Hour:
            r = dt.hour;
            break;
        case Part::Minute:
            r = dt.minute;
            break;
        case Part::Second:
            r = dt.second;
            break;
        case Part::Millisecond:
            r = dt.millis;
            break;
        case Part::Bad:
            sqlite3_result_error(ctx, "unknown date part", -1);
            return;
    }
    sqlite3_result_int64(ctx, r);
}

DateTime add_months(DateTime dt, long long months) {
    long long total = dt.year * 12LL + (dt.month - 1) + months;
    dt.year = static_cast<int>(total >= 0 ? total / 12 : -((-total + 11) / 12));
    dt.month = static_cast<int>(total - dt.year * 12LL) + 1;
    int last = calendar::days_in_month(dt.year, dt.month);
    if (dt.day > last) dt.day = last;
    return dt;
}

void fn_dateadd(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[1]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    DateTime dt;
    if (!date_argument(ctx, argv[2], dt)) return;
    const Part part = part_of(argv[0]);
    double amount = sqlite3_value_double(argv[1]);
    if (sqlite3_value_type(argv[1]) == SQLITE_TEXT && !parse_double(value_text(argv[1]), amount)) {
        sqlite3_result_error(ctx, kBadFloat, -1);
        return;
    }
    // dateadd takes whole units; date ± n days keeps the fraction (a time of day).
    const long long n = static_cast<long long>(std::trunc(amount));
    long long ms = to_millis(dt);
    switch (part) {
        case Part::Year:
            dt = add_months(dt, n * 12);
            break;
        case Part::Quarter:
            dt = add_months(dt, n * 3);
            break;
        case Part::Month:
            dt = add_months(dt, n);
            break;
        case Part::DayOfYear:
        case Part::Day:
        case Part::Weekday:
            dt = from_millis(ms + n * 86400000LL);
            break;
        case Part::Days:
            dt = from_millis(ms + std::llround(amount * 86400000.0));
            break;
        case Part::Week:
            dt = from_millis(ms + n * 7 * 86400000LL);
            break;
        case Part::Hour:
            dt = from_millis(ms + n * 3600000LL);
            break;
        case Part::Minute:
            dt = from_millis(ms + n * 60000LL);
            break;
        case Part::Second:
            dt = from_millis(ms + n * 1000LL);
            break;
        case Part::Millisecond:
            dt = from_millis(ms + n);
            break;
        case Part::Bad:
            sqlite3_result_error(ctx, "unknown date part", -1);
            return;
    }
    if (dt.year < 1753 || dt.year > 9999) {
        sqlite3_result_error(ctx, "将 expression 转换为数据类型 datetime 时出现算术溢出错误。", -1);
        return;
    }
    result_text(ctx, canonical(dt));
}

void fn_datediff(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime a, b;
    DateRead ra = read_date(argv[1], a);
    DateRead rb = read_date(argv[2], b);
    if (ra == DateRead::Null || rb == DateRead::Null) {
        sqlite3_result_null(ctx);
        return;
    }
    for (const DateRead r : {ra, rb}) {
        if (r == DateRead::Bad || r == DateRead::OutOfRange) {
            if (r == DateRead::Bad) result_server_error(ctx, 241, kBadDate);
            if (r == DateRead::OutOfRange) result_server_error(ctx, 242, kDateOutOfRange);
            return;
        }
    }
    // Counts the boundaries of the part crossed between the two dates, as the server does.
    const long long da = day_number(a);
    const long long db = day_number(b);
    long long r = 0;
    switch (part_of(argv[0])) {
        case Part::Year:
            r = b.year - a.year;
            break;
        case Part::Quarter:
            r = (b.year * 4LL + (b.month - 1) / 3) - (a.year * 4LL + (a.month - 1) / 3);
            break;
        case Part::Month:
            r = (b.year * 12LL + b.month) - (a.year * 12LL + a.month);
            break;
        case Part::DayOfYear:
        case Part::Day:
        case Part::Days:
        case Part::Weekday:
            r = db - da;
            break;
        case Part::Week:
            r = calendar::floor_div(db + 4, 7) - calendar::floor_div(da + 4, 7);
            break;
        case Part::Hour:
            r = (db * 24 + b.hour) - (da * 24 + a.hour);
            break;
        case Part::Minute:
            r = ((db * 24 + b.hour) * 60 + b.minute) - ((da * 24 + a.hour) * 60 + a.minute);
            break;
        case Part::Second:
            r = calendar::floor_div(to_millis(b), 1000) - calendar::floor_div(to_millis(a), 1000);
            break;
        case Part::Millisecond:
            r = to_millis(b) - to_millis(a);
            break;
        case Part::Bad:
            sqlite3_result_error(ctx, "unknown date part", -1);
            return;
    }
    sqlite3_result_int64(ctx, r);
}

void fn_date_text(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    DateTime dt;
    std::string text;
    if (read_date(argv[0], dt) == DateRead::Ok) {
        text = format_date(dt, sqlite3_value_int(argv[1]));
    } else {
        text = std::string(value_text(argv[0]));
    }
    fit_length(text, sqlite3_value_int64(argv[2]), argc > 3);
    result_text(ctx, text);
}

constexpr FunctionDef kDateFunctions[] = {
    {names::kDateTime, 1, fn_dt},        {names::kDate, 1, fn_date},
    {names::kDatePart, 2, fn_datepart},  {names::kDateAdd, 3, fn_dateadd},
    {names::kDateDiff, 3, fn_datediff},  {names::kDateText, 3, fn_date_text},
    {names::kDateText, 4, fn_date_text}, {names::kIsDate, 1, fn_isdate},
};

}  // namespace

int compare_parsed_dates(std::string_view a, std::string_view b) {
    DateTime x, y;
    const bool da = !trim_blanks(a).empty() && parse_date(a, x);
    const bool db = !trim_blanks(b).empty() && parse_date(b, y);
    if (da && db) {
        long long mx = to_millis(x), my = to_millis(y);
        return mx < my ? -1 : mx > my ? 1 : 0;
    }
    if (da != db) return da ? -1 : 1;  // text that is no date sorts after the dates
    int c = a.compare(b);
    return c < 0 ? -1 : c > 0 ? 1 : 0;
}

std::span<const FunctionDef> date_functions() {
    return kDateFunctions;
}

}  // namespace billdata::drivers::sqlite::runtime
