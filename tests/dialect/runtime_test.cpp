// The runtime's collations and the catalogue reader, used directly on a database.

#include <span>

#include "billdata/dialect/runtime_names.h"
#include "billdata/util/text.h"
#include "dialect/dialect_fixture.h"

namespace billdata::testing {
namespace {

class Runtime : public DialectDb {};

TEST_F(Runtime, DateCollationOrdersChronologicallyWithNonDatesLast) {
    raw("CREATE TABLE d(v TEXT COLLATE BDDATE);"
        "INSERT INTO d VALUES ('2025-03-09 08:30:00'), ('20250101'), ('2024/12/31'), ('n/a'), "
        "('2025-03-09T08:00:00'), ('2025-03-09'), ('abc'), ('2025-3-9 8:15');");
    EXPECT_EQ(run_sqlite("SELECT v FROM d ORDER BY v"), (Rows{{"2024/12/31"},
                                                              {"20250101"},
                                                              {"2025-03-09"},
                                                              {"2025-03-09T08:00:00"},
                                                              {"2025-3-9 8:15"},
                                                              {"2025-03-09 08:30:00"},
                                                              {"abc"},
                                                              {"n/a"}}));
    EXPECT_EQ(run_sqlite("SELECT count(*) FROM d WHERE v = '2025-03-09 00:00:00'"), (Rows{{"1"}}));
    EXPECT_EQ(run_sqlite("SELECT count(*) FROM (SELECT DISTINCT v COLLATE BDDATE FROM "
                         "(SELECT '2025-03-09' AS v UNION ALL SELECT '20250309 00:00'))"),
              (Rows{{"1"}}));
}

TEST_F(Runtime, TextCollationFoldsCaseAndIgnoresTrailingBlanks) {
    raw("CREATE TABLE t(v TEXT COLLATE BDTEXT); CREATE UNIQUE INDEX tu ON t(v);"
        "INSERT INTO t VALUES ('b'), ('A'), ('a_b'), ('aab');");
    EXPECT_EQ(run_sqlite("SELECT v FROM t ORDER BY v"), (Rows{{"A"}, {"a_b"}, {"aab"}, {"b"}}));
    // The unique index treats 'B ' as the 'b' it already holds.
    char* err = nullptr;
    EXPECT_NE(sqlite3_exec(db_, "INSERT INTO t VALUES ('B ')", nullptr, nullptr, &err), SQLITE_OK);
    sqlite3_free(err);
}

TEST_F(Runtime, ConversionErrorsUseTheServersWords) {
    auto message = [&](const std::string& sql) -> std::string {
        try {
            run(sql);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "no error";
    };
    EXPECT_EQ(message("select cast('x1' as int)"),
              "在将 varchar 值 'x1' 转换成数据类型 int 时失败。");
    // A day that does not exist is out of range (242); a text of no date form fails (241).
    EXPECT_EQ(message("select cast('2025-02-30' as datetime)"),
              "从 varchar 数据类型到 datetime 数据类型的转换产生一个超出范围的值。");
    EXPECT_EQ(message("select cast('2025-02-3x' as datetime)"),
              "从字符串转换日期和/或时间时，转换失败。");
    EXPECT_EQ(message("select left('abc',-1)"), "传递给 LEFT 或 SUBSTRING 函数的长度参数无效。");
    EXPECT_EQ(value("select cast('' as datetime)"), "1900-01-01 00:00:00");
    EXPECT_EQ(value("select cast(45000 as datetime)"), "2023-03-17 00:00:00");
    EXPECT_EQ(value("select cast('2025-03-09 8:30 PM' as datetime)"), "2025-03-09 20:30:00");
}

// Whatever runtime name the emitter may write is there on a connection of the engine.
TEST_F(Runtime, EveryFunctionAndCollationOfTheRuntimeIsRegistered) {
    auto registered = [&](const char* list, std::string_view name) {
        return run_sqlite(std::string("SELECT count(*) FROM ") + list + " WHERE name = '" +
                          std::string(name) + "' COLLATE NOCASE") != Rows{{"0"}};
    };
    for (const auto& names :
         {std::span<const std::string_view>(dialect::runtime::kFunctions),
          std::span<const std::string_view>(dialect::runtime::kConversionFunctions)}) {
        for (std::string_view name : names)
            EXPECT_TRUE(registered("pragma_function_list", name)) << name;
    }
    for (std::string_view name : dialect::runtime::kCollations)
        EXPECT_TRUE(registered("pragma_collation_list", name)) << name;
}

// What a database declares that its triggers keep reaches the translation, whatever the tables
// are called; a declaration the database's tables do not back is left out.
class KeptFacts : public OnEveryEngine {};
BILLDATA_ON_EVERY_ENGINE(KeptFacts);

TEST_P(KeptFacts, KeptCountsAndCopiesDeclaredByTheDatabaseAreRead) {
    raw("DROP VIEW IF EXISTS t_KeptRowCounts; DROP VIEW IF EXISTS t_KeptCopies;"
        "CREATE TABLE Head(FKey INTEGER PRIMARY KEY, FSort INTEGER);"
        "CREATE TABLE Line(FKey INTEGER, FSortCopy INTEGER, FQty REAL);"
        "CREATE TABLE Counts(Head INTEGER, Line INTEGER); INSERT INTO Counts VALUES (42, 0);"
        "CREATE VIEW t_KeptRowCounts (FTable, FCountTable) AS VALUES ('head', 'Counts'), "
        "('Line', 'NoSuchTable');"
        "CREATE VIEW t_KeptCopies (FTable, FColumn, FFromTable, FFromColumn, FKey) AS "
        "VALUES ('Line', 'FSortCopy', 'Head', 'FSort', 'FKey');");
    reload_catalog();
    EXPECT_TRUE(util::iequals(catalog_.kept_row_count("HEAD"), "Counts"));
    EXPECT_EQ(value("select count(*) from Head"), "42");
    EXPECT_EQ(std::string(catalog_.kept_row_count("Line")), "");
    const std::string sql =
        translate(
            "select l.FQty from Head h inner join Line l on h.FKey=l.FKey where "
            "h.FSort in (1,2) and h.FKey>3")
            .sql;
    EXPECT_NE(util::lower_copy(sql).find("l.fsortcopy in ("), std::string::npos) << sql;
}

// Whatever runtime function the server translation may write is in the server's runtime.
class ServerRuntime : public DialectDb {
  protected:
    Engine engine() const override { return Engine::Postgres; }
};

TEST_F(ServerRuntime, EveryFunctionTheTranslationWritesIsThere) {
    for (std::string_view name : dialect::runtime::kConversionFunctions) {
        PGresult* r = PQexec(
            pg_, ("SELECT 1 FROM pg_proc WHERE proname = '" + std::string(name) + "'").c_str());
        EXPECT_GT(PQntuples(r), 0) << name;
        PQclear(r);
    }
    for (std::string_view name : dialect::runtime::kServerFunctions) {
        PGresult* r = PQexec(
            pg_, ("SELECT 1 FROM pg_proc WHERE proname = '" + std::string(name) + "'").c_str());
        EXPECT_GT(PQntuples(r), 0) << name;
        PQclear(r);
    }
}

}  // namespace
}  // namespace billdata::testing
