#include "output.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

namespace billdata::cli {

Format parse_format(const std::string& name) {
    if (name == "json") return Format::Json;
    if (name == "csv") return Format::Csv;
    return Format::Table;
}

std::string json_value(const ado::Variant& v) {
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
        case VarType::Double:
            // JSON has no infinity: null, as the call answers give it.
            if (!std::isfinite(v.to_double())) return "null";
            return ado::Variant::format_double(v.to_double());
        case VarType::Date:
        case VarType::String:
            return nlohmann::json(v.to_string()).dump();
    }
    return "null";
}

std::size_t display_width(const std::string& text) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size();) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        char32_t cp = c;
        std::size_t len = 1;
        if (c >= 0xF0) {
            len = 4;
            cp = c & 0x07;
        } else if (c >= 0xE0) {
            len = 3;
            cp = c & 0x0F;
        } else if (c >= 0xC0) {
            len = 2;
            cp = c & 0x1F;
        }
        for (std::size_t k = 1; k < len && i + k < text.size(); ++k)
            cp = (cp << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        i += len;
        bool wide = (cp >= 0x1100 && cp <= 0x115F) || (cp >= 0x2E80 && cp <= 0xA4CF) ||
                    (cp >= 0xAC00 && cp <= 0xD7A3) || (cp >= 0xF900 && cp <= 0xFAFF) ||
                    (cp >= 0xFE30 && cp <= 0xFE4F) || (cp >= 0xFF00 && cp <= 0xFF60) ||
                    (cp >= 0xFFE0 && cp <= 0xFFE6) || (cp >= 0x20000 && cp <= 0x3FFFD);
        width += wide ? 2 : 1;
    }
    return width;
}

namespace {

std::string csv_field(const std::string& s) {
    if (s.find_first_of(",\"\n\r") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

void pad(std::ostream& out, const std::string& s, std::size_t width, bool right) {
    std::size_t w = display_width(s);
    std::string fill(width > w ? width - w : 0, ' ');
    if (right)
        out << fill << s;
    else
        out << s << fill;
}

}  // namespace

void print_recordset(std::ostream& out, ado::Recordset& rs, Format format) {
    auto& fields = rs.GetFields();
    const std::size_t n = fields.Count();
    if (format == Format::Json) {
        out << "{\"fields\": [";
        for (std::size_t i = 0; i < n; ++i)
            out << (i ? ", " : "") << nlohmann::json(fields.Item(i).Name()).dump();
        out << "], \"rows\": [";
        bool first = true;
        for (; !rs.Eof(); rs.MoveNext()) {
            out << (first ? "[" : ", [");
            first = false;
            for (std::size_t i = 0; i < n; ++i)
                out << (i ? ", " : "") << json_value(fields.Item(i).Value());
            out << "]";
        }
        out << "]}\n";
        return;
    }
    if (format == Format::Csv) {
        for (std::size_t i = 0; i < n; ++i)
            out << (i ? "," : "") << csv_field(fields.Item(i).Name());
        out << "\n";
        for (; !rs.Eof(); rs.MoveNext()) {
            for (std::size_t i = 0; i < n; ++i)
                out << (i ? "," : "") << csv_field(fields.Item(i).Value().to_string());
            out << "\n";
        }
        return;
    }
    // A table needs every width before the first line, so it holds the rows it prints.
    std::vector<std::vector<std::string>> rows;
    std::vector<bool> numeric(n, true);
    std::vector<std::size_t> width(n);
    for (std::size_t i = 0; i < n; ++i)
        width[i] = display_width(fields.Item(i).Name());
    for (; !rs.Eof(); rs.MoveNext()) {
        auto& row = rows.emplace_back(n);
        for (std::size_t i = 0; i < n; ++i) {
            const ado::Variant& v = fields.Item(i).Value();
            row[i] = v.is_null() ? "NULL" : v.to_string();
            if (!v.is_numeric() && !v.is_null()) numeric[i] = false;
            width[i] = std::max(width[i], display_width(row[i]));
        }
    }
    auto rule = [&] {
        for (std::size_t i = 0; i < n; ++i)
            out << (i ? "-+-" : "") << std::string(width[i], '-');
        out << "\n";
    };
    for (std::size_t i = 0; i < n; ++i) {
        out << (i ? " | " : "");
        pad(out, fields.Item(i).Name(), width[i], false);
    }
    out << "\n";
    rule();
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < n; ++i) {
            out << (i ? " | " : "");
            pad(out, row[i], width[i], numeric[i]);
        }
        out << "\n";
    }
    out << "(" << rows.size() << " row" << (rows.size() == 1 ? "" : "s") << ")\n";
}

}  // namespace billdata::cli
