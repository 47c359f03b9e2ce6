// Whole scripts: the shipped SQL Server script read statement by statement, and the errors that
// name where a script cannot be read.
#include <gtest/gtest.h>

#include <string>

#include "billdata/dialect/script.h"
#include "billdata/schema/schema.h"

using namespace billdata::dialect;

namespace {

const ScriptStatement* find(const std::vector<ScriptStatement>& list, ScriptKind kind,
                            std::string_view name = {}) {
    for (const auto& s : list) {
        if (s.kind == kind && (name.empty() || s.name == name)) return &s;
        if (const auto* inner = find(s.body, kind, name)) return inner;
    }
    return nullptr;
}

std::size_t error_position(std::string_view text) {
    try {
        parse_script(text);
    } catch (const DialectError& e) {
        return e.position();
    }
    ADD_FAILURE() << "no error for: " << text;
    return 0;
}

}  // namespace

TEST(Script, ReadsTheShippedSqlServerScript) {
    const std::string_view text = billdata::schema::sqlserver_schema();
    const Script script = parse_script(text);
    EXPECT_EQ(script.batches, 64u);
    EXPECT_EQ(script.tables.size(), 35u);
    EXPECT_EQ(script.indexes.size(), 19u);
    std::size_t triggers = 0, procedures = 0;
    for (const auto& s : script.statements) {
        triggers += s.kind == ScriptKind::CreateTrigger;
        procedures += s.kind == ScriptKind::CreateProcedure;
        EXPECT_TRUE(s.span.of(text).starts_with(s.kind == ScriptKind::Option ? "SET" : "CREATE"));
    }
    EXPECT_EQ(triggers, 6u);
    EXPECT_EQ(procedures, 2u);

    const ScriptTable& item = script.tables[11];
    ASSERT_EQ(item.name, "t_ICItem");
    const ScriptColumn& price = item.columns[8];
    EXPECT_EQ(price.name, "FRetailPrice");
    EXPECT_EQ(price.type.name, "decimal");
    EXPECT_EQ(price.type.precision, 18);
    EXPECT_EQ(price.type.scale, 4);
    EXPECT_TRUE(price.nullable);
    EXPECT_EQ(price.default_value, "0");
    EXPECT_EQ(item.columns[1].type.length, 50);
    EXPECT_FALSE(item.columns[0].nullable);
    EXPECT_EQ(item.primary_key, std::vector<std::string>{"FItemID"});
    EXPECT_EQ(script.indexes[0].filter, "FEntryID >= 0");
    EXPECT_TRUE(script.indexes[0].unique);

    const auto* stock = find(script.statements, ScriptKind::CreateProcedure, "sp_GetStockQty");
    ASSERT_NE(stock, nullptr);
    ASSERT_EQ(stock->variables.size(), 4u);
    EXPECT_TRUE(stock->variables[3].output);
    EXPECT_EQ(stock->variables[3].type.name, "float");
    const auto* assign = find(stock->body, ScriptKind::Query);
    ASSERT_NE(assign, nullptr);
    ASSERT_EQ(assign->targets.size(), 1u);
    EXPECT_EQ(assign->targets[0].assign.of(text).substr(0, 7), "@RtnQty");

    const auto* cost = find(script.statements, ScriptKind::CreateProcedure, "Sp_CacuCost");
    ASSERT_NE(cost, nullptr);
    const auto* attempt = find(cost->body, ScriptKind::Try);
    ASSERT_NE(attempt, nullptr);
    EXPECT_NE(find(attempt->body[1].body, ScriptKind::Throw), nullptr);
    EXPECT_NE(find(cost->body, ScriptKind::Fetch, "bills"), nullptr);
    const auto* trigger =
        find(script.statements, ScriptKind::CreateTrigger, "TR_ICStockBillEntry_Cost");
    ASSERT_NE(trigger, nullptr);
    EXPECT_EQ(trigger->events, (std::vector<std::string>{"INSERT", "UPDATE", "DELETE"}));
}

TEST(Script, GoSeparatesOnlyOnItsOwnLine) {
    const Script s = parse_script("CREATE TABLE t (a int)\n  GO  \nSELECT a AS go FROM t\ngo\n");
    ASSERT_EQ(s.statements.size(), 2u);
    EXPECT_EQ(s.statements[1].batch, 1u);
    EXPECT_EQ(s.batches, 2u);
}

TEST(Script, ErrorsNameThePositionInTheWholeScript) {
    // A fault in a later batch, inside a body, and a body cut off by GO.
    const std::string first = "CREATE TABLE t (a int NOT NULL)\nGO\n";
    EXPECT_EQ(error_position(first + "CREATE PROCEDURE p AS\nSET @x = = 1\n"), first.size() + 31);
    EXPECT_EQ(error_position(first + "CREATE TRIGGER r ON t AFTER INSERT AS\nBEGIN\nRETURN\nGO\n"),
              first.size() + 51);
    EXPECT_EQ(error_position("CREATE TABLE t (a int, CHECK (a > 0))"), 23u);
    // Variables stay refused where a single statement is checked.
    EXPECT_THROW(check_single_statement("SELECT @a = 1"), DialectError);
}
