// The PostgreSQL hooks of the emitter. Names go out unquoted (the server folds them to lower
// case, as the schema created them); the result columns of a statement keep the names the
// statement gives them; the bd_… functions written here come with the server schema
// (billdata/schema/postgresql/runtime.sql) and compute what the embedded engine's runtime
// computes. Text columns are bpchar under a case-insensitive collation, so a column compares as
// the server dialect compares texts by itself; other texts are cast to the same (the domain
// bd_text) where they compare.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "billdata/dialect/binder.h"
#include "billdata/dialect/dialect.h"
#include "billdata/dialect/emitter.h"
#include "billdata/dialect/parser.h"
#include "billdata/dialect/runtime_names.h"
#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

namespace names = runtime;

// The server's reserved words (also those reserved except as a function or type name), upper
// case and sorted: a name that is one must be quoted.
constexpr std::string_view kReserved[] = {
    "ALL",
    "ANALYSE",
    "ANALYZE",
    "AND",
    "ANY",
    "ARRAY",
    "AS",
    "ASC",
    "ASYMMETRIC",
    "AUTHORIZATION",
    "BINARY",
    "BOTH",
    "CASE",
    "CAST",
    "CHECK",
    "COLLATE",
    "COLLATION",
    "COLUMN",
    "CONCURRENTLY",
    "CONSTRAINT",
    "CREATE",
    "CROSS",
    "CURRENT_CATALOG",
    "CURRENT_DATE",
    "CURRENT_ROLE",
    "CURRENT_SCHEMA",
    "CURRENT_TIME",
    "CURRENT_TIMESTAMP",
    "CURRENT_USER",
    "DEFAULT",
    "DEFERRABLE",
    "DESC",
    "DISTINCT",
    "DO",
    "ELSE",
    "END",
    "EXCEPT",
    "FALSE",
    "FETCH",
    "FOR",
    "FOREIGN",
    "FREEZE",
    "FROM",
    "FULL",
    "GRANT",
    "GROUP",
    "HAVING",
    "ILIKE",
    "IN",
    "INITIALLY",
    "INNER",
    "INTERSECT",
    "INTO",
    "IS",
    "ISNULL",
    "JOIN",
    "LATERAL",
    "LEADING",
    "LEFT",
    "LIKE",
    "LIMIT",
    "LOCALTIME",
    "LOCALTIMESTAMP",
    "NATURAL",
    "NOT",
    "NOTNULL",
    "NULL",
    "OFFSET",
    "ON",
    "ONLY",
    "OR",
    "ORDER",
    "OUTER",
    "OVERLAPS",
    "PLACING",
    "PRIMARY",
    "REFERENCES",
    "RETURNING",
    "RIGHT",
    "SELECT",
    "SESSION_USER",
    "SIMILAR",
    "SOME",
    "SYMMETRIC",
    "TABLE",
    "TABLESAMPLE",
    "THEN",
    "TO",
    "TRAILING",
    "TRUE",
    "UNION",
    "UNIQUE",
    "USER",
    "USING",
    "VARIADIC",
    "VERBOSE",
    "WHEN",
    "WHERE",
    "WINDOW",
    "WITH",
};
static_assert(std::is_sorted(std::begin(kReserved), std::end(kReserved)),
              "reserved words must stay sorted for the binary search");

bool plain_name(std::string_view name) {
    if (name.size() > 63 || !Emitter::identifier_chars(name)) return false;
    std::string upper(name);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    }
    return !std::binary_search(std::begin(kReserved), std::end(kReserved), upper);
}

bool is_null(const Expr& e) {
    return e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
}

// ---- LIKE patterns as regular expressions --------------------------------------------------

// Decodes one UTF-8 character at s[i], advancing i.
std::uint32_t next_char(std::string_view s, std::size_t& i) {
    const auto c = static_cast<unsigned char>(s[i]);
    std::size_t len = c < 0x80           ? 1
                      : (c >> 5) == 0x6  ? 2
                      : (c >> 4) == 0xE  ? 3
                      : (c >> 3) == 0x1E ? 4
                                         : 1;
    if (len == 1 || i + len > s.size()) {
        ++i;
        return c;
    }
    std::uint32_t cp = c & (0x7Fu >> len);
    for (std::size_t k = 1; k < len; ++k)
        cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3Fu);
    i += len;
    return cp;
}

std::uint32_t fold(std::uint32_t c) {
    return c >= 'A' && c <= 'Z' ? c + 32 : c;
}

// One character of a regular expression as itself: letters and digits plainly, anything else by
// its code point, so that no character of the pattern is special.
void regex_char(std::string& out, std::uint32_t c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        out.push_back(static_cast<char>(c));
        return;
    }
    static const char kHex[] = "0123456789abcdef";
    const int digits = c > 0xFFFF ? 8 : 4;
    out.append(digits == 8 ? "\\U" : "\\u");
    for (int k = digits - 1; k >= 0; --k)
        out.push_back(kHex[(c >> (4 * k)) & 0xF]);
}

constexpr std::string_view kNoMatch = "[^\\s\\S]";

// The server dialect's LIKE pattern (%, _, [abc], [a-z], [^…], an escape character) as an
// anchored regular expression that the server matches without regard to case. Trailing blanks
// of the pattern do not count. The same conversion as the runtime's bd_like.
std::string like_regex(std::string_view pattern, bool has_escape, std::uint32_t escape) {
    while (!pattern.empty() && pattern.back() == ' ')
        pattern.remove_suffix(1);
    std::string out = "^";
    std::size_t i = 0;
    while (i < pattern.size()) {
        const std::uint32_t c = next_char(pattern, i);
        if (has_escape && c == escape) {
            if (i >= pattern.size()) return std::string(kNoMatch);
            regex_char(out, next_char(pattern, i));
            continue;
        }
        if (c == '%') {
            out.append(".*");
            continue;
        }
        if (c == '_') {
            out.push_back('.');
            continue;
        }
        if (c != '[') {
            regex_char(out, c);
            continue;
        }
        // A class, up to the first ']' that is not its first member; unclosed, a plain '['.
        std::size_t j = i;
        bool negate = false;
        if (j < pattern.size() && pattern[j] == '^') {
            negate = true;
            ++j;
        }
        std::string members;
        bool closed = false;
        bool first = true;
        while (j < pattern.size()) {
            if (pattern[j] == ']' && !first) {
                ++j;
                closed = true;
                break;
            }
            first = false;
            // Letters compare without regard to case, so a range is one of lower-case letters.
            const std::uint32_t lo = fold(next_char(pattern, j));
            std::uint32_t hi = lo;
            if (j + 1 < pattern.size() && pattern[j] == '-' && pattern[j + 1] != ']') {
                ++j;
                hi = fold(next_char(pattern, j));
            }
            if (lo > hi) continue;  // an empty range holds nothing
            regex_char(members, lo);
            if (hi != lo) {
                members.push_back('-');
                regex_char(members, hi);
            }
        }
        if (!closed) {
            regex_char(out, '[');
            continue;
        }
        i = j;
        if (members.empty()) {
            if (negate) {
                out.push_back('.');
            } else {
                out.append(kNoMatch);
            }
            continue;
        }
        out.push_back('[');
        if (negate) out.push_back('^');
        out.append(members);
        out.push_back(']');
    }
    out.push_back('$');
    return out;
}

// ---- update and delete through a join ---------------------------------------------------

bool holds(const TableSource& s, const TableRef* target) {
    if (s.type != NodeType::Join) return &s == target;
    const auto& j = s.as<Join>();
    return holds(*j.left, target) || holds(*j.right, target);
}

// The FROM of `update t1 … from T t1 join …` (or of the delete) without the target's item t1,
// when inner and cross joins alone join it: `others` gets the other items in order, `conditions`
// the join conditions that go to the WHERE. False when an outer join holds t1.
bool split_target(const TableSource& s, const TableRef* target,
                  std::vector<const TableSource*>& others, std::vector<const Expr*>& conditions) {
    if (s.type == NodeType::Join) {
        const auto& j = s.as<Join>();
        if (j.kind == JoinKind::Inner || j.kind == JoinKind::Cross) {
            if (!split_target(*j.left, target, others, conditions) ||
                !split_target(*j.right, target, others, conditions))
                return false;
            if (j.on) conditions.push_back(j.on);
            return true;
        }
        if (holds(s, target)) return false;
    }
    if (&s != target) others.push_back(&s);
    return true;
}

bool split_target(const List<TableSource*>& from, const TableRef* target,
                  std::vector<const TableSource*>& others, std::vector<const Expr*>& conditions) {
    for (const TableSource* s : from)
        if (!split_target(*s, target, others, conditions)) return false;
    return true;
}

// ---- the hooks -----------------------------------------------------------------------------

class PostgresHooks final : public EngineHooks {
  public:
    explicit PostgresHooks(const Catalog& catalog) : catalog_(catalog) {}

    void name(Emitter& em, std::string_view n) const override {
        if (plain_name(n)) {
            em.text(n);
            return;
        }
        // Quoted, the server keeps the case: the lower case that an unquoted name would fold to.
        em.ch('"');
        for (char c : n) {
            if (c == '"') em.ch('"');
            em.ch(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
        }
        em.ch('"');
    }

    void string_literal(Emitter& em, const LiteralExpr& l) const override {
        std::string_view t = l.text;
        if (l.kind == LiteralExpr::Kind::NString) t.remove_prefix(1);
        em.text(t);
    }

    void parameter(Emitter& em, std::size_t number, const LiteralExpr& l) const override {
        em.ch('$');
        em.text(std::to_string(number));
        // Numbers are typed as the literal would be; texts stay of unknown type, so that the
        // server reads each as the place it stands in needs (a text column, a date, a number).
        if (l.kind == LiteralExpr::Kind::Integer) em.text("::bigint");
        if (l.kind == LiteralExpr::Kind::Decimal) em.text("::numeric");
    }

    void result_alias(Emitter& em, std::string_view alias, bool top_level) const override {
        if (top_level) {
            em.quoted_name(alias);
        } else {
            name(em, alias);
        }
    }

    void result_ref(Emitter& em, const ColumnRef& ref, bool top_level) const override {
        if (top_level) {
            em.quoted_name(ref.result_name.empty() ? ref.name : ref.result_name);
        } else {
            name(em, ref.name);
        }
    }

    // The statement's own `*` lists the columns, each named as the catalogue spells it.
    void star(Emitter& em, const Star& star, const QuerySpec& q, bool top_level) const override {
        if (!top_level) {
            EngineHooks::star(em, star, q, top_level);
            return;
        }
        bool any = false;
        auto column = [&](std::string_view exposed, std::string_view col) {
            if (any) em.text(", ");
            any = true;
            name(em, exposed);
            em.ch('.');
            name(em, col);
            em.text(" AS ");
            em.quoted_name(col);
        };
        auto walk = [&](auto& self, const TableSource* s) -> void {
            if (s->is<Join>()) {
                self(self, s->as<Join>().left);
                self(self, s->as<Join>().right);
                return;
            }
            if (!star.qualifier.empty() && !iequals(s->exposed, star.qualifier)) return;
            if (s->is<TableRef>()) {
                for (const std::string& col : catalog_.columns(s->as<TableRef>().name))
                    column(s->exposed, col);
            } else if (s->is<DerivedTable>()) {
                for (const OutputColumn& col : s->as<DerivedTable>().columns)
                    column(s->exposed, col.name);
            }
        };
        for (const TableSource* s : q.from)
            walk(walk, s);
        if (!any) EngineHooks::star(em, star, q, top_level);
    }

    void limited_member_end(Emitter& em) const override { em.text(") AS bd_top"); }

    bool groups_by_text() const override { return true; }

    // Whole numbers in parameters are bigint, so arithmetic on them would widen; int columns
    // are int4, which would overflow before the check: the left operand is widened.
    std::string_view range_check() const override { return names::kRange; }
    std::string_view range_check_operand() const override { return "::bigint"; }
    // int, smallint and tinyint arithmetic gives an int4 again, which divides as a whole number
    // and sums to a bigint, as before the check.
    std::string_view range_check_result(SqlBase type) const override {
        return type == SqlBase::BigInt ? std::string_view() : std::string_view("::int");
    }

    // A text goes in with its own type (text, or a column's bpchar); anything else as text.
    std::string_view fit_check() const override { return names::kFit; }
    std::string_view fit_check_operand() const override { return "::text"; }

    // A function's text is of type text, whose comparison keeps trailing blanks and cannot use a
    // text column's index: it compares as bd_text.
    bool collates_computed_text() const override { return true; }

    // ---- values as the runtime's functions take them ----

    static void cast(Emitter& em, const Expr& e, std::string_view type) {
        em.text("CAST(");
        em.expr(e);
        em.text(" AS ");
        em.text(type);
        em.ch(')');
    }

    // A value as text, numbers in their shortest form (no trailing zeros of a decimal column).
    static void text_arg(Emitter& em, const Expr& e) {
        if (e.vtype == ColumnType::Real) {
            em.text("CAST(trim_scale(CAST(");
            em.expr(e);
            em.text(" AS numeric)) AS text)");
        } else {
            cast(em, e, "text");
        }
    }

    // A value as a timestamp: a date as it is, a text read in the forms the server dialect
    // reads, a number as days since 1900-01-01.
    static void date_arg(Emitter& em, const Expr& e) {
        switch (e.vtype) {
            case ColumnType::Date:
                em.expr(e);
                return;
            case ColumnType::Integer:
            case ColumnType::Real:
                em.text(names::kDateFromDays);
                em.ch('(');
                cast(em, e, "numeric");
                em.ch(')');
                return;
            default:
                if (is_null(e)) {
                    em.text("CAST(NULL AS timestamp)");
                    return;
                }
                em.text(names::kDateTime);
                em.ch('(');
                cast(em, e, "text");
                em.ch(')');
                return;
        }
    }

    // A number argument; a text is read as the number it holds.
    static void number_arg(Emitter& em, const Expr& e) {
        if (e.vtype == ColumnType::Text) {
            em.text(names::kNumber);
            em.ch('(');
            cast(em, e, "text");
            em.ch(')');
        } else {
            em.expr(e);
        }
    }

    void texts_call(Emitter& em, std::string_view fn, const List<Expr*>& args,
                    std::size_t texts) const {
        em.text(fn);
        em.ch('(');
        for (std::size_t i = 0; i < args.size(); ++i) {
            if (i) em.text(", ");
            if (i < texts) {
                text_arg(em, *args[i]);
            } else {
                number_arg(em, *args[i]);
            }
        }
        em.ch(')');
    }

    void function(Emitter& em, const Function& f) const override {
        switch (f.func) {
            case Func::IsNull:
            case Func::Coalesce:
                em.text("coalesce(");
                for (std::size_t i = 0; i < f.args.size(); ++i) {
                    if (i) em.text(", ");
                    // ISNULL's value has the first argument's type: a text cut to its length, a
                    // number written as that text.
                    const SqlType& to = f.args[0]->sql;
                    const SqlType& from = f.args[i]->sql;
                    if (const NumberTextForm form = number_text_form(from, -1);
                        f.func == Func::IsNull && i > 0 && to.is_text() && form.kind) {
                        number_text(em, *f.args[i], form, text_type_name(to),
                                    to.length > 0 ? to.length : -1);
                        continue;
                    }
                    const bool cut =
                        f.func == Func::IsNull && i > 0 && to.is_text() && to.length > 0 &&
                        f.args[i]->vtype != ColumnType::Date &&
                        !(from.is_text() && from.length > 0 && from.length <= to.length);
                    if (cut) em.text("left((");
                    converted(em, *f.args[i], f.vtype);
                    if (cut) em.text(")::text, " + std::to_string(to.length) + ")");
                }
                em.ch(')');
                return;
            case Func::NullIf: {
                em.text("nullif(");
                em.expr(*f.args[0]);
                em.text(", ");
                const bool text =
                    f.args[0]->vtype == ColumnType::Text || f.args[1]->vtype == ColumnType::Text;
                em.compared(
                    *f.args[1], text ? CompareKind::Text : CompareKind::Plain,
                    text && Emitter::needs_collation(*f.args[0], *f.args[1], CompareKind::Text),
                    kOutOr);
                em.ch(')');
                return;
            }
            case Func::GetDate:
                em.text("localtimestamp(3)");
                return;
            case Func::Year:
            case Func::Month:
            case Func::Day:
                em.text(names::kDatePart);
                em.ch('(');
                em.quoted_text(f.func == Func::Year    ? names::part::kYear
                               : f.func == Func::Month ? names::part::kMonth
                                                       : names::part::kDay);
                em.text(", ");
                date_arg(em, *f.args[0]);
                em.ch(')');
                return;
            case Func::DatePart:
                em.text(names::kDatePart);
                em.ch('(');
                em.quoted_text(date_part_name(f.part));
                em.text(", ");
                date_arg(em, *f.args[0]);
                em.ch(')');
                return;
            case Func::DateAdd:
                em.text(names::kDateAdd);
                em.ch('(');
                em.quoted_text(date_part_name(f.part));
                em.text(", ");
                number_arg(em, *f.args[0]);
                em.text(", ");
                date_arg(em, *f.args[1]);
                em.ch(')');
                return;
            case Func::DateDiff:
                em.text(names::kDateDiff);
                em.ch('(');
                em.quoted_text(date_part_name(f.part));
                em.text(", ");
                date_arg(em, *f.args[0]);
                em.text(", ");
                date_arg(em, *f.args[1]);
                em.ch(')');
                return;
            case Func::Len:
                // Trailing blanks do not count.
                em.text("length(rtrim(");
                text_arg(em, *f.args[0]);
                em.text(", ' '))");
                return;
            case Func::Left:
                texts_call(em, names::kLeft, f.args, 1);
                return;
            case Func::Right:
                texts_call(em, names::kRight, f.args, 1);
                return;
            case Func::Substring:
                texts_call(em, names::kSubstring, f.args, 1);
                return;
            case Func::CharIndex:
                texts_call(em, names::kCharIndex, f.args, 2);
                return;
            case Func::Replace:
                texts_call(em, names::kReplace, f.args, 3);
                return;
            case Func::LTrim:
            case Func::RTrim:
                em.text(f.func == Func::LTrim ? "ltrim(" : "rtrim(");
                text_arg(em, *f.args[0]);
                em.text(", ' ')");
                return;
            case Func::Upper:
            case Func::Lower:
                texts_call(em, f.func == Func::Upper ? "upper" : "lower", f.args, 1);
                return;
            case Func::Round: {
                // Rounds (or cuts, with a third argument other than 0) at a decimal place; a
                // whole number stays a whole number.
                const bool whole = f.args[0]->vtype == ColumnType::Integer;
                if (whole) em.text("CAST(");
                em.text(names::kRound);
                em.text("(CAST(");
                if (f.args[0]->vtype == ColumnType::Text) {
                    em.text(names::kFloat);
                    em.ch('(');
                    cast(em, *f.args[0], "text");
                    em.ch(')');
                } else {
                    em.expr(*f.args[0]);
                }
                em.text(" AS numeric), ");
                em.expr(*f.args[1]);
                em.text(", ");
                if (f.args.size() > 2) {
                    em.expr(*f.args[2]);
                } else {
                    em.ch('0');
                }
                em.ch(')');
                if (whole) em.text(" AS bigint)");
                return;
            }
            case Func::Abs:
                em.text("abs(");
                number_arg(em, *f.args[0]);
                em.ch(')');
                return;
            case Func::Floor:
            case Func::Ceiling: {
                const char* fn = f.func == Func::Floor ? "floor(" : "ceiling(";
                switch (f.args[0]->vtype) {
                    case ColumnType::Integer:
                        em.expr(*f.args[0]);
                        return;
                    case ColumnType::Real:
                        em.text(fn);
                        em.expr(*f.args[0]);
                        em.ch(')');
                        return;
                    case ColumnType::Text:
                        em.text(fn);
                        em.text(names::kFloat);
                        em.ch('(');
                        cast(em, *f.args[0], "text");
                        em.text("))");
                        return;
                    default:
                        em.text(fn);
                        cast(em, *f.args[0], "numeric");
                        em.ch(')');
                        return;
                }
            }
            case Func::Replicate:
                texts_call(em, names::kReplicate, f.args, 1);
                return;
            case Func::Space:
                em.text(names::kReplicate);
                em.text("(' ', ");
                number_arg(em, *f.args[0]);
                em.ch(')');
                return;
            case Func::Reverse:
                texts_call(em, "reverse", f.args, 1);
                return;
            case Func::Str:
                // A float; the length (10 unless given) and the decimal (0) as whole numbers.
                em.text(names::kStr);
                em.ch('(');
                if (f.args[0]->vtype == ColumnType::Text) {
                    em.text(names::kFloat);
                    em.ch('(');
                    text_arg(em, *f.args[0]);
                    em.ch(')');
                } else {
                    cast(em, *f.args[0], "float8");
                }
                for (std::size_t i = 1; i < 3; ++i) {
                    em.text(", ");
                    if (i >= f.args.size()) {
                        em.text(i == 1 ? "10" : "0");
                    } else if (f.args[i]->vtype == ColumnType::Integer) {
                        cast(em, *f.args[i], "int");
                    } else {
                        em.text("CAST(trunc(");
                        if (f.args[i]->vtype == ColumnType::Text) {
                            number_arg(em, *f.args[i]);
                        } else {
                            cast(em, *f.args[i], "numeric");
                        }
                        em.text(") AS int)");
                    }
                }
                em.ch(')');
                return;
            case Func::Stuff:
                em.text(names::kStuff);
                em.ch('(');
                text_arg(em, *f.args[0]);
                em.text(", ");
                number_arg(em, *f.args[1]);
                em.text(", ");
                number_arg(em, *f.args[2]);
                em.text(", ");
                text_arg(em, *f.args[3]);
                em.ch(')');
                return;
            case Func::DataLength: {
                const Expr& a = *f.args[0];
                if (const char* size = stored_size(a.vtype)) {
                    em.text("CASE WHEN ");
                    em.operand(a, kOutEquality);
                    em.text(" IS NULL THEN NULL ELSE ");
                    em.text(size);
                    em.text(" END");
                    return;
                }
                // A text's bytes: its UTF-8 length (the server counts its own code page). A text
                // column keeps its trailing blanks, which a cast to text would drop.
                em.text("octet_length(");
                if (a.is<ColumnRef>() && a.vtype == ColumnType::Text) {
                    em.expr(a);
                } else {
                    text_arg(em, a);
                }
                em.ch(')');
                return;
            }
            case Func::DateName:
                em.date_name(f.part, "text", [&] {
                    em.text(names::kDatePart);
                    em.ch('(');
                    em.quoted_text(date_part_name(f.part));
                    em.text(", ");
                    date_arg(em, *f.args[0]);
                    em.ch(')');
                });
                return;
            case Func::PatIndex:
                texts_call(em, names::kPatIndex, f.args, 2);
                return;
            case Func::IsDate:
                texts_call(em, names::kIsDate, f.args, 1);
                return;
            case Func::Power: {
                // A whole base gives a whole power, cut towards zero (2 ^ -1 is 0).
                const bool whole = f.vtype == ColumnType::Integer;
                em.text(whole ? "CAST(trunc(" : "CAST(");
                em.text("power(CAST(");
                number_arg(em, *f.args[0]);
                em.text(" AS float8), CAST(");
                number_arg(em, *f.args[1]);
                em.text(" AS float8))");
                em.text(whole ? ") AS bigint)" : " AS numeric)");
                return;
            }
            case Func::RowNumber:
            case Func::Rank:
            case Func::DenseRank:
                em.ranking(f);
                return;
            case Func::Ntile:
            case Func::Lag:
            case Func::Lead:
            case Func::FirstValue:
            case Func::LastValue:
                em.window_function(f);
                return;
            case Func::Count:
            case Func::Sum:
            case Func::Max:
            case Func::Min:
            case Func::Avg: {
                // The average of decimals is their sum divided by their count, cut at the
                // dialect's scale as a quotient is.
                int p = 0, s = 0;
                if (f.func == Func::Avg && !f.args.empty() && !f.over && is_scaled(f.sql) &&
                    is_scaled(f.args[0]->sql) && decimal_digits(f.sql, p, s)) {
                    em.text(names::kDecimalDivide);
                    em.text("(sum(");
                    if (f.distinct) em.text("DISTINCT ");
                    em.expr(*f.args[0]);
                    em.text("), count(");
                    if (f.distinct) em.text("DISTINCT ");
                    em.expr(*f.args[0]);
                    em.text("), 38, ");
                    em.text(std::to_string(s));
                    em.ch(')');
                    return;
                }
                if (f.func == Func::Sum &&
                    (f.sql.base == SqlBase::Money || f.sql.base == SqlBase::SmallMoney)) {
                    money_check(em, SqlType::of(SqlBase::Money), [&] { em.aggregate(f); });
                    return;
                }
                // The average of whole numbers is a whole number, cut towards zero.
                const bool int_avg = f.func == Func::Avg && f.args[0]->vtype == ColumnType::Integer;
                if (int_avg) em.text("CAST(trunc(");
                em.aggregate(f);
                if (int_avg) em.text(") AS bigint)");
                return;
            }
        }
    }

    void cast(Emitter& em, const Cast& c) const override {
        const Expr& e = *c.expr;
        const bool number = e.vtype == ColumnType::Integer || e.vtype == ColumnType::Real;
        switch (c.target.base) {
            case TypeSpec::Base::Integer:
                if (e.vtype == ColumnType::Real) {
                    // Cut towards zero, not rounded.
                    em.text("CAST(trunc(");
                    em.expr(e);
                    em.text(c.target.sql.base == SqlBase::BigInt ? ") AS bigint)" : ") AS int)");
                } else if (e.vtype == ColumnType::Text || e.vtype == ColumnType::Date) {
                    em.text(names::kInt);
                    em.ch('(');
                    text_arg(em, e);
                    em.ch(')');
                } else {
                    cast(em, e, c.target.sql.base == SqlBase::BigInt ? "bigint" : "int");
                }
                return;
            case TypeSpec::Base::Bit:
                if (number) {
                    em.text("CAST(");
                    em.operand(e, kOutRelation + 1);
                    em.text(" <> 0 AS int)");
                } else if (is_null(e)) {
                    cast(em, e, "int");
                } else {
                    em.text(names::kBit);
                    em.ch('(');
                    text_arg(em, e);
                    em.ch(')');
                }
                return;
            case TypeSpec::Base::Float:
                if (e.vtype == ColumnType::Text || e.vtype == ColumnType::Date) {
                    em.text(names::kFloat);
                    em.ch('(');
                    text_arg(em, e);
                    em.ch(')');
                } else {
                    cast(em, e, "float8");
                }
                return;
            case TypeSpec::Base::Decimal:
                if (e.vtype == ColumnType::Text) {
                    em.text_number_call(names::kTextNumber, c.target.sql,
                                        [&] { cast(em, e, "text"); });
                    return;
                }
                if (e.vtype != ColumnType::Date && !fits_scaled(e.sql, c.target.sql)) {
                    // Rounded and checked against the type's precision or money's range.
                    int p = 0, s = 0;
                    decimal_digits(c.target.sql, p, s);
                    em.text(names::kDecimalCast);
                    em.ch('(');
                    cast(em, e, "numeric");
                    em.text(", " + std::to_string(p) + ", " + std::to_string(s) + ", ");
                    em.quoted_text(overflow_source_name(e.sql));
                    em.text(", ");
                    em.quoted_text(c.target.sql.base == SqlBase::Money        ? "money"
                                   : c.target.sql.base == SqlBase::SmallMoney ? "smallmoney"
                                                                              : "numeric");
                    em.ch(')');
                    return;
                }
                em.text("round(");
                if (e.vtype == ColumnType::Text || e.vtype == ColumnType::Date) {
                    em.text(names::kNumber);
                    em.ch('(');
                    text_arg(em, e);
                    em.ch(')');
                } else {
                    cast(em, e, "numeric");
                }
                em.text(", ");
                em.text(std::to_string(c.target.scale));
                em.ch(')');
                return;
            case TypeSpec::Base::DateTime:
            case TypeSpec::Base::Date: {
                const bool date = c.target.base == TypeSpec::Base::Date;
                if (date) em.text("CAST(");
                int digits = 0;
                const char* order = day_first_order(c.style, digits);
                if (order && e.vtype != ColumnType::Date && !is_null(e)) {
                    em.text(names::kDateTime);
                    em.text("(");
                    em.text(names::kYearFirst);
                    em.ch('(');
                    cast(em, e, "text");
                    em.text(", '");
                    em.text(order);
                    em.text("', ");
                    em.text(std::to_string(digits));
                    em.text("))");
                } else {
                    date_arg(em, e);
                }
                if (date) em.text(" AS date)");
                return;
            }
            case TypeSpec::Base::Text:
            case TypeSpec::Base::FixedText: {
                // Without a length the server dialect makes it 30 characters.
                const int length = c.target.length == -1   ? 30
                                   : c.target.length == -2 ? -1
                                                           : c.target.length;
                if (const NumberTextForm form = number_text_form(e.sql, c.style); form.kind) {
                    number_text(em, e, form, text_type_name(c.target.sql), length);
                    return;
                }
                const bool pad = c.target.base == TypeSpec::Base::FixedText;
                if (length >= 0) em.text(pad ? "rpad(" : "left(");
                if (e.vtype == ColumnType::Date) {
                    em.text(names::kDateText);
                    em.ch('(');
                    em.expr(e);
                    em.text(", ");
                    em.text(std::to_string(c.style < 0 ? 0 : c.style));
                    em.ch(')');
                } else {
                    text_arg(em, e);
                }
                if (length >= 0) {
                    em.text(", ");
                    em.text(std::to_string(length));
                    em.ch(')');
                }
                return;
            }
        }
    }

    void number_text(Emitter& em, const Expr& e, const NumberTextForm& form,
                     std::string_view target, int length) const override {
        // The number in the kind the runtime's function takes it.
        const bool floating = e.sql.base == SqlBase::Float || e.sql.base == SqlBase::Real;
        em.number_text_call(names::kNumberText, form, target, length,
                            [&] { cast(em, e, floating ? "float8" : "numeric"); });
    }

    // A number for `+` decided by the operand types: a text is read as a whole number next to a
    // whole number, as a float otherwise.
    static void added(Emitter& em, const Expr& e, const Expr& other) {
        if (e.vtype == ColumnType::Text) {
            em.text(other.vtype == ColumnType::Integer ? names::kInt : names::kFloat);
            em.ch('(');
            cast(em, e, "text");
            em.ch(')');
        } else if (is_null(e) || e.vtype == ColumnType::Unknown) {
            cast(em, e, "numeric");
        } else {
            em.operand(e, kOutAdd + 1);
        }
    }

    void arithmetic(Emitter& em, const Binary& b) const override {
        switch (b.op) {
            case BinaryOp::Add:
            case BinaryOp::Sub:
                switch (b.arith) {
                    case ArithKind::Concat:
                        // The server's || binds looser than + and *: always in parentheses.
                        em.ch('(');
                        em.operand(*b.lhs, kOutConcat);
                        em.text(" || ");
                        em.operand(*b.rhs, kOutConcat + 1);
                        em.ch(')');
                        return;
                    case ArithKind::DateDays: {
                        const Expr& date = b.date_on_right ? *b.rhs : *b.lhs;
                        const Expr& days = b.date_on_right ? *b.lhs : *b.rhs;
                        em.text(names::kDateAdd);
                        em.ch('(');
                        em.quoted_text(names::part::kDays);
                        em.text(", ");
                        if (b.op == BinaryOp::Sub) em.text("-(");
                        number_arg(em, days);
                        if (b.op == BinaryOp::Sub) em.ch(')');
                        em.text(", ");
                        em.expr(date);
                        em.ch(')');
                        return;
                    }
                    case ArithKind::ByValue:
                        // Every column has a type here: a text with a number is read as a number.
                        em.ch('(');
                        added(em, *b.lhs, *b.rhs);
                        em.text(b.op == BinaryOp::Add ? " + " : " - ");
                        added(em, *b.rhs, *b.lhs);
                        em.ch(')');
                        return;
                    case ArithKind::Numeric:
                        break;
                }
                em.operand(*b.lhs, kOutAdd);
                em.text(b.op == BinaryOp::Add ? " + " : " - ");
                em.operand(*b.rhs, kOutAdd + 1);
                return;
            case BinaryOp::Div:
                // Whole numbers divide as whole numbers, and a zero divisor is an error, as
                // the server dialect has them.
                em.operand(*b.lhs, kOutMul);
                em.text(" / ");
                em.operand(*b.rhs, kOutMul + 1);
                return;
            case BinaryOp::Mod:
                if (b.lhs->vtype == ColumnType::Integer && b.rhs->vtype == ColumnType::Integer) {
                    em.operand(*b.lhs, kOutMul);
                    em.text(" % ");
                    em.operand(*b.rhs, kOutMul + 1);
                } else {
                    cast(em, *b.lhs, "numeric");
                    em.text(" % ");
                    cast(em, *b.rhs, "numeric");
                }
                return;
            case BinaryOp::BitXor:
                em.ch('(');
                em.operand(*b.lhs, kOutUnary);
                em.text(" # ");
                em.operand(*b.rhs, kOutUnary);
                em.ch(')');
                return;
            default:
                throw std::logic_error("not an engine-specific operator");
        }
    }

    // Numeric arithmetic is exact here and keeps the server dialect's scales for + - * %; a
    // quotient is cut at the dialect's scale, a result with more places than its type keeps is
    // rounded, and one whose type reached 38 digits is checked against them.
    bool decimal_arithmetic(Emitter& em, const Binary& b) const override {
        if (b.sql.base != SqlBase::Money && b.sql.base != SqlBase::SmallMoney)
            return scaled_arithmetic(em, b);
        // A money result is checked against money's range.
        money_check(em, b.sql, [&] {
            if (scaled_arithmetic(em, b)) return;
            decimal_operand(em, *b.lhs);
            em.text(operator_text(b.op));
            decimal_operand(em, *b.rhs);
        });
        return true;
    }

    // The operator of exact arithmetic other than a quotient, between its spaces.
    static const char* operator_text(BinaryOp op) {
        return op == BinaryOp::Add   ? " + "
               : op == BinaryOp::Sub ? " - "
               : op == BinaryOp::Mul ? " * "
                                     : " % ";
    }

    // A money or smallmoney value, rounded to its 4 places, beyond the type's range is the
    // dialect's overflow.
    static void money_check(Emitter& em, const SqlType& type, const std::function<void()>& value) {
        em.text(names::kDecimalCast);
        em.ch('(');
        value();
        em.text(type.base == SqlBase::Money ? ", 19, 4, 'expression', 'money')"
                                            : ", 10, 4, 'expression', 'smallmoney')");
    }

    bool scaled_arithmetic(Emitter& em, const Binary& b) const {
        int precision = 0, scale = 0;
        if (!decimal_digits(b.sql, precision, scale)) return false;
        const auto tail = [&] {
            em.text(", ");
            em.text(std::to_string(precision));
            em.text(", ");
            em.text(std::to_string(scale));
            em.ch(')');
        };
        if (b.rounding == DecimalRounding::Truncate) {
            // A money quotient is checked against money's range around it, not its digits.
            if (b.sql.base != SqlBase::Decimal) precision = 38;
            em.text(names::kDecimalDivide);
            em.text("(");
            decimal_operand(em, *b.lhs);
            em.text(", ");
            decimal_operand(em, *b.rhs);
            tail();
            return true;
        }
        const bool checked = precision == 38;
        const bool rounded = b.rounding == DecimalRounding::Round;
        if (!checked && !rounded) return false;
        if (checked) {
            em.text(names::kDecimalCheck);
            em.ch('(');
        }
        if (rounded) em.text("round(");
        decimal_operand(em, *b.lhs);
        em.text(operator_text(b.op));
        decimal_operand(em, *b.rhs);
        if (rounded) {
            em.text(", ");
            em.text(std::to_string(scale));
            em.ch(')');
        }
        if (checked) tail();
        return true;
    }

    // An operand of decimal arithmetic as a numeric.
    static void decimal_operand(Emitter& em, const Expr& e) {
        if (e.vtype == ColumnType::Integer || e.vtype == ColumnType::Real) {
            em.operand(e, kOutMul + 1);
        } else {
            cast(em, e, "numeric");
        }
    }

    void like(Emitter& em, const Like& l) const override {
        if (l.negated) em.text("NOT (");
        // A pattern written as a literal stays out of the parameters: each pattern is a
        // statement of its own, matched by a regular expression made now.
        const auto* pattern =
            l.pattern->is<LiteralExpr>() ? &l.pattern->as<LiteralExpr>() : nullptr;
        const auto* escape =
            l.escape && l.escape->is<LiteralExpr>() ? &l.escape->as<LiteralExpr>() : nullptr;
        bool fixed =
            pattern && pattern->is_string() && (!l.escape || (escape && escape->is_string()));
        std::uint32_t escape_char = 0;
        if (fixed && escape) {
            const std::string e = escape->string_value();
            std::size_t i = 0;
            if (!e.empty()) escape_char = next_char(e, i);
            fixed = !e.empty() && i == e.size();  // else the runtime raises the server's error
        }
        if (fixed) {
            // A pattern known now is a regular expression now. The value's collation ignores
            // case but cannot match patterns; the expression ignores case itself.
            em.text("rtrim(");
            text_arg(em, *l.expr);
            em.text(", ' ') COLLATE \"default\" ~* ");
            em.quoted_text(like_regex(pattern->string_value(), escape != nullptr, escape_char));
        } else {
            em.text(names::kLike);
            em.ch('(');
            text_arg(em, *l.expr);
            em.text(", ");
            text_arg(em, *l.pattern);
            if (l.escape) {
                em.text(", ");
                text_arg(em, *l.escape);
            }
            em.ch(')');
        }
        if (l.negated) em.ch(')');
    }

    // Converted as the server dialect converts to the type of a result or a column: a text
    // to a number ('' is 0) or to a date ('' is 1900-01-01), a number to a date.
    void converted(Emitter& em, const Expr& e, ColumnType to) const override {
        if (to == ColumnType::Date && e.vtype != ColumnType::Date && !is_null(e)) {
            date_arg(em, e);
        } else if ((to == ColumnType::Integer || to == ColumnType::Real) &&
                   e.vtype == ColumnType::Text) {
            em.text(to == ColumnType::Integer ? names::kInt : names::kNumber);
            em.ch('(');
            cast(em, e, "text");
            em.ch(')');
        } else {
            em.expr(e);
        }
    }

    // A text compared with a number is read as a number of the number's kind, as the server
    // dialect converts by type precedence ('' is 0).
    bool plain_compared(Emitter& em, const Expr& e, const Expr& other) const override {
        const bool number = other.vtype == ColumnType::Integer || other.vtype == ColumnType::Real;
        if (e.vtype != ColumnType::Text || !number) return false;
        em.text(other.vtype == ColumnType::Integer ? names::kInt : names::kNumber);
        em.ch('(');
        cast(em, e, "text");
        em.ch(')');
        return true;
    }

    void collation(Emitter& em, CompareKind kind) const override {
        // Timestamps compare chronologically by themselves.
        if (kind == CompareKind::Text) em.text("::bd_text");
    }

    // This engine puts NULLs above every value by default.
    void null_order(Emitter& em, bool desc) const override {
        em.text(desc ? " NULLS LAST" : " NULLS FIRST");
    }

    void limit(Emitter& em, long long count) const override {
        em.text(" LIMIT ");
        em.text(std::to_string(count));
    }

    void offset(Emitter& em, long long offset, long long fetch) const override {
        if (fetch >= 0) {
            em.text(" LIMIT ");
            em.text(std::to_string(fetch));
        }
        em.text(" OFFSET ");
        em.text(std::to_string(offset));
    }

    void date_value(Emitter& em, const Expr& value) const override { date_arg(em, value); }

    void set_list(Emitter& em, const Update& u) const {
        for (std::size_t i = 0; i < u.sets.size(); ++i) {
            if (i) em.text(", ");
            const SetItem& item = u.sets[i];
            em.name(item.column);
            em.text(" = ");
            const Expr& v = *item.value;
            const std::string_view table = u.target_source ? u.target_source->name : u.target->name;
            if (em.fitted(v, item.fit, table, item.column, item.national)) continue;
            converted(em, v, item.type);
        }
    }

    void update(Emitter& em, const Update& u) const override {
        em.text("UPDATE ");
        if (u.target_source == nullptr) {
            em.name(u.target->name);
            em.text(" SET ");
            set_list(em, u);
            if (!u.from.empty()) {
                em.text(" FROM ");
                em.sources(u.from);
            }
            if (u.where) {
                em.text(" WHERE ");
                em.expr(*u.where);
            }
            return;
        }
        // `update t1 set … from T t1 join …` with inner joins: T itself under the name t1, the
        // other items its FROM and the join conditions part of its WHERE. The set expressions
        // then read the target row, whose values are those before the update; and when another
        // writer changes the row meanwhile, the server waits for it and updates the row as that
        // writer left it (a second copy of T in the FROM would keep the old row, and the update
        // would overwrite the other writer's change or miss the row).
        std::vector<const TableSource*> others;
        std::vector<const Expr*> conditions;
        if (split_target(u.from, u.target_source, others, conditions)) {
            target_as(em, *u.target_source);
            em.text(" SET ");
            set_list(em, u);
            from_and_where(em, " FROM ", others, conditions, u.where);
            return;
        }
        // Outer joins around t1: the rows of T that t1 reads, matched by their row identity
        // (the server's joins cannot name the target itself).
        em.name(u.target_source->name);
        em.text(" AS bd_target SET ");
        set_list(em, u);
        em.text(" FROM ");
        em.sources(u.from);
        em.text(" WHERE bd_target.ctid = ");
        em.name(u.target_source->exposed);
        em.text(".ctid");
        if (u.where) {
            em.text(" AND (");
            em.expr(*u.where);
            em.ch(')');
        }
    }

    void remove(Emitter& em, const Delete& d) const override {
        if (d.from.empty()) {
            em.plain_delete(d);
            return;
        }
        em.text("DELETE FROM ");
        if (d.target_source == nullptr) {
            // The target is a table of its own, joined to the FROM by the WHERE.
            em.name(d.target->name);
            em.text(" USING ");
            em.sources(d.from);
            if (d.where) {
                em.text(" WHERE ");
                em.expr(*d.where);
            }
            return;
        }
        // `delete t1 from T t1 join …`: the rows of T that t1 reads where the join and the WHERE
        // keep them; with inner joins, T itself under the name t1, for the reason an update is.
        std::vector<const TableSource*> others;
        std::vector<const Expr*> conditions;
        if (split_target(d.from, d.target_source, others, conditions)) {
            target_as(em, *d.target_source);
            from_and_where(em, " USING ", others, conditions, d.where);
            return;
        }
        em.name(d.target_source->name);
        em.text(" AS bd_target USING ");
        em.sources(d.from);
        em.text(" WHERE bd_target.ctid = ");
        em.name(d.target_source->exposed);
        em.text(".ctid");
        if (d.where) {
            em.text(" AND (");
            em.expr(*d.where);
            em.ch(')');
        }
    }

    void truncate(Emitter& em, const Truncate& t) const override {
        // A table whose rows are counted is emptied row by row, so that the triggers keep the
        // count. Any other is truncated as SQL Server truncates: the table is locked until the
        // transaction ends, so a second writer that empties it waits for the first and then
        // sees what the first wrote (row by row, it would miss rows not yet committed and
        // clash on their keys).
        const bool counted = !catalog_.kept_row_count(t.table->name).empty();
        em.text(counted ? "DELETE FROM " : "TRUNCATE TABLE ");
        em.name(t.table->name);
    }

  private:
    static void target_as(Emitter& em, const TableRef& target) {
        em.name(target.name);
        if (!target.alias.empty()) {
            em.text(" AS ");
            em.name(target.alias);
        }
    }

    static void from_and_where(Emitter& em, const char* from_word,
                               const std::vector<const TableSource*>& others,
                               const std::vector<const Expr*>& conditions, const Expr* where) {
        for (std::size_t i = 0; i < others.size(); ++i) {
            em.text(i ? ", " : from_word);
            em.source(*others[i]);
        }
        std::size_t n = 0;
        for (const Expr* condition : conditions) {
            em.text(n++ ? " AND (" : " WHERE (");
            em.expr(*condition);
            em.ch(')');
        }
        if (where) {
            em.text(n++ ? " AND (" : " WHERE (");
            em.expr(*where);
            em.ch(')');
        }
    }

    const Catalog& catalog_;
};

}  // namespace

Translation translate_postgresql(std::string_view tsql, const Catalog& catalog,
                                 const TranslateOptions& options) {
    Arena arena;
    Parser parser(tsql, arena);
    Node* stmt = parser.parse_statement();
    Binder binder(catalog, arena);
    binder.bind_statement(*stmt);
    test_copies_too(*stmt, catalog, arena);

    Translation t;
    t.sql.reserve(tsql.size() * 2 + 32);
    const PostgresHooks hooks(catalog);
    Emitter emitter(hooks, t.sql);
    if (options.parameterise) emitter.parameterise(&t.parameters);
    if (!whole_table_aggregate(emitter, *stmt, catalog)) emitter.statement(*stmt);
    t.lockable_table = lockable_table(*stmt);
    t.kind = parser.kind();
    t.writes = t.kind != StatementKind::Select;
    t.literals = std::move(parser.literals());
    return t;
}

}  // namespace billdata::dialect
