#include "billdata/drivers/odbc/sqlserver_error.h"

#include <array>

namespace billdata::drivers::odbc {

namespace {

using ado::ErrorClass;
namespace err = ado::err;

constexpr std::array<SqlServerErrorKind, 10> kKinds = {{
    {1205, ErrorClass::Lock, err::kLockTimeout, true},
    {1222, ErrorClass::Lock, err::kLockTimeout, false},
    {2627, ErrorClass::DuplicateKey, err::kIntegrity, false},
    {2601, ErrorClass::DuplicateKey, err::kIntegrity, false},
    {547, ErrorClass::Other, err::kIntegrity, false},
    {515, ErrorClass::Other, err::kIntegrity, false},
    {8115, ErrorClass::Other, err::kDatabase, false},
    {8134, ErrorClass::Other, err::kDatabase, false},
    {245, ErrorClass::Other, err::kDatabase, false},
    {0, ErrorClass::Other, err::kDatabase, false},
}};

}  // namespace

SqlServerErrorKind sqlserver_error_kind(int native) {
    for (const SqlServerErrorKind& k : kKinds)
        if (k.native == native) return k;
    return SqlServerErrorKind{native, ErrorClass::Other, err::kDatabase, false};
}

std::vector<std::string> quoted_names(std::string_view message) {
    static constexpr std::string_view kOpen = "\xE2\x80\x9C", kClose = "\xE2\x80\x9D";  // “ ”
    std::vector<std::string> names;
    std::size_t i = 0;
    while (i < message.size()) {
        std::size_t end = std::string_view::npos, start = 0;
        if (message[i] == '\'') {
            start = i + 1;
            end = message.find('\'', start);
        } else if (message.substr(i, kOpen.size()) == kOpen) {
            start = i + kOpen.size();
            end = message.find(kClose, start);
        } else {
            ++i;
            continue;
        }
        if (end == std::string_view::npos) break;
        names.emplace_back(message.substr(start, end - start));
        i = end + (message[end] == '\'' ? 1 : kClose.size());
    }
    return names;
}

ado::ComError sqlserver_error(int native, std::string message, bool transaction_open,
                              std::string violated_key) {
    const SqlServerErrorKind kind = sqlserver_error_kind(native);
    while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
        message.pop_back();
    return ado::ComError(kind.number, std::move(message))
        .classify(
            kind.error_class, native,
            kind.error_class == ErrorClass::DuplicateKey ? std::move(violated_key) : std::string(),
            transaction_open && !kind.ends_transaction);
}

}  // namespace billdata::drivers::odbc
