// The number functions of the T-SQL runtime: conversions to int, bit, float and decimal,
// ROUND, FLOOR, CEILING, the checked divisor, %, and `+` decided by value.

#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "billdata/dialect/runtime_names.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/drivers/sqlite/tsql_runtime_internal.h"

namespace billdata::drivers::sqlite::runtime {

namespace {

namespace names = dialect::runtime;

constexpr const char* kDivideByZero = "遇到以零作除数错误。";
constexpr const char* kBadNumeric = "从数据类型 varchar 转换为 numeric 时出错。";

std::string bad_int_message(std::string_view text) {
    return "在将 varchar 值 '" + std::string(text) + "' 转换成数据类型 int 时失败。";
}

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

// The whole number if it is in the range of the type named by the second argument; the server's
// overflow otherwise. A sum beyond 64 bits has become a float already: an overflow too.
void fn_range(sqlite3_context* ctx, int, sqlite3_value** argv) {
    const int type = sqlite3_value_type(argv[0]);
    if (type == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const std::string_view name = value_text(argv[1]);
    long long min = INT64_MIN, max = INT64_MAX;
    if (name == "int") {
        min = -2147483648LL;
        max = 2147483647LL;
    } else if (name == "smallint") {
        min = -32768;
        max = 32767;
    } else if (name == "tinyint") {
        min = 0;
        max = 255;
    }
    // A value the engine computed as a float (past 64 bits, or from a function that gives
    // floats) is checked by its size alone.
    const bool out = type == SQLITE_INTEGER
                         ? sqlite3_value_int64(argv[0]) < min || sqlite3_value_int64(argv[0]) > max
                     : type == SQLITE_FLOAT
                         ? sqlite3_value_double(argv[0]) < static_cast<double>(min) ||
                               sqlite3_value_double(argv[0]) > static_cast<double>(max)
                         : false;
    if (out) {
        result_server_error(
            ctx, 8115,
            "将 expression 转换为数据类型 " + std::string(name) + " 时出现算术溢出错误。");
        return;
    }
    sqlite3_result_value(ctx, argv[0]);
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
                result_server_error(ctx, 245, bad_int_message(t));
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
    if (!is_number(argv[0]) && !parse_double(value_text(argv[0]), d)) {
        result_server_error(ctx, 8114, kBadFloat);
        return;
    }
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
                result_server_error(ctx, 8134, kDivideByZero);
                return;
            }
            sqlite3_result_value(ctx, v);
            return;
        default: {
            double d = 0;
            if (!number_of(ctx, v, d, kBadFloat)) return;
            if (d == 0.0) {
                result_server_error(ctx, 8134, kDivideByZero);
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
            result_server_error(ctx, 8134, kDivideByZero);
            return;
        }
        sqlite3_result_int64(ctx, b == -1 ? 0 : sqlite3_value_int64(argv[0]) % b);
        return;
    }
    double a = 0, b = 0;
    if (!number_of(ctx, argv[0], a, kBadFloat) || !number_of(ctx, argv[1], b, kBadFloat)) return;
    if (b == 0.0) {
        result_server_error(ctx, 8134, kDivideByZero);
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

// POWER as a float; a power that is no real number (a negative base to a fraction) or too
// large is the server's floating point error.
void fn_power(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    double x = 0, y = 0;
    if (!number_of(ctx, argv[0], x, kBadFloat) || !number_of(ctx, argv[1], y, kBadFloat)) return;
    const double r = std::pow(x, y);
    if (!std::isfinite(r)) {
        sqlite3_result_error(ctx, "出现无效的浮点操作。", -1);
        return;
    }
    sqlite3_result_double(ctx, r);
}

// x in fixed notation with `places` decimals, rounded half away from zero on its shortest
// decimal form (the one the server engine's function reads too).
std::string fixed_text(double x, int places) {
    char buf[512];
    const auto res = std::to_chars(buf, buf + sizeof(buf), x, std::chars_format::fixed);
    std::string_view text(buf, static_cast<std::size_t>(res.ptr - buf));
    const bool negative = !text.empty() && text[0] == '-';
    if (negative) text.remove_prefix(1);
    const std::size_t dot = text.find('.');
    std::string digits(text.substr(0, dot));
    const std::size_t whole = digits.size();
    if (dot != std::string_view::npos) digits.append(text.substr(dot + 1));
    const std::size_t keep = whole + static_cast<std::size_t>(places);
    const bool up = keep < digits.size() && digits[keep] >= '5';
    digits.resize(keep, '0');
    std::size_t i = keep;
    for (; up && i > 0; --i) {
        if (digits[i - 1] != '9') {
            ++digits[i - 1];
            break;
        }
        digits[i - 1] = '0';
    }
    if (up && i == 0) digits.insert(digits.begin(), '1');
    const std::size_t point = digits.size() - static_cast<std::size_t>(places);
    std::string out;
    if (negative && digits.find_first_not_of('0') != std::string::npos) out.push_back('-');
    out.append(digits, 0, point);
    if (places > 0) {
        out.push_back('.');
        out.append(digits, point);
    }
    return out;
}

// STR(x, length, decimal): x right-justified in `length` characters with `decimal` places (at
// most 16), or with as many of them as fit; '*' filling the length when not even the rounded
// whole number fits. The server documents no result for a length below 1 or a negative decimal:
// refused.
void fn_str(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (any_null(argc, argv)) {
        sqlite3_result_null(ctx);
        return;
    }
    double x = 0;
    if (!number_of(ctx, argv[0], x, kBadFloat)) return;
    const long long length = sqlite3_value_int64(argv[1]);
    const long long places = sqlite3_value_int64(argv[2]);
    if (length < 1 || places < 0) {
        result_error(ctx, std::string(names::kStrArgumentsRefused));
        return;
    }
    for (int k = static_cast<int>(places > 16 ? 16 : places); k >= 0; --k) {
        const std::string text = fixed_text(x, k);
        if (static_cast<long long>(text.size()) <= length) {
            result_text(ctx,
                        std::string(static_cast<std::size_t>(length) - text.size(), ' ') + text);
            return;
        }
    }
    result_text(ctx, std::string(static_cast<std::size_t>(length), '*'));
}

constexpr FunctionDef kNumberFunctions[] = {
    {names::kInt, 1, fn_int},     {names::kBit, 1, fn_bit},         {names::kFloat, 1, fn_float},
    {names::kDecimal, 2, fn_dec}, {names::kRound, 2, fn_round},     {names::kRound, 3, fn_round},
    {names::kFloor, 1, fn_floor}, {names::kCeiling, 1, fn_ceiling}, {names::kNonZero, 1, fn_nz},
    {names::kMod, 2, fn_mod},     {names::kAdd, 2, fn_add},         {names::kPower, 2, fn_power},
    {names::kRange, 2, fn_range}, {names::kStr, 3, fn_str},
};

// bd_single: the value of the only row; a second row is the server's error 512.
struct SingleState {
    sqlite3_value* value;
    bool seen;
};

void single_step(sqlite3_context* ctx, int, sqlite3_value** argv) {
    auto* state = static_cast<SingleState*>(sqlite3_aggregate_context(ctx, sizeof(SingleState)));
    if (state == nullptr) {
        sqlite3_result_error_nomem(ctx);
        return;
    }
    if (state->seen) {
        result_server_error(ctx, 512,
                            "子查询返回的值不止一个。当子查询跟随在 =、!=、<、<=、>、>= "
                            "之后，或子查询用作表达式时，这种情况是不允许的。");
        return;
    }
    state->seen = true;
    state->value = sqlite3_value_dup(argv[0]);
}

void single_final(sqlite3_context* ctx) {
    auto* state = static_cast<SingleState*>(sqlite3_aggregate_context(ctx, 0));
    if (state == nullptr || !state->seen) {
        sqlite3_result_null(ctx);
        return;
    }
    if (state->value) sqlite3_result_value(ctx, state->value);
    sqlite3_value_free(state->value);
}

}  // namespace

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

std::string number_text(sqlite3_value* v) {
    if (sqlite3_value_type(v) == SQLITE_INTEGER) return std::to_string(sqlite3_value_int64(v));
    double d = sqlite3_value_double(v);
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof(buf), d);
    return std::string(buf, res.ptr);
}

std::span<const FunctionDef> number_functions() {
    return kNumberFunctions;
}

void result_server_error(sqlite3_context* ctx, int number, const std::string& message) {
    result_error(ctx, message);
    sqlite3_result_error_code(ctx, server_error_code(number));
}

int register_aggregates(sqlite3* db) {
    return sqlite3_create_function_v2(db, names::kSingle.data(), 1,
                                      SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                                      nullptr, nullptr, single_step, single_final, nullptr);
}

}  // namespace billdata::drivers::sqlite::runtime
