// What the program says of itself: its version with the engines it reaches, and a manual page
// that tells what --help tells.
#include <gtest/gtest.h>

#include <string>

#include "billdata/ado/version.h"
#include "tools/cli_run.h"

namespace billdata::testing {
namespace {

TEST(Explain, VersionNamesTheLibraryAndEveryDriverWithItsEngine) {
    const CliRun r = run_cli("--version");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, version_text());
    EXPECT_EQ(r.out.rfind("billdata " + version() + "\n", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("\ndriver sqlite: SQLite 3."), std::string::npos) << r.out;
}

TEST(Explain, ManualPageHoldsEveryCommandAndTheHelpFooter) {
    const CliRun page = run_cli("--manual-page");
    ASSERT_EQ(page.status, 0) << page.out;
    const CliRun help = run_cli("--help");
    for (const char* command : {"init", "sql", "translate", "call", "batch", "demo", "describe"}) {
        EXPECT_NE(help.out.find(std::string("  ") + command + " "), std::string::npos) << command;
        EXPECT_NE(page.out.find(std::string("\n.SS billdata ") + command), std::string::npos)
            << command;
    }
    // The footer of --help, a paragraph per line, as text (dashes escaped for roff).
    EXPECT_NE(page.out.find(".SH NOTES\n.PP\nEnvironment: BILLDATA_DB is the database of a "
                            "command given no \\-\\-db;"),
              std::string::npos)
        << page.out;
    EXPECT_EQ(page.out.find('\0'), std::string::npos);
}

}  // namespace
}  // namespace billdata::testing
