// Exact decimal and money arithmetic on the embedded engine. The engine stores a decimal as the
// double nearest to it; a double tells every decimal of up to 15 significant digits apart (and
// its shortest form gives that decimal back), so equal decimals are equal doubles and compare
// as the decimals do. Each decimal result is brought back to the double nearest to the exact
// result at its type's scale: rounded, or cut where the server cuts (a quotient). A result that
// needs more than 15 significant digits has no such double and is refused with an error rather
// than answered approximately; one beyond its type's precision is the server's overflow (8115).

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "billdata/dialect/runtime_names.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/drivers/sqlite/tsql_runtime_internal.h"

namespace billdata::drivers::sqlite::runtime {

namespace {

namespace names = dialect::runtime;

// 128 bits count the units of any decimal of 38 digits.
__extension__ typedef __int128 Wide;

// Significant digits that every double tells apart.
constexpr int kExactDigits = 15;
// Below this many units of the last place a double's error in a product or sum of decimals is
// far from half a unit, so the nearest whole number of units is the exact result.
constexpr double kSafeUnits = 1e14;

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                             1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19,
                             1e20, 1e21, 1e22, 1e23, 1e24, 1e25, 1e26, 1e27, 1e28, 1e29,
                             1e30, 1e31, 1e32, 1e33, 1e34, 1e35, 1e36, 1e37, 1e38};
constexpr int kExactPow10 = 22;  // 10^n is a double exactly up to here

constexpr Wide wide_pow10(int n) {
    Wide r = 1;
    for (int i = 0; i < n; ++i)
        r *= 10;
    return r;
}
// The largest power of ten with room to spare in 128 bits.
constexpr int kWideDigits = 37;

Wide pow10w(int n) {
    static const auto table = [] {
        struct T {
            Wide v[kWideDigits + 1];
        } t{};
        for (int i = 0; i <= kWideDigits; ++i)
            t.v[i] = wide_pow10(i);
        return t;
    }();
    return table.v[n];
}

int digits_of(Wide m) {
    if (m < 0) m = -m;
    int n = 1;
    while (m >= 10) {
        m /= 10;
        ++n;
    }
    return n;
}

// A decimal m × 10^-scale.
struct Decimal {
    Wide m = 0;
    int scale = 0;
};

// The operators and how a result comes to its scale, as the translator writes them.
enum Op { kAdd = 0, kSub = 1, kMul = 2, kDiv = 3, kMod = 4 };
enum Mode { kExact = 1, kRound = 2, kTruncate = 3 };
constexpr int kModeMask = 3;
constexpr int kMoneyFlag = 4;  // the result is money (for the overflow's message)

// Why a result has no value.
enum class Fault { None, Overflow, TooManyDigits, DivideByZero };

// The decimal a double stands for: its shortest form, which gives back the decimal it was made
// from when that had 15 significant digits or fewer.
bool decimal_of(double x, Decimal& out) {
    if (!std::isfinite(x)) return false;
    char buf[64];
    const auto res = std::to_chars(buf, buf + sizeof(buf), x);
    if (res.ec != std::errc()) return false;
    Wide m = 0;
    int frac = 0;
    int exponent = 0;
    bool negative = false;
    bool point = false;
    for (const char* p = buf; p < res.ptr; ++p) {
        const char c = *p;
        if (c == '-') {
            negative = true;
        } else if (c == '.') {
            point = true;
        } else if (c == 'e' || c == 'E') {
            std::from_chars(*(p + 1) == '+' ? p + 2 : p + 1, res.ptr, exponent);
            break;
        } else {
            m = m * 10 + (c - '0');
            if (point) ++frac;
        }
    }
    out.m = negative ? -m : m;
    out.scale = frac - exponent;
    return true;
}

void strip_zeros(Decimal& d) {
    if (d.m == 0) {
        d.scale = 0;
        return;
    }
    while (d.m % 10 == 0) {
        d.m /= 10;
        --d.scale;
    }
}

// The decimal at `scale` places when it has more: rounded half away from zero or cut.
void to_scale(Decimal& d, int scale, bool truncate) {
    if (d.scale <= scale) return;
    const int drop = d.scale - scale;
    d.scale = scale;
    if (drop > kWideDigits) {
        d.m = 0;
        return;
    }
    const Wide unit = pow10w(drop);
    const Wide q = d.m / unit;
    const Wide r = d.m % unit;
    d.m = q;
    if (!truncate && (r < 0 ? -r : r) * 2 >= unit) d.m += d.m < 0 || r < 0 ? -1 : 1;
}

// Both at the larger of their scales; false when that needs more than 128 bits.
bool align(Decimal& a, Decimal& b) {
    auto raise = [](Decimal& d, int scale) {
        const int up = scale - d.scale;
        if (d.m != 0 && digits_of(d.m) + up > kWideDigits) return false;
        d.m *= pow10w(up);
        d.scale = scale;
        return true;
    };
    if (a.scale < b.scale) return raise(a, b.scale);
    if (b.scale < a.scale) return raise(b, a.scale);
    return true;
}

// a / b cut towards zero at `scale` places, by long division.
Fault divide(const Decimal& a, const Decimal& b, int scale, Decimal& out) {
    if (b.m == 0) return Fault::DivideByZero;
    const bool negative = (a.m < 0) != (b.m < 0);
    Wide n = a.m < 0 ? -a.m : a.m;
    Wide d = b.m < 0 ? -b.m : b.m;
    // a/b = (n/d) × 10^(b.scale - a.scale); its digits at `scale` places are those of
    // n × 10^k / d with k = scale - a.scale + b.scale.
    int k = scale - a.scale + b.scale;
    while (k < 0) {
        if (digits_of(d) >= kWideDigits) {
            out = Decimal{0, scale};
            return Fault::None;
        }
        d *= 10;
        ++k;
    }
    Wide q = n / d;
    Wide r = n % d;
    for (; k > 0; --k) {
        if (q != 0 && digits_of(q) >= kWideDigits) return Fault::TooManyDigits;
        r *= 10;
        q = q * 10 + r / d;
        r %= d;
    }
    out = Decimal{negative ? -q : q, scale};
    return Fault::None;
}

// Money counts ten-thousandths in 64 bits, smallmoney (money's precision is 19, smallmoney's 10)
// in 32: money runs from -922,337,203,685,477.5808 to 922,337,203,685,477.5807, smallmoney from
// -214,748.3648 to 214,748.3647. `units` are ten-thousandths.
template <class N>
bool outside_money(N units, int precision) {
    if (precision == 10) return units > N(2147483647) || units < -N(2147483647) - 1;
    return units > N(9223372036854775807LL) || units < -N(9223372036854775807LL) - 1;
}

// The exact result at the type's scale, checked against its precision (and money's range) and
// against what a double holds.
Fault finish(Decimal& d, int precision, int scale, bool truncate, bool money = false) {
    to_scale(d, scale, truncate);
    strip_zeros(d);
    if (d.m == 0) return Fault::None;
    const int digits = digits_of(d.m);
    if (digits - d.scale > precision - scale) return Fault::Overflow;
    // Within 15 whole digits and 4 places the units take 19 digits at most.
    if (money && outside_money(d.m * pow10w(scale - d.scale), precision)) return Fault::Overflow;
    if (digits > kExactDigits) return Fault::TooManyDigits;
    return Fault::None;
}

// The name of a scaled type in the overflow's message: money's precision is 19, smallmoney's 10.
const char* scaled_type_name(bool money, int precision) {
    return !money ? "numeric" : precision == 10 ? "smallmoney" : "money";
}

std::string overflow_message(std::string_view source, bool money, int precision) {
    std::string message = "将 ";
    message.append(source);
    message.append(" 转换为数据类型 ");
    message.append(scaled_type_name(money, precision));
    message.append(" 时出现算术溢出错误。");
    return message;
}

// The double nearest to an exact decimal of 15 significant digits at most.
double double_of(const Decimal& d) {
    if (d.m == 0) return 0.0;
    const double m = static_cast<double>(d.m);  // exact: 15 digits
    if (d.scale >= 0 && d.scale <= kExactPow10) return m / kPow10[d.scale];
    if (d.scale < 0 && -d.scale <= kExactPow10) return m * kPow10[-d.scale];
    std::string text = std::to_string(static_cast<long long>(d.m));
    text.push_back('e');
    text.append(std::to_string(-d.scale));
    double out = 0;
    std::from_chars(text.data(), text.data() + text.size(), out);
    return out;
}

std::string decimal_text(Decimal d) {
    const bool negative = d.m < 0;
    Wide m = negative ? -d.m : d.m;
    std::string digits;
    do {
        digits.push_back(static_cast<char>('0' + static_cast<int>(m % 10)));
        m /= 10;
    } while (m != 0);
    while (static_cast<int>(digits.size()) <= d.scale)
        digits.push_back('0');
    std::string out;
    if (negative) out.push_back('-');
    for (std::size_t i = digits.size(); i-- > 0;) {
        out.push_back(digits[i]);
        if (d.scale > 0 && i == static_cast<std::size_t>(d.scale)) out.push_back('.');
    }
    if (d.scale < 0) out.append(static_cast<std::size_t>(-d.scale), '0');
    return out;
}

void result_fault(sqlite3_context* ctx, Fault fault, const Decimal& d, int precision, int scale,
                  bool money) {
    std::string message;
    switch (fault) {
        case Fault::Overflow:
            result_server_error(ctx, 8115, overflow_message("expression", money, precision));
            return;
        case Fault::TooManyDigits:
            message = "the exact ";
            if (money) {
                message.append("money");
            } else {
                message.append("decimal(");
                message.append(std::to_string(precision));
                message.push_back(',');
                message.append(std::to_string(scale));
                message.push_back(')');
            }
            message.append(" result ");
            if (d.m != 0) {
                message.append(decimal_text(d));
                message.push_back(' ');
            }
            message.append(
                "has more than 15 significant digits, more than the embedded engine holds "
                "exactly");
            result_error(ctx, message);
            return;
        case Fault::DivideByZero:
            result_server_error(ctx, 8134, "遇到以零作除数错误。");
            return;
        case Fault::None:
            return;
    }
}

bool read_number(sqlite3_context* ctx, sqlite3_value* v, double& out) {
    if (is_number(v)) {
        out = sqlite3_value_double(v);
        return true;
    }
    if (!parse_double(value_text(v), out)) {
        result_error(ctx, "从数据类型 varchar 转换为 numeric 时出错。");
        return false;
    }
    return true;
}

// bd_decop(a, b, op, precision, scale, mode): a op b of two exact numbers at the result type
// decimal(precision, scale) (money with the money flag in mode).
void fn_decop(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL || sqlite3_value_type(argv[1]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    double a = 0, b = 0;
    if (!read_number(ctx, argv[0], a) || !read_number(ctx, argv[1], b)) return;
    const int op = sqlite3_value_int(argv[2]);
    const int precision = sqlite3_value_int(argv[3]);
    const int scale = sqlite3_value_int(argv[4]);
    const int flags = sqlite3_value_int(argv[5]);
    const int mode = flags & kModeMask;
    const bool money = (flags & kMoneyFlag) != 0;
    if (mode == kExact && scale <= kExactPow10 && op <= kMul) {
        // The double result is within a small fraction of a unit of the exact one, which is a
        // whole number of units: the nearest whole number is it.
        const double x = op == kAdd ? a + b : op == kSub ? a - b : a * b;
        const double size = op == kMul ? std::fabs(x) : std::fabs(a) + std::fabs(b);
        if (size * kPow10[scale] < kSafeUnits) {
            const double units = std::nearbyint(x * kPow10[scale]) + 0.0;  // no -0
            if (std::fabs(units) >= kPow10[precision] ||
                (money && outside_money(units, precision))) {
                result_fault(ctx, Fault::Overflow, {}, precision, scale, money);
                return;
            }
            sqlite3_result_double(ctx, units / kPow10[scale]);
            return;
        }
    }
    Decimal x, y, r;
    if (!decimal_of(a, x) || !decimal_of(b, y)) {
        result_fault(ctx, Fault::TooManyDigits, {}, precision, scale, money);
        return;
    }
    Fault fault = Fault::None;
    switch (op) {
        case kAdd:
        case kSub:
        case kMod:
            if (!align(x, y)) {
                fault = Fault::TooManyDigits;
            } else if (op == kMod) {
                if (y.m == 0) {
                    fault = Fault::DivideByZero;
                } else {
                    r = Decimal{x.m % y.m, x.scale};  // the sign of the dividend
                }
            } else {
                r = Decimal{op == kAdd ? x.m + y.m : x.m - y.m, x.scale};
            }
            break;
        case kMul:
            r = Decimal{x.m * y.m, x.scale + y.scale};  // 17 digits each at most
            break;
        default:
            fault = divide(x, y, scale, r);
            break;
    }
    if (fault == Fault::None) fault = finish(r, precision, scale, mode == kTruncate, money);
    if (fault != Fault::None) {
        result_fault(ctx, fault, r, precision, scale, money);
        return;
    }
    sqlite3_result_double(ctx, double_of(r));
}

bool whole_fits(long long n, int code) {
    if (!whole_fits_decimal(n, code)) return false;
    // A whole number of money's 15 digits may still be beyond its range (smallmoney's 6 are).
    return code < kMoneyTypeCode || n == 0 ||
           !outside_money(static_cast<Wide>(n) * 10000, code / 100 % 100);
}

// x rounded half away from zero to the scale of the column type `code`, checked against its
// precision.
Fault fit_number(double& x, int code, Decimal& d) {
    const int precision = code / 100 % 100;
    const int scale = code % 100;
    if (scale <= kExactPow10) {
        // Whole units of the last place already, as a double of 15 digits or fewer is exactly
        // when its product with the unit is a whole number (the product's error is far below
        // the smallest fraction such a decimal leaves); the double nearest to them is the value.
        const double units = x * kPow10[scale];
        if (std::fabs(units) < kSafeUnits && units == std::trunc(units)) {
            if (std::fabs(units) >= kPow10[precision] ||
                (code >= kMoneyTypeCode && outside_money(units, precision)))
                return Fault::Overflow;
            x = (units + 0.0) / kPow10[scale];
            return Fault::None;
        }
    }
    if (!decimal_of(x, d)) return Fault::TooManyDigits;
    const Fault fault = finish(d, precision, scale, false, code >= kMoneyTypeCode);
    if (fault == Fault::None) x = double_of(d);
    return fault;
}

// bd_dfit(x, type[, source]): a number written to a column of the decimal type coded as
// precision × 100 + scale, plus 10000 for money, or converted to that type, rounded half away
// from zero to its scale; beyond its precision (money's range) is the server's overflow, whose
// message names the type converted from (`source`, numeric for a column's value).
void fn_decfit(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    const int type = sqlite3_value_type(argv[0]);
    if (type == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const int code = sqlite3_value_int(argv[1]);
    const bool money = code >= kMoneyTypeCode;
    const auto overflow = [&] {
        const std::string_view source = argc > 2 ? value_text(argv[2]) : "numeric";
        result_server_error(ctx, 8115, overflow_message(source, money, code / 100 % 100));
    };
    if (type == SQLITE_INTEGER) {
        const long long n = sqlite3_value_int64(argv[0]);
        if (whole_fits(n, code)) {
            sqlite3_result_int64(ctx, n);
        } else {
            overflow();
        }
        return;
    }
    double x = 0;
    if (!read_number(ctx, argv[0], x)) return;
    Decimal d;
    const Fault fault = fit_number(x, code, d);
    if (fault == Fault::Overflow) {
        overflow();
    } else if (fault != Fault::None) {
        result_fault(ctx, fault, d, code / 100 % 100, code % 100, money);
    } else {
        sqlite3_result_double(ctx, x);
    }
}

// bd_dsum(x, scale) and bd_davg(x, scale, result scale): the exact sum of decimals of `scale`
// places, counted in whole units of the last place; the average is the sum divided by the
// count, cut at the result's scale as a quotient is. A sum beyond what 128 bits count is refused
// as too many digits (it has far more than a double holds).
struct SumState {
    unsigned char units[sizeof(Wide)];  // a Wide; the engine's memory is only 8-byte aligned
    long long count;
    bool failed;
};

SumState* sum_state(sqlite3_context* ctx, int bytes) {
    return static_cast<SumState*>(sqlite3_aggregate_context(ctx, bytes));
}

void sum_step(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) return;
    SumState* state = sum_state(ctx, sizeof(SumState));
    if (state == nullptr) {
        sqlite3_result_error_nomem(ctx);
        return;
    }
    if (state->failed) return;
    double x = 0;
    if (!read_number(ctx, argv[0], x)) {
        state->failed = true;
        return;
    }
    const int scale = sqlite3_value_int(argv[1]);
    Wide units = 0;
    const double scaled = scale <= kExactPow10 ? x * kPow10[scale] : HUGE_VAL;
    if (std::fabs(scaled) < kSafeUnits * 10) {
        units = static_cast<Wide>(static_cast<long long>(std::nearbyint(scaled)));
    } else {
        Decimal d;
        if (!decimal_of(x, d)) {
            state->failed = true;
            result_fault(ctx, Fault::TooManyDigits, {}, 38, scale, false);
            return;
        }
        to_scale(d, scale, false);
        if (d.m != 0 && digits_of(d.m) + (scale - d.scale) > kWideDigits - 2) {
            state->failed = true;
            result_fault(ctx, Fault::TooManyDigits, {}, 38, scale, false);
            return;
        }
        units = d.m * pow10w(scale - d.scale);
    }
    Wide total;
    std::memcpy(&total, state->units, sizeof(Wide));
    total += units;
    if (total > pow10w(kWideDigits) || total < -pow10w(kWideDigits)) {
        state->failed = true;
        result_fault(ctx, Fault::TooManyDigits, {}, 38, scale, false);
        return;
    }
    std::memcpy(state->units, &total, sizeof(Wide));
    ++state->count;
}

// An aggregate's final step cannot read arguments: the scales go in the state instead.
struct ScaledSum {
    SumState sum;
    int scale;
    int result_scale;
};

void scaled_step(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    auto* state = static_cast<ScaledSum*>(sqlite3_aggregate_context(ctx, sizeof(ScaledSum)));
    if (state == nullptr) {
        sqlite3_result_error_nomem(ctx);
        return;
    }
    state->scale = sqlite3_value_int(argv[1]);
    state->result_scale = argc > 2 ? sqlite3_value_int(argv[2]) : state->scale;
    sum_step(ctx, argc, argv);
}

void dsum_final(sqlite3_context* ctx) {
    auto* state = static_cast<ScaledSum*>(sqlite3_aggregate_context(ctx, 0));
    if (state == nullptr || state->sum.count == 0) {
        sqlite3_result_null(ctx);
        return;
    }
    if (state->sum.failed) return;
    Decimal d;
    std::memcpy(&d.m, state->sum.units, sizeof(Wide));
    d.scale = state->scale;
    const Fault fault = finish(d, 38, state->scale, false);
    if (fault != Fault::None) {
        result_fault(ctx, fault, d, 38, state->scale, false);
        return;
    }
    sqlite3_result_double(ctx, double_of(d));
}

void davg_final(sqlite3_context* ctx) {
    auto* state = static_cast<ScaledSum*>(sqlite3_aggregate_context(ctx, 0));
    if (state == nullptr || state->sum.count == 0) {
        sqlite3_result_null(ctx);
        return;
    }
    if (state->sum.failed) return;
    Decimal total;
    std::memcpy(&total.m, state->sum.units, sizeof(Wide));
    total.scale = state->scale;
    Decimal r;
    Fault fault = divide(total, Decimal{state->sum.count, 0}, state->result_scale, r);
    if (fault == Fault::None) fault = finish(r, 38, state->result_scale, true);
    if (fault != Fault::None) {
        result_fault(ctx, fault, r, 38, state->result_scale, false);
        return;
    }
    sqlite3_result_double(ctx, double_of(r));
}

constexpr FunctionDef kDecimalFunctions[] = {
    {names::kDecimalOp, 6, fn_decop},
    {names::kDecimalFit, 2, fn_decfit},
    {names::kDecimalFit, 3, fn_decfit},
};

}  // namespace

std::span<const FunctionDef> decimal_functions() {
    return kDecimalFunctions;
}

int register_decimal_aggregates(sqlite3* db) {
    constexpr int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    int rc = sqlite3_create_function_v2(db, names::kDecimalSum.data(), 2, flags, nullptr, nullptr,
                                        scaled_step, dsum_final, nullptr);
    if (rc != SQLITE_OK) return rc;
    return sqlite3_create_function_v2(db, names::kDecimalAvg.data(), 3, flags, nullptr, nullptr,
                                      scaled_step, davg_final, nullptr);
}

}  // namespace billdata::drivers::sqlite::runtime

namespace billdata::drivers::sqlite {

int fit_decimal_column(std::int64_t& n, int code, std::string& message) {
    if (runtime::whole_fits(n, code)) return 0;
    message = runtime::overflow_message("numeric", code >= kMoneyTypeCode, code / 100 % 100);
    return 8115;
}

int fit_decimal_column(double& x, int code, std::string& message) {
    runtime::Decimal d;
    switch (runtime::fit_number(x, code, d)) {
        case runtime::Fault::None:
            return 0;
        case runtime::Fault::Overflow:
            message =
                runtime::overflow_message("numeric", code >= kMoneyTypeCode, code / 100 % 100);
            return 8115;
        default:
            message = "the exact decimal value " + runtime::decimal_text(d) +
                      " has more than 15 significant digits, more than the embedded engine "
                      "holds exactly";
            return SQLITE_ERROR;
    }
}

}  // namespace billdata::drivers::sqlite
