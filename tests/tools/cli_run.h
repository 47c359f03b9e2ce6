#pragma once
// Runs the billdata program as a person or a script runs it, and collects what it printed.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "support/server_db.h"

namespace billdata::testing {

struct CliRun {
    int status = -1;
    std::string out;  // standard output and standard error together
};

// `args` is appended to the program's path on a shell command line, so quote paths in it.
inline CliRun run_cli(const std::string& args) {
    CliRun r;
    std::string command = std::string(BILLDATA_CLI) + " " + args + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return r;
    std::array<char, 4096> buffer{};
    size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        r.out.append(buffer.data(), n);
    int status = ::pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

// The cases that run on the run's engine (a file, or with BILLDATA_TEST_ENGINE=postgresql, odbc or
// sqlserver a database on the tests' server, see EngineDatabase): skipped with the reason when the
// run is the server's and no server is configured.
class EngineCase : public ::testing::Test {
  protected:
    void SetUp() override {
        if (const std::string why = missing_test_server(); !why.empty()) GTEST_SKIP() << why;
    }
};

}  // namespace billdata::testing
