// The statement shape is found by a scan of its own, apart from the lexer, because it runs on
// every statement before the cache is asked. The cache binds the literals the translator reports
// by their source offsets, so the scan must find exactly the literals the lexer finds.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/dialect/lexer.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

using dialect::Literal;

std::vector<Literal> lexer_literals(const std::string& text) {
    std::vector<dialect::Token> tokens;
    dialect::Lexer(text).run(tokens);
    std::vector<Literal> out;
    for (const auto& t : tokens) {
        if (t.kind == dialect::Tok::Number)
            out.push_back({t.pos, t.len, Literal::Kind::Number});
        else if (t.kind == dialect::Tok::String)
            out.push_back({t.pos, t.len, Literal::Kind::String});
        else if (t.kind == dialect::Tok::NString)
            out.push_back({t.pos, t.len, Literal::Kind::NString});
    }
    return out;
}

void expect_same_literals(const std::string& text) {
    const dialect::Shape shape = dialect::statement_shape(text);
    const std::vector<Literal> expected = lexer_literals(text);
    ASSERT_EQ(shape.literals.size(), expected.size()) << text;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(shape.literals[i].offset, expected[i].offset) << text;
        EXPECT_EQ(shape.literals[i].length, expected[i].length) << text;
        EXPECT_EQ(shape.literals[i].kind, expected[i].kind) << text;
    }
}

TEST(StatementShape, FindsTheLiteralsTheLexerFinds) {
    const auto corpus = load_statement_corpus();
    EXPECT_GT(corpus.size(), 100u);
    for (const std::string& line : corpus)
        expect_same_literals(line);
    // Digits in names, numbers glued to keywords, exponents with and without digits, leading
    // points, national texts, doubled quotes, bracketed and quoted names holding quotes and
    // digits, variables, comments of both kinds (nested) that hold quotes, names in other
    // scripts.
    for (const char* text : {
             "select t1.FQty*1.5e3,FQty2,.5,5.,1e,1e+,2E-2x from T1 t1 where a=112order by 1",
             "select N'a''b',n'',x'ab','','it''s' from t where FName=N'名' and [F'1 2]=3",
             "select \"a\"\"9\" , [b]]7], @p1, @@rowcount from t -- '5 and 6'\nwhere x=-7",
             "select /* a /* 'b' */ 12 */ 13 from t where 名称=N'值' and 列1=4 and x#1=2",
             "update t set a=a+1,b='x' where c in (1,2,3) and d between 1.25 and 3",
         })
        expect_same_literals(text);
}

TEST(StatementShape, KeysStatementsThatDifferOnlyInTheirValues) {
    const auto a = dialect::statement_shape("select FName from T where FID=12 and FName='x'");
    const auto b = dialect::statement_shape("select FName from T where FID=345 and FName='yy'");
    EXPECT_EQ(a.key, b.key);
    // A whole number and a decimal, a text and a national text, differ in shape.
    EXPECT_NE(dialect::statement_shape("select 1 from T where FQty=1").key,
              dialect::statement_shape("select 1 from T where FQty=1.0").key);
    EXPECT_NE(dialect::statement_shape("select 1 from T where FName='a'").key,
              dialect::statement_shape("select 1 from T where FName=N'a'").key);
    // The same value in another place, or other words around it, is another shape.
    EXPECT_NE(dialect::statement_shape("select 1 from T where FID=1").key,
              dialect::statement_shape("select 1 from T where FID =1").key);
    EXPECT_NE(dialect::statement_shape("select a from T").key,
              dialect::statement_shape("select b from T").key);
}

TEST(StatementShape, RefusesWhatTheLexerRefusesWithTheSameMessage) {
    for (const char* text :
         {"select 'abc from T", "select N'abc from T", "select [a from T", "select \"a from T",
          "select [] from T", "select 1 /* open", "select 1 /* a /* b */"}) {
        std::string lexer_message, shape_message;
        try {
            std::vector<dialect::Token> tokens;
            dialect::Lexer(text).run(tokens);
        } catch (const dialect::DialectError& e) {
            lexer_message = e.what();
        }
        try {
            dialect::statement_shape(text);
        } catch (const dialect::DialectError& e) {
            shape_message = e.what();
        }
        EXPECT_FALSE(shape_message.empty()) << text;
        EXPECT_EQ(shape_message, lexer_message) << text;
    }
}

TEST(StatementShape, ReadsNoFurtherThanTheTextItIsGiven) {
    // A view into a longer text that closes the comment only after the view's end.
    const std::string longer = "select 1 /* open */";
    const std::string_view text = std::string_view(longer).substr(0, 12);
    EXPECT_THROW(dialect::statement_shape(text), dialect::DialectError);
    std::vector<dialect::Token> tokens;
    EXPECT_THROW(dialect::Lexer(text).run(tokens), dialect::DialectError);
}

}  // namespace
}  // namespace billdata::testing
