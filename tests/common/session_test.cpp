#include "billdata/common/session.h"

#include <thread>

#include "billdata/common/handlers.h"
#include "fixture.h"

namespace billdata::testing {
namespace {

TEST_F(DatabaseTest, SessionIsPerThreadAndLastInitWins) {
    common::init_session("first", 2024, 1);
    common::init_session("second", 2025, 7);
    EXPECT_EQ(common::GetPromptString(), "second");
    EXPECT_EQ(common::session().CurYear, 2025);
    EXPECT_EQ(common::session().CurPeriod, 7);

    std::string seen_elsewhere = "unset";
    std::thread([&] { seen_elsewhere = common::GetPromptString(); }).join();
    EXPECT_EQ(seen_elsewhere, "");
}

// That the value is kept for the session is checked by the costing that reads it.
TEST_F(DatabaseTest, CostStyleIsTheSettingPlusOneRoundedHalfToEven) {
    EXPECT_EQ(common::GetCostStyle(), 1);  // no setting
    // 1.5 + 1 = 2.5 gives 2.
    exec("insert into t_SystemProfile(FKey,FValue) values('CostStyle','1.5')");
    common::session().CostStyle = 0;
    EXPECT_EQ(common::GetCostStyle(), 2);
    // "-1" gives 0, which is read again at the next call.
    exec("update t_SystemProfile set FValue='-1' where FKey='CostStyle'");
    common::session().CostStyle = 0;
    EXPECT_EQ(common::GetCostStyle(), 0);
    exec("update t_SystemProfile set FValue='0' where FKey='CostStyle'");
    EXPECT_EQ(common::GetCostStyle(), 1);
}

TEST_F(DatabaseTest, CommonHandlerRaisesDatabaseErrorsAsComponentErrors) {
    auto cn = open();
    common::Executor ex(cn, common::Handler::Common);
    const ado::ComError e = error_of([&] {
        common::guarded(common::Handler::Common,
                        [&] { ex.execute("update NoSuchTable set FValue=1"); });
    });
    EXPECT_EQ(e.number(), ado::err::kComponent);
    EXPECT_FALSE(e.description().empty());
    // The component's own refusals pass unchanged; with no handler errors keep their number.
    expect_com_error(
        [] {
            common::guarded(common::Handler::Common, [] { throw ado::ComError::component("x"); });
        },
        ado::err::kComponent, "x");
    expect_com_error(
        [] {
            common::guarded(common::Handler::None,
                            [] { throw ado::ComError::platform(ado::err::kOverflow); });
        },
        ado::err::kOverflow, "溢出");
}

// That lock waits are retried until the other writer commits is checked by the tills' removals.
TEST_F(DatabaseTest, ALockWaitPastTheLockTimeoutIsAComponentError) {
    auto blocker = ado::Connection::create();
    blocker->Open(connection_string() + ";Busy Timeout=50");
    blocker->BeginTrans();
    blocker->Execute("update t_SystemProfile set FValue=FValue where FKey='ICClosed'");
    auto impatient = ado::Connection::create();
    impatient->Open(connection_string() + ";Busy Timeout=50;Lock Timeout=0");
    common::Executor quick(impatient, common::Handler::Common);
    EXPECT_EQ(
        error_of([&] {
            common::guarded(common::Handler::Common, [&] {
                quick.begin();
                quick.execute("update t_SystemProfile set FValue=FValue where FKey='ICClosed'");
            });
        }).number(),
        ado::err::kComponent);
    blocker->RollbackTrans();
}

// That a clash on the interior id draws a fresh one is checked by the bill classes' saves.
TEST_F(DatabaseTest, ADuplicateOnAnotherKeyIsRaisedNotRetried) {
    auto cn = open();
    common::Executor ex(cn, common::Handler::DuplicateKey);
    int draws = 0;
    ex.on_duplicate_interior_id([&] { ++draws; });
    exec("insert into ICBillNo(FTranType,FDate,FMaxNum) values(11,'2025-03-01',1)");
    EXPECT_THROW(ex.execute("insert into ICBillNo(FTranType,FDate,FMaxNum) "
                            "values(11,'2025-03-01',2)"),
                 ado::ComError);
    EXPECT_EQ(draws, 0);
}

}  // namespace
}  // namespace billdata::testing
