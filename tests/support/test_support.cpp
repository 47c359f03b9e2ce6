#include "support/test_support.h"

#include <atomic>
#include <chrono>
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

}  // namespace billdata::testing
