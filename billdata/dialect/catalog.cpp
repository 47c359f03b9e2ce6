#include "billdata/dialect/catalog.h"

#include <cstdlib>

#include "billdata/dialect/text_util.h"

namespace billdata::dialect {

namespace {

// Catalogue keys are lower case; lookups fold the name into a stack buffer so that a lookup
// allocates nothing for names of ordinary length.
class FoldedName {
  public:
    explicit FoldedName(std::string_view name) {
        if (name.size() <= sizeof(buffer_)) {
            for (std::size_t i = 0; i < name.size(); ++i)
                buffer_[i] = ascii_lower(name[i]);
            view_ = std::string_view(buffer_, name.size());
        } else {
            long_ = lower_copy(name);
            view_ = long_;
        }
    }
    std::string_view view() const { return view_; }

  private:
    char buffer_[96];
    std::string long_;
    std::string_view view_;
};

}  // namespace

void Catalog::add_column(std::string_view table, std::string_view column, ColumnType type) {
    std::string key = lower_copy(table);
    auto it = tables_.find(key);
    if (it == tables_.end()) {
        Table t;
        t.name = std::string(table);
        it = tables_.emplace(std::move(key), std::move(t)).first;
    }
    Table& t = it->second;
    std::string col_key = lower_copy(column);
    auto found = t.index.find(col_key);
    if (found != t.index.end()) {
        t.columns[found->second].second = type;
        return;
    }
    t.index.emplace(std::move(col_key), t.columns.size());
    t.columns.emplace_back(std::string(column), type);
}

const Catalog::Table* Catalog::find_table(std::string_view table) const {
    auto t = tables_.find(FoldedName(table).view());
    return t == tables_.end() ? nullptr : &t->second;
}

const std::string* Catalog::column_name(const Table& t, std::string_view column) const {
    auto c = t.index.find(FoldedName(column).view());
    return c == t.index.end() ? nullptr : &t.columns[c->second].first;
}

std::vector<std::string> Catalog::tables() const {
    std::vector<std::string> out;
    out.reserve(tables_.size());
    for (const auto& [key, table] : tables_)
        out.push_back(table.name);
    return out;
}

std::string_view Catalog::table_name(std::string_view table) const {
    const Table* t = find_table(table);
    return t ? std::string_view(t->name) : std::string_view();
}

bool Catalog::has_table(std::string_view table) const {
    return find_table(table) != nullptr;
}

bool Catalog::find_column(std::string_view table, std::string_view column, ColumnType* type) const {
    const Table* t = find_table(table);
    if (t == nullptr) return false;
    auto c = t->index.find(FoldedName(column).view());
    if (c == t->index.end()) return false;
    if (type != nullptr) *type = t->columns[c->second].second;
    return true;
}

bool Catalog::find_column(std::string_view table, std::string_view column, ColumnType* type,
                          SqlType* sql) const {
    const Table* t = find_table(table);
    if (t == nullptr) return false;
    auto c = t->index.find(FoldedName(column).view());
    if (c == t->index.end()) return false;
    const ColumnType engine_type = t->columns[c->second].second;
    if (type != nullptr) *type = engine_type;
    if (sql != nullptr) {
        *sql = c->second < t->declared.size() && t->declared[c->second].known()
                   ? t->declared[c->second]
                   : type_from_column(engine_type);
    }
    return true;
}

bool Catalog::set_declared_type(std::string_view table, std::string_view column,
                                const SqlType& type) {
    auto t = tables_.find(FoldedName(table).view());
    if (t == tables_.end()) return false;
    auto c = t->second.index.find(FoldedName(column).view());
    if (c == t->second.index.end()) return false;
    auto& declared = t->second.declared;
    if (declared.size() <= c->second) declared.resize(c->second + 1);
    declared[c->second] = type;
    return true;
}

SqlType Catalog::declared_type(std::string_view table, std::string_view column) const {
    const Table* t = find_table(table);
    if (t == nullptr) return {};
    auto c = t->index.find(FoldedName(column).view());
    if (c == t->index.end() || c->second >= t->declared.size()) return {};
    return t->declared[c->second];
}

bool Catalog::set_not_null(std::string_view table, std::string_view column) {
    auto t = tables_.find(FoldedName(table).view());
    if (t == tables_.end()) return false;
    auto c = t->second.index.find(FoldedName(column).view());
    if (c == t->second.index.end()) return false;
    auto& flags = t->second.not_null;
    if (flags.size() <= c->second) flags.resize(c->second + 1);
    flags[c->second] = true;
    return true;
}

bool Catalog::not_null(std::string_view table, std::string_view column) const {
    const Table* t = find_table(table);
    if (t == nullptr) return false;
    auto c = t->index.find(FoldedName(column).view());
    return c != t->index.end() && c->second < t->not_null.size() && t->not_null[c->second];
}

ColumnType Catalog::column_type(std::string_view table, std::string_view column) const {
    ColumnType type = ColumnType::Unknown;
    find_column(table, column, &type);
    return type;
}

std::vector<std::string> Catalog::columns(std::string_view table) const {
    std::vector<std::string> out;
    auto t = tables_.find(FoldedName(table).view());
    if (t == tables_.end()) return out;
    out.reserve(t->second.columns.size());
    for (const auto& c : t->second.columns)
        out.push_back(c.first);
    return out;
}

bool Catalog::add_kept_row_count(std::string_view table, std::string_view counts) {
    auto t = tables_.find(FoldedName(table).view());
    const Table* c = find_table(counts);
    if (t == tables_.end() || c == nullptr || column_name(*c, table) == nullptr) return false;
    t->second.kept_row_count = c->name;
    return true;
}

std::string_view Catalog::kept_row_count(std::string_view table) const {
    const Table* t = find_table(table);
    return t == nullptr ? std::string_view() : std::string_view(t->kept_row_count);
}

bool Catalog::add_copied_column(const CopiedColumn& copy) {
    const Table* to = find_table(copy.table);
    const Table* from = find_table(copy.from_table);
    if (to == nullptr || from == nullptr) return false;
    const std::string* column = column_name(*to, copy.column);
    const std::string* from_column = column_name(*from, copy.from_column);
    const std::string* key = column_name(*to, copy.key);
    if (!column || !from_column || !key || !column_name(*from, copy.key)) return false;
    copies_.push_back({to->name, *column, from->name, *from_column, *key});
    return true;
}

void add_declared_type_row(Catalog& catalog, const std::vector<std::string>& row) {
    if (row.size() < 6) return;
    auto number = [](const std::string& text) {
        return text.empty() ? 0 : std::atoi(text.c_str());
    };
    const SqlType type =
        type_from_declaration(row[2], number(row[3]), number(row[4]), number(row[5]));
    if (type.base != SqlBase::Unknown) catalog.set_declared_type(row[0], row[1], type);
}

}  // namespace billdata::dialect
