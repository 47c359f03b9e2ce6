// Every statement the component issues translates against the bill tables, and the engine
// accepts every translation.

#include <fstream>

#include "dialect/dialect_fixture.h"

namespace billdata::testing {
namespace {

std::vector<std::string> load_corpus() {
    std::ifstream in(std::string(BILLDATA_SOURCE_DIR) + "/tests/data/statements.sql");
    std::vector<std::string> out;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line.rfind("--", 0) == 0) continue;
        out.push_back(line);
    }
    return out;
}

class Corpus : public DialectDb {};

TEST_F(Corpus, EveryStatementTranslatesAndPrepares) {
    const auto statements = load_corpus();
    ASSERT_GT(statements.size(), 200u);
    for (const auto& tsql : statements) {
        dialect::Translation t;
        try {
            t = translate(tsql);
        } catch (const dialect::DialectError& e) {
            ADD_FAILURE() << e.what() << "\n" << tsql;
            continue;
        }
        sqlite3_stmt* stmt = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db_, t.sql.c_str(), -1, &stmt, nullptr), SQLITE_OK)
            << sqlite3_errmsg(db_) << "\n"
            << tsql << "\n"
            << t.sql;
        sqlite3_finalize(stmt);
        EXPECT_EQ(t.writes, t.kind != dialect::StatementKind::Select) << tsql;
        EXPECT_EQ(dialect::check_single_statement(tsql), t.kind) << tsql;
    }
}

// The literals reported for the statement cache are exactly the literal tokens of the text.
TEST_F(Corpus, LiteralsPointAtTheSourceText) {
    for (const auto& tsql : load_corpus()) {
        const auto t = translate(tsql);
        std::size_t last_end = 0;
        for (const auto& lit : t.literals) {
            ASSERT_LE(lit.offset + lit.length, tsql.size()) << tsql;
            EXPECT_GE(lit.offset, last_end) << tsql;
            last_end = lit.offset + lit.length;
            const std::string text = tsql.substr(lit.offset, lit.length);
            switch (lit.kind) {
                case dialect::Literal::Kind::Number:
                    EXPECT_TRUE(text[0] >= '0' && text[0] <= '9') << text;
                    break;
                case dialect::Literal::Kind::String:
                    EXPECT_TRUE(text.front() == '\'' && text.back() == '\'') << text;
                    break;
                case dialect::Literal::Kind::NString:
                    EXPECT_TRUE(text.rfind("N'", 0) == 0 && text.back() == '\'') << text;
                    break;
            }
        }
    }
}

}  // namespace
}  // namespace billdata::testing
