#include "billdata/dialect/parser.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

// Binding strength of T-SQL's operators, loosest first. This table is the only place that
// decides precedence: NOT binds looser than the comparisons and predicates, which bind looser
// than the additive operators (bitwise &, |, ^ included), then the multiplicative ones; unary
// minus, plus and ~ bind tightest.
enum Prec : int {
    kPrecOr = 1,
    kPrecAnd = 2,
    kPrecNot = 3,
    kPrecCompare = 4,  // = <> != < <= > >= !< !>, BETWEEN, IN, LIKE, IS NULL
    kPrecAdd = 5,      // + - & | ^
    kPrecMul = 6,      // * / %
    kPrecUnary = 7,
};

struct BinaryOpInfo {
    Tok tok;
    Kw kw;
    BinaryOp op;
    int prec;
};

constexpr BinaryOpInfo kBinaryOps[] = {
    {Tok::Identifier, Kw::kOR, BinaryOp::Or, kPrecOr},
    {Tok::Identifier, Kw::kAND, BinaryOp::And, kPrecAnd},
    {Tok::Eq, Kw::None, BinaryOp::Eq, kPrecCompare},
    {Tok::Ne, Kw::None, BinaryOp::Ne, kPrecCompare},
    {Tok::Lt, Kw::None, BinaryOp::Lt, kPrecCompare},
    {Tok::Le, Kw::None, BinaryOp::Le, kPrecCompare},
    {Tok::Gt, Kw::None, BinaryOp::Gt, kPrecCompare},
    {Tok::Ge, Kw::None, BinaryOp::Ge, kPrecCompare},
    {Tok::NotLt, Kw::None, BinaryOp::Ge, kPrecCompare},  // !< is "not less than"
    {Tok::NotGt, Kw::None, BinaryOp::Le, kPrecCompare},  // !> is "not greater than"
    {Tok::Plus, Kw::None, BinaryOp::Add, kPrecAdd},
    {Tok::Minus, Kw::None, BinaryOp::Sub, kPrecAdd},
    {Tok::Amp, Kw::None, BinaryOp::BitAnd, kPrecAdd},
    {Tok::Pipe, Kw::None, BinaryOp::BitOr, kPrecAdd},
    {Tok::Caret, Kw::None, BinaryOp::BitXor, kPrecAdd},
    {Tok::Star, Kw::None, BinaryOp::Mul, kPrecMul},
    {Tok::Slash, Kw::None, BinaryOp::Div, kPrecMul},
    {Tok::Percent, Kw::None, BinaryOp::Mod, kPrecMul},
};

const BinaryOpInfo* binary_op_of(const Token& t) {
    for (const auto& info : kBinaryOps) {
        if (info.tok != t.kind) continue;
        if (info.tok == Tok::Identifier && info.kw != t.kw) continue;
        return &info;
    }
    return nullptr;
}

struct FuncEntry {
    std::string_view name;
    Func func;
    int min_args;
    int max_args;
};

constexpr FuncEntry kFunctions[] = {
    {"isnull", Func::IsNull, 2, 2},
    {"coalesce", Func::Coalesce, 2, 64},
    {"nullif", Func::NullIf, 2, 2},
    {"getdate", Func::GetDate, 0, 0},
    {"year", Func::Year, 1, 1},
    {"month", Func::Month, 1, 1},
    {"day", Func::Day, 1, 1},
    {"dateadd", Func::DateAdd, 2, 2},
    {"datediff", Func::DateDiff, 2, 2},
    {"datepart", Func::DatePart, 1, 1},
    {"len", Func::Len, 1, 1},
    {"left", Func::Left, 2, 2},
    {"right", Func::Right, 2, 2},
    {"substring", Func::Substring, 3, 3},
    {"charindex", Func::CharIndex, 2, 3},
    {"ltrim", Func::LTrim, 1, 1},
    {"rtrim", Func::RTrim, 1, 1},
    {"upper", Func::Upper, 1, 1},
    {"lower", Func::Lower, 1, 1},
    {"replace", Func::Replace, 3, 3},
    {"round", Func::Round, 2, 3},
    {"abs", Func::Abs, 1, 1},
    {"floor", Func::Floor, 1, 1},
    {"ceiling", Func::Ceiling, 1, 1},
    {"replicate", Func::Replicate, 2, 2},
    {"space", Func::Space, 1, 1},
    {"reverse", Func::Reverse, 1, 1},
    {"stuff", Func::Stuff, 4, 4},
    {"datalength", Func::DataLength, 1, 1},
    {"power", Func::Power, 2, 2},
    {"patindex", Func::PatIndex, 2, 2},
    {"isdate", Func::IsDate, 1, 1},
    {"datename", Func::DateName, 1, 1},
    {"str", Func::Str, 1, 3},
    {"row_number", Func::RowNumber, 0, 0},
    {"rank", Func::Rank, 0, 0},
    {"dense_rank", Func::DenseRank, 0, 0},
    {"ntile", Func::Ntile, 1, 1},
    {"lag", Func::Lag, 1, 3},
    {"lead", Func::Lead, 1, 3},
    {"first_value", Func::FirstValue, 1, 1},
    {"last_value", Func::LastValue, 1, 1},
    {"count", Func::Count, 1, 1},
    {"sum", Func::Sum, 1, 1},
    {"max", Func::Max, 1, 1},
    {"min", Func::Min, 1, 1},
    {"avg", Func::Avg, 1, 1},
};

struct PartEntry {
    std::string_view name;
    DatePart part;
};

constexpr PartEntry kDateParts[] = {
    {"year", DatePart::Year},       {"yy", DatePart::Year},
    {"yyyy", DatePart::Year},       {"quarter", DatePart::Quarter},
    {"qq", DatePart::Quarter},      {"q", DatePart::Quarter},
    {"month", DatePart::Month},     {"mm", DatePart::Month},
    {"m", DatePart::Month},         {"dayofyear", DatePart::DayOfYear},
    {"dy", DatePart::DayOfYear},    {"y", DatePart::DayOfYear},
    {"day", DatePart::Day},         {"dd", DatePart::Day},
    {"d", DatePart::Day},           {"week", DatePart::Week},
    {"wk", DatePart::Week},         {"ww", DatePart::Week},
    {"weekday", DatePart::Weekday}, {"dw", DatePart::Weekday},
    {"w", DatePart::Weekday},       {"hour", DatePart::Hour},
    {"hh", DatePart::Hour},         {"minute", DatePart::Minute},
    {"mi", DatePart::Minute},       {"n", DatePart::Minute},
    {"second", DatePart::Second},   {"ss", DatePart::Second},
    {"s", DatePart::Second},        {"millisecond", DatePart::Millisecond},
    {"ms", DatePart::Millisecond},
};

bool starts_statement(const Token& t) {
    if (t.kind == Tok::LParen) return true;
    if (t.kind != Tok::Identifier) return false;
    switch (t.kw) {
        case Kw::kSELECT:
        case Kw::kINSERT:
        case Kw::kUPDATE:
        case Kw::kDELETE:
        case Kw::kTRUNCATE:
        case Kw::kDROP:
        case Kw::kCREATE:
        case Kw::kALTER:
        case Kw::kEXEC:
        case Kw::kEXECUTE:
        case Kw::kDECLARE:
        case Kw::kSET:
        case Kw::kBEGIN:
        case Kw::kCOMMIT:
        case Kw::kROLLBACK:
        case Kw::kIF:
        case Kw::kWHILE:
        case Kw::kGRANT:
        case Kw::kREVOKE:
        case Kw::kDENY:
        case Kw::kMERGE:
        case Kw::kWITH:
        case Kw::kUSE:
        case Kw::kPRINT:
        case Kw::kWAITFOR:
        case Kw::kRETURN:
            return true;
        default:
            return false;
    }
}

// The parser and every walk of the tree after it (binding, emitting) recurse as deep as the
// statement nests, so nesting is bounded here, where the offending token's position is known:
// the parser's own recursion (parentheses, subqueries, unary operators, NOT) to kMaxDepth, and
// the height of the tree, which chains of operators, joins and unions add to, to kMaxHeight.
// The engine itself refuses expressions deeper than 1000 levels.
constexpr int kMaxDepth = 256;
constexpr int kMaxHeight = 1000;

// An error the server raises for the statement as written, in its words.
[[noreturn]] void server_error(const std::string& message, std::size_t pos, std::string construct) {
    throw DialectError(message + " at position " + std::to_string(pos), pos, std::move(construct));
}

[[noreturn]] void too_deep(std::size_t pos) {
    throw DialectError("statement nested too deeply at position " + std::to_string(pos), pos,
                       "nesting");
}

// One level of the parser's recursion. `reach` is the deepest level that anything parsed so
// far lies at.
struct DepthGuard {
    int& depth;
    DepthGuard(int& d, int& reach, std::size_t pos) : depth(d) {
        if (depth + 1 > kMaxDepth) too_deep(pos);
        reach = std::max(reach, ++depth);
    }
    ~DepthGuard() { --depth; }
};

// A left-deep chain built in a loop (a + b + c, t1 join t2 join t3, q1 union q2 union q3) takes
// no recursion to parse, but each link puts everything parsed before it one level deeper in
// the tree.
class ChainHeight {
  public:
    ChainHeight(int depth, int& reach) : reach_(reach), outer_(reach), top_(depth) {
        reach_ = depth;
    }
    ~ChainHeight() { reach_ = std::max(outer_, reach_); }
    // One more link, made by the operator at `pos`.
    void link(std::size_t pos) {
        top_ = std::max(top_, reach_) + 1;
        if (top_ > kMaxHeight) too_deep(pos);
        reach_ = top_;
    }

  private:
    int& reach_;
    int outer_;
    int top_;
};

}  // namespace

Parser::Parser(std::string_view source, Arena& arena)
    : arena_(arena), src_(source), lexer_(source) {
    tokens_.reserve(source.size() / 4 + 8);
    lexer_.run(tokens_);
}

bool Parser::accept_kw(Kw kw) {
    if (!is_kw(kw)) return false;
    ++at_;
    return true;
}

bool Parser::accept(Tok kind) {
    if (peek().kind != kind) return false;
    ++at_;
    return true;
}

void Parser::expect_kw(Kw kw) {
    if (!accept_kw(kw)) syntax_error(peek());
}

void Parser::expect(Tok kind) {
    if (!accept(kind)) syntax_error(peek());
}

void Parser::syntax_error(const Token& at) const {
    if (at.kind == Tok::End) {
        throw DialectError(
            "syntax error: unexpected end of statement at position " + std::to_string(at.pos),
            at.pos, "end of statement");
    }
    std::string near = excerpt(src_.substr(at.pos, at.len));
    throw DialectError("syntax error near '" + near + "' at position " + std::to_string(at.pos),
                       at.pos, near);
}

void Parser::unsupported(std::string_view construct, std::size_t pos) const {
    const std::string shown = excerpt(construct);
    throw DialectError("unsupported construct '" + shown + "' at position " + std::to_string(pos),
                       pos, shown);
}

bool Parser::is_name_token(const Token& t) const {
    return t.kind == Tok::QuotedIdentifier || (t.kind == Tok::Identifier && t.kw == Kw::None);
}

std::string_view Parser::expect_name() {
    const Token& t = peek();
    if (t.kind == Tok::Variable) unsupported("variable " + std::string(t.text), t.pos);
    if (!is_name_token(t)) syntax_error(t);
    ++at_;
    return t.text;
}

// ---- statements --------------------------------------------------------------------------

Node* Parser::parse_statement() {
    const Token& first = peek();
    Node* stmt = nullptr;
    if (first.kind == Tok::LParen || is_kw(Kw::kSELECT)) {
        kind_ = StatementKind::Select;
        stmt = parse_select();
    } else if (is_kw(Kw::kINSERT)) {
        kind_ = StatementKind::Insert;
        stmt = parse_insert();
    } else if (is_kw(Kw::kUPDATE)) {
        kind_ = StatementKind::Update;
        stmt = parse_update();
    } else if (is_kw(Kw::kDELETE)) {
        kind_ = StatementKind::Delete;
        stmt = parse_delete();
    } else if (is_kw(Kw::kTRUNCATE)) {
        kind_ = StatementKind::Truncate;
        stmt = parse_truncate();
    } else if (first.kind == Tok::End) {
        throw DialectError("empty statement at position 0", 0, "empty statement");
    } else if (first.kind == Tok::Identifier && first.kw == Kw::kSET &&
               peek(1).kind == Tok::Identifier) {
        // SET DATEFIRST and the other session options would change how later statements answer.
        unsupported("set " + lower_copy(peek(1).text), first.pos);
    } else if (first.kind == Tok::Identifier && first.kw != Kw::None) {
        unsupported(lower_copy(first.text), first.pos);
    } else {
        syntax_error(first);
    }
    accept(Tok::Semicolon);
    const Token& rest = peek();
    if (rest.kind != Tok::End) {
        if (starts_statement(rest) || (at_ > 0 && tokens_[at_ - 1].kind == Tok::Semicolon)) {
            throw DialectError(
                "a second statement is not allowed at position " + std::to_string(rest.pos),
                rest.pos, "second statement");
        }
        syntax_error(rest);
    }
    return stmt;
}

Node* Parser::parse_truncate() {
    ++at_;  // TRUNCATE
    expect_kw(Kw::kTABLE);
    return arena_.make<Truncate>(peek().pos, parse_table_name(false));
}

Node* Parser::parse_insert() {
    const Token& start = next();  // INSERT
    accept_kw(Kw::kINTO);
    if (is_kw(Kw::kTOP)) unsupported("insert top", peek().pos);
    auto* ins = arena_.make<Insert>(start.pos, parse_table_name(false), arena_.resource());
    if (peek().kind == Tok::LParen && !is_kw(Kw::kSELECT, 1)) {
        ++at_;
        do {
            const Token& t = peek();
            std::string_view name = expect_name();
            ins->columns.push_back(InsertColumn{name, t.pos, ColumnType::Unknown});
        } while (accept(Tok::Comma));
        expect(Tok::RParen);
    }
    if (accept_kw(Kw::kVALUES)) {
        do {
            expect(Tok::LParen);
            List<Expr*> row(arena_.resource());
            do {
                row.push_back(parse_expr());
            } while (accept(Tok::Comma));
            expect(Tok::RParen);
            ins->rows.push_back(std::move(row));
        } while (accept(Tok::Comma));
    } else if (is_kw(Kw::kSELECT) || peek().kind == Tok::LParen) {
        ins->query = parse_select();
    } else if (is_kw(Kw::kDEFAULT)) {
        unsupported("default values", peek().pos);
    } else if (is_kw(Kw::kEXEC) || is_kw(Kw::kEXECUTE)) {
        unsupported("insert exec", peek().pos);
    } else {
        syntax_error(peek());
    }
    return ins;
}

Node* Parser::parse_update() {
    const Token& start = next();  // UPDATE
    if (is_kw(Kw::kTOP)) unsupported("update top", peek().pos);
    auto* upd = arena_.make<Update>(start.pos, parse_table_name(false), arena_.resource());
    expect_kw(Kw::kSET);
    do {
        const Token& t = peek();
        if (t.kind == Tok::Variable) unsupported("variable " + std::string(t.text), t.pos);
        SetItem item{};
        item.pos = t.pos;
        item.column = expect_name();
        if (accept(Tok::Dot)) {
            item.qualifier = item.column;
            item.pos = peek().pos;
            item.column = expect_name();
        }
        const Token& op = peek();
        if (op.kind != Tok::Eq) {
            if ((op.kind == Tok::Plus || op.kind == Tok::Minus || op.kind == Tok::Star ||
                 op.kind == Tok::Slash) &&
                peek(1).kind == Tok::Eq) {
                unsupported(std::string(op.text) + "=", op.pos);
            }
            syntax_error(op);
        }
        ++at_;
        item.value = parse_expr();
        upd->sets.push_back(item);
    } while (accept(Tok::Comma));
    if (accept_kw(Kw::kFROM)) parse_from_list(upd->from);
    if (accept_kw(Kw::kWHERE)) upd->where = parse_expr();
    return upd;
}

Node* Parser::parse_delete() {
    const Token& start = next();  // DELETE
    if (is_kw(Kw::kTOP)) unsupported("delete top", peek().pos);
    accept_kw(Kw::kFROM);
    auto* del = arena_.make<Delete>(start.pos, parse_table_name(true), arena_.resource());
    if (accept_kw(Kw::kFROM)) parse_from_list(del->from);
    if (accept_kw(Kw::kWHERE)) del->where = parse_expr();
    return del;
}

// ---- queries ----------------------------------------------------------------------------

namespace {

// A query of `body` with TOP … WITH TIES that no ORDER BY decides the ties of: any member of a
// union (which cannot have an ORDER BY of its own), or the query itself when `ordered` is false.
const QuerySpec* tied_without_order(const Node* body, bool ordered) {
    if (body->is<SetOperation>()) {
        const auto& op = body->as<SetOperation>();
        if (const QuerySpec* q = tied_without_order(op.left, false)) return q;
        return tied_without_order(op.right, false);
    }
    const auto& q = body->as<QuerySpec>();
    return q.with_ties && !ordered ? &q : nullptr;
}

}  // namespace

Select* Parser::parse_select() {
    DepthGuard guard(depth_, reach_, peek().pos);
    std::uint32_t pos = peek().pos;
    Node* body = parse_query_expr();
    auto* select = arena_.make<Select>(pos, body, arena_.resource());
    if (is_kw(Kw::kORDER)) parse_order_by(*select);
    if (const QuerySpec* tied = tied_without_order(body, !select->order_by.empty())) {
        throw DialectError(
            "The TOP N WITH TIES clause is not allowed without a corresponding ORDER BY clause.",
            tied->pos, "top with ties", 1062);
    }
    if (select->offset >= 0 && body->is<QuerySpec>() &&
        (body->as<QuerySpec>().top >= 0 || body->as<QuerySpec>().percent_num >= 0)) {
        server_error("A TOP can not be used in the same query or sub-query as a OFFSET.", body->pos,
                     "top with offset");
    }
    if (is_kw(Kw::kOPTION)) unsupported("option", peek().pos);
    if (is_kw(Kw::kFOR)) unsupported("for xml/browse", peek().pos);
    if (is_kw(Kw::kCOMPUTE)) unsupported("compute", peek().pos);
    return select;
}

Node* Parser::parse_query_expr() {
    ChainHeight chain(depth_, reach_);
    Node* left = parse_query_term();
    for (;;) {
        const Token& t = peek();
        SetOp op;
        if (accept_kw(Kw::kUNION)) {
            op = accept_kw(Kw::kALL) ? SetOp::UnionAll : SetOp::Union;
        } else if (accept_kw(Kw::kEXCEPT)) {
            op = SetOp::Except;
        } else if (accept_kw(Kw::kINTERSECT)) {
            op = SetOp::Intersect;
        } else {
            return left;
        }
        Node* right = parse_query_term();
        chain.link(t.pos);
        left = arena_.make<SetOperation>(t.pos, op, left, right);
    }
}

Node* Parser::parse_query_term() {
    if (peek().kind == Tok::LParen) {
        DepthGuard guard(depth_, reach_, peek().pos);
        ++at_;
        Node* inner = parse_query_expr();
        if (is_kw(Kw::kORDER)) unsupported("order by inside a parenthesised query", peek().pos);
        expect(Tok::RParen);
        return inner;
    }
    if (!is_kw(Kw::kSELECT)) syntax_error(peek());
    return parse_query_spec();
}

long long Parser::parse_plain_integer() {
    const Token& t = peek();
    if (t.kind != Tok::Number) syntax_error(t);
    long long value = 0;
    auto [p, ec] = std::from_chars(t.text.data(), t.text.data() + t.text.size(), value);
    if (ec != std::errc() || p != t.text.data() + t.text.size()) syntax_error(t);
    ++at_;
    return value;
}

long long Parser::parse_top(QuerySpec& spec) {
    const Token& start = next();  // TOP
    const bool parens = accept(Tok::LParen);
    if (parens && peek().kind == Tok::Variable) unsupported("top with a variable", peek().pos);
    const Token& count = peek();
    const bool whole =
        count.kind == Tok::Number && count.text.find_first_of(".eE") == std::string_view::npos;
    long long n = -1;
    if (whole) {
        n = parse_plain_integer();
    } else if (count.kind == Tok::Number &&
               count.text.find_first_of("eE") == std::string_view::npos) {
        ++at_;  // a fraction: only a percentage may have one
    } else {
        syntax_error(count);
    }
    if (parens) expect(Tok::RParen);
    if (accept_kw(Kw::kPERCENT)) {
        // n percent as the fraction digits / (100 * 10^decimals), so that the row count is
        // computed in whole numbers: ceiling(rows * digits / denominator).
        long long digits = 0;
        long long den = 100;
        bool after_point = false;
        int length = 0;
        for (char c : count.text) {
            if (c == '.') {
                after_point = true;
                continue;
            }
            // Few digits, so that rows * digits stays far inside 64 bits.
            if (++length > 6) unsupported("top percent with more than 6 digits", count.pos);
            digits = digits * 10 + (c - '0');
            if (after_point) den *= 10;
        }
        if (digits > den) {
            server_error("Percent values must be between 0 and 100.", count.pos, "top percent");
        }
        spec.percent_num = digits;
        spec.percent_den = den;
        n = -1;
    } else if (!whole) {
        server_error(
            "The number of rows provided for a TOP or FETCH clauses row count parameter must be "
            "an integer.",
            count.pos, "top");
    }
    if (is_kw(Kw::kWITH) && peek(1).kind == Tok::Identifier && iequals(peek(1).text, "ties")) {
        at_ += 2;
        spec.with_ties = true;
        // Ties after a DISTINCT would be counted before the duplicates go.
        if (spec.distinct) unsupported("top with ties after distinct", start.pos);
    }
    return n;
}

QuerySpec* Parser::parse_query_spec() {
    const Token& start = next();  // SELECT
    auto* spec = arena_.make<QuerySpec>(start.pos, arena_.resource());
    if (accept_kw(Kw::kDISTINCT)) {
        spec->distinct = true;
    } else {
        accept_kw(Kw::kALL);
    }
    if (is_kw(Kw::kTOP)) spec->top = parse_top(*spec);
    do {
        parse_select_item(*spec);
    } while (accept(Tok::Comma));
    if (is_kw(Kw::kINTO)) unsupported("select into", peek().pos);
    if (accept_kw(Kw::kFROM)) parse_from_list(spec->from);
    if (accept_kw(Kw::kWHERE)) spec->where = parse_expr();
    if (accept_kw(Kw::kGROUP)) {
        expect_kw(Kw::kBY);
        if (is_kw(Kw::kALL)) unsupported("group by all", peek().pos);
        do {
            spec->group_by.push_back(parse_expr());
        } while (accept(Tok::Comma));
        if (is_kw(Kw::kWITH)) unsupported("group by with rollup/cube", peek().pos);
    }
    if (accept_kw(Kw::kHAVING)) spec->having = parse_expr();
    return spec;
}

void Parser::parse_select_item(QuerySpec& spec) {
    const Token& t = peek();
    if (t.kind == Tok::Star) {
        ++at_;
        spec.items.push_back(SelectItem{arena_.make<Star>(t.pos, std::string_view()), {}});
        return;
    }
    if (is_name_token(t) && peek(1).kind == Tok::Dot && peek(2).kind == Tok::Star) {
        at_ += 3;
        spec.items.push_back(SelectItem{arena_.make<Star>(t.pos, t.text), {}});
        return;
    }
    // `alias = expression`: in a select list '=' after a lone name always names the column.
    if ((is_name_token(t) || t.kind == Tok::String) && peek(1).kind == Tok::Eq) {
        at_ += 2;
        std::string_view alias = t.text;
        if (t.kind == Tok::String)
            alias =
                arena_.copy(LiteralExpr(t.pos, LiteralExpr::Kind::String, t.text).string_value());
        spec.items.push_back(SelectItem{parse_expr(), alias});
        return;
    }
    if (t.kind == Tok::Variable && peek(1).kind == Tok::Eq && !script_) {
        unsupported("variable assignment", t.pos);
    }
    Expr* e = parse_expr();
    spec.items.push_back(SelectItem{e, parse_alias()});
}

std::string_view Parser::parse_alias() {
    bool as = accept_kw(Kw::kAS);
    const Token& t = peek();
    if (is_name_token(t)) {
        ++at_;
        return t.text;
    }
    if (t.kind == Tok::String || t.kind == Tok::NString) {
        ++at_;
        return arena_.copy(LiteralExpr(t.pos, LiteralExpr::Kind::String,
                                       t.kind == Tok::NString ? t.text.substr(1) : t.text)
                               .string_value());
    }
    if (as) syntax_error(t);
    return {};
}

void Parser::parse_from_list(List<TableSource*>& from) {
    do {
        from.push_back(parse_table_source());
    } while (accept(Tok::Comma));
}

TableSource* Parser::parse_table_source() {
    DepthGuard guard(depth_, reach_, peek().pos);
    ChainHeight chain(depth_, reach_);
    TableSource* left = parse_table_primary();
    for (;;) {
        const Token& t = peek();
        JoinKind kind;
        if (accept_kw(Kw::kJOIN)) {
            kind = JoinKind::Inner;
        } else if (is_kw(Kw::kINNER)) {
            ++at_;
            if (!is_kw(Kw::kJOIN)) unsupported("join hint", peek().pos);
            ++at_;
            kind = JoinKind::Inner;
        } else if (is_kw(Kw::kLEFT) || is_kw(Kw::kRIGHT) || is_kw(Kw::kFULL)) {
            kind = is_kw(Kw::kLEFT)    ? JoinKind::Left
                   : is_kw(Kw::kRIGHT) ? JoinKind::Right
                                       : JoinKind::Full;
            ++at_;
            accept_kw(Kw::kOUTER);
            if (!is_kw(Kw::kJOIN)) unsupported("join hint", peek().pos);
            ++at_;
        } else if (is_kw(Kw::kCROSS)) {
            ++at_;
            if (peek().kind == Tok::Identifier && iequals(peek().text, "apply")) {
                unsupported("cross apply", t.pos);
            }
            expect_kw(Kw::kJOIN);
            kind = JoinKind::Cross;
        } else if (is_kw(Kw::kOUTER) && peek(1).kind == Tok::Identifier &&
                   iequals(peek(1).text, "apply")) {
            unsupported("outer apply", t.pos);
        } else {
            return left;
        }
        TableSource* right = parse_table_primary();
        Expr* on = nullptr;
        if (kind != JoinKind::Cross) {
            expect_kw(Kw::kON);
            on = parse_expr();
        }
        chain.link(t.pos);
        left = arena_.make<Join>(t.pos, kind, left, right, on);
    }
}

TableSource* Parser::parse_table_primary() {
    const Token& t = peek();
    if (t.kind == Tok::LBrace) {
        // {oj …}: ODBC's outer join escape holds an ordinary join.
        ++at_;
        const Token& oj = peek();
        if (!(oj.kind == Tok::Identifier && iequals(oj.text, "oj"))) syntax_error(oj);
        ++at_;
        DepthGuard guard(depth_, reach_, oj.pos);
        TableSource* inner = parse_table_source();
        expect(Tok::RBrace);
        return inner;
    }
    if (t.kind == Tok::LParen) {
        if (is_kw(Kw::kSELECT, 1) || peek(1).kind == Tok::LParen) {
            // A derived table, or a parenthesised join.
            std::size_t save = at_;
            ++at_;
            if (is_kw(Kw::kSELECT)) {
                Select* q = parse_select();
                expect(Tok::RParen);
                accept_kw(Kw::kAS);
                const Token& a = peek();
                if (!is_name_token(a)) syntax_error(a);
                ++at_;
                if (peek().kind == Tok::LParen) unsupported("derived column list", peek().pos);
                return arena_.make<DerivedTable>(t.pos, q, a.text, arena_.resource());
            }
            at_ = save;
        }
        ++at_;
        TableSource* inner = parse_table_source();
        expect(Tok::RParen);
        return inner;
    }
    if (t.kind == Tok::Variable) unsupported("table variable " + std::string(t.text), t.pos);
    return parse_table_name(true);
}

TableRef* Parser::parse_table_name(bool allow_alias) {
    const Token& t = peek();
    if (t.kind == Tok::Variable) unsupported("table variable " + std::string(t.text), t.pos);
    std::string_view name = expect_name();
    std::uint32_t pos = t.pos;
    // database.schema.table and schema.table name the table by their last part.
    int parts = 1;
    std::string_view schema_part;
    while (peek().kind == Tok::Dot) {
        ++at_;
        if (peek().kind == Tok::Dot) continue;  // database..table
        pos = peek().pos;
        schema_part = name;
        name = expect_name();
        if (++parts > 4) syntax_error(peek());
    }
    // The schema views that tools read are views of the database itself, under the name the
    // statement wrote.
    std::string_view written;
    if (parts > 1 && iequals(schema_part, "information_schema")) {
        written = name;
        if (iequals(name, "tables")) {
            name = "t_SchemaTables";
        } else if (iequals(name, "columns")) {
            name = "t_SchemaColumns";
        } else {
            unsupported("information_schema." + lower_copy(name), pos);
        }
    }
    if (peek().kind == Tok::LParen && !allow_alias) {
        // `insert into t(...)` takes a column list here; the caller handles it.
        return arena_.make<TableRef>(pos, name, std::string_view());
    }
    std::string_view alias;
    bool hinted = false;
    if (allow_alias) {
        if (peek().kind == Tok::LParen) {
            // `t (nolock)`: the old form of a table hint; anything else would be a function.
            const Token& inside = peek(1);
            if (inside.kind == Tok::Identifier &&
                (iequals(inside.text, "nolock") || iequals(inside.text, "readuncommitted") ||
                 iequals(inside.text, "rowlock") || iequals(inside.text, "updlock") ||
                 iequals(inside.text, "holdlock") || iequals(inside.text, "tablock") ||
                 iequals(inside.text, "readpast") || iequals(inside.text, "paglock"))) {
                skip_table_hints();
                hinted = true;
            } else {
                unsupported("table-valued function", pos);
            }
        }
        alias = parse_alias();
    }
    // Where a table hint of our own would go: just past the name and its alias.
    const std::uint32_t end = tokens_[at_ - 1].pos + tokens_[at_ - 1].len;
    const std::size_t before_hints = at_;
    skip_table_hints();
    if (alias.empty()) alias = written;
    auto* ref = arena_.make<TableRef>(pos, name, alias);
    ref->end = end;
    ref->hinted = hinted || at_ != before_hints;
    return ref;
}

void Parser::skip_table_hints() {
    // WITH (NOLOCK, INDEX(ix)) or (NOLOCK): locking hints change nothing on the embedded engine
    // and are dropped.
    std::size_t start = at_;
    if (is_kw(Kw::kWITH) && peek(1).kind == Tok::LParen) {
        ++at_;
    } else if (peek().kind != Tok::LParen) {
        return;
    }
    const Token& open = next();
    int level = 1;
    while (level > 0) {
        const Token& t = next();
        if (t.kind == Tok::End) {
            at_ = start;
            syntax_error(open);
        }
        if (t.kind == Tok::LParen) ++level;
        if (t.kind == Tok::RParen) --level;
    }
}

void Parser::parse_order_by(Select& select) {
    ++at_;  // ORDER
    expect_kw(Kw::kBY);
    do {
        Expr* e = parse_expr();
        bool desc = false;
        if (accept_kw(Kw::kDESC)) {
            desc = true;
        } else {
            accept_kw(Kw::kASC);
        }
        select.order_by.push_back(OrderItem{e, desc, false});
    } while (accept(Tok::Comma));
    if (peek().kind == Tok::Identifier && iequals(peek().text, "offset")) {
        ++at_;
        select.offset = parse_row_count(false);
        if (is_kw(Kw::kFETCH)) {
            ++at_;
            const Token& which = peek();
            if (!(which.kind == Tok::Identifier &&
                  (iequals(which.text, "next") || iequals(which.text, "first")))) {
                syntax_error(which);
            }
            ++at_;
            select.fetch = parse_row_count(true);
            const Token& only = peek();
            if (!(only.kind == Tok::Identifier && iequals(only.text, "only"))) syntax_error(only);
            ++at_;
        }
    }
}

// The row count of OFFSET n ROWS or FETCH NEXT n ROWS, ROW or ROWS included: a whole number,
// in parentheses or not. It shapes the statement, as a TOP count does.
long long Parser::parse_row_count(bool fetch) {
    const bool parens = accept(Tok::LParen);
    const Token& t = peek();
    if (t.kind == Tok::Variable) unsupported("offset/fetch with a variable", t.pos);
    const bool negative = accept(Tok::Minus);
    const Token& number = peek();
    if (number.kind != Tok::Number) unsupported("offset/fetch with an expression", number.pos);
    long long n = parse_plain_integer();
    if (parens) expect(Tok::RParen);
    if (negative && n != 0 && !fetch) {
        server_error("The offset specified in a OFFSET clause may not be negative.", t.pos,
                     "offset");
    }
    if (fetch && (negative || n == 0)) {
        server_error("The number of rows provided for a FETCH clause must be greater then zero.",
                     t.pos, "fetch");
    }
    const Token& rows = peek();
    if (!(rows.kind == Tok::Identifier &&
          (iequals(rows.text, "row") || iequals(rows.text, "rows"))))
        syntax_error(rows);
    ++at_;
    return n;
}

// ---- expressions ------------------------------------------------------------------------

Expr* Parser::parse_expr(int min_prec) {
    DepthGuard guard(depth_, reach_, peek().pos);
    ChainHeight chain(depth_, reach_);
    Expr* left;
    const Token& first = peek();
    if (first.kind == Tok::Identifier && first.kw == Kw::kNOT && min_prec <= kPrecNot) {
        ++at_;
        left = arena_.make<Unary>(first.pos, UnaryOp::Not, parse_expr(kPrecNot));
    } else {
        left = parse_unary();
    }
    for (;;) {
        const Token& t = peek();
        // Predicates bind as the comparisons do.
        if (min_prec <= kPrecCompare) {
            bool negated = false;
            std::size_t save = at_;
            if (is_kw(Kw::kNOT) &&
                (is_kw(Kw::kBETWEEN, 1) || is_kw(Kw::kIN, 1) || is_kw(Kw::kLIKE, 1))) {
                negated = true;
                ++at_;
            }
            if (accept_kw(Kw::kBETWEEN)) {
                Expr* low = parse_expr(kPrecAdd);
                expect_kw(Kw::kAND);
                Expr* high = parse_expr(kPrecAdd);
                chain.link(t.pos);
                left = arena_.make<Between>(t.pos, left, low, high, negated);
                continue;
            }
            if (accept_kw(Kw::kIN)) {
                const Token& open = peek();
                expect(Tok::LParen);
                if (is_kw(Kw::kSELECT)) {
                    Select* q = parse_select();
                    expect(Tok::RParen);
                    chain.link(t.pos);
                    left = arena_.make<InQuery>(t.pos, left, q, negated);
                } else {
                    List<Expr*> items(arena_.resource());
                    if (peek().kind == Tok::RParen) syntax_error(peek());
                    do {
                        items.push_back(parse_expr());
                    } while (accept(Tok::Comma));
                    expect(Tok::RParen);
                    chain.link(t.pos);
                    left = arena_.make<InList>(open.pos, left, std::move(items), negated);
                }
                continue;
            }
            if (accept_kw(Kw::kLIKE)) {
                Expr* pattern = parse_expr(kPrecAdd);
                Expr* escape = nullptr;
                if (accept_kw(Kw::kESCAPE)) {
                    escape = parse_expr(kPrecAdd);
                } else if (peek().kind == Tok::LBrace && is_kw(Kw::kESCAPE, 1)) {
                    at_ += 2;  // {escape '\'}, as ODBC writes it
                    escape = parse_expr(kPrecAdd);
                    expect(Tok::RBrace);
                }
                chain.link(t.pos);
                left = arena_.make<Like>(t.pos, left, pattern, escape, negated);
                continue;
            }
            at_ = save;
            if (is_kw(Kw::kIS)) {
                ++at_;
                bool neg = accept_kw(Kw::kNOT);
                expect_kw(Kw::kNULL);
                chain.link(t.pos);
                left = arena_.make<IsNull>(t.pos, left, neg);
                continue;
            }
        }
        const BinaryOpInfo* info = binary_op_of(t);
        if (info == nullptr || info->prec < min_prec) return left;
        // The old outer-join operators *= and =* are refused by name.
        if ((t.kind == Tok::Star || t.kind == Tok::Eq) && peek(1).pos == t.pos + 1 &&
            ((t.kind == Tok::Star && peek(1).kind == Tok::Eq) ||
             (t.kind == Tok::Eq && peek(1).kind == Tok::Star))) {
            unsupported(t.kind == Tok::Star ? "*=" : "=*", t.pos);
        }
        ++at_;
        if (info->prec == kPrecCompare &&
            (is_kw(Kw::kALL) || is_kw(Kw::kANY) || is_kw(Kw::kSOME))) {
            unsupported(lower_copy(peek().text) + " (subquery)", peek().pos);
        }
        Expr* right = parse_expr(info->prec + 1);
        chain.link(t.pos);
        left = arena_.make<Binary>(t.pos, info->op, left, right);
    }
}

Expr* Parser::parse_unary() {
    const Token& t = peek();
    UnaryOp op;
    switch (t.kind) {
        case Tok::Minus:
            op = UnaryOp::Neg;
            break;
        case Tok::Plus:
            op = UnaryOp::Plus;
            break;
        case Tok::Tilde:
            op = UnaryOp::BitNot;
            break;
        default:
            return parse_primary();
    }
    ++at_;
    DepthGuard guard(depth_, reach_, t.pos);
    return arena_.make<Unary>(t.pos, op, parse_unary());
}

Select* Parser::parse_subquery_in_parens() {
    expect(Tok::LParen);
    Select* q = parse_select();
    expect(Tok::RParen);
    return q;
}

Expr* Parser::parse_primary() {
    if (script_) {
        if (Expr* e = parse_script_term()) return e;
    }
    const Token& t = peek();
    switch (t.kind) {
        case Tok::Number: {
            ++at_;
            bool is_int = t.text.find_first_of(".eE") == std::string_view::npos;
            literals_.push_back(dialect::Literal{t.pos, t.len, dialect::Literal::Kind::Number});
            return arena_.make<LiteralExpr>(
                t.pos, is_int ? LiteralExpr::Kind::Integer : LiteralExpr::Kind::Decimal, t.text);
        }
        case Tok::String:
            ++at_;
            literals_.push_back(dialect::Literal{t.pos, t.len, dialect::Literal::Kind::String});
            return arena_.make<LiteralExpr>(t.pos, LiteralExpr::Kind::String, t.text);
        case Tok::NString:
            ++at_;
            literals_.push_back(dialect::Literal{t.pos, t.len, dialect::Literal::Kind::NString});
            return arena_.make<LiteralExpr>(t.pos, LiteralExpr::Kind::NString, t.text);
        case Tok::LParen: {
            if (is_kw(Kw::kSELECT, 1)) {
                Select* q = parse_subquery_in_parens();
                return arena_.make<Subquery>(t.pos, q);
            }
            ++at_;
            Expr* e = parse_expr();
            expect(Tok::RParen);
            return e;
        }
        case Tok::Variable:
            if (iequals(t.text, "@@datefirst")) {
                // The first day of the week is always Sunday here (SET DATEFIRST is refused).
                ++at_;
                auto* seven = arena_.make<LiteralExpr>(t.pos, LiteralExpr::Kind::Integer, "7");
                seven->inline_only = true;
                return seven;
            }
            unsupported("variable " + std::string(t.text), t.pos);
        case Tok::LBrace:
            return parse_odbc_escape();
        case Tok::QuotedIdentifier:
            break;
        case Tok::Identifier:
            switch (t.kw) {
                case Kw::None:
                    break;
                case Kw::kNULL:
                    ++at_;
                    return arena_.make<LiteralExpr>(t.pos, LiteralExpr::Kind::Null, t.text);
                case Kw::kCASE:
                    ++at_;
                    return parse_case(t);
                case Kw::kCAST:
                    ++at_;
                    return parse_cast(t, false);
                case Kw::kCONVERT:
                    ++at_;
                    return parse_cast(t, true);
                case Kw::kEXISTS: {
                    ++at_;
                    Select* q = parse_subquery_in_parens();
                    return arena_.make<Exists>(t.pos, q);
                }
                case Kw::kLEFT:
                case Kw::kRIGHT:
                    if (peek(1).kind == Tok::LParen) {
                        ++at_;
                        return parse_function(t);
                    }
                    syntax_error(t);
                default:
                    syntax_error(t);
            }
            if (peek(1).kind == Tok::LParen) {
                ++at_;
                return parse_function(t);
            }
            break;
        default:
            syntax_error(t);
    }
    // A column: name, qualifier.name, or schema.table.name.
    ++at_;
    std::string_view qualifier;
    std::string_view name = t.text;
    std::uint32_t pos = t.pos;
    int parts = 1;
    while (peek().kind == Tok::Dot) {
        ++at_;
        if (peek().kind == Tok::Star) unsupported("* in an expression", peek().pos);
        qualifier = name;
        name = expect_name();
        if (++parts > 4) syntax_error(peek());
    }
    if (peek().kind == Tok::LParen && parts > 1) unsupported("user-defined function", pos);
    return arena_.make<ColumnRef>(pos, qualifier, name);
}

Expr* Parser::parse_function(const Token& name) {
    const FuncEntry* entry = nullptr;
    for (const auto& f : kFunctions) {
        if (iequals(f.name, name.text)) {
            entry = &f;
            break;
        }
    }
    if (entry == nullptr) unsupported("function " + lower_copy(name.text), name.pos);
    expect(Tok::LParen);
    auto* fn =
        arena_.make<Function>(name.pos, entry->func, name.text, List<Expr*>(arena_.resource()));
    if (fn->func == Func::DateAdd || fn->func == Func::DateDiff || fn->func == Func::DatePart ||
        fn->func == Func::DateName) {
        const Token& p = peek();
        if (p.kind != Tok::Identifier && p.kind != Tok::QuotedIdentifier) syntax_error(p);
        for (const auto& e : kDateParts) {
            if (iequals(e.name, p.text)) fn->part = e.part;
        }
        if (fn->part == DatePart::None) unsupported("date part " + lower_copy(p.text), p.pos);
        ++at_;
        expect(Tok::Comma);
    }
    if (fn->is_aggregate()) {
        if (accept_kw(Kw::kDISTINCT)) {
            fn->distinct = true;
        } else {
            accept_kw(Kw::kALL);
        }
        if (fn->func == Func::Count && !fn->distinct && peek().kind == Tok::Star) {
            ++at_;
            fn->star = true;
        }
    }
    if (!fn->star && peek().kind != Tok::RParen) {
        do {
            fn->args.push_back(parse_expr());
        } while (accept(Tok::Comma));
    }
    expect(Tok::RParen);
    int count = fn->star ? 1 : static_cast<int>(fn->args.size());
    if (count < entry->min_args || count > entry->max_args) {
        throw DialectError("wrong number of arguments for function '" + lower_copy(name.text) +
                               "' at position " + std::to_string(name.pos),
                           name.pos, lower_copy(name.text));
    }
    if (fn->is_window_only()) {
        if (!is_kw(Kw::kOVER)) {
            server_error("The function '" + lower_copy(name.text) + "' must have an OVER clause.",
                         name.pos, lower_copy(name.text));
        }
        window_arguments(*fn);
        parse_over(*fn);
    } else if (fn->is_aggregate_function() && is_kw(Kw::kOVER)) {
        if (fn->distinct) {
            server_error("Use of DISTINCT is not allowed with the OVER clause.", name.pos,
                         "distinct with over");
        }
        parse_over(*fn);
    }
    if (is_kw(Kw::kOVER)) unsupported("window function", peek().pos);
    return fn;
}

// ntile's count and lag's and lead's offset are whole numbers written out: they decide the
// statement's form, as TOP's count does.
void Parser::window_arguments(Function& fn) {
    const bool shift = fn.func == Func::Lag || fn.func == Func::Lead;
    if (fn.func != Func::Ntile && !(shift && fn.args.size() >= 2)) return;
    Expr* count = fn.args[fn.func == Func::Ntile ? 0 : 1];
    const bool negative = count->is<Unary>() && count->as<Unary>().op == UnaryOp::Neg &&
                          count->as<Unary>().operand->is<LiteralExpr>();
    const Expr* number = negative ? count->as<Unary>().operand : count;
    LiteralValue value;
    if (!number->is<LiteralExpr>() ||
        number->as<LiteralExpr>().kind != LiteralExpr::Kind::Integer ||
        !literal_value(number->as<LiteralExpr>().text, value) ||
        value.type != LiteralValue::Type::Integer) {
        unsupported(lower_copy(fn.name) + " with a count that is not a whole number written out",
                    count->pos);
    }
    if (negative) value.integer = -value.integer;
    if (fn.func == Func::Ntile && value.integer <= 0) {
        server_error(
            "The function 'NTILE' takes only a positive int or bigint expression as its "
            "input.",
            count->pos, "ntile");
    }
    if (shift && value.integer < 0) {
        server_error("The offset parameter for Lag and Lead functions cannot be a negative value.",
                     count->pos, lower_copy(fn.name));
    }
    fn.window_count = value.integer;
    // The number is part of the statement's form, not a value bound to it.
    std::erase_if(literals_, [&](const dialect::Literal& l) { return l.offset == number->pos; });
    if (fn.func == Func::Ntile) fn.args.clear();
    if (shift) fn.args.erase(fn.args.begin() + 1);
}

void Parser::parse_over(Function& fn) {
    ++at_;  // OVER
    expect(Tok::LParen);
    fn.over = arena_.make<Window>(arena_.resource());
    if (peek().kind == Tok::Identifier && iequals(peek().text, "partition")) {
        ++at_;
        expect_kw(Kw::kBY);
        do {
            fn.over->partition_by.push_back(parse_expr());
        } while (accept(Tok::Comma));
    }
    const bool ordered = is_kw(Kw::kORDER);
    if (!ordered && fn.is_window_only()) {
        server_error(
            "The function '" + lower_copy(fn.name) + "' must have an OVER clause with ORDER BY.",
            fn.pos, lower_copy(fn.name));
    }
    if (ordered) parse_window_order(fn);
    if (peek().kind == Tok::Identifier &&
        (iequals(peek().text, "rows") || iequals(peek().text, "range"))) {
        // Ranking, ntile, lag and lead number or shift rows: a frame means nothing to them.
        if (fn.is_ranking() || fn.func == Func::Ntile || fn.func == Func::Lag ||
            fn.func == Func::Lead) {
            unsupported("window frame", peek().pos);
        }
        parse_frame(*fn.over);
    }
    expect(Tok::RParen);
}

namespace {

FrameBound::Kind bound_kind(bool unbounded, bool preceding) {
    if (unbounded) {
        return preceding ? FrameBound::Kind::UnboundedPreceding
                         : FrameBound::Kind::UnboundedFollowing;
    }
    return preceding ? FrameBound::Kind::Preceding : FrameBound::Kind::Following;
}

// Where a bound lies, in rows from the current row: n PRECEDING before n-1 PRECEDING.
long long bound_offset(const FrameBound& b) {
    switch (b.kind) {
        case FrameBound::Kind::UnboundedPreceding:
            return std::numeric_limits<long long>::min();
        case FrameBound::Kind::Preceding:
            return -b.rows;
        case FrameBound::Kind::CurrentRow:
            return 0;
        case FrameBound::Kind::Following:
            return b.rows;
        case FrameBound::Kind::UnboundedFollowing:
            break;
    }
    return std::numeric_limits<long long>::max();
}

}  // namespace

FrameBound Parser::parse_frame_bound() {
    FrameBound b;
    const Token& t = peek();
    if (t.kind == Tok::Identifier && iequals(t.text, "current")) {
        ++at_;
        const Token& row = peek();
        if (row.kind != Tok::Identifier || !iequals(row.text, "row")) syntax_error(row);
        ++at_;
        b.kind = FrameBound::Kind::CurrentRow;
        return b;
    }
    bool unbounded = false;
    if (t.kind == Tok::Identifier && iequals(t.text, "unbounded")) {
        ++at_;
        unbounded = true;
    } else if (t.kind == Tok::Number && t.text.find_first_of(".eE") == std::string_view::npos) {
        b.rows = parse_plain_integer();
    } else {
        syntax_error(t);
    }
    const Token& dir = peek();
    if (dir.kind != Tok::Identifier ||
        !(iequals(dir.text, "preceding") || iequals(dir.text, "following")))
        syntax_error(dir);
    ++at_;
    b.kind = bound_kind(unbounded, iequals(dir.text, "preceding"));
    return b;
}

void Parser::parse_frame(Window& w) {
    const Token& unit = next();  // ROWS or RANGE
    const bool rows = iequals(unit.text, "rows");
    if (w.order_by.empty()) {
        server_error("A window frame (ROWS or RANGE) needs an ORDER BY in its OVER clause.",
                     unit.pos, "window frame without order by");
    }
    w.frame = rows ? Window::Frame::Rows : Window::Frame::Range;
    if (peek().kind == Tok::Identifier && iequals(peek().text, "between")) {
        ++at_;
        w.start = parse_frame_bound();
        expect_kw(Kw::kAND);
        w.end = parse_frame_bound();
    } else {
        // ROWS n PRECEDING: from there to the current row. Only a start that precedes.
        w.start = parse_frame_bound();
        if (w.start.kind == FrameBound::Kind::Following ||
            w.start.kind == FrameBound::Kind::UnboundedFollowing)
            syntax_error(tokens_[at_ - 1]);
        w.end.kind = FrameBound::Kind::CurrentRow;
    }
    if (!rows &&
        (w.start.kind == FrameBound::Kind::Preceding ||
         w.start.kind == FrameBound::Kind::Following || w.end.kind == FrameBound::Kind::Preceding ||
         w.end.kind == FrameBound::Kind::Following)) {
        server_error(
            "RANGE is only supported with UNBOUNDED and CURRENT ROW window frame delimiters.",
            unit.pos, "range frame with an offset");
    }
    if (w.start.kind == FrameBound::Kind::UnboundedFollowing ||
        w.end.kind == FrameBound::Kind::UnboundedPreceding ||
        bound_offset(w.start) > bound_offset(w.end)) {
        server_error("A window frame must not end before it starts.", unit.pos,
                     "window frame that ends before it starts");
    }
}

void Parser::parse_window_order(Function& fn) {
    ++at_;
    expect_kw(Kw::kBY);
    do {
        const Token& t = peek();
        Expr* e = parse_expr();
        if (e->is<LiteralExpr>()) {
            server_error(
                "Windowed functions, aggregates and NEXT VALUE FOR functions do not support "
                "constants as ORDER BY clause expressions.",
                t.pos, "constant in a window order");
        }
        bool desc = false;
        if (accept_kw(Kw::kDESC)) {
            desc = true;
        } else {
            accept_kw(Kw::kASC);
        }
        fn.over->order_by.push_back(OrderItem{e, desc, false});
    } while (accept(Tok::Comma));
}

Expr* Parser::parse_case(const Token& start) {
    Expr* operand = nullptr;
    if (!is_kw(Kw::kWHEN)) operand = parse_expr();
    List<std::pair<Expr*, Expr*>> whens(arena_.resource());
    while (accept_kw(Kw::kWHEN)) {
        Expr* cond = parse_expr();
        expect_kw(Kw::kTHEN);
        Expr* value = parse_expr();
        whens.emplace_back(cond, value);
    }
    if (whens.empty()) syntax_error(peek());
    Expr* otherwise = nullptr;
    if (accept_kw(Kw::kELSE)) otherwise = parse_expr();
    expect_kw(Kw::kEND);
    return arena_.make<Case>(start.pos, operand, std::move(whens), otherwise);
}

TypeSpec Parser::parse_type() {
    const Token& t = peek();
    if (t.kind != Tok::Identifier && t.kind != Tok::QuotedIdentifier) syntax_error(t);
    ++at_;
    std::string name = lower_copy(t.text);
    TypeSpec spec;
    int precision = 0;
    auto length = [&](bool allow_max) {
        if (!accept(Tok::LParen)) return;
        if (allow_max && peek().kind == Tok::Identifier && iequals(peek().text, "max")) {
            ++at_;
            spec.length = -2;
        } else {
            spec.length = static_cast<int>(parse_plain_integer());
        }
        expect(Tok::RParen);
    };
    if (name == "int" || name == "integer" || name == "bigint" || name == "smallint" ||
        name == "tinyint") {
        spec.base = TypeSpec::Base::Integer;
    } else if (name == "bit") {
        spec.base = TypeSpec::Base::Bit;
    } else if (name == "decimal" || name == "numeric" || name == "dec") {
        spec.base = TypeSpec::Base::Decimal;
        spec.scale = 0;
        if (accept(Tok::LParen)) {
            precision = static_cast<int>(parse_plain_integer());
            if (accept(Tok::Comma)) spec.scale = static_cast<int>(parse_plain_integer());
            expect(Tok::RParen);
        }
    } else if (name == "money" || name == "smallmoney") {
        spec.base = TypeSpec::Base::Decimal;
        spec.scale = 4;
    } else if (name == "float" || name == "real") {
        spec.base = TypeSpec::Base::Float;
        if (accept(Tok::LParen)) {
            parse_plain_integer();
            expect(Tok::RParen);
        }
    } else if (name == "varchar" || name == "nvarchar") {
        spec.base = TypeSpec::Base::Text;
        length(true);
    } else if (name == "char" || name == "nchar") {
        spec.base = TypeSpec::Base::FixedText;
        length(false);
        if (spec.length < 0) spec.length = 1;
    } else if (name == "text" || name == "ntext") {
        spec.base = TypeSpec::Base::Text;
        spec.length = -2;
    } else if (name == "datetime" || name == "smalldatetime") {
        spec.base = TypeSpec::Base::DateTime;
    } else if (name == "datetime2") {
        spec.base = TypeSpec::Base::DateTime;
        if (accept(Tok::LParen)) {
            parse_plain_integer();
            expect(Tok::RParen);
        }
    } else if (name == "date") {
        spec.base = TypeSpec::Base::Date;
    } else {
        unsupported("type " + name, t.pos);
    }
    // A text type without a length is 30 characters long in a conversion.
    spec.sql = type_from_declaration(name,
                                     spec.length == -2 ? -1
                                     : spec.length < 0 ? 30
                                                       : spec.length,
                                     precision, spec.scale);
    return spec;
}

Expr* Parser::parse_cast(const Token& start, bool is_convert) {
    expect(Tok::LParen);
    if (is_convert) {
        TypeSpec type = parse_type();
        expect(Tok::Comma);
        Expr* e = parse_expr();
        int style = -1;
        if (accept(Tok::Comma)) style = static_cast<int>(parse_plain_integer());
        expect(Tok::RParen);
        return arena_.make<Cast>(start.pos, e, type, style, true);
    }
    Expr* e = parse_expr();
    expect_kw(Kw::kAS);
    TypeSpec type = parse_type();
    expect(Tok::RParen);
    return arena_.make<Cast>(start.pos, e, type, -1, false);
}

// ---- ODBC escapes ------------------------------------------------------------------------

namespace {

// Whether `text` (between the quotes) is ODBC's date form yyyy-mm-dd, followed for a timestamp
// by hh:mm:ss and up to three digits of a second's fraction. The value itself is checked by
// the engine's conversion, as for any date text.
bool odbc_date_form(std::string_view text, bool timestamp) {
    auto digits = [&](std::size_t at, std::size_t count) {
        if (at + count > text.size()) return false;
        for (std::size_t i = at; i < at + count; ++i)
            if (text[i] < '0' || text[i] > '9') return false;
        return true;
    };
    auto at = [&](std::size_t i, char c) { return i < text.size() && text[i] == c; };
    if (!(digits(0, 4) && at(4, '-') && digits(5, 2) && at(7, '-') && digits(8, 2))) return false;
    if (!timestamp) return text.size() == 10;
    if (!(at(10, ' ') && digits(11, 2) && at(13, ':') && digits(14, 2) && at(16, ':') &&
          digits(17, 2)))
        return false;
    if (text.size() == 19) return true;
    return at(19, '.') && text.size() <= 23 && text.size() > 20 && digits(20, text.size() - 20);
}

// The scalar functions of {fn …} that mean what a T-SQL function means, argument for argument.
struct OdbcFunction {
    std::string_view name;
    Func func;
    int min_args;
    int max_args;
    DatePart part = DatePart::None;
};

constexpr OdbcFunction kOdbcFunctions[] = {
    {"ucase", Func::Upper, 1, 1},
    {"lcase", Func::Lower, 1, 1},
    {"length", Func::Len, 1, 1},  // without trailing blanks, as len
    {"ltrim", Func::LTrim, 1, 1},
    {"rtrim", Func::RTrim, 1, 1},
    {"substring", Func::Substring, 3, 3},
    {"left", Func::Left, 2, 2},
    {"right", Func::Right, 2, 2},
    {"locate", Func::CharIndex, 2, 3},
    {"ifnull", Func::IsNull, 2, 2},
    {"abs", Func::Abs, 1, 1},
    {"round", Func::Round, 2, 2},
    {"floor", Func::Floor, 1, 1},
    {"ceiling", Func::Ceiling, 1, 1},
    {"now", Func::GetDate, 0, 0},
    {"year", Func::Year, 1, 1},
    {"month", Func::Month, 1, 1},
    {"dayofmonth", Func::Day, 1, 1},
    {"hour", Func::DatePart, 1, 1, DatePart::Hour},
    {"minute", Func::DatePart, 1, 1, DatePart::Minute},
    {"second", Func::DatePart, 1, 1, DatePart::Second},
    {"quarter", Func::DatePart, 1, 1, DatePart::Quarter},
    {"week", Func::DatePart, 1, 1, DatePart::Week},
    {"dayofweek", Func::DatePart, 1, 1, DatePart::Weekday},  // 1 = Sunday
    {"dayofyear", Func::DatePart, 1, 1, DatePart::DayOfYear},
    {"dayname", Func::DateName, 1, 1, DatePart::Weekday},
    {"monthname", Func::DateName, 1, 1, DatePart::Month},
};

}  // namespace

Expr* Parser::parse_odbc_escape() {
    DepthGuard guard(depth_, reach_, peek().pos);
    const Token& open = next();  // {
    const Token& kind = peek();
    if (kind.kind != Tok::Identifier) syntax_error(kind);
    Expr* value = nullptr;
    if (iequals(kind.text, "d") || iequals(kind.text, "ts")) {
        ++at_;
        const Token& lit = peek();
        if (lit.kind != Tok::String) syntax_error(lit);
        auto* text = arena_.make<LiteralExpr>(lit.pos, LiteralExpr::Kind::String, lit.text);
        if (!odbc_date_form(text->string_value(), iequals(kind.text, "ts"))) {
            // Built in steps: "{" + string trips a false -Wrestrict of g++ 12 at -O3.
            std::string what = lower_copy(kind.text);
            what.insert(0, 1, '{');
            what += "} escape";
            server_error("从字符串转换日期和/或时间时，转换失败。", lit.pos, what);
        }
        // Dates are kept to the second here; a fraction would be dropped where the server keeps it.
        const std::string value_text = text->string_value();
        if (value_text.size() > 20 && value_text.find_first_not_of('0', 20) != std::string::npos) {
            unsupported("{ts} with a fraction of a second", lit.pos);
        }
        ++at_;
        literals_.push_back(dialect::Literal{lit.pos, lit.len, dialect::Literal::Kind::String});
        // Checked here, so never bound: another value of the same shape must be checked too.
        text->inline_only = true;
        TypeSpec type;
        type.base = TypeSpec::Base::DateTime;
        value = arena_.make<Cast>(open.pos, text, type, -1, false);
    } else if (iequals(kind.text, "fn")) {
        ++at_;
        value = parse_odbc_function();
    } else {
        // {t '…'}: which date a time escape is given depends on how the server is reached, so
        // it is refused rather than guessed; {call …} is a procedure call.
        unsupported("{" + lower_copy(kind.text) + "} escape", open.pos);
    }
    expect(Tok::RBrace);
    return value;
}

Expr* Parser::parse_odbc_function() {
    const Token& name = peek();
    if (name.kind != Tok::Identifier) syntax_error(name);
    ++at_;
    const std::string lower = lower_copy(name.text);
    expect(Tok::LParen);
    List<Expr*> args(arena_.resource());
    if (peek().kind != Tok::RParen) {
        do {
            args.push_back(parse_expr());
        } while (accept(Tok::Comma));
    }
    expect(Tok::RParen);
    auto arity = [&](std::size_t min, std::size_t max) {
        if (args.size() < min || args.size() > max) {
            throw DialectError("wrong number of arguments for function '" + lower +
                                   "' at position " + std::to_string(name.pos),
                               name.pos, lower);
        }
    };
    if (lower == "mod") {
        arity(2, 2);
        return arena_.make<Binary>(name.pos, BinaryOp::Mod, args[0], args[1]);
    }
    if (lower == "concat") {
        // Both arguments as texts joined, a null taken as an empty text (unlike `+`).
        arity(2, 2);
        TypeSpec text;
        text.base = TypeSpec::Base::Text;
        text.length = -2;
        auto as_text = [&](Expr* e) {
            auto* empty = arena_.make<LiteralExpr>(e->pos, LiteralExpr::Kind::String, "''");
            empty->inline_only = true;
            List<Expr*> pair(arena_.resource());
            pair.push_back(arena_.make<Cast>(e->pos, e, text, -1, false));
            pair.push_back(empty);
            return arena_.make<Function>(e->pos, Func::IsNull, "isnull", std::move(pair));
        };
        return arena_.make<Binary>(name.pos, BinaryOp::Add, as_text(args[0]), as_text(args[1]));
    }
    if (lower == "curdate" || lower == "current_date") {
        arity(0, 0);
        TypeSpec date;
        date.base = TypeSpec::Base::Date;
        auto* now = arena_.make<Function>(name.pos, Func::GetDate, name.text, std::move(args));
        return arena_.make<Cast>(name.pos, now, date, -1, false);
    }
    for (const auto& f : kOdbcFunctions) {
        if (f.name != lower) continue;
        arity(static_cast<std::size_t>(f.min_args), static_cast<std::size_t>(f.max_args));
        auto* fn = arena_.make<Function>(name.pos, f.func, name.text, std::move(args));
        fn->part = f.part;
        return fn;
    }
    unsupported("{fn " + lower + "}", name.pos);
}

}  // namespace billdata::dialect
