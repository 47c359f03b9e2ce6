#include "billdata/dialect/ast.h"

namespace billdata::dialect {

std::string LiteralExpr::string_value() const {
    std::string_view t = text;
    if (!t.empty() && (t[0] == 'N' || t[0] == 'n')) t.remove_prefix(1);
    if (t.size() < 2) return {};
    t = t.substr(1, t.size() - 2);
    std::string out;
    out.reserve(t.size());
    for (std::size_t i = 0; i < t.size(); ++i) {
        out.push_back(t[i]);
        if (t[i] == '\'' && i + 1 < t.size() && t[i + 1] == '\'') ++i;
    }
    return out;
}

QuerySpec& Select::first_spec() const {
    Node* n = body;
    while (n->is<SetOperation>())
        n = n->as<SetOperation>().left;
    return n->as<QuerySpec>();
}

}  // namespace billdata::dialect
