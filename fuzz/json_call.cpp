// Fuzzes the JSON side of late-bound calls with one line as `billdata batch` reads it,
// {"call": "Class.Method", "args": {…}}: the JSON arguments are decoded and converted to the
// parameters of the component's real methods, exactly as for a call, and the answer is written
// back as JSON. Nothing reaches a database: each class is stood in for by a twin with the same
// method descriptions whose methods only read what they are given (every field of every row of a
// record set, as a saving method reads its lines). A refused call must end in ComError;
// anything else escaping, or a sanitizer report, is a fault.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "billdata/server/dispatch.h"
#include "billdata/server/json_call.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size);
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
