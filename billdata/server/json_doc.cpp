#include "billdata/server/json_doc.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>

#include "billdata/util/text.h"

namespace billdata::server {

namespace {

// Only a guard for the recursion: every text is checked against kMaxJsonDepth before it is read,
// and a text never nests deeper here than that check counted.
constexpr int kMaxDepth = 1024;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A number too large or too small for the fast conversion: the C library's, which gives the
// infinity or the underflowed value the fast one only reports, read with the locale's decimal
// point.
double strtod_of(const char* begin, const char* end) {
    std::string copy(begin, end);
    const char point = *std::localeconv()->decimal_point;
    std::replace(copy.begin(), copy.end(), '.', point);
    return std::strtod(copy.c_str(), nullptr);
}

}  // namespace

struct JsonDoc::Reader {
    JsonDoc& doc;
    const char* p;
    const char* const begin;
    const char* const end;

    std::uint32_t offset() const { return static_cast<std::uint32_t>(p - begin); }
    void skip_blanks() {
        while (p < end && (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r'))
            ++p;
    }
    // A NUL byte outside a string ends the text, as it ends a C string.
    bool at_end() const { return p == end || *p == '\0'; }

    // Reads one value after blanks into a new node.
    bool value(int depth) {
        skip_blanks();
        if (at_end()) return false;
        const auto index = static_cast<std::uint32_t>(doc.nodes_.size());
        doc.nodes_.emplace_back();
        doc.nodes_[index].begin = offset();
        bool ok = false;
        switch (*p) {
            case '{':
                ok = object(index, depth + 1);
                break;
            case '[':
                ok = array(index, depth + 1);
                break;
            case '"':
                doc.nodes_[index].kind = Kind::String;
                ok = string(doc.nodes_[index].text);
                break;
            case 't':
                ok = literal("true", index, Kind::Boolean, true);
                break;
            case 'f':
                ok = literal("false", index, Kind::Boolean, false);
                break;
            case 'n':
                ok = literal("null", index, Kind::Null, false);
                break;
            default:
                ok = number(index);
                break;
        }
        if (!ok) return false;
        Node& n = doc.nodes_[index];
        n.end = offset();
        n.next = static_cast<std::uint32_t>(doc.nodes_.size());
        return true;
    }

    bool literal(std::string_view word, std::uint32_t index, Kind kind, bool boolean) {
        if (static_cast<std::size_t>(end - p) < word.size() ||
            std::string_view(p, word.size()) != word)
            return false;
        p += word.size();
        doc.nodes_[index].kind = kind;
        doc.nodes_[index].boolean = boolean;
        return true;
    }

    bool array(std::uint32_t index, int depth) {
        if (depth > kMaxDepth) return false;
        ++p;
        std::uint32_t count = 0;
        skip_blanks();
        if (!at_end() && *p == ']') {
            ++p;
        } else {
            for (;;) {
                if (!value(depth)) return false;
                ++count;
                skip_blanks();
                if (at_end()) return false;
                const char c = *p++;
                if (c == ']') break;
                if (c != ',') return false;
            }
        }
        doc.nodes_[index].kind = Kind::Array;
        doc.nodes_[index].size = count;
        return true;
    }

    bool object(std::uint32_t index, int depth) {
        if (depth > kMaxDepth) return false;
        ++p;
        std::uint32_t count = 0;
        skip_blanks();
        if (!at_end() && *p == '}') {
            ++p;
        } else {
            for (;;) {
                skip_blanks();
                if (at_end() || *p != '"') return false;
                if (!value(depth)) return false;  // the name: a string
                skip_blanks();
                if (at_end() || *p != ':') return false;
                ++p;
                if (!value(depth)) return false;
                ++count;
                skip_blanks();
                if (at_end()) return false;
                const char c = *p++;
                if (c == '}') break;
                if (c != ',') return false;
            }
        }
        doc.nodes_[index].kind = Kind::Object;
        doc.nodes_[index].size = count;
        return true;
    }

    bool hex4(std::uint32_t& cp) {
        if (end - p < 4) return false;
        cp = 0;
        for (int i = 0; i < 4; ++i) {
            const int d = hex_digit(*p++);
            if (d < 0) return false;
            cp = cp * 16 + static_cast<std::uint32_t>(d);
        }
        return true;
    }

    // From the opening quote past the closing one. A string without escapes is a view of the
    // source; one with escapes is decoded into the document's own storage.
    bool string(std::string_view& out) {
        const char* const start = ++p;
        while (p < end && *p != '"' && *p != '\\') {
            if (static_cast<unsigned char>(*p) < 0x20) return false;
            ++p;
        }
        if (p == end) return false;
        if (*p == '"') {
            out = std::string_view(start, static_cast<std::size_t>(p - start));
            ++p;
            return true;
        }
        std::string& decoded = doc.decoded_.emplace_back(start, p);
        while (p < end) {
            const char c = *p++;
            if (c == '"') {
                out = decoded;
                return true;
            }
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                decoded += c;
                continue;
            }
            if (p == end) return false;
            switch (*p++) {
                case '"':
                    decoded += '"';
                    break;
                case '\\':
                    decoded += '\\';
                    break;
                case '/':
                    decoded += '/';
                    break;
                case 'b':
                    decoded += '\b';
                    break;
                case 'f':
                    decoded += '\f';
                    break;
                case 'n':
                    decoded += '\n';
                    break;
                case 'r':
                    decoded += '\r';
                    break;
                case 't':
                    decoded += '\t';
                    break;
                case 'u': {
                    std::uint32_t cp = 0;
                    if (!hex4(cp)) return false;
                    if (cp >= 0xD800 && cp <= 0xDBFF) {
                        // A high surrogate stands only before a low one.
                        std::uint32_t low = 0;
                        if (end - p < 2 || p[0] != '\\' || p[1] != 'u') return false;
                        p += 2;
                        if (!hex4(low) || low < 0xDC00 || low > 0xDFFF) return false;
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
                        return false;
                    }
                    util::append_utf8(decoded, cp);
                    break;
                }
                default:
                    return false;
            }
        }
        return false;
    }

    bool digits() {
        if (p == end || !is_digit(*p)) return false;
        while (p < end && is_digit(*p))
            ++p;
        return true;
    }

    bool number(std::uint32_t index) {
        const char* const start = p;
        if (*p == '-') ++p;
        if (p == end || !is_digit(*p)) return false;
        if (*p == '0')
            ++p;
        else
            digits();
        bool integral = true;
        if (p < end && *p == '.') {
            integral = false;
            ++p;
            if (!digits()) return false;
        }
        if (p < end && (*p == 'e' || *p == 'E')) {
            integral = false;
            ++p;
            if (p < end && (*p == '+' || *p == '-')) ++p;
            if (!digits()) return false;
        }
        Node& n = doc.nodes_[index];
        if (integral) {
            const auto [at, ec] = std::from_chars(start, p, n.integer);
            if (ec == std::errc{}) {
                n.kind = Kind::Integer;
                return true;
            }
        }
        // Any other number is a double; one beyond a double's range is refused.
        double d = 0;
        const auto [at, ec] = std::from_chars(start, p, d);
        if (ec == std::errc::result_out_of_range)
            d = strtod_of(start, p);
        else if (ec != std::errc{})
            return false;
        if (!std::isfinite(d)) return false;
        n.kind = Kind::Double;
        n.number = d;
        return true;
    }
};

bool JsonDoc::parse(std::string_view text) {
    text_ = text;
    nodes_.clear();
    decoded_.clear();
    Reader reader{*this, text.data(), text.data(), text.data() + text.size()};
    // A byte-order mark may open the text; another byte EF may not.
    if (!text.empty() && text[0] == '\xEF') {
        if (text.substr(0, 3) != "\xEF\xBB\xBF") return false;
        reader.p += 3;
    }
    if (!reader.value(0)) return false;
    reader.skip_blanks();
    return reader.at_end();
}

std::vector<JsonDoc::Member> JsonDoc::members(std::uint32_t object) const {
    std::vector<Member> out;
    out.reserve(nodes_[object].size);
    std::uint32_t name = first(object);
    for (std::uint32_t i = 0; i < nodes_[object].size; ++i) {
        out.push_back({nodes_[name].text, name + 1});
        name = nodes_[name + 1].next;
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const Member& a, const Member& b) { return a.name < b.name; });
    // A name given twice: its last value, in the place of the first.
    std::size_t kept = 0;
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (kept > 0 && out[kept - 1].name == out[i].name)
            out[kept - 1].value = out[i].value;
        else
            out[kept++] = out[i];
    }
    out.resize(kept);
    return out;
}

std::uint32_t JsonDoc::find(std::uint32_t object, std::string_view name) const {
    std::uint32_t found = npos;
    std::uint32_t key = first(object);
    for (std::uint32_t i = 0; i < nodes_[object].size; ++i) {
        if (nodes_[key].text == name) found = key + 1;
        key = nodes_[key + 1].next;
    }
    return found;
}

}  // namespace billdata::server
