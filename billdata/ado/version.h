#pragma once
// What this build of the library is: its version, the engines it reaches and their versions.

#include <string>
#include <vector>

namespace billdata {

// The library's version, "MAJOR.MINOR.PATCH".
std::string version();

struct DriverVersion {
    std::string name;            // as connection strings select it ("sqlite")
    std::string engine_version;  // "SQLite 3.40.1"; "" when the engine is a server of its own
};

struct VersionInfo {
    std::string library;                 // version()
    std::vector<DriverVersion> drivers;  // the drivers compiled in, in registration order
};
VersionInfo version_info();

// The same as lines of text, as `billdata --version` prints them:
//   billdata 0.1.0
//   driver sqlite: SQLite 3.40.1
std::string version_text();

}  // namespace billdata
