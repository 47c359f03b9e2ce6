#include "billdata/server/dispatch.h"

#include <stdexcept>

#include "billdata/util/text.h"

namespace billdata::server {

namespace err {

ado::ComError error(std::int32_t number, const std::string& detail) {
    const char* text = "";
    switch (number) {
        case kInvalidCall:
            text = "无效的过程调用或参数";
            break;
        case kCannotCreate:
            text = "ActiveX 部件不能创建对象";
            break;
        case kNoSuchMethod:
            text = "对象不支持该属性或方法";
            break;
        case kNoSuchNamedArg:
            text = "未找到命名参数";
            break;
        case kArgNotOptional:
            text = "参数不可选";
            break;
        case kWrongArgCount:
            text = "错误的参数号或无效的属性赋值";
            break;
        default:
            text = ado::err::description(number);
            break;
    }
    return ado::ComError(number, std::string(text) + " (" + detail + ")");
}

}  // namespace err

const char* type_name(Type type) {
    switch (type) {
        case Type::Void:
            return "nothing";
        case Type::Int16:
            return "16-bit integer";
        case Type::Int32:
            return "32-bit integer";
        case Type::Double:
            return "double";
        case Type::Bool:
            return "Boolean";
        case Type::Text:
            return "text";
        case Type::Date:
            return "date";
        case Type::Variant:
            return "variant";
        case Type::Recordset:
            return "record set";
        case Type::Connection:
            return "connection";
        case Type::IdArray:
            return "array of 32-bit integers";
    }
    return "?";
}

namespace {

ado::ComError type_mismatch(const std::string& detail) {
    return err::error(ado::err::kTypeMismatch, detail);
}

const char* kind_name(Value::Kind kind) {
    switch (kind) {
        case Value::Kind::Missing:
            return "a missing argument";
        case Value::Kind::Variant:
            return "a value";
        case Value::Kind::Recordset:
            return "a record set";
        case Value::Kind::Connection:
            return "a connection";
        case Value::Kind::IdArray:
            return "an array";
    }
    return "?";
}

// The zero of a type: what an optional parameter without a default gets.
Slot zero_slot(Type type) {
    switch (type) {
        case Type::Void:
            return std::monostate{};
        case Type::Int16:
            return std::int16_t{0};
        case Type::Int32:
            return std::int32_t{0};
        case Type::Double:
            return 0.0;
        case Type::Bool:
            return false;
        case Type::Text:
            return std::string();
        case Type::Date:
            return ado::DateTime();
        case Type::Variant:
            return ado::Variant();
        case Type::Recordset:
            return std::shared_ptr<ado::Recordset>();
        case Type::Connection:
            return std::shared_ptr<ado::Connection>();
        case Type::IdArray:
            return IdArray();
    }
    return std::monostate{};
}

// Converts one argument to its parameter's type; `where` names the parameter for messages.
Slot to_slot(const Value& value, const Param& param, const std::string& where) {
    // Only an error names the parameter: a call converts every argument.
    auto detail = [&] { return where + ", parameter " + param.name; };
    if (value.is_missing()) {
        if (!param.default_value.is_missing()) return to_slot(param.default_value, param, where);
        return zero_slot(param.type);
    }
    if (param.type == Type::Recordset || param.type == Type::Connection) {
        // An empty or null variant is Nothing, as the platform passes it.
        if (value.kind() == Value::Kind::Variant &&
            (value.variant().is_empty() || value.variant().is_null())) {
            return zero_slot(param.type);
        }
        if (param.type == Type::Recordset && value.kind() == Value::Kind::Recordset)
            return value.recordset();
        if (param.type == Type::Connection && value.kind() == Value::Kind::Connection)
            return value.connection();
        throw type_mismatch(detail() + ": " + kind_name(value.kind()) + " where a " +
                            type_name(param.type) + " is required");
    }
    if (param.type == Type::IdArray) {
        if (value.kind() == Value::Kind::IdArray) return value.ids();
        throw type_mismatch(detail() + ": " + kind_name(value.kind()) +
                            " where an array of 32-bit integers is required");
    }
    if (value.kind() != Value::Kind::Variant) {
        throw type_mismatch(detail() + ": " + kind_name(value.kind()) + " where a " +
                            type_name(param.type) + " is required");
    }
    const ado::Variant& v = value.variant();
    try {
        switch (param.type) {
            case Type::Int16:
                return v.to_int16();
            case Type::Int32:
                return v.to_int32();
            case Type::Double:
                return v.to_double();
            case Type::Bool:
                return v.to_bool();
            case Type::Text:
                return v.to_string();
            case Type::Date:
                return v.to_date();
            case Type::Variant:
                return v;
            default:
                break;
        }
    } catch (const ado::ComError& e) {
        std::string shown = util::excerpt(v.to_string());
        if (v.type() == ado::VarType::String) shown = "\"" + shown + "\"";
        throw err::error(e.number(), detail() + ": " + (v.is_null() ? "Null" : shown) +
                                         " is not a " + type_name(param.type));
    }
    throw type_mismatch(detail());
}

Value from_slot(Slot& slot) {
    return std::visit(
        [](auto& s) -> Value {
            using S = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<S, std::monostate>)
                return Value();
            else if constexpr (std::is_same_v<S, ado::Variant> ||
                               std::is_same_v<S, std::shared_ptr<ado::Recordset>> ||
                               std::is_same_v<S, std::shared_ptr<ado::Connection>> ||
                               std::is_same_v<S, IdArray>)
                return Value(s);
            else
                return Value(ado::Variant(s));
        },
        slot);
}

}  // namespace

const ado::Variant& Value::variant() const {
    if (auto* p = std::get_if<ado::Variant>(&v_)) return *p;
    throw type_mismatch(std::string(kind_name(kind())) + " is not a value");
}
const std::shared_ptr<ado::Recordset>& Value::recordset() const {
    if (auto* p = std::get_if<std::shared_ptr<ado::Recordset>>(&v_)) return *p;
    throw type_mismatch(std::string(kind_name(kind())) + " is not a record set");
}
const std::shared_ptr<ado::Connection>& Value::connection() const {
    if (auto* p = std::get_if<std::shared_ptr<ado::Connection>>(&v_)) return *p;
    throw type_mismatch(std::string(kind_name(kind())) + " is not a connection");
}
const IdArray& Value::ids() const {
    if (auto* p = std::get_if<IdArray>(&v_)) return *p;
    throw type_mismatch(std::string(kind_name(kind())) + " is not an array");
}

ClassInfo::ClassInfo(std::string name, std::function<std::shared_ptr<void>()> factory)
    : name_(std::move(name)), factory_(std::move(factory)) {}

void ClassInfo::add(Method method, Invoker invoker) {
    if (find(method.name)) throw std::logic_error(name_ + "." + method.name + " bound twice");
    bool optional_seen = false;
    for (const Param& p : method.params) {
        if (optional_seen && !p.optional)
            throw std::logic_error(name_ + "." + method.name + ": required parameter " + p.name +
                                   " after an optional one");
        optional_seen = optional_seen || p.optional;
    }
    methods_.push_back(std::move(method));
    invokers_.push_back(std::move(invoker));
}

const Method* ClassInfo::find(std::string_view name) const {
    for (const Method& m : methods_) {
        if (util::iequals(m.name, name)) return &m;
    }
    return nullptr;
}

Value Object::Invoke(std::string_view method, std::vector<Value>& positional) {
    std::vector<NamedArg> none;
    return Invoke(method, positional, none);
}

Value Object::Invoke(std::string_view method_name, std::vector<Value>& positional,
                     std::vector<NamedArg>& named) {
    const Method* method = info_->find(method_name);
    if (!method) {
        throw err::error(err::kNoSuchMethod,
                         info_->name() + " has no method " + util::excerpt(method_name));
    }
    const std::string where = info_->name() + "." + method->name;
    const std::size_t n = method->params.size();
    if (positional.size() > n) {
        throw err::error(err::kWrongArgCount, where + " takes " + std::to_string(n) + " argument" +
                                                  (n == 1 ? "" : "s") + ", " +
                                                  std::to_string(positional.size()) + " given");
    }

    // Where each parameter's argument comes from: the caller's value to read and write back.
    std::vector<Value*> source(n, nullptr);
    for (std::size_t i = 0; i < positional.size(); ++i)
        source[i] = &positional[i];
    for (NamedArg& arg : named) {
        std::size_t index = n;
        for (std::size_t i = 0; i < n; ++i) {
            if (util::iequals(method->params[i].name, arg.name)) index = i;
        }
        if (index == n) {
            throw err::error(err::kNoSuchNamedArg,
                             where + " has no parameter " + util::excerpt(arg.name));
        }
        if (source[index]) {
            throw err::error(err::kNoSuchNamedArg,
                             where + ", parameter " + method->params[index].name + " given twice");
        }
        source[index] = &arg.value;
    }

    std::vector<Slot> slots;
    slots.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const Param& p = method->params[i];
        const bool given = source[i] && !source[i]->is_missing();
        if (!given && !p.optional)
            throw err::error(err::kArgNotOptional, where + ", parameter " + p.name);
        slots.push_back(to_slot(given ? *source[i] : Value(), p, where));
    }

    const auto index = static_cast<std::size_t>(method - info_->methods().data());
    Value result = info_->invoke(instance_.get(), index, slots);

    for (std::size_t i = 0; i < n; ++i) {
        if (method->params[i].direction == Direction::InOut && source[i] &&
            !source[i]->is_missing())
            *source[i] = from_slot(slots[i]);
    }
    return result;
}

Registry& Registry::instance() {
    static Registry* registry = [] {
        auto* r = new Registry();
        register_builtin_classes(*r);
        return r;
    }();
    return *registry;
}

void Registry::add(std::shared_ptr<const ClassInfo> info) {
    std::lock_guard lock(mutex_);
    for (auto& existing : classes_) {
        if (util::iequals(existing->name(), info->name())) {
            existing = std::move(info);
            return;
        }
    }
    classes_.push_back(std::move(info));
}

std::shared_ptr<const ClassInfo> Registry::find_class(std::string_view class_name) const {
    std::lock_guard lock(mutex_);
    for (const auto& info : classes_) {
        if (util::iequals(info->name(), class_name)) return info;
    }
    return nullptr;
}

std::unique_ptr<Object> Registry::create(std::string_view prog_id) const {
    std::shared_ptr<const ClassInfo> info;
    if (prog_id.size() > kProgIdPrefix.size() &&
        util::iequals(prog_id.substr(0, kProgIdPrefix.size()), kProgIdPrefix)) {
        info = find_class(prog_id.substr(kProgIdPrefix.size()));
    }
    if (!info) {
        throw err::error(err::kCannotCreate, "no class is registered as " + util::excerpt(prog_id));
    }
    return std::make_unique<Object>(info, info->make_instance());
}

std::vector<std::string> Registry::class_names() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& info : classes_)
        names.push_back(info->name());
    return names;
}

}  // namespace billdata::server
