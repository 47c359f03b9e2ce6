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
        ShapeBinding b;
        b.literal_count = shape.literals.size();
        std::vector<bool> is_bound(shape.literals.size(), false);
        for (std::size_t offset : parameters) {
            auto at = std::find_if(shape.literals.begin(), shape.literals.end(),
                                   [&](const dialect::Literal& l) { return l.offset == offset; });
            if (at == shape.literals.end()) throw std::logic_error("parameter without literal");
            const auto index = static_cast<std::size_t>(at - shape.literals.begin());
            b.bound.push_back(index);
            is_bound[index] = true;
        }
        for (std::size_t i = 0; i < shape.literals.size(); ++i)
            if (!is_bound[i])
                b.kept.emplace_back(i, std::string(tsql.substr(shape.literals[i].offset,
                                                               shape.literals[i].length)));
        return b;
    }

    // Whether another statement of the same shape can use it: its inline literals are the same.
    bool fits(std::string_view tsql, const dialect::Shape& shape) const {
        if (literal_count != shape.literals.size()) return false;
        for (const auto& [index, text] : kept) {
            const dialect::Literal& l = shape.literals[index];
            if (tsql.substr(l.offset, l.length) != text) return false;
        }
        return true;
    }
};

}  // namespace billdata::drivers
