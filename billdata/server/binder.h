#pragma once
// Binding a C++ class to the host: one line per method, naming its parameters in order. Types and
// directions come from the C++ signature itself, so the description cannot drift from the code:
//   ClassBinder<PosData>("PosData")
//       .method("Init", &PosData::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
//       .method("DeleteBill", &PosData::DeleteBill,
//               {"TranType", "InterID", optional("Cn"), optional("DoBlankOut", false)});
// A parameter taken by non-const reference is in/out; everything else is in.

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "billdata/server/dispatch.h"

namespace billdata::server {

// How a C++ parameter type maps to a late-bound type, and where its converted value is kept.
template <class T>
struct ArgTraits;

template <Type K, class S>
struct ArgTraitsOf {
    static constexpr Type type = K;
    static constexpr bool in_out = false;
    using Stored = S;
};
template <>
struct ArgTraits<std::int16_t> : ArgTraitsOf<Type::Int16, std::int16_t> {};
template <>
struct ArgTraits<std::int32_t> : ArgTraitsOf<Type::Int32, std::int32_t> {};
template <>
struct ArgTraits<double> : ArgTraitsOf<Type::Double, double> {};
template <>
struct ArgTraits<bool> : ArgTraitsOf<Type::Bool, bool> {};
template <>
struct ArgTraits<std::string> : ArgTraitsOf<Type::Text, std::string> {};
template <>
struct ArgTraits<ado::DateTime> : ArgTraitsOf<Type::Date, ado::DateTime> {};
template <>
struct ArgTraits<ado::Variant> : ArgTraitsOf<Type::Variant, ado::Variant> {};
template <>
struct ArgTraits<std::shared_ptr<ado::Recordset>>
    : ArgTraitsOf<Type::Recordset, std::shared_ptr<ado::Recordset>> {};
template <>
struct ArgTraits<std::shared_ptr<ado::Connection>>
    : ArgTraitsOf<Type::Connection, std::shared_ptr<ado::Connection>> {};
template <>
struct ArgTraits<IdArray> : ArgTraitsOf<Type::IdArray, IdArray> {};
template <class T>
struct ArgTraits<const T&> : ArgTraits<T> {};
template <class T>
struct ArgTraits<T&> : ArgTraits<T> {
    static constexpr bool in_out = true;
};

// How a C++ result type maps to a late-bound type.
template <class R>
struct ResultTraits {
    static constexpr Type type = ArgTraits<R>::type;
    static Value to_value(R&& r) {
        if constexpr (std::is_same_v<R, ado::DateTime> || std::is_arithmetic_v<R> ||
                      std::is_same_v<R, std::string>)
            return Value(ado::Variant(std::move(r)));
        else
            return Value(std::move(r));
    }
};
template <>
struct ResultTraits<void> {
    static constexpr Type type = Type::Void;
};

// A parameter's name, and for optional parameters the value used when it is left out.
struct ParamSpec {
    ParamSpec(const char* param_name) : name(param_name) {}
    ParamSpec(std::string param_name, bool is_optional, Value default_value)
        : name(std::move(param_name)), optional(is_optional), fallback(std::move(default_value)) {}
    std::string name;
    bool optional = false;
    Value fallback;
};

// An optional parameter; left out, it takes `default_value` (Missing: the type's zero, Nothing
// for record sets and connections).
inline ParamSpec optional(std::string name, Value default_value = {}) {
    return ParamSpec(std::move(name), true, std::move(default_value));
}

template <class C>
class ClassBinder {
  public:
    explicit ClassBinder(std::string name)
        : info_(std::make_shared<ClassInfo>(
              std::move(name), [] { return std::shared_ptr<void>(std::make_shared<C>()); })) {}

    template <class R, class... A, std::size_t N>
    ClassBinder& method(std::string name, R (C::*fn)(A...), const ParamSpec (&params)[N]) {
        static_assert(N == sizeof...(A), "one parameter name per parameter of the method");
        add<R, A...>(std::move(name), fn, params);
        return *this;
    }
    template <class R>
    ClassBinder& method(std::string name, R (C::*fn)()) {
        add<R>(std::move(name), fn, static_cast<const ParamSpec*>(nullptr));
        return *this;
    }

    // What the method bound last tells beyond its signature, for `billdata describe`:
    //   .reads("BillData", {"FItemID", "FQty", …})  the fields it reads of a record-set parameter;
    //   .returns({"FEntryID", …})                   the fields of the record set it returns;
    //   .example(R"({"InterID": 1})", {"PosData.SaveData"})  a call that works on a new demo
    //       database, after the examples named (see Example);
    //   .no_example("why")                          when no call can show it working.
    ClassBinder& reads(const std::string& param, std::vector<std::string> fields) {
        for (Param& p : info_->last_added().params) {
            if (p.name != param) continue;
            if (p.type != Type::Recordset)
                throw std::logic_error(info_->name() + ": " + param + " is no record set");
            p.fields = std::move(fields);
            return *this;
        }
        throw std::logic_error(info_->name() + "." + info_->last_added().name +
                               " has no parameter " + param);
    }
    ClassBinder& returns(std::vector<std::string> fields) {
        if (info_->last_added().result != Type::Recordset)
            throw std::logic_error(info_->last_added().name + " returns no record set");
        info_->last_added().result_fields = std::move(fields);
        return *this;
    }
    ClassBinder& example(std::string args_json, std::vector<std::string> after = {}) {
        info_->last_added().example = {std::move(args_json), std::move(after), {}};
        return *this;
    }
    ClassBinder& no_example(std::string why) {
        info_->last_added().example = {{}, {}, std::move(why)};
        return *this;
    }

    std::shared_ptr<const ClassInfo> info() const { return info_; }

  private:
    template <class R, class... A, class Fn>
    void add(std::string name, Fn fn, const ParamSpec* names) {
        Method m;
        m.name = std::move(name);
        m.result = ResultTraits<R>::type;
        std::size_t i = 0;
        (m.params.push_back(make_param<A>(names[i++])), ...);
        info_->add(std::move(m), [fn](void* self, std::vector<Slot>& args) -> Value {
            return call<R, A...>(static_cast<C*>(self), fn, args, std::index_sequence_for<A...>{});
        });
    }

    template <class A>
    static Param make_param(const ParamSpec& given) {
        Param p;
        p.name = given.name;
        p.type = ArgTraits<A>::type;
        p.direction = ArgTraits<A>::in_out ? Direction::InOut : Direction::In;
        p.optional = given.optional;
        p.default_value = given.fallback;
        return p;
    }

    template <class A>
    static typename ArgTraits<A>::Stored& slot(Slot& s) {
        return std::get<typename ArgTraits<A>::Stored>(s);
    }

    template <class R, class... A, class Fn, std::size_t... I>
    static Value call(C* self, Fn fn, std::vector<Slot>& args, std::index_sequence<I...>) {
        if constexpr (std::is_void_v<R>) {
            (self->*fn)(slot<A>(args[I])...);
            return Value();
        } else {
            return ResultTraits<R>::to_value((self->*fn)(slot<A>(args[I])...));
        }
    }

    std::shared_ptr<ClassInfo> info_;
};

}  // namespace billdata::server
