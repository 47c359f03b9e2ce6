// The drivers that ship with the library. They are registered explicitly, once, before the
// first lookup: a self-registering object in a static library would be dropped by the linker.
#include <mutex>

#include "billdata/ado/driver.h"
#include "billdata/drivers/odbc/odbc_driver.h"
#include "billdata/drivers/postgresql/postgresql_driver.h"
#include "billdata/drivers/sqlite/sqlite_driver.h"

namespace billdata::ado::driver {

void register_builtin_drivers() {
    static std::once_flag once;
    std::call_once(once, [] {
        register_driver(drivers::sqlite::make_driver());
        register_driver(drivers::postgresql::make_driver());
        register_driver(drivers::odbc::make_driver());
    });
}

}  // namespace billdata::ado::driver
