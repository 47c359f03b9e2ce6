#include "billdata/ado/version.h"

#include "billdata/ado/driver.h"

namespace billdata {

std::string version() {
    return BILLDATA_VERSION;
}

VersionInfo version_info() {
    VersionInfo info{version(), {}};
    for (const auto& d : ado::driver::registered_drivers())
        info.drivers.push_back({d->name(), d->engine_version()});
    return info;
}

std::string version_text() {
    const VersionInfo info = version_info();
    std::string text = "billdata " + info.library + "\n";
    for (const auto& d : info.drivers) {
        text += "driver " + d.name;
        if (!d.engine_version.empty()) text += ": " + d.engine_version;
        text += "\n";
    }
    return text;
}

}  // namespace billdata
