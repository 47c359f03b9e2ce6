// A save that fails and then cannot roll back either (the memory is gone for good): the caller
// hears of both, and once the memory is back the database holds nothing of the save.
#include <gtest/gtest.h>

#include <string>

#include "billdata/credit/credit.h"
#include "common/fixture.h"
#include "support/io_faults.h"

namespace billdata::testing {
namespace {

using ado::DateTime;
using faults::Target;

class RollbackFaults : public DatabaseTest {
  protected:
    void TearDown() override {
        faults::reset();
        DatabaseTest::TearDown();
    }
};

bool lend_two_socks() {
    auto lines = ado::make_recordset(
        {"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice", "FRetailAmount",
         "FZkRate", "FMemo", "FUnitCost", "FRefInterID", "FRefEntryID"},
        {{7, "0", 2, 12, 24, 24, 48, 0.5, "", 6, 0, 0}});
    std::shared_ptr<ado::Recordset> cells;
    std::string no;
    std::int32_t id = 0;
    return Credit().SaveData(27, DateTime(2025, 3, 9), no, 2, 1001, "刘洋", "13800000001", "", 1,
                             id, lines, cells);
}

TEST_F(RollbackFaults, AFailedRollbackIsAttachedToTheErrorAndNothingIsKept) {
    // The allocations of one whole save, counted on a save that goes through (after a first one
    // that loaded the schema and prepared the statements).
    ASSERT_TRUE(lend_two_socks());
    faults::reset();
    ASSERT_TRUE(lend_two_socks());
    const std::int64_t allocations = faults::counts().allocations;
    const std::string bills = "select count(*) from ICStockBill";
    const std::int32_t before = scalar(bills).to_int32();

    int attached = 0;
    ASSERT_GT(allocations, 20);
    for (std::int64_t n = 1; n < allocations; n += allocations / 20) {
        faults::arm_onward(Target::Allocation, n, 0);
        std::string cleanup;
        bool failed = false;
        try {
            lend_two_socks();
        } catch (const ado::ComError& e) {
            failed = true;
            cleanup = e.cleanup_failure();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        faults::disarm();
        if (!failed) continue;
        if (!cleanup.empty()) ++attached;
        ASSERT_EQ(scalar(bills).to_int32(), before) << "fault at allocation " << n;
    }
    // Where the rollback needed memory too, its failure reached the caller with the error.
    EXPECT_GT(attached, 0);
    ASSERT_TRUE(lend_two_socks());
    EXPECT_EQ(scalar(bills).to_int32(), before + 1);
}

}  // namespace
}  // namespace billdata::testing
