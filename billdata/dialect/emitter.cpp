#include "billdata/dialect/emitter.h"

#include <algorithm>
#include <optional>
#include <string>

#include "billdata/dialect/dialect.h"
#include "billdata/dialect/runtime_names.h"
#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

std::string_view date_part_name(DatePart part) {
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

std::span<const std::string_view> date_part_value_names(DatePart part) {
    static constexpr std::string_view kMonths[] = {"January",   "February", "March",    "April",
                                                   "May",       "June",     "July",     "August",
                                                   "September", "October",  "November", "December"};
    static constexpr std::string_view kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                     "Thursday", "Friday", "Saturday"};
    if (part == DatePart::Month) return kMonths;
    if (part == DatePart::Weekday) return kWeekdays;
    return {};
}

const char* stored_size(ColumnType type) {
    // Numbers are refused by the binder: their size depends on their exact type.
    return type == ColumnType::Date ? "8" : nullptr;
}

int Emitter::precedence(const Expr& e) {
    switch (e.type) {
        case NodeType::Unary:
            return e.as<Unary>().op == UnaryOp::Not ? kOutNot : kOutUnary;
        case NodeType::Binary: {
            const auto& b = e.as<Binary>();
            switch (b.op) {
                case BinaryOp::Or:
                    return kOutOr;
                case BinaryOp::And:
                    return kOutAnd;
                case BinaryOp::Eq:
                case BinaryOp::Ne:
                    return kOutEquality;
                case BinaryOp::Lt:
                case BinaryOp::Le:
                case BinaryOp::Gt:
                case BinaryOp::Ge:
                    return kOutRelation;
                case BinaryOp::Add:
                case BinaryOp::Sub:
                    switch (b.arith) {
                        case ArithKind::Numeric:
                            return kOutAdd;
                        case ArithKind::Concat:
                            return kOutConcat;
                        default:
                            return kOutPrimary;
                    }
                case BinaryOp::BitAnd:
                case BinaryOp::BitOr:
                    return kOutBitwise;
                case BinaryOp::BitXor:
                    return kOutAdd;
                case BinaryOp::Mul:
                case BinaryOp::Div:
                case BinaryOp::Mod:
                    return kOutMul;
            }
            return kOutOr;
        }
        case NodeType::Like:
            return e.as<Like>().negated ? kOutNot : kOutEquality;
        case NodeType::Between:
        case NodeType::InList:
        case NodeType::InQuery:
        case NodeType::IsNull:
            return kOutEquality;
        default:
            return kOutPrimary;
    }
}

namespace {

void member_specs(const Node& body, std::vector<const QuerySpec*>& out) {
    if (body.is<SetOperation>()) {
        member_specs(*body.as<SetOperation>().left, out);
        member_specs(*body.as<SetOperation>().right, out);
    } else {
        out.push_back(&body.as<QuerySpec>());
    }
}

// Whether any operator of a union removes rows that compare equal.
bool removes_duplicates(const Node& body) {
    if (!body.is<SetOperation>()) return false;
    const auto& op = body.as<SetOperation>();
    return op.op != SetOp::UnionAll || removes_duplicates(*op.left) ||
           removes_duplicates(*op.right);
}

}  // namespace

bool Emitter::stored_column(const Expr& e) {
    if (!e.is<ColumnRef>() || e.as<ColumnRef>().select_alias) return false;
    const TableSource* source = e.as<ColumnRef>().source;
    if (source == nullptr || !source->is<DerivedTable>()) return true;
    // A derived table's column is a table's column when every member of its query selects one.
    const auto& d = source->as<DerivedTable>();
    std::size_t position = 0;
    while (position < d.columns.size() &&
           !iequals(d.columns[position].name, e.as<ColumnRef>().name))
        ++position;
    std::vector<const QuerySpec*> members;
    member_specs(*d.query->body, members);
    for (const QuerySpec* q : members) {
        if (position >= q->items.size()) return false;
        for (std::size_t i = 0; i <= position; ++i)
            if (q->items[i].expr->is<Star>()) return false;
        if (!stored_column(*q->items[position].expr)) return false;
    }
    return true;
}

bool Emitter::carries_collation(const Expr& e, CompareKind kind) {
    if (!stored_column(e)) return false;
    return (kind == CompareKind::Text && e.vtype == ColumnType::Text) ||
           (kind == CompareKind::Date && e.vtype == ColumnType::Date);
}

bool Emitter::needs_collation(const Expr& a, const Expr& b, CompareKind kind) {
    return kind != CompareKind::Plain && !carries_collation(a, kind) && !carries_collation(b, kind);
}

void Emitter::operand(const Expr& e, int needed) {
    if (precedence(e) < needed) {
        out_.push_back('(');
        expr(e);
        out_.push_back(')');
    } else {
        expr(e);
    }
}

bool Emitter::needs_date_value(const Expr& e) {
    return e.vtype != ColumnType::Date &&
           !(e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Null);
}

void Emitter::compared(const Expr& e, CompareKind kind, bool with_collation, int needed) {
    // A date column has numeric affinity: the other side is read as a date first, so that a
    // text such as '20250309' compares as the date it means and never as a number.
    if (kind == CompareKind::Date && needs_date_value(e)) {
        hooks_.date_value(*this, e);
        if (with_collation) hooks_.collation(*this, kind);
        return;
    }
    if (with_collation) {
        operand(e, kOutCollate);
        hooks_.collation(*this, kind);
    } else {
        operand(e, needed);
    }
}

void Emitter::statement(const Node& stmt) {
    switch (stmt.type) {
        case NodeType::Select:
            select(stmt.as<Select>(), true);
            break;
        case NodeType::Insert:
            insert(stmt.as<Insert>());
            break;
        case NodeType::Update:
            hooks_.update(*this, stmt.as<Update>());
            break;
        case NodeType::Delete:
            hooks_.remove(*this, stmt.as<Delete>());
            break;
        case NodeType::Truncate:
            hooks_.truncate(*this, stmt.as<Truncate>());
            break;
        default:
            throw std::logic_error("not a statement node");
    }
}

void Emitter::select(const Select& s, bool top_level) {
    const bool simple = s.body->is<QuerySpec>();
    const bool outer_top_level = top_level_;
    top_level_ = top_level;
    body(*s.body, top_level, !simple);
    if (!s.order_by.empty()) {
        std::vector<std::string> grouping;
        const std::vector<std::string>* outer_grouping = grouping_;
        grouping_ = nullptr;
        if (simple && hooks_.groups_by_text()) {
            grouping_terms(s.body->as<QuerySpec>(), grouping);
            grouping_ = &grouping;
        }
        out_.append(" ORDER BY ");
        for (std::size_t i = 0; i < s.order_by.size(); ++i) {
            if (i) out_.append(", ");
            const Expr& term = *s.order_by[i].expr;
            if (grouping_term(term)) {
                grouped(term);
            } else {
                order_term(term);
            }
            if (s.order_by[i].desc) out_.append(" DESC");
            if (!s.order_by[i].never_null) hooks_.null_order(*this, s.order_by[i].desc);
        }
        grouping_ = outer_grouping;
    }
    if (simple && s.body->as<QuerySpec>().with_ties) {
        top_with_ties(s.body->as<QuerySpec>(), s.order_by);
    } else if (simple) {
        top(s.body->as<QuerySpec>());
    }
    if (s.offset >= 0) hooks_.offset(*this, s.offset, s.fetch);
    top_level_ = outer_top_level;
}

void Emitter::top(const QuerySpec& q) {
    if (q.top >= 0) {
        hooks_.limit(*this, q.top);
        return;
    }
    if (q.percent_num < 0) return;
    // TOP n PERCENT: the ceiling of n% of the rows the query gives, counted by the same query.
    out_.append(" LIMIT (SELECT (count(*) * ");
    out_.append(std::to_string(q.percent_num));
    out_.append(" + ");
    out_.append(std::to_string(q.percent_den - 1));
    out_.append(") / ");
    out_.append(std::to_string(q.percent_den));
    out_.append(" FROM (");
    spec(q, false);
    out_.append(") AS bd_percent)");
}

void Emitter::top_with_ties(const QuerySpec& q, const List<OrderItem>& order) {
    // The rows whose rank in the ORDER BY is within the count: ties share a rank, and the
    // engine's sort puts them next to each other, so they are the first that many rows. The
    // rank is taken by the same query (its grouping included), ordered as the ORDER BY orders.
    std::vector<std::string> grouping;
    const std::vector<std::string>* outer_grouping = grouping_;
    grouping_ = nullptr;
    if (hooks_.groups_by_text()) {
        grouping_terms(q, grouping);
        grouping_ = &grouping;
    }
    out_.append(" LIMIT (SELECT count(*) FROM (SELECT rank() OVER (ORDER BY ");
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (i) out_.append(", ");
        // A select-list alias or position means that item's expression here.
        const Expr* term = order[i].expr;
        if (term->is<ColumnRef>() && term->as<ColumnRef>().select_alias) {
            for (const SelectItem& item : q.items)
                if (iequals(item.alias, term->as<ColumnRef>().name)) term = item.expr;
        } else if (term->is<LiteralExpr>()) {
            LiteralValue position;
            if (literal_value(term->as<LiteralExpr>().text, position) &&
                position.type == LiteralValue::Type::Integer && position.integer >= 1 &&
                static_cast<std::size_t>(position.integer) <= q.items.size())
                term = q.items[static_cast<std::size_t>(position.integer - 1)].expr;
        }
        if (term->is<Star>() || term->is<LiteralExpr>())
            throw DialectError(
                "unsupported construct 'top with ties ordered by a position' at "
                "position " +
                    std::to_string(order[i].expr->pos),
                order[i].expr->pos, "top with ties ordered by a position");
        if (grouping_term(*term)) {
            grouped(*term);
        } else {
            order_term(*term);
        }
        if (order[i].desc) out_.append(" DESC");
    }
    out_.append(") AS bd_rank, count(*) OVER () AS bd_rows");
    spec_tail(q);
    out_.append(") AS bd_ties WHERE bd_rank <= ");
    if (q.top >= 0) {
        out_.append(std::to_string(q.top));
    } else {
        out_.append("(bd_rows * ");
        out_.append(std::to_string(q.percent_num));
        out_.append(" + ");
        out_.append(std::to_string(q.percent_den - 1));
        out_.append(") / ");
        out_.append(std::to_string(q.percent_den));
    }
    out_.push_back(')');
    grouping_ = outer_grouping;
}

std::string Emitter::alone(const Expr& e) const {
    std::string text;
    Emitter em(hooks_, text);
    em.expr(e);
    return text;
}

void Emitter::grouping_terms(const QuerySpec& q, std::vector<std::string>& out) const {
    auto add = [&](const Expr& e) {
        if (!stored_column(e) && !e.is<LiteralExpr>() && !e.is<Star>()) out.push_back(alone(e));
    };
    if (q.distinct) {
        for (const SelectItem& item : q.items)
            add(*item.expr);
    }
    for (const Expr* g : q.group_by)
        add(*g);
}

bool Emitter::grouping_term(const Expr& e) const {
    if (grouping_ == nullptr || grouping_->empty() || e.is<LiteralExpr>() ||
        (e.is<ColumnRef>() && (e.as<ColumnRef>().select_alias || stored_column(e)))) {
        return false;
    }
    return std::find(grouping_->begin(), grouping_->end(), alone(e)) != grouping_->end();
}

void Emitter::grouped(const Expr& e) {
    InlineLiterals keep(*this);
    const bool outer = in_grouping_;
    in_grouping_ = true;
    out_.push_back('(');
    if (e.vtype == ColumnType::Text) {
        operand(e, kOutCollate);
        hooks_.collation(*this, CompareKind::Text);
    } else {
        expr(e);
    }
    out_.push_back(')');
    in_grouping_ = outer;
}

void EngineHooks::number_literal(Emitter& em, const LiteralExpr& l) const {
    em.text(l.text);
}

void EngineHooks::star(Emitter& em, const Star& star, const QuerySpec&, bool) const {
    if (!star.qualifier.empty()) {
        em.name(star.qualifier);
        em.ch('.');
    }
    em.ch('*');
}

void EngineHooks::converted(Emitter& em, const Expr& e, ColumnType) const {
    em.expr(e);
}

void EngineHooks::many_row_subquery(Emitter& em, const Subquery& sub) const {
    em.ch('(');
    em.select(*sub.query, false);
    em.ch(')');
}

void EngineHooks::limited_member_end(Emitter& em) const {
    em.ch(')');
}

void Emitter::body(const Node& b, bool top_level, bool in_compound) {
    if (b.is<SetOperation>() && compound_numbers_ == nullptr) {
        // A column that a member gives as a number is a number in every member, as the server
        // converts by type precedence: another member's text is read as that number.
        std::vector<const QuerySpec*> members;
        member_specs(b, members);
        std::vector<ColumnType> numbers(members.front()->items.size(), ColumnType::Unknown);
        for (const QuerySpec* q : members) {
            numbers.resize(std::min(numbers.size(), q->items.size()));
            for (std::size_t i = 0; i < numbers.size(); ++i) {
                const ColumnType t = q->items[i].expr->vtype;
                if (t == ColumnType::Real ||
                    (t == ColumnType::Integer && numbers[i] != ColumnType::Real))
                    numbers[i] = t;
            }
        }
        compound_numbers_ = &numbers;
        body(b, top_level, in_compound);
        compound_numbers_ = nullptr;
        return;
    }
    if (b.is<SetOperation>() && compound_texts_ == nullptr && removes_duplicates(b)) {
        // The columns whose values are texts in every member compare as texts do when the
        // union removes duplicates; a column that a member gives as a number is a number.
        std::vector<const QuerySpec*> members;
        member_specs(b, members);
        std::vector<bool> texts(members.front()->items.size(), true);
        for (const QuerySpec* q : members) {
            texts.resize(std::min(texts.size(), q->items.size()));
            bool star = false;
            for (std::size_t i = 0; i < texts.size(); ++i) {
                const Expr& e = *q->items[i].expr;
                star = star || e.is<Star>();
                const bool null_literal =
                    e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
                if (star || !(e.vtype == ColumnType::Text || null_literal)) texts[i] = false;
            }
        }
        compound_texts_ = &texts;
        body(b, top_level, in_compound);
        compound_texts_ = nullptr;
        return;
    }
    if (b.is<SetOperation>()) {
        const auto& op = b.as<SetOperation>();
        // Every member's values go to the INSERT's columns.
        const List<InsertColumn>* write = write_columns_;
        body(*op.left, top_level, true);
        static const char* kOps[] = {" UNION ", " UNION ALL ", " EXCEPT ", " INTERSECT "};
        out_.append(kOps[static_cast<int>(op.op)]);
        write_columns_ = write;
        body(*op.right, top_level, true);
        return;
    }
    const auto& q = b.as<QuerySpec>();
    if (in_compound && (q.top >= 0 || q.percent_num >= 0)) {
        // A member of a union cannot carry its own limit; a subquery can.
        out_.append("SELECT * FROM (");
        spec(q, top_level);
        top(q);
        hooks_.limited_member_end(*this);
        return;
    }
    spec(q, top_level);
}

void Emitter::spec(const QuerySpec& q, bool top_level) {
    const List<InsertColumn>* write = write_columns_;
    const std::string_view write_table = write_table_;
    write_columns_ = nullptr;
    const std::vector<bool>* compound_texts = compound_texts_;
    compound_texts_ = nullptr;  // not the subqueries'
    const std::vector<ColumnType>* compound_numbers = compound_numbers_;
    compound_numbers_ = nullptr;
    std::vector<std::string> grouping;
    const std::vector<std::string>* outer_grouping = grouping_;
    grouping_ = nullptr;
    if (hooks_.groups_by_text()) {
        grouping_terms(q, grouping);
        grouping_ = &grouping;
    }
    out_.append("SELECT ");
    if (q.distinct) out_.append("DISTINCT ");
    for (std::size_t i = 0; i < q.items.size(); ++i) {
        if (i) out_.append(", ");
        const SelectItem& item = q.items[i];
        const Expr& e = *item.expr;
        if (e.is<Star>()) {
            hooks_.star(*this, e.as<Star>(), q, top_level);
            continue;
        }
        const bool null_literal =
            e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
        // The engine names an unnamed result column by its text: a parameter would rename it.
        std::optional<InlineLiterals> unnamed;
        if (item.alias.empty() && !e.is<ColumnRef>()) unnamed.emplace(*this);
        // A computed text that DISTINCT or the union compares: as texts compare.
        const bool as_text = (q.distinct || (compound_texts && i < compound_texts->size() &&
                                             (*compound_texts)[i])) &&
                             e.vtype == ColumnType::Text && !stored_column(e) && !null_literal;
        if (write && i < write->size() &&
            fitted(e, (*write)[i].fit, write_table, (*write)[i].name, (*write)[i].national)) {
            if (as_text) hooks_.collation(*this, CompareKind::Text);
        } else if (write && i < write->size() && (*write)[i].type == ColumnType::Date &&
                   e.vtype != ColumnType::Date && !null_literal) {
            hooks_.date_value(*this, e);
        } else if (compound_numbers && i < compound_numbers->size() &&
                   (*compound_numbers)[i] != ColumnType::Unknown && e.vtype == ColumnType::Text) {
            hooks_.converted(*this, e, (*compound_numbers)[i]);
        } else if (as_text && !(grouping_ != nullptr && grouping_term(e))) {
            operand(e, kOutCollate);
            hooks_.collation(*this, CompareKind::Text);
        } else if (write && i < write->size() && scaled_open(e, (*write)[i].scaled)) {
            expr(e);
            scaled_close((*write)[i].scaled);
        } else {
            expr(e);
        }
        if (!item.alias.empty()) {
            out_.append(" AS ");
            hooks_.result_alias(*this, item.alias, top_level);
        } else if (top_level && e.is<ColumnRef>() && !write) {
            // The result column keeps the name as the statement spells it.
            out_.append(" AS ");
            hooks_.result_alias(*this, e.as<ColumnRef>().name, top_level);
        }
    }
    spec_tail(q);
    write_columns_ = write;
    grouping_ = outer_grouping;
    compound_texts_ = compound_texts;
    compound_numbers_ = compound_numbers;
}

void Emitter::spec_tail(const QuerySpec& q) {
    if (!q.from.empty()) {
        out_.append(" FROM ");
        sources(q.from);
    }
    if (q.where) {
        out_.append(" WHERE ");
        expr(*q.where);
    }
    if (!q.group_by.empty()) {
        out_.append(" GROUP BY ");
        for (std::size_t i = 0; i < q.group_by.size(); ++i) {
            if (i) out_.append(", ");
            std::optional<InlineLiterals> keep;
            if (grouping_ != nullptr) keep.emplace(*this);
            const bool outer = in_grouping_;
            in_grouping_ = true;
            order_term(*q.group_by[i]);
            in_grouping_ = outer;
        }
    }
    if (q.having) {
        out_.append(" HAVING ");
        expr(*q.having);
    }
}

bool Emitter::parameter(const LiteralExpr& l) {
    if (l.kind == LiteralExpr::Kind::Null) return false;
    LiteralValue value;
    if (!literal_value(l.text, value)) return false;
    const std::size_t offset = l.pos;
    auto it = std::find(parameters_->begin(), parameters_->end(), offset);
    if (it == parameters_->end()) it = parameters_->insert(parameters_->end(), offset);
    if (parameter_scales_) {
        const auto index = static_cast<std::size_t>(it - parameters_->begin());
        parameter_scales_->resize(parameters_->size());
        if (pending_scale_ != 0 && pending_offset_ == offset)
            (*parameter_scales_)[index] = pending_scale_;
        pending_scale_ = 0;
    }
    hooks_.parameter(*this, static_cast<std::size_t>(it - parameters_->begin() + 1), l);
    return true;
}

void Emitter::order_term(const Expr& e) {
    // A whole number here is a column position, not a value.
    std::optional<InlineLiterals> position;
    if (e.is<LiteralExpr>()) position.emplace(*this);
    const bool column = e.is<ColumnRef>() && (e.as<ColumnRef>().select_alias || stored_column(e));
    if (!column && e.vtype == ColumnType::Text) {
        operand(e, kOutCollate);
        hooks_.collation(*this, CompareKind::Text);
    } else if (!column && e.vtype == ColumnType::Date) {
        operand(e, kOutCollate);
        hooks_.collation(*this, CompareKind::Date);
    } else {
        expr(e);
    }
}

void Emitter::sources(const List<TableSource*>& from) {
    for (std::size_t i = 0; i < from.size(); ++i) {
        if (i) out_.append(", ");
        source(*from[i]);
    }
}

void Emitter::source(const TableSource& s) {
    switch (s.type) {
        case NodeType::TableRef: {
            const auto& t = s.as<TableRef>();
            if (&t == replaced_) {
                out_.append(replace_prefix_);
                name(t.name);
                out_.append(replace_suffix_);
                out_.push_back(' ');
                name(t.exposed);
                return;
            }
            name(t.name);
            if (!t.alias.empty()) {
                out_.push_back(' ');
                name(t.alias);
            }
            return;
        }
        case NodeType::DerivedTable: {
            const auto& d = s.as<DerivedTable>();
            out_.push_back('(');
            select(*d.query, false);
            out_.append(") ");
            name(d.alias);
            return;
        }
        case NodeType::Join: {
            const auto& j = s.as<Join>();
            source(*j.left);
            static const char* kKinds[] = {" INNER JOIN ", " LEFT JOIN ", " RIGHT JOIN ",
                                           " FULL JOIN ", " CROSS JOIN "};
            out_.append(kKinds[static_cast<int>(j.kind)]);
            if (j.right->is<Join>()) {
                out_.push_back('(');
                source(*j.right);
                out_.push_back(')');
            } else {
                source(*j.right);
            }
            if (j.on) {
                out_.append(" ON ");
                expr(*j.on);
            }
            return;
        }
        default:
            throw std::logic_error("not a table source");
    }
}

void Emitter::insert(const Insert& ins) {
    out_.append("INSERT INTO ");
    name(ins.table->name);
    out_.append(" (");
    for (std::size_t i = 0; i < ins.columns.size(); ++i) {
        if (i) out_.append(", ");
        name(ins.columns[i].name);
    }
    out_.push_back(')');
    if (ins.query) {
        out_.push_back(' ');
        write_columns_ = &ins.columns;
        write_table_ = ins.table->name;
        select(*ins.query, false);
        write_columns_ = nullptr;
        return;
    }
    out_.append(" VALUES ");
    for (std::size_t r = 0; r < ins.rows.size(); ++r) {
        if (r) out_.append(", ");
        out_.push_back('(');
        const auto& row = ins.rows[r];
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (i) out_.append(", ");
            const Expr& e = *row[i];
            const bool null_literal =
                e.is<LiteralExpr>() && e.as<LiteralExpr>().kind == LiteralExpr::Kind::Null;
            if (fitted(e, ins.columns[i].fit, ins.table->name, ins.columns[i].name,
                       ins.columns[i].national)) {
                continue;
            }
            const bool scaled = scaled_open(e, ins.columns[i].scaled);
            if (ins.columns[i].type == ColumnType::Date && e.vtype != ColumnType::Date &&
                !null_literal) {
                hooks_.date_value(*this, e);
            } else {
                hooks_.converted(*this, e, ins.columns[i].type);
            }
            if (scaled) scaled_close(ins.columns[i].scaled);
        }
        out_.push_back(')');
    }
}

bool Emitter::scaled_open(const Expr& value, const SqlType& scaled) {
    if (!scaled.known() || hooks_.scale_check().empty()) return false;
    int cp = 0, cs = 0, p = 0, s = 0;
    decimal_digits(scaled, cp, cs);
    // A literal bound as a parameter may hold any number at the next run of the translation: a
    // number is checked as it is bound (no call for each of a sale's amounts), a text here.
    bool typed = true;
    if (value.is<LiteralExpr>()) {
        const auto& l = value.as<LiteralExpr>();
        if (l.kind == LiteralExpr::Kind::Null) return false;
        LiteralValue v;
        typed =
            !(parameters_ && inline_literals_ == 0 && !l.inline_only && literal_value(l.text, v));
        if (!typed && parameter_scales_ &&
            (l.kind == LiteralExpr::Kind::Integer || l.kind == LiteralExpr::Kind::Decimal)) {
            pending_scale_ = scale_code(scaled);
            pending_offset_ = l.pos;
            return false;
        }
    }
    if (typed && value.sql.is_exact_numeric() && decimal_digits(value.sql, p, s) && s <= cs &&
        p - s <= cp - cs)
        return false;
    out_.append(hooks_.scale_check());
    out_.push_back('(');
    return true;
}

int Emitter::scale_code(const SqlType& scaled) {
    int p = 0, s = 0;
    decimal_digits(scaled, p, s);
    return p * 100 + s + (scaled.base == SqlBase::Decimal ? 0 : 10000);
}

void Emitter::scaled_close(const SqlType& scaled) {
    out_.append(", ");
    out_.append(std::to_string(scale_code(scaled)));
    out_.push_back(')');
}

bool Emitter::fitted(const Expr& value, std::int32_t fit, std::string_view table,
                     std::string_view column, bool national) {
    if (fit <= 0 || hooks_.fit_check().empty()) return false;
    // A number becomes the text the server dialect converts it to, unless it is a whole number
    // whose every text fits; dates are no texts. A NULL fits anything. A column, or a literal
    // written inline, fits when its type's length does. A literal bound as a parameter may hold
    // a longer text at the next run of the same translation: it is checked there.
    if (value.sql.known() && !value.sql.is_text()) {
        const NumberTextForm form = number_text_form(value.sql, -1);
        if (form.kind == nullptr || (value.sql.is_integer() && fit >= widest_text(value.sql)))
            return false;
        hooks_.number_text(*this, value, form, national ? "nvarchar" : "varchar", fit);
        return true;
    }
    if (value.is<LiteralExpr>()) {
        const auto& l = value.as<LiteralExpr>();
        if (l.kind == LiteralExpr::Kind::Null) return false;
        const bool bound = parameters_ && inline_literals_ == 0 && !l.inline_only;
        if (!bound && value.sql.length > 0 && value.sql.length <= fit) return false;
    } else if (value.is<ColumnRef>() && value.sql.is_text() && value.sql.length > 0 &&
               value.sql.length <= fit) {
        return false;
    }
    out_.append(hooks_.fit_check());
    out_.push_back('(');
    if (value.sql.is_text() || hooks_.fit_check_operand().empty()) {
        expr(value);
    } else {
        operand(value, kOutPrimary);
        out_.append(hooks_.fit_check_operand());
    }
    out_.append(", ");
    out_.append(std::to_string(fit));
    out_.append(", ");
    quoted_text(table);
    out_.append(", ");
    quoted_text(column);
    out_.push_back(')');
    return true;
}

void Emitter::expr(const Expr& e) {
    // Wherever a grouped expression appears, it is written as the grouping writes it.
    if (grouping_ != nullptr && !in_grouping_ && grouping_term(e)) {
        grouped(e);
        return;
    }
    switch (e.type) {
        case NodeType::Literal: {
            const auto& l = e.as<LiteralExpr>();
            if (parameters_ && inline_literals_ == 0 && !l.inline_only && parameter(l)) return;
            switch (l.kind) {
                case LiteralExpr::Kind::Integer:
                case LiteralExpr::Kind::Decimal:
                    hooks_.number_literal(*this, l);
                    break;
                case LiteralExpr::Kind::String:
                case LiteralExpr::Kind::NString:
                    hooks_.string_literal(*this, l);
                    break;
                case LiteralExpr::Kind::Null:
                    out_.append("NULL");
                    break;
            }
            return;
        }
        case NodeType::ColumnRef: {
            const auto& c = e.as<ColumnRef>();
            if (c.select_alias) {
                hooks_.result_ref(*this, c, top_level_);
                return;
            }
            if (c.qualify && c.source) {
                name(c.source->exposed);
                out_.push_back('.');
            }
            name(c.name);
            return;
        }
        case NodeType::Star:
            out_.push_back('*');
            return;
        case NodeType::Unary: {
            const auto& u = e.as<Unary>();
            switch (u.op) {
                case UnaryOp::Not:
                    out_.append("NOT ");
                    operand(*u.operand, kOutNot);
                    return;
                case UnaryOp::Neg:
                case UnaryOp::Plus:
                case UnaryOp::BitNot:
                    out_.push_back(u.op == UnaryOp::Neg ? '-' : u.op == UnaryOp::Plus ? '+' : '~');
                    // Never two signs in a row: "--" would start a comment.
                    if (u.operand->is<Unary>()) {
                        out_.push_back('(');
                        expr(*u.operand);
                        out_.push_back(')');
                    } else {
                        operand(*u.operand, kOutUnary);
                    }
                    return;
            }
            return;
        }
        case NodeType::Binary: {
            const auto& b = e.as<Binary>();
            if (b.rounding != DecimalRounding::None && hooks_.decimal_arithmetic(*this, b)) return;
            switch (b.op) {
                case BinaryOp::Or:
                case BinaryOp::And:
                    operand(*b.lhs, precedence(e));
                    out_.append(b.op == BinaryOp::Or ? " OR " : " AND ");
                    operand(*b.rhs, precedence(e));
                    return;
                case BinaryOp::Eq:
                case BinaryOp::Ne:
                case BinaryOp::Lt:
                case BinaryOp::Le:
                case BinaryOp::Gt:
                case BinaryOp::Ge: {
                    static const char* kOps[] = {" = ", " <> ", " < ", " <= ", " > ", " >= "};
                    const int level = precedence(e) + 1;
                    const bool plain = b.compare == CompareKind::Plain;
                    // Engines whose computed texts do not compare as text columns do: each
                    // computed side under the text collation (literals take the other side's).
                    auto computed_text = [&](const Expr& x) {
                        return b.compare == CompareKind::Text && hooks_.collates_computed_text() &&
                               x.vtype == ColumnType::Text && !stored_column(x) &&
                               !x.is<LiteralExpr>();
                    };
                    if (plain && hooks_.plain_compared(*this, *b.lhs, *b.rhs)) {
                    } else if (b.compare == CompareKind::Date && needs_date_value(*b.lhs)) {
                        hooks_.date_value(*this, *b.lhs);
                    } else if (computed_text(*b.lhs)) {
                        operand(*b.lhs, kOutCollate);
                        hooks_.collation(*this, CompareKind::Text);
                    } else {
                        operand(*b.lhs, level);
                    }
                    out_.append(kOps[static_cast<int>(b.op) - static_cast<int>(BinaryOp::Eq)]);
                    if (!(plain && hooks_.plain_compared(*this, *b.rhs, *b.lhs))) {
                        compared(
                            *b.rhs, b.compare,
                            needs_collation(*b.lhs, *b.rhs, b.compare) || computed_text(*b.rhs),
                            level);
                    }
                    return;
                }
                case BinaryOp::Add:
                case BinaryOp::Sub:
                case BinaryOp::Mul: {
                    if (b.op != BinaryOp::Mul && b.arith != ArithKind::Numeric) {
                        hooks_.arithmetic(*this, b);
                        return;
                    }
                    const bool checked =
                        b.range_check != SqlBase::Unknown && !hooks_.range_check().empty();
                    if (checked) {
                        out_.append(hooks_.range_check());
                        out_.push_back('(');
                    }
                    const int level = b.op == BinaryOp::Mul ? kOutMul : kOutAdd;
                    if (checked && !hooks_.range_check_operand().empty()) {
                        operand(*b.lhs, kOutPrimary);
                        out_.append(hooks_.range_check_operand());
                    } else {
                        operand(*b.lhs, level);
                    }
                    out_.append(b.op == BinaryOp::Add   ? " + "
                                : b.op == BinaryOp::Sub ? " - "
                                                        : " * ");
                    operand(*b.rhs, level + 1);
                    if (checked) {
                        out_.append(", '");
                        out_.append(type_name(SqlType::of(b.range_check)));
                        out_.append("')");
                        out_.append(hooks_.range_check_result(b.range_check));
                    }
                    return;
                }
                case BinaryOp::BitAnd:
                case BinaryOp::BitOr:
                    operand(*b.lhs, kOutBitwise);
                    out_.append(b.op == BinaryOp::BitAnd ? " & " : " | ");
                    operand(*b.rhs, kOutBitwise + 1);
                    return;
                case BinaryOp::Div:
                case BinaryOp::Mod:
                case BinaryOp::BitXor:
                    hooks_.arithmetic(*this, b);
                    return;
            }
            return;
        }
        case NodeType::Between: {
            const auto& b = e.as<Between>();
            const bool coll = needs_collation(*b.expr, *b.low, b.compare) &&
                              !carries_collation(*b.high, b.compare);
            const bool plain = b.compare == CompareKind::Plain;
            if (!(plain && hooks_.plain_compared(*this, *b.expr, *b.low))) {
                compared(*b.expr, b.compare, coll, kOutEquality + 1);
            }
            out_.append(b.negated ? " NOT BETWEEN " : " BETWEEN ");
            if (!(plain && hooks_.plain_compared(*this, *b.low, *b.expr))) {
                compared(*b.low, b.compare, false, kOutEquality + 1);
            }
            out_.append(" AND ");
            if (!(plain && hooks_.plain_compared(*this, *b.high, *b.expr))) {
                compared(*b.high, b.compare, false, kOutEquality + 1);
            }
            return;
        }
        case NodeType::InList: {
            const auto& in = e.as<InList>();
            const bool coll =
                in.compare != CompareKind::Plain && !carries_collation(*in.expr, in.compare);
            const bool plain = in.compare == CompareKind::Plain;
            if (!(plain && hooks_.plain_compared(*this, *in.expr, *in.items[0]))) {
                compared(*in.expr, in.compare, coll, kOutEquality + 1);
            }
            out_.append(in.negated ? " NOT IN (" : " IN (");
            for (std::size_t i = 0; i < in.items.size(); ++i) {
                if (i) out_.append(", ");
                if (!(plain && hooks_.plain_compared(*this, *in.items[i], *in.expr))) {
                    compared(*in.items[i], in.compare, false, kOutOr);
                }
            }
            out_.push_back(')');
            return;
        }
        case NodeType::InQuery: {
            const auto& in = e.as<InQuery>();
            const bool coll =
                in.compare != CompareKind::Plain && !carries_collation(*in.expr, in.compare);
            compared(*in.expr, in.compare, coll, kOutEquality + 1);
            out_.append(in.negated ? " NOT IN (" : " IN (");
            // Engines whose computed texts do not compare as text columns do: the values the
            // subquery computes compare as texts too.
            const std::vector<bool> texts{true};
            if (in.compare == CompareKind::Text && hooks_.collates_computed_text())
                compound_texts_ = &texts;
            select(*in.query, false);
            compound_texts_ = nullptr;
            out_.push_back(')');
            return;
        }
        case NodeType::Exists:
            out_.append("EXISTS (");
            select(*e.as<Exists>().query, false);
            out_.push_back(')');
            return;
        case NodeType::Like:
            hooks_.like(*this, e.as<Like>());
            return;
        case NodeType::IsNull: {
            const auto& i = e.as<IsNull>();
            operand(*i.expr, kOutEquality + 1);
            out_.append(i.negated ? " IS NOT NULL" : " IS NULL");
            return;
        }
        case NodeType::Case: {
            const auto& c = e.as<Case>();
            out_.append("CASE");
            if (c.operand) {
                out_.push_back(' ');
                const bool coll =
                    c.compare != CompareKind::Plain && !carries_collation(*c.operand, c.compare);
                compared(*c.operand, c.compare, coll, kOutOr);
            }
            for (const auto& [w, t] : c.whens) {
                out_.append(" WHEN ");
                if (c.operand) {
                    compared(*w, c.compare, false, kOutOr);
                } else {
                    expr(*w);
                }
                out_.append(" THEN ");
                hooks_.converted(*this, *t, e.vtype);
            }
            if (c.otherwise) {
                out_.append(" ELSE ");
                hooks_.converted(*this, *c.otherwise, e.vtype);
            }
            out_.append(" END");
            return;
        }
        case NodeType::Cast:
            hooks_.cast(*this, e.as<Cast>());
            return;
        case NodeType::Function: {
            // The sum of ints is an int on the server: past its range it overflows.
            const auto& f = e.as<Function>();
            const bool checked =
                f.func == Func::Sum && f.sql.base == SqlBase::Int && !hooks_.range_check().empty();
            if (checked) {
                out_.append(hooks_.range_check());
                out_.push_back('(');
            }
            hooks_.function(*this, f);
            if (checked) {
                out_.append(", 'int')");
                out_.append(hooks_.range_check_result(SqlBase::Int));
            }
            return;
        }
        case NodeType::Subquery:
            if (e.as<Subquery>().check_single_row) {
                hooks_.many_row_subquery(*this, e.as<Subquery>());
                return;
            }
            out_.push_back('(');
            select(*e.as<Subquery>().query, false);
            out_.push_back(')');
            return;
        default:
            throw std::logic_error("not an expression node");
    }
}

bool Emitter::identifier_chars(std::string_view name) {
    if (name.empty()) return false;
    const char first = name[0];
    if (!((first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z') || first == '_'))
        return false;
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '_'))
            return false;
    return true;
}

void Emitter::quoted_name(std::string_view name) {
    ch('"');
    for (char c : name) {
        if (c == '"') ch('"');
        ch(c);
    }
    ch('"');
}

void Emitter::quoted_text(std::string_view text) {
    ch('\'');
    for (char c : text) {
        if (c == '\'') ch('\'');
        ch(c);
    }
    ch('\'');
}

void Emitter::number_text_call(std::string_view function, const NumberTextForm& form,
                               std::string_view target, int length,
                               const std::function<void()>& value) {
    out_.append(function);
    out_.push_back('(');
    value();
    out_.append(", '");
    out_.append(form.kind);
    out_.append("', ");
    out_.append(std::to_string(form.digits));
    out_.append(", '");
    out_.append(target);
    out_.append("', ");
    out_.append(std::to_string(length));
    out_.push_back(')');
}

void Emitter::text_number_call(std::string_view function, const SqlType& to,
                               const std::function<void()>& value) {
    out_.append(function);
    out_.push_back('(');
    value();
    if (to.base == SqlBase::Money) {
        out_.append(", 'money', 19, 4)");
    } else if (to.base == SqlBase::SmallMoney) {
        out_.append(", 'smallmoney', 10, 4)");
    } else {
        out_.append(", 'decimal', " + std::to_string(to.precision) + ", " +
                    std::to_string(to.scale) + ")");
    }
}

void Emitter::date_name(DatePart part, std::string_view text_type,
                        const std::function<void()>& part_value) {
    const auto names = date_part_value_names(part);
    if (names.empty()) {
        text("CAST(");
        part_value();
        text(" AS ");
        text(text_type);
        ch(')');
        return;
    }
    text("CASE ");
    part_value();
    for (std::size_t i = 0; i < names.size(); ++i) {
        text(" WHEN ");
        text(std::to_string(i + 1));
        text(" THEN ");
        quoted_text(names[i]);
    }
    text(" END");
}

void Emitter::call(std::string_view fn, const List<Expr*>& args) {
    out_.append(fn);
    ch('(');
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (i > 0) out_.append(", ");
        expr(*args[i]);
    }
    ch(')');
}

void Emitter::aggregate(const Function& f) {
    static const char* kNames[] = {"count(", "sum(", "max(", "min(", "avg("};
    out_.append(kNames[static_cast<int>(f.func) - static_cast<int>(Func::Count)]);
    if (f.star) {
        ch('*');
    } else {
        if (f.distinct) out_.append("DISTINCT ");
        const Expr& arg = *f.args[0];
        if (f.distinct && arg.vtype == ColumnType::Text && !stored_column(arg)) {
            operand(arg, kOutCollate);
            hooks_.collation(*this, CompareKind::Text);
        } else {
            expr(arg);
        }
    }
    ch(')');
    if (f.over) window(*f.over);
}

void Emitter::ranking(const Function& f) {
    static const char* kNames[] = {"row_number()", "rank()", "dense_rank()"};
    out_.append(kNames[static_cast<int>(f.func) - static_cast<int>(Func::RowNumber)]);
    window(*f.over);
}

void Emitter::window_function(const Function& f) {
    static const char* kNames[] = {"ntile(", "lag(", "lead(", "first_value(", "last_value("};
    out_.append(kNames[static_cast<int>(f.func) - static_cast<int>(Func::Ntile)]);
    if (f.func == Func::Ntile) out_.append(std::to_string(f.window_count));
    if (!f.args.empty()) expr(*f.args[0]);
    if (f.window_count >= 0 && f.func != Func::Ntile) {
        out_.append(", ");
        out_.append(std::to_string(f.window_count));
    }
    if (f.args.size() > 1) {
        // lag's and lead's default, of the value's type as the server converts it.
        out_.append(", ");
        expr(*f.args[1]);
    }
    ch(')');
    window(*f.over);
}

void Emitter::window(const Window& w) {
    // Partitions, peers and ties are decided as the server compares (texts without case and
    // trailing blanks, as ORDER BY orders them); nulls come first, as the server sorts them.
    out_.append(" OVER (");
    if (!w.partition_by.empty()) {
        out_.append("PARTITION BY ");
        for (std::size_t i = 0; i < w.partition_by.size(); ++i) {
            if (i) out_.append(", ");
            order_term(*w.partition_by[i]);
        }
        if (!w.order_by.empty()) out_.push_back(' ');
    }
    if (!w.order_by.empty()) {
        out_.append("ORDER BY ");
        for (std::size_t i = 0; i < w.order_by.size(); ++i) {
            if (i) out_.append(", ");
            order_term(*w.order_by[i].expr);
            out_.append(w.order_by[i].desc ? " DESC NULLS LAST" : " NULLS FIRST");
        }
    }
    if (w.frame != Window::Frame::None) {
        out_.append(w.frame == Window::Frame::Rows ? " ROWS BETWEEN " : " RANGE BETWEEN ");
        auto bound = [&](const FrameBound& b) {
            switch (b.kind) {
                case FrameBound::Kind::UnboundedPreceding:
                    out_.append("UNBOUNDED PRECEDING");
                    break;
                case FrameBound::Kind::Preceding:
                    out_.append(std::to_string(b.rows) + " PRECEDING");
                    break;
                case FrameBound::Kind::CurrentRow:
                    out_.append("CURRENT ROW");
                    break;
                case FrameBound::Kind::Following:
                    out_.append(std::to_string(b.rows) + " FOLLOWING");
                    break;
                case FrameBound::Kind::UnboundedFollowing:
                    out_.append("UNBOUNDED FOLLOWING");
                    break;
            }
        };
        bound(w.start);
        out_.append(" AND ");
        bound(w.end);
    }
    out_.push_back(')');
}

void Emitter::plain_delete(const Delete& d) {
    out_.append("DELETE FROM ");
    name(d.target->name);
    if (!d.target->alias.empty()) {
        out_.append(" AS ");
        name(d.target->alias);
    }
    if (d.where) {
        out_.append(" WHERE ");
        expr(*d.where);
    }
}

}  // namespace billdata::dialect
