#pragma once
// Descriptions of the registered classes for people and tools (`billdata describe`): the
// parameters, types and defaults come from the registry, the words from the contract comments of
// the classes' headers, compiled in when the library is built.
//
// JSON (one object; keys are always present, null when they do not apply):
//   all classes:  {"classes": [{"name", "prog_id", "summary"}, …]}
//   one class:    {"name", "prog_id", "summary", "description",
//                  "methods": [{"name", "summary"}, …]}
//   one method:   {"class", "name", "summary", "description",
//                  "params": [{"name", "type", "direction": "in"|"inout", "optional",
//                              "default", "fields"}, …],
//                  "result": {"type", "fields"} or null,
//                  "example": {"args": {…}, "commands": ["billdata init …", …]} or null,
//                  "no_example": "why" or null}
//   types: "int16", "int32", "double", "boolean", "text", "date", "variant", "recordset",
//   "connection", "int32-array"; "default" is the value an optional parameter takes when left
//   out (null: Nothing, or not optional); "fields" are the record-set fields read or returned
//   where the method defines them (else null).

#include <string>
#include <string_view>
#include <vector>

#include "billdata/server/dispatch.h"

namespace billdata::server {

// The database every example is made for, and the file name its commands use.
inline constexpr std::string_view kDemoInit = "billdata init shop.db --demo --year 2025 --period 3";
inline constexpr std::string_view kDemoFile = "shop.db";

// The contract comment of `method` of class `class_name` (empty method: the class's own), exact
// names as registered; empty when the header has none.
std::string_view contract(std::string_view class_name, std::string_view method);

// The first sentence of a text.
std::string first_sentence(std::string_view text);

// The command lines of a method's example, to be run in order in an empty folder: kDemoInit, the
// calls of its `after` examples (each preceded by what it needs), then its own call. Empty when
// it has none. A name in `after` that is not registered is a std::logic_error.
std::vector<std::string> example_commands(const Registry& registry, const ClassInfo& info,
                                          const Method& method);

// The description of `target`: "" (every class), "Class" or "Class.Method", names without regard
// to case, as readable text or as JSON (the shapes above). Errors, as a call by name raises them:
// an unknown class is ComError 429, an unknown method 438.
std::string describe_text(const Registry& registry, std::string_view target);
std::string describe_json(const Registry& registry, std::string_view target);

}  // namespace billdata::server
