// Every statement of the corpus translates against the schema a new database really gets and the
// engine prepares the translation: each column it names exists, and each unqualified column
// belongs to exactly one table of its statement, as SQL Server requires.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/schema/schema.h"
#include "schema/schema_test_util.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

TEST(Statements, EveryCorpusStatementPreparesOnTheCreatedSchema) {
    TempDir dir;
    const std::string path = dir.file("statements.db");
    schema::create_database(path, true, 2025, 3);
    Db db(path);
    const dialect::Catalog catalog = drivers::sqlite::read_catalog(db.handle());

    const auto corpus = load_statement_corpus();
    ASSERT_GT(corpus.size(), 200u);
    for (const std::string& tsql : corpus) {
        dialect::Translation t;
        try {
            t = dialect::translate_sqlite(tsql, catalog);
        } catch (const dialect::DialectError& e) {
            ADD_FAILURE() << e.what() << "\n  in: " << tsql;
            continue;
        }
        sqlite3_stmt* st = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db.handle(), t.sql.c_str(), -1, &st, nullptr), SQLITE_OK)
            << sqlite3_errmsg(db.handle()) << "\n  in: " << tsql;
        sqlite3_finalize(st);
        // What the data layer decides from the statement's kind agrees with the translation.
        EXPECT_EQ(t.writes, t.kind != dialect::StatementKind::Select) << tsql;
        EXPECT_EQ(dialect::check_single_statement(tsql), t.kind) << tsql;
    }
}

}  // namespace
}  // namespace billdata::testing
