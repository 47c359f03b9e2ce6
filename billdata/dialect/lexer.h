#pragma once
// T-SQL tokens. The lexer walks the text once with a character-class table: no regular
// expressions and no allocation per character; tokens refer to the source text by position.

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace billdata::dialect {

enum class Tok : std::uint8_t {
    End,
    Identifier,        // plain name; `kw` tells whether it is a keyword
    QuotedIdentifier,  // [name] or "name"; never a keyword
    Variable,          // @name
    Number,
    String,   // 'text'
    NString,  // N'text'
    Comma,
    Dot,
    LParen,
    RParen,
    Semicolon,
    Plus,
    Minus,
    Star,
    Slash,
    Percent,
    Amp,
    Pipe,
    Caret,
    Tilde,
    Eq,
    Ne,  // <> or !=
    Lt,
    Le,
    Gt,
    Ge,
    NotLt,   // !<
    NotGt,   // !>
    LBrace,  // {  (ODBC escapes)
    RBrace,  // }
    Other,   // a character the dialect has no use for (reported by the parser)
};

// Keywords of T-SQL that the parser reads or that may never be taken as a name. Kept in
// alphabetical order: the lexer finds them by binary search.
// clang-format off
#define BILLDATA_TSQL_KEYWORDS(X) \
    X(ADD) \
    X(ALL) \
    X(ALTER) \
    X(AND) \
    X(ANY) \
    X(AS) \
    X(ASC) \
    X(BEGIN) \
    X(BETWEEN) \
    X(BREAK) \
    X(BY) \
    X(CASCADE) \
    X(CASE) \
    X(CAST) \
    X(CHECK) \
    X(CLOSE) \
    X(COLLATE) \
    X(COLUMN) \
    X(COMMIT) \
    X(COMPUTE) \
    X(CONSTRAINT) \
    X(CONTAINS) \
    X(CONTINUE) \
    X(CONVERT) \
    X(CREATE) \
    X(CROSS) \
    X(CURRENT) \
    X(CURSOR) \
    X(DATABASE) \
    X(DEALLOCATE) \
    X(DECLARE) \
    X(DEFAULT) \
    X(DELETE) \
    X(DENY) \
    X(DESC) \
    X(DISTINCT) \
    X(DROP) \
    X(ELSE) \
    X(END) \
    X(ESCAPE) \
    X(EXCEPT) \
    X(EXEC) \
    X(EXECUTE) \
    X(EXISTS) \
    X(FETCH) \
    X(FOR) \
    X(FOREIGN) \
    X(FROM) \
    X(FULL) \
    X(FUNCTION) \
    X(GOTO) \
    X(GRANT) \
    X(GROUP) \
    X(HAVING) \
    X(IF) \
    X(IN) \
    X(INDEX) \
    X(INNER) \
    X(INSERT) \
    X(INTERSECT) \
    X(INTO) \
    X(IS) \
    X(JOIN) \
    X(KEY) \
    X(LEFT) \
    X(LIKE) \
    X(MERGE) \
    X(NOT) \
    X(NULL) \
    X(OF) \
    X(OFF) \
    X(ON) \
    X(OPEN) \
    X(OPTION) \
    X(OR) \
    X(ORDER) \
    X(OUTER) \
    X(OVER) \
    X(PERCENT) \
    X(PIVOT) \
    X(PRINT) \
    X(PROC) \
    X(PROCEDURE) \
    X(RETURN) \
    X(REVOKE) \
    X(RIGHT) \
    X(ROLLBACK) \
    X(SELECT) \
    X(SET) \
    X(SOME) \
    X(TABLE) \
    X(THEN) \
    X(TO) \
    X(TOP) \
    X(TRAN) \
    X(TRANSACTION) \
    X(TRUNCATE) \
    X(UNION) \
    X(UNIQUE) \
    X(UNPIVOT) \
    X(UPDATE) \
    X(USE) \
    X(VALUES) \
    X(VIEW) \
    X(WAITFOR) \
    X(WHEN) \
    X(WHERE) \
    X(WHILE) \
    X(WITH)
// clang-format on

enum class Kw : std::uint8_t {
    None,
#define BILLDATA_KW_ENUM(name) k##name,
    BILLDATA_TSQL_KEYWORDS(BILLDATA_KW_ENUM)
#undef BILLDATA_KW_ENUM
};

struct Token {
    Tok kind = Tok::End;
    Kw kw = Kw::None;
    std::uint32_t pos = 0;  // byte offset of the token in the source
    std::uint32_t len = 0;  // byte length in the source
    std::string_view text;  // the name without brackets, or the token as written
};

// Splits the whole text into tokens (comments and blanks dropped; the last token is End).
// Raises DialectError for an unterminated string, name or comment.
class Lexer {
  public:
    explicit Lexer(std::string_view source) : src_(source) {}
    void run(std::vector<Token>& out);

  private:
    std::string_view src_;
    std::deque<std::string> unescaped_;  // names and texts that held doubled quote characters
};

// What starts a name and what continues one; shared with the statement-shape scan, which must
// find literals exactly where the lexer does. Bytes of multi-byte UTF-8 characters count as
// letters, so that names in any script lex as names.
namespace lexer_detail {
constexpr bool is_name_start(char c) {
    const auto u = static_cast<unsigned char>(c);
    const auto folded = static_cast<unsigned char>(u | 0x20);
    return (folded >= 'a' && folded <= 'z') || u >= 0x80 || c == '_' || c == '#';
}
constexpr bool is_name_char(char c) {
    return is_name_start(c) || (c >= '0' && c <= '9') || c == '@' || c == '$';
}
// The end of a block comment that starts at `start` ("/*"); block comments nest in T-SQL.
// Returns std::string_view::npos when the text ends inside the comment.
constexpr std::size_t block_comment_end(std::string_view s, std::size_t start) {
    std::size_t i = start + 2;
    int depth = 1;
    while (depth > 0) {
        if (i + 1 >= s.size()) return std::string_view::npos;
        if (s[i] == '/' && s[i + 1] == '*') {
            ++depth;
            i += 2;
        } else if (s[i] == '*' && s[i + 1] == '/') {
            --depth;
            i += 2;
        } else {
            ++i;
        }
    }
    return i;
}
// A bare pointer would be measured up to its first NUL, which may lie inside the statement or
// beyond its end: the text's own length must be given.
std::size_t block_comment_end(const char* s, std::size_t start) = delete;
}  // namespace lexer_detail

// The keyword spelled by `word` (any case), or Kw::None.
Kw keyword_of(std::string_view word);

}  // namespace billdata::dialect
