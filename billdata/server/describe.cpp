#include "billdata/server/describe.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "billdata/server/json_call.h"
#include "billdata/util/text.h"

namespace billdata::server {

namespace {

// Keys keep the order they are written in: parameters in their order, members as documented.
using json = nlohmann::ordered_json;

struct Contract {
    const char* class_name;
    const char* method;
    const char* text;
};

constexpr Contract kContracts[] = {
#include "billdata/server/contracts.inc"
};

const char* type_token(Type type) {
    switch (type) {
        case Type::Void:
            return "void";
        case Type::Int16:
            return "int16";
        case Type::Int32:
            return "int32";
        case Type::Double:
            return "double";
        case Type::Bool:
            return "boolean";
        case Type::Text:
            return "text";
        case Type::Date:
            return "date";
        case Type::Variant:
            return "variant";
        case Type::Recordset:
            return "recordset";
        case Type::Connection:
            return "connection";
        case Type::IdArray:
            return "int32-array";
    }
    return "?";
}

// The JSON text of the value an optional parameter takes when left out.
std::string default_json(const Param& p) {
    if (!p.default_value.is_missing()) return to_json(p.default_value);
    switch (p.type) {
        case Type::Int16:
        case Type::Int32:
        case Type::Double:
            return "0";
        case Type::Bool:
            return "false";
        case Type::Text:
            return "\"\"";
        case Type::Date:
            return to_json(Value(ado::Variant(ado::DateTime())));
        case Type::IdArray:
            return "[]";
        default:
            return "null";
    }
}

std::string shell_quote(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::shared_ptr<const ClassInfo> class_of(const Registry& registry, std::string_view name) {
    auto info = registry.find_class(name);
    if (!info)
        throw err::error(err::kCannotCreate, "no class is registered as " + util::excerpt(name));
    return info;
}

const Method& method_of(const ClassInfo& info, std::string_view name) {
    const Method* m = info.find(name);
    if (!m)
        throw err::error(err::kNoSuchMethod, info.name() + " has no method " + util::excerpt(name));
    return *m;
}

void add_commands(const Registry& registry, const ClassInfo& info, const Method& method,
                  std::vector<std::string>& commands) {
    for (const std::string& before : method.example.after) {
        const auto dot = before.find('.');
        auto other = registry.find_class(before.substr(0, dot));
        const Method* m =
            other && dot != std::string::npos ? other->find(before.substr(dot + 1)) : nullptr;
        if (!m) throw std::logic_error(info.name() + "." + method.name + ": no method " + before);
        add_commands(registry, *other, *m, commands);
    }
    const std::string args = json::parse(method.example.args).dump();
    commands.push_back("billdata call --db " + std::string(kDemoFile) + " " + info.name() + "." +
                       method.name + " " + shell_quote(args));
}

// The target split into the class and (possibly empty) method.
std::pair<std::string, std::string> split(std::string_view target) {
    const auto dot = target.find('.');
    if (dot == std::string_view::npos) return {std::string(target), ""};
    return {std::string(target.substr(0, dot)), std::string(target.substr(dot + 1))};
}

std::string class_summary(const ClassInfo& info) {
    std::string s = first_sentence(contract(info.name(), ""));
    // The class comment starts with "Name: "; the name is shown beside it already.
    if (s.rfind(info.name() + ": ", 0) == 0) s = s.substr(info.name().size() + 2);
    if (!s.empty() && s[0] >= 'a' && s[0] <= 'z') s[0] = static_cast<char>(s[0] - 'a' + 'A');
    return s;
}

json fields_json(const std::vector<std::string>& fields) {
    return fields.empty() ? json(nullptr) : json(fields);
}

json method_json(const Registry& registry, const ClassInfo& info, const Method& m) {
    const std::string text(contract(info.name(), m.name));
    json params = json::array();
    for (const Param& p : m.params) {
        params.push_back({{"name", p.name},
                          {"type", type_token(p.type)},
                          {"direction", p.direction == Direction::InOut ? "inout" : "in"},
                          {"optional", p.optional},
                          {"default", p.optional ? json::parse(default_json(p)) : json(nullptr)},
                          {"fields", fields_json(p.fields)}});
    }
    json example = nullptr;
    if (!m.example.args.empty())
        example = {{"args", json::parse(m.example.args)},
                   {"commands", example_commands(registry, info, m)}};
    return {{"class", info.name()},
            {"name", m.name},
            {"summary", first_sentence(text)},
            {"description", text},
            {"params", params},
            {"result", m.result == Type::Void ? json(nullptr)
                                              : json{{"type", type_token(m.result)},
                                                     {"fields", fields_json(m.result_fields)}}},
            {"example", example},
            {"no_example", m.example.none.empty() ? json(nullptr) : json(m.example.none)}};
}

// Code points a UTF-8 text takes (close enough to columns for wrapping prose).
std::size_t length(std::string_view text) {
    std::size_t n = 0;
    for (char c : text)
        n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return n;
}

// A text's paragraphs wrapped at 96 columns, each line indented.
void wrap(std::ostream& out, std::string_view text, const std::string& indent) {
    std::istringstream paragraphs{std::string(text)};
    bool first = true;
    for (std::string paragraph; std::getline(paragraphs, paragraph); first = false) {
        if (!first) out << "\n";
        std::istringstream words(paragraph);
        std::string line;
        for (std::string word; words >> word;) {
            if (!line.empty() && length(indent + line + " " + word) > 96) {
                out << indent << line << "\n";
                line.clear();
            }
            line += (line.empty() ? "" : " ") + word;
        }
        out << indent << line << "\n";
    }
}

std::string join(const std::vector<std::string>& items, const char* separator) {
    std::string out;
    for (const std::string& item : items)
        out += (out.empty() ? "" : separator) + item;
    return out;
}

void method_text(std::ostream& out, const Registry& registry, const ClassInfo& info,
                 const Method& m) {
    out << info.name() << "." << m.name << "\n\n";
    wrap(out, contract(info.name(), m.name), "  ");
    out << "\nParameters:" << (m.params.empty() ? " none" : "") << "\n";
    std::size_t width = 0;
    for (const Param& p : m.params)
        width = std::max(width, p.name.size());
    for (std::size_t i = 0; i < m.params.size(); ++i) {
        const Param& p = m.params[i];
        out << "  " << (i + 1 < 10 ? " " : "") << i + 1 << ". " << p.name
            << std::string(width - p.name.size(), ' ') << "  " << type_name(p.type)
            << (p.direction == Direction::InOut ? ", in/out" : ", in");
        if (p.optional) {
            const std::string d = default_json(p);
            out << ", optional (default " << (d == "null" ? "Nothing" : d) << ")";
        }
        out << "\n";
        if (!p.fields.empty())
            wrap(out, "fields read: " + join(p.fields, ", "), std::string(width + 8, ' '));
    }
    out << "\nResult: " << type_name(m.result) << "\n";
    if (!m.result_fields.empty()) wrap(out, "fields: " + join(m.result_fields, ", "), "  ");
    if (m.example.args.empty()) {
        out << "\n";
        wrap(out, "No example: " + m.example.none + ".", "");
        return;
    }
    out << "\nExample, in an empty folder:\n";
    for (const std::string& command : example_commands(registry, info, m))
        out << "  " << command << "\n";
}

}  // namespace

std::string_view contract(std::string_view class_name, std::string_view method) {
    for (const Contract& c : kContracts) {
        if (class_name == c.class_name && method == c.method) return c.text;
    }
    return {};
}

std::string first_sentence(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') return std::string(text.substr(0, i));
        if (text[i] != '.' || (i + 1 < text.size() && text[i + 1] != ' ')) continue;
        // "e.g. " and "i.e. " end no sentence.
        if (i >= 3 && (text.substr(i - 3, 4) == "e.g." || text.substr(i - 3, 4) == "i.e."))
            continue;
        return std::string(text.substr(0, i + 1));
    }
    return std::string(text);
}

std::vector<std::string> example_commands(const Registry& registry, const ClassInfo& info,
                                          const Method& method) {
    std::vector<std::string> commands;
    if (method.example.args.empty()) return commands;
    commands.emplace_back(kDemoInit);
    add_commands(registry, info, method, commands);
    return commands;
}

std::string describe_json(const Registry& registry, std::string_view target) {
    json out;
    const auto [class_name, method_name] = split(target);
    if (class_name.empty() && method_name.empty()) {
        out["classes"] = json::array();
        for (const std::string& name : registry.class_names()) {
            auto info = registry.find_class(name);
            out["classes"].push_back({{"name", name},
                                      {"prog_id", std::string(Registry::kProgIdPrefix) + name},
                                      {"summary", class_summary(*info)}});
        }
        return out.dump(2);
    }
    auto info = class_of(registry, class_name);
    if (!method_name.empty() || target.find('.') != std::string_view::npos)
        return method_json(registry, *info, method_of(*info, method_name)).dump(2);
    json methods = json::array();
    for (const Method& m : info->methods())
        methods.push_back(
            {{"name", m.name}, {"summary", first_sentence(contract(info->name(), m.name))}});
    out = {{"name", info->name()},
           {"prog_id", std::string(Registry::kProgIdPrefix) + info->name()},
           {"summary", class_summary(*info)},
           {"description", std::string(contract(info->name(), ""))},
           {"methods", methods}};
    return out.dump(2);
}

std::string describe_text(const Registry& registry, std::string_view target) {
    std::ostringstream out;
    const auto [class_name, method_name] = split(target);
    if (class_name.empty() && method_name.empty()) {
        std::size_t width = 0;
        for (const std::string& name : registry.class_names())
            width = std::max(width, name.size());
        for (const std::string& name : registry.class_names())
            out << name << std::string(width + 2 - name.size(), ' ')
                << class_summary(*registry.find_class(name)) << "\n";
        out << "\nbilldata describe <Class> lists a class's methods; billdata describe "
               "<Class>.<Method> shows one.\n";
        return out.str();
    }
    auto info = class_of(registry, class_name);
    if (!method_name.empty() || target.find('.') != std::string_view::npos) {
        method_text(out, registry, *info, method_of(*info, method_name));
        return out.str();
    }
    out << info->name() << " (" << Registry::kProgIdPrefix << info->name() << ")\n\n";
    wrap(out, contract(info->name(), ""), "  ");
    out << "\nMethods:\n";
    std::size_t width = 0;
    for (const Method& m : info->methods())
        width = std::max(width, m.name.size());
    for (const Method& m : info->methods()) {
        out << "  " << m.name << std::string(width + 2 - m.name.size(), ' ')
            << first_sentence(contract(info->name(), m.name)) << "\n";
    }
    return out.str();
}

}  // namespace billdata::server
