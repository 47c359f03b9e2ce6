#include "billdata/common/audit.h"
#include "billdata/billcore/bill_kinds.h"

#include "fixture.h"

namespace billdata::testing {
namespace {

class AuditTest : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        if (IsSkipped()) return;
        exec(
            "insert into ICOrder(FInterID,FTranType,FDate,FCheckerID) values(12,21,'2025-03-01',0)");
        exec(
            "insert into ICOrder(FInterID,FTranType,FDate,FCheckerID) values(15,11,'2025-03-01',0)");
    }
};

// Which table each kind's mark goes to is checked through PublicData's CheckBill; here, what the
// list of ids may hold.
TEST_F(AuditTest, EmptyListIsRefusedByTheDatabase) {
    const ado::ComError e = error_of([] { billcore::SetCheckMark(11, "", 3); });
    EXPECT_EQ(e.number(), ado::err::kComponent);
    EXPECT_FALSE(e.description().empty());
    EXPECT_EQ(scalar("select isnull(FCheckerID,0) from ICOrder where FInterID=15").to_int32(), 0);
    // A second statement smuggled into the list is refused whole.
    EXPECT_THROW(billcore::SetCheckMark(11, "15) delete from ICOrder where (1=1", 3),
                 ado::ComError);
    EXPECT_EQ(scalar("select count(*) from ICOrder").to_int32(), 2);
}

TEST_F(AuditTest, StockQuantitySeesTheCallersUncommittedRows) {
    auto cn = open();
    cn->BeginTrans();
    cn->Execute(
        "insert into ICStockBill(FInterID,FTranType,FDate,FInStockID) "
        "values(100,112,'2025-03-02',1)");
    cn->Execute("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(100,1,9,5)");
    EXPECT_DOUBLE_EQ(common::GetStockQty(cn, 1, 9, 0), 5.0);
    cn->RollbackTrans();
    EXPECT_DOUBLE_EQ(common::GetStockQty(cn, 1, 9, 0), 0.0);
}

}  // namespace
}  // namespace billdata::testing
