// What an engine that runs T-SQL as it is written needs to know of a statement: which literals
// it can bind as parameters, and where a lock hint goes.
#include <algorithm>
#include <unordered_set>

#include "billdata/dialect/ast.h"
#include "billdata/dialect/emitter.h"
#include "billdata/dialect/parser.h"

namespace billdata::dialect {

namespace {

// Collects the positions of the literals that must stay in the text: the engine matches ORDER
// BY and GROUP BY terms with the select list by their text (two parameters are two different
// values to it, and a parameter as an ORDER BY position is an error), so literals in those
// terms, and in the select list of a grouped or distinct query, are kept as written.
class InlineFinder {
  public:
    std::unordered_set<std::uint32_t> kept;
    bool unknown = false;  // a node this walk does not know: keep every literal

    void node(const Node* n, bool keep) {
        if (!n) return;
        switch (n->type) {
            case NodeType::Literal:
                if (keep) kept.insert(n->pos);
                return;
            case NodeType::ColumnRef:
            case NodeType::Star:
                return;
            case NodeType::Unary:
                node(n->as<Unary>().operand, keep);
                return;
            case NodeType::Binary:
                node(n->as<Binary>().lhs, keep);
                node(n->as<Binary>().rhs, keep);
                return;
            case NodeType::Between: {
                const auto& b = n->as<Between>();
                node(b.expr, keep);
                node(b.low, keep);
                node(b.high, keep);
                return;
            }
            case NodeType::InList:
                node(n->as<InList>().expr, keep);
                for (const Expr* e : n->as<InList>().items)
                    node(e, keep);
                return;
            case NodeType::InQuery:
                node(n->as<InQuery>().expr, keep);
                node(n->as<InQuery>().query, keep);
                return;
            case NodeType::Exists:
                node(n->as<Exists>().query, keep);
                return;
            case NodeType::Like:
                node(n->as<Like>().expr, keep);
                node(n->as<Like>().pattern, keep);
                node(n->as<Like>().escape, keep);
                return;
            case NodeType::IsNull:
                node(n->as<IsNull>().expr, keep);
                return;
            case NodeType::Case: {
                const auto& c = n->as<Case>();
                node(c.operand, keep);
                for (const auto& [when, then] : c.whens) {
                    node(when, keep);
                    node(then, keep);
                }
                node(c.otherwise, keep);
                return;
            }
            case NodeType::Cast:
                node(n->as<Cast>().expr, keep);
                return;
            case NodeType::Function:
                for (const Expr* e : n->as<Function>().args)
                    node(e, keep);
                return;
            case NodeType::Subquery:
                node(n->as<Subquery>().query, keep);
                return;
            case NodeType::TableRef:
                return;
            case NodeType::DerivedTable:
                node(n->as<DerivedTable>().query, keep);
                return;
            case NodeType::Join:
                node(n->as<Join>().left, keep);
                node(n->as<Join>().right, keep);
                node(n->as<Join>().on, keep);
                return;
            case NodeType::QuerySpec: {
                const auto& q = n->as<QuerySpec>();
                const bool grouped = keep || q.distinct || !q.group_by.empty();
                for (const SelectItem& item : q.items)
                    node(item.expr, grouped);
                for (const TableSource* s : q.from)
                    node(s, keep);
                node(q.where, keep);
                for (const Expr* e : q.group_by)
                    node(e, true);
                node(q.having, keep);
                return;
            }
            case NodeType::SetOperation:
                node(n->as<SetOperation>().left, keep);
                node(n->as<SetOperation>().right, keep);
                return;
            case NodeType::Select:
                node(n->as<Select>().body, keep);
                for (const OrderItem& o : n->as<Select>().order_by)
                    node(o.expr, true);
                return;
            case NodeType::Insert: {
                const auto& ins = n->as<Insert>();
                for (const auto& row : ins.rows)
                    for (const Expr* e : row)
                        node(e, keep);
                node(ins.query, keep);
                return;
            }
            case NodeType::Update: {
                const auto& upd = n->as<Update>();
                for (const SetItem& s : upd.sets)
                    node(s.value, keep);
                for (const TableSource* s : upd.from)
                    node(s, keep);
                node(upd.where, keep);
                return;
            }
            case NodeType::Delete: {
                const auto& del = n->as<Delete>();
                for (const TableSource* s : del.from)
                    node(s, keep);
                node(del.where, keep);
                return;
            }
            case NodeType::Truncate:
                return;
        }
        unknown = true;
    }
};

}  // namespace

Passthrough inspect_statement(std::string_view tsql) {
    Arena arena;
    Parser parser(tsql, arena);
    const Node* stmt = parser.parse_statement();
    Passthrough p;
    p.kind = parser.kind();
    p.writes = p.kind != StatementKind::Select;
    InlineFinder finder;
    finder.node(stmt, false);
    if (!finder.unknown)
        for (const Literal& l : parser.literals())
            if (!finder.kept.count(static_cast<std::uint32_t>(l.offset)))
                p.parameters.push_back(l.offset);
    p.lockable_table = lockable_table(*stmt);
    if (!p.lockable_table.empty()) {
        const auto& ref = stmt->as<Select>().first_spec().from[0]->as<TableRef>();
        if (!ref.hinted) p.lock_hint_at = ref.end;
    }
    return p;
}

}  // namespace billdata::dialect
