#include "billdata/dialect/dialect.h"
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

bool Catalog::has_table(std::string_view table) const {
    return tables_.find(FoldedName(table).view()) != tables_.end();
}

bool Catalog::find_column(std::string_view table, std::string_view column, ColumnType* type) const {
    auto t = tables_.find(FoldedName(table).view());
    if (t == tables_.end()) return false;
    auto c = t->second.index.find(FoldedName(column).view());
    if (c == t->second.index.end()) return false;
    if (type != nullptr) *type = t->second.columns[c->second].second;
    return true;
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

std::vector<std::string> Catalog::tables() const {
    std::vector<std::string> out;
    out.reserve(tables_.size());
    for (const auto& [key, t] : tables_)
        out.push_back(t.name);
    return out;
}

}  // namespace billdata::dialect
