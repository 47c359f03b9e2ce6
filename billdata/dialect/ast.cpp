#include "billdata/dialect/ast.h"

namespace billdata::dialect {

std::string LiteralExpr::string_value() const {
    std::string_view t = text;
    if (!t.empty() && (t[0] == 'N' || t[0] == 'n')) t.remove_prefix(1);
    if (t.size() < 2) return {};
    t = t.substr(1, t.size() - 2);
    std::string out;
    out.reserve(t.size());
    for (std::size_t i = 0; i < t.size(); ++i) {
        out.push_back(t[i]);
        if (t[i] == '\'' && i + 1 < t.size() && t[i + 1] == '\'') ++i;
    }
    return out;
}

QuerySpec& Select::first_spec() const {
    Node* n = body;
    while (n->is<SetOperation>())
        n = n->as<SetOperation>().left;
    return n->as<QuerySpec>();
}

namespace {

const char* binary_text(BinaryOp op) {
    switch (op) {
        case BinaryOp::Or:
            return " or ";
        case BinaryOp::And:
            return " and ";
        case BinaryOp::Eq:
            return "=";
        case BinaryOp::Ne:
            return "<>";
        case BinaryOp::Lt:
            return "<";
        case BinaryOp::Le:
            return "<=";
        case BinaryOp::Gt:
            return ">";
        case BinaryOp::Ge:
            return ">=";
        case BinaryOp::Add:
            return "+";
        case BinaryOp::Sub:
            return "-";
        case BinaryOp::BitAnd:
            return "&";
        case BinaryOp::BitOr:
            return "|";
        case BinaryOp::BitXor:
            return "^";
        case BinaryOp::Mul:
            return "*";
        case BinaryOp::Div:
            return "/";
        case BinaryOp::Mod:
            return "%";
    }
    return "?";
}

// Prints T-SQL back, fully parenthesised, for messages and debugging.
class Printer {
  public:
    std::string out;

    void name(std::string_view qualifier, std::string_view n) {
        if (!qualifier.empty()) {
            out.append(qualifier);
            out.push_back('.');
        }
        out.append(n);
    }
    void list(const List<Expr*>& items) {
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (i) out.push_back(',');
            node(*items[i]);
        }
    }
    void sources(const List<TableSource*>& from) {
        for (std::size_t i = 0; i < from.size(); ++i) {
            if (i) out.push_back(',');
            node(*from[i]);
        }
    }
    void node(const Node& n) {
        switch (n.type) {
            case NodeType::Literal:
                out.append(n.as<LiteralExpr>().text);
                break;
            case NodeType::ColumnRef: {
                const auto& c = n.as<ColumnRef>();
                name(c.qualifier, c.name);
                break;
            }
            case NodeType::Star: {
                const auto& s = n.as<Star>();
                name(s.qualifier, "*");
                break;
            }
            case NodeType::Unary: {
                const auto& u = n.as<Unary>();
                out.append(u.op == UnaryOp::Neg      ? "-"
                           : u.op == UnaryOp::Plus   ? "+"
                           : u.op == UnaryOp::BitNot ? "~"
                                                     : "not ");
                node(*u.operand);
                break;
            }
            case NodeType::Binary: {
                const auto& b = n.as<Binary>();
                out.push_back('(');
                node(*b.lhs);
                out.append(binary_text(b.op));
                node(*b.rhs);
                out.push_back(')');
                break;
            }
            case NodeType::Between: {
                const auto& b = n.as<Between>();
                node(*b.expr);
                out.append(b.negated ? " not between " : " between ");
                node(*b.low);
                out.append(" and ");
                node(*b.high);
                break;
            }
            case NodeType::InList: {
                const auto& in = n.as<InList>();
                node(*in.expr);
                out.append(in.negated ? " not in (" : " in (");
                list(in.items);
                out.push_back(')');
                break;
            }
            case NodeType::InQuery: {
                const auto& in = n.as<InQuery>();
                node(*in.expr);
                out.append(in.negated ? " not in (" : " in (");
                node(*in.query);
                out.push_back(')');
                break;
            }
            case NodeType::Exists:
                out.append("exists (");
                node(*n.as<Exists>().query);
                out.push_back(')');
                break;
            case NodeType::Like: {
                const auto& l = n.as<Like>();
                node(*l.expr);
                out.append(l.negated ? " not like " : " like ");
                node(*l.pattern);
                if (l.escape) {
                    out.append(" escape ");
                    node(*l.escape);
                }
                break;
            }
            case NodeType::IsNull: {
                const auto& i = n.as<IsNull>();
                node(*i.expr);
                out.append(i.negated ? " is not null" : " is null");
                break;
            }
            case NodeType::Case: {
                const auto& c = n.as<Case>();
                out.append("case");
                if (c.operand) {
                    out.push_back(' ');
                    node(*c.operand);
                }
                for (const auto& [w, t] : c.whens) {
                    out.append(" when ");
                    node(*w);
                    out.append(" then ");
                    node(*t);
                }
                if (c.otherwise) {
                    out.append(" else ");
                    node(*c.otherwise);
                }
                out.append(" end");
                break;
            }
            case NodeType::Cast: {
                const auto& c = n.as<Cast>();
                out.append(c.is_convert ? "convert(<type>," : "cast(");
                node(*c.expr);
                out.append(c.is_convert ? ")" : " as <type>)");
                break;
            }
            case NodeType::Function: {
                const auto& f = n.as<Function>();
                out.append(f.name);
                out.push_back('(');
                if (f.part != DatePart::None) out.append("<part>,");
                if (f.distinct) out.append("distinct ");
                if (f.star) out.push_back('*');
                list(f.args);
                out.push_back(')');
                break;
            }
            case NodeType::Subquery:
                out.push_back('(');
                node(*n.as<Subquery>().query);
                out.push_back(')');
                break;
            case NodeType::TableRef: {
                const auto& t = n.as<TableRef>();
                out.append(t.name);
                if (!t.alias.empty()) {
                    out.push_back(' ');
                    out.append(t.alias);
                }
                break;
            }
            case NodeType::DerivedTable: {
                const auto& d = n.as<DerivedTable>();
                out.push_back('(');
                node(*d.query);
                out.append(") ");
                out.append(d.alias);
                break;
            }
            case NodeType::Join: {
                const auto& j = n.as<Join>();
                node(*j.left);
                static const char* kinds[] = {" inner join ", " left join ", " right join ",
                                              " full join ", " cross join "};
                out.append(kinds[static_cast<int>(j.kind)]);
                node(*j.right);
                if (j.on) {
                    out.append(" on ");
                    node(*j.on);
                }
                break;
            }
            case NodeType::QuerySpec: {
                const auto& q = n.as<QuerySpec>();
                out.append("select ");
                if (q.distinct) out.append("distinct ");
                if (q.top >= 0) out.append("top " + std::to_string(q.top) + " ");
                for (std::size_t i = 0; i < q.items.size(); ++i) {
                    if (i) out.push_back(',');
                    node(*q.items[i].expr);
                    if (!q.items[i].alias.empty()) {
                        out.append(" as ");
                        out.append(q.items[i].alias);
                    }
                }
                if (!q.from.empty()) {
                    out.append(" from ");
                    sources(q.from);
                }
                if (q.where) {
                    out.append(" where ");
                    node(*q.where);
                }
                if (!q.group_by.empty()) {
                    out.append(" group by ");
                    list(q.group_by);
                }
                if (q.having) {
                    out.append(" having ");
                    node(*q.having);
                }
                break;
            }
            case NodeType::SetOperation: {
                const auto& s = n.as<SetOperation>();
                node(*s.left);
                static const char* ops[] = {" union ", " union all ", " except ", " intersect "};
                out.append(ops[static_cast<int>(s.op)]);
                node(*s.right);
                break;
            }
            case NodeType::Select: {
                const auto& s = n.as<Select>();
                node(*s.body);
                for (std::size_t i = 0; i < s.order_by.size(); ++i) {
                    out.append(i ? "," : " order by ");
                    node(*s.order_by[i].expr);
                    if (s.order_by[i].desc) out.append(" desc");
                }
                break;
            }
            case NodeType::Insert: {
                const auto& ins = n.as<Insert>();
                out.append("insert into ");
                out.append(ins.table->name);
                if (!ins.columns.empty()) {
                    out.push_back('(');
                    for (std::size_t i = 0; i < ins.columns.size(); ++i) {
                        if (i) out.push_back(',');
                        out.append(ins.columns[i].name);
                    }
                    out.push_back(')');
                }
                if (ins.query) {
                    out.push_back(' ');
                    node(*ins.query);
                } else {
                    out.append(" values");
                    for (std::size_t r = 0; r < ins.rows.size(); ++r) {
                        out.append(r ? ",(" : "(");
                        list(ins.rows[r]);
                        out.push_back(')');
                    }
                }
                break;
            }
            case NodeType::Update: {
                const auto& u = n.as<Update>();
                out.append("update ");
                out.append(u.target->name);
                out.append(" set ");
                for (std::size_t i = 0; i < u.sets.size(); ++i) {
                    if (i) out.push_back(',');
                    name(u.sets[i].qualifier, u.sets[i].column);
                    out.push_back('=');
                    node(*u.sets[i].value);
                }
                if (!u.from.empty()) {
                    out.append(" from ");
                    sources(u.from);
                }
                if (u.where) {
                    out.append(" where ");
                    node(*u.where);
                }
                break;
            }
            case NodeType::Delete: {
                const auto& d = n.as<Delete>();
                out.append("delete ");
                out.append(d.target->name);
                if (!d.from.empty()) {
                    out.append(" from ");
                    sources(d.from);
                }
                if (d.where) {
                    out.append(" where ");
                    node(*d.where);
                }
                break;
            }
            case NodeType::Truncate:
                out.append("truncate table ");
                out.append(n.as<Truncate>().table->name);
                break;
        }
    }
};

}  // namespace

std::string Node::to_string() const {
    Printer p;
    p.node(*this);
    return std::move(p.out);
}

}  // namespace billdata::dialect
