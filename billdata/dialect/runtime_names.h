#pragma once
// The names through which translated statements reach the embedded engine's runtime: the
// functions and collations that drivers::sqlite registers on every connection and that the
// SQLite emitter writes, and the date-part names those functions take. Both sides take them
// from here, so that they cannot drift apart. Every name is a string literal, so its data() is
// NUL-terminated for the engine's registration calls.

#include <string_view>

namespace billdata::dialect::runtime {

// Collations: texts as the server's default collation compares them (letters without regard
// to case, trailing blanks ignored); dates chronologically, whatever form either side is in.
inline constexpr std::string_view kTextCollation = "BDTEXT";
inline constexpr std::string_view kDateCollation = "BDDATE";

// Functions, with their arguments ([…] optional). Each gives the server's result for its
// T-SQL counterpart, errors included; NULL in gives NULL out.
inline constexpr std::string_view kDateTime = "bd_dt";          // (value): canonical datetime text
inline constexpr std::string_view kDate = "bd_date";            // (value): 'YYYY-MM-DD'
inline constexpr std::string_view kDatePart = "bd_datepart";    // (part, date)
inline constexpr std::string_view kDateAdd = "bd_dateadd";      // (part, amount, date)
inline constexpr std::string_view kDateDiff = "bd_datediff";    // (part, from, to)
inline constexpr std::string_view kDateText = "bd_date_text";   // (date, style, length[, pad])
inline constexpr std::string_view kVarchar = "bd_varchar";      // (value, length[, pad])
inline constexpr std::string_view kInt = "bd_int";              // (value)
inline constexpr std::string_view kBit = "bd_bit";              // (value)
inline constexpr std::string_view kFloat = "bd_float";          // (value)
inline constexpr std::string_view kDecimal = "bd_dec";          // (value, scale)
inline constexpr std::string_view kRound = "bd_round";          // (value, digits[, truncate])
inline constexpr std::string_view kFloor = "bd_floor";          // (value)
inline constexpr std::string_view kCeiling = "bd_ceiling";      // (value)
inline constexpr std::string_view kNonZero = "bd_nz";           // (divisor): refuses zero
inline constexpr std::string_view kMod = "bd_mod";              // (a, b)
inline constexpr std::string_view kAdd = "bd_add";              // (a, b): `+` decided by value
inline constexpr std::string_view kLeft = "bd_left";            // (text, n)
inline constexpr std::string_view kRight = "bd_right";          // (text, n)
inline constexpr std::string_view kSubstring = "bd_substring";  // (text, start, length)
inline constexpr std::string_view kCharIndex = "bd_charindex";  // (find, text[, start])
inline constexpr std::string_view kReplace = "bd_replace";      // (text, find, with)
inline constexpr std::string_view kLike = "bd_like";            // (value, pattern[, escape])
inline constexpr std::string_view kReplicate = "bd_replicate";  // (text, n): NULL when n < 0
inline constexpr std::string_view kReverse = "bd_reverse";      // (text)
inline constexpr std::string_view kStuff = "bd_stuff";          // (text, start, length, new)
inline constexpr std::string_view kPower = "bd_power";          // (x, y): a float
inline constexpr std::string_view kPatIndex = "bd_patindex";    // (pattern, text)
inline constexpr std::string_view kIsDate = "bd_isdate";        // (value): 1 or 0, never NULL
inline constexpr std::string_view kRange = "bd_range";          // (n, 'int'): n, or overflow
inline constexpr std::string_view kFit = "bd_fit";              // (text, n, table, column)
inline constexpr std::string_view kSingle = "bd_single";        // aggregate (value): the only row's
inline constexpr std::string_view kStr = "bd_str";              // (number, length, decimal): STR
// STR's length must be at least 1 and its decimal 0 or more: the server documents no result for
// others, which both engines refuse with this message.
inline constexpr std::string_view kStrArgumentsRefused =
    "STR with a length below 1 or a negative decimal is not supported: its result is not "
    "documented";
// Exact decimal arithmetic: (a, b, op, precision, scale, mode) with op 0 + 1 - 2 * 3 / 4 %, mode
// 1 exact at the scale, 2 rounded to it, 3 cut to it, plus 4 when the result is money.
inline constexpr std::string_view kDecimalOp = "bd_decop";
// A number written to a decimal or money column: rounded half away from zero to the column's
// scale and checked against its precision: (value, precision × 100 + scale, plus 10000 for money).
inline constexpr std::string_view kDecimalFit = "bd_dfit";
inline constexpr std::string_view kDecimalSum = "bd_dsum";  // aggregate (value, scale)
inline constexpr std::string_view kDecimalAvg =
    "bd_davg";  // aggregate (value, scale, result scale)

inline constexpr std::string_view kCollations[] = {kTextCollation, kDateCollation};

// The server engine's runtime (billdata/schema/postgresql/runtime.sql) has those of the functions
// above that its translation writes, with the same meaning, and two of its own.
inline constexpr std::string_view kDateFromDays = "bd_dt_days";  // (days since 1900-01-01)
inline constexpr std::string_view kNumber = "bd_num";  // (text): the decimal it holds ('' is 0)
// A decimal result checked against its type's precision: (value, precision, scale).
inline constexpr std::string_view kDecimalCheck = "bd_dchk";
// A quotient cut towards zero at the result's scale: (a, b, precision, scale).
inline constexpr std::string_view kDecimalDivide = "bd_ddiv";
// A number converted to a decimal or money type, rounded half away from zero and checked:
// (value, precision, scale, name of the type converted from, 'numeric', 'money' or 'smallmoney').
inline constexpr std::string_view kDecimalCast = "bd_dcast";
inline constexpr std::string_view kServerFunctions[] = {
    kDateTime,  kDateFromDays, kDatePart,     kDateAdd,       kDateDiff,    kDateText, kInt,
    kBit,       kFloat,        kNumber,       kRound,         kLeft,        kRight,    kSubstring,
    kCharIndex, kReplace,      kLike,         kReplicate,     kStuff,       kPatIndex, kIsDate,
    kRange,     kFit,          kDecimalCheck, kDecimalDivide, kDecimalCast, kStr};
inline constexpr std::string_view kFunctions[] = {
    kDateTime, kDate,      kDatePart,  kDateAdd, kDateDiff, kDateText,  kVarchar, kInt,   kBit,
    kFloat,    kDecimal,   kRound,     kFloor,   kCeiling,  kNonZero,   kMod,     kAdd,   kLeft,
    kRight,    kSubstring, kCharIndex, kReplace, kLike,     kReplicate, kReverse, kStuff, kPower,
    kPatIndex, kIsDate,    kRange,     kFit,     kSingle,   kStr};

// The conversions between numbers and texts by type, which both engines' runtimes have:
// (number, kind, digits, target, length): a number of a type the translator knows, as text;
inline constexpr std::string_view kNumberText = "bd_numtext";
// (text, kind, precision, scale): a text read as decimal, money or smallmoney.
inline constexpr std::string_view kTextNumber = "bd_textnum";
// (text, order, year digits): a date written month or day first ('mdy', 'dmy') as year first.
inline constexpr std::string_view kYearFirst = "bd_ymd";
inline constexpr std::string_view kConversionFunctions[] = {kNumberText, kTextNumber, kYearFirst};

// The date parts of kDatePart, kDateAdd and kDateDiff. kDays is kDateAdd's own: date ± n days,
// which keeps n's fraction as a time of day.
namespace part {
inline constexpr std::string_view kYear = "year";
inline constexpr std::string_view kQuarter = "quarter";
inline constexpr std::string_view kMonth = "month";
inline constexpr std::string_view kDayOfYear = "dayofyear";
inline constexpr std::string_view kDay = "day";
inline constexpr std::string_view kWeek = "week";
inline constexpr std::string_view kWeekday = "weekday";
inline constexpr std::string_view kHour = "hour";
inline constexpr std::string_view kMinute = "minute";
inline constexpr std::string_view kSecond = "second";
inline constexpr std::string_view kMillisecond = "millisecond";
inline constexpr std::string_view kDays = "days";
}  // namespace part

}  // namespace billdata::dialect::runtime
