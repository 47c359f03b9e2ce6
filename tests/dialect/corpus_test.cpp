// Every statement the component issues translates, and runs on the schema a new database gets;
// its literals are reported where they stand.

#include "dialect/dialect_fixture.h"

namespace billdata::testing {
namespace {

class Corpus : public OnEveryEngine {};
BILLDATA_ON_EVERY_ENGINE(Corpus);

// The whole corpus runs in its order on a database with data: every statement translates and
// executes.
TEST_P(Corpus, EveryStatementRunsOnRealData) {
    raw("INSERT INTO t_Stock(FItemID, FName) VALUES (1, 'Main'), (2, 'Second'), (3, 'Third');"
        "INSERT INTO t_ICItem(FItemID, FNumber, FName, FUnit, FSizeID) VALUES (101, 'A100', 'Shirt', 'pc', 1),"
        " (102, 'B200', 'Socks', 'pair', 0);"
        "INSERT INTO t_Supplier(FItemID, FNumber, FName) VALUES (3, 'S3', 'Supplier');"
        "INSERT INTO t_Item(FItemID, FNumber, FName) VALUES (3, 'S3', 'Supplier');"
        "INSERT INTO t_User VALUES (1, 'admin', 7, 1);"
        "INSERT INTO Vip(FVipID, FVipNo, FOwner, FSumJf, FSumJf_Un, FSumBuyAmount, FBogus, FEditTime) VALUES (3, 'V003', 'Zhang', 0, 0, 0, 1, NULL);"
        "INSERT INTO ICInitData VALUES (1, 101, 4, 40, 10), (1, 101, 0, 0, 10);"
        "INSERT INTO t_SystemProfile VALUES ('StartYear', '2025'), ('CurrentYear', '2025');");
    const auto corpus = load_statement_corpus();
    ASSERT_GT(corpus.size(), 200u);
    for (const auto& tsql : corpus) {
        try {
            const dialect::Translation t = translate(tsql);
            // What the data layer decides from the statement's kind agrees with the translation.
            EXPECT_EQ(t.writes, t.kind != dialect::StatementKind::Select) << tsql;
            EXPECT_EQ(dialect::check_single_statement(tsql), t.kind) << tsql;
            run(tsql);
        } catch (const std::exception& e) {
            ADD_FAILURE() << e.what() << "\n" << tsql;
        }
    }
    // The end state the last statements leave: balances reopened, one staging row.
    EXPECT_EQ(value("select count(*) from ICBal"), "0");
    EXPECT_EQ(run("select FItemClassID,FOrgaID,FAmount from WLInitData"),
              (Rows{{"2", "3", "1500"}}));
    // The other stock bill saved in between is listed by its kind's list.
    EXPECT_EQ(
        value("select count(*) from ICStockBill where FTranType=31 and FSeason='2006年4季度'"),
        "1");
}

// The literals reported for the statement cache are exactly the literal tokens of the text.
class CorpusLiterals : public DialectDb {};

TEST_F(CorpusLiterals, LiteralsPointAtTheSourceText) {
    for (const auto& tsql : load_statement_corpus()) {
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
