#pragma once
// The keywords every server driver reads the same way, and the process-wide switches.

#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/util/text.h"

namespace billdata::drivers {

// True|False (also yes/no, 1/0), `true` when absent; ComError (err::kConnection) naming the value
// otherwise.
inline bool switch_option(const ado::ConnectionString& cs, std::string_view keyword) {
    if (!cs.has(keyword)) return true;
    const std::string v = util::lower_copy(cs.get(keyword));
    if (v == "true" || v == "yes" || v == "1") return true;
    if (v == "false" || v == "no" || v == "0") return false;
    throw ado::ComError(ado::err::kConnection, std::string(keyword) +
                                                   " must be True or False, not '" +
                                                   util::excerpt(cs.get(keyword)) + "'");
}

// A whole number of `unit`, `fallback` when absent; ComError (err::kConnection) naming the value
// otherwise.
inline int whole_option(const ado::ConnectionString& cs, std::string_view keyword, int fallback,
                        const char* unit) {
    if (!cs.has(keyword)) return fallback;
    const std::string v = cs.get(keyword);
    int n = 0;
    auto r = std::from_chars(v.data(), v.data() + v.size(), n);
    if (v.empty() || r.ec != std::errc() || r.ptr != v.data() + v.size() || n < 0)
        throw ado::ComError(ado::err::kConnection, std::string(keyword) +
                                                       " must be a whole number of " + unit +
                                                       ", not '" + util::excerpt(v) + "'");
    return n;
}

// Lock Timeout is the service layer's; a driver only refuses a value that is not seconds.
inline void check_lock_timeout(const ado::ConnectionString& cs) {
    if (!cs.has("lock timeout")) return;
    double seconds = 0;
    if (!ado::Variant::parse_number(cs.get("lock timeout"), seconds) || seconds < 0)
        throw ado::ComError(ado::err::kConnection,
                            "Lock Timeout must be a number of seconds, not '" +
                                util::excerpt(cs.get("lock timeout")) + "'");
}

// Whether an environment variable switches a feature off for the whole process
// (BILLDATA_POOLING=off, BILLDATA_STATEMENT_CACHE=off).
inline bool switched_off(const char* variable) {
    const char* v = std::getenv(variable);
    return v && (util::iequals(v, "off") || util::iequals(v, "0") || util::iequals(v, "false"));
}

// The counters that a transaction reads and then raises: a server driver locks what such a read
// reads until the transaction ends.
inline bool is_counter_table(std::string_view table) {
    return util::iequals(table, "ICMaxNum") || util::iequals(table, "ICBillNo");
}

}  // namespace billdata::drivers
