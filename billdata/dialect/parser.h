#pragma once
// Recursive-descent parser of one T-SQL statement into the tree of ast.h. Operator precedence
// is declared once, in the table of parser.cpp; the parser never backtracks more than a fixed
// few tokens.

#include <string_view>
#include <vector>

#include "billdata/dialect/ast.h"
#include "billdata/dialect/lexer.h"

namespace billdata::dialect {

class Parser {
  public:
    Parser(std::string_view source, Arena& arena);

    // Parses exactly one statement (a trailing ';' is allowed) and returns it. Raises
    // DialectError for a syntax error, a second statement or an unsupported construct.
    Node* parse_statement();
    StatementKind kind() const { return kind_; }
    // The literals whose value can change without changing the statement's meaning, in source
    // order (TOP counts, type lengths and convert styles are part of the shape, not listed).
    std::vector<dialect::Literal>& literals() { return literals_; }

  private:
    // Reads whole scripts (script.h) with this parser's statement and expression rules.
    friend class ScriptParser;

    const Token& peek(std::size_t ahead = 0) const {
        std::size_t i = at_ + ahead;
        return i < tokens_.size() ? tokens_[i] : tokens_.back();
    }
    const Token& next() { return tokens_[at_ < tokens_.size() - 1 ? at_++ : at_]; }
    bool is_kw(Kw kw, std::size_t ahead = 0) const {
        const Token& t = peek(ahead);
        return t.kind == Tok::Identifier && t.kw == kw;
    }
    bool accept_kw(Kw kw);
    bool accept(Tok kind);
    void expect_kw(Kw kw);
    void expect(Tok kind);
    [[noreturn]] void syntax_error(const Token& at) const;
    [[noreturn]] void unsupported(std::string_view construct, std::size_t pos) const;
    bool is_name_token(const Token& t) const;  // an identifier that is not a reserved word
    std::string_view expect_name();

    Node* parse_insert();
    Node* parse_update();
    Node* parse_delete();
    Node* parse_truncate();
    Select* parse_select();
    Node* parse_query_expr();
    Node* parse_query_term();
    QuerySpec* parse_query_spec();
    long long parse_top(QuerySpec& spec);
    long long parse_row_count(bool fetch);
    void parse_select_item(QuerySpec& spec);
    void parse_from_list(List<TableSource*>& from);
    TableSource* parse_table_source();
    TableSource* parse_table_primary();
    TableRef* parse_table_name(bool allow_alias);
    void skip_table_hints();
    std::string_view parse_alias();
    void parse_order_by(Select& select);

    Expr* parse_expr(int min_prec = 0);
    Expr* parse_unary();
    Expr* parse_primary();
    Expr* parse_function(const Token& name);
    void parse_over(Function& fn);
    void parse_window_order(Function& fn);
    void parse_frame(Window& w);
    FrameBound parse_frame_bound();
    void window_arguments(Function& fn);
    Expr* parse_odbc_escape();
    Expr* parse_odbc_function();
    Expr* parse_case(const Token& start);
    Expr* parse_cast(const Token& start, bool is_convert);
    TypeSpec parse_type();
    long long parse_plain_integer();
    Select* parse_subquery_in_parens();
    // Script bodies only: a variable, UPDATE(column) or a system function without arguments
    // (script_parser.cpp); nullptr when the next token starts none of them.
    Expr* parse_script_term();

    Arena& arena_;
    std::string_view src_;
    Lexer lexer_;
    std::vector<Token> tokens_;
    std::size_t at_ = 0;
    int depth_ = 0;  // the parser's recursion
    int reach_ = 0;  // the deepest level of the tree parsed so far (see ChainHeight)
    StatementKind kind_ = StatementKind::Select;
    std::vector<dialect::Literal> literals_;
    bool script_ = false;  // reading a script's bodies: variables are names, not refused
};

}  // namespace billdata::dialect
