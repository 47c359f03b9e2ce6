#pragma once
// Runs the billdata program as a person or a script runs it, and collects what it printed.

#include <gtest/gtest.h>

#include <string>

#include "support/program.h"
#include "support/server_db.h"

namespace billdata::testing {

using CliRun = Outcome;  // standard output and standard error together

// `args` is appended to the program's path on a shell command line, so quote paths in it.
inline CliRun run_cli(const std::string& args) {
    return shell(std::string(BILLDATA_CLI) + " " + args, true);
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
