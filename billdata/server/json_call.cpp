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

// Names the value being read in error messages; the text is made only when one is raised.
struct What {
    std::string_view head;   // the name, or what comes before a parameter's name
    std::string_view param;  // the parameter's name as the caller wrote it, when `named`
    bool named = false;
    long row = -1;  // a record set's row, when reading one

    std::string text() const {
        std::string out(head);
        if (named) out += util::excerpt(param);
        if (row >= 0) out += ", row " + std::to_string(row);
        return out;
    }
    What at_row(long r) const {
        What w = *this;
        w.row = r;
        return w;
    }
};

// A value as an error message shows it: its JSON text as the JSON library writes it, cut short
// when long.
std::string shown(const JsonDoc& doc, std::uint32_t index) {
    return util::excerpt(
        json::parse(doc.source(index)).dump(-1, ' ', false, json::error_handler_t::replace));
}

ado::Variant scalar_from_json(const JsonDoc& doc, std::uint32_t index, const What& what) {
    const JsonDoc::Node& n = doc.node(index);
    switch (n.kind) {
        case JsonDoc::Kind::Null:
            return ado::Variant::null();
        case JsonDoc::Kind::Boolean:
            return ado::Variant(n.boolean);
        case JsonDoc::Kind::Integer:
            return ado::Variant(n.integer);
        case JsonDoc::Kind::Double:
            return ado::Variant(n.number);
        case JsonDoc::Kind::String:
            return ado::Variant(std::string(n.text));
        default:
            throw bad_json(what.text() + ": " + shown(doc, index) + " is not a single value");
    }
}

std::shared_ptr<ado::Recordset> recordset_from_json(const JsonDoc& doc, std::uint32_t index,
                                                    const What& what) {
    const char* shape = ": a record set is {\"fields\": [names], \"rows\": [[values], …]}";
    const std::vector<JsonDoc::Member> members = doc.members(index);
    std::uint32_t fields = JsonDoc::npos, rows = JsonDoc::npos;
    for (const JsonDoc::Member& m : members) {
        if (m.name == "fields")
            fields = m.value;
        else if (m.name == "rows")
            rows = m.value;
    }
    if (fields == JsonDoc::npos || doc.node(fields).kind != JsonDoc::Kind::Array)
        throw bad_json(what.text() + shape);
    for (const JsonDoc::Member& m : members) {
        if (m.name != "fields" && m.name != "rows")
            throw bad_json(what.text() + ": unknown member \"" + util::excerpt(m.name) + "\"" +
                           shape);
    }
    auto rs = ado::Recordset::create();
    const std::uint32_t field_count = doc.node(fields).size;
    for (std::uint32_t i = 0, at = JsonDoc::first(fields); i < field_count;
         ++i, at = doc.node(at).next) {
        const JsonDoc::Node& name = doc.node(at);
        if (name.kind != JsonDoc::Kind::String || name.text.empty())
            throw bad_json(what.text() + ": field names must be non-empty texts");
        if (rs->GetFields().Find(name.text))
            throw bad_json(what.text() + ": field " + util::excerpt(name.text) + " appears twice");
        rs->GetFields().Append(name.text, ado::adVariant);
    }
    rs->Open();
    if (rows != JsonDoc::npos) {
        if (doc.node(rows).kind != JsonDoc::Kind::Array) throw bad_json(what.text() + shape);
        const std::uint32_t row_count = doc.node(rows).size;
        for (std::uint32_t r = 0, row = JsonDoc::first(rows); r < row_count;
             ++r, row = doc.node(row).next) {
            if (doc.node(row).kind != JsonDoc::Kind::Array || doc.node(row).size != field_count) {
                throw bad_json(what.text() + ": row " + std::to_string(r) + " must hold " +
                               std::to_string(field_count) + " values");
            }
            rs->AddNew();
            const What row_what = what.at_row(r);
            for (std::uint32_t i = 0, cell = JsonDoc::first(row); i < field_count;
                 ++i, cell = doc.node(cell).next)
                rs->Fields(i).SetValue(scalar_from_json(doc, cell, row_what));
            rs->Update();
        }
    }
    // The caller hands its lines positioned on the first one, as a front end does.
    rs->MoveFirst();
    return rs;
}

Value from_json(const JsonDoc& doc, std::uint32_t index, const What& what) {
    const JsonDoc::Node& n = doc.node(index);
    if (n.kind == JsonDoc::Kind::Object) return recordset_from_json(doc, index, what);
    if (n.kind == JsonDoc::Kind::Array) {
        IdArray ids;
        ids.reserve(n.size);
        for (std::uint32_t i = 0, e = JsonDoc::first(index); i < n.size;
             ++i, e = doc.node(e).next) {
            ado::Variant v = scalar_from_json(doc, e, what);
            try {
                ids.push_back(v.to_int32());
            } catch (const ado::ComError& ex) {
                throw err::error(ex.number(),
                                 what.text() + ": " + shown(doc, e) + " is not a 32-bit integer");
            }
        }
        return ids;
    }
    return scalar_from_json(doc, index, what);
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
    JsonDoc doc;
    if (!doc.parse(json_text)) throw bad_json(what + ": not valid JSON");
    return from_json(doc, 0, What{what, {}, false, -1});
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
    JsonDoc doc;
    if (args_json.find_first_not_of(" \t\r\n") == std::string_view::npos)
        return call_json_value(object, method, doc, JsonDoc::npos);
    check_json_text(args_json, "the arguments");
    if (!doc.parse(args_json)) throw bad_json("the arguments are not valid JSON");
    return call_json_value(object, method, doc, 0);
}

CallOutcome call_json_value(Object& object, std::string_view method, const JsonDoc& doc,
                            std::uint32_t args) {
    std::vector<NamedArg> named;
    if (args != JsonDoc::npos) {
        if (doc.node(args).kind != JsonDoc::Kind::Object)
            throw bad_json("the arguments must be a JSON object keyed by parameter names");
        const std::string head =
            object.info().name() + "." + util::excerpt(method) + ", parameter ";
        const std::vector<JsonDoc::Member> members = doc.members(args);
        named.reserve(members.size());
        for (const JsonDoc::Member& m : members)
            named.push_back(
                {std::string(m.name), from_json(doc, m.value, What{head, m.name, true, -1})});
    }

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
