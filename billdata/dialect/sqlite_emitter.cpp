// The SQLite hooks of the emitter. The runtime functions and collations it writes (named in
// runtime_names.h) are registered on every embedded connection by the SQLite driver, which gives
// them SQL Server's semantics.

#include <algorithm>
#include <array>
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
    if (name.empty()) return false;
    const char first = name[0];
    if (!((first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z') || first == '_')) {
        return false;
    }
    for (char c : name) {
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '_')) {
            return false;
        }
    }
    return !is_sqlite_keyword(name);
}

std::string_view part_name(DatePart part) {
    switch (part) {
        case DatePart::Year:
            return runtime::part::kYear;
        case DatePart::Quarter:
            return runtime::part::kQuarter;
        case DatePart::Month:
            return runtime::part::kMonth;
        case DatePart::DayOfYear:
            return runtime::part::kDayOfYear;
        case DatePart::Day:
            return runtime::part::kDay;
        case DatePart::Week:
            return runtime::part::kWeek;
        case DatePart::Weekday:
            return runtime::part::kWeekday;
        case DatePart::Hour:
            return runtime::part::kHour;
        case DatePart::Minute:
            return runtime::part::kMinute;
        case DatePart::Second:
            return runtime::part::kSecond;
        case DatePart::Millisecond:
            return runtime::part::kMillisecond;
        case DatePart::None:
            break;
    }
    return {};
}

// A date part as the runtime's date functions take it: a text literal.
void quoted_part(Emitter& em, std::string_view part) {
    em.ch('\'');
    em.text(part);
    em.ch('\'');
}

class SqliteHooks final : public EngineHooks {
  public:
    void name(Emitter& em, std::string_view n) const override {
        if (plain_name(n)) {
            em.text(n);
            return;
        }
        em.ch('"');
        for (char c : n) {
            if (c == '"') em.ch('"');
            em.ch(c);
        }
        em.ch('"');
    }

    void string_literal(Emitter& em, const LiteralExpr& l) const override {
        // N'…' and '…' are the same text here: the engine stores UTF-8 either way.
        std::string_view t = l.text;
        if (l.kind == LiteralExpr::Kind::NString) t.remove_prefix(1);
        em.text(t);
    }

    void call(Emitter& em, std::string_view fn, const List<Expr*>& args) const {
        em.text(fn);
        em.ch('(');
        for (std::size_t i = 0; i < args.size(); ++i) {
            if (i > 0) em.text(", ");
            em.expr(*args[i]);
        }
        em.ch(')');
    }

    void function(Emitter& em, const Function& f) const override {
        switch (f.func) {
            case Func::IsNull:
                call(em, "ifnull", f.args);
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
                quoted_part(em, f.func == Func::Year    ? runtime::part::kYear
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
                quoted_part(em, part_name(f.part));
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
            case Func::Count:
            case Func::Sum:
            case Func::Max:
            case Func::Min:
            case Func::Avg: {
                static const char* kNames[] = {"count(", "sum(", "max(", "min(", "avg("};
                // The average of integers is an integer on the server (truncated).
                const bool int_avg = f.func == Func::Avg && f.args[0]->vtype == ColumnType::Integer;
                if (int_avg) em.text("CAST(");
                em.text(kNames[static_cast<int>(f.func) - static_cast<int>(Func::Count)]);
                if (f.star) {
                    em.ch('*');
                } else {
                    if (f.distinct) em.text("DISTINCT ");
                    em.expr(*f.args[0]);
                }
                em.ch(')');
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
                em.text(runtime::kDecimal);
                em.ch('(');
                em.expr(e);
                em.text(", ");
                em.text(std::to_string(c.target.scale));
                em.ch(')');
                return;
            case TypeSpec::Base::DateTime:
                single(em, runtime::kDateTime, e);
                return;
            case TypeSpec::Base::Date:
                single(em, runtime::kDate, e);
                return;
            case TypeSpec::Base::Text:
            case TypeSpec::Base::FixedText: {
                // Without a length the server makes it 30 characters.
                const int length = c.target.length == -1   ? 30
                                   : c.target.length == -2 ? -1
                                                           : c.target.length;
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
                        quoted_part(em, runtime::part::kDays);
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
            const bool null_literal =
                v.is<LiteralExpr>() && v.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
            if (item.type == ColumnType::Date && v.vtype != ColumnType::Date && !null_literal) {
                date_value(em, v);
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
        em.text("DELETE FROM ");
        if (d.from.empty()) {
            em.name(d.target->name);
            if (!d.target->alias.empty()) {
                em.text(" AS ");
                em.name(d.target->alias);
            }
            if (d.where) {
                em.text(" WHERE ");
                em.expr(*d.where);
            }
            return;
        }
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
};

// `select count(*), max(key) … from T` with nothing else: the interior-id cross-check runs it on
// every save, and a count reads the whole table. When the catalogue says that the database
// keeps T's row count, each count(*) reads the kept count and each max()/min() becomes a
// subquery of its own, which the engine answers from the key's index. The result is the same
// single row with the same column names and values.
bool whole_table_aggregate(Emitter& em, const Node& stmt, const Catalog& catalog) {
    if (!stmt.is<Select>()) return false;
    const auto& sel = stmt.as<Select>();
    if (!sel.order_by.empty() || !sel.body->is<QuerySpec>()) return false;
    const auto& q = sel.body->as<QuerySpec>();
    if (q.distinct || q.top >= 0 || q.where || q.having || !q.group_by.empty()) return false;
    if (q.from.size() != 1 || !q.from[0]->is<TableRef>() || q.items.empty()) return false;
    const auto& table = q.from[0]->as<TableRef>();
    const std::string_view counts = catalog.kept_row_count(table.name);
    if (counts.empty()) return false;
    for (const SelectItem& item : q.items) {
        if (!item.expr->is<Function>()) return false;
        const auto& f = item.expr->as<Function>();
        if (f.distinct) return false;
        if (f.func == Func::Count) {
            if (!f.star) return false;
        } else if (f.func == Func::Max || f.func == Func::Min) {
            if (f.args.size() != 1 || !f.args[0]->is<ColumnRef>()) return false;
        } else {
            return false;
        }
    }
    em.text("SELECT ");
    for (std::size_t i = 0; i < q.items.size(); ++i) {
        if (i) em.text(", ");
        const SelectItem& item = q.items[i];
        const auto& f = item.expr->as<Function>();
        // The column name the plain form would carry: its alias, or the text of the aggregate.
        std::string plain;
        {
            Emitter alone(em.hooks(), plain);
            alone.expr(f);
        }
        if (f.func == Func::Count) {
            // The count is in the column named after the table.
            em.text("(SELECT ");
            em.name(table.name);
            em.text(" FROM ");
            em.name(counts);
            em.ch(')');
        } else {
            em.text("(SELECT ");
            em.text(plain);
            em.text(" FROM ");
            em.name(table.name);
            if (!table.alias.empty()) {
                em.ch(' ');
                em.name(table.alias);
            }
            em.ch(')');
        }
        em.text(" AS ");
        em.name(item.alias.empty() ? std::string_view(plain) : item.alias);
    }
    return true;
}

// An inner join of the FROM between a table and the table that keeps a copy of its column.
struct CopyUnderJoin {
    const CopiedColumn* copy;
    const TableRef* from;  // where the original lives
    const TableRef* to;    // where the copy lives
};

const TableRef* table_of(const Expr* e, std::string_view column) {
    if (!e->is<ColumnRef>()) return nullptr;
    const auto& c = e->as<ColumnRef>();
    if (!c.source || !c.source->is<TableRef>() || !iequals(c.name, column)) return nullptr;
    return &c.source->as<TableRef>();
}

void conjuncts(Expr* e, std::vector<Expr*>& out) {
    if (e->is<Binary>() && e->as<Binary>().op == BinaryOp::And) {
        conjuncts(e->as<Binary>().lhs, out);
        conjuncts(e->as<Binary>().rhs, out);
    } else {
        out.push_back(e);
    }
}

// Inner joins on a copy's key between the table that has the original and the one that has the
// copy, among the FROM items whose rows all reach the WHERE unchanged: inner joins, and the left
// side of outer ones.
void joins_on_copies(const TableSource* ts, const std::vector<CopiedColumn>& copies,
                     std::vector<CopyUnderJoin>& out) {
    if (!ts->is<Join>()) return;
    const auto& j = ts->as<Join>();
    joins_on_copies(j.left, copies, out);
    if (j.kind != JoinKind::Inner) return;
    joins_on_copies(j.right, copies, out);
    if (!j.on) return;
    std::vector<Expr*> on;
    conjuncts(j.on, on);
    for (const Expr* c : on) {
        if (!c->is<Binary>() || c->as<Binary>().op != BinaryOp::Eq) continue;
        for (const CopiedColumn& copy : copies) {
            const TableRef* a = table_of(c->as<Binary>().lhs, copy.key);
            const TableRef* b = table_of(c->as<Binary>().rhs, copy.key);
            if (!a || !b) continue;
            if (iequals(a->name, copy.from_table) && iequals(b->name, copy.table))
                out.push_back({&copy, a, b});
            else if (iequals(b->name, copy.from_table) && iequals(a->name, copy.table))
                out.push_back({&copy, b, a});
        }
    }
}

// `… from H t1 inner join L t2 on t1.K=t2.K where t1.C in (17,27,99) and …` where L keeps a
// copy of H.C keyed by K: the same test on the copy as well, so that the engine can pick L's
// rows from an index on the copy instead of visiting them all and looking up their H row (the
// price propagation's re-pricings pick lines by their bill's kind). Under the join the two
// tests hold for the same rows, so the result does not change.
void test_copies_too(Node& stmt, const Catalog& catalog, Arena& arena) {
    const std::vector<CopiedColumn>& copies = catalog.copied_columns();
    if (copies.empty()) return;
    const List<TableSource*>* from = nullptr;
    Expr** where = nullptr;
    if (stmt.is<Select>() && stmt.as<Select>().body->is<QuerySpec>()) {
        auto& q = stmt.as<Select>().body->as<QuerySpec>();
        from = &q.from;
        where = &q.where;
    } else if (stmt.is<Update>()) {
        from = &stmt.as<Update>().from;
        where = &stmt.as<Update>().where;
    } else if (stmt.is<Delete>()) {
        from = &stmt.as<Delete>().from;
        where = &stmt.as<Delete>().where;
    }
    if (!from || !*where) return;
    std::vector<CopyUnderJoin> joins;
    for (const TableSource* ts : *from)
        joins_on_copies(ts, copies, joins);
    if (joins.empty()) return;
    std::vector<Expr*> tests;
    conjuncts(*where, tests);
    auto integer = [](const Expr* e) {
        return e->is<LiteralExpr>() && e->as<LiteralExpr>().kind == LiteralExpr::Kind::Integer;
    };
    for (const CopyUnderJoin& j : joins) {
        const CopiedColumn& copy = *j.copy;
        auto copied = [&](std::uint32_t pos) {
            auto* c = arena.make<ColumnRef>(pos, j.to->exposed, copy.column);
            c->source = j.to;
            c->qualify = true;
            c->vtype = catalog.column_type(copy.table, copy.column);
            return c;
        };
        for (Expr* t : tests) {
            Expr* added = nullptr;
            if (t->is<InList>()) {
                const auto& in = t->as<InList>();
                if (in.negated || table_of(in.expr, copy.from_column) != j.from ||
                    !std::all_of(in.items.begin(), in.items.end(), integer))
                    continue;
                List<Expr*> items(in.items.begin(), in.items.end(), arena.resource());
                added = arena.make<InList>(in.pos, copied(in.pos), std::move(items), false);
            } else if (t->is<Binary>() && t->as<Binary>().op == BinaryOp::Eq) {
                const auto& eq = t->as<Binary>();
                Expr* value = nullptr;
                if (table_of(eq.lhs, copy.from_column) == j.from)
                    value = eq.rhs;
                else if (table_of(eq.rhs, copy.from_column) == j.from)
                    value = eq.lhs;
                if (!value || !integer(value)) continue;
                added = arena.make<Binary>(eq.pos, BinaryOp::Eq, copied(eq.pos), value);
            }
            if (!added) continue;
            *where = arena.make<Binary>((*where)->pos, BinaryOp::And, *where, added);
        }
    }
}

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
    if (options.parameterise) emitter.parameterise(&t.parameters);
    if (!whole_table_aggregate(emitter, *stmt, catalog)) emitter.statement(*stmt);
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
