#pragma once
// Late-bound values: what a caller hands to a method called by name, and what comes back.

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "billdata/ado/ado.h"

namespace billdata::server {

using IdArray = std::vector<std::int32_t>;

// The kinds of parameters and results that the component's methods have, as the platform's
// automation types name them.
enum class Type {
    Void,        // no result
    Int16,       // 16-bit integer
    Int32,       // 32-bit integer
    Double,      // double
    Bool,        // Boolean
    Text,        // text
    Date,        // date-time
    Variant,     // any variant value
    Recordset,   // record set reference
    Connection,  // connection reference
    IdArray      // array of 32-bit integers
};

// The name of a type as descriptions and error messages show it ("16-bit integer", …).
const char* type_name(Type type);

// One late-bound value: Missing (an optional argument left out), a variant, a record-set
// reference, a connection reference or an array of 32-bit ids. A null record set or connection
// is the platform's Nothing. Plain value type; the references it holds are shared, not copied.
class Value {
  public:
    enum class Kind { Missing, Variant, Recordset, Connection, IdArray };

    Value() = default;  // Missing
    Value(ado::Variant v) : v_(std::move(v)) {}
    Value(std::shared_ptr<ado::Recordset> rs) : v_(std::move(rs)) {}
    Value(std::shared_ptr<ado::Connection> cn) : v_(std::move(cn)) {}
    Value(IdArray ids) : v_(std::move(ids)) {}
    // Any scalar a Variant is made from: numbers, Boolean, text, DateTime.
    template <class T>
    requires(std::is_constructible_v<ado::Variant, T> && !std::is_null_pointer_v<T>)
        Value(T&& scalar)
        : v_(ado::Variant(std::forward<T>(scalar))) {}

    Kind kind() const { return static_cast<Kind>(v_.index()); }
    bool is_missing() const { return kind() == Kind::Missing; }

    // The held value; ComError 13 ("类型不匹配") when the value is of another kind.
    const ado::Variant& variant() const;
    const std::shared_ptr<ado::Recordset>& recordset() const;
    const std::shared_ptr<ado::Connection>& connection() const;
    const IdArray& ids() const;

  private:
    std::variant<std::monostate, ado::Variant, std::shared_ptr<ado::Recordset>,
                 std::shared_ptr<ado::Connection>, IdArray>
        v_;
};

}  // namespace billdata::server
