// The SQL Server script and the embedded schema describe the same database: both are parsed
// and their tables, columns, column kinds, keys, indexes and triggers compared.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "billdata/schema/schema.h"

namespace {

std::string lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string strip_comments(std::string_view text) {
    std::string out;
    std::istringstream in{std::string(text)};
    for (std::string line; std::getline(in, line);) {
        auto dash = line.find("--");
        out += (dash == std::string::npos ? line : line.substr(0, dash)) + "\n";
    }
    return out;
}

struct Table {
    std::map<std::string, std::string> columns;  // lower-case name → integer, real, text, date
    std::vector<std::string> order;
    std::set<std::string> key;
};

struct Script {
    std::map<std::string, Table> tables;         // lower-case name
    std::map<std::string, std::string> indexes;  // name → "table(cols) unique where"
    std::set<std::string> triggers;              // lower-case names
};

std::string kind_of(std::string type) {
    type = lower(type);
    while (!type.empty() && type.back() == ',')
        type.pop_back();
    if (type.rfind("int", 0) == 0) return "integer";
    if (type == "real" || type.rfind("decimal", 0) == 0) return "real";
    if (type == "text" || type.rfind("nvarchar", 0) == 0) return "text";
    if (type == "datetime") return "date";
    return "unknown:" + type;
}

std::set<std::string> column_list(const std::string& list) {
    std::set<std::string> cols;
    std::regex word(R"(\w+)");
    for (std::sregex_iterator it(list.begin(), list.end(), word), end; it != end; ++it)
        cols.insert(lower(it->str()));
    return cols;
}

Script parse(std::string_view text) {
    Script s;
    std::string body = strip_comments(text);
    std::regex table_re(R"(CREATE TABLE (\w+) \(\n([\s\S]*?)\n\))");
    for (std::sregex_iterator it(body.begin(), body.end(), table_re), end; it != end; ++it) {
        Table t;
        std::istringstream lines((*it)[2].str());
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string name, type;
            words >> name >> type;
            if (name.empty()) continue;
            std::smatch m;
            if (std::regex_search(line, m, std::regex(R"(PRIMARY KEY \(([^)]*)\))"))) {
                t.key = column_list(m[1].str());
                continue;
            }
            if (line.find("PRIMARY KEY") != std::string::npos) t.key.insert(lower(name));
            t.columns[lower(name)] = kind_of(type);
            t.order.push_back(lower(name));
        }
        s.tables[lower((*it)[1].str())] = t;
    }
    std::regex index_re(R"(CREATE (UNIQUE )?INDEX (\w+) ON (\w+) \(([^)]*)\)(\s+WHERE ([^\n]*))?)");
    for (std::sregex_iterator it(body.begin(), body.end(), index_re), end; it != end; ++it) {
        std::string where = (*it)[6].str();
        where.erase(
            std::remove_if(where.begin(), where.end(), [](char c) { return c == ' ' || c == ';'; }),
            where.end());
        s.indexes[(*it)[2].str()] = lower((*it)[3].str()) + "(" + lower((*it)[4].str()) + ")" +
                                    ((*it)[1].matched ? " unique" : "") + " " + where;
    }
    std::regex trigger_re(R"(CREATE TRIGGER (\w+))");
    for (std::sregex_iterator it(body.begin(), body.end(), trigger_re), end; it != end; ++it)
        s.triggers.insert(lower((*it)[1].str()));
    return s;
}

}  // namespace

TEST(SqlServerScript, EmbeddedTextIsTheShippedFile) {
    std::ifstream file(std::string(BILLDATA_SOURCE_DIR) + "/billdata/schema/sqlserver/billdata.sql",
                       std::ios::binary);
    ASSERT_TRUE(file.good());
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(billdata::schema::sqlserver_schema(), text);
}

// Bookkeeping only the embedded engine keeps (row counts, kept stock balance, the lines' copy
// of their bill's kind) with its triggers and index, and the declared columns behind its
// INFORMATION_SCHEMA, which the server has of its own.
void drop_embedded_only(Script& s) {
    for (const char* t : {"t_tablerows", "icstockqty", "t_schematables", "t_schemacolumns"})
        EXPECT_EQ(s.tables.erase(t), 1u) << t;
    s.indexes.erase("IX_ICStockBillEntry_ItemKind");
    std::size_t triggers = 0;
    for (auto it = s.triggers.begin(); it != s.triggers.end();) {
        const std::string& n = *it;
        const bool speed =
            n.find("_rowsins") != std::string::npos || n.find("_rowsdel") != std::string::npos ||
            n.find("_qty") != std::string::npos || n.find("_kind") != std::string::npos;
        if (speed) {
            it = s.triggers.erase(it);
            ++triggers;
        } else {
            ++it;
        }
    }
    EXPECT_EQ(triggers, 2 * 9 + 9 + 5u);
}

TEST(SqlServerScript, NamesTheSameTablesColumnsKeysAndIndexes) {
    Script lite = parse(billdata::schema::sqlite_schema());
    drop_embedded_only(lite);
    Script server = parse(billdata::schema::sqlserver_schema());
    ASSERT_GE(lite.tables.size(), 35u);
    EXPECT_EQ(lite.tables.size(), server.tables.size());
    for (const auto& [name, t] : lite.tables) {
        SCOPED_TRACE(name);
        auto other = server.tables.find(name);
        ASSERT_NE(other, server.tables.end()) << "missing on SQL Server";
        EXPECT_EQ(t.order, other->second.order);
        EXPECT_EQ(t.columns, other->second.columns);
        EXPECT_EQ(t.key, other->second.key);
        for (const auto& [col, c] : t.columns)
            EXPECT_EQ(c.rfind("unknown", 0), std::string::npos) << col << " " << c;
    }
    for (const auto& [name, t] : server.tables)
        EXPECT_TRUE(lite.tables.count(name)) << name << " missing in the embedded schema";

    EXPECT_EQ(lite.indexes, server.indexes);
    EXPECT_EQ(lite.triggers.size(), server.triggers.size() + 5)
        << "SQL Server folds each table's cost triggers into one";

    // The procedures with the parameters the callers create.
    std::string proc = strip_comments(billdata::schema::sqlserver_schema());
    EXPECT_TRUE(std::regex_search(
        proc,
        std::regex(
            R"(CREATE PROCEDURE sp_GetStockQty\s+@StockID int,\s+@ItemID int,\s+@InterID int,\s+@RtnQty float OUTPUT)")));
    EXPECT_NE(proc.find("CREATE PROCEDURE Sp_CacuCost\nAS"), std::string::npos);
}
