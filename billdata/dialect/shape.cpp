// Statement shapes and literal values for the driver's statement cache.

#include <charconv>

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

}  // namespace

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

Shape statement_shape(std::string_view tsql) {
    std::vector<Token> tokens;
    Lexer(tsql).run(tokens);
    Shape shape;
    shape.key.reserve(tsql.size());
    std::size_t copied = 0;
    for (const Token& t : tokens) {
        Literal::Kind kind;
        char marker;
        switch (t.kind) {
            case Tok::Number:
                kind = Literal::Kind::Number;
                marker = is_whole_number(tsql.substr(t.pos, t.len)) ? 'i' : 'd';
                break;
            case Tok::String:
                kind = Literal::Kind::String;
                marker = 's';
                break;
            case Tok::NString:
                kind = Literal::Kind::NString;
                marker = 'n';
                break;
            default:
                continue;
        }
        shape.key.append(tsql.substr(copied, t.pos - copied));
        // A control character never stands outside a literal in a statement the lexer takes.
        shape.key.push_back('\x01');
        shape.key.push_back(marker);
        copied = t.pos + t.len;
        shape.literals.push_back(Literal{t.pos, t.len, kind});
    }
    shape.key.append(tsql.substr(copied));
    return shape;
}

}  // namespace billdata::dialect
