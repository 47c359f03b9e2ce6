// Stand-in for the runtime registration until the real one is merged: only the two collations
// that the schema declares, so that the DDL can run.
#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <string_view>

#include "billdata/drivers/sqlite/tsql_runtime.h"

namespace billdata::drivers::sqlite {

namespace {

std::string_view trim_right(std::string_view s) {
    while (!s.empty() && s.back() == ' ')
        s.remove_suffix(1);
    return s;
}

int bdtext_compare(void*, int n1, const void* p1, int n2, const void* p2) {
    auto a = trim_right({static_cast<const char*>(p1), static_cast<std::size_t>(n1)});
    auto b = trim_right({static_cast<const char*>(p2), static_cast<std::size_t>(n2)});
    std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        int x = std::tolower(static_cast<unsigned char>(a[i]));
        int y = std::tolower(static_cast<unsigned char>(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

bool digits(std::string_view s, std::size_t pos, std::size_t n, int& out) {
    if (pos + n > s.size()) return false;
    out = 0;
    for (std::size_t i = pos; i < pos + n; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(s[i]))) return false;
        out = out * 10 + (s[i] - '0');
    }
    return true;
}

std::optional<std::string> date_key(std::string_view s) {
    int y = 0, m = 0, d = 0, hh = 0, mi = 0, ss = 0;
    std::size_t pos = 0;
    if (!digits(s, 0, 4, y)) return std::nullopt;
    if (s.size() > 4 && (s[4] == '-' || s[4] == '/')) {
        char sep = s[4];
        if (!digits(s, 5, 2, m) || s.size() < 8 || s[7] != sep || !digits(s, 8, 2, d))
            return std::nullopt;
        pos = 10;
    } else {
        if (!digits(s, 4, 2, m) || !digits(s, 6, 2, d)) return std::nullopt;
        pos = 8;
    }
    if (pos < s.size()) {
        if (s[pos] != ' ' && s[pos] != 'T') return std::nullopt;
        if (!digits(s, pos + 1, 2, hh) || s.size() < pos + 4 || s[pos + 3] != ':' ||
            !digits(s, pos + 4, 2, mi))
            return std::nullopt;
        pos += 6;
        if (pos < s.size() && s[pos] == ':') {
            if (!digits(s, pos + 1, 2, ss)) return std::nullopt;
            pos += 3;
            if (pos < s.size() && s[pos] == '.') pos = s.size();
        }
        if (pos != s.size()) return std::nullopt;
    }
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d%02d%02d%02d%02d%02d", y, m, d, hh, mi, ss);
    return std::string(buf);
}

int bddate_compare(void*, int n1, const void* p1, int n2, const void* p2) {
    std::string_view a{static_cast<const char*>(p1), static_cast<std::size_t>(n1)};
    std::string_view b{static_cast<const char*>(p2), static_cast<std::size_t>(n2)};
    auto ka = date_key(a), kb = date_key(b);
    if (ka && kb) return ka->compare(*kb) < 0 ? -1 : (*ka == *kb ? 0 : 1);
    if (ka) return -1;
    if (kb) return 1;
    int c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

}  // namespace

int register_tsql_runtime(sqlite3* db) {
    int rc = sqlite3_create_collation(db, "BDTEXT", SQLITE_UTF8, nullptr, bdtext_compare);
    if (rc != SQLITE_OK) return rc;
    return sqlite3_create_collation(db, "BDDATE", SQLITE_UTF8, nullptr, bddate_compare);
}

}  // namespace billdata::drivers::sqlite
