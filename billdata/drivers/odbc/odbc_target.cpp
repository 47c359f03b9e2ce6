#include "billdata/drivers/odbc/odbc_target.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>

#include "billdata/drivers/connection_options.h"
#include "billdata/util/text.h"

namespace billdata::drivers::odbc {

namespace {

using ado::ComError;
namespace err = ado::err;

// Read by this library on every ODBC connection, never passed to the ODBC driver.
constexpr std::array<std::string_view, 7> kOwnKeywords = {
    "dialect", "connect timeout", "busy timeout",   "lock timeout",
    "pooling", "statement cache", "command timeout"};

bool own_keyword(std::string_view key) {
    return std::find(kOwnKeywords.begin(), kOwnKeywords.end(), key) != kOwnKeywords.end();
}

bool sqlserver_provider(const std::string& provider) {
    const std::string p = util::lower_copy(provider);
    return p == "sqloledb" || p.rfind("sqloledb.", 0) == 0 || p.rfind("sqlncli", 0) == 0 ||
           p.rfind("msoledbsql", 0) == 0;
}

// A value as the ODBC syntax needs it: in braces when it holds what would end or open one.
std::string odbc_value(const std::string& v) {
    if (v.find_first_of(";{}=") == std::string::npos && v == util::trim(v)) return v;
    std::string out = "{";
    for (char c : v) {
        out += c;
        if (c == '}') out += '}';
    }
    return out + "}";
}

std::string unbraced(const std::string& v) {
    return v.size() >= 2 && v.front() == '{' && v.back() == '}' ? v.substr(1, v.size() - 2) : v;
}

// A driver is named by its entry in the driver manager's list or by its library's path: a value
// with neither letter nor digit is neither, and the driver manager would try to load a library
// of that name (one of only ':' and '/' aborts the process inside its loader).
void check_driver(const std::string& driver) {
    if (std::none_of(driver.begin(), driver.end(),
                     [](unsigned char c) { return std::isalnum(c) != 0 || c >= 0x80; }))
        throw ComError(err::kConnection, "the connection string's Driver '" +
                                             util::excerpt(driver) + "' names no ODBC driver");
}

std::string from_oledb(const ado::ConnectionString& cs, std::string& where) {
    for (const char* integrated : {"integrated security", "trusted_connection"})
        if (cs.has(integrated))
            throw ComError(err::kConnection,
                           "Windows authentication is not available here: give User ID and "
                           "Password");
    cs.require_known({"provider", "data source", "server", "initial catalog", "database", "user id",
                      "uid", "password", "pwd", "driver", "persist security info",
                      "application name", "dialect", "connect timeout", "busy timeout",
                      "lock timeout", "pooling", "statement cache"});
    std::string source = cs.has("data source") ? cs.get("data source") : cs.get("server");
    if (util::trim(source).empty())
        throw ComError(err::kConnection, "the connection string names no Data Source (server)");
    source = std::string(util::trim(source));
    if (util::lower_copy(source.substr(0, 4)) == "tcp:") source = source.substr(4);
    std::string host = source, port;
    if (auto comma = source.find(','); comma != std::string::npos) {
        host = std::string(util::trim(source.substr(0, comma)));
        port = std::string(util::trim(source.substr(comma + 1)));
        int n = 0;
        auto r = std::from_chars(port.data(), port.data() + port.size(), n);
        if (port.empty() || r.ec != std::errc() || r.ptr != port.data() + port.size() || n <= 0 ||
            n > 65535)
            throw ComError(err::kConnection, "the port in Data Source must be a number, not '" +
                                                 util::excerpt(port) + "'");
    }
    // "(local)" and "." are the machine itself.
    if (host == "." || util::iequals(host, "(local)")) host = "127.0.0.1";
    const std::string driver = cs.has("driver") ? unbraced(cs.get("driver")) : "FreeTDS";
    check_driver(driver);
    std::string out = "Driver={" + driver + "};Server=" + odbc_value(host);
    if (!port.empty()) out += ";Port=" + port;
    if (cs.has("initial catalog") || cs.has("database"))
        out += ";Database=" + odbc_value(cs.has("initial catalog") ? cs.get("initial catalog")
                                                                   : cs.get("database"));
    if (cs.has("user id") || cs.has("uid"))
        out += ";UID=" + odbc_value(cs.has("user id") ? cs.get("user id") : cs.get("uid"));
    if (cs.has("password") || cs.has("pwd"))
        out += ";PWD=" + odbc_value(cs.has("password") ? cs.get("password") : cs.get("pwd"));
    if (cs.has("application name")) out += ";APP=" + odbc_value(cs.get("application name"));
    // The TDS version of SQL Server 2008 and later, and the texts in UTF-8 both ways.
    if (util::iequals(driver, "FreeTDS")) out += ";TDS_Version=7.4;ClientCharset=UTF-8";
    where = "ODBC driver '" + driver + "' at server '" + source + "'";
    return out;
}

std::string from_odbc(const ado::ConnectionString& cs, std::string& where) {
    // With both, the driver manager would use whichever comes first and ignore the other (and
    // leaks memory on the way): the string must say which it means.
    if (cs.has("driver") && cs.has("dsn"))
        throw ComError(err::kConnection,
                       "the connection string names both a DSN and a Driver: give one of them");
    if (cs.has("driver")) check_driver(unbraced(cs.get("driver")));
    if (cs.has("dsn")) {
        // A data source name has at most 32 characters in ODBC; the driver manager leaks memory
        // on a longer one before it fails.
        const std::string dsn = unbraced(cs.get("dsn"));
        const auto characters = std::count_if(dsn.begin(), dsn.end(), [](char c) {
            return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        });
        if (characters > 32)
            throw ComError(err::kConnection, "the DSN '" + util::excerpt(dsn) +
                                                 "' is longer than the 32 characters a data "
                                                 "source name may have");
    }
    std::string out;
    for (const auto& [key, value] : cs.items()) {
        if (own_keyword(key)) continue;
        if (!out.empty()) out += ';';
        out += key + "=" + (value.size() >= 2 && value.front() == '{' ? value : odbc_value(value));
    }
    if (cs.has("dsn")) {
        where = "ODBC data source '" + cs.get("dsn") + "'";
    } else {
        where = "ODBC driver '" + unbraced(cs.get("driver")) + "'";
        for (const char* server : {"servername", "server", "host"})
            if (cs.has(server)) {
                where += " at server '" + cs.get(server) + "'";
                if (cs.has("port")) where += " port " + cs.get("port");
                break;
            }
    }
    return out;
}

}  // namespace

bool accepts(const ado::ConnectionString& cs) {
    if (cs.has("provider")) return sqlserver_provider(cs.get("provider"));
    return cs.has("driver") || cs.has("dsn");
}

OdbcTarget odbc_target(const ado::ConnectionString& cs) {
    OdbcTarget t;
    if (cs.has("dialect")) {
        std::string d = util::lower_copy(cs.get("dialect"));
        d.erase(std::remove(d.begin(), d.end(), ' '), d.end());
        if (d == "sqlserver" || d == "mssql" || d == "t-sql" || d == "tsql")
            t.dialect = Dialect::SqlServer;
        else if (d == "postgresql" || d == "postgres")
            t.dialect = Dialect::PostgreSql;
        else
            throw ComError(err::kConnection, "Dialect must be SQL Server or PostgreSQL, not '" +
                                                 util::excerpt(cs.get("dialect")) + "'");
    }
    t.connect_timeout_s =
        whole_option(cs, "connect timeout", kDefaultConnectTimeoutSeconds, "seconds");
    t.busy_ms = whole_option(cs, "busy timeout", kDefaultBusyTimeoutMs, "milliseconds");
    check_lock_timeout(cs);
    t.pooling = switch_option(cs, "pooling");
    t.cache = switch_option(cs, "statement cache");
    cs.command_timeout();  // a bad value is refused here, before anything connects
    t.odbc = cs.has("provider") ? from_oledb(cs, t.where) : from_odbc(cs, t.where);
    // PostgreSQL's ODBC driver reads a whole result into memory unless it reads through a
    // cursor, a block of rows at a time: a list must stream.
    if (t.dialect == Dialect::PostgreSql && !cs.has("usedeclarefetch"))
        t.odbc += ";UseDeclareFetch=1;Fetch=" + std::to_string(kFetchBlock);
    return t;
}

}  // namespace billdata::drivers::odbc
