#include "billdata/dialect/lexer.h"

#include <algorithm>
#include <array>

#include "billdata/dialect/dialect.h"
#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

// Character classes. Bytes of multi-byte UTF-8 characters count as letters, so that names in
// any script lex as names.
enum Cc : std::uint8_t {
    kSpace,
    kAlpha,  // a letter, '_' or '#' (temporary-table names start with it)
    kDigit,
    kQuote,    // '
    kDQuote,   // "
    kBracket,  // [
    kAt,
    kMinus,
    kSlash,
    kDot,
    kOp,  // a single-character operator handled by the switch below
    kOther,
};

constexpr std::array<std::uint8_t, 256> make_classes() {
    std::array<std::uint8_t, 256> t{};
    for (int i = 0; i < 256; ++i)
        t[i] = kOther;
    for (int c : {' ', '\t', '\n', '\r', '\f', '\v'})
        t[c] = kSpace;
    for (int c = 'a'; c <= 'z'; ++c)
        t[c] = kAlpha;
    for (int c = 'A'; c <= 'Z'; ++c)
        t[c] = kAlpha;
    for (int c = 0x80; c < 256; ++c)
        t[c] = kAlpha;
    t['_'] = kAlpha;
    t['#'] = kAlpha;
    for (int c = '0'; c <= '9'; ++c)
        t[c] = kDigit;
    t['\''] = kQuote;
    t['"'] = kDQuote;
    t['['] = kBracket;
    t['@'] = kAt;
    t['-'] = kMinus;
    t['/'] = kSlash;
    t['.'] = kDot;
    for (int c :
         {',', '(', ')', ';', '+', '*', '%', '&', '|', '^', '~', '=', '<', '>', '!', '{', '}'})
        t[c] = kOp;
    return t;
}

constexpr auto kClasses = make_classes();

inline std::uint8_t cls(char c) {
    return kClasses[static_cast<unsigned char>(c)];
}
inline bool is_name_char(char c) {
    return lexer_detail::is_name_char(c);
}
inline bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

struct KeywordEntry {
    std::string_view text;
    Kw kw;
};

constexpr KeywordEntry kKeywords[] = {
#define BILLDATA_KW_ENTRY(name) {#name, Kw::k##name},
    BILLDATA_TSQL_KEYWORDS(BILLDATA_KW_ENTRY)
#undef BILLDATA_KW_ENTRY
};
static_assert(std::is_sorted(std::begin(kKeywords), std::end(kKeywords),
                             [](const KeywordEntry& a, const KeywordEntry& b) {
                                 return a.text < b.text;
                             }),
              "keywords must stay in alphabetical order for the binary search");

[[noreturn]] void fail(const std::string& what, std::size_t pos) {
    throw DialectError(what + " at position " + std::to_string(pos), pos, what);
}

}  // namespace

Kw keyword_of(std::string_view word) {
    if (word.size() < 2 || word.size() > 11) return Kw::None;
    char upper[12];
    for (std::size_t i = 0; i < word.size(); ++i) {
        char c = word[i];
        upper[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c;
    }
    std::string_view key(upper, word.size());
    auto it =
        std::lower_bound(std::begin(kKeywords), std::end(kKeywords), key,
                         [](const KeywordEntry& e, std::string_view k) { return e.text < k; });
    if (it != std::end(kKeywords) && it->text == key) return it->kw;
    return Kw::None;
}

void Lexer::run(std::vector<Token>& out) {
    const char* s = src_.data();
    const std::size_t n = src_.size();
    std::size_t i = 0;
    auto push = [&](Tok kind, std::size_t start, std::size_t end) {
        Token t;
        t.kind = kind;
        t.pos = static_cast<std::uint32_t>(start);
        t.len = static_cast<std::uint32_t>(end - start);
        t.text = std::string_view(s + start, end - start);
        out.push_back(t);
    };
    while (i < n) {
        const char c = s[i];
        switch (cls(c)) {
            case kSpace:
                ++i;
                break;
            case kAlpha: {
                // N'text' is a national-character literal, not a name.
                if ((c == 'N' || c == 'n') && i + 1 < n && s[i + 1] == '\'') {
                    std::size_t start = i;
                    i += 2;
                    for (;;) {
                        if (i >= n) fail("unterminated string", start);
                        if (s[i] == '\'') {
                            if (i + 1 < n && s[i + 1] == '\'') {
                                i += 2;
                                continue;
                            }
                            ++i;
                            break;
                        }
                        ++i;
                    }
                    push(Tok::NString, start, i);
                    break;
                }
                std::size_t start = i;
                while (i < n && is_name_char(s[i]))
                    ++i;
                push(Tok::Identifier, start, i);
                out.back().kw = keyword_of(out.back().text);
                break;
            }
            case kDigit:
            number : {
                std::size_t start = i;
                while (i < n && is_digit(s[i]))
                    ++i;
                if (i < n && s[i] == '.') {
                    ++i;
                    while (i < n && is_digit(s[i]))
                        ++i;
                }
                // An exponent only when digits follow: "112order" is the number 112 and a keyword,
                // as the server reads it.
                if (i < n && (s[i] == 'e' || s[i] == 'E')) {
                    std::size_t j = i + 1;
                    if (j < n && (s[j] == '+' || s[j] == '-')) ++j;
                    if (j < n && is_digit(s[j])) {
                        i = j;
                        while (i < n && is_digit(s[i]))
                            ++i;
                    }
                }
                push(Tok::Number, start, i);
                break;
            }
            case kDot:
                if (i + 1 < n && is_digit(s[i + 1])) goto number;
                push(Tok::Dot, i, i + 1);
                ++i;
                break;
            case kQuote: {
                std::size_t start = i++;
                for (;;) {
                    if (i >= n) fail("unterminated string", start);
                    if (s[i] == '\'') {
                        if (i + 1 < n && s[i + 1] == '\'') {
                            i += 2;
                            continue;
                        }
                        ++i;
                        break;
                    }
                    ++i;
                }
                push(Tok::String, start, i);
                break;
            }
            case kBracket:
            case kDQuote: {
                const char close = c == '[' ? ']' : '"';
                std::size_t start = i++;
                bool doubled = false;
                for (;;) {
                    if (i >= n) fail("unterminated quoted name", start);
                    if (s[i] == close) {
                        if (i + 1 < n && s[i + 1] == close) {
                            doubled = true;
                            i += 2;
                            continue;
                        }
                        ++i;
                        break;
                    }
                    ++i;
                }
                push(Tok::QuotedIdentifier, start, i);
                std::string_view inner(s + start + 1, i - start - 2);
                if (doubled) {
                    std::string name;
                    for (std::size_t k = 0; k < inner.size(); ++k) {
                        name.push_back(inner[k]);
                        if (inner[k] == close) ++k;
                    }
                    unescaped_.push_back(std::move(name));
                    inner = unescaped_.back();
                }
                if (inner.empty()) fail("empty quoted name", start);
                out.back().text = inner;
                break;
            }
            case kAt: {
                std::size_t start = i++;
                while (i < n && is_name_char(s[i]))
                    ++i;
                push(Tok::Variable, start, i);
                break;
            }
            case kMinus:
                if (i + 1 < n && s[i + 1] == '-') {
                    while (i < n && s[i] != '\n')
                        ++i;
                    break;
                }
                push(Tok::Minus, i, i + 1);
                ++i;
                break;
            case kSlash:
                if (i + 1 < n && s[i + 1] == '*') {
                    const std::size_t start = i;
                    i = lexer_detail::block_comment_end(src_, start);
                    if (i == std::string_view::npos) fail("unterminated comment", start);
                    break;
                }
                push(Tok::Slash, i, i + 1);
                ++i;
                break;
            case kOp: {
                std::size_t start = i;
                Tok kind = Tok::Other;
                const char next = i + 1 < n ? s[i + 1] : '\0';
                std::size_t len = 1;
                switch (c) {
                    case ',':
                        kind = Tok::Comma;
                        break;
                    case '(':
                        kind = Tok::LParen;
                        break;
                    case ')':
                        kind = Tok::RParen;
                        break;
                    case ';':
                        kind = Tok::Semicolon;
                        break;
                    case '{':
                        kind = Tok::LBrace;
                        break;
                    case '}':
                        kind = Tok::RBrace;
                        break;
                    case '+':
                        kind = Tok::Plus;
                        break;
                    case '*':
                        kind = Tok::Star;
                        break;
                    case '%':
                        kind = Tok::Percent;
                        break;
                    case '&':
                        kind = Tok::Amp;
                        break;
                    case '|':
                        kind = Tok::Pipe;
                        break;
                    case '^':
                        kind = Tok::Caret;
                        break;
                    case '~':
                        kind = Tok::Tilde;
                        break;
                    case '=':
                        kind = Tok::Eq;
                        break;
                    case '<':
                        if (next == '=') {
                            kind = Tok::Le;
                            len = 2;
                        } else if (next == '>') {
                            kind = Tok::Ne;
                            len = 2;
                        } else {
                            kind = Tok::Lt;
                        }
                        break;
                    case '>':
                        if (next == '=') {
                            kind = Tok::Ge;
                            len = 2;
                        } else {
                            kind = Tok::Gt;
                        }
                        break;
                    case '!':
                        if (next == '=') {
                            kind = Tok::Ne;
                            len = 2;
                        } else if (next == '<') {
                            kind = Tok::NotLt;
                            len = 2;
                        } else if (next == '>') {
                            kind = Tok::NotGt;
                            len = 2;
                        }
                        break;
                    default:
                        break;
                }
                i += len;
                push(kind, start, i);
                break;
            }
            default:
                push(Tok::Other, i, i + 1);
                ++i;
                break;
        }
    }
    Token end;
    end.kind = Tok::End;
    end.pos = static_cast<std::uint32_t>(n);
    out.push_back(end);
}

}  // namespace billdata::dialect
