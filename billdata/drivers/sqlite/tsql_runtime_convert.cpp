// Conversions between numbers and texts whose form depends on the number's type: a number
// written as text (a decimal with its scale, money in its three styles, float and real in six,
// eight or sixteen digits, whole numbers plainly) and a text read as a decimal or as money.
// The translator knows the type and passes it; the value may come as an integer, a double or a
// text holding a decimal number, however the engine happens to keep it.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "billdata/dialect/runtime_names.h"
#include "billdata/drivers/sqlite/tsql_runtime_internal.h"

namespace billdata::drivers::sqlite::runtime {

namespace {

namespace names = dialect::runtime;

// A decimal number as its digits: no leading zeros in `whole` (empty for zero), `frac` as long
// as it happens to be.
struct Digits {
    bool negative = false;
    std::string whole;
    std::string frac;
};

bool all_digits(std::string_view s) {
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

// Reads [+|-]digits[.digits] (at least one digit); false for anything else.
bool read_plain_decimal(std::string_view s, Digits& d) {
    d = Digits{};
    if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
        d.negative = s.front() == '-';
        s.remove_prefix(1);
    }
    const std::size_t dot = s.find('.');
    std::string_view whole = s.substr(0, dot);
    std::string_view frac = dot == std::string_view::npos ? std::string_view() : s.substr(dot + 1);
    if (whole.empty() && frac.empty()) return false;
    if (!all_digits(whole) || !all_digits(frac)) return false;
    while (!whole.empty() && whole.front() == '0')
        whole.remove_prefix(1);
    d.whole = whole;
    d.frac = frac;
    return true;
}

// The digits of a numeric value: an integer exactly, a double in its shortest exact form.
void digits_of(sqlite3_value* v, Digits& d) {
    if (sqlite3_value_type(v) == SQLITE_INTEGER) {
        read_plain_decimal(std::to_string(sqlite3_value_int64(v)), d);
        return;
    }
    if (sqlite3_value_type(v) == SQLITE_TEXT && read_plain_decimal(value_text(v), d)) return;
    char buf[400];
    const int n = std::snprintf(buf, sizeof(buf), "%.17g", sqlite3_value_double(v));
    // The shortest of the forms that read back as the same double.
    std::string text(buf, static_cast<std::size_t>(n));
    for (int precision = 1; precision <= 17; ++precision) {
        const int m = std::snprintf(buf, sizeof(buf), "%.*g", precision, sqlite3_value_double(v));
        if (std::strtod(buf, nullptr) == sqlite3_value_double(v)) {
            text.assign(buf, static_cast<std::size_t>(m));
            break;
        }
    }
    // %g may give an exponent: move the point instead.
    const std::size_t e = text.find_first_of("eE");
    if (e == std::string::npos) {
        read_plain_decimal(text, d);
        return;
    }
    const int exponent = std::atoi(text.c_str() + e + 1);
    read_plain_decimal(text.substr(0, e), d);
    std::string all = d.whole + d.frac;
    long point = static_cast<long>(d.whole.size()) + exponent;
    if (point <= 0) {
        all.insert(0, static_cast<std::size_t>(-point), '0');
        point = 0;
    } else if (point > static_cast<long>(all.size())) {
        all.append(static_cast<std::size_t>(point) - all.size(), '0');
    }
    d.whole = all.substr(0, static_cast<std::size_t>(point));
    d.frac = all.substr(static_cast<std::size_t>(point));
    while (!d.whole.empty() && d.whole.front() == '0')
        d.whole.erase(0, 1);
}

// Rounds half away from zero to exactly `scale` decimal places.
void round_to(Digits& d, int scale) {
    const auto keep = static_cast<std::size_t>(scale);
    if (d.frac.size() <= keep) {
        d.frac.append(keep - d.frac.size(), '0');
        return;
    }
    const bool up = d.frac[keep] >= '5';
    d.frac.resize(keep);
    if (!up) return;
    std::string all = d.whole + d.frac;
    long i = static_cast<long>(all.size()) - 1;
    while (i >= 0 && all[static_cast<std::size_t>(i)] == '9')
        all[static_cast<std::size_t>(i--)] = '0';
    if (i >= 0) {
        ++all[static_cast<std::size_t>(i)];
    } else {
        all.insert(all.begin(), '1');
    }
    d.whole = all.substr(0, all.size() - keep);
    d.frac = all.substr(all.size() - keep);
    while (!d.whole.empty() && d.whole.front() == '0')
        d.whole.erase(0, 1);
}

bool is_zero(const Digits& d) {
    return d.whole.empty() && d.frac.find_first_not_of('0') == std::string::npos;
}

// The number as the server writes a decimal: a leading 0 before the point, no sign for zero,
// thousands separated by commas when asked.
std::string decimal_text(const Digits& d, bool commas) {
    std::string out;
    if (d.negative && !is_zero(d)) out.push_back('-');
    const std::string whole = d.whole.empty() ? "0" : d.whole;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        if (commas && i > 0 && (whole.size() - i) % 3 == 0) out.push_back(',');
        out.push_back(whole[i]);
    }
    if (!d.frac.empty()) {
        out.push_back('.');
        out.append(d.frac);
    }
    return out;
}

// A float in `significant` digits: the exponent form of the server (at least three exponent
// digits) when `scientific`, or when the exponent is below -4 or not below the digits shown;
// otherwise plainly, without trailing zeros.
std::string float_text(double x, int significant, bool always_scientific) {
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%.*e", significant - 1, x);
    std::string_view s(buf);
    const std::size_t e = s.find('e');
    const int exponent = std::atoi(buf + e + 1);
    std::string mantissa(s.substr(0, e));
    if (always_scientific || exponent < -4 || exponent >= significant) {
        if (!always_scientific && mantissa.find('.') != std::string::npos) {
            while (mantissa.back() == '0')
                mantissa.pop_back();
            if (mantissa.back() == '.') mantissa.pop_back();
        }
        char exp[16];
        std::snprintf(exp, sizeof(exp), "e%c%03d", exponent < 0 ? '-' : '+', std::abs(exponent));
        return mantissa + exp;
    }
    // The mantissa's digits with the point moved by the exponent.
    Digits d;
    read_plain_decimal(mantissa, d);
    std::string all = d.whole + d.frac;  // whole is the one leading digit (or empty for 0)
    if (d.whole.empty()) all = "0" + d.frac;
    long point = 1 + exponent;
    if (point <= 0) {
        all.insert(0, static_cast<std::size_t>(1 - point), '0');
        point = 1;
    }
    d.whole = all.substr(0, static_cast<std::size_t>(point));
    d.frac = all.substr(static_cast<std::size_t>(point));
    while (!d.whole.empty() && d.whole.front() == '0')
        d.whole.erase(0, 1);
    while (!d.frac.empty() && d.frac.back() == '0')
        d.frac.pop_back();
    return decimal_text(d, false);
}

// bd_numtext(value, kind, digits, target, length): a number of the server type `kind` ('int',
// 'decimal' with `digits` its scale, 'money' or 'smallmoney' and 'float' or 'real' with `digits`
// the convert style) as text of type `target` ('varchar', 'char', 'nvarchar', 'nchar') and
// `length` characters (-1 for max). A text that does not fit is '*' for a whole number in char
// or varchar, the server's error otherwise; char and nchar are filled up with blanks.
void fn_numtext(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const std::string_view kind = value_text(argv[1]);
    const int digits = sqlite3_value_int(argv[2]);
    const std::string_view target = value_text(argv[3]);
    const long long length = sqlite3_value_int64(argv[4]);
    std::string text;
    double as_float = 0;
    if (kind == "float" || kind == "real") {
        double x = sqlite3_value_double(argv[0]);
        if (kind == "real") x = static_cast<double>(static_cast<float>(x));
        as_float = x;
        text = digits == 1   ? float_text(x, 8, true)
               : digits == 2 ? float_text(x, 16, true)
                             : float_text(x, 6, false);
    } else {
        Digits d;
        digits_of(argv[0], d);
        if (kind == "int") {
            round_to(d, 0);
            text = decimal_text(d, false);
        } else if (kind == "decimal") {
            round_to(d, digits);
            text = decimal_text(d, false);
        } else {
            // Money keeps four places; styles 0 and 1 show two of them.
            round_to(d, 4);
            if (digits != 2) round_to(d, 2);
            text = decimal_text(d, digits == 1);
        }
    }
    const bool national = target.front() == 'n';
    if (length >= 0 && static_cast<long long>(text.size()) > length) {
        if (kind == "int") {
            if (!national) {
                text = "*";
            } else {
                result_server_error(ctx, 8115,
                                    "将 expression 转换为数据类型 " + std::string(target) +
                                        " 时出现算术溢出错误。");
                return;
            }
        } else if (kind == "decimal") {
            result_server_error(
                ctx, 8115,
                "将 numeric 转换为数据类型 " + std::string(target) + " 时出现算术溢出错误。");
            return;
        } else if (kind == "money" || kind == "smallmoney") {
            result_server_error(ctx, 234,
                                "没有足够的结果空间将 " + std::string(kind) + " 值转换为 " +
                                    std::string(target) + "。");
            return;
        } else {
            char value[400];
            std::snprintf(value, sizeof(value), "%f", as_float);
            result_server_error(
                ctx, 232,
                "类型 " + std::string(target) + " 出现算术溢出错误，值 = " + value + "。");
            return;
        }
    }
    if (length >= 0 && (target == "char" || target == "nchar"))
        text.append(static_cast<std::size_t>(length) - text.size(), ' ');
    result_text(ctx, text);
}

// The digits as a double, the engine's form of a decimal value.
double to_double(const Digits& d) {
    const std::string text = decimal_text(d, false);
    return std::strtod(text.c_str(), nullptr);
}

// Takes one currency symbol off the front of `s`.
bool take_currency(std::string_view& s) {
    for (std::string_view symbol : {"$", "\u00a5", "\u00a3", "\u20ac", "\uffe5"}) {
        if (s.substr(0, symbol.size()) == symbol) {
            s.remove_prefix(symbol.size());
            return true;
        }
    }
    return false;
}

// A text as money: blanks around, a sign and a currency symbol in either order, and commas
// anywhere among the digits, which the server ignores ('' is 0).
bool read_money(std::string_view s, Digits& d) {
    s = trim_blanks(s);
    bool negative = false;
    bool sign = false;
    auto take_sign = [&] {
        if (sign || s.empty() || (s.front() != '-' && s.front() != '+')) return;
        negative = s.front() == '-';
        sign = true;
        s.remove_prefix(1);
    };
    take_sign();
    take_currency(s);
    take_sign();
    std::string plain;
    for (char c : s) {
        if (c != ',') plain.push_back(c);
    }
    if (plain.empty() && s.empty()) {
        d = Digits{};
        return true;
    }
    if (plain.empty() || plain.front() == '-' || plain.front() == '+') return false;
    if (!read_plain_decimal(plain, d)) return false;
    d.negative = negative;
    return true;
}

// bd_textnum(text, kind, precision, scale): a text read as decimal(precision, scale) ('decimal')
// or as 'money' or 'smallmoney', with the server's errors for a text that is no such number or
// one too large for the type. A number goes in as it is, rounded to the scale.
void fn_textnum(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const std::string_view kind = value_text(argv[1]);
    const bool money = kind != "decimal";
    const int precision = money ? (kind == "money" ? 19 : 10) : sqlite3_value_int(argv[2]);
    const int scale = money ? 4 : sqlite3_value_int(argv[3]);
    Digits d;
    if (is_number(argv[0])) {
        digits_of(argv[0], d);
    } else if (money) {
        if (!read_money(value_text(argv[0]), d)) {
            result_server_error(ctx, 235, "无法将 char 值转换为 money。该 char 值的语法有误。");
            return;
        }
    } else if (!read_plain_decimal(trim_blanks(value_text(argv[0])), d)) {
        result_server_error(ctx, 8114, "从数据类型 varchar 转换为 numeric 时出错。");
        return;
    }
    round_to(d, scale);
    bool over = static_cast<int>(d.whole.size()) > precision - scale;
    if (money && !over && static_cast<int>(d.whole.size()) == precision - scale) {
        // money and smallmoney end short of their last digit's full range.
        const std::string_view limit =
            kind == "money" ? (d.negative ? "9223372036854775808" : "9223372036854775807")
                            : (d.negative ? "2147483648" : "2147483647");
        over = d.whole + d.frac > limit;
    }
    if (over) {
        result_server_error(ctx, 8115,
                            "将 varchar 转换为数据类型 " +
                                std::string(money ? kind : std::string_view("numeric")) +
                                " 时出现算术溢出错误。");
        return;
    }
    sqlite3_result_double(ctx, to_double(d));
}

// bd_ymd(text, order, year digits): a date written month first ('mdy') or day first ('dmy') with
// a year of that many digits (two: 1950 to 2049), as 'YYYY-MM-DD' and what follows it (a time),
// for the date reader. A date of eight digits, a time alone and '' go through as they are; any
// other text is the server's error 241, for it would be read in another order.
void fn_ymd(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const std::string text = text_of(argv[0]);
    const std::string_view s = trim_blanks(text);
    std::size_t digits = 0;
    while (digits < s.size() && s[digits] >= '0' && s[digits] <= '9')
        ++digits;
    if (s.empty() || (digits < s.size() && s[digits] == ':') ||
        (digits == 8 &&
         (digits == s.size() || s[digits] == ' ' || s[digits] == 'T' || s[digits] == 't'))) {
        sqlite3_result_value(ctx, argv[0]);
        return;
    }
    // a{sep}b{sep}year, then the end or a blank or 'T'.
    std::size_t i = 0;
    auto number = [&](std::size_t min, std::size_t max, std::string& out) {
        const std::size_t start = i;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9' && i - start < max)
            ++i;
        out = std::string(s.data() + start, i - start);
        return out.size() >= min && !(i < s.size() && s[i] >= '0' && s[i] <= '9');
    };
    std::string a, b, year;
    const auto year_digits = static_cast<std::size_t>(sqlite3_value_int(argv[2]));
    char sep = 0;
    bool ok = number(1, 2, a) && i < s.size() && (s[i] == '/' || s[i] == '.' || s[i] == '-');
    if (ok) {
        sep = s[i++];
        ok = number(1, 2, b) && i < s.size() && s[i] == sep;
    }
    if (ok) {
        ++i;
        ok = number(year_digits, year_digits, year) &&
             (i == s.size() || s[i] == ' ' || s[i] == 'T' || s[i] == 't');
    }
    if (!ok) {
        result_server_error(ctx, 241, "从字符串转换日期和/或时间时，转换失败。");
        return;
    }
    if (year.size() == 2) year = (std::stoi(year) < 50 ? "20" : "19") + year;
    const bool month_first = value_text(argv[1]) == "mdy";
    std::string out = year + "-" + (month_first ? a : b) + "-" + (month_first ? b : a);
    out.append(s.substr(i));
    result_text(ctx, out);
}

}  // namespace

std::span<const FunctionDef> convert_functions() {
    static constexpr FunctionDef kConvertFunctions[] = {
        {names::kNumberText, 5, fn_numtext},
        {names::kTextNumber, 4, fn_textnum},
        {names::kYearFirst, 3, fn_ymd},
    };
    return kConvertFunctions;
}

}  // namespace billdata::drivers::sqlite::runtime
