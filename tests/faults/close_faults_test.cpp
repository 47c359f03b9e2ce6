// A failure that arrives only when an operation lets its connection go: work committed in
// autocommit is synced to disk at that moment, and a sync that fails there is the caller's to
// hear of, as the same failure at a commit is.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "billdata/sfkdata/sfkdata.h"
#include "common/fixture.h"
#include "support/io_faults.h"

namespace billdata::testing {
namespace {

using ado::DateTime;
using faults::Target;

class CloseFaults : public DatabaseTest {
  protected:
    void TearDown() override {
        faults::reset();
        DatabaseTest::TearDown();
    }
};

TEST_F(CloseFaults, FailedSyncAtReleaseReachesTheCaller) {
    std::string no;
    SFKData().SaveData(13, DateTime(2025, 3, 9), no, 1, 102, 2, 60, 0.5, "memo", 1, 0, 0, 0);
    const std::int32_t id = scalar("select max(FInterID) from WLBill").to_int32();
    exec("update WLBill set FDeleted=1 where FInterID=" + std::to_string(id));

    // Restoring writes one statement in autocommit; the log is synced when it lets go.
    faults::arm(Target::Sync, 1, SQLITE_IOERR_FSYNC);
    EXPECT_THROW(SFKData().UnblankOut(id), ado::ComError);
    EXPECT_TRUE(faults::shot().fired);
    faults::disarm();

    // Without the fault the same operation goes through on a connection that can be trusted.
    SFKData().UnblankOut(id);
    EXPECT_EQ(scalar("select FDeleted from WLBill where FInterID=" + std::to_string(id)).to_int32(),
              0);
}

}  // namespace
}  // namespace billdata::testing
