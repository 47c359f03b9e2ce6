#pragma once
// T-SQL translation: one statement of SQL Server's dialect in, the same statement for another
// engine out. Pure: text and a schema catalogue in, text and the statement's literals out; no
// I/O and no global state. Thread-safe.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/dialect/catalog.h"

namespace billdata::dialect {

enum class StatementKind { Select, Insert, Update, Delete, Truncate };

// A literal of the source text, for statement caching: its place in the source and its kind.
struct Literal {
    enum class Kind { Number, String, NString };
    std::size_t offset = 0;
    std::size_t length = 0;
    Kind kind = Kind::Number;
};

struct Translation {
    std::string sql;  // the statement for the target engine
    StatementKind kind = StatementKind::Select;
    bool writes = false;            // anything but a select
    std::vector<Literal> literals;  // in source order
    // Only with TranslateOptions::parameterise: the source offset of the literal that ?1, ?2, …
    // stand for (a literal printed twice is one parameter).
    std::vector<std::size_t> parameters;
    // For each of `parameters`: the decimal or money column type its value is written to, coded as
    // runtime::kDecimalFit's second argument, or 0. The engine that checks such writes with that
    // function does so for these parameters when it binds them (the translation has no check).
    std::vector<int> parameter_scales;
    // A select that reads the rows of one table, with no aggregate, DISTINCT, GROUP BY or set
    // operator, so that a server engine can lock the rows it reads (`FOR UPDATE` appended to
    // `sql`): that table as the statement names it. Empty otherwise.
    std::string lockable_table;
};

struct TranslateOptions {
    // Writes the literals that can be bound as ?N parameters instead of inline, so that one
    // prepared statement serves every statement of the same shape. Literals that change the
    // plan or the result's column names stay inline: TOP counts, type lengths and convert
    // styles (never literals in the first place), ORDER BY / GROUP BY positions, and literals
    // of a select-list item without an alias (the engine names that column by its text).
    bool parameterise = false;
};

// A statement's shape: the text with every number and string literal replaced by a marker of
// its kind (whole number, decimal, text), and all those literals in source order. Two texts
// with the same key differ only in literal values. Raises DialectError when the text cannot be
// split into tokens.
struct Shape {
    std::string key;
    std::vector<Literal> literals;
};
Shape statement_shape(std::string_view tsql);
// The same into `out`, whose buffers are reused: a driver keeps one for its statements.
void statement_shape(std::string_view tsql, Shape& out);

// The value a literal token (as written: 12, 1.5, 'it''s', N'x') stands for, as the engine
// would read it inline. False when it is not bound as a parameter but kept in the text: a whole
// number outside 64 bits, a decimal with more digits than a double holds exactly.
struct LiteralValue {
    enum class Type { Integer, Real, Text };
    Type type = Type::Integer;
    std::int64_t integer = 0;
    double real = 0;
    std::string text;
};
bool literal_value(std::string_view token, LiteralValue& out);
// The value as text, for an engine that takes parameters as text: integers in decimal, reals in
// the shortest form that reads back exactly, texts as they are.
std::string literal_text(const LiteralValue& value);

// A statement the translator cannot take: a syntax error, a second statement, or a construct it
// does not support. `position` is the byte offset in the source text; what() names the construct
// and the position ("unsupported construct 'pivot' at position 31").
class DialectError : public std::runtime_error {
  public:
    DialectError(const std::string& message, std::size_t position, std::string construct = {},
                 int server_number = 0)
        : std::runtime_error(message),
          position_(position),
          construct_(std::move(construct)),
          server_number_(server_number) {}
    std::size_t position() const { return position_; }
    const std::string& construct() const { return construct_; }
    // The server's own error number when the server refuses the statement too (8120: a column
    // neither grouped nor aggregated; 8115: a constant overflows); what() is then the server's
    // message. 0 for a construct only the translator refuses.
    int server_number() const { return server_number_; }

  private:
    std::size_t position_;
    std::string construct_;
    int server_number_ = 0;
};

// Translates exactly one T-SQL statement to SQLite. Raises DialectError as described above.
Translation translate_sqlite(std::string_view tsql, const Catalog& catalog);
Translation translate_sqlite(std::string_view tsql, const Catalog& catalog,
                             const TranslateOptions& options);

// Translates exactly one T-SQL statement to PostgreSQL. Schema objects are written without
// quotes (the server folds them to lower case, as the schema created them); each result column
// keeps the name the statement gives it, as on the embedded engine. Parameters are written $1,
// $2, … and sent as text of unknown type, so that the server reads each as its place needs.
// The functions the translation calls (bd_…) come with the server schema. Raises DialectError.
Translation translate_postgresql(std::string_view tsql, const Catalog& catalog,
                                 const TranslateOptions& options = {});

// Parses the text and raises DialectError unless it is exactly one statement the parser reads
// (the check that engines without translation still get). Returns the statement's kind.
StatementKind check_single_statement(std::string_view tsql);

// A statement for an engine that runs T-SQL as it is written (SQL Server), checked to be exactly
// one statement the parser reads (DialectError otherwise, as check_single_statement).
struct Passthrough {
    StatementKind kind = StatementKind::Select;
    bool writes = false;
    // The source offsets of the literals that can be bound as parameters without changing what
    // the statement means: not TOP counts, type lengths or convert styles, and not the literals
    // of ORDER BY and GROUP BY terms or of the select list of a grouped or distinct query (the
    // engine matches those terms by their text).
    std::vector<std::size_t> parameters;
    // As Translation::lockable_table.
    std::string lockable_table;
    // Where a table hint for the lockable table goes: the source offset just past its name and
    // alias. npos when nothing is lockable or the statement gives that table hints of its own.
    std::size_t lock_hint_at = std::string::npos;
};
Passthrough inspect_statement(std::string_view tsql);

}  // namespace billdata::dialect
