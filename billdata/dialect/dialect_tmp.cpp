// Temporary stand-in until the translator lands: passes the text through unchanged.
#include <algorithm>
#include <cctype>

#include "billdata/dialect/dialect.h"

namespace billdata::dialect {

namespace {
std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

StatementKind kind_of(std::string_view tsql) {
    std::size_t i = 0;
    while (i < tsql.size() && std::isspace(static_cast<unsigned char>(tsql[i])))
        ++i;
    std::size_t j = i;
    while (j < tsql.size() && std::isalpha(static_cast<unsigned char>(tsql[j])))
        ++j;
    std::string word = lower(tsql.substr(i, j - i));
    if (word == "insert") return StatementKind::Insert;
    if (word == "update") return StatementKind::Update;
    if (word == "delete") return StatementKind::Delete;
    if (word == "truncate") return StatementKind::Truncate;
    return StatementKind::Select;
}
}  // namespace

void Catalog::add_column(std::string_view table, std::string_view column, ColumnType type) {
    Table& t = tables_[lower(table)];
    if (t.name.empty()) t.name = std::string(table);
    t.index[lower(column)] = t.columns.size();
    t.columns.emplace_back(std::string(column), type);
}

bool Catalog::has_table(std::string_view table) const {
    return tables_.count(lower(table)) != 0;
}

ColumnType Catalog::column_type(std::string_view table, std::string_view column) const {
    auto t = tables_.find(lower(table));
    if (t == tables_.end()) return ColumnType::Unknown;
    auto c = t->second.index.find(lower(column));
    return c == t->second.index.end() ? ColumnType::Unknown : t->second.columns[c->second].second;
}

std::vector<std::string> Catalog::columns(std::string_view table) const {
    std::vector<std::string> out;
    auto t = tables_.find(lower(table));
    if (t != tables_.end())
        for (const auto& c : t->second.columns)
            out.push_back(c.first);
    return out;
}

std::vector<std::string> Catalog::tables() const {
    std::vector<std::string> out;
    for (const auto& t : tables_)
        out.push_back(t.second.name);
    return out;
}

Translation translate_sqlite(std::string_view tsql, const Catalog&) {
    Translation t;
    t.sql = std::string(tsql);
    t.kind = kind_of(tsql);
    t.writes = t.kind != StatementKind::Select;
    return t;
}

StatementKind check_single_statement(std::string_view tsql) {
    return kind_of(tsql);
}

}  // namespace billdata::dialect
