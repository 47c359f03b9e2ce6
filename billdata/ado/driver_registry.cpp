#include <mutex>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/util/text.h"

namespace billdata::ado::driver {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<std::shared_ptr<Driver>> drivers;
};

Registry& registry() {
    static Registry r;
    return r;
}

}  // namespace

void register_driver(std::shared_ptr<Driver> driver) {
    if (!driver) return;
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    for (auto& d : r.drivers) {
        if (d->name() == driver->name()) {  // a later registration replaces the earlier one
            d = std::move(driver);
            return;
        }
    }
    r.drivers.push_back(std::move(driver));
}

std::vector<std::shared_ptr<Driver>> registered_drivers() {
    register_builtin_drivers();
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.drivers;
}

std::shared_ptr<Driver> find_driver(const ConnectionString& cs) {
    register_builtin_drivers();
    {
        Registry& r = registry();
        std::lock_guard lock(r.mutex);
        for (const auto& d : r.drivers)
            if (d->accepts(cs)) return d;
    }
    if (cs.has("provider"))
        throw ComError(err::kConnection,
                       "unknown provider '" + util::excerpt(cs.get("provider")) + "'");
    if (cs.has("driver"))
        throw ComError(err::kConnection,
                       "unknown driver '" + util::excerpt(cs.get("driver")) + "'");
    throw ComError(err::kConnection, "the connection string names no provider");
}

ComError timeout_error(int native_code, bool transaction_open) {
    return ComError::platform(err::kTimeout)
        .classify(ErrorClass::Timeout, native_code, {}, transaction_open);
}

ComError read_only_refusal() {
    return ComError(err::kDatabase,
                    "this record set is read-only: a statement that writes is not run here");
}

ComError translation_refusal(const char* what, int server_number, bool in_transaction) {
    ComError error(err::kDatabase, what);
    if (server_number) error.classify(ErrorClass::Other, server_number, {}, in_transaction);
    return error;
}

}  // namespace billdata::ado::driver
