#include "billdata/ado/variant.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <ctime>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"
#include "support/test_support.h"

namespace {

using billdata::ado::ComError;
using billdata::ado::DateTime;
using billdata::ado::Variant;
using billdata::ado::VarType;
namespace err = billdata::ado::err;

// The platform error number a call raises, or 0 when it raises nothing.
int error_of(const std::function<void()>& fn) {
    return billdata::testing::error_of(fn).number();
}

// A number goes into a statement as the shortest text that reads back as the same double: for
// amounts with a few decimals, for sums that picked up binary noise, and for the very large and
// very small, next to the general shortest fixed text.
TEST(Variant, NumberTextIsTheShortestThatReadsBack) {
    auto general = [](double v) {
        char buf[512];
        auto r = std::to_chars(buf, buf + sizeof buf, std::fabs(v), std::chars_format::fixed);
        return (v < 0 ? "-" : "") + std::string(buf, r.ptr);
    };
    std::mt19937_64 random(7);
    std::vector<double> values = {0.8,  45.5,       0.005,          1234.5678, 0.1 + 0.2,   2.675,
                                  1e-7, 1e14 + 0.5, 123456789.0001, 0.0001,    99999.99995, -0.3};
    for (int i = 0; i < 20000; ++i) {
        const double cents = static_cast<double>(random() % 100000000) / 100.0;
        const double mills = static_cast<double>(random() % 10000000) / 10000.0;
        values.push_back(cents);
        values.push_back(-mills);
        values.push_back(cents * 0.8);
        values.push_back(mills / 3);
    }
    for (double v : values) {
        if (v == std::trunc(v)) continue;  // whole numbers are written as integers
        const std::string text = Variant::format_double(v);
        ASSERT_EQ(text, general(v)) << "for " << v;
    }
}

TEST(Variant, IntegerConversionsRoundHalfToEven) {
    EXPECT_EQ(Variant(0.5).to_int32(), 0);
    EXPECT_EQ(Variant(1.5).to_int32(), 2);
    EXPECT_EQ(Variant(2.5).to_int32(), 2);
    EXPECT_EQ(Variant(-1.5).to_int32(), -2);
    EXPECT_EQ(Variant(-2.5).to_int16(), -2);
    EXPECT_EQ(Variant(2.5000001).to_int32(), 3);
    EXPECT_EQ(Variant("2.5").to_int32(), 2);
    EXPECT_EQ(Variant("1e3").to_int32(), 1000);
    EXPECT_EQ(Variant(true).to_int16(), -1);
    EXPECT_EQ(Variant().to_int32(), 0);

    // Digits after the point round the decimal value as written.
    EXPECT_DOUBLE_EQ(Variant::round_half_even(2.675, 2), 2.68);
    EXPECT_DOUBLE_EQ(Variant::round_half_even(2.665, 2), 2.66);
    EXPECT_DOUBLE_EQ(Variant::round_half_even(9.995, 2), 10.0);
    EXPECT_DOUBLE_EQ(Variant::round_half_even(-1.25, 1), -1.2);
}

TEST(Variant, IntegerConversionsOverflowAtTheEdges) {
    EXPECT_EQ(Variant(32767.49).to_int16(), 32767);
    EXPECT_EQ(error_of([] { Variant(32767.5).to_int16(); }), err::kOverflow);
    EXPECT_EQ(Variant(-32768.5).to_int16(), -32768);  // -32768 is even
    EXPECT_EQ(error_of([] { Variant(-32768.51).to_int16(); }), err::kOverflow);
    EXPECT_EQ(error_of([] { Variant(std::int32_t{32768}).to_int16(); }), err::kOverflow);

    EXPECT_EQ(error_of([] { Variant(2147483647.5).to_int32(); }), err::kOverflow);
    EXPECT_EQ(Variant(-2147483648.5).to_int32(), -2147483647 - 1);
    EXPECT_EQ(error_of([] { Variant(-2147483649.0).to_int32(); }), err::kOverflow);
    EXPECT_EQ(error_of([] { Variant(std::int64_t{3000000000}).to_int32(); }), err::kOverflow);

    EXPECT_EQ(billdata::testing::error_of([] { Variant(1e10).to_int16(); }).description(), "溢出");
}

TEST(Variant, TextThatIsNoNumberAndNullAreRefused) {
    for (const char* text : {"abc", "", "  ", "12abc", "1,5", "inf", "nan", "--1", "."}) {
        EXPECT_EQ(error_of([&] { Variant(text).to_double(); }), err::kTypeMismatch) << text;
        EXPECT_EQ(error_of([&] { Variant(text).to_int32(); }), err::kTypeMismatch) << text;
    }
    EXPECT_EQ(error_of([] { Variant::null().to_int32(); }), err::kInvalidNull);
    EXPECT_EQ(error_of([] { Variant::null().to_date(); }), err::kInvalidNull);
    EXPECT_EQ(Variant::null().to_string(), "");
    EXPECT_DOUBLE_EQ(Variant("-.5").to_double(), -0.5);
    EXPECT_DOUBLE_EQ(Variant(" +12.25e1 ").to_double(), 122.5);
}

TEST(Variant, NumbersBecomeInvariantText) {
    EXPECT_EQ(Variant(0.1).to_string(), "0.1");
    EXPECT_EQ(Variant(0.1 + 0.2).to_string(), "0.30000000000000004");
    EXPECT_EQ(Variant(1e14).to_string(), "100000000000000");
    EXPECT_EQ(Variant(0.0001).to_string(), "0.0001");
    EXPECT_EQ(Variant(-0.0).to_string(), "0");
    EXPECT_EQ(Variant(1e15).to_string(), "1E+15");
    EXPECT_EQ(Variant(true).to_string(), "True");
    EXPECT_EQ(Variant(false).to_string(), "False");
    EXPECT_EQ(Variant(DateTime(2025, 3, 9, 8, 5, 0)).to_string(), "2025-03-09 08:05:00");

    EXPECT_EQ(Variant(std::int64_t{5}).type(), VarType::Long);
    EXPECT_EQ(Variant(std::int64_t{5000000000}).type(), VarType::Double);
    EXPECT_EQ(Variant(std::int64_t{5000000000}).to_string(), "5000000000");
}

TEST(Variant, BooleansDatesAndEquality) {
    EXPECT_TRUE(Variant("true").to_bool());
    EXPECT_FALSE(Variant("0").to_bool());
    EXPECT_TRUE(Variant("-2").to_bool());
    EXPECT_EQ(error_of([] { Variant("yes").to_bool(); }), err::kTypeMismatch);
    EXPECT_DOUBLE_EQ(Variant(true).to_double(), -1);

    EXPECT_EQ(Variant("2025-03-09").to_date(), DateTime(2025, 3, 9));
    EXPECT_EQ(Variant(45725.5).to_date(), DateTime(2025, 3, 9, 12));
    EXPECT_DOUBLE_EQ(Variant(DateTime(2025, 3, 9, 12)).to_double(), 45725.5);
    EXPECT_EQ(error_of([] { Variant("9 March").to_date(); }), err::kTypeMismatch);

    EXPECT_FALSE(Variant::null() == Variant());
    EXPECT_FALSE(Variant(std::int32_t{1}) == Variant(1.0));  // strict: type and value

    // Refilled text takes the new value whatever the variant held before.
    Variant v(12.5);
    v.assign_text("a text longer than any small-string buffer");
    EXPECT_EQ(v, Variant("a text longer than any small-string buffer"));
    v = Variant::null();
    v.assign_text("");
    EXPECT_EQ(v.type(), VarType::String);
    EXPECT_EQ(v.to_string(), "");
}

TEST(DateTime, ParsesTheFormsServersAndFrontEndsWrite) {
    const DateTime day(2025, 3, 9), at(2025, 3, 9, 14, 5, 6);
    EXPECT_EQ(DateTime::parse("2025-03-09"), day);
    EXPECT_EQ(DateTime::parse("20250309"), day);
    EXPECT_EQ(DateTime::parse("2025/03/09"), day);
    EXPECT_EQ(DateTime::parse("2025-03-09 14:05:06"), at);
    EXPECT_EQ(DateTime::parse("2025/03/09 14:05:06.123"), at);
    EXPECT_EQ(DateTime::parse("20250309 14:05:06"), at);
    for (const char* bad : {"", "hello", "2025-02-29", "2025-13-01", "2025-00-10", "2025-03-32",
                            "2025-03-09 24:00:00", "2025-03-09 10:60", "2025-03-09x", "2025-03/09",
                            "202503091", "2025-03-09 10"})
        EXPECT_FALSE(DateTime::parse(bad).has_value()) << bad;
}

TEST(DateTime, FormatsSerialsAndCalendarArithmetic) {
    EXPECT_EQ(DateTime(2025, 3, 9, 0, 0, 1).to_string(), "2025-03-09 00:00:01");
    EXPECT_EQ(DateTime(2025, 3, 9, 7, 8, 9).time_string(), "07:08:09");
    EXPECT_EQ(DateTime().to_string(), "1899-12-30");

    EXPECT_DOUBLE_EQ(DateTime(2025, 3, 9, 18).to_serial(), 45725.75);
    EXPECT_EQ(DateTime::from_serial(45725.25), DateTime(2025, 3, 9, 6));
    // Before the date zero the fraction still counts forward from midnight.
    EXPECT_EQ(DateTime::from_serial(-1.25), DateTime(1899, 12, 29, 6));
    EXPECT_DOUBLE_EQ(DateTime(1899, 12, 29, 6).to_serial(), -1.25);
    EXPECT_EQ(DateTime::from_serial(45725.9999999), DateTime(2025, 3, 10));

    EXPECT_EQ(DateTime(2024, 2, 28).add_days(1), DateTime(2024, 2, 29));
    EXPECT_EQ(DateTime(2025, 12, 31, 23).add_days(1), DateTime(2026, 1, 1, 23));
    EXPECT_EQ(DateTime(2025, 12, 31, 23).add_seconds(3600), DateTime(2026, 1, 1));
    EXPECT_EQ(DateTime(2025, 1, 1).add_seconds(-1), DateTime(2024, 12, 31, 23, 59, 59));
    EXPECT_EQ(DateTime(2025, 2, 30), DateTime(2025, 3, 2));  // parts roll over

    EXPECT_EQ(DateTime(2025, 3, 9).day_of_week(), 1);  // a Sunday
    EXPECT_EQ(DateTime().day_of_week(), 7);
    EXPECT_TRUE(DateTime(2025, 3, 9) < DateTime(2025, 3, 9, 0, 0, 1));
}

TEST(DateTime, NowIsLocalTime) {
    std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    DateTime expected(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                      tm.tm_sec);
    DateTime now = DateTime::now();
    EXPECT_LE(std::abs(now.to_serial() - expected.to_serial()) * 86400, 5.0);
    EXPECT_FALSE(DateTime::today().has_time());
}

}  // namespace
