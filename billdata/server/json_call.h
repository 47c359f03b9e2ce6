#pragma once
// The JSON mapping of late-bound calls, shared by the C interface and the command line.
//   arguments: a JSON object keyed by parameter names; numbers convert to the declared type by
//     the platform's rules, dates are "YYYY-MM-DD" or "YYYY-MM-DD HH:MM:SS", a record set is
//     {"fields": ["FItemID", …], "rows": [[…], …]}, an array of ids a JSON array, null is Null
//     (Nothing for a record set or connection), and an optional argument is left out;
//   output: {"result": …, "out": {…in/out arguments…}};
//   errors: {"error": {"number": -2147220503, "description": "…"}}, with "cleanup": "…" added
//     only when the failed operation's rollback failed too.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/server/dispatch.h"
#include "billdata/server/json_doc.h"

namespace billdata::server {

// What a call gave back: its result and the in/out arguments that were passed, in the order of
// the method's parameters, holding the values the method left in them.
struct CallOutcome {
    Type result_type = Type::Void;
    Value result;
    std::vector<std::pair<std::string, Value>> out;
};

// Calls `method` of `object` with the arguments of `args_json` (a JSON object; empty text means
// no arguments). Errors: text that is no JSON object (check_json_text included) or a value that
// has no late-bound form is ComError 5 (or 13 for an unusable record set); then every error of
// Object::Invoke. Messages quote the caller's text only as a short excerpt.
CallOutcome call_json(Object& object, std::string_view method, std::string_view args_json);
// The same with the arguments already read: the value `args` of `doc` (read from a text that
// passed check_json_text), as a batch line holds them, or JsonDoc::npos for no arguments.
CallOutcome call_json_value(Object& object, std::string_view method, const JsonDoc& doc,
                            std::uint32_t args);

// The JSON text of a value: a record set is read from its current row to its end (a closed
// record set or Nothing is null); Missing is null.
std::string to_json(const Value& value);
// {"result": …, "out": {…}} on one line.
std::string outcome_json(const CallOutcome& outcome);
// {"error": {"number": …, "description": "…"[, "cleanup": "…"]}} on one line.
std::string error_json(const ado::ComError& error);

// The deepest nesting of arrays and objects a JSON text may have. The values of a call nest a
// few levels (an argument object, a record set, its rows); a limit keeps a hostile text from
// exhausting the stack of anything that walks the value.
inline constexpr int kMaxJsonDepth = 256;

// Raises ComError 5 naming `what` and the byte offset when the text is not well-formed UTF-8 or
// nests arrays and objects deeper than kMaxJsonDepth; its syntax is left to the JSON parser.
// Every JSON text read here passes through it before it is parsed.
void check_json_text(std::string_view json_text, const std::string& what);

// The late-bound value of a JSON text (the forms above); `what` names it in error messages.
Value value_from_json(std::string_view json_text, const std::string& what = "value");

}  // namespace billdata::server
