#include "billdata/server/json_call.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "billdata/util/text.h"

namespace billdata::server {

namespace {

using nlohmann::json;

ado::ComError bad_json(const std::string& detail) {
    return err::error(err::kInvalidCall, detail);
}

// A value as an error message shows it: its JSON text, cut short when long.
std::string shown(const json& j) {
    return util::excerpt(j.dump(-1, ' ', false, json::error_handler_t::replace));
}

ado::Variant scalar_from_json(const json& j, const std::string& what) {
    switch (j.type()) {
        case json::value_t::null:
            return ado::Variant::null();
        case json::value_t::boolean:
            return ado::Variant(j.get<bool>());
        case json::value_t::number_integer:
        case json::value_t::number_unsigned: {
            if (j.is_number_unsigned() &&
                j.get<std::uint64_t>() > std::uint64_t(std::numeric_limits<std::int64_t>::max()))
                return ado::Variant(j.get<double>());
            return ado::Variant(j.get<std::int64_t>());
        }
        case json::value_t::number_float:
            return ado::Variant(j.get<double>());
        case json::value_t::string:
            return ado::Variant(j.get<std::string>());
        default:
            throw bad_json(what + ": " + shown(j) + " is not a single value");
    }
}

std::shared_ptr<ado::Recordset> recordset_from_json(const json& j, const std::string& what) {
    const char* shape = ": a record set is {\"fields\": [names], \"rows\": [[values], …]}";
    auto fields = j.find("fields");
    if (fields == j.end() || !fields->is_array()) throw bad_json(what + shape);
    for (auto it = j.begin(); it != j.end(); ++it) {
        if (it.key() != "fields" && it.key() != "rows")
            throw bad_json(what + ": unknown member \"" + util::excerpt(it.key()) + "\"" + shape);
    }
    auto rs = ado::Recordset::create();
    for (const json& name : *fields) {
        if (!name.is_string() || name.get<std::string>().empty())
            throw bad_json(what + ": field names must be non-empty texts");
        if (rs->GetFields().Find(name.get<std::string>()))
            throw bad_json(what + ": field " + util::excerpt(name.get<std::string>()) +
                           " appears twice");
        rs->GetFields().Append(name.get<std::string>(), ado::adVariant);
    }
    rs->Open();
    auto rows = j.find("rows");
    if (rows != j.end()) {
        if (!rows->is_array()) throw bad_json(what + shape);
        std::size_t r = 0;
        for (const json& row : *rows) {
            if (!row.is_array() || row.size() != fields->size()) {
                throw bad_json(what + ": row " + std::to_string(r) + " must hold " +
                               std::to_string(fields->size()) + " values");
            }
            rs->AddNew();
            const std::string row_what = what + ", row " + std::to_string(r);
            for (std::size_t i = 0; i < row.size(); ++i)
                rs->Fields(i).SetValue(scalar_from_json(row[i], row_what));
            rs->Update();
            ++r;
        }
    }
    // The caller hands its lines positioned on the first one, as a front end does.
    rs->MoveFirst();
    return rs;
}

Value from_json(const json& j, const std::string& what) {
    if (j.is_object()) return recordset_from_json(j, what);
    if (j.is_array()) {
        IdArray ids;
        for (const json& e : j) {
            ado::Variant v = scalar_from_json(e, what);
            try {
                ids.push_back(v.to_int32());
            } catch (const ado::ComError& ex) {
                throw err::error(ex.number(), what + ": " + shown(e) + " is not a 32-bit integer");
            }
        }
        return ids;
    }
    return scalar_from_json(j, what);
}

std::string quote(const std::string& text) {
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string variant_json(const ado::Variant& v) {
    using ado::VarType;
    switch (v.type()) {
        case VarType::Empty:
        case VarType::Null:
            return "null";
        case VarType::Boolean:
            return v.to_bool() ? "true" : "false";
        case VarType::Integer:
        case VarType::Long:
            return std::to_string(v.to_int32());
        case VarType::Double: {
            double d = v.to_double();
            if (!std::isfinite(d)) return "null";
            return ado::Variant::format_double(d);
        }
        case VarType::Date:
        case VarType::String:
            return quote(v.to_string());
    }
    return "null";
}

std::string recordset_json(ado::Recordset& rs) {
    if (rs.State() != ado::adStateOpen) return "null";
    auto& fields = rs.GetFields();
    const std::size_t n = fields.Count();
    std::string out = "{\"fields\": [";
    for (std::size_t i = 0; i < n; ++i)
        out += (i ? ", " : "") + quote(fields.Item(i).Name());
    out += "], \"rows\": [";
    bool first = true;
    for (; !rs.Eof(); rs.MoveNext()) {
        out += first ? "[" : ", [";
        first = false;
        for (std::size_t i = 0; i < n; ++i)
            out += (i ? ", " : "") + variant_json(fields.Item(i).Value());
        out += "]";
    }
    return out + "]}";
}

}  // namespace

void check_json_text(std::string_view text, const std::string& what) {
    if (const std::size_t bad = util::invalid_utf8_at(text); bad != std::string_view::npos)
        throw bad_json(what + ": invalid UTF-8 at byte " + std::to_string(bad));
    int depth = 0;
    bool in_string = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (in_string) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                in_string = false;
        } else if (c == '"') {
            in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxJsonDepth) {
                throw bad_json(what + ": nested deeper than " + std::to_string(kMaxJsonDepth) +
                               " levels at byte " + std::to_string(i));
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
}

Value value_from_json(std::string_view json_text, const std::string& what) {
    check_json_text(json_text, what);
    json j = json::parse(json_text, nullptr, false);
    if (j.is_discarded()) throw bad_json(what + ": not valid JSON");
    return from_json(j, what);
}

std::string to_json(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Missing:
        case Value::Kind::Connection:
            return "null";
        case Value::Kind::Variant:
            return variant_json(value.variant());
        case Value::Kind::Recordset:
            return value.recordset() ? recordset_json(*value.recordset()) : "null";
        case Value::Kind::IdArray: {
            std::string out = "[";
            for (std::size_t i = 0; i < value.ids().size(); ++i)
                out += (i ? ", " : "") + std::to_string(value.ids()[i]);
            return out + "]";
        }
    }
    return "null";
}

CallOutcome call_json(Object& object, std::string_view method, std::string_view args_json) {
    if (args_json.find_first_not_of(" \t\r\n") == std::string_view::npos)
        return call_json_value(object, method, json::object());
    check_json_text(args_json, "the arguments");
    const json args = json::parse(args_json, nullptr, false);
    if (args.is_discarded()) throw bad_json("the arguments are not valid JSON");
    return call_json_value(object, method, args);
}

CallOutcome call_json_value(Object& object, std::string_view method, const json& args) {
    if (!args.is_object())
        throw bad_json("the arguments must be a JSON object keyed by parameter names");
    std::vector<NamedArg> named;
    const std::string where = object.info().name() + "." + util::excerpt(method);
    for (auto it = args.begin(); it != args.end(); ++it)
        named.push_back(
            {it.key(), from_json(it.value(), where + ", parameter " + util::excerpt(it.key()))});

    std::vector<Value> positional;
    CallOutcome outcome;
    outcome.result = object.Invoke(method, positional, named);
    const Method* m = object.info().find(method);
    outcome.result_type = m->result;
    for (const Param& p : m->params) {
        if (p.direction != Direction::InOut) continue;
        for (NamedArg& arg : named) {
            if (util::iequals(arg.name, p.name)) outcome.out.emplace_back(p.name, arg.value);
        }
    }
    return outcome;
}

std::string outcome_json(const CallOutcome& outcome) {
    std::string out = "{\"result\": " + to_json(outcome.result) + ", \"out\": {";
    for (std::size_t i = 0; i < outcome.out.size(); ++i) {
        out +=
            (i ? ", " : "") + quote(outcome.out[i].first) + ": " + to_json(outcome.out[i].second);
    }
    return out + "}}";
}

std::string error_json(const ado::ComError& error) {
    std::string out = "{\"error\": {\"number\": " + std::to_string(error.number()) +
                      ", \"description\": " + quote(error.description());
    // Only when the operation's clean-up failed too: the work may not have been undone.
    if (!error.cleanup_failure().empty()) out += ", \"cleanup\": " + quote(error.cleanup_failure());
    return out + "}}";
}

}  // namespace billdata::server
