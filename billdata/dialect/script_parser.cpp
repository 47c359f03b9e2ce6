// Whole scripts: GO batches, DDL, and the procedural statements of trigger and procedure
// bodies. The statements and expressions inside are read by the one-statement parser, switched
// to accept variables; everything else is read here, so that the one-statement entry points
// keep refusing it.
#include "billdata/dialect/script.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "billdata/dialect/parser.h"
#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

// Bodies nest (blocks, IF, WHILE, TRY); each level is one recursion of the reader.
constexpr int kMaxNesting = 256;

// System functions without arguments that bodies test (the one-statement dialect has none).
constexpr std::string_view kSystemFunctions[] = {
    "xact_state",     "scope_identity", "error_number", "error_message",
    "error_severity", "error_state",    "error_line",   "error_procedure",
};

bool is_line_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

}  // namespace

Expr* Parser::parse_script_term() {
    const Token& t = peek();
    if (t.kind == Tok::Variable) {
        ++at_;
        return arena_.make<ColumnRef>(t.pos, std::string_view(), t.text);
    }
    if (t.kind != Tok::Identifier || peek(1).kind != Tok::LParen) return nullptr;
    if (t.kw == Kw::kUPDATE) {
        // A trigger's test whether the statement set a column.
        at_ += 2;
        expect_name();
        expect(Tok::RParen);
    } else if (t.kw == Kw::None && peek(2).kind == Tok::RParen &&
               std::any_of(std::begin(kSystemFunctions), std::end(kSystemFunctions),
                           [&](std::string_view f) { return iequals(f, t.text); })) {
        at_ += 3;
    } else {
        return nullptr;
    }
    const Token& close = tokens_[at_ - 1];
    return arena_.make<ColumnRef>(t.pos, std::string_view(),
                                  src_.substr(t.pos, close.pos + close.len - t.pos));
}

class ScriptParser {
  public:
    explicit ScriptParser(std::string_view text) : text_(text), p_(text, arena_) {
        p_.script_ = true;
    }

    Script run() {
        for (;;) {
            while (p_.accept(Tok::Semicolon)) {
            }
            if (peek().kind == Tok::End) break;
            if (is_go(peek())) {
                ++p_.at_;
                ++batch_;
                continue;
            }
            script_.statements.push_back(statement(true));
        }
        if (!script_.statements.empty()) script_.batches = script_.statements.back().batch + 1;
        return std::move(script_);
    }

  private:
    const Token& peek(std::size_t ahead = 0) const { return p_.peek(ahead); }
    bool is_kw(Kw kw, std::size_t ahead = 0) const { return p_.is_kw(kw, ahead); }
    static bool is_word(const Token& t, std::string_view word) {
        return t.kind == Tok::Identifier && t.kw == Kw::None && iequals(t.text, word);
    }
    bool accept_word(std::string_view word) {
        if (!is_word(peek(), word)) return false;
        ++p_.at_;
        return true;
    }
    void expect_word(std::string_view word) {
        if (!accept_word(word)) p_.syntax_error(peek());
    }
    std::size_t last_end() const {
        if (p_.at_ == 0) return 0;
        const Token& t = p_.tokens_[p_.at_ - 1];
        return t.pos + t.len;
    }

    // GO ends a batch when it stands alone on its line.
    bool is_go(const Token& t) const {
        if (!is_word(t, "go")) return false;
        for (std::size_t i = t.pos; i > 0 && text_[i - 1] != '\n'; --i)
            if (!is_line_blank(text_[i - 1])) return false;
        std::size_t i = t.pos + t.len;
        while (i < text_.size() && is_line_blank(text_[i]))
            ++i;
        return i == text_.size() || text_[i] == '\n' || text_.substr(i, 2) == "--";
    }
    bool at_batch_end() const { return peek().kind == Tok::End || is_go(peek()); }

    // A name, or a schema-qualified one (its last part).
    std::string name() {
        std::string_view n = p_.expect_name();
        while (p_.accept(Tok::Dot))
            n = p_.expect_name();
        return std::string(n);
    }
    std::vector<std::string> name_list() {
        std::vector<std::string> names;
        p_.expect(Tok::LParen);
        do {
            names.push_back(name());
            if (!p_.accept_kw(Kw::kASC)) p_.accept_kw(Kw::kDESC);
        } while (p_.accept(Tok::Comma));
        p_.expect(Tok::RParen);
        return names;
    }
    ScriptSpan expr() {
        std::size_t begin = peek().pos;
        p_.parse_expr();
        return {begin, last_end()};
    }
    ScriptSpan select() {
        std::size_t begin = peek().pos;
        if (!is_kw(Kw::kSELECT) && peek().kind != Tok::LParen) p_.syntax_error(peek());
        p_.parse_select();
        return {begin, last_end()};
    }

    ScriptType type() {
        const Token& t = peek();
        if (t.kind != Tok::Identifier && t.kind != Tok::QuotedIdentifier) p_.syntax_error(t);
        ++p_.at_;
        ScriptType type;
        type.name = lower_copy(t.text);
        if (!p_.accept(Tok::LParen)) return type;
        const bool text = type.name.find("char") != std::string::npos ||
                          type.name.find("binary") != std::string::npos;
        if (text && accept_word("max")) {
            type.length = -1;
        } else {
            const int first = static_cast<int>(p_.parse_plain_integer());
            if (text) {
                type.length = first;
            } else {
                type.precision = first;
                if (p_.accept(Tok::Comma)) type.scale = static_cast<int>(p_.parse_plain_integer());
            }
        }
        p_.expect(Tok::RParen);
        return type;
    }

    ScriptStatement statement(bool top) {
        if (++depth_ > kMaxNesting) {
            throw DialectError("script nested too deeply at position " + std::to_string(peek().pos),
                               peek().pos, "nesting");
        }
        const Token& t = peek();
        ScriptStatement s;
        s.batch = batch_;
        if (t.kind == Tok::LParen) {
            query(s);
        } else if (t.kind != Tok::Identifier) {
            p_.syntax_error(t);
        } else {
            switch (t.kw) {
                case Kw::kCREATE:
                    if (!top) p_.unsupported("create inside a body", t.pos);
                    create(s);
                    break;
                case Kw::kSET:
                    set(s);
                    break;
                case Kw::kDECLARE:
                    declare(s);
                    break;
                case Kw::kSELECT:
                case Kw::kINSERT:
                case Kw::kUPDATE:
                case Kw::kDELETE:
                case Kw::kTRUNCATE:
                    query(s);
                    break;
                case Kw::kIF:
                case Kw::kWHILE:
                    ++p_.at_;
                    s.kind = t.kw == Kw::kIF ? ScriptKind::If : ScriptKind::While;
                    s.value = expr();
                    s.body.push_back(statement(false));
                    if (s.kind == ScriptKind::If && p_.accept_kw(Kw::kELSE))
                        s.body.push_back(statement(false));
                    break;
                case Kw::kBEGIN:
                    begin(s);
                    break;
                case Kw::kBREAK:
                case Kw::kCONTINUE:
                    ++p_.at_;
                    s.kind = t.kw == Kw::kBREAK ? ScriptKind::Break : ScriptKind::Continue;
                    break;
                case Kw::kRETURN: {
                    ++p_.at_;
                    s.kind = ScriptKind::Return;
                    const Tok k = peek().kind;
                    if (k == Tok::Number || k == Tok::Variable || k == Tok::LParen ||
                        k == Tok::Minus || k == Tok::String)
                        s.value = expr();
                    break;
                }
                case Kw::kOPEN:
                case Kw::kCLOSE:
                case Kw::kDEALLOCATE:
                    ++p_.at_;
                    s.kind = t.kw == Kw::kOPEN    ? ScriptKind::Open
                             : t.kw == Kw::kCLOSE ? ScriptKind::Close
                                                  : ScriptKind::Deallocate;
                    s.name = name();
                    break;
                case Kw::kFETCH:
                    fetch(s);
                    break;
                case Kw::kCOMMIT:
                case Kw::kROLLBACK:
                    ++p_.at_;
                    s.kind = t.kw == Kw::kCOMMIT ? ScriptKind::Commit : ScriptKind::Rollback;
                    transaction_name(s);
                    break;
                case Kw::None:
                    if (is_word(t, "save")) {
                        ++p_.at_;
                        s.kind = ScriptKind::Save;
                        transaction_name(s);
                    } else if (is_word(t, "throw")) {
                        ++p_.at_;
                        s.kind = ScriptKind::Throw;
                        const Tok k = peek().kind;
                        if (k == Tok::Number || k == Tok::Variable) {
                            for (int i = 0; i < 3; ++i) {
                                if (i > 0) p_.expect(Tok::Comma);
                                expr();
                            }
                        }
                    } else {
                        p_.syntax_error(t);
                    }
                    break;
                default:
                    p_.unsupported(lower_copy(t.text), t.pos);
            }
        }
        s.span = {t.pos, last_end()};
        p_.accept(Tok::Semicolon);
        --depth_;
        return s;
    }

    void query(ScriptStatement& s) {
        s.kind = ScriptKind::Query;
        const Token& t = peek();
        if (t.kind == Tok::LParen || t.kw == Kw::kSELECT) {
            s.query_kind = StatementKind::Select;
            Select* q = p_.parse_select();
            // In a select list, `@v = expression` assigns; the parser reads it as a comparison.
            for (const SelectItem& item : q->first_spec().items) {
                if (!item.expr->is<Binary>()) continue;
                const auto& b = item.expr->as<Binary>();
                if (b.op != BinaryOp::Eq || !b.lhs->is<ColumnRef>()) continue;
                const auto& var = b.lhs->as<ColumnRef>();
                if (!var.qualifier.empty() || !var.name.starts_with('@')) continue;
                s.targets.push_back(ScriptTarget{std::string(var.name), {var.pos, b.pos + 1}});
                s.variables.push_back(ScriptVariable{std::string(var.name), {}, false, {}});
            }
            return;
        }
        switch (t.kw) {
            case Kw::kINSERT:
                s.query_kind = StatementKind::Insert;
                p_.parse_insert();
                break;
            case Kw::kUPDATE:
                s.query_kind = StatementKind::Update;
                p_.parse_update();
                break;
            case Kw::kDELETE:
                s.query_kind = StatementKind::Delete;
                p_.parse_delete();
                break;
            default:
                s.query_kind = StatementKind::Truncate;
                p_.parse_truncate();
        }
    }

    void set(ScriptStatement& s) {
        ++p_.at_;  // SET
        const Token& t = peek();
        if (t.kind == Tok::Variable) {
            ++p_.at_;
            s.kind = ScriptKind::Assign;
            s.variables.push_back(ScriptVariable{std::string(t.text), {}, false, {}});
            if (peek().kind != Tok::Eq) p_.unsupported("compound assignment", peek().pos);
            ++p_.at_;
            s.value = expr();
            return;
        }
        s.kind = ScriptKind::Option;
        s.name = p_.expect_name();
        if (!p_.accept_kw(Kw::kON) && !p_.accept_kw(Kw::kOFF)) p_.syntax_error(peek());
    }

    void declare(ScriptStatement& s) {
        ++p_.at_;  // DECLARE
        if (p_.is_name_token(peek()) && is_kw(Kw::kCURSOR, 1)) {
            s.kind = ScriptKind::DeclareCursor;
            s.name = p_.expect_name();
            ++p_.at_;  // CURSOR
            while (!is_kw(Kw::kFOR)) {
                if (!p_.is_name_token(peek())) p_.syntax_error(peek());
                ++p_.at_;  // LOCAL, FAST_FORWARD, STATIC, …
            }
            ++p_.at_;
            s.query = select();
            return;
        }
        s.kind = ScriptKind::Declare;
        do {
            const Token& v = peek();
            if (v.kind != Tok::Variable) p_.syntax_error(v);
            ++p_.at_;
            p_.accept_kw(Kw::kAS);
            if (is_kw(Kw::kTABLE) || is_kw(Kw::kCURSOR))
                p_.unsupported(lower_copy(peek().text) + " variable", peek().pos);
            ScriptVariable var{std::string(v.text), type(), false, {}};
            if (p_.accept(Tok::Eq)) var.value = expr();
            s.variables.push_back(std::move(var));
        } while (p_.accept(Tok::Comma));
    }

    void begin(ScriptStatement& s) {
        ++p_.at_;  // BEGIN
        if (is_kw(Kw::kTRAN) || is_kw(Kw::kTRANSACTION)) {
            s.kind = ScriptKind::Begin;
            transaction_name(s);
            return;
        }
        if (accept_word("try")) {
            s.kind = ScriptKind::Try;
            s.body.push_back(block("try"));
            p_.expect_kw(Kw::kBEGIN);
            expect_word("catch");
            s.body.push_back(block("catch"));
            return;
        }
        s.kind = ScriptKind::Block;
        s.body = statements_until_end();
        p_.expect_kw(Kw::kEND);
    }

    // The statements of BEGIN TRY … END TRY (or CATCH), after its first two words.
    ScriptStatement block(std::string_view word) {
        ScriptStatement b;
        b.kind = ScriptKind::Block;
        b.batch = batch_;
        b.span.begin = peek().pos;
        b.body = statements_until_end();
        p_.expect_kw(Kw::kEND);
        expect_word(word);
        b.span.end = last_end();
        return b;
    }

    std::vector<ScriptStatement> statements_until_end() {
        std::vector<ScriptStatement> body;
        for (;;) {
            while (p_.accept(Tok::Semicolon)) {
            }
            if (is_kw(Kw::kEND)) return body;
            if (at_batch_end()) p_.syntax_error(peek());
            body.push_back(statement(false));
        }
    }

    std::vector<ScriptStatement> statements_until_batch_end() {
        std::vector<ScriptStatement> body;
        for (;;) {
            while (p_.accept(Tok::Semicolon)) {
            }
            if (at_batch_end()) return body;
            body.push_back(statement(false));
        }
    }

    // COMMIT and ROLLBACK [TRAN] [name], BEGIN TRAN [name], SAVE TRAN name.
    void transaction_name(ScriptStatement& s) {
        const bool tran = p_.accept_kw(Kw::kTRAN) || p_.accept_kw(Kw::kTRANSACTION);
        const bool named = s.kind == ScriptKind::Save;
        if (named && !tran) p_.syntax_error(peek());
        if (named || (p_.is_name_token(peek()) && !is_go(peek()))) s.name = p_.expect_name();
    }

    void fetch(ScriptStatement& s) {
        ++p_.at_;  // FETCH
        s.kind = ScriptKind::Fetch;
        if (!accept_word("next") && !accept_word("prior") && !accept_word("first"))
            accept_word("last");
        p_.expect_kw(Kw::kFROM);
        s.name = name();
        p_.expect_kw(Kw::kINTO);
        do {
            const Token& v = peek();
            if (v.kind != Tok::Variable) p_.syntax_error(v);
            ++p_.at_;
            s.variables.push_back(ScriptVariable{std::string(v.text), {}, false, {}});
        } while (p_.accept(Tok::Comma));
    }

    void create(ScriptStatement& s) {
        ++p_.at_;  // CREATE
        if (p_.accept_kw(Kw::kTABLE)) return create_table(s);
        if (is_kw(Kw::kUNIQUE) || is_kw(Kw::kINDEX) || is_word(peek(), "clustered") ||
            is_word(peek(), "nonclustered"))
            return create_index(s);
        if (p_.accept_kw(Kw::kVIEW)) {
            s.kind = ScriptKind::CreateView;
            s.name = name();
            if (peek().kind == Tok::LParen) name_list();
            p_.expect_kw(Kw::kAS);
            s.query = select();
            return;
        }
        if (accept_word("trigger")) return create_trigger(s);
        if (p_.accept_kw(Kw::kPROCEDURE) || p_.accept_kw(Kw::kPROC)) return create_procedure(s);
        p_.unsupported("create " + lower_copy(peek().text), peek().pos);
    }

    void create_table(ScriptStatement& s) {
        s.kind = ScriptKind::CreateTable;
        ScriptTable table;
        table.position = peek().pos;
        table.name = s.name = name();
        p_.expect(Tok::LParen);
        do {
            if (p_.accept_kw(Kw::kCONSTRAINT)) p_.expect_name();
            if (accept_word("primary")) {
                p_.expect_kw(Kw::kKEY);
                if (!accept_word("clustered")) accept_word("nonclustered");
                table.primary_key = name_list();
            } else if (p_.accept_kw(Kw::kUNIQUE)) {
                if (!accept_word("clustered")) accept_word("nonclustered");
                table.unique_keys.push_back(name_list());
            } else if (is_kw(Kw::kCHECK) || is_kw(Kw::kFOREIGN)) {
                p_.unsupported(lower_copy(peek().text) + " constraint", peek().pos);
            } else {
                table.columns.push_back(column(table));
            }
        } while (p_.accept(Tok::Comma));
        p_.expect(Tok::RParen);
        script_.tables.push_back(std::move(table));
    }

    ScriptColumn column(ScriptTable& table) {
        ScriptColumn c;
        c.position = peek().pos;
        c.name = p_.expect_name();
        c.type = type();
        bool not_null = false;
        for (;;) {
            if (p_.accept_kw(Kw::kCONSTRAINT)) p_.expect_name();
            if (p_.accept_kw(Kw::kNULL)) {
                not_null = false;
            } else if (is_kw(Kw::kNOT) && is_kw(Kw::kNULL, 1)) {
                p_.at_ += 2;
                not_null = true;
            } else if (p_.accept_kw(Kw::kDEFAULT)) {
                c.default_value = std::string(expr().of(text_));
            } else if (accept_word("identity")) {
                c.identity = true;
                if (p_.accept(Tok::LParen)) {
                    p_.parse_plain_integer();
                    p_.expect(Tok::Comma);
                    p_.parse_plain_integer();
                    p_.expect(Tok::RParen);
                }
            } else if (accept_word("primary")) {
                p_.expect_kw(Kw::kKEY);
                if (!accept_word("clustered")) accept_word("nonclustered");
                table.primary_key = {c.name};
            } else if (p_.accept_kw(Kw::kUNIQUE)) {
                if (!accept_word("clustered")) accept_word("nonclustered");
                table.unique_keys.push_back({c.name});
            } else if (p_.accept_kw(Kw::kCOLLATE)) {
                p_.expect_name();
            } else {
                break;
            }
        }
        const bool keyed = table.primary_key.size() == 1 && table.primary_key[0] == c.name;
        c.nullable = !not_null && !c.identity && !keyed;
        return c;
    }

    void create_index(ScriptStatement& s) {
        s.kind = ScriptKind::CreateIndex;
        ScriptIndex index;
        index.unique = p_.accept_kw(Kw::kUNIQUE);
        if (!accept_word("clustered")) accept_word("nonclustered");
        p_.expect_kw(Kw::kINDEX);
        index.position = peek().pos;
        index.name = s.name = name();
        p_.expect_kw(Kw::kON);
        index.table = s.table = name();
        index.columns = name_list();
        if (accept_word("include")) name_list();
        if (p_.accept_kw(Kw::kWHERE)) index.filter = std::string(expr().of(text_));
        if (p_.accept_kw(Kw::kWITH)) p_.unsupported("index options", peek().pos);
        script_.indexes.push_back(std::move(index));
    }

    void create_trigger(ScriptStatement& s) {
        s.kind = ScriptKind::CreateTrigger;
        s.name = name();
        p_.expect_kw(Kw::kON);
        s.table = name();
        if (accept_word("instead")) {
            p_.expect_kw(Kw::kOF);
        } else if (!p_.accept_kw(Kw::kFOR)) {
            expect_word("after");
        }
        do {
            const Token& e = peek();
            if (!is_kw(Kw::kINSERT) && !is_kw(Kw::kUPDATE) && !is_kw(Kw::kDELETE))
                p_.syntax_error(e);
            ++p_.at_;
            std::string event = lower_copy(e.text);
            for (char& ch : event)
                ch = static_cast<char>(ch - 'a' + 'A');
            s.events.push_back(std::move(event));
        } while (p_.accept(Tok::Comma));
        p_.expect_kw(Kw::kAS);
        s.body = statements_until_batch_end();
    }

    void create_procedure(ScriptStatement& s) {
        s.kind = ScriptKind::CreateProcedure;
        s.name = name();
        const bool parens = p_.accept(Tok::LParen);
        if (peek().kind == Tok::Variable) {
            do {
                const Token& v = peek();
                if (v.kind != Tok::Variable) p_.syntax_error(v);
                ++p_.at_;
                p_.accept_kw(Kw::kAS);
                ScriptVariable param{std::string(v.text), type(), false, {}};
                if (p_.accept(Tok::Eq)) param.value = expr();
                param.output = accept_word("output") || accept_word("out");
                s.variables.push_back(std::move(param));
            } while (p_.accept(Tok::Comma));
        }
        if (parens) p_.expect(Tok::RParen);
        if (p_.accept_kw(Kw::kWITH)) p_.unsupported("procedure options", peek().pos);
        p_.expect_kw(Kw::kAS);
        s.body = statements_until_batch_end();
    }

    Arena arena_;
    std::string_view text_;
    Parser p_;
    Script script_;
    std::size_t batch_ = 0;
    int depth_ = 0;
};

Script parse_script(std::string_view text) {
    return ScriptParser(text).run();
}

}  // namespace billdata::dialect
