#include "billdata/dialect/binder.h"

#include <algorithm>
#include <functional>

#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

struct Scope {
    Scope* parent;
    List<TableSource*> sources;  // tables and derived tables, joins flattened
    const QuerySpec* spec = nullptr;
    bool outer_aggregate = false;  // a subquery holds an aggregate of this query
    bool in_where = false;         // its WHERE clause is being bound
    Scope(Scope* p, std::pmr::memory_resource* r) : parent(p), sources(r) {}
};

namespace {

bool at_most_one_row(const Select& select);

[[noreturn]] void fail(const std::string& message, std::size_t pos, std::string construct) {
    throw DialectError(message + " at position " + std::to_string(pos), pos, excerpt(construct));
}

// A name as a message quotes it.
std::string shown(std::string_view name) {
    return excerpt(name);
}

[[noreturn]] void invalid_column(std::string_view name, std::size_t pos) {
    fail("列名 '" + shown(name) + "' 无效。", pos, std::string(name));
}

bool is_numeric(ColumnType t) {
    return t == ColumnType::Integer || t == ColumnType::Real;
}

int rank(ColumnType t) {
    switch (t) {
        case ColumnType::Date:
            return 4;
        case ColumnType::Real:
            return 3;
        case ColumnType::Integer:
            return 2;
        case ColumnType::Text:
            return 1;
        case ColumnType::Unknown:
            return 0;
    }
    return 0;
}

ColumnType type_of_literal(const LiteralExpr& l) {
    switch (l.kind) {
        case LiteralExpr::Kind::Integer:
            return ColumnType::Integer;
        case LiteralExpr::Kind::Decimal:
            return ColumnType::Real;
        case LiteralExpr::Kind::String:
        case LiteralExpr::Kind::NString:
            return ColumnType::Text;
        case LiteralExpr::Kind::Null:
            return ColumnType::Unknown;
    }
    return ColumnType::Unknown;
}

bool is_null_literal(const Expr& e) {
    return e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
}

// Convert styles that the runtime formats dates in.
bool supported_date_style(int style) {
    switch (style) {
        case -1:
        case 0:
        case 100:
        case 1:
        case 101:
        case 2:
        case 102:
        case 3:
        case 103:
        case 4:
        case 104:
        case 5:
        case 105:
        case 10:
        case 110:
        case 11:
        case 111:
        case 12:
        case 112:
        case 8:
        case 108:
        case 20:
        case 120:
        case 21:
        case 121:
        case 23:
        case 126:
            return true;
        default:
            return false;
    }
}

// Styles whose text a date can be read back from as it stands (year first).
bool supported_parse_style(int style) {
    switch (style) {
        case -1:
        case 0:
        case 100:
        case 102:
        case 111:
        case 112:
        case 20:
        case 120:
        case 21:
        case 121:
        case 23:
        case 126:
            return true;
        default:
            return false;
    }
}

}  // namespace

ColumnType dominant_type(ColumnType a, ColumnType b) {
    return rank(a) >= rank(b) ? a : b;
}

CompareKind Binder::compare_kind(ColumnType a, ColumnType b) const {
    if (a == ColumnType::Date || b == ColumnType::Date) return CompareKind::Date;
    if ((a == ColumnType::Text || a == ColumnType::Unknown) &&
        (b == ColumnType::Text || b == ColumnType::Unknown) &&
        (a == ColumnType::Text || b == ColumnType::Text)) {
        return CompareKind::Text;
    }
    return CompareKind::Plain;
}

void Binder::check_table(const TableRef& t) const {
    if (!catalog_.has_table(t.name)) {
        fail("对象名 '" + shown(t.name) + "' 无效。", t.pos, std::string(t.name));
    }
}

namespace {

// The length a text written to a column of type `t` must fit in: a text column's declared
// length; 0 for max, for any other type, and for a column without a declared type.
std::int32_t declared_length(const SqlType& t) {
    return t.is_text() && t.length > 0 ? t.length : 0;
}

// The type a number written to a column of type `t` is rounded and checked to: a decimal or
// money column's own; unknown for any other.
SqlType declared_scale(const SqlType& t) {
    return is_scaled(t) ? t : SqlType{};
}

}  // namespace

void Binder::bind_statement(Node& stmt) {
    List<ColumnRef*> refs(arena_.resource());
    refs_ = &refs;
    sources_ = 0;

    switch (stmt.type) {
        case NodeType::Select:
            bind_select(stmt.as<Select>(), nullptr);
            break;
        case NodeType::Insert: {
            auto& ins = stmt.as<Insert>();
            check_table(*ins.table);
            if (ins.columns.empty()) {
                for (const auto& name : catalog_.columns(ins.table->name)) {
                    ins.columns.push_back(
                        InsertColumn{arena_.copy(name), ins.table->pos,
                                     catalog_.column_type(ins.table->name, name)});
                }
            } else {
                for (auto& c : ins.columns) {
                    if (!catalog_.find_column(ins.table->name, c.name, &c.type)) {
                        invalid_column(c.name, c.pos);
                    }
                }
            }
            for (auto& c : ins.columns) {
                const SqlType declared = catalog_.declared_type(ins.table->name, c.name);
                c.fit = declared_length(declared);
                c.scaled = declared_scale(declared);
                c.national = declared.base == SqlBase::NChar || declared.base == SqlBase::NVarChar;
            }
            Scope empty(nullptr, arena_.resource());
            for (auto& row : ins.rows) {
                if (row.size() != ins.columns.size()) {
                    fail("the number of values does not match the number of columns", ins.pos,
                         "insert");
                }
                for (Expr* e : row)
                    bind_expr(*e, empty);
            }
            if (ins.query) {
                bind_select(*ins.query, nullptr);
                const QuerySpec& first = ins.query->first_spec();
                bool star = false;
                for (const auto& item : first.items)
                    star = star || item.expr->is<Star>();
                if (!star && first.items.size() != ins.columns.size()) {
                    fail("the number of selected columns does not match the number of columns",
                         ins.pos, "insert");
                }
            }
            break;
        }
        case NodeType::Update: {
            auto& upd = stmt.as<Update>();
            Scope scope(nullptr, arena_.resource());
            for (TableSource* s : upd.from)
                bind_source(*s, scope, nullptr);
            const TableRef* target = nullptr;
            for (TableSource* s : scope.sources) {
                if (iequals(s->exposed, upd.target->name)) {
                    if (!s->is<TableRef>()) {
                        fail("a derived table cannot be updated", upd.target->pos, "update");
                    }
                    target = &s->as<TableRef>();
                    break;
                }
            }
            if (target == nullptr) {
                check_table(*upd.target);
                scope.sources.insert(scope.sources.begin(), upd.target);
                ++sources_;
                target = upd.target;
            } else {
                upd.target_source = target;
                force_qualify_ = true;
            }
            for (auto& item : upd.sets) {
                if (!item.qualifier.empty() && !iequals(item.qualifier, target->exposed) &&
                    !iequals(item.qualifier, target->name)) {
                    fail("无法绑定由多个部分组成的标识符 \"" + shown(item.qualifier) + "." +
                             shown(item.column) + "\"。",
                         item.pos, std::string(item.qualifier));
                }
                if (!catalog_.find_column(target->name, item.column, &item.type)) {
                    invalid_column(item.column, item.pos);
                }
                const SqlType declared = catalog_.declared_type(target->name, item.column);
                item.fit = declared_length(declared);
                item.scaled = declared_scale(declared);
                item.national =
                    declared.base == SqlBase::NChar || declared.base == SqlBase::NVarChar;
                bind_expr(*item.value, scope);
            }
            if (upd.where) bind_where(*upd.where, scope);
            break;
        }
        case NodeType::Delete: {
            auto& del = stmt.as<Delete>();
            Scope scope(nullptr, arena_.resource());
            if (del.from.empty()) {
                check_table(*del.target);
                scope.sources.push_back(del.target);
                ++sources_;
            } else {
                for (TableSource* s : del.from)
                    bind_source(*s, scope, nullptr);
                for (TableSource* s : scope.sources) {
                    if (iequals(s->exposed, del.target->name)) {
                        if (!s->is<TableRef>()) {
                            fail("a derived table cannot be deleted from", del.target->pos,
                                 "delete");
                        }
                        del.target_source = &s->as<TableRef>();
                        break;
                    }
                }
                if (del.target_source == nullptr) {
                    check_table(*del.target);
                    scope.sources.insert(scope.sources.begin(), del.target);
                    ++sources_;
                }
                force_qualify_ = true;
            }
            if (del.where) bind_where(*del.where, scope);
            break;
        }
        case NodeType::Truncate:
            check_table(*stmt.as<Truncate>().table);
            break;
        default:
            throw std::logic_error("not a statement node");
    }

    const bool qualify = force_qualify_ || sources_ > 1;
    for (ColumnRef* c : refs)
        c->qualify = qualify && !c->select_alias;
    refs_ = nullptr;
}

void Binder::bind_select(Select& select, Scope* parent) {
    if (select.body->is<QuerySpec>()) {
        bind_spec(select.body->as<QuerySpec>(), parent, &select);
        return;
    }
    bind_body(*select.body, parent);
    // ORDER BY of a union names the columns of its result.
    const QuerySpec& first = select.first_spec();
    for (auto& item : select.order_by) {
        Expr& e = *item.expr;
        if (e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Integer) continue;
        if (!e.is<ColumnRef>()) {
            fail("order by of a union must name a result column", e.pos, "order by");
        }
        auto& c = e.as<ColumnRef>();
        bool found = false;
        for (const auto& si : first.items) {
            std::string_view name = si.alias;
            if (name.empty() && si.expr->is<ColumnRef>()) name = si.expr->as<ColumnRef>().name;
            if (iequals(name, c.name)) {
                found = true;
                c.vtype = si.expr->vtype;
                c.sql = si.expr->sql;
                c.result_name = name;
                break;
            }
        }
        if (!found) invalid_column(c.name, c.pos);
        c.select_alias = true;
    }
}

void Binder::bind_body(Node& body, Scope* parent) {
    if (body.is<SetOperation>()) {
        auto& op = body.as<SetOperation>();
        bind_body(*op.left, parent);
        bind_body(*op.right, parent);
        return;
    }
    bind_spec(body.as<QuerySpec>(), parent, nullptr);
}

void Binder::bind_spec(QuerySpec& spec, Scope* parent, Select* owner) {
    Scope scope(parent, arena_.resource());
    scope.spec = &spec;
    for (TableSource* s : spec.from)
        bind_source(*s, scope, parent);
    for (auto& item : spec.items) {
        Expr& e = *item.expr;
        if (e.is<Star>()) {
            auto& star = e.as<Star>();
            if (!star.qualifier.empty()) {
                bool found = false;
                for (Scope* sc = &scope; sc && !found; sc = sc->parent) {
                    for (TableSource* s : sc->sources)
                        found = found || iequals(s->exposed, star.qualifier);
                }
                if (!found) {
                    fail("无法绑定由多个部分组成的标识符 \"" + shown(star.qualifier) + ".*\"。",
                         star.pos, std::string(star.qualifier));
                }
            } else if (spec.from.empty()) {
                fail("select * without a table", star.pos, "*");
            }
            continue;
        }
        bind_expr(e, scope);
    }
    if (spec.where) bind_where(*spec.where, scope);
    for (Expr* g : spec.group_by)
        bind_expr(*g, scope);
    if (spec.having) bind_expr(*spec.having, scope);
    check_grouping(spec, scope);
    if (owner) {
        bind_order_by(*owner, &scope);
        check_order_grouping(*owner, scope);
    }
}

void Binder::bind_order_by(Select& select, Scope* spec_scope) {
    for (auto& item : select.order_by) {
        Expr& e = *item.expr;
        // A bare name that is an alias of the select list means that column, as on the server.
        if (e.is<ColumnRef>() && e.as<ColumnRef>().qualifier.empty()) {
            auto& c = e.as<ColumnRef>();
            const SelectItem* match = nullptr;
            for (const auto& si : spec_scope->spec->items) {
                if (!si.alias.empty() && iequals(si.alias, c.name)) {
                    match = &si;
                    break;
                }
            }
            if (match) {
                c.select_alias = true;
                c.name = match->alias;
                c.result_name = match->alias;
                c.vtype = match->expr->vtype;
                c.sql = match->expr->sql;
                item.never_null = never_null(*match->expr);
                continue;
            }
        }
        bind_expr(e, *spec_scope);
        item.never_null = never_null(e);
    }
}

bool Binder::never_null(const Expr& e) const {
    if (!e.is<ColumnRef>()) return false;
    const auto& c = e.as<ColumnRef>();
    if (c.source == nullptr || !c.source->is<TableRef>() || c.source->null_extended) return false;
    return catalog_.not_null(c.source->as<TableRef>().name, c.name);
}

void Binder::mark_null_extended(TableSource& source) {
    source.null_extended = true;
    if (source.is<Join>()) {
        mark_null_extended(*source.as<Join>().left);
        mark_null_extended(*source.as<Join>().right);
    }
}

void Binder::bind_source(TableSource& source, Scope& scope, Scope* outer) {
    switch (source.type) {
        case NodeType::TableRef: {
            auto& t = source.as<TableRef>();
            check_table(t);
            for (TableSource* s : scope.sources) {
                if (iequals(s->exposed, t.exposed)) {
                    fail("FROM 子句中的对象 \"" + shown(t.exposed) + "\" 和 \"" +
                             shown(s->exposed) + "\" 具有相同的表现名称。",
                         t.pos, std::string(t.exposed));
                }
            }
            scope.sources.push_back(&t);
            ++sources_;
            break;
        }
        case NodeType::DerivedTable: {
            auto& d = source.as<DerivedTable>();
            bind_select(*d.query, outer);
            output_columns(*d.query, d.columns);
            scope.sources.push_back(&d);
            ++sources_;
            break;
        }
        case NodeType::Join: {
            auto& j = source.as<Join>();
            bind_source(*j.left, scope, outer);
            bind_source(*j.right, scope, outer);
            if (j.kind == JoinKind::Left || j.kind == JoinKind::Full) mark_null_extended(*j.right);
            if (j.kind == JoinKind::Right || j.kind == JoinKind::Full) mark_null_extended(*j.left);
            if (j.on) bind_expr(*j.on, scope);
            break;
        }
        default:
            throw std::logic_error("not a table source");
    }
}

void Binder::output_columns(Select& select, List<OutputColumn>& out) {
    const QuerySpec& first = select.first_spec();
    for (const auto& item : first.items) {
        const Expr& e = *item.expr;
        if (e.is<Star>()) {
            // Expand the star from the tables of the derived query.
            auto expand = [&](const TableSource* s) {
                if (s->is<TableRef>()) {
                    const auto& t = s->as<TableRef>();
                    for (const auto& name : catalog_.columns(t.name)) {
                        OutputColumn oc{arena_.copy(name), ColumnType::Unknown};
                        catalog_.find_column(t.name, name, &oc.type, &oc.sql);
                        out.push_back(oc);
                    }
                } else if (s->is<DerivedTable>()) {
                    for (const auto& c : s->as<DerivedTable>().columns)
                        out.push_back(c);
                }
            };
            std::string_view q = e.as<Star>().qualifier;
            std::function<void(const TableSource*)> walk = [&](const TableSource* s) {
                if (s->is<Join>()) {
                    walk(s->as<Join>().left);
                    walk(s->as<Join>().right);
                } else if (q.empty() || iequals(s->exposed, q)) {
                    expand(s);
                }
            };
            for (const TableSource* s : first.from)
                walk(s);
            continue;
        }
        std::string_view name = item.alias;
        if (name.empty() && e.is<ColumnRef>()) name = e.as<ColumnRef>().name;
        out.push_back(OutputColumn{name, e.vtype, e.sql});
    }
}

void Binder::bind_column(ColumnRef& c, Scope& scope) {
    refs_->push_back(&c);
    if (!c.qualifier.empty()) {
        for (Scope* sc = &scope; sc; sc = sc->parent) {
            for (TableSource* s : sc->sources) {
                if (!iequals(s->exposed, c.qualifier)) continue;
                c.source = s;
                if (s->is<TableRef>()) {
                    if (!catalog_.find_column(s->as<TableRef>().name, c.name, &c.vtype, &c.sql)) {
                        invalid_column(c.name, c.pos);
                    }
                } else {
                    bool found = false;
                    for (const auto& oc : s->as<DerivedTable>().columns) {
                        if (iequals(oc.name, c.name)) {
                            found = true;
                            c.vtype = oc.type;
                            c.sql = oc.sql;
                            break;
                        }
                    }
                    if (!found) invalid_column(c.name, c.pos);
                }
                return;
            }
        }
        fail(
            "无法绑定由多个部分组成的标识符 \"" + shown(c.qualifier) + "." + shown(c.name) + "\"。",
            c.pos, std::string(c.qualifier));
    }
    for (Scope* sc = &scope; sc; sc = sc->parent) {
        const TableSource* found = nullptr;
        ColumnType found_type = ColumnType::Unknown;
        SqlType found_sql;
        for (TableSource* s : sc->sources) {
            ColumnType type = ColumnType::Unknown;
            SqlType sql;
            bool has = false;
            if (s->is<TableRef>()) {
                has = catalog_.find_column(s->as<TableRef>().name, c.name, &type, &sql);
            } else {
                for (const auto& oc : s->as<DerivedTable>().columns) {
                    if (iequals(oc.name, c.name)) {
                        has = true;
                        type = oc.type;
                        sql = oc.sql;
                        break;
                    }
                }
            }
            if (!has) continue;
            if (found) fail("列名 '" + shown(c.name) + "' 不明确。", c.pos, std::string(c.name));
            found = s;
            found_type = type;
            found_sql = sql;
        }
        if (found) {
            c.source = found;
            c.vtype = found_type;
            c.sql = found_sql;
            return;
        }
    }
    invalid_column(c.name, c.pos);
}

void Binder::bind_expr(Expr& e, Scope& scope) {
    switch (e.type) {
        case NodeType::Literal:
            e.vtype = type_of_literal(e.as<LiteralExpr>());
            break;
        case NodeType::ColumnRef:
            bind_column(e.as<ColumnRef>(), scope);
            break;
        case NodeType::Star:
            fail("* is only allowed in a select list or count(*)", e.pos, "*");
        case NodeType::Unary: {
            auto& u = e.as<Unary>();
            bind_expr(*u.operand, scope);
            if (u.op == UnaryOp::Not || u.op == UnaryOp::BitNot) {
                e.vtype = ColumnType::Integer;
            } else {
                if (u.operand->vtype == ColumnType::Date || u.operand->vtype == ColumnType::Text) {
                    if (u.operand->vtype == ColumnType::Date)
                        fail("unsupported construct 'minus a date'", u.pos, "-");
                }
                e.vtype =
                    u.operand->vtype == ColumnType::Text ? ColumnType::Unknown : u.operand->vtype;
            }
            break;
        }
        case NodeType::Binary: {
            auto& b = e.as<Binary>();
            bind_expr(*b.lhs, scope);
            bind_expr(*b.rhs, scope);
            const ColumnType l = b.lhs->vtype;
            const ColumnType r = b.rhs->vtype;
            switch (b.op) {
                case BinaryOp::Or:
                case BinaryOp::And:
                    e.vtype = ColumnType::Integer;
                    break;
                case BinaryOp::Eq:
                case BinaryOp::Ne:
                case BinaryOp::Lt:
                case BinaryOp::Le:
                case BinaryOp::Gt:
                case BinaryOp::Ge:
                    b.compare = compare_kind(l, r);
                    e.vtype = ColumnType::Integer;
                    break;
                case BinaryOp::Add:
                case BinaryOp::Sub:
                    if (l == ColumnType::Date || r == ColumnType::Date) {
                        if (l == ColumnType::Date && r == ColumnType::Date) {
                            fail("unsupported construct 'date " +
                                     std::string(b.op == BinaryOp::Add ? "+" : "-") + " date'",
                                 b.pos, "date arithmetic");
                        }
                        const ColumnType other = l == ColumnType::Date ? r : l;
                        if (other == ColumnType::Text) {
                            fail("unsupported construct 'date and text arithmetic'", b.pos,
                                 "date arithmetic");
                        }
                        if (b.op == BinaryOp::Sub && r == ColumnType::Date) {
                            fail("unsupported construct 'number - date'", b.pos, "date arithmetic");
                        }
                        b.arith = ArithKind::DateDays;
                        b.date_on_right = r == ColumnType::Date;
                        e.vtype = ColumnType::Date;
                    } else if (b.op == BinaryOp::Add && l == ColumnType::Text &&
                               r == ColumnType::Text) {
                        b.arith = ArithKind::Concat;
                        e.vtype = ColumnType::Text;
                    } else if (is_numeric(l) && is_numeric(r)) {
                        b.arith = ArithKind::Numeric;
                        e.vtype = dominant_type(l, r);
                    } else if (b.op == BinaryOp::Add &&
                               ((l == ColumnType::Text && is_null_literal(*b.rhs)) ||
                                (r == ColumnType::Text && is_null_literal(*b.lhs)))) {
                        b.arith = ArithKind::Concat;
                        e.vtype = ColumnType::Text;
                    } else if (b.op == BinaryOp::Add) {
                        // A type the catalogue cannot tell (or text with a number): decided by the
                        // values.
                        b.arith = ArithKind::ByValue;
                        e.vtype = (l == ColumnType::Text || r == ColumnType::Text) &&
                                          !is_numeric(l) && !is_numeric(r)
                                      ? ColumnType::Text
                                      : ColumnType::Unknown;
                    } else {
                        b.arith = ArithKind::Numeric;
                        e.vtype = is_numeric(l) && is_numeric(r) ? dominant_type(l, r)
                                                                 : ColumnType::Unknown;
                    }
                    break;
                case BinaryOp::BitAnd:
                case BinaryOp::BitOr:
                case BinaryOp::BitXor:
                    e.vtype = ColumnType::Integer;
                    break;
                case BinaryOp::Mul:
                case BinaryOp::Div:
                case BinaryOp::Mod:
                    if (l == ColumnType::Date || r == ColumnType::Date) {
                        fail("unsupported construct 'date arithmetic'", b.pos, "date arithmetic");
                    }
                    e.vtype = is_numeric(l) && is_numeric(r) ? dominant_type(l, r)
                              : (l == ColumnType::Real || r == ColumnType::Real)
                                  ? ColumnType::Real
                                  : ColumnType::Unknown;
                    break;
            }
            break;
        }
        case NodeType::Between: {
            auto& b = e.as<Between>();
            bind_expr(*b.expr, scope);
            bind_expr(*b.low, scope);
            bind_expr(*b.high, scope);
            b.compare = compare_kind(b.expr->vtype, dominant_type(b.low->vtype, b.high->vtype));
            if (b.expr->vtype == ColumnType::Date) b.compare = CompareKind::Date;
            e.vtype = ColumnType::Integer;
            break;
        }
        case NodeType::InList: {
            auto& in = e.as<InList>();
            bind_expr(*in.expr, scope);
            ColumnType items = ColumnType::Unknown;
            for (Expr* i : in.items) {
                bind_expr(*i, scope);
                items = dominant_type(items, i->vtype);
            }
            in.compare = compare_kind(in.expr->vtype, items);
            e.vtype = ColumnType::Integer;
            break;
        }
        case NodeType::InQuery: {
            auto& in = e.as<InQuery>();
            bind_expr(*in.expr, scope);
            const int outer_aggregates = outer_aggregates_;
            bind_select(*in.query, &scope);
            if (outer_aggregates_ != outer_aggregates) {
                fail("unsupported construct 'aggregate of an outer column in IN (subquery)'",
                     in.query->pos, "in");
            }
            const QuerySpec& first = in.query->first_spec();
            if (first.items.size() != 1 || first.items[0].expr->is<Star>()) {
                fail("a subquery after IN must select exactly one column", in.query->pos, "in");
            }
            in.compare = compare_kind(in.expr->vtype, first.items[0].expr->vtype);
            e.vtype = ColumnType::Integer;
            break;
        }
        case NodeType::Exists: {
            const int outer_aggregates = outer_aggregates_;
            bind_select(*e.as<Exists>().query, &scope);
            if (outer_aggregates_ != outer_aggregates) {
                fail("unsupported construct 'aggregate of an outer column in EXISTS'", e.pos,
                     "exists");
            }
            e.vtype = ColumnType::Integer;
            break;
        }
        case NodeType::Like: {
            auto& l = e.as<Like>();
            bind_expr(*l.expr, scope);
            bind_expr(*l.pattern, scope);
            if (l.escape) bind_expr(*l.escape, scope);
            e.vtype = ColumnType::Integer;
            break;
        }
        case NodeType::IsNull:
            bind_expr(*e.as<IsNull>().expr, scope);
            e.vtype = ColumnType::Integer;
            break;
        case NodeType::Case: {
            auto& c = e.as<Case>();
            ColumnType result = ColumnType::Unknown;
            ColumnType whens = ColumnType::Unknown;
            if (c.operand) bind_expr(*c.operand, scope);
            for (auto& [w, t] : c.whens) {
                bind_expr(*w, scope);
                bind_expr(*t, scope);
                whens = dominant_type(whens, w->vtype);
                result = dominant_type(result, t->vtype);
            }
            if (c.otherwise) {
                bind_expr(*c.otherwise, scope);
                result = dominant_type(result, c.otherwise->vtype);
            }
            if (c.operand) c.compare = compare_kind(c.operand->vtype, whens);
            e.vtype = result;
            break;
        }
        case NodeType::Cast: {
            auto& c = e.as<Cast>();
            bind_expr(*c.expr, scope);
            switch (c.target.base) {
                case TypeSpec::Base::Integer:
                case TypeSpec::Base::Bit:
                    e.vtype = ColumnType::Integer;
                    break;
                case TypeSpec::Base::Decimal:
                case TypeSpec::Base::Float:
                    e.vtype = ColumnType::Real;
                    break;
                case TypeSpec::Base::Text:
                case TypeSpec::Base::FixedText:
                    e.vtype = ColumnType::Text;
                    if ((c.expr->vtype == ColumnType::Date && !supported_date_style(c.style)) ||
                        !number_text_form(c.expr->sql, c.style).supported) {
                        fail(
                            "unsupported construct 'convert style " + std::to_string(c.style) + "'",
                            c.pos, "convert style " + std::to_string(c.style));
                    }
                    break;
                case TypeSpec::Base::DateTime:
                case TypeSpec::Base::Date:
                    e.vtype = ColumnType::Date;
                    if (int digits = 0;
                        !supported_parse_style(c.style) && !day_first_order(c.style, digits)) {
                        fail(
                            "unsupported construct 'convert style " + std::to_string(c.style) + "'",
                            c.pos, "convert style " + std::to_string(c.style));
                    }
                    break;
            }
            break;
        }
        case NodeType::Function: {
            auto& f = e.as<Function>();
            for (Expr* a : f.args)
                bind_expr(*a, scope);
            if (f.is_aggregate() && !f.star && !f.over && scope.parent) place_aggregate(f, scope);
            if (f.is_aggregate() && !f.over && !f.outer && scope.in_where) aggregate_in_where(f);
            if (f.over) {
                for (Expr* p : f.over->partition_by)
                    bind_expr(*p, scope);
                for (OrderItem& o : f.over->order_by)
                    bind_expr(*o.expr, scope);
            }
            auto arg = [&](std::size_t i) { return f.args[i]->vtype; };
            switch (f.func) {
                case Func::IsNull:
                    e.vtype = arg(0) != ColumnType::Unknown ? arg(0) : arg(1);
                    break;
                case Func::Coalesce: {
                    ColumnType t = ColumnType::Unknown;
                    for (Expr* a : f.args)
                        t = dominant_type(t, a->vtype);
                    e.vtype = t;
                    break;
                }
                case Func::NullIf:
                    e.vtype = arg(0);
                    break;
                case Func::DataLength:
                    // A number's stored size depends on its exact type (smallint 2, int 4,
                    // decimal(18,4) 9, a literal 1.5 5 …), which is not known here: refused
                    // rather than answered differently.
                    if (is_numeric(arg(0)))
                        fail("unsupported construct 'datalength of a number'", f.pos,
                             "datalength of a number");
                    e.vtype = ColumnType::Integer;
                    break;
                case Func::GetDate:
                case Func::DateAdd:
                    e.vtype = ColumnType::Date;
                    break;
                case Func::Year:
                case Func::Month:
                case Func::Day:
                case Func::DateDiff:
                case Func::DatePart:
                case Func::Len:
                case Func::CharIndex:
                case Func::PatIndex:
                case Func::IsDate:
                case Func::RowNumber:
                case Func::Rank:
                case Func::DenseRank:
                case Func::Ntile:
                case Func::Count:
                    e.vtype = ColumnType::Integer;
                    break;
                case Func::Lag:
                case Func::Lead:
                case Func::FirstValue:
                case Func::LastValue:
                    e.vtype = arg(0);
                    break;
                case Func::Left:
                case Func::Right:
                case Func::Substring:
                case Func::LTrim:
                case Func::RTrim:
                case Func::Upper:
                case Func::Lower:
                case Func::Replace:
                case Func::Replicate:
                case Func::Space:
                case Func::Reverse:
                case Func::Stuff:
                case Func::DateName:
                case Func::Str:
                    e.vtype = ColumnType::Text;
                    break;
                case Func::Round:
                case Func::Abs:
                case Func::Floor:
                case Func::Ceiling:
                case Func::Power:  // of the type of its base: a whole number stays whole
                    e.vtype = is_numeric(arg(0)) ? arg(0) : ColumnType::Real;
                    break;
                case Func::Sum:
                case Func::Max:
                case Func::Min:
                case Func::Avg:
                    e.vtype = arg(0);
                    break;
            }
            break;
        }
        case NodeType::Subquery: {
            auto& s = e.as<Subquery>();
            const int outer_aggregates = outer_aggregates_;
            bind_select(*s.query, &scope);
            // The engines' check of a second row reads the subquery's rows as a table of their
            // own, where an aggregate of this query cannot be computed.
            if (outer_aggregates_ != outer_aggregates && !at_most_one_row(*s.query)) {
                fail(
                    "unsupported construct 'aggregate of an outer column in a subquery that "
                    "may yield more than one row'",
                    s.pos, "subquery");
            }
            const QuerySpec& first = s.query->first_spec();
            if (first.items.size() != 1 || first.items[0].expr->is<Star>()) {
                fail("a subquery used as a value must select exactly one column", s.pos,
                     "subquery");
            }
            e.vtype = first.items[0].expr->vtype;
            break;
        }
        default:
            throw std::logic_error("not an expression node");
    }
    type_expr(e);
}

namespace {

SqlType concatenated(const SqlType& a, const SqlType& b) {
    const bool national = a.base == SqlBase::NVarChar || a.base == SqlBase::NChar ||
                          b.base == SqlBase::NVarChar || b.base == SqlBase::NChar;
    std::int32_t length = 0;
    if (a.length == SqlType::kMax || b.length == SqlType::kMax) {
        length = SqlType::kMax;
    } else if (a.length > 0 && b.length > 0) {
        length = std::min(a.length + b.length, national ? 4000 : 8000);
    }
    return SqlType::text(national ? SqlBase::NVarChar : SqlBase::VarChar, length);
}

// A query that yields one row at most whatever the data: TOP 1 (or 0), no FROM, or aggregates
// alone without GROUP BY.
bool at_most_one_row(const Select& select) {
    if (!select.body->is<QuerySpec>()) return false;
    const QuerySpec& q = select.body->as<QuerySpec>();
    if (q.top == 0 || (q.top == 1 && !q.with_ties) || q.from.empty()) return true;
    if (!q.group_by.empty() || q.items.empty()) return false;
    for (const auto& item : q.items) {
        const Expr& e = *item.expr;
        if (!e.is<Function>() || !e.as<Function>().is_aggregate() || e.as<Function>().outer)
            return false;
    }
    return true;
}

// Whether two bound expressions are the same term (a select item that is a GROUP BY term).
bool same_term(const Expr& a, const Expr& b) {
    if (a.type != b.type) return false;
    switch (a.type) {
        case NodeType::ColumnRef: {
            const auto& x = a.as<ColumnRef>();
            const auto& y = b.as<ColumnRef>();
            return x.source == y.source && iequals(x.name, y.name);
        }
        case NodeType::Literal:
            return a.as<LiteralExpr>().text == b.as<LiteralExpr>().text;
        case NodeType::Unary:
            return a.as<Unary>().op == b.as<Unary>().op &&
                   same_term(*a.as<Unary>().operand, *b.as<Unary>().operand);
        case NodeType::Binary: {
            const auto& x = a.as<Binary>();
            const auto& y = b.as<Binary>();
            return x.op == y.op && same_term(*x.lhs, *y.lhs) && same_term(*x.rhs, *y.rhs);
        }
        case NodeType::Case: {
            const auto& x = a.as<Case>();
            const auto& y = b.as<Case>();
            auto same = [](const Expr* p, const Expr* q) {
                return p == nullptr ? q == nullptr : q != nullptr && same_term(*p, *q);
            };
            if (!same(x.operand, y.operand) || !same(x.otherwise, y.otherwise) ||
                x.whens.size() != y.whens.size())
                return false;
            for (std::size_t i = 0; i < x.whens.size(); ++i)
                if (!same_term(*x.whens[i].first, *y.whens[i].first) ||
                    !same_term(*x.whens[i].second, *y.whens[i].second))
                    return false;
            return true;
        }
        case NodeType::Cast: {
            const auto& x = a.as<Cast>();
            const auto& y = b.as<Cast>();
            return x.target.base == y.target.base && x.target.length == y.target.length &&
                   x.target.scale == y.target.scale && x.style == y.style &&
                   same_term(*x.expr, *y.expr);
        }
        case NodeType::Function: {
            const auto& x = a.as<Function>();
            const auto& y = b.as<Function>();
            // Windows are not compared: two window functions are never taken for one term.
            if (x.func != y.func || x.part != y.part || x.args.size() != y.args.size() ||
                x.distinct != y.distinct || x.star != y.star || x.over || y.over)
                return false;
            for (std::size_t i = 0; i < x.args.size(); ++i)
                if (!same_term(*x.args[i], *y.args[i])) return false;
            return true;
        }
        default:
            return false;
    }
}

// Calls f on each direct operand of an expression (not into subqueries).
template <class F>
void for_each_operand(const Expr& e, F&& f) {
    switch (e.type) {
        case NodeType::Unary:
            f(*e.as<Unary>().operand);
            break;
        case NodeType::Binary:
            f(*e.as<Binary>().lhs);
            f(*e.as<Binary>().rhs);
            break;
        case NodeType::Between:
            f(*e.as<Between>().expr);
            f(*e.as<Between>().low);
            f(*e.as<Between>().high);
            break;
        case NodeType::InList:
            f(*e.as<InList>().expr);
            for (const Expr* i : e.as<InList>().items)
                f(*i);
            break;
        case NodeType::InQuery:
            f(*e.as<InQuery>().expr);
            break;
        case NodeType::Like:
            f(*e.as<Like>().expr);
            f(*e.as<Like>().pattern);
            if (e.as<Like>().escape) f(*e.as<Like>().escape);
            break;
        case NodeType::IsNull:
            f(*e.as<IsNull>().expr);
            break;
        case NodeType::Case: {
            const auto& c = e.as<Case>();
            if (c.operand) f(*c.operand);
            for (const auto& [w, t] : c.whens) {
                f(*w);
                f(*t);
            }
            if (c.otherwise) f(*c.otherwise);
            break;
        }
        case NodeType::Cast:
            f(*e.as<Cast>().expr);
            break;
        case NodeType::Function:
            for (const Expr* a : e.as<Function>().args)
                f(*a);
            break;
        default:
            break;
    }
}

// Calls f on each expression written directly in a query: its select lists, join conditions,
// WHERE, GROUP BY, HAVING and ORDER BY, and those of its derived tables.
template <class F>
void for_each_query_expr(const Select& select, F&& f) {
    std::function<void(const TableSource&)> source = [&](const TableSource& s) {
        if (s.is<Join>()) {
            source(*s.as<Join>().left);
            source(*s.as<Join>().right);
            if (s.as<Join>().on) f(*s.as<Join>().on);
        } else if (s.is<DerivedTable>()) {
            for_each_query_expr(*s.as<DerivedTable>().query, f);
        }
    };
    std::function<void(const Node&)> body = [&](const Node& b) {
        if (b.is<SetOperation>()) {
            body(*b.as<SetOperation>().left);
            body(*b.as<SetOperation>().right);
            return;
        }
        const auto& q = b.as<QuerySpec>();
        for (const auto& item : q.items)
            if (!item.expr->is<Star>()) f(*item.expr);
        for (const TableSource* s : q.from)
            source(*s);
        if (q.where) f(*q.where);
        for (const Expr* g : q.group_by)
            f(*g);
        if (q.having) f(*q.having);
    };
    body(*select.body);
    for (const OrderItem& o : select.order_by)
        f(*o.expr);
}

bool has_aggregate(const Expr& e) {
    if (e.is<Function>() && e.as<Function>().is_aggregate()) return !e.as<Function>().outer;
    bool found = false;
    for_each_operand(e, [&](const Expr& x) { found = found || has_aggregate(x); });
    return found;
}

// The first column of the query's own sources that `e` uses outside an aggregate and outside
// the GROUP BY terms; null when there is none.
const ColumnRef* ungrouped_column(const Expr& e, const QuerySpec& spec, const Scope& scope) {
    for (const Expr* g : spec.group_by)
        if (same_term(e, *g)) return nullptr;
    if (e.is<Function>() && e.as<Function>().is_aggregate()) return nullptr;
    if (e.is<ColumnRef>()) {
        const auto& c = e.as<ColumnRef>();
        for (const TableSource* s : scope.sources)
            if (s == c.source) return &c;
        return nullptr;  // a column of an outer query is a constant here
    }
    const ColumnRef* found = nullptr;
    auto find = [&](const Expr& x) {
        if (!found) found = ungrouped_column(x, spec, scope);
    };
    for_each_operand(e, find);
    // A subquery sees one row of the group: what it uses of this query is grouped too.
    const Select* sub = e.is<Subquery>()  ? e.as<Subquery>().query
                        : e.is<InQuery>() ? e.as<InQuery>().query
                        : e.is<Exists>()  ? e.as<Exists>().query
                                          : nullptr;
    if (sub) for_each_query_expr(*sub, find);
    return found;
}

// The columns an aggregate's argument uses (not those inside subqueries).
void argument_columns(const Expr& e, std::vector<const ColumnRef*>& out) {
    if (e.is<ColumnRef>()) out.push_back(&e.as<ColumnRef>());
    for_each_operand(e, [&](const Expr& x) { argument_columns(x, out); });
}

}  // namespace

void Binder::bind_where(Expr& where, Scope& scope) {
    scope.in_where = true;
    bind_expr(where, scope);
    scope.in_where = false;
}

void Binder::aggregate_in_where(const Function& f) {
    throw DialectError(
        "聚合不应出现在 WHERE 子句中，除非该聚合位于 HAVING "
        "子句或选择列表所包含的子查询中，并且要对其进行聚合的列是外部引用。",
        f.pos, std::string(f.name), 147);
}

void Binder::place_aggregate(Function& f, Scope& scope) {
    std::vector<const ColumnRef*> columns;
    for (const Expr* a : f.args)
        argument_columns(*a, columns);
    Scope* owner = nullptr;
    bool own_column = false;
    for (const ColumnRef* c : columns) {
        Scope* sc = &scope;
        while (sc &&
               std::find(sc->sources.begin(), sc->sources.end(), c->source) == sc->sources.end())
            sc = sc->parent;
        if (sc == &scope) {
            own_column = true;
        } else if (sc) {
            owner = sc;
        }
    }
    if (!owner) return;
    // The server refuses an aggregate over an outer column with any other column (8124).
    if (own_column || columns.size() > 1) {
        fail("unsupported construct 'aggregate of an outer column together with other columns'",
             f.pos, std::string(f.name));
    }
    // Computed in the query's groups, which its WHERE clause comes before.
    if (owner->in_where) aggregate_in_where(f);
    f.outer = true;
    owner->outer_aggregate = true;
    ++outer_aggregates_;
}

namespace {

// Whether the query gives one row per group: it has GROUP BY or aggregates of its own.
bool grouped_query(const QuerySpec& spec, const Scope& scope) {
    bool grouped = !spec.group_by.empty() || scope.outer_aggregate;
    for (const auto& item : spec.items)
        grouped = grouped || has_aggregate(*item.expr);
    return grouped;
}

}  // namespace

void Binder::check_grouping(const QuerySpec& spec, const Scope& scope) const {
    if (!grouped_query(spec, scope)) return;
    auto refuse = [](const ColumnRef& c, bool having) {
        const std::string name =
            std::string(c.source ? c.source->exposed : c.qualifier) + "." + std::string(c.name);
        const std::string message =
            having ? "列 '" + name +
                         "' 在 HAVING 子句中无效，因为该列没有包含在聚合函数或 GROUP BY 子句中。"
                   : "选择列表中的列 '" + name +
                         "' 无效，因为该列没有包含在聚合函数或 GROUP BY 子句中。";
        throw DialectError(message, c.pos, excerpt(name), having ? 8121 : 8120);
    };
    for (const auto& item : spec.items) {
        if (item.expr->is<Star>()) continue;
        if (const ColumnRef* c = ungrouped_column(*item.expr, spec, scope)) refuse(*c, false);
    }
    if (spec.having) {
        if (const ColumnRef* c = ungrouped_column(*spec.having, spec, scope)) refuse(*c, true);
    }
}

void Binder::check_order_grouping(const Select& select, const Scope& scope) const {
    const QuerySpec& spec = *scope.spec;
    if (!grouped_query(spec, scope)) return;
    for (const OrderItem& o : select.order_by) {
        const Expr& e = *o.expr;
        if (e.is<LiteralExpr>() || (e.is<ColumnRef>() && e.as<ColumnRef>().select_alias)) continue;
        if (const ColumnRef* c = ungrouped_column(e, spec, scope)) {
            const std::string name = std::string(c->source ? c->source->exposed : c->qualifier) +
                                     "." + std::string(c->name);
            throw DialectError(
                "列 \"" + name +
                    "\" 在 ORDER BY 子句中无效，因为该列没有包含在聚合函数或 GROUP BY 子句中。",
                c->pos, excerpt(name), 8127);
        }
    }
}

namespace {

// A literal operand, or a negated one.
LiteralExpr* literal_operand(Expr& e) {
    Expr* x = &e;
    if (x->is<Unary>() && x->as<Unary>().op == UnaryOp::Neg) x = x->as<Unary>().operand;
    return x->is<LiteralExpr>() ? &x->as<LiteralExpr>() : nullptr;
}

SqlType decimal_operand(Expr& e, const SqlType& other) {
    if (other.base != SqlBase::Decimal) return e.sql;
    const LiteralExpr* l = literal_operand(e);
    if (l == nullptr || l->kind != LiteralExpr::Kind::Integer) return e.sql;
    std::string_view digits = l->text;
    while (digits.size() > 1 && digits.front() == '0')
        digits.remove_prefix(1);
    if (e.sql.base != SqlBase::Int) return e.sql;  // too long for int: decimal already
    return integer_literal_as_decimal(static_cast<int>(digits.size()));
}

void keep_inline(Expr& e) {
    if (LiteralExpr* l = literal_operand(e)) l->inline_only = true;
}

}  // namespace

void Binder::type_expr(Expr& e) {
    switch (e.type) {
        case NodeType::Literal: {
            const auto& l = e.as<LiteralExpr>();
            e.sql = l.kind == LiteralExpr::Kind::Null ? SqlType{} : literal_type(l.text);
            break;
        }
        case NodeType::Unary: {
            const auto& u = e.as<Unary>();
            if (u.op != UnaryOp::Not) e.sql = u.operand->sql;
            break;
        }
        case NodeType::Binary: {
            auto& b = e.as<Binary>();
            // An integer literal meeting a decimal is a decimal of its own digits.
            const SqlType l = decimal_operand(*b.lhs, b.rhs->sql);
            const SqlType r = decimal_operand(*b.rhs, b.lhs->sql);
            switch (b.op) {
                case BinaryOp::Add:
                case BinaryOp::Sub:
                case BinaryOp::Mul:
                    if (b.arith == ArithKind::Concat) {
                        e.sql = concatenated(l, r);
                    } else if (b.arith == ArithKind::DateDays) {
                        e.sql = SqlType::of(SqlBase::DateTime);
                    } else if (b.arith == ArithKind::Numeric) {
                        e.sql = arithmetic_type(b.op == BinaryOp::Add   ? ArithOp::Add
                                                : b.op == BinaryOp::Sub ? ArithOp::Sub
                                                                        : ArithOp::Mul,
                                                l, r);
                        // The engines compute whole numbers in 64 bits (and beyond that in
                        // floating point); the server raises an overflow past the type's range.
                        if (e.sql.is_integer() && e.sql.base != SqlBase::Bit)
                            b.range_check = e.sql.base;
                    }
                    break;
                case BinaryOp::Div:
                    e.sql = arithmetic_type(ArithOp::Div, l, r);
                    break;
                case BinaryOp::Mod:
                    e.sql = arithmetic_type(ArithOp::Mod, l, r);
                    break;
                case BinaryOp::BitAnd:
                case BinaryOp::BitOr:
                case BinaryOp::BitXor:
                    e.sql = l.is_integer() && r.is_integer() ? higher(l, r) : SqlType{};
                    break;
                default:
                    break;  // a predicate has no value type
            }
            const bool numeric = b.arith == ArithKind::Numeric || b.op == BinaryOp::Mul ||
                                 b.op == BinaryOp::Div || b.op == BinaryOp::Mod;
            if (numeric && is_scaled(e.sql)) {
                const ArithOp op = b.op == BinaryOp::Add   ? ArithOp::Add
                                   : b.op == BinaryOp::Sub ? ArithOp::Sub
                                   : b.op == BinaryOp::Mul ? ArithOp::Mul
                                   : b.op == BinaryOp::Div ? ArithOp::Div
                                                           : ArithOp::Mod;
                b.rounding = decimal_rounding(op, l, r, e.sql);
                // The scale the result is brought to depends on how the literals are written
                // (1.5 or 1.50, 3 or 30): they stay in the text, not parameters that a statement
                // of the same shape with other digits would share.
                if (b.rounding != DecimalRounding::None) {
                    keep_inline(*b.lhs);
                    keep_inline(*b.rhs);
                }
            }
            break;
        }
        case NodeType::Case: {
            const auto& c = e.as<Case>();
            SqlType t;
            for (const auto& [w, then] : c.whens)
                t = common_type(t, then->sql);
            if (c.otherwise) t = common_type(t, c.otherwise->sql);
            e.sql = t;
            break;
        }
        case NodeType::Cast:
            e.sql = e.as<Cast>().target.sql;
            break;
        case NodeType::Function: {
            const auto& f = e.as<Function>();
            const SqlType first = f.args.empty() ? SqlType{} : f.args[0]->sql;
            switch (f.func) {
                case Func::IsNull:
                    e.sql = isnull_type(first, f.args[1]->sql);
                    break;
                case Func::Coalesce: {
                    SqlType t;
                    for (const Expr* a : f.args)
                        t = common_type(t, a->sql);
                    e.sql = t;
                    break;
                }
                case Func::NullIf:
                case Func::Max:
                case Func::Min:
                case Func::Lag:
                case Func::Lead:
                case Func::FirstValue:
                case Func::LastValue:
                case Func::Abs:
                case Func::Round:
                case Func::Upper:
                case Func::Lower:
                case Func::LTrim:
                case Func::RTrim:
                    e.sql = first;
                    break;
                case Func::Sum:
                case Func::Avg:
                    // Whole numbers add up in their own type (tinyint and smallint in int),
                    // decimals with 38 digits (an average with a scale of 6 at least).
                    if (first.base == SqlBase::Decimal) {
                        e.sql = SqlType::decimal(
                            38, f.func == Func::Sum ? first.scale : std::max<int>(first.scale, 6));
                    } else if (first.is_integer()) {
                        e.sql = SqlType::of(first.base == SqlBase::BigInt ? SqlBase::BigInt
                                                                          : SqlBase::Int);
                    } else {
                        e.sql = first.is_numeric() ? first : SqlType{};
                    }
                    break;
                case Func::Floor:
                case Func::Ceiling:
                    e.sql = first.base == SqlBase::Decimal ? SqlType::decimal(first.precision, 0)
                                                           : first;
                    break;
                case Func::Power:
                    e.sql = first.is_numeric() ? first : SqlType::of(SqlBase::Float);
                    break;
                case Func::GetDate:
                case Func::DateAdd:
                    e.sql = SqlType::of(SqlBase::DateTime);
                    break;
                case Func::RowNumber:
                case Func::Rank:
                case Func::DenseRank:
                case Func::Ntile:
                    e.sql = SqlType::of(SqlBase::BigInt);  // numbers of rows
                    break;
                default:
                    // Counts, positions, lengths and date parts are int; texts of a length
                    // the translator does not work out.
                    e.sql = e.vtype == ColumnType::Integer ? SqlType::of(SqlBase::Int)
                            : e.vtype == ColumnType::Text  ? SqlType::text(SqlBase::VarChar, 0)
                                                           : SqlType{};
                    break;
            }
            break;
        }
        case NodeType::Subquery: {
            auto& s = e.as<Subquery>();
            e.sql = s.query->first_spec().items[0].expr->sql;
            s.check_single_row = !at_most_one_row(*s.query);
            if (s.check_single_row) {
                // An engine that checks the rows reads the value by a name.
                Node* body = s.query->body;
                while (body->is<SetOperation>())
                    body = body->as<SetOperation>().left;
                SelectItem& item = body->as<QuerySpec>().items[0];
                if (item.alias.empty()) item.alias = "bd_v";
            }
            break;
        }
        default:
            break;  // column references are typed when bound; predicates have no value type
    }
}

}  // namespace billdata::dialect
