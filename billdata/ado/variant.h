#pragma once
// The platform's variant value and its conversion rules.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "billdata/ado/datetime.h"

namespace billdata::ado {

enum class VarType { Empty, Null, Boolean, Integer, Long, Double, Date, String };

// A value as the front end and the data layer exchange it: Empty, Null, Boolean, 16-bit integer,
// 32-bit integer, Double, Date or String (UTF-8). Conversions follow the platform:
//   - to text: numbers in invariant form (doubles shortest round-trip, no exponent below 1e15),
//     Boolean "True"/"False", Date as DateTime::to_string(), Empty and Null as "";
//   - to 16/32-bit integers: doubles and numeric text round half to even; out of range raises
//     ComError 6 ("溢出"); text that is no number raises 13 ("类型不匹配"); Null raises 94;
//     Empty is 0; True is -1;
//   - to double: numeric text (blanks around allowed, exponent allowed), Boolean -1/0;
//   - to Boolean: numbers non-zero, text "True"/"False" (any case) or numeric text;
//   - to Date: a date text that DateTime::parse reads, or a serial number.
// Value type; thread-safe to copy.
class Variant {
  public:
    Variant() = default;  // Empty
    static Variant null();
    Variant(bool v);
    Variant(std::int16_t v);
    Variant(std::int32_t v);
    Variant(std::int64_t v);  // stored as Long when it fits, else Double
    Variant(double v);
    Variant(const DateTime& v);
    Variant(std::string v);
    Variant(std::string_view v);
    Variant(const char* v);

    // Makes this a String of `text`, reusing the room of the String it already holds: a cursor
    // refills the same row's values for every row it reads.
    void assign_text(std::string_view text);

    VarType type() const { return static_cast<VarType>(v_.index()); }
    bool is_empty() const { return type() == VarType::Empty; }
    bool is_null() const { return type() == VarType::Null; }
    bool is_numeric() const;  // Boolean, Integer, Long, Double

    std::string to_string() const;  // CStr (Null gives "")
    std::int16_t to_int16() const;  // CInt
    std::int32_t to_int32() const;  // CLng
    double to_double() const;       // CDbl
    bool to_bool() const;           // CBool
    DateTime to_date() const;       // CDate

    // Strict equality of type and value (Empty == Empty, Null == Null).
    bool operator==(const Variant& o) const;

    // Rounds half to even as the platform's integer conversions and Round do.
    static double round_half_even(double v, int digits = 0);
    // Parses numeric text as the platform does; false when it is no number.
    static bool parse_number(std::string_view text, double& out);
    // Invariant shortest text of a double that reads back exactly ("0.1", "12", "-3.5"). An
    // infinity or NaN has no such text, and would only break a statement it went into: it is
    // the platform's overflow, ComError 6. The text conversion of a Double goes through here.
    static std::string format_double(double v);
    // The same text into `out`, which has room for kDoubleTextRoom characters; its length.
    static std::size_t format_double(double v, char* out);
    static constexpr std::size_t kDoubleTextRoom = 512;
    // A finite, non-negative double that format_double writes with at most four decimals, and
    // below 2^50 with them: its digits without the point, and how many decimals.
    static bool few_decimals(double magnitude, std::int64_t& digits, int& decimals);

  private:
    // The conversions of every other type.
    std::int32_t to_int32_converted() const;
    double to_double_converted() const;

    struct NullTag {
        bool operator==(const NullTag&) const = default;
    };
    std::variant<std::monostate, NullTag, bool, std::int16_t, std::int32_t, double, DateTime,
                 std::string>
        v_;
};

// A caller's amounts are mostly Doubles and its ids Longs: those convert here, in line.
inline std::int32_t Variant::to_int32() const {
    if (const auto* l = std::get_if<std::int32_t>(&v_)) return *l;
    return to_int32_converted();
}

inline double Variant::to_double() const {
    if (const auto* d = std::get_if<double>(&v_)) return *d;
    return to_double_converted();
}

// Text as the statements write a value: the same as Variant::to_string().
inline std::string str(const Variant& v) {
    return v.to_string();
}

}  // namespace billdata::ado
