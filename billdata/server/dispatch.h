#pragma once
// Late-bound calls: classes describe their methods once, and that description drives every call
// made by name — positional or named arguments, conversion by the platform's rules, optional
// arguments left out, in/out arguments written back, the result.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/server/value.h"

namespace billdata::server {

// Error numbers the platform gives to failed late-bound calls; descriptions are the platform's
// texts followed by what exactly was wrong.
namespace err {
inline constexpr std::int32_t kInvalidCall = 5;       // "无效的过程调用或参数"
inline constexpr std::int32_t kCannotCreate = 429;    // "ActiveX 部件不能创建对象"
inline constexpr std::int32_t kNoSuchMethod = 438;    // "对象不支持该属性或方法"
inline constexpr std::int32_t kNoSuchNamedArg = 448;  // "未找到命名参数"
inline constexpr std::int32_t kArgNotOptional = 449;  // "参数不可选"
inline constexpr std::int32_t kWrongArgCount = 450;  // "错误的参数号或无效的属性赋值"
// A ComError with the platform's text for `number` and the detail in parentheses.
ado::ComError error(std::int32_t number, const std::string& detail);
}  // namespace err

enum class Direction { In, InOut };

struct Param {
    std::string name;
    Type type = Type::Variant;
    Direction direction = Direction::In;
    bool optional = false;
    Value default_value;  // used when an optional argument is left out (Missing: the type's zero)
    // For a record set the method reads: the fields it reads, in the order a caller lists them.
    std::vector<std::string> fields{};
};

// A call of a method that works on a new demo database (describe.h: kDemoInit), for people and
// tools to start from. Calls are made by `billdata call` with these JSON arguments, after the
// examples of `after` ("Class.Method", each with what its own example needs first) when the call
// works on what they save. Without arguments there is no example and `none` says why.
struct Example {
    std::string args;
    std::vector<std::string> after;
    std::string none;
};

struct Method {
    std::string name;
    std::vector<Param> params;
    Type result = Type::Void;
    // For a method returning a record set: the fields it has, when the method defines them.
    std::vector<std::string> result_fields{};
    Example example{};
};

// An argument converted to its parameter's type: the storage a bound C++ method reads from and,
// for in/out parameters, writes into.
using Slot = std::variant<std::monostate, std::int16_t, std::int32_t, double, bool, std::string,
                          ado::DateTime, ado::Variant, std::shared_ptr<ado::Recordset>,
                          std::shared_ptr<ado::Connection>, IdArray>;

// Calls the real method on `self` with one slot per parameter and returns its result.
using Invoker = std::function<Value(void* self, std::vector<Slot>& args)>;

// A class as the host knows it: its name, how to make an instance, its methods.
class ClassInfo {
  public:
    ClassInfo(std::string name, std::function<std::shared_ptr<void>()> factory);

    const std::string& name() const { return name_; }
    // Adds a method; a second method of the same name (without regard to case) is a
    // std::logic_error, as is a required parameter after an optional one.
    void add(Method method, Invoker invoker);
    const std::vector<Method>& methods() const { return methods_; }
    // The method added last, for the binder to complete its description.
    Method& last_added() { return methods_.back(); }
    // The method of this name without regard to case, or nullptr.
    const Method* find(std::string_view name) const;

    std::shared_ptr<void> make_instance() const { return factory_(); }
    Value invoke(void* self, std::size_t method_index, std::vector<Slot>& args) const {
        return invokers_[method_index](self, args);
    }

  private:
    std::string name_;
    std::function<std::shared_ptr<void>()> factory_;
    std::vector<Method> methods_;
    std::vector<Invoker> invokers_;
};

struct NamedArg {
    std::string name;
    Value value;
};

// One instance of a registered class with its description. Calls are made by method name;
// not thread-safe (one thread uses an object), as the classes themselves.
class Object {
  public:
    Object(std::shared_ptr<const ClassInfo> info, std::shared_ptr<void> instance)
        : info_(std::move(info)), instance_(std::move(instance)) {}

    const ClassInfo& info() const { return *info_; }

    // Calls `method` (name without regard to case) with the positional arguments first, then the
    // named ones (names without regard to case). Each argument is converted to its parameter's
    // type by the platform's rules; an optional parameter given no argument takes its default.
    // On return the in/out arguments hold the values the method left in them. Errors, raised
    // before anything is called: unknown method (438), too many arguments (450), unknown or
    // repeated parameter name (448), a required argument missing (449), a value that does not
    // convert (13, 6 or 94 with the parameter named). Errors of the method itself pass unchanged.
    Value Invoke(std::string_view method, std::vector<Value>& positional,
                 std::vector<NamedArg>& named);
    Value Invoke(std::string_view method, std::vector<Value>& positional);

  private:
    std::shared_ptr<const ClassInfo> info_;
    std::shared_ptr<void> instance_;
};

// The classes by programmatic id "Orn_BillData_Velt.<Class>" (without regard to case).
// Thread-safe.
class Registry {
  public:
    static constexpr std::string_view kProgIdPrefix = "Orn_BillData_Velt.";

    // The process's registry, with the component's own classes registered on first use.
    static Registry& instance();

    // Registers a class under "Orn_BillData_Velt.<info->name()>", replacing one of that name.
    void add(std::shared_ptr<const ClassInfo> info);
    // A new object of the class registered under `prog_id`; ComError 429 when there is none.
    std::unique_ptr<Object> create(std::string_view prog_id) const;
    // The class registered under "Orn_BillData_Velt.<class_name>", or nullptr.
    std::shared_ptr<const ClassInfo> find_class(std::string_view class_name) const;
    std::vector<std::string> class_names() const;

  private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<const ClassInfo>> classes_;
};

// Registers the component's public classes (those built into this library) with `registry`.
void register_builtin_classes(Registry& registry);

}  // namespace billdata::server
