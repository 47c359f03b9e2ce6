#pragma once
// How a prepared translation of a statement shape takes the literals of each statement of that
// shape: which it binds as parameters, which it wrote inline. Shared by the drivers' statement
// caches.

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "billdata/dialect/dialect.h"

namespace billdata::drivers {

struct ShapeBinding {
    std::size_t literal_count = 0;
    std::vector<std::size_t> bound;                         // shape literal behind parameter k+1
    std::vector<std::pair<std::size_t, std::string>> kept;  // literals written inline, as written

    // The binding of a translation made with parameters (`parameters`: the source offset of the
    // literal behind each) of `tsql`, whose shape is `shape`.
    static ShapeBinding of(std::string_view tsql, const dialect::Shape& shape,
                           const std::vector<std::size_t>& parameters) {
        return of(shape.literals, tsql, parameters);
    }
    // The same from the shape's literals alone (anything with an offset and a length).
    template <class Literals>
    static ShapeBinding of(const Literals& literals, std::string_view tsql,
                           const std::vector<std::size_t>& parameters) {
        ShapeBinding b;
        b.literal_count = literals.size();
        std::vector<bool> is_bound(literals.size(), false);
        for (std::size_t offset : parameters) {
            auto at = std::find_if(literals.begin(), literals.end(),
                                   [&](const auto& l) { return l.offset == offset; });
            if (at == literals.end()) throw std::logic_error("parameter without literal");
            const auto index = static_cast<std::size_t>(at - literals.begin());
            b.bound.push_back(index);
            is_bound[index] = true;
        }
        for (std::size_t i = 0; i < literals.size(); ++i)
            if (!is_bound[i])
                b.kept.emplace_back(
                    i, std::string(tsql.substr(literals[i].offset, literals[i].length)));
        return b;
    }

    // Whether another statement of the same shape can use it: its inline literals are the same.
    bool fits(std::string_view tsql, const dialect::Shape& shape) const {
        return fits(tsql, shape.literals);
    }
    template <class Literals>
    bool fits(std::string_view tsql, const Literals& literals) const {
        if (literal_count != literals.size()) return false;
        for (const auto& [index, text] : kept) {
            const auto& l = literals[index];
            if (tsql.substr(l.offset, l.length) != text) return false;
        }
        return true;
    }
};

}  // namespace billdata::drivers
