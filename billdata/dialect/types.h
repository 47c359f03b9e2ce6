#pragma once
// The server dialect's own data types, as its expressions carry them: the base type with its
// length, precision and scale, the precedence that decides implicit conversions, and the result
// types of arithmetic, CASE, ISNULL, COALESCE and comparisons. Pure functions on small values,
// cheap enough to compute for every expression of every statement.
//
// A type may be only partly known: `Number` is a number whose exact type the catalogue does not
// tell (a REAL column without a declared type), `Unknown` anything at all. Rules that need the
// exact type (overflow of int arithmetic, a decimal's scale) hold only where the type is exact.

#include <cstdint>
#include <string>
#include <string_view>

namespace billdata::dialect {

enum class ColumnType;  // catalog.h

enum class SqlBase : std::uint8_t {
    Unknown,  // nothing known (a NULL literal, a column the catalogue does not type)
    Bit,
    TinyInt,
    SmallInt,
    Int,
    BigInt,
    SmallMoney,
    Money,
    Decimal,  // decimal and numeric alike
    Number,   // some number whose exact type is not known
    Real,
    Float,
    Char,
    VarChar,
    NChar,
    NVarChar,
    Date,
    SmallDateTime,
    DateTime,
};

struct SqlType {
    static constexpr std::int32_t kMax = -1;  // length of (n)varchar(max)
    SqlBase base = SqlBase::Unknown;
    std::uint8_t precision = 0;  // decimal only
    std::uint8_t scale = 0;      // decimal only (money's is 4 by definition)
    std::int32_t length = 0;     // texts: characters, kMax, or 0 when not known

    static SqlType of(SqlBase b) { return SqlType{b, 0, 0, 0}; }
    static SqlType decimal(int precision, int scale) {
        return SqlType{SqlBase::Decimal, static_cast<std::uint8_t>(precision),
                       static_cast<std::uint8_t>(scale), 0};
    }
    static SqlType text(SqlBase b, std::int32_t length) { return SqlType{b, 0, 0, length}; }

    bool known() const { return base != SqlBase::Unknown; }
    bool is_integer() const { return base >= SqlBase::Bit && base <= SqlBase::BigInt; }
    bool is_numeric() const { return base >= SqlBase::Bit && base <= SqlBase::Float; }
    // A number whose every value the type holds exactly (integers, decimal, money).
    bool is_exact_numeric() const {
        return is_numeric() && base != SqlBase::Number && base != SqlBase::Real &&
               base != SqlBase::Float;
    }
    bool is_text() const { return base >= SqlBase::Char && base <= SqlBase::NVarChar; }
    bool is_date() const { return base >= SqlBase::Date; }
    bool operator==(const SqlType&) const = default;
};

// The type as the server names it: "int", "decimal(18,4)", "varchar(10)", "nvarchar(max)".
std::string type_name(const SqlType& t);
// A type from its name and the length, precision and scale of a declaration (a column of the
// schema script). Names are matched without regard to case; "numeric" is decimal, "integer" int.
// Unknown for a name it does not know. Length -1 is max.
SqlType type_from_declaration(std::string_view name, int length, int precision, int scale);
// What a column typed only by the engines' needs is known to be: an integer column is int, a date
// column datetime, a text column a varchar of unknown length; a real column is some number (the
// schema script makes amounts decimal(18,4), so float would claim an exactness it has not).
SqlType type_from_column(ColumnType type);
// The engines' coarse type of a server type.
ColumnType column_type_of(const SqlType& t);

// Data-type precedence: the higher one is what the lower converts to when the two meet.
int precedence(SqlBase base);
// The higher of the two by precedence; Unknown gives way to anything.
SqlType higher(const SqlType& a, const SqlType& b);

// The type of a literal token as written: 12 int, 3000000000 decimal(10,0), 1.50 decimal(3,2),
// 1e2 float, 'x' varchar(1), N'x' nvarchar(1). Unknown for NULL or anything else.
SqlType literal_type(std::string_view token);

enum class ArithOp : std::uint8_t { Add, Sub, Mul, Div, Mod };
// The precision and scale of an exact number as a decimal operand sees it: int is
// decimal(10,0), money decimal(19,4) and so on. False for other types.
bool decimal_digits(const SqlType& t, int& precision, int& scale);
// Whether a type holds decimals with a scale of their own (decimal, money, smallmoney).
inline bool is_scaled(const SqlType& t) {
    return t.base == SqlBase::Decimal || t.base == SqlBase::Money || t.base == SqlBase::SmallMoney;
}
// How the exact result of `a op b` comes to its result type's scale: it already has it
// (Exact), it has more places than the type keeps and is rounded half away from zero (Round:
// a product or sum whose type reached 38 digits, money times money), or it is cut towards zero
// (Truncate: a quotient, which never ends in general). None when the result is no scaled type.
enum class DecimalRounding : std::uint8_t { None, Exact, Round, Truncate };
DecimalRounding decimal_rounding(ArithOp op, const SqlType& a, const SqlType& b,
                                 const SqlType& result);
// The type an integer literal of `digits` digits has where it meets a decimal: the server
// takes it as decimal(digits,0), not as int's decimal(10,0), so that 1.0/3 is 0.333333.
inline SqlType integer_literal_as_decimal(int digits) {
    return SqlType::decimal(digits < 1 ? 1 : digits > 38 ? 38 : digits, 0);
}
// The result of `a op b` on two numbers: the higher type; two decimals by the precision and
// scale rules (capped at 38 digits). An integer meeting a decimal counts as decimal(10,0) (int),
// decimal(19,0) (bigint) and so on; money as decimal(19,4). Number when either is only known to
// be a number, Unknown when either is not a number.
SqlType arithmetic_type(ArithOp op, const SqlType& a, const SqlType& b);
// The result of CASE's branches and COALESCE's arguments: the highest by precedence; decimals
// widened to hold every branch, texts as long as the longest.
SqlType common_type(const SqlType& a, const SqlType& b);
// ISNULL(a, b) takes a's type (b's when a's is unknown).
SqlType isnull_type(const SqlType& a, const SqlType& b);
// The type both sides of a comparison are compared as: the higher one.
inline SqlType comparison_type(const SqlType& a, const SqlType& b) {
    return higher(a, b);
}

// How CONVERT writes a number of type `t` as text under `style` (-1 when none): the runtime's
// name of the number's kind ("int", "decimal", "money", "smallmoney", "float", "real") and the
// digits that go with it (a decimal's scale; the style of money, float and real). No kind when
// `t` is not exactly known to be a number; `supported` is false for a style whose result the
// server does not document for the type.
struct NumberTextForm {
    const char* kind = nullptr;
    int digits = 0;
    bool supported = true;
};
NumberTextForm number_text_form(const SqlType& t, int style);
// The name of a text type as the runtime takes it: "char", "varchar", "nchar" or "nvarchar"
// ("varchar" for anything else).
const char* text_type_name(const SqlType& t);
// The order of a date text that CONVERT reads under `style` when it is not year first: "mdy" or
// "dmy", with the year's digits (2 or 4); null for the other styles.
const char* day_first_order(int style, int& year_digits);
// The most characters a whole number of type `t` takes as text (20 for anything else).
int widest_text(const SqlType& t);

// Whether every value of type `from` converts to the decimal or money type `to`, rounded half
// away from zero to its scale, without overflowing it (so that the conversion needs no check).
bool fits_scaled(const SqlType& from, const SqlType& to);
// A number's type as the server's overflow message names what it converts: "int", "numeric",
// "money", "float"; "expression" when the type is not exactly known.
std::string overflow_source_name(const SqlType& t);

// The range of a whole-number type, for overflow checks; false for other types.
bool integer_range(SqlBase base, std::int64_t& min, std::int64_t& max);

}  // namespace billdata::dialect
