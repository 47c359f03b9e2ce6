// Statement shapes and literal values for the driver's statement cache.

#include <array>
#include <charconv>
#include <cstdint>

#include "billdata/dialect/dialect.h"
#include "billdata/dialect/lexer.h"

namespace billdata::dialect {

namespace {

bool is_whole_number(std::string_view token) {
    return token.find_first_of(".eE") == std::string_view::npos;
}

// Significant digits of a decimal's mantissa: leading zeros do not count.
std::size_t significant_digits(std::string_view token) {
    std::size_t n = 0;
    bool leading = true;
    for (char c : token) {
        if (c == 'e' || c == 'E') break;
        if (c < '0' || c > '9') continue;
        if (leading && c == '0') continue;
        leading = false;
        ++n;
    }
    return n;
}

// Character classes of the shape scan, one table lookup per character.
enum : std::uint8_t { kNameStart = 1, kNameChar = 2, kDigit = 4, kSpecial = 8 };

constexpr std::array<std::uint8_t, 256> make_shape_classes() {
    std::array<std::uint8_t, 256> t{};
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        std::uint8_t k = 0;
        if (lexer_detail::is_name_start(c)) k |= kNameStart;
        if (lexer_detail::is_name_char(c)) k |= kNameChar;
        if (c >= '0' && c <= '9') k |= kDigit;
        for (char special : {'\'', '[', '"', '@', '-', '/', '.'})
            if (c == special) k |= kSpecial;
        t[static_cast<std::size_t>(i)] = k;
    }
    return t;
}

constexpr auto kShapeClasses = make_shape_classes();

inline std::uint8_t shape_class(char c) {
    return kShapeClasses[static_cast<unsigned char>(c)];
}

}  // namespace

std::string literal_text(const LiteralValue& value) {
    switch (value.type) {
        case LiteralValue::Type::Integer:
            return std::to_string(value.integer);
        case LiteralValue::Type::Real: {
            char buf[32];
            auto r = std::to_chars(buf, buf + sizeof buf, value.real);
            return std::string(buf, r.ptr);
        }
        case LiteralValue::Type::Text:
            return value.text;
    }
    return {};
}

bool literal_value(std::string_view token, LiteralValue& out) {
    if (token.empty()) return false;
    if (token.front() == '\'' || token.front() == 'N' || token.front() == 'n') {
        if (token.front() != '\'') token.remove_prefix(1);
        if (token.size() < 2 || token.front() != '\'' || token.back() != '\'') return false;
        token = token.substr(1, token.size() - 2);
        out.type = LiteralValue::Type::Text;
        out.text.clear();
        out.text.reserve(token.size());
        for (std::size_t i = 0; i < token.size(); ++i) {
            out.text.push_back(token[i]);
            if (token[i] == '\'' && i + 1 < token.size() && token[i + 1] == '\'') ++i;
        }
        return true;
    }
    const char* first = token.data();
    const char* last = first + token.size();
    if (is_whole_number(token)) {
        auto r = std::from_chars(first, last, out.integer);
        if (r.ec != std::errc() || r.ptr != last) return false;  // the engine reads it as real
        out.type = LiteralValue::Type::Integer;
        return true;
    }
    // Up to 15 significant digits every correctly rounding reader gives the same double.
    if (significant_digits(token) > 15) return false;
    auto r = std::from_chars(first, last, out.real);
    if (r.ec != std::errc() || r.ptr != last) return false;
    out.type = LiteralValue::Type::Real;
    return true;
}

// One pass over the text that finds the literals exactly where the lexer would and copies
// everything else as it stands. It runs for every statement the driver executes, before the
// cache is asked, so it builds no tokens and looks up no keywords.
Shape statement_shape(std::string_view tsql) {
    Shape shape;
    statement_shape(tsql, shape);
    return shape;
}

void statement_shape(std::string_view tsql, Shape& shape) {
    const char* s = tsql.data();
    const std::size_t n = tsql.size();
    shape.key.clear();
    shape.literals.clear();
    shape.key.reserve(n + 16);
    shape.literals.reserve(32);  // a bill line's insert has about twenty
    std::size_t copied = 0;
    auto fail = [](const char* what, std::size_t pos) {
        throw DialectError(std::string(what) + " at position " + std::to_string(pos), pos, what);
    };
    auto digit = [&](std::size_t k) { return k < n && (shape_class(s[k]) & kDigit); };
    // A quoted run from s[i] (the opening character) to just past its closing one; a doubled
    // closing character stands for itself. An unterminated run is reported at `start`.
    auto quoted = [&](std::size_t start, std::size_t i, char close, const char* unterminated) {
        ++i;
        for (;;) {
            if (i >= n) fail(unterminated, start);
            if (s[i] == close) {
                if (i + 1 < n && s[i + 1] == close) {
                    i += 2;
                    continue;
                }
                return i + 1;
            }
            ++i;
        }
    };
    auto literal = [&](std::size_t start, std::size_t end, Literal::Kind kind, char marker) {
        shape.key.append(s + copied, start - copied);
        // A control character never stands outside a literal in a statement the lexer takes.
        shape.key.push_back('\x01');
        shape.key.push_back(marker);
        copied = end;
        shape.literals.push_back(Literal{start, end - start, kind});
    };
    std::size_t i = 0;
    while (i < n) {
        const char c = s[i];
        const std::uint8_t k = shape_class(c);
        if (!(k & (kNameStart | kDigit | kSpecial))) {
            ++i;  // blanks, operators, punctuation
            continue;
        }
        if (k & kNameStart) {
            if ((c == 'N' || c == 'n') && i + 1 < n && s[i + 1] == '\'') {
                const std::size_t end = quoted(i, i + 1, '\'', "unterminated string");
                literal(i, end, Literal::Kind::NString, 'n');
                i = end;
                continue;
            }
            ++i;
            while (i < n && (shape_class(s[i]) & kNameChar))
                ++i;
            continue;
        }
        if ((k & kDigit) || (c == '.' && digit(i + 1))) {
            const std::size_t start = i;
            bool whole = true;
            while (digit(i))
                ++i;
            if (i < n && s[i] == '.') {
                whole = false;
                ++i;
                while (digit(i))
                    ++i;
            }
            // An exponent only when digits follow, as the lexer reads it.
            if (i < n && (s[i] == 'e' || s[i] == 'E')) {
                std::size_t j = i + 1;
                if (j < n && (s[j] == '+' || s[j] == '-')) ++j;
                if (digit(j)) {
                    whole = false;
                    i = j;
                    while (digit(i))
                        ++i;
                }
            }
            literal(start, i, Literal::Kind::Number, whole ? 'i' : 'd');
            continue;
        }
        switch (c) {
            case '\'': {
                const std::size_t end = quoted(i, i, '\'', "unterminated string");
                literal(i, end, Literal::Kind::String, 's');
                i = end;
                break;
            }
            case '[':
            case '"': {
                const std::size_t end =
                    quoted(i, i, c == '[' ? ']' : '"', "unterminated quoted name");
                if (end - i == 2) fail("empty quoted name", i);
                i = end;
                break;
            }
            case '@':
                ++i;
                while (i < n && (shape_class(s[i]) & kNameChar))
                    ++i;
                break;
            case '-':
                if (i + 1 < n && s[i + 1] == '-') {
                    while (i < n && s[i] != '\n')
                        ++i;
                } else {
                    ++i;
                }
                break;
            case '/':
                if (i + 1 < n && s[i + 1] == '*') {
                    const std::size_t start = i;
                    i = lexer_detail::block_comment_end(tsql, start);
                    if (i == std::string_view::npos) fail("unterminated comment", start);
                } else {
                    ++i;
                }
                break;
            default:
                ++i;
                break;
        }
    }
    shape.key.append(s + copied, n - copied);
}

}  // namespace billdata::dialect
