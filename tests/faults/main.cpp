// The fault tests wrap the engine's allocator, which can only be swapped before the engine is
// first used: before anything else in the program.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "support/io_faults.h"

int main(int argc, char** argv) {
    // Thousands of saves, each syncing its log: on files in memory they take seconds, not
    // minutes. The syncs still reach the file layer and are counted and failed there.
    if (!std::getenv("TMPDIR") && ::access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
    billdata::testing::faults::install_allocator();
    billdata::testing::faults::install_vfs();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
