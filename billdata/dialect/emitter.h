#pragma once
// One walk over a bound statement that writes SQL for a target engine. The walk prints what all
// engines share (select structure, joins, predicates, CASE); every place where engines differ
// goes through EngineHooks, so a new engine is one hooks class, not a second printer.

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "billdata/dialect/ast.h"

namespace billdata::dialect {

class Emitter;

// Output precedence of the target engines' operators, loosest first; the walk parenthesises an
// operand whose level is below what its place needs.
enum OutPrec : int {
    kOutOr = 1,
    kOutAnd,
    kOutNot,
    kOutEquality,  // = <> IS IN LIKE BETWEEN
    kOutRelation,  // < <= > >=
    kOutBitwise,   // & |
    kOutAdd,       // + -
    kOutMul,       // * / %
    kOutConcat,    // ||
    kOutCollate,   // x COLLATE name
    kOutUnary,     // - + ~
    kOutPrimary,
};

class EngineHooks {
  public:
    virtual ~EngineHooks() = default;

    // A table, alias or column name, quoted when the engine needs it.
    virtual void name(Emitter& em, std::string_view name) const = 0;
    virtual void string_literal(Emitter& em, const LiteralExpr& literal) const = 0;
    // A number literal (integer or decimal), written as it stands unless the engine cannot.
    virtual void number_literal(Emitter& em, const LiteralExpr& literal) const;
    virtual void function(Emitter& em, const Function& fn) const = 0;
    virtual void cast(Emitter& em, const Cast& cast) const = 0;
    // `+` and `-` that are not plain numeric arithmetic (concatenation, date ± days, decided by
    // value), and `/`, `%`, `^` whose semantics differ between engines.
    virtual void arithmetic(Emitter& em, const Binary& b) const = 0;
    // Arithmetic whose result is a decimal or money (Binary::rounding is not None), written so
    // that the result is exact at its type's scale; false when the engine writes it as other
    // arithmetic.
    virtual bool decimal_arithmetic(Emitter& /*em*/, const Binary& /*b*/) const { return false; }
    virtual void like(Emitter& em, const Like& like) const = 0;
    // Appended after an operand so that it compares as text (case-insensitively, trailing
    // blanks ignored) or as a date.
    virtual void collation(Emitter& em, CompareKind kind) const = 0;
    virtual void limit(Emitter& em, long long count) const = 0;
    // After an ORDER BY term that may be NULL: the server sorts NULLs below every value (first
    // ascending, last descending); an engine that sorts them otherwise says so here.
    virtual void null_order(Emitter& /*em*/, bool /*desc*/) const {}
    // OFFSET n ROWS [FETCH NEXT m ROWS ONLY] after the ORDER BY; `fetch` is -1 when not given.
    virtual void offset(Emitter& em, long long offset, long long fetch) const = 0;
    // A value written into a date column, so that dates are stored in one form.
    virtual void date_value(Emitter& em, const Expr& value) const = 0;
    virtual void update(Emitter& em, const Update& update) const = 0;
    virtual void remove(Emitter& em, const Delete& del) const = 0;
    virtual void truncate(Emitter& em, const Truncate& truncate) const = 0;
    // Parameter number `number` (from 1) standing for `literal`.
    virtual void parameter(Emitter& em, std::size_t number, const LiteralExpr& literal) const = 0;
    // The name of a result column after AS, and an ORDER BY name that refers to one. `top_level`:
    // the statement's own result, whose names the caller sees.
    virtual void result_alias(Emitter& em, std::string_view alias, bool /*top_level*/) const {
        name(em, alias);
    }
    virtual void result_ref(Emitter& em, const ColumnRef& ref, bool /*top_level*/) const {
        name(em, ref.name);
    }
    // `*` or `t.*` of a select list.
    virtual void star(Emitter& em, const Star& star, const QuerySpec& spec, bool top_level) const;
    // Closes `SELECT * FROM (… LIMIT n` of a union member that has its own TOP.
    virtual void limited_member_end(Emitter& em) const;
    // Writes `e`, compared as a plain value with `other`, converted first when the engine does
    // not compare the two types by itself (a text with a number); false when it wrote nothing.
    virtual bool plain_compared(Emitter& /*em*/, const Expr& /*e*/, const Expr& /*other*/) const {
        return false;
    }
    // A value where the place needs the type `to` (a CASE branch, a value written into a
    // column), converted when the engine would not convert it by itself.
    virtual void converted(Emitter& em, const Expr& e, ColumnType /*to*/) const;
    // Writes `e`, a number of a known type, as text in the form `form` of a text of type
    // `target` ("varchar", "nchar", …) and `length` characters (-1: max), as CONVERT does.
    virtual void number_text(Emitter& em, const Expr& e, const NumberTextForm& form,
                             std::string_view target, int length) const = 0;
    // Whether a computed text (not a column, not a literal) that a comparison compares as text
    // needs the text collation even where the other side is a text column.
    virtual bool collates_computed_text() const { return false; }
    // Whether select items, ORDER BY terms and GROUP BY terms must be written alike to be the
    // same grouping (the engine matches them by their text, parameters included): then literals
    // in grouping terms stay inline, and text terms compare under the text collation.
    virtual bool groups_by_text() const { return false; }
    // The runtime function that checks a whole number against the range of a type named by its
    // second argument ('int', …), for engines that would widen where the server overflows;
    // empty when the engine raises the overflow by itself.
    virtual std::string_view range_check() const { return {}; }
    // Written after the left operand of such arithmetic (in parentheses) so that the engine
    // computes it wide enough for the check to see the overflow; empty when not needed.
    virtual std::string_view range_check_operand() const { return {}; }
    // Written after the check, so that the value has the engine's type for the type checked.
    virtual std::string_view range_check_result(SqlBase /*type*/) const { return {}; }
    // The runtime function that refuses a text longer than the column it is written to (with
    // the server's error) and cuts excess trailing blanks: (value, length, 'table', 'column').
    // Empty when the engine has none (nothing is checked).
    virtual std::string_view fit_check() const { return {}; }
    // Written after a value that is not known to be a text (in parentheses) so that the check
    // receives it as one.
    virtual std::string_view fit_check_operand() const { return {}; }
    // The runtime function that rounds a number written to a decimal or money column to the
    // column's scale and refuses one beyond its precision (kDecimalFit's arguments).
    // Empty when the engine's column does so itself.
    virtual std::string_view scale_check() const { return {}; }
    // A subquery used as a value that may yield more than one row (Subquery::check_single_row),
    // for engines that would take the first row where the server refuses; by default as it is.
    virtual void many_row_subquery(Emitter& em, const Subquery& sub) const;
};

class Emitter {
  public:
    Emitter(const EngineHooks& hooks, std::string& out) : hooks_(hooks), out_(out) {}

    void statement(const Node& stmt);
    void select(const Select& select, bool top_level);
    void expr(const Expr& e);
    // The expression, in parentheses when its level is below `needed`.
    void operand(const Expr& e, int needed);
    void sources(const List<TableSource*>& from);
    void source(const TableSource& s);
    void insert(const Insert& ins);
    // The value written to a text column of `fit` characters (InsertColumn::fit) inside the
    // engine's length check; a number of a known type as the text the server dialect converts it
    // to. False, with nothing written, when no check is needed: none is declared, the engine has
    // no check, or the value is known to fit.
    bool fitted(const Expr& value, std::int32_t fit, std::string_view table,
                std::string_view column, bool national = true);
    // Opens the engine's rounding of a value written to a decimal or money column (`scaled`,
    // InsertColumn::scaled) and returns true; the caller writes the value and closes it with
    // scaled_close. False, with nothing written, when the value's type shows that it fits.
    bool scaled_open(const Expr& value, const SqlType& scaled);
    void scaled_close(const SqlType& scaled);
    // A decimal or money type as kDecimalFit's second argument.
    static int scale_code(const SqlType& scaled);
    void text(std::string_view s) { out_.append(s); }
    void ch(char c) { out_.push_back(c); }
    void name(std::string_view n) { hooks_.name(*this, n); }
    std::string& out() { return out_; }
    const EngineHooks& hooks() const { return hooks_; }

    // Emitting `source` prints `replacement` text around the table instead (for engines that
    // must reach a FROM item's row identity in an UPDATE). Prefix goes before the table name,
    // the table's alias (or name) after it.
    void replace_source(const TableRef* source, std::string_view prefix, std::string_view suffix) {
        replaced_ = source;
        replace_prefix_ = prefix;
        replace_suffix_ = suffix;
    }
    // From here on, literals that can be bound are written as ?N parameters; `offsets` receives
    // the source offset of the literal behind each parameter.
    void parameterise(std::vector<std::size_t>* offsets, std::vector<int>* scales = nullptr) {
        parameters_ = offsets;
        parameter_scales_ = scales;
    }
    // Literals inside stay inline while the guard lives (positions, unnamed result columns).
    struct InlineLiterals {
        explicit InlineLiterals(Emitter& em) : em_(em) { ++em_.inline_literals_; }
        ~InlineLiterals() { --em_.inline_literals_; }
        InlineLiterals(const InlineLiterals&) = delete;
        InlineLiterals& operator=(const InlineLiterals&) = delete;
        Emitter& em_;
    };

    // Whether an operand compares under its own column's collation already.
    static bool carries_collation(const Expr& e, CompareKind kind);
    // Whether `e` is a table's column (directly, or through derived tables that select it as it
    // is), which has the collation of its type.
    static bool stored_column(const Expr& e);
    // The operand followed by the engine's collation when the comparison needs one.
    void compared(const Expr& e, CompareKind kind, bool needs_collation, int needed);
    static bool needs_collation(const Expr& a, const Expr& b, CompareKind kind);
    // Whether a value compared with a date must be read as a date first.
    static bool needs_date_value(const Expr& e);
    static int precedence(const Expr& e);

    // Helpers that every engine's hooks print with.
    // Whether `name` is made of letters, digits and '_' only, not starting with a digit: a name
    // that needs no quotes unless the engine reserves it.
    static bool identifier_chars(std::string_view name);
    // `name` between double quotes, inner ones doubled.
    void quoted_name(std::string_view name);
    // `text` as a string literal: between single quotes, inner ones doubled.
    void quoted_text(std::string_view text);
    // `fn(arg, arg, …)`.
    void call(std::string_view fn, const List<Expr*>& args);
    // An aggregate as written: count(*), sum(DISTINCT x), …
    void aggregate(const Function& f);
    // DATENAME of `part`: the name of the part's value for months and weekdays, its number as
    // `text_type` otherwise. `part_value` prints the engine's number of the part.
    void date_name(DatePart part, std::string_view text_type,
                   const std::function<void()>& part_value);
    // The runtime's `function` that writes a number as text: function(value, form's kind, form's
    // digits, target, length), `value` printing the number as the engine's function takes it.
    void number_text_call(std::string_view function, const NumberTextForm& form,
                          std::string_view target, int length, const std::function<void()>& value);
    // The runtime's `function` that reads a text as a decimal or money of type `to`:
    // function(value, 'decimal', p, s), (value, 'money', 19, 4) or (value, 'smallmoney', 10, 4).
    void text_number_call(std::string_view function, const SqlType& to,
                          const std::function<void()>& value);
    // A ranking function with its OVER clause: row_number() OVER (PARTITION BY … ORDER BY …).
    void ranking(const Function& f);
    // ntile, lag, lead, first_value and last_value with their OVER clause.
    void window_function(const Function& f);
    // ` OVER (PARTITION BY … ORDER BY … ROWS|RANGE BETWEEN … AND …)`.
    void window(const Window& w);
    // `DELETE FROM T [AS a] [WHERE …]` of a delete without a FROM of its own: the same on every
    // engine.
    void plain_delete(const Delete& d);

  private:
    void body(const Node& body, bool top_level, bool in_compound);
    void spec(const QuerySpec& spec, bool top_level);
    void order_term(const Expr& e);
    // TOP n or TOP n PERCENT of a query, after its ORDER BY.
    void top(const QuerySpec& q);
    // TOP … WITH TIES: as many rows as rank within TOP's count in the query's order.
    void top_with_ties(const QuerySpec& q, const List<OrderItem>& order);
    // FROM … HAVING of a query, as spec() writes them.
    void spec_tail(const QuerySpec& q);
    bool parameter(const LiteralExpr& l);
    // The expression written alone with its literals inline (for comparing terms).
    std::string alone(const Expr& e) const;
    // Grouping terms (GROUP BY, or the items of a DISTINCT) as alone() writes them.
    void grouping_terms(const QuerySpec& q, std::vector<std::string>& out) const;
    bool grouping_term(const Expr& e) const;
    // An expression that is one of the grouping terms, as they are written.
    void grouped(const Expr& e);

    const EngineHooks& hooks_;
    std::string& out_;
    const TableRef* replaced_ = nullptr;
    std::string_view replace_prefix_;
    std::string_view replace_suffix_;
    const List<InsertColumn>* write_columns_ = nullptr;  // INSERT … SELECT target columns
    std::string_view write_table_;                       // and their table
    std::vector<std::size_t>* parameters_ = nullptr;
    std::vector<int>* parameter_scales_ = nullptr;  // Translation::parameter_scales
    int pending_scale_ = 0;           // the scale check of the number literal about to be bound
    std::size_t pending_offset_ = 0;  // and that literal's place
    int inline_literals_ = 0;
    const std::vector<std::string>* grouping_ = nullptr;
    bool in_grouping_ = false;  // writing a grouping term itself
    // Inside a union that removes duplicates: which columns are texts in every member.
    const std::vector<bool>* compound_texts_ = nullptr;
    // Inside a union: the number type a column takes where a member gives a number (Integer,
    // Real), Unknown where none does; a member's text in such a column is converted to it.
    const std::vector<ColumnType>* compound_numbers_ = nullptr;
    bool top_level_ = false;
};

// `select count(*), max(key) … from T` with nothing else, over a table whose row count the
// database keeps: written to read the kept count. False (nothing written) when the statement is
// not of that form.
bool whole_table_aggregate(Emitter& em, const Node& stmt, const Catalog& catalog);
// Adds to the WHERE the same tests on kept copies of columns that the joins allow (see there).
void test_copies_too(Node& stmt, const Catalog& catalog, Arena& arena);
// The name of a date part as the runtime's date functions take it.
std::string_view date_part_name(DatePart part);
// DATALENGTH of a value of this type that is not a text, as the server stores it: 4 for a whole
// number, 8 for a date or a float (a decimal column's 9 is not told apart); null for a text.
const char* stored_size(ColumnType type);
// The names DATENAME gives the values 1, 2, … of a date part, in English as the server's default
// language has them (months, days of the week from Sunday); empty for a part it writes as digits.
std::span<const std::string_view> date_part_value_names(DatePart part);
// Translation::lockable_table of a bound statement.
std::string lockable_table(const Node& stmt);

}  // namespace billdata::dialect
