#include "support/test_support.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <system_error>

#include <unistd.h>

namespace billdata::testing {

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    path_ = std::filesystem::temp_directory_path() /
            ("billdata-test-" + std::to_string(::getpid()) + "-" + std::to_string(stamp) + "-" +
             std::to_string(counter++));
    std::filesystem::create_directories(path_);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::vector<std::string> load_statement_corpus() {
    std::ifstream in(std::string(BILLDATA_SOURCE_DIR) + "/tests/data/statements.sql");
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line.rfind("--", 0) != 0) out.push_back(line);
    return out;
}

ado::ComError error_of(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const ado::ComError& e) {
        return e;
    }
    return ado::ComError();
}

long resident_bytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

}  // namespace billdata::testing
