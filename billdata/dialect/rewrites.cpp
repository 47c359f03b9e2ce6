// Rewrites that every engine's translation shares: reading what the database keeps instead of
// computing it, and what a statement tells the driver about the rows it reads.

#include <algorithm>
#include <string>
#include <vector>

#include "billdata/dialect/emitter.h"
#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

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

bool has_aggregate(const Expr* e);

bool any_aggregate(const List<Expr*>& list) {
    return std::any_of(list.begin(), list.end(), [](const Expr* e) { return has_aggregate(e); });
}

// Whether the expression computes an aggregate of its own query (subqueries are their own).
bool has_aggregate(const Expr* e) {
    if (e == nullptr) return false;
    switch (e->type) {
        case NodeType::Function: {
            const auto& f = e->as<Function>();
            // A window function reads the other rows too: the rows cannot be locked one by one.
            return f.is_aggregate() || f.over != nullptr || any_aggregate(f.args);
        }
        case NodeType::Unary:
            return has_aggregate(e->as<Unary>().operand);
        case NodeType::Binary:
            return has_aggregate(e->as<Binary>().lhs) || has_aggregate(e->as<Binary>().rhs);
        case NodeType::Between: {
            const auto& b = e->as<Between>();
            return has_aggregate(b.expr) || has_aggregate(b.low) || has_aggregate(b.high);
        }
        case NodeType::InList:
            return has_aggregate(e->as<InList>().expr) || any_aggregate(e->as<InList>().items);
        case NodeType::InQuery:
            return has_aggregate(e->as<InQuery>().expr);
        case NodeType::Like:
            return has_aggregate(e->as<Like>().expr) || has_aggregate(e->as<Like>().pattern);
        case NodeType::IsNull:
            return has_aggregate(e->as<IsNull>().expr);
        case NodeType::Case: {
            const auto& c = e->as<Case>();
            if (has_aggregate(c.operand) || has_aggregate(c.otherwise)) return true;
            return std::any_of(c.whens.begin(), c.whens.end(), [](const auto& w) {
                return has_aggregate(w.first) || has_aggregate(w.second);
            });
        }
        case NodeType::Cast:
            return has_aggregate(e->as<Cast>().expr);
        default:
            return false;
    }
}

}  // namespace

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
    if (q.distinct || q.top >= 0 || q.percent_num >= 0 || q.where || q.having ||
        !q.group_by.empty())
        return false;
    if (q.from.size() != 1 || !q.from[0]->is<TableRef>() || q.items.empty()) return false;
    const auto& table = q.from[0]->as<TableRef>();
    const std::string_view counts = catalog.kept_row_count(table.name);
    if (counts.empty()) return false;
    for (const SelectItem& item : q.items) {
        if (!item.expr->is<Function>()) return false;
        const auto& f = item.expr->as<Function>();
        // A windowed count gives a value on every row, not one row.
        if (f.distinct || f.over) return false;
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
        em.hooks().result_alias(em, item.alias.empty() ? std::string_view(plain) : item.alias,
                                true);
    }
    return true;
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

std::string lockable_table(const Node& stmt) {
    if (!stmt.is<Select>() || !stmt.as<Select>().body->is<QuerySpec>()) return {};
    const auto& q = stmt.as<Select>().body->as<QuerySpec>();
    if (q.distinct || !q.group_by.empty() || q.having || q.from.size() != 1 ||
        !q.from[0]->is<TableRef>()) {
        return {};
    }
    for (const SelectItem& item : q.items) {
        if (has_aggregate(item.expr)) return {};
    }
    return std::string(q.from[0]->as<TableRef>().name);
}

}  // namespace billdata::dialect
