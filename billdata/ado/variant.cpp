#include "billdata/ado/variant.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

#include "billdata/ado/com_error.h"
#include "billdata/util/text.h"

namespace billdata::ado {

namespace {

using util::iequals;
using util::is_blank;
using util::trim;

// Shortest fixed-notation text of a finite, non-negative double that reads back exactly, into
// `out` (room for Variant::kDoubleTextRoom characters); its length.
std::size_t fixed_text(double v, char* out) {
    std::int64_t whole = 0;
    int k = 0;
    if (!Variant::few_decimals(v, whole, k)) {
        auto r = std::to_chars(out, out + Variant::kDoubleTextRoom, v, std::chars_format::fixed);
        return static_cast<std::size_t>(r.ptr - out);
    }
    char digits[24];
    auto r = std::to_chars(digits, digits + sizeof digits, whole);
    std::string_view d(digits, static_cast<std::size_t>(r.ptr - digits));
    if (k == 0) return d.copy(out, d.size());
    const auto decimals = static_cast<std::size_t>(k);
    char* w = out;
    if (d.size() <= decimals) {
        *w++ = '0';
        *w++ = '.';
        for (std::size_t i = d.size(); i < decimals; ++i)
            *w++ = '0';
        w += d.copy(w, d.size());
    } else {
        w += d.copy(w, d.size() - decimals);
        *w++ = '.';
        w += d.copy(w, decimals, d.size() - decimals);
    }
    return static_cast<std::size_t>(w - out);
}

std::string fixed_text(double v) {
    char buf[Variant::kDoubleTextRoom];
    return std::string(buf, fixed_text(v, buf));
}

// Rounds to an integral value half to even and checks the target range.
template <class Int>
Int to_integer(double v) {
    double r = Variant::round_half_even(v);
    if (std::isnan(r) || r < static_cast<double>(std::numeric_limits<Int>::min()) ||
        r > static_cast<double>(std::numeric_limits<Int>::max()))
        throw ComError::platform(err::kOverflow);
    return static_cast<Int>(r);
}

}  // namespace

Variant Variant::null() {
    Variant v;
    v.v_ = NullTag{};
    return v;
}

Variant::Variant(bool v) : v_(v) {}
Variant::Variant(std::int16_t v) : v_(v) {}
Variant::Variant(std::int32_t v) : v_(v) {}
Variant::Variant(std::int64_t v) {
    if (v >= std::numeric_limits<std::int32_t>::min() &&
        v <= std::numeric_limits<std::int32_t>::max())
        v_ = static_cast<std::int32_t>(v);
    else
        v_ = static_cast<double>(v);
}
Variant::Variant(double v) : v_(v) {}
Variant::Variant(const DateTime& v) : v_(v) {}
Variant::Variant(std::string v) : v_(std::move(v)) {}
Variant::Variant(std::string_view v) : v_(std::string(v)) {}
Variant::Variant(const char* v) : v_(std::string(v ? v : "")) {}

void Variant::assign_text(std::string_view text) {
    if (auto* held = std::get_if<std::string>(&v_))
        held->assign(text);
    else
        v_.emplace<std::string>(text);
}

bool Variant::is_numeric() const {
    switch (type()) {
        case VarType::Boolean:
        case VarType::Integer:
        case VarType::Long:
        case VarType::Double:
            return true;
        default:
            return false;
    }
}

std::string Variant::to_string() const {
    switch (type()) {
        case VarType::Empty:
        case VarType::Null:
            return {};
        case VarType::Boolean:
            return std::get<bool>(v_) ? "True" : "False";
        case VarType::Integer:
            return std::to_string(std::get<std::int16_t>(v_));
        case VarType::Long:
            return std::to_string(std::get<std::int32_t>(v_));
        case VarType::Double:
            return format_double(std::get<double>(v_));
        case VarType::Date:
            return std::get<DateTime>(v_).to_string();
        case VarType::String:
            return std::get<std::string>(v_);
    }
    return {};
}

double Variant::to_double_converted() const {
    switch (type()) {
        case VarType::Empty:
            return 0;
        case VarType::Null:
            throw ComError::platform(err::kInvalidNull);
        case VarType::Boolean:
            return std::get<bool>(v_) ? -1 : 0;
        case VarType::Integer:
            return std::get<std::int16_t>(v_);
        case VarType::Long:
            return std::get<std::int32_t>(v_);
        case VarType::Double:
            return std::get<double>(v_);
        case VarType::Date:
            return std::get<DateTime>(v_).to_serial();
        case VarType::String: {
            double d = 0;
            if (!parse_number(std::get<std::string>(v_), d))
                throw ComError::platform(err::kTypeMismatch);
            return d;
        }
    }
    return 0;
}

std::int16_t Variant::to_int16() const {
    if (type() == VarType::Integer) return std::get<std::int16_t>(v_);
    return to_integer<std::int16_t>(to_double());
}

std::int32_t Variant::to_int32_converted() const {
    return to_integer<std::int32_t>(to_double());
}

bool Variant::to_bool() const {
    switch (type()) {
        case VarType::Boolean:
            return std::get<bool>(v_);
        case VarType::String: {
            std::string_view s = trim(std::get<std::string>(v_));
            if (iequals(s, "true")) return true;
            if (iequals(s, "false")) return false;
            return to_double() != 0;
        }
        default:
            return to_double() != 0;
    }
}

DateTime Variant::to_date() const {
    switch (type()) {
        case VarType::Date:
            return std::get<DateTime>(v_);
        case VarType::Null:
            throw ComError::platform(err::kInvalidNull);
        case VarType::String: {
            auto d = DateTime::parse(std::get<std::string>(v_));
            if (!d) throw ComError::platform(err::kTypeMismatch);
            return *d;
        }
        default:
            return DateTime::from_serial(to_double());
    }
}

bool Variant::operator==(const Variant& o) const {
    return v_ == o.v_;
}

double Variant::round_half_even(double v, int digits) {
    if (!std::isfinite(v)) return v;
    if (digits < 0) digits = 0;
    // Round the decimal text the value reads as, not its binary expansion: 2.675 is written and
    // read as 2.675, so it rounds to 2.68 as a person expects.
    const bool negative = std::signbit(v);
    std::string text = fixed_text(std::fabs(v));
    std::size_t dot = text.find('.');
    if (dot == std::string::npos) return v;
    const std::size_t frac_len = text.size() - dot - 1;
    if (frac_len <= static_cast<std::size_t>(digits)) return v;

    std::string kept = text.substr(0, dot) + text.substr(dot + 1, static_cast<std::size_t>(digits));
    const char next = text[dot + 1 + static_cast<std::size_t>(digits)];
    bool rest_nonzero = false;
    for (std::size_t i = dot + 2 + static_cast<std::size_t>(digits); i < text.size(); ++i)
        if (text[i] != '0') rest_nonzero = true;
    const bool last_odd = ((kept.back() - '0') % 2) == 1;
    const bool up = next > '5' || (next == '5' && (rest_nonzero || last_odd));
    if (up) {
        std::size_t i = kept.size();
        while (i > 0) {
            --i;
            if (kept[i] == '9') {
                kept[i] = '0';
            } else {
                ++kept[i];
                break;
            }
            if (i == 0) kept.insert(kept.begin(), '1');
        }
    }
    const std::size_t int_len = kept.size() - static_cast<std::size_t>(digits);
    std::string out = kept.substr(0, int_len);
    if (digits > 0) {
        out += '.';
        out.append(kept, int_len, std::string::npos);
    }
    double r = 0;
    std::from_chars(out.data(), out.data() + out.size(), r);
    if (r == 0) return 0.0;  // never a negative zero
    return negative ? -r : r;
}

bool Variant::parse_number(std::string_view text, double& out) {
    std::string_view s = trim(text);
    bool negative = false;
    if (!s.empty() && (s.front() == '+' || s.front() == '-')) {
        negative = s.front() == '-';
        s.remove_prefix(1);
    }
    // Only plain decimal text: digits, one point, an optional exponent. from_chars alone would
    // also take "inf" and "nan".
    if (s.empty() || !(std::isdigit(static_cast<unsigned char>(s.front())) || s.front() == '.'))
        return false;
    double v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v, std::chars_format::general);
    if (r.ec == std::errc::result_out_of_range) return false;
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    out = negative ? -v : v;
    return true;
}

std::string Variant::format_double(double v) {
    char buf[kDoubleTextRoom];
    return std::string(buf, format_double(v, buf));
}

bool Variant::few_decimals(double v, std::int64_t& digits, int& decimals) {
    // Prices, amounts and rates have a few decimals: find them without the general search. For
    // v * 10^k below 2^50 at most one number of k decimals reads back as v, and the rounded
    // product is that number when there is one; the division, rounded as a reader rounds, tells
    // whether it reads back. The first k that works is the shortest text, the general search's.
    static constexpr double kScale[] = {1, 10, 100, 1000, 10000};
    for (int k = 0; k < 5; ++k) {
        const double scaled = v * kScale[k];
        if (!(scaled < 0x1p50)) return false;
        const double whole = std::nearbyint(scaled);
        if (whole / kScale[k] != v) continue;
        digits = static_cast<std::int64_t>(whole);
        decimals = k;
        return true;
    }
    return false;
}

std::size_t Variant::format_double(double v, char* out) {
    if (!std::isfinite(v)) throw ComError::platform(err::kOverflow);
    if (v == 0) {
        *out = '0';
        return 1;
    }
    if (std::fabs(v) < 1e15) {
        // Whole amounts and quantities are most of what a bill writes: their digits directly.
        const auto whole = static_cast<std::int64_t>(v);
        if (static_cast<double>(whole) == v)
            return static_cast<std::size_t>(std::to_chars(out, out + 24, whole).ptr - out);
        if (v > 0) return fixed_text(v, out);
        *out = '-';
        return 1 + fixed_text(-v, out + 1);
    }
    auto r = std::to_chars(out, out + kDoubleTextRoom, v);
    for (char* c = out; c != r.ptr; ++c)
        if (*c == 'e') *c = 'E';
    return static_cast<std::size_t>(r.ptr - out);
}

}  // namespace billdata::ado
