#include <algorithm>
#include <charconv>
#include <utility>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/util/text.h"

namespace billdata::ado {

namespace {

using util::is_blank;
using util::trim;

std::string lower(std::string_view s) {
    return util::lower_copy(s);
}

// Keywords compare without case and with runs of blanks taken as one ("Data  Source").
std::string normalise_keyword(std::string_view key) {
    std::string out;
    bool blank = false;
    for (char c : trim(key)) {
        if (is_blank(c)) {
            blank = true;
            continue;
        }
        if (blank) out += ' ';
        blank = false;
        out += c;
    }
    return lower(out);
}

ComError bad_string(const std::string& why) {
    return ComError(err::kConnection, "invalid connection string: " + why);
}

bool ends_with_db(std::string_view s) {
    return s.size() > 3 && lower(s.substr(s.size() - 3)) == ".db";
}

// Splits `keyword=value;…` into pairs in their written order, keywords as written.
std::vector<std::pair<std::string, std::string>> split_pairs(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t eq = pos;
        while (eq < text.size() && text[eq] != '=' && text[eq] != ';')
            ++eq;
        std::string_view key = trim(text.substr(pos, eq - pos));
        if (eq >= text.size() || text[eq] == ';') {
            if (!key.empty()) throw bad_string("'" + util::excerpt(key) + "' has no '=value'");
            pos = eq + 1;
            continue;
        }
        if (key.empty()) throw bad_string("a value has no keyword");
        pos = eq + 1;
        while (pos < text.size() && is_blank(text[pos]))
            ++pos;
        std::string value;
        if (pos < text.size() && (text[pos] == '"' || text[pos] == '\'')) {
            // A quoted value runs to the matching quote; a doubled quote stands for itself.
            const char quote = text[pos++];
            bool closed = false;
            while (pos < text.size()) {
                if (text[pos] == quote) {
                    if (pos + 1 < text.size() && text[pos + 1] == quote) {
                        value += quote;
                        pos += 2;
                        continue;
                    }
                    ++pos;
                    closed = true;
                    break;
                }
                value += text[pos++];
            }
            if (!closed)
                throw bad_string("the value of '" + util::excerpt(key) + "' has no closing quote");
            while (pos < text.size() && is_blank(text[pos]))
                ++pos;
            if (pos < text.size() && text[pos] != ';')
                throw bad_string("text after the quoted value of '" + util::excerpt(key) + "'");
        } else {
            std::size_t end = text.find(';', pos);
            if (end == std::string_view::npos) end = text.size();
            value = std::string(trim(text.substr(pos, end - pos)));
            pos = end;
        }
        ++pos;  // the ';'
        pairs.emplace_back(std::string(key), std::move(value));
    }
    return pairs;
}

}  // namespace

ConnectionString ConnectionString::parse(std::string_view text) {
    ConnectionString cs;
    cs.text_ = std::string(text);
    // Every layer below reads a value up to its first NUL: "Driver=:\0x" would name ':' there.
    if (text.find('\0') != std::string_view::npos) throw bad_string("it holds a NUL character");
    // The drivers hand it on as UTF-16, where a byte that is no character would be lost.
    if (util::invalid_utf8_at(text) != std::string_view::npos)
        throw bad_string("it is not UTF-8 text");
    std::string_view body = trim(text);
    if (body.empty()) throw bad_string("the text is empty");
    const std::string head = lower(body.substr(0, 13));
    if (head.rfind("postgresql://", 0) == 0 || head.rfind("postgres://", 0) == 0) {
        // A server's URI, read by its driver as a whole.
        cs.items_["provider"] = "PostgreSQL";
        cs.items_["uri"] = std::string(body);
        return cs;
    }
    if (body.find('=') == std::string_view::npos && ends_with_db(body)) {
        cs.items_["provider"] = "SQLite";
        cs.items_["data source"] = std::string(body);
        return cs;
    }
    for (auto& [key, value] : split_pairs(body))
        cs.items_[normalise_keyword(key)] = value;
    return cs;
}

std::string ConnectionString::get(std::string_view keyword, std::string_view fallback) const {
    auto it = items_.find(normalise_keyword(keyword));
    return it == items_.end() ? std::string(fallback) : it->second;
}

bool ConnectionString::has(std::string_view keyword) const {
    return items_.count(normalise_keyword(keyword)) != 0;
}

void ConnectionString::require_known(const std::vector<std::string>& known) const {
    std::string_view body = trim(text_);
    if (body.find('=') == std::string_view::npos) return;  // a bare path names no keyword
    if (items_.count("uri")) return;                       // a URI's own parameters
    for (const auto& pair : split_pairs(body)) {
        const std::string key = normalise_keyword(pair.first);
        if (key == "command timeout") continue;  // the data layer's own, on every engine
        if (std::find(known.begin(), known.end(), key) == known.end())
            throw ComError(err::kConnection, "unknown keyword '" + util::excerpt(pair.first) +
                                                 "' in the connection string");
    }
}

long ConnectionString::command_timeout() const {
    if (!has("command timeout")) return kDefaultCommandTimeout;
    const std::string value = get("command timeout");
    long seconds = 0;
    auto r = std::from_chars(value.data(), value.data() + value.size(), seconds);
    if (value.empty() || r.ec != std::errc() || r.ptr != value.data() + value.size() || seconds < 0)
        throw ComError(err::kConnection,
                       "Command Timeout must be a whole number of seconds (0 for no limit), not '" +
                           util::excerpt(value) + "'");
    return seconds;
}

}  // namespace billdata::ado
