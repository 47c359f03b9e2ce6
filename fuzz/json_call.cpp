// Fuzzes the JSON side of late-bound calls with one line as `billdata batch` reads it,
// {"call": "Class.Method", "args": {…}}: the JSON arguments are decoded and converted to the
// parameters of the component's real methods, exactly as for a call, and the answer is written
// back as JSON. Nothing reaches a database: each class is stood in for by a twin with the same
// method descriptions whose methods only read what they are given (every field of every row of a
// record set, as a saving method reads its lines). A refused call must end in ComError;
// anything else escaping, or a sanitizer report, is a fault. The line is also read by the calls'
// own JSON reader and by the general JSON library: a text one accepts and the other refuses, or
// a value they read differently, is a fault too.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "billdata/server/dispatch.h"
#include "billdata/server/json_call.h"
#include "billdata/server/json_doc.h"

namespace {

using namespace billdata;
using server::ClassInfo;
using server::Slot;
using server::Value;

void read_recordset(ado::Recordset& rs) {
    if (rs.State() != ado::adStateOpen) return;
    for (; !rs.Eof(); rs.MoveNext()) {
        for (std::size_t i = 0; i < rs.GetFields().Count(); ++i) {
            const ado::Variant& v = rs.GetFields().Item(i).Value();
            try {
                v.to_double();
            } catch (const ado::ComError&) {
            }
            try {
                v.to_string();
            } catch (const ado::ComError&) {
            }
        }
    }
    rs.MoveFirst();
}

Value read_only(void*, std::vector<Slot>& args) {
    for (Slot& slot : args) {
        if (auto* rs = std::get_if<std::shared_ptr<ado::Recordset>>(&slot); rs && *rs)
            read_recordset(**rs);
    }
    return Value();
}

// The twin of a registered class: its method descriptions with read_only behind each.
std::shared_ptr<const ClassInfo> twin_of(const std::string& name) {
    static std::map<std::string, std::shared_ptr<const ClassInfo>> twins;
    auto it = twins.find(name);
    if (it != twins.end()) return it->second;
    std::shared_ptr<ClassInfo> twin;
    if (auto real = server::Registry::instance().find_class(name)) {
        twin = std::make_shared<ClassInfo>(real->name(), [] { return std::shared_ptr<void>(); });
        for (const server::Method& m : real->methods())
            twin->add(m, read_only);
    }
    return twins[name] = twin;
}

// Whether the reader's value `index` of `doc` is the library's value `j`.
bool same(const server::JsonDoc& doc, std::uint32_t index, const nlohmann::json& j) {
    using Kind = server::JsonDoc::Kind;
    const server::JsonDoc::Node& n = doc.node(index);
    switch (n.kind) {
        case Kind::Null:
            return j.is_null();
        case Kind::Boolean:
            return j.is_boolean() && j.get<bool>() == n.boolean;
        case Kind::Integer:
            return j.is_number_integer() &&
                   (j.is_number_unsigned() ? j.get<std::uint64_t>() <= std::uint64_t(INT64_MAX) &&
                                                 std::int64_t(j.get<std::uint64_t>()) == n.integer
                                           : j.get<std::int64_t>() == n.integer);
        case Kind::Double: {
            // An integer past 64 bits reads as a double; the library keeps an unsigned one.
            if (!j.is_number_float() &&
                !(j.is_number_unsigned() && j.get<std::uint64_t>() > std::uint64_t(INT64_MAX)))
                return false;
            const double d = j.get<double>();
            return std::memcmp(&d, &n.number, sizeof d) == 0;
        }
        case Kind::String:
            return j.is_string() && j.get<std::string>() == n.text;
        case Kind::Array: {
            if (!j.is_array() || j.size() != n.size) return false;
            std::uint32_t e = server::JsonDoc::first(index);
            for (const nlohmann::json& element : j) {
                if (!same(doc, e, element)) return false;
                e = doc.node(e).next;
            }
            return true;
        }
        case Kind::Object: {
            const std::vector<server::JsonDoc::Member> members = doc.members(index);
            if (!j.is_object() || j.size() != members.size()) return false;
            std::size_t k = 0;
            for (auto it = j.begin(); it != j.end(); ++it, ++k) {
                if (it.key() != members[k].name || !same(doc, members[k].value, it.value()) ||
                    doc.find(index, members[k].name) != members[k].value)
                    return false;
            }
            return true;
        }
    }
    return false;
}

void read_alike(const std::string& text) {
    try {
        server::check_json_text(text, "the line");
    } catch (const ado::ComError&) {
        return;
    }
    server::JsonDoc doc;
    const bool read = doc.parse(text);
    const nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
    if (read == j.is_discarded() || (read && !same(doc, 0, j))) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size);
    read_alike(line);
    try {
        nlohmann::json request = nlohmann::json::parse(line, nullptr, false);
        if (request.is_discarded() || !request.is_object()) return 0;
        auto call = request.find("call");
        if (call == request.end() || !call->is_string()) return 0;
        const std::string target = call->get<std::string>();
        const auto dot = target.find('.');
        if (dot == std::string::npos) return 0;
        auto info = twin_of(target.substr(0, dot));
        if (!info) return 0;
        auto args = request.find("args");
        const std::string args_json = args == request.end() ? std::string() : args->dump();

        server::Object object(info, nullptr);
        const server::CallOutcome outcome =
            server::call_json(object, target.substr(dot + 1), args_json);
        server::outcome_json(outcome);
    } catch (const ado::ComError& e) {
        server::error_json(e);
    }
    return 0;
}
