#include "billdata/drivers/sqlite/tsql_runtime.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "billdata/dialect/runtime_names.h"

namespace billdata::drivers::sqlite {

namespace {

namespace names = dialect::runtime;

// ---- messages (the server's own wording) -------------------------------------------------

constexpr const char* kDivideByZero = "遇到以零作除数错误。";
constexpr const char* kBadDate = "从字符串转换日期和/或时间时，转换失败。";
constexpr const char* kBadFloat = "从数据类型 varchar 转换为 float 时出错。";
constexpr const char* kBadNumeric = "从数据类型 varchar 转换为 numeric 时出错。";
constexpr const char* kBadLeftLength = "传递给 LEFT 或 SUBSTRING 函数的长度参数无效。";
constexpr const char* kBadRightLength = "传递给 RIGHT 函数的长度参数无效。";

std::string bad_int_message(std::string_view text) {
    return "在将 varchar 值 '" + std::string(text) + "' 转换成数据类型 int 时失败。";
}

// ---- text helpers ------------------------------------------------------------------------

inline unsigned char fold(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? c + 32 : c;
}

std::string_view value_text(sqlite3_value* v) {
    const unsigned char* p = sqlite3_value_text(v);
    if (p == nullptr) return {};
    return std::string_view(reinterpret_cast<const char*>(p),
                            static_cast<std::size_t>(sqlite3_value_bytes(v)));
}

std::string_view trim_trailing_blanks(std::string_view s) {
    while (!s.empty() && s.back() == ' ')
        s.remove_suffix(1);
    return s;
}

std::string_view trim_blanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
        s.remove_suffix(1);
    return s;
}

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

int compare_text(std::string_view a, std::string_view b) {
    a = trim_trailing_blanks(a);
    b = trim_trailing_blanks(b);
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        unsigned char x = fold(static_cast<unsigned char>(a[i]));
        unsigned char y = fold(static_cast<unsigned char>(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

// ---- numbers -----------------------------------------------------------------------------

bool parse_int(std::string_view s, long long& out) {
    s = trim_blanks(s);
    if (s.empty()) {
        out = 0;  // the server reads '' as 0
        return true;
    }
    if (s.front() == '+') s.remove_prefix(1);
    auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && p == s.data() + s.size();
}

bool parse_double(std::string_view s, double& out) {
    s = trim_blanks(s);
    if (s.empty()) {
        out = 0;
        return true;
    }
    if (s.front() == '+') s.remove_prefix(1);
    auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && p == s.data() + s.size();
}

// Rounds half away from zero at `digits` decimal places (negative: left of the point), on the
// number's shortest decimal form, so that 2.675 rounds to 2.68 as a decimal column does.
double round_decimal(double x, int digits, bool truncate) {
    if (!std::isfinite(x)) return x;
    char buf[512];
    auto res = std::to_chars(buf, buf + sizeof(buf), x, std::chars_format::fixed);
    if (res.ec != std::errc()) return x;
    std::string_view text(buf, static_cast<std::size_t>(res.ptr - buf));
    const bool negative = !text.empty() && text[0] == '-';
    if (negative) text.remove_prefix(1);
    const std::size_t dot = text.find('.');
    const std::string_view int_part = text.substr(0, dot);
    const std::string_view frac_part =
        dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    if (digits >= static_cast<int>(frac_part.size())) return x;
    std::string all(int_part);
    all.append(frac_part);
    long point = static_cast<long>(int_part.size());
    long keep = point + digits;
    if (keep < 0) return 0.0;
    const bool up = !truncate && static_cast<std::size_t>(keep) < all.size() &&
                    all[static_cast<std::size_t>(keep)] >= '5';
    std::string kept = all.substr(0, static_cast<std::size_t>(keep));
    if (up) {
        long i = static_cast<long>(kept.size()) - 1;
        while (i >= 0 && kept[static_cast<std::size_t>(i)] == '9')
            kept[static_cast<std::size_t>(i--)] = '0';
        if (i >= 0) {
            ++kept[static_cast<std::size_t>(i)];
        } else {
            kept.insert(kept.begin(), '1');
            ++point;
            ++keep;
        }
    }
    std::string rebuilt;
    rebuilt.reserve(kept.size() + 24);
    if (keep <= point) {
        if (kept.empty()) {
            rebuilt.push_back('0');
        } else {
            rebuilt.append(kept);
            rebuilt.append(static_cast<std::size_t>(point - keep), '0');
        }
    } else {
        if (point == 0) {
            rebuilt.push_back('0');
        } else {
            rebuilt.append(kept, 0, static_cast<std::size_t>(point));
        }
        rebuilt.push_back('.');
        rebuilt.append(kept, static_cast<std::size_t>(point), std::string::npos);
    }
    double out = 0;
    std::from_chars(rebuilt.data(), rebuilt.data() + rebuilt.size(), out);
    return negative ? -out : out;
}

// The text of a number as the server writes it: integers plainly, reals in their shortest
// exact form without a trailing ".0".
std::string number_text(sqlite3_value* v) {
    if (sqlite3_value_type(v) == SQLITE_INTEGER) return std::to_string(sqlite3_value_int64(v));
    double d = sqlite3_value_double(v);
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof(buf), d);
    return std::string(buf, res.ptr);
}

bool is_number(sqlite3_value* v) {
    int t = sqlite3_value_type(v);
    return t == SQLITE_INTEGER || t == SQLITE_FLOAT;
}

// ---- dates -------------------------------------------------------------------------------

struct DateTime {
    int year = 1900, month = 1, day = 1, hour = 0, minute = 0, second = 0, millis = 0;
};

constexpr bool leap(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}
constexpr int days_in_month(int y, int m) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leap(y) ? 29 : kDays[m - 1];
}

// Days since 1970-01-01 (proleptic Gregorian).
long long days_from_civil(int y, int m, int d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const long long yoe = y - era * 400;
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civil_from_days(long long z, int& y, int& m, int& d) {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long yy = yoe + era * 400;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(yy + (m <= 2));
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

// Reads the date forms the server reads with DATEFORMAT ymd: 'YYYY-MM-DD', 'YYYY/MM/DD',
// 'YYYY.MM.DD', 'YYYYMMDD', each with an optional time after a blank or 'T', or a time alone.
bool parse_date(std::string_view s, DateTime& dt) {
    s = trim_blanks(s);
    dt = DateTime{};
    if (s.empty()) return true;  // '' is 1900-01-01
    std::size_t i = 0;
    std::size_t digits = 0;
    while (digits < s.size() && s[digits] >= '0' && s[digits] <= '9')
        ++digits;
    if (digits < s.size() && s[digits] == ':') {
        if (!parse_time(s, i, dt)) return false;
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
        dt.day > days_in_month(dt.year, dt.month)) {
        return false;
    }
    if (i == s.size()) return true;
    if (s[i] != ' ' && s[i] != 'T' && s[i] != 't') return false;
    while (i < s.size() && (s[i] == ' ' || s[i] == 'T' || s[i] == 't'))
        ++i;
    if (!parse_time(s, i, dt)) return false;
    while (i < s.size() && s[i] == ' ')
        ++i;
    return i == s.size();
}

// Any value as a date: text in the forms above, or a number of days since 1900-01-01.
enum class DateRead { Ok, Null, Bad };

DateRead read_date(sqlite3_value* v, DateTime& dt) {
    switch (sqlite3_value_type(v)) {
        case SQLITE_NULL:
            return DateRead::Null;
        case SQLITE_INTEGER:
        case SQLITE_FLOAT: {
            double days = sqlite3_value_double(v);
            double whole = std::floor(days);
            long long base = days_from_civil(1900, 1, 1) + static_cast<long long>(whole);
            civil_from_days(base, dt.year, dt.month, dt.day);
            long long ms = std::llround((days - whole) * 86400000.0);
            dt.hour = static_cast<int>(ms / 3600000);
            dt.minute = static_cast<int>(ms / 60000 % 60);
            dt.second = static_cast<int>(ms / 1000 % 60);
            dt.millis = static_cast<int>(ms % 1000);
            return DateRead::Ok;
        }
        default:
            return parse_date(value_text(v), dt) ? DateRead::Ok : DateRead::Bad;
    }
}

long long to_millis(const DateTime& dt) {
    return ((days_from_civil(dt.year, dt.month, dt.day) * 24 + dt.hour) * 60 + dt.minute) *
               60000LL +
           dt.second * 1000LL + dt.millis;
}

DateTime from_millis(long long ms) {
    DateTime dt;
    long long days = ms >= 0 ? ms / 86400000 : -((-ms + 86399999) / 86400000);
    long long rest = ms - days * 86400000;
    civil_from_days(days, dt.year, dt.month, dt.day);
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

// The fast form that sorts chronologically byte by byte.
inline bool is_canonical(std::string_view s) {
    return s.size() == 19 && s[4] == '-' && s[7] == '-' && s[10] == ' ' && s[13] == ':' &&
           s[16] == ':';
}

int compare_dates(std::string_view a, std::string_view b) {
    if (is_canonical(a) && is_canonical(b)) {
        int c = std::memcmp(a.data(), b.data(), 19);
        return c < 0 ? -1 : c > 0 ? 1 : 0;
    }
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

// ---- collations --------------------------------------------------------------------------

int collate_text(void*, int na, const void* a, int nb, const void* b) {
    return compare_text(
        std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(na)),
        std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(nb)));
}

int collate_date(void*, int na, const void* a, int nb, const void* b) {
    return compare_dates(
        std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(na)),
        std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(nb)));
}

// ---- functions ---------------------------------------------------------------------------

bool any_null(int argc, sqlite3_value** argv) {
    for (int i = 0; i < argc; ++i) {
        if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
    }
    return false;
}

void result_error(sqlite3_context* ctx, const std::string& message) {
    sqlite3_result_error(ctx, message.data(), static_cast<int>(message.size()));
}

void result_text(sqlite3_context* ctx, const std::string& s) {
    sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

void fn_dt(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    switch (read_date(argv[0], dt)) {
        case DateRead::Null:
            sqlite3_result_null(ctx);
            return;
        case DateRead::Bad:
            sqlite3_result_error(ctx, kBadDate, -1);
            return;
        case DateRead::Ok:
            result_text(ctx, canonical(dt));
            return;
    }
}

void fn_date(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    switch (read_date(argv[0], dt)) {
        case DateRead::Null:
            sqlite3_result_null(ctx);
            return;
        case DateRead::Bad:
            sqlite3_result_error(ctx, kBadDate, -1);
            return;
        case DateRead::Ok:
            result_text(ctx, format_date(dt, 23));
            return;
    }
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
    long long d = days_from_civil(dt.year, dt.month, dt.day);  // 1970-01-01 was a Thursday
    long long w = (d + 4) % 7;
    if (w < 0) w += 7;
    return static_cast<int>(w) + 1;
}

int day_of_year(const DateTime& dt) {
    return static_cast<int>(days_from_civil(dt.year, dt.month, dt.day) -
                            days_from_civil(dt.year, 1, 1)) +
           1;
}

void fn_datepart(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime dt;
    switch (read_date(argv[1], dt)) {
        case DateRead::Null:
            sqlite3_result_null(ctx);
            return;
        case DateRead::Bad:
            sqlite3_result_error(ctx, kBadDate, -1);
            return;
        case DateRead::Ok:
            break;
    }
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
    int last = days_in_month(dt.year, dt.month);
    if (dt.day > last) dt.day = last;
    return dt;
}

void fn_dateadd(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[1]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    DateTime dt;
    switch (read_date(argv[2], dt)) {
        case DateRead::Null:
            sqlite3_result_null(ctx);
            return;
        case DateRead::Bad:
            sqlite3_result_error(ctx, kBadDate, -1);
            return;
        case DateRead::Ok:
            break;
    }
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

long long floor_div(long long a, long long b) {
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

void fn_datediff(sqlite3_context* ctx, int, sqlite3_value** argv) {
    DateTime a, b;
    DateRead ra = read_date(argv[1], a);
    DateRead rb = read_date(argv[2], b);
    if (ra == DateRead::Null || rb == DateRead::Null) {
        sqlite3_result_null(ctx);
        return;
    }
    if (ra == DateRead::Bad || rb == DateRead::Bad) {
        sqlite3_result_error(ctx, kBadDate, -1);
        return;
    }
    // Counts the boundaries of the part crossed between the two dates, as the server does.
    const long long da = days_from_civil(a.year, a.month, a.day);
    const long long db = days_from_civil(b.year, b.month, b.day);
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
            r = floor_div(db + 4, 7) - floor_div(da + 4, 7);
            break;
        case Part::Hour:
            r = (db * 24 + b.hour) - (da * 24 + a.hour);
            break;
        case Part::Minute:
            r = ((db * 24 + b.hour) * 60 + b.minute) - ((da * 24 + a.hour) * 60 + a.minute);
            break;
        case Part::Second:
            r = floor_div(to_millis(b), 1000) - floor_div(to_millis(a), 1000);
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
    long long length = sqlite3_value_int64(argv[2]);
    if (length >= 0) {
        text.resize(byte_offset(text, static_cast<std::size_t>(length)));
        if (argc > 3) {
            std::size_t n = char_count(text);
            if (n < static_cast<std::size_t>(length))
                text.append(static_cast<std::size_t>(length) - n, ' ');
        }
    }
    result_text(ctx, text);
}

void fn_varchar(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    std::string text = is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
    long long length = sqlite3_value_int64(argv[1]);
    if (length >= 0) {
        text.resize(byte_offset(text, static_cast<std::size_t>(length)));
        if (argc > 2) {
            std::size_t n = char_count(text);
            if (n < static_cast<std::size_t>(length))
                text.append(static_cast<std::size_t>(length) - n, ' ');
        }
    }
    result_text(ctx, text);
}

void fn_int(sqlite3_context* ctx, int, sqlite3_value** argv) {
    switch (sqlite3_value_type(argv[0])) {
        case SQLITE_NULL:
            sqlite3_result_null(ctx);
            return;
        case SQLITE_INTEGER:
            sqlite3_result_int64(ctx, sqlite3_value_int64(argv[0]));
            return;
        case SQLITE_FLOAT:
            sqlite3_result_int64(ctx,
                                 static_cast<long long>(std::trunc(sqlite3_value_double(argv[0]))));
            return;
        default: {
            long long v = 0;
            std::string_view t = value_text(argv[0]);
            if (!parse_int(t, v)) {
                result_error(ctx, bad_int_message(t));
                return;
            }
            sqlite3_result_int64(ctx, v);
            return;
        }
    }
}

void fn_bit(sqlite3_context* ctx, int, sqlite3_value** argv) {
    switch (sqlite3_value_type(argv[0])) {
        case SQLITE_NULL:
            sqlite3_result_null(ctx);
            return;
        case SQLITE_INTEGER:
        case SQLITE_FLOAT:
            sqlite3_result_int(ctx, sqlite3_value_double(argv[0]) != 0.0);
            return;
        default: {
            std::string_view t = trim_blanks(value_text(argv[0]));
            if (compare_text(t, "true") == 0) {
                sqlite3_result_int(ctx, 1);
                return;
            }
            if (compare_text(t, "false") == 0) {
                sqlite3_result_int(ctx, 0);
                return;
            }
            double d = 0;
            if (!parse_double(t, d)) {
                result_error(
                    ctx, "在将 varchar 值 '" + std::string(t) + "' 转换成数据类型 bit 时失败。");
                return;
            }
            sqlite3_result_int(ctx, d != 0.0);
            return;
        }
    }
}

// A value as a double; false (with the error set) when it is text that is no number.
bool number_of(sqlite3_context* ctx, sqlite3_value* v, double& out, const char* error) {
    if (is_number(v)) {
        out = sqlite3_value_double(v);
        return true;
    }
    if (!parse_double(value_text(v), out)) {
        sqlite3_result_error(ctx, error, -1);
        return false;
    }
    return true;
}

void fn_float(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    double d = 0;
    if (number_of(ctx, argv[0], d, kBadFloat)) sqlite3_result_double(ctx, d);
}

void fn_dec(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    double d = 0;
    if (number_of(ctx, argv[0], d, kBadNumeric)) {
        sqlite3_result_double(ctx, round_decimal(d, sqlite3_value_int(argv[1]), false));
    }
}

void fn_round(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    const int digits = sqlite3_value_int(argv[1]);
    const bool truncate = argc > 2 && sqlite3_value_double(argv[2]) != 0.0;
    if (sqlite3_value_type(argv[0]) == SQLITE_INTEGER) {
        long long v = sqlite3_value_int64(argv[0]);
        if (digits >= 0) {
            sqlite3_result_int64(ctx, v);
            return;
        }
        long long scale = 1;
        for (int i = 0; i < -digits && i < 18; ++i)
            scale *= 10;
        long long q = v / scale;
        long long rem = v % scale;
        if (!truncate && (rem >= 0 ? rem : -rem) * 2 >= scale) q += v >= 0 ? 1 : -1;
        sqlite3_result_int64(ctx, q * scale);
        return;
    }
    double d = 0;
    if (number_of(ctx, argv[0], d, kBadFloat))
        sqlite3_result_double(ctx, round_decimal(d, digits, truncate));
}

void fn_floor_ceiling(sqlite3_context* ctx, sqlite3_value* v, bool up) {
    switch (sqlite3_value_type(v)) {
        case SQLITE_NULL:
            sqlite3_result_null(ctx);
            return;
        case SQLITE_INTEGER:
            sqlite3_result_int64(ctx, sqlite3_value_int64(v));
            return;
        default: {
            double d = 0;
            if (number_of(ctx, v, d, kBadFloat))
                sqlite3_result_double(ctx, up ? std::ceil(d) : std::floor(d));
        }
    }
}
void fn_floor(sqlite3_context* ctx, int, sqlite3_value** argv) {
    fn_floor_ceiling(ctx, argv[0], false);
}
void fn_ceiling(sqlite3_context* ctx, int, sqlite3_value** argv) {
    fn_floor_ceiling(ctx, argv[0], true);
}

// The divisor, checked: the server refuses a division by zero instead of giving NULL.
void fn_nz(sqlite3_context* ctx, int, sqlite3_value** argv) {
    sqlite3_value* v = argv[0];
    switch (sqlite3_value_type(v)) {
        case SQLITE_NULL:
            sqlite3_result_null(ctx);
            return;
        case SQLITE_INTEGER:
            if (sqlite3_value_int64(v) == 0) {
                sqlite3_result_error(ctx, kDivideByZero, -1);
                return;
            }
            sqlite3_result_value(ctx, v);
            return;
        default: {
            double d = 0;
            if (!number_of(ctx, v, d, kBadFloat)) return;
            if (d == 0.0) {
                sqlite3_result_error(ctx, kDivideByZero, -1);
                return;
            }
            sqlite3_result_value(ctx, v);
            return;
        }
    }
}

void fn_mod(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    if (sqlite3_value_type(argv[0]) == SQLITE_INTEGER &&
        sqlite3_value_type(argv[1]) == SQLITE_INTEGER) {
        long long b = sqlite3_value_int64(argv[1]);
        if (b == 0) {
            sqlite3_result_error(ctx, kDivideByZero, -1);
            return;
        }
        sqlite3_result_int64(ctx, b == -1 ? 0 : sqlite3_value_int64(argv[0]) % b);
        return;
    }
    double a = 0, b = 0;
    if (!number_of(ctx, argv[0], a, kBadFloat) || !number_of(ctx, argv[1], b, kBadFloat)) return;
    if (b == 0.0) {
        sqlite3_result_error(ctx, kDivideByZero, -1);
        return;
    }
    sqlite3_result_double(ctx, std::fmod(a, b));
}

// `+` whose operand types the catalogue could not tell: texts concatenate, numbers add, and a
// text with a number is read as a number, as the server converts by type precedence.
void fn_add(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    const bool na = is_number(argv[0]);
    const bool nb = is_number(argv[1]);
    if (!na && !nb) {
        std::string s(value_text(argv[0]));
        s.append(value_text(argv[1]));
        result_text(ctx, s);
        return;
    }
    const bool integers = (sqlite3_value_type(argv[0]) == SQLITE_INTEGER || !na) &&
                          (sqlite3_value_type(argv[1]) == SQLITE_INTEGER || !nb);
    if (integers) {
        long long a = 0, b = 0;
        for (int i = 0; i < 2; ++i) {
            long long& dst = i == 0 ? a : b;
            if (is_number(argv[i])) {
                dst = sqlite3_value_int64(argv[i]);
            } else if (!parse_int(value_text(argv[i]), dst)) {
                result_error(ctx, bad_int_message(value_text(argv[i])));
                return;
            }
        }
        long long r = 0;
        if (__builtin_add_overflow(a, b, &r)) {
            sqlite3_result_double(ctx, static_cast<double>(a) + static_cast<double>(b));
            return;
        }
        sqlite3_result_int64(ctx, r);
        return;
    }
    double a = 0, b = 0;
    if (!number_of(ctx, argv[0], a, kBadFloat) || !number_of(ctx, argv[1], b, kBadFloat)) return;
    sqlite3_result_double(ctx, a + b);
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
    std::string s = is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
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
    std::string s = is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
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
    std::string s = is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
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
    std::string needle =
        is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
    std::string hay = is_number(argv[1]) ? number_text(argv[1]) : std::string(value_text(argv[1]));
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
    std::string s = is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
    std::string find = is_number(argv[1]) ? number_text(argv[1]) : std::string(value_text(argv[1]));
    std::string with = is_number(argv[2]) ? number_text(argv[2]) : std::string(value_text(argv[2]));
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
    std::string value =
        is_number(argv[0]) ? number_text(argv[0]) : std::string(value_text(argv[0]));
    std::string pattern =
        is_number(argv[1]) ? number_text(argv[1]) : std::string(value_text(argv[1]));
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

struct FunctionDef {
    std::string_view name;  // NUL-terminated: the names are literals
    int args;
    void (*fn)(sqlite3_context*, int, sqlite3_value**);
};

constexpr FunctionDef kFunctions[] = {
    {names::kDateTime, 1, fn_dt},
    {names::kDate, 1, fn_date},
    {names::kDatePart, 2, fn_datepart},
    {names::kDateAdd, 3, fn_dateadd},
    {names::kDateDiff, 3, fn_datediff},
    {names::kDateText, 3, fn_date_text},
    {names::kDateText, 4, fn_date_text},
    {names::kVarchar, 2, fn_varchar},
    {names::kVarchar, 3, fn_varchar},
    {names::kInt, 1, fn_int},
    {names::kBit, 1, fn_bit},
    {names::kFloat, 1, fn_float},
    {names::kDecimal, 2, fn_dec},
    {names::kRound, 2, fn_round},
    {names::kRound, 3, fn_round},
    {names::kFloor, 1, fn_floor},
    {names::kCeiling, 1, fn_ceiling},
    {names::kNonZero, 1, fn_nz},
    {names::kMod, 2, fn_mod},
    {names::kAdd, 2, fn_add},
    {names::kLeft, 2, fn_left},
    {names::kRight, 2, fn_right},
    {names::kSubstring, 3, fn_substring},
    {names::kCharIndex, 2, fn_charindex},
    {names::kCharIndex, 3, fn_charindex},
    {names::kReplace, 3, fn_replace},
    {names::kLike, 2, fn_like},
    {names::kLike, 3, fn_like},
};

}  // namespace

int register_tsql_runtime(sqlite3* db) {
    int rc = sqlite3_create_collation_v2(db, names::kTextCollation.data(), SQLITE_UTF8, nullptr,
                                         collate_text, nullptr);
    if (rc != SQLITE_OK) return rc;
    rc = sqlite3_create_collation_v2(db, names::kDateCollation.data(), SQLITE_UTF8, nullptr,
                                     collate_date, nullptr);
    if (rc != SQLITE_OK) return rc;
    for (const auto& f : kFunctions) {
        rc = sqlite3_create_function_v2(db, f.name.data(), f.args,
                                        SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                                        nullptr, f.fn, nullptr, nullptr, nullptr);
        if (rc != SQLITE_OK) return rc;
    }
    return SQLITE_OK;
}

}  // namespace billdata::drivers::sqlite
