#include "billdata/dialect/types.h"

#include <algorithm>

#include "billdata/dialect/catalog.h"
#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

constexpr int kMaxPrecision = 38;

}  // namespace

bool decimal_digits(const SqlType& t, int& p, int& s) {
    s = 0;
    switch (t.base) {
        case SqlBase::Bit:
            p = 1;
            return true;
        case SqlBase::TinyInt:
            p = 3;
            return true;
        case SqlBase::SmallInt:
            p = 5;
            return true;
        case SqlBase::Int:
            p = 10;
            return true;
        case SqlBase::BigInt:
            p = 19;
            return true;
        case SqlBase::SmallMoney:
            p = 10;
            s = 4;
            return true;
        case SqlBase::Money:
            p = 19;
            s = 4;
            return true;
        case SqlBase::Decimal:
            p = t.precision;
            s = t.scale;
            return true;
        default:
            return false;
    }
}

namespace {

bool as_decimal(const SqlType& t, int& p, int& s) {
    return decimal_digits(t, p, s);
}

SqlType capped(int p, int s, int integral) {
    if (p > kMaxPrecision) {
        s = std::max(0, std::min(s, kMaxPrecision - integral));
        p = kMaxPrecision;
    }
    return SqlType::decimal(p, s);
}

// Multiplication and division keep at least 6 decimal places (fewer only when they had fewer)
// when the integral part needs more than 32 digits.
SqlType capped_keeping_scale(int p, int s) {
    if (p > kMaxPrecision) {
        s = std::min(s, std::max(kMaxPrecision - (p - s), std::min(s, 6)));
        p = kMaxPrecision;
    }
    return SqlType::decimal(p, s);
}

std::int32_t longer(std::int32_t a, std::int32_t b) {
    if (a == SqlType::kMax || b == SqlType::kMax) return SqlType::kMax;
    if (a == 0 || b == 0) return 0;
    return std::max(a, b);
}

}  // namespace

std::string type_name(const SqlType& t) {
    auto sized = [&](const char* name) {
        if (t.length == 0) return std::string(name);
        return std::string(name) + "(" +
               (t.length == SqlType::kMax ? std::string("max") : std::to_string(t.length)) + ")";
    };
    switch (t.base) {
        case SqlBase::Unknown:
            return "unknown";
        case SqlBase::Bit:
            return "bit";
        case SqlBase::TinyInt:
            return "tinyint";
        case SqlBase::SmallInt:
            return "smallint";
        case SqlBase::Int:
            return "int";
        case SqlBase::BigInt:
            return "bigint";
        case SqlBase::SmallMoney:
            return "smallmoney";
        case SqlBase::Money:
            return "money";
        case SqlBase::Decimal:
            return "decimal(" + std::to_string(t.precision) + "," + std::to_string(t.scale) + ")";
        case SqlBase::Number:
            return "numeric";
        case SqlBase::Real:
            return "real";
        case SqlBase::Float:
            return "float";
        case SqlBase::Char:
            return sized("char");
        case SqlBase::VarChar:
            return sized("varchar");
        case SqlBase::NChar:
            return sized("nchar");
        case SqlBase::NVarChar:
            return sized("nvarchar");
        case SqlBase::Date:
            return "date";
        case SqlBase::SmallDateTime:
            return "smalldatetime";
        case SqlBase::DateTime:
            return "datetime";
    }
    return "unknown";
}

SqlType type_from_declaration(std::string_view name, int length, int precision, int scale) {
    struct Named {
        std::string_view name;
        SqlBase base;
    };
    static constexpr Named kNames[] = {
        {"bit", SqlBase::Bit},
        {"tinyint", SqlBase::TinyInt},
        {"smallint", SqlBase::SmallInt},
        {"int", SqlBase::Int},
        {"integer", SqlBase::Int},
        {"bigint", SqlBase::BigInt},
        {"smallmoney", SqlBase::SmallMoney},
        {"money", SqlBase::Money},
        {"decimal", SqlBase::Decimal},
        {"dec", SqlBase::Decimal},
        {"numeric", SqlBase::Decimal},
        {"real", SqlBase::Real},
        {"float", SqlBase::Float},
        {"char", SqlBase::Char},
        {"character", SqlBase::Char},
        {"varchar", SqlBase::VarChar},
        {"nchar", SqlBase::NChar},
        {"nvarchar", SqlBase::NVarChar},
        {"date", SqlBase::Date},
        {"smalldatetime", SqlBase::SmallDateTime},
        {"datetime", SqlBase::DateTime},
    };
    for (const auto& n : kNames) {
        if (!iequals(n.name, name)) continue;
        if (n.base == SqlBase::Decimal) {
            // decimal alone is decimal(18,0).
            const int p = precision > 0 ? std::min(precision, kMaxPrecision) : 18;
            return SqlType::decimal(p, std::clamp(scale, 0, p));
        }
        if (n.base == SqlBase::Float && precision > 0 && precision <= 24) {
            return SqlType::of(SqlBase::Real);  // float(1..24) is real
        }
        if (n.base >= SqlBase::Char && n.base <= SqlBase::NVarChar) {
            // char and varchar without a length hold one character.
            return SqlType::text(n.base, length < 0 ? SqlType::kMax : length == 0 ? 1 : length);
        }
        return SqlType::of(n.base);
    }
    return {};
}

SqlType type_from_column(ColumnType type) {
    switch (type) {
        case ColumnType::Integer:
            return SqlType::of(SqlBase::Int);
        case ColumnType::Real:
            return SqlType::of(SqlBase::Number);
        case ColumnType::Text:
            return SqlType::text(SqlBase::VarChar, 0);
        case ColumnType::Date:
            return SqlType::of(SqlBase::DateTime);
        case ColumnType::Unknown:
            break;
    }
    return {};
}

ColumnType column_type_of(const SqlType& t) {
    if (t.is_integer()) return ColumnType::Integer;
    if (t.is_numeric()) return ColumnType::Real;
    if (t.is_text()) return ColumnType::Text;
    if (t.is_date()) return ColumnType::Date;
    return ColumnType::Unknown;
}

int precedence(SqlBase base) {
    switch (base) {
        case SqlBase::Unknown:
            return 0;
        case SqlBase::Char:
            return 1;
        case SqlBase::VarChar:
            return 2;
        case SqlBase::NChar:
            return 3;
        case SqlBase::NVarChar:
            return 4;
        case SqlBase::Bit:
            return 5;
        case SqlBase::TinyInt:
            return 6;
        case SqlBase::SmallInt:
            return 7;
        case SqlBase::Int:
            return 8;
        case SqlBase::BigInt:
            return 9;
        case SqlBase::SmallMoney:
            return 10;
        case SqlBase::Money:
            return 11;
        case SqlBase::Decimal:
            return 12;
        case SqlBase::Number:  // not known to be more exact than decimal, nor to be a float
            return 13;
        case SqlBase::Real:
            return 14;
        case SqlBase::Float:
            return 15;
        case SqlBase::Date:
            return 16;
        case SqlBase::SmallDateTime:
            return 17;
        case SqlBase::DateTime:
            return 18;
    }
    return 0;
}

SqlType higher(const SqlType& a, const SqlType& b) {
    return precedence(a.base) >= precedence(b.base) ? a : b;
}

SqlType literal_type(std::string_view token) {
    if (token.empty()) return {};
    if (token.front() == '\'' ||
        ((token.front() == 'N' || token.front() == 'n') && token.size() > 1 && token[1] == '\'')) {
        const bool national = token.front() != '\'';
        std::string_view body = token.substr(national ? 2 : 1);
        if (!body.empty()) body.remove_suffix(1);
        // Characters, a doubled quote counting once (UTF-8 continuation bytes not at all).
        std::int32_t n = 0;
        for (std::size_t i = 0; i < body.size(); ++i) {
            const auto c = static_cast<unsigned char>(body[i]);
            if ((c & 0xC0) == 0x80) continue;
            if (c == '\'' && i + 1 < body.size() && body[i + 1] == '\'') ++i;
            ++n;
        }
        return SqlType::text(national ? SqlBase::NVarChar : SqlBase::VarChar, std::max(n, 1));
    }
    if (token.find_first_of("eE") != std::string_view::npos) return SqlType::of(SqlBase::Float);
    const std::size_t dot = token.find('.');
    if (token.find_first_not_of("0123456789.") != std::string_view::npos) return {};
    if (dot == std::string_view::npos) {
        std::string_view digits = token;
        while (digits.size() > 1 && digits.front() == '0')
            digits.remove_prefix(1);
        if (digits.size() < 10 || (digits.size() == 10 && digits <= "2147483647")) {
            return SqlType::of(SqlBase::Int);
        }
        return SqlType::decimal(std::min<int>(static_cast<int>(digits.size()), kMaxPrecision), 0);
    }
    std::string_view whole = token.substr(0, dot);
    while (!whole.empty() && whole.front() == '0')
        whole.remove_prefix(1);
    const int scale = static_cast<int>(token.size() - dot - 1);
    const int p = std::max(static_cast<int>(whole.size()) + scale, 1);
    return SqlType::decimal(std::min(p, kMaxPrecision), std::min(scale, kMaxPrecision));
}

SqlType arithmetic_type(ArithOp op, const SqlType& a, const SqlType& b) {
    if (!a.is_numeric() || !b.is_numeric()) return {};
    const SqlType h = higher(a, b);
    if (h.base != SqlBase::Decimal) {
        // Whole numbers, money, real and float: the higher type as it is. A bit operand of
        // arithmetic counts as int.
        if (h.base == SqlBase::Bit) return SqlType::of(SqlBase::Int);
        return SqlType::of(h.base);
    }
    int p1, s1, p2, s2;
    if (!as_decimal(a, p1, s1) || !as_decimal(b, p2, s2)) return SqlType::of(SqlBase::Number);
    switch (op) {
        case ArithOp::Add:
        case ArithOp::Sub: {
            const int integral = std::max(p1 - s1, p2 - s2);
            const int s = std::max(s1, s2);
            return capped(s + integral + 1, s, integral);
        }
        case ArithOp::Mul:
            return capped_keeping_scale(p1 + p2 + 1, s1 + s2);
        case ArithOp::Div: {
            const int s = std::max(6, s1 + p2 + 1);
            return capped_keeping_scale(p1 - s1 + s2 + s, s);
        }
        case ArithOp::Mod: {
            const int s = std::max(s1, s2);
            const int integral = std::min(p1 - s1, p2 - s2);
            return capped(integral + s, s, integral);
        }
    }
    return {};
}

DecimalRounding decimal_rounding(ArithOp op, const SqlType& a, const SqlType& b,
                                 const SqlType& result) {
    int p1, s1, p2, s2, p, s;
    if (!is_scaled(result) || !decimal_digits(a, p1, s1) || !decimal_digits(b, p2, s2) ||
        !decimal_digits(result, p, s))
        return DecimalRounding::None;
    switch (op) {
        case ArithOp::Add:
        case ArithOp::Sub:
        case ArithOp::Mod:
            return s < std::max(s1, s2) ? DecimalRounding::Round : DecimalRounding::Exact;
        case ArithOp::Mul:
            return s < s1 + s2 ? DecimalRounding::Round : DecimalRounding::Exact;
        case ArithOp::Div:
            return DecimalRounding::Truncate;
    }
    return DecimalRounding::None;
}

SqlType common_type(const SqlType& a, const SqlType& b) {
    if (!a.known()) return b;
    if (!b.known()) return a;
    SqlType h = higher(a, b);
    if (h.base == SqlBase::Decimal) {
        int p1, s1, p2, s2;
        if (!as_decimal(a, p1, s1) || !as_decimal(b, p2, s2)) return h;
        const int s = std::max(s1, s2);
        const int integral = std::max(p1 - s1, p2 - s2);
        return capped(integral + s, s, integral);
    }
    if (h.is_text() && a.is_text() && b.is_text()) h.length = longer(a.length, b.length);
    return h;
}

SqlType isnull_type(const SqlType& a, const SqlType& b) {
    return a.known() ? a : b;
}

NumberTextForm number_text_form(const SqlType& t, int style) {
    NumberTextForm f;
    if (t.is_integer()) {
        f.kind = "int";
        f.supported = style <= 0;
    } else if (t.base == SqlBase::Decimal) {
        f.kind = "decimal";
        f.digits = t.scale;
        f.supported = style <= 0;
    } else if (t.base == SqlBase::Money || t.base == SqlBase::SmallMoney) {
        // Style 126 is style 2 for (var)char.
        f.kind = t.base == SqlBase::Money ? "money" : "smallmoney";
        f.digits = style == 126 ? 2 : style < 0 ? 0 : style;
        f.supported = style <= 2 || style == 126;
    } else if (t.base == SqlBase::Float || t.base == SqlBase::Real) {
        // Any other style is style 0, but for the lossless 3 and the legacy 126, 128 and 129.
        f.kind = t.base == SqlBase::Float ? "float" : "real";
        f.digits = style == 1 || style == 2 ? style : 0;
        f.supported = style != 3 && style != 126 && style != 128 && style != 129;
    }
    return f;
}

const char* day_first_order(int style, int& year_digits) {
    year_digits = style >= 100 ? 4 : 2;
    switch (style % 100) {
        case 1:
        case 10:
            return "mdy";
        case 3:
        case 4:
        case 5:
            return "dmy";
        default:
            return nullptr;
    }
}

bool fits_scaled(const SqlType& from, const SqlType& to) {
    if (from.base == to.base && to.base != SqlBase::Decimal) return true;
    if (from.base == SqlBase::SmallMoney && to.base == SqlBase::Money) return true;
    int p0 = 0, s0 = 0, p = 0, s = 0;
    if (!from.is_exact_numeric() || !decimal_digits(from, p0, s0) || !decimal_digits(to, p, s))
        return false;
    // Rounding to fewer places may carry into one more whole digit (9.99 is 10.0).
    const int whole = p0 - s0 + (s0 > s ? 1 : 0);
    // Below 10^14 and 10^5 is within money's and smallmoney's ranges.
    const int room = to.base == SqlBase::Money ? 14 : to.base == SqlBase::SmallMoney ? 5 : p - s;
    return whole <= room;
}

std::string overflow_source_name(const SqlType& t) {
    switch (t.base) {
        case SqlBase::Bit:
        case SqlBase::TinyInt:
        case SqlBase::SmallInt:
        case SqlBase::Int:
        case SqlBase::BigInt:
        case SqlBase::SmallMoney:
        case SqlBase::Money:
        case SqlBase::Real:
        case SqlBase::Float:
            return type_name(t);
        case SqlBase::Decimal:
            return "numeric";
        default:
            return "expression";
    }
}

int widest_text(const SqlType& t) {
    switch (t.base) {
        case SqlBase::Bit:
            return 1;
        case SqlBase::TinyInt:
            return 3;
        case SqlBase::SmallInt:
            return 6;
        case SqlBase::Int:
            return 11;
        default:
            return 20;
    }
}

const char* text_type_name(const SqlType& t) {
    switch (t.base) {
        case SqlBase::Char:
            return "char";
        case SqlBase::NChar:
            return "nchar";
        case SqlBase::NVarChar:
            return "nvarchar";
        default:
            return "varchar";
    }
}

bool integer_range(SqlBase base, std::int64_t& min, std::int64_t& max) {
    switch (base) {
        case SqlBase::TinyInt:
            min = 0;
            max = 255;
            return true;
        case SqlBase::SmallInt:
            min = -32768;
            max = 32767;
            return true;
        case SqlBase::Int:
            min = -2147483648LL;
            max = 2147483647LL;
            return true;
        case SqlBase::BigInt:
            min = INT64_MIN;
            max = INT64_MAX;
            return true;
        default:
            return false;
    }
}

}  // namespace billdata::dialect
