// The SQLite hooks of the emitter. The runtime functions and collations it writes (named in
// runtime_names.h) are registered on every embedded connection by the SQLite driver, which gives
// them SQL Server's semantics.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "billdata/dialect/binder.h"
#include "billdata/dialect/dialect.h"
#include "billdata/dialect/emitter.h"
#include "billdata/dialect/parser.h"
#include "billdata/dialect/runtime_names.h"
#include "billdata/dialect/text_util.h"
#include "billdata/util/numbers.h"

namespace billdata::dialect {

namespace {

// SQLite's keywords, upper case and sorted: a name that is one must be quoted.
constexpr std::string_view kSqliteKeywords[] = {
    "ABORT",
    "ACTION",
    "ADD",
    "AFTER",
    "ALL",
    "ALTER",
    "ALWAYS",
    "ANALYZE",
    "AND",
    "AS",
    "ASC",
    "ATTACH",
    "AUTOINCREMENT",
    "BEFORE",
    "BEGIN",
    "BETWEEN",
    "BY",
    "CASCADE",
    "CASE",
    "CAST",
    "CHECK",
    "COLLATE",
    "COLUMN",
    "COMMIT",
    "CONFLICT",
    "CONSTRAINT",
    "CREATE",
    "CROSS",
    "CURRENT",
    "CURRENT_DATE",
    "CURRENT_TIME",
    "CURRENT_TIMESTAMP",
    "DATABASE",
    "DEFAULT",
    "DEFERRABLE",
    "DEFERRED",
    "DELETE",
    "DESC",
    "DETACH",
    "DISTINCT",
    "DO",
    "DROP",
    "EACH",
    "ELSE",
    "END",
    "ESCAPE",
    "EXCEPT",
    "EXCLUDE",
    "EXCLUSIVE",
    "EXISTS",
    "EXPLAIN",
    "FAIL",
    "FILTER",
    "FIRST",
    "FOLLOWING",
    "FOR",
    "FOREIGN",
    "FROM",
    "FULL",
    "GENERATED",
    "GLOB",
    "GROUP",
    "GROUPS",
    "HAVING",
    "IF",
    "IGNORE",
    "IMMEDIATE",
    "IN",
    "INDEX",
    "INDEXED",
    "INITIALLY",
    "INNER",
    "INSERT",
    "INSTEAD",
    "INTERSECT",
    "INTO",
    "IS",
    "ISNULL",
    "JOIN",
    "KEY",
    "LAST",
    "LEFT",
    "LIKE",
    "LIMIT",
    "MATCH",
    "MATERIALIZED",
    "NATURAL",
    "NO",
    "NOT",
    "NOTHING",
    "NOTNULL",
    "NULL",
    "NULLS",
    "OF",
    "OFFSET",
    "ON",
    "OR",
    "ORDER",
    "OTHERS",
    "OUTER",
    "OVER",
    "PARTITION",
    "PLAN",
    "PRAGMA",
    "PRECEDING",
    "PRIMARY",
    "QUERY",
    "RAISE",
    "RANGE",
    "RECURSIVE",
    "REFERENCES",
    "REGEXP",
    "REINDEX",
    "RELEASE",
    "RENAME",
    "REPLACE",
    "RESTRICT",
    "RETURNING",
    "RIGHT",
    "ROLLBACK",
    "ROW",
    "ROWS",
    "SAVEPOINT",
    "SELECT",
    "SET",
    "TABLE",
    "TEMP",
    "TEMPORARY",
    "THEN",
    "TIES",
    "TO",
    "TRANSACTION",
    "TRIGGER",
    "UNBOUNDED",
    "UNION",
    "UNIQUE",
    "UPDATE",
    "USING",
    "VACUUM",
    "VALUES",
    "VIEW",
    "VIRTUAL",
    "WHEN",
    "WHERE",
    "WINDOW",
    "WITH",
    "WITHOUT",
};
static_assert(std::is_sorted(std::begin(kSqliteKeywords), std::end(kSqliteKeywords)),
              "SQLite keywords must stay sorted for the binary search");

bool is_sqlite_keyword(std::string_view name) {
    if (name.size() < 2 || name.size() > 17) return false;
    char upper[18];
    for (std::size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        upper[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c;
    }
    return std::binary_search(std::begin(kSqliteKeywords), std::end(kSqliteKeywords),
                              std::string_view(upper, name.size()));
}

bool plain_name(std::string_view name) {
    return Emitter::identifier_chars(name) && !is_sqlite_keyword(name);
}

class SqliteHooks final : public EngineHooks {
  public:
    void name(Emitter& em, std::string_view n) const override {
        if (plain_name(n))
            em.text(n);
        else
            em.quoted_name(n);
    }

    void string_literal(Emitter& em, const LiteralExpr& l) const override {
        // N'…' and '…' are the same text here: the engine stores UTF-8 either way.
        std::string_view t = l.text;
        if (l.kind == LiteralExpr::Kind::NString) t.remove_prefix(1);
        em.text(t);
    }

    // The engine holds an exact number as a 64-bit integer or a double: a literal whose digits
    // neither holds would be computed with as another number, so it is refused instead.
    void number_literal(Emitter& em, const LiteralExpr& l) const override {
        if (!held_exactly(l.text))
            throw DialectError("the number " + std::string(l.text) + " at position " +
                                   std::to_string(l.pos) +
                                   " has more significant digits than the embedded engine holds "
                                   "exactly",
                               l.pos, "number of more than 15 significant digits");
        em.text(l.text);
    }

    static bool held_exactly(std::string_view t) {
        std::int64_t whole = 0;
        const auto w = std::from_chars(t.data(), t.data() + t.size(), whole);
        if (w.ec == std::errc() && w.ptr == t.data() + t.size()) return true;  // an integer
        double v = 0;
        auto r = std::from_chars(t.data(), t.data() + t.size(), v);
        return r.ec == std::errc() && util::double_holds_decimal(t, v);
    }

    void call(Emitter& em, std::string_view fn, const List<Expr*>& args) const {
        em.call(fn, args);
    }

    void function(Emitter& em, const Function& f) const override {
        switch (f.func) {
            case Func::IsNull:
                em.text("ifnull(");
                em.expr(*f.args[0]);
                em.text(", ");
                as_first_argument(em, *f.args[1], f.args[0]->sql);
                em.ch(')');
                return;
            case Func::Coalesce:
                call(em, "coalesce", f.args);
                return;
            case Func::NullIf:
                em.text("nullif(");
                em.expr(*f.args[0]);
                em.text(", ");
                {
                    // nullif compares its arguments as `=` does.
                    const bool text = f.args[0]->vtype == ColumnType::Text ||
                                      f.args[1]->vtype == ColumnType::Text;
                    em.compared(
                        *f.args[1], text ? CompareKind::Text : CompareKind::Plain,
                        text && Emitter::needs_collation(*f.args[0], *f.args[1], CompareKind::Text),
                        kOutOr);
                }
                em.ch(')');
                return;
            case Func::GetDate:
                em.text("datetime('now', 'localtime')");
                return;
            case Func::Year:
            case Func::Month:
            case Func::Day:
                em.text(runtime::kDatePart);
                em.ch('(');
                em.quoted_text(f.func == Func::Year    ? runtime::part::kYear
                               : f.func == Func::Month ? runtime::part::kMonth
                                                       : runtime::part::kDay);
                em.text(", ");
                em.expr(*f.args[0]);
                em.ch(')');
                return;
            case Func::DateAdd:
            case Func::DateDiff:
            case Func::DatePart:
                em.text(f.func == Func::DateAdd    ? runtime::kDateAdd
                        : f.func == Func::DateDiff ? runtime::kDateDiff
                                                   : runtime::kDatePart);
                em.ch('(');
                em.quoted_text(date_part_name(f.part));
                for (Expr* a : f.args) {
                    em.text(", ");
                    em.expr(*a);
                }
                em.ch(')');
                return;
            case Func::Len:
                // Trailing blanks do not count, as on the server.
                em.text("length(rtrim(");
                em.expr(*f.args[0]);
                em.text(", ' '))");
                return;
            case Func::Left:
                call(em, runtime::kLeft, f.args);
                return;
            case Func::Right:
                call(em, runtime::kRight, f.args);
                return;
            case Func::Substring:
                call(em, runtime::kSubstring, f.args);
                return;
            case Func::CharIndex:
                call(em, runtime::kCharIndex, f.args);
                return;
            case Func::LTrim:
            case Func::RTrim:
                em.text(f.func == Func::LTrim ? "ltrim(" : "rtrim(");
                em.expr(*f.args[0]);
                em.text(", ' ')");
                return;
            case Func::Upper:
                call(em, "upper", f.args);
                return;
            case Func::Lower:
                call(em, "lower", f.args);
                return;
            case Func::Replace:
                call(em, runtime::kReplace, f.args);
                return;
            case Func::Round:
                call(em, runtime::kRound, f.args);
                return;
            case Func::Abs:
                call(em, "abs", f.args);
                return;
            case Func::Floor:
                call(em, runtime::kFloor, f.args);
                return;
            case Func::Ceiling:
                call(em, runtime::kCeiling, f.args);
                return;
            case Func::Replicate:
                call(em, runtime::kReplicate, f.args);
                return;
            case Func::Space:
                em.text(runtime::kReplicate);
                em.text("(' ', ");
                em.expr(*f.args[0]);
                em.ch(')');
                return;
            case Func::Reverse:
                call(em, runtime::kReverse, f.args);
                return;
            case Func::Str:
                // The length is 10 and the decimal 0 unless given.
                em.text(runtime::kStr);
                em.ch('(');
                for (std::size_t i = 0; i < 3; ++i) {
                    if (i) em.text(", ");
                    if (i < f.args.size()) {
                        em.expr(*f.args[i]);
                    } else {
                        em.text(i == 1 ? "10" : "0");
                    }
                }
                em.ch(')');
                return;
            case Func::Stuff:
                call(em, runtime::kStuff, f.args);
                return;
            case Func::DataLength:
                if (const char* size = stored_size(f.args[0]->vtype)) {
                    em.text("CASE WHEN ");
                    em.operand(*f.args[0], kOutEquality);
                    em.text(" IS NULL THEN NULL ELSE ");
                    em.text(size);
                    em.text(" END");
                    return;
                }
                // A text's bytes: its UTF-8 length (the server counts its own code page).
                em.text("length(CAST(");
                em.expr(*f.args[0]);
                em.text(" AS BLOB))");
                return;
            case Func::DateName:
                em.date_name(f.part, "TEXT", [&] {
                    em.text(runtime::kDatePart);
                    em.ch('(');
                    em.quoted_text(date_part_name(f.part));
                    em.text(", ");
                    em.expr(*f.args[0]);
                    em.ch(')');
                });
                return;
            case Func::PatIndex:
                call(em, runtime::kPatIndex, f.args);
                return;
            case Func::IsDate:
                call(em, runtime::kIsDate, f.args);
                return;
            case Func::Power: {
                // A whole base gives a whole power, cut towards zero (2 ^ -1 is 0).
                const bool whole = f.vtype == ColumnType::Integer;
                if (whole) em.text("CAST(");
                call(em, runtime::kPower, f.args);
                if (whole) em.text(" AS INTEGER)");
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
                if (decimal_aggregate(em, f)) return;
                // The average of integers is an integer on the server (truncated).
                const bool int_avg = f.func == Func::Avg && f.args[0]->vtype == ColumnType::Integer;
                if (int_avg) em.text("CAST(");
                em.aggregate(f);
                if (int_avg) em.text(" AS INTEGER)");
                return;
            }
        }
    }

    void cast(Emitter& em, const Cast& c) const override {
        const Expr& e = *c.expr;
        switch (c.target.base) {
            case TypeSpec::Base::Integer:
                single(em, runtime::kInt, e);
                return;
            case TypeSpec::Base::Bit:
                single(em, runtime::kBit, e);
                return;
            case TypeSpec::Base::Float:
                single(em, runtime::kFloat, e);
                return;
            case TypeSpec::Base::Decimal:
                if (e.vtype == ColumnType::Text) {
                    em.text_number_call(runtime::kTextNumber, c.target.sql, [&] { em.expr(e); });
                    return;
                }
                {
                    // Rounded; checked against the type's precision or money's range unless the
                    // value's type shows that it fits.
                    const bool checked =
                        e.vtype != ColumnType::Date && !fits_scaled(e.sql, c.target.sql);
                    em.text(checked ? runtime::kDecimalFit : runtime::kDecimal);
                    em.ch('(');
                    em.expr(e);
                    em.text(", ");
                    if (checked) {
                        em.text(std::to_string(Emitter::scale_code(c.target.sql)));
                        em.text(", ");
                        em.quoted_text(overflow_source_name(e.sql));
                    } else {
                        em.text(std::to_string(c.target.scale));
                    }
                    em.ch(')');
                    return;
                }
            case TypeSpec::Base::DateTime:
            case TypeSpec::Base::Date: {
                em.text(c.target.base == TypeSpec::Base::Date ? runtime::kDate
                                                              : runtime::kDateTime);
                em.ch('(');
                int digits = 0;
                const char* order = day_first_order(c.style, digits);
                if (order && e.vtype != ColumnType::Date) {
                    em.text(runtime::kYearFirst);
                    em.ch('(');
                    em.expr(e);
                    em.text(", '");
                    em.text(order);
                    em.text("', ");
                    em.text(std::to_string(digits));
                    em.ch(')');
                } else {
                    em.expr(e);
                }
                em.ch(')');
                return;
            }
            case TypeSpec::Base::Text:
            case TypeSpec::Base::FixedText: {
                // Without a length the server makes it 30 characters.
                const int length = c.target.length == -1   ? 30
                                   : c.target.length == -2 ? -1
                                                           : c.target.length;
                if (const NumberTextForm form = number_text_form(e.sql, c.style); form.kind) {
                    number_text(em, e, form, text_type_name(c.target.sql), length);
                    return;
                }
                if (e.vtype == ColumnType::Date) {
                    em.text(runtime::kDateText);
                    em.ch('(');
                    em.expr(e);
                    em.text(", ");
                    em.text(std::to_string(c.style < 0 ? 0 : c.style));
                } else {
                    em.text(runtime::kVarchar);
                    em.ch('(');
                    em.expr(e);
                }
                em.text(", ");
                em.text(std::to_string(length));
                if (c.target.base == TypeSpec::Base::FixedText) em.text(", 1");
                em.ch(')');
                return;
            }
        }
    }

    void number_text(Emitter& em, const Expr& e, const NumberTextForm& form,
                     std::string_view target, int length) const override {
        em.number_text_call(runtime::kNumberText, form, target, length, [&] { em.expr(e); });
    }

    static void single(Emitter& em, std::string_view fn, const Expr& e) {
        em.text(fn);
        em.ch('(');
        em.expr(e);
        em.ch(')');
    }

    void arithmetic(Emitter& em, const Binary& b) const override {
        switch (b.op) {
            case BinaryOp::Add:
            case BinaryOp::Sub:
                switch (b.arith) {
                    case ArithKind::Concat:
                        em.operand(*b.lhs, kOutConcat);
                        em.text(" || ");
                        em.operand(*b.rhs, kOutConcat + 1);
                        return;
                    case ArithKind::DateDays: {
                        const Expr& date = b.date_on_right ? *b.rhs : *b.lhs;
                        const Expr& days = b.date_on_right ? *b.lhs : *b.rhs;
                        em.text(runtime::kDateAdd);
                        em.ch('(');
                        em.quoted_text(runtime::part::kDays);
                        em.text(", ");
                        if (b.op == BinaryOp::Sub) {
                            em.text("-(");
                            em.expr(days);
                            em.ch(')');
                        } else {
                            em.expr(days);
                        }
                        em.text(", ");
                        em.expr(date);
                        em.ch(')');
                        return;
                    }
                    case ArithKind::ByValue:
                        em.text(runtime::kAdd);
                        em.ch('(');
                        em.expr(*b.lhs);
                        em.text(", ");
                        em.expr(*b.rhs);
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
                // The engine's own division already divides integers as integers; only a zero
                // divisor needs the server's error instead of NULL.
                em.operand(*b.lhs, kOutMul);
                em.text(" / ");
                em.text(runtime::kNonZero);
                em.ch('(');
                em.expr(*b.rhs);
                em.ch(')');
                return;
            case BinaryOp::Mod:
                if (b.lhs->vtype == ColumnType::Integer && b.rhs->vtype == ColumnType::Integer) {
                    em.operand(*b.lhs, kOutMul);
                    em.text(" % ");
                    em.text(runtime::kNonZero);
                    em.ch('(');
                    em.expr(*b.rhs);
                    em.ch(')');
                } else {
                    em.text(runtime::kMod);
                    em.ch('(');
                    em.expr(*b.lhs);
                    em.text(", ");
                    em.expr(*b.rhs);
                    em.ch(')');
                }
                return;
            case BinaryOp::BitXor:
                em.text("((");
                em.operand(*b.lhs, kOutBitwise);
                em.text(" | ");
                em.operand(*b.rhs, kOutBitwise + 1);
                em.text(") - (");
                em.operand(*b.lhs, kOutBitwise);
                em.text(" & ");
                em.operand(*b.rhs, kOutBitwise + 1);
                em.text("))");
                return;
            default:
                throw std::logic_error("not an engine-specific operator");
        }
    }

    // Exact at the result's scale: the runtime computes with the operands' decimals.
    bool decimal_arithmetic(Emitter& em, const Binary& b) const override {
        int precision = 0, scale = 0;
        if (!decimal_digits(b.sql, precision, scale)) return false;
        const int op = b.op == BinaryOp::Add   ? 0
                       : b.op == BinaryOp::Sub ? 1
                       : b.op == BinaryOp::Mul ? 2
                       : b.op == BinaryOp::Div ? 3
                                               : 4;
        const int mode = (b.rounding == DecimalRounding::Exact   ? 1
                          : b.rounding == DecimalRounding::Round ? 2
                                                                 : 3) +
                         (b.sql.base == SqlBase::Decimal ? 0 : 4);
        em.text(runtime::kDecimalOp);
        em.ch('(');
        em.expr(*b.lhs);
        em.text(", ");
        em.expr(*b.rhs);
        for (const int n : {op, precision, scale, mode}) {
            em.text(", ");
            em.text(std::to_string(n));
        }
        em.ch(')');
        return true;
    }

    // SUM and AVG of decimals or money, exact: the values are counted in units of their last
    // place. A DISTINCT one (the engine's own aggregates alone take DISTINCT) adds the engine's
    // way and comes back to the scale.
    static bool decimal_aggregate(Emitter& em, const Function& f) {
        int p = 0, s_in = 0, s_out = 0;
        if ((f.func != Func::Sum && f.func != Func::Avg) || f.args.empty()) return false;
        const Expr& x = *f.args[0];
        if (f.over != nullptr || !is_scaled(f.sql) || !decimal_digits(x.sql, p, s_in) ||
            !is_scaled(x.sql) || !decimal_digits(f.sql, p, s_out))
            return false;
        // A sum of money is checked against money's range.
        const bool money = f.func == Func::Sum && f.sql.base != SqlBase::Decimal;
        if (money) {
            em.text(runtime::kDecimalFit);
            em.ch('(');
        }
        unchecked_decimal_aggregate(em, f, s_in, s_out);
        if (money) {
            em.text(", ");
            em.text(std::to_string(Emitter::scale_code(SqlType::of(SqlBase::Money))));
            em.text(", 'expression')");
        }
        return true;
    }

    static void unchecked_decimal_aggregate(Emitter& em, const Function& f, int s_in, int s_out) {
        const Expr& x = *f.args[0];
        if (!f.distinct) {
            em.text(f.func == Func::Sum ? runtime::kDecimalSum : runtime::kDecimalAvg);
            em.ch('(');
            em.expr(x);
            em.text(", ");
            em.text(std::to_string(s_in));
            if (f.func == Func::Avg) {
                em.text(", ");
                em.text(std::to_string(s_out));
            }
            em.ch(')');
            return;
        }
        em.text(runtime::kDecimalOp);
        em.ch('(');
        if (f.func == Func::Avg) {
            em.text(runtime::kDecimalOp);
            em.ch('(');
        }
        em.text("sum(DISTINCT ");
        em.expr(x);
        em.text("), 0, 0, 38, ");
        em.text(std::to_string(s_in));
        em.text(", 1)");
        if (f.func == Func::Avg) {
            em.text(", count(DISTINCT ");
            em.expr(x);
            em.text("), 3, 38, ");
            em.text(std::to_string(s_out));
            em.text(", 3)");
        }
    }

    void like(Emitter& em, const Like& l) const override {
        if (l.negated) em.text("NOT ");
        em.text(runtime::kLike);
        em.ch('(');
        em.expr(*l.expr);
        em.text(", ");
        em.expr(*l.pattern);
        if (l.escape) {
            em.text(", ");
            em.expr(*l.escape);
        }
        em.ch(')');
    }

    void collation(Emitter& em, CompareKind kind) const override {
        em.text(" COLLATE ");
        em.text(kind == CompareKind::Date ? runtime::kDateCollation : runtime::kTextCollation);
    }

    void limit(Emitter& em, long long count) const override {
        em.text(" LIMIT ");
        em.text(std::to_string(count));
    }

    void offset(Emitter& em, long long offset, long long fetch) const override {
        em.text(" LIMIT ");
        em.text(std::to_string(fetch));  // -1: no limit
        em.text(" OFFSET ");
        em.text(std::to_string(offset));
    }

    void date_value(Emitter& em, const Expr& value) const override {
        single(em, runtime::kDateTime, value);
    }

    void set_list(Emitter& em, const Update& u) const {
        for (std::size_t i = 0; i < u.sets.size(); ++i) {
            if (i) em.text(", ");
            const SetItem& item = u.sets[i];
            em.name(item.column);
            em.text(" = ");
            const Expr& v = *item.value;
            const std::string_view table = u.target_source ? u.target_source->name : u.target->name;
            if (em.fitted(v, item.fit, table, item.column, item.national)) continue;
            const bool null_literal =
                v.is<LiteralExpr>() && v.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
            if (item.type == ColumnType::Date && v.vtype != ColumnType::Date && !null_literal) {
                date_value(em, v);
            } else if (em.scaled_open(v, item.scaled)) {
                em.expr(v);
                em.scaled_close(item.scaled);
            } else {
                em.expr(v);
            }
        }
    }

    void update(Emitter& em, const Update& u) const override {
        em.text("UPDATE ");
        if (u.target_source == nullptr) {
            // The target is a table of its own (joined to the FROM, if any, by the WHERE).
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
        // `update t1 set … from T t1 join …`: the updated rows are those of the FROM item t1.
        // The engine's UPDATE … FROM cannot refer to the target inside its joins, so the FROM
        // keeps its shape, t1 exposes its row id, and the target is matched by that id. The set
        // expressions read t1's values as they were before the update, as on the server.
        em.name(u.target_source->name);
        em.text(" AS bd_target SET ");
        set_list(em, u);
        em.text(" FROM ");
        em.replace_source(u.target_source, "(SELECT rowid AS bd_rowid, * FROM ", ")");
        em.sources(u.from);
        em.replace_source(nullptr, {}, {});
        em.text(" WHERE bd_target.rowid = ");
        em.name(u.target_source->exposed);
        em.text(".bd_rowid");
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
        // `delete t1 from T t1 join …`: the rows of t1 that the join and the WHERE keep.
        const TableRef& target = d.target_source ? *d.target_source : *d.target;
        em.name(target.name);
        em.text(" WHERE rowid IN (SELECT ");
        em.name(target.exposed);
        em.text(".rowid FROM ");
        if (d.target_source == nullptr) {
            em.name(target.name);
            em.text(", ");
        }
        em.sources(d.from);
        if (d.where) {
            em.text(" WHERE ");
            em.expr(*d.where);
        }
        em.ch(')');
    }

    void truncate(Emitter& em, const Truncate& t) const override {
        em.text("DELETE FROM ");
        em.name(t.table->name);
    }

    void parameter(Emitter& em, std::size_t number, const LiteralExpr&) const override {
        em.ch('?');
        em.text(std::to_string(number));
    }

    // The engine widens whole numbers to 64 bits and then to floating point.
    std::string_view range_check() const override { return runtime::kRange; }
    std::string_view fit_check() const override { return runtime::kFit; }
    std::string_view scale_check() const override { return runtime::kDecimalFit; }

    // The engine would take the first row: the rows go through an aggregate that refuses a
    // second one.
    void many_row_subquery(Emitter& em, const Subquery& sub) const override {
        em.text("(SELECT ");
        em.text(runtime::kSingle);
        em.ch('(');
        name(em, sub.query->first_spec().items[0].alias);
        em.text(") FROM (");
        em.select(*sub.query, false);
        em.text("))");
    }

    // A text compared with a number is read as a number, as the server converts by type
    // precedence; a text that is no number is the server's conversion error, not a mismatch.
    // A text where a number belongs (a CASE of numbers, a union's number column, a number
    // column written) is read as the number, as the server converts it (245 when it is none).
    void converted(Emitter& em, const Expr& e, ColumnType to) const override {
        if (e.vtype == ColumnType::Text && (to == ColumnType::Integer || to == ColumnType::Real)) {
            single(em, to == ColumnType::Integer ? runtime::kInt : runtime::kFloat, e);
        } else {
            em.expr(e);
        }
    }

    bool plain_compared(Emitter& em, const Expr& e, const Expr& other) const override {
        const bool number = other.vtype == ColumnType::Integer || other.vtype == ColumnType::Real;
        if (e.vtype != ColumnType::Text || !number) return false;
        single(em, other.vtype == ColumnType::Integer ? runtime::kInt : runtime::kFloat, e);
        return true;
    }

  private:
    // ISNULL's second argument as a value of the first one's type: cut to its length, or read
    // as its number.
    void as_first_argument(Emitter& em, const Expr& e, const SqlType& to) const {
        if (const NumberTextForm form = number_text_form(e.sql, -1); to.is_text() && form.kind) {
            number_text(em, e, form, text_type_name(to), to.length > 0 ? to.length : -1);
        } else if (to.is_text() && to.length > 0 && e.vtype != ColumnType::Date &&
                   !(e.sql.is_text() && e.sql.length > 0 && e.sql.length <= to.length)) {
            em.text(runtime::kVarchar);
            em.ch('(');
            em.expr(e);
            em.text(", ");
            em.text(std::to_string(to.length));
            if (to.base == SqlBase::Char || to.base == SqlBase::NChar) em.text(", 1");
            em.ch(')');
        } else if (to.is_integer() && e.vtype == ColumnType::Text) {
            single(em, runtime::kInt, e);
        } else if (to.is_numeric() && e.vtype == ColumnType::Text) {
            single(em, runtime::kFloat, e);
        } else {
            em.expr(e);
        }
    }
};

}  // namespace

Translation translate_sqlite(std::string_view tsql, const Catalog& catalog) {
    return translate_sqlite(tsql, catalog, TranslateOptions{});
}

Translation translate_sqlite(std::string_view tsql, const Catalog& catalog,
                             const TranslateOptions& options) {
    Arena arena;
    Parser parser(tsql, arena);
    Node* stmt = parser.parse_statement();
    Binder binder(catalog, arena);
    binder.bind_statement(*stmt);
    test_copies_too(*stmt, catalog, arena);

    Translation t;
    t.sql.reserve(tsql.size() + tsql.size() / 2 + 32);
    const SqliteHooks hooks;
    Emitter emitter(hooks, t.sql);
    if (options.parameterise) emitter.parameterise(&t.parameters, &t.parameter_scales);
    if (!whole_table_aggregate(emitter, *stmt, catalog)) emitter.statement(*stmt);
    t.lockable_table = lockable_table(*stmt);
    t.kind = parser.kind();
    t.writes = t.kind != StatementKind::Select;
    t.literals = std::move(parser.literals());
    return t;
}

StatementKind check_single_statement(std::string_view tsql) {
    Arena arena;
    Parser parser(tsql, arena);
    parser.parse_statement();
    return parser.kind();
}

}  // namespace billdata::dialect
