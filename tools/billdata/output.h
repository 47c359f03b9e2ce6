#pragma once
// Printing record sets for people (aligned tables) and for programs (JSON, CSV).

#include <ostream>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata::cli {

enum class Format { Table, Json, Csv };

Format parse_format(const std::string& name);

// Reads the record set from its current row to its end and prints it. JSON is
// {"fields": [...], "rows": [[...], ...]}; CSV has a header line. Tables are aligned by the
// display width of the text (CJK characters take two columns).
void print_recordset(std::ostream& out, ado::Recordset& rs, Format format);

// The JSON value of a variant: null for Empty/Null, numbers as numbers, booleans, dates as
// "YYYY-MM-DD" or "YYYY-MM-DD HH:MM:SS", text as strings.
std::string json_value(const ado::Variant& v);

// Columns a UTF-8 text takes on a terminal.
std::size_t display_width(const std::string& text);

}  // namespace billdata::cli
