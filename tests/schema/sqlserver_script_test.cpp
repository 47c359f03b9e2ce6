// The SQL Server script and the embedded schema describe the same database: the script read by
// the dialect's script parser, the embedded schema read back from a database made with it, and
// their tables, columns, column types, keys, indexes and triggers compared. The PostgreSQL
// script's tables are held against the same list.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "billdata/dialect/script.h"
#include "billdata/schema/schema.h"
#include "support/raw_db.h"

using billdata::schema::DeclaredColumn;
namespace dialect = billdata::dialect;

namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string squeeze(std::string_view s) {
    std::string out;
    for (char c : s)
        if (c != ' ' && c != '\n' && c != ';') out.push_back(c);
    return lower(out);
}

// What only the embedded engine keeps, and why: it has no server to sum quickly, so triggers
// keep totals and copies that the translator and the procedures read instead. Every entry
// must be found, so that the list stays true.
const std::map<std::string, std::string> kEmbeddedOnly = {
    {"t_tablerows", "row counts, read instead of a whole-table count(*)"},
    {"icstockqty", "stock on hand per stock and item, read by sp_GetStockQty"},
    {"icstockbillentry.fheadtrantype", "the line's copy of its bill's kind for kind joins"},
    {"ix_icstockbillentry_itemkind", "the index on that copy"},
    {"t_keptrowcounts", "the view that declares the kept row counts to the translator"},
    {"t_keptcopies", "the view that declares the kept copies to the translator"},
    {"t_schematables", "the script's tables, behind information_schema.tables"},
    {"t_schemacolumns", "the script's declared columns, behind information_schema.columns"},
};

// The triggers that keep those totals and copies.
bool keeps_totals(const std::string& trigger) {
    for (const char* part : {"_rowsins", "_rowsdel", "_qty", "_kind"})
        if (trigger.find(part) != std::string::npos) return true;
    return false;
}

struct Column {
    std::string name;  // lower case
    std::string kind;  // integer, real, date, text, or what did not fit
    bool nullable = true;
};

struct Schema {
    std::map<std::string, std::vector<Column>> tables;     // lower-case name
    std::map<std::string, std::vector<std::string>> keys;  // primary key columns, lower case
    std::map<std::string, std::string> indexes;            // name → "table(cols) unique where"
    std::set<std::string> triggers;                        // lower case
};

// Integers, decimal(18,4) amounts, dates and texts with a length; anything else is named.
std::string server_kind(const DeclaredColumn& c) {
    if (c.type == "int" || c.type == "smallint" || c.type == "bigint" || c.type == "tinyint")
        return "integer";
    if ((c.type == "decimal" || c.type == "numeric") && c.precision == 18 && c.scale == 4)
        return "real";
    if (c.type == "money") return "real";
    if (c.type == "datetime" || c.type == "smalldatetime" || c.type == "datetime2") return "date";
    if ((c.type == "nvarchar" || c.type == "varchar") && c.length != 0) return "text";
    return c.type + "(" + std::to_string(c.precision) + "," + std::to_string(c.scale) + "," +
           std::to_string(c.length) + ")";
}

// Integers, reals, dates under the date collation and texts under the text collation.
std::string embedded_kind(const std::string& type, const std::string& collation) {
    if (type == "INTEGER" && collation == "BINARY") return "integer";
    if (type == "REAL" && collation == "BINARY") return "real";
    if (type == "DATETIME" && collation == "BDDATE") return "date";
    if (type == "TEXT" && collation == "BDTEXT") return "text";
    return type + " collate " + collation;
}

Schema server_schema() {
    Schema s;
    for (const DeclaredColumn& c : billdata::schema::sqlserver_declared_columns())
        s.tables[lower(c.table)].push_back(Column{lower(c.column), server_kind(c), c.nullable});
    const dialect::Script script = dialect::parse_script(billdata::schema::sqlserver_schema());
    for (const auto& t : script.tables)
        for (const auto& k : t.primary_key)
            s.keys[lower(t.name)].push_back(lower(k));
    for (const auto& i : script.indexes) {
        std::string cols;
        for (const auto& c : i.columns)
            cols += (cols.empty() ? "" : ",") + lower(c);
        s.indexes[lower(i.name)] = lower(i.table) + "(" + cols + ")" + (i.unique ? " unique" : "") +
                                   " " + squeeze(i.filter);
    }
    // A trigger on several events is one trigger per event on the embedded engine, named with
    // the event's first letters (TR_x_Cost → TR_x_CostIns, TR_x_CostUpd, TR_x_CostDel).
    for (const auto& st : script.statements) {
        if (st.kind != dialect::ScriptKind::CreateTrigger) continue;
        const bool by_event = st.name.ends_with("_Cost");
        if (!by_event) s.triggers.insert(lower(st.name));
        for (const auto& e : st.events)
            if (by_event) s.triggers.insert(lower(st.name + e.substr(0, 3)));
    }
    return s;
}

Schema embedded_schema(std::set<std::string>& embedded_only_seen) {
    billdata::testing::RawDb db(":memory:", true);
    db.exec(std::string(billdata::schema::sqlite_schema()));
    auto only = [&](const std::string& name) {
        if (!kEmbeddedOnly.count(name)) return false;
        embedded_only_seen.insert(name);
        return true;
    };
    Schema s;
    for (const std::string& row :
         db.rows("SELECT type || '|' || name || '|' || tbl_name || '|' || coalesce(sql, '') "
                 "FROM sqlite_master WHERE name NOT LIKE 'sqlite_%'")) {
        std::vector<std::string> f;
        for (std::size_t at = 0, bar;
             (bar = row.find('|', at)) != std::string::npos && f.size() < 3; at = bar + 1)
            f.push_back(row.substr(at, bar - at));
        std::string sql = row.substr(f[0].size() + f[1].size() + f[2].size() + 3);
        sql.pop_back();  // the row's closing '|'
        const std::string name = lower(f[1]);
        if (only(name)) continue;
        if (f[0] == "trigger") {
            if (!keeps_totals(name)) s.triggers.insert(name);
        } else if (f[0] == "index" && !sql.empty()) {
            const auto open = sql.find('('), close = sql.find(')'), where = sql.find(" WHERE ");
            s.indexes[name] = lower(f[2]) + squeeze(sql.substr(open, close - open + 1)) +
                              (sql.starts_with("CREATE UNIQUE") ? " unique" : "") + " " +
                              (where == std::string::npos ? "" : squeeze(sql.substr(where + 7)));
        } else if (f[0] == "table" || f[0] == "view") {
            std::vector<Column>& cols = s.tables[name];
            std::map<int, std::string> key;
            for (const std::string& info :
                 db.rows("SELECT printf('%03d', cid) || '|' || name || '|' || type || '|' || "
                         "\"notnull\" || '|' || pk FROM pragma_table_info('" +
                         f[1] + "')")) {
                std::vector<std::string> p;
                for (std::size_t at = 0, bar; (bar = info.find('|', at)) != std::string::npos;
                     at = bar + 1)
                    p.push_back(info.substr(at, bar - at));
                const std::string column = lower(p[1]);
                if (only(name + "." + column)) continue;
                const char* collation = nullptr;
                sqlite3_table_column_metadata(db.handle(), "main", f[1].c_str(), p[1].c_str(),
                                              nullptr, &collation, nullptr, nullptr, nullptr);
                const int pk = std::stoi(p[4]);
                if (pk > 0) key[pk] = column;
                cols.push_back(Column{column, embedded_kind(p[2], collation ? collation : ""),
                                      p[3] == "0" && pk == 0});
            }
            for (const auto& [_, k] : key)
                s.keys[name].push_back(k);
        }
    }
    return s;
}

// Tables and columns as "table.column kind" of both sides, naming what differs.
void expect_same_columns(const Schema& expected, const Schema& actual, const char* side) {
    for (const auto& [table, cols] : expected.tables) {
        auto it = actual.tables.find(table);
        if (it == actual.tables.end()) {
            ADD_FAILURE() << "table " << table << " missing in " << side;
            continue;
        }
        std::vector<std::string> want, got;
        for (const Column& c : cols)
            want.push_back(c.name);
        for (const Column& c : it->second)
            got.push_back(c.name);
        EXPECT_EQ(want, got) << "columns of " << table << " in " << side;
        for (const Column& c : cols) {
            for (const Column& o : it->second) {
                if (o.name != c.name) continue;
                EXPECT_EQ(c.kind, o.kind) << table << "." << c.name << " in " << side;
                EXPECT_EQ(c.nullable, o.nullable) << table << "." << c.name << " null in " << side;
            }
        }
    }
    for (const auto& [table, _] : actual.tables)
        EXPECT_TRUE(expected.tables.count(table)) << "table " << table << " only in " << side;
}

}  // namespace

TEST(SqlServerScript, EmbeddedTextIsTheShippedFile) {
    std::ifstream file(std::string(BILLDATA_SOURCE_DIR) + "/billdata/schema/sqlserver/billdata.sql",
                       std::ios::binary);
    ASSERT_TRUE(file.good());
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(billdata::schema::sqlserver_schema(), text);
}

TEST(SqlServerScript, DeclaresTheEmbeddedTablesColumnsTypesKeysIndexesAndTriggers) {
    const Schema server = server_schema();
    std::set<std::string> seen;
    const Schema embedded = embedded_schema(seen);
    ASSERT_GE(server.tables.size(), 35u);
    expect_same_columns(server, embedded, "the embedded schema");
    EXPECT_EQ(server.keys, embedded.keys);
    EXPECT_EQ(server.indexes, embedded.indexes);
    EXPECT_EQ(server.triggers, embedded.triggers);
    for (const auto& [name, why] : kEmbeddedOnly)
        EXPECT_TRUE(seen.count(name)) << name << " (" << why << ") is no longer embedded-only";

    // The declared lengths and scales as the type work reads them.
    const auto& declared = billdata::schema::sqlserver_declared_columns();
    ASSERT_FALSE(declared.empty());
    EXPECT_EQ(declared.front().table, "t_SystemProfile");
    EXPECT_EQ(declared.front().length, 50);
    EXPECT_FALSE(declared.front().nullable);
}

TEST(SqlServerScript, PostgreSqlScriptDeclaresTheSameTablesAndColumns) {
    // The tables of the PostgreSQL script, each statement read on its own (its functions are not
    // T-SQL): integers, numeric(18,4) amounts, timestamps and bpchar texts.
    const std::string_view pg = billdata::schema::postgresql_schema();
    Schema postgres;
    for (std::size_t at = pg.find("\nCREATE TABLE "); at != std::string_view::npos;
         at = pg.find("\nCREATE TABLE ", at + 1)) {
        std::string statement(pg.substr(at, pg.find("\n)", at) + 2 - at));
        // The server's identity clause, in the words the script parser reads.
        const std::string generated = "GENERATED BY DEFAULT AS IDENTITY";
        if (auto g = statement.find(generated); g != std::string::npos)
            statement.replace(g, generated.size(), "IDENTITY");
        for (const auto& t : dialect::parse_script(statement).tables) {
            // t_TableRowSlots: the server's form of the kept row counts.
            if (kEmbeddedOnly.count(lower(t.name)) || t.name == "t_TableRowSlots") continue;
            for (const auto& c : t.columns) {
                if (kEmbeddedOnly.count(lower(t.name + "." + c.name))) continue;
                const std::string& n = c.type.name;
                const std::string kind =
                    n == "int" || n == "bigint"                                     ? "integer"
                    : n == "numeric" && c.type.precision == 18 && c.type.scale == 4 ? "real"
                    : n == "timestamp"                                              ? "date"
                    : n == "bpchar"                                                 ? "text"
                                                                                    : n;
                postgres.tables[lower(t.name)].push_back(Column{lower(c.name), kind, c.nullable});
            }
        }
    }
    expect_same_columns(server_schema(), postgres, "the PostgreSQL script");
}
