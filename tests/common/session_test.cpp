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

TEST_F(DatabaseTest, CostStyleIsReadOnceAndRounded) {
    // No setting gives 1, and the value is cached: a later setting is not seen on this thread.
    EXPECT_EQ(common::GetCostStyle(), 1);
    exec("insert into t_SystemProfile(FKey,FValue) values('CostStyle','1')");
    EXPECT_EQ(common::GetCostStyle(), 1);
    // A fresh thread reads it: "1" gives 2.
    std::int16_t other = 0;
    std::thread([&] {
        common::init_session(connection_string(), 2025, 3);
        other = common::GetCostStyle();
    }).join();
    EXPECT_EQ(other, 2);

    // Rounding half to even: 0.5 + 1 = 1.5 gives 2, 1.5 + 1 = 2.5 gives 2.
    exec("update t_SystemProfile set FValue='1.5' where FKey='CostStyle'");
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
    try {
        common::guarded(common::Handler::Common,
                        [&] { ex.execute("update NoSuchTable set FValue=1"); });
        ADD_FAILURE() << "expected an error";
    } catch (const ado::ComError& e) {
        EXPECT_EQ(e.number(), ado::err::kComponent);
        EXPECT_FALSE(e.description().empty());
    }
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

TEST_F(DatabaseTest, LockWaitsAreRetriedUntilTheOtherWriterCommits) {
    // Short engine busy timeout, so that the handler's own retry does the waiting.
    std::string cs = connection_string() + ";Busy Timeout=50;Lock Timeout=10";
    auto holder = ado::Connection::create();
    holder->Open(cs);
    holder->BeginTrans();
    holder->Execute("update t_SystemProfile set FValue='1' where FKey='ICClosed'");

    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        holder->CommitTrans();
    });
    auto waiter = ado::Connection::create();
    waiter->Open(cs);
    common::Executor ex(waiter, common::Handler::Common);
    EXPECT_EQ(ex.execute("update t_SystemProfile set FValue='1' where FKey='WLClosed'"), 1);
    release.join();
    EXPECT_EQ(scalar("select FValue from t_SystemProfile where FKey='ICClosed'").to_string(), "1");

    // With a lock timeout of 0 the lock error is raised as the component error.
    auto blocker = ado::Connection::create();
    blocker->Open(cs);
    blocker->BeginTrans();
    auto impatient = ado::Connection::create();
    impatient->Open(connection_string() + ";Busy Timeout=50;Lock Timeout=0");
    common::Executor quick(impatient, common::Handler::Common);
    try {
        common::guarded(common::Handler::Common, [&] { quick.begin(); });
        ADD_FAILURE() << "expected the lock error";
    } catch (const ado::ComError& e) {
        EXPECT_EQ(e.number(), ado::err::kComponent);
    }
    blocker->RollbackTrans();
}

TEST_F(DatabaseTest, DuplicateInteriorIdDrawsAFreshId) {
    exec("insert into ICStockBill(FInterID,FTranType,FDate) values(7,112,'2025-03-01')");
    auto cn = open();
    common::Executor ex(cn, common::Handler::DuplicateKey);
    int id = 7;
    int draws = 0;
    ex.on_duplicate_interior_id([&] {
        ++draws;
        id = 8;
    });
    ex.begin();
    ex.execute([&] {
        return "insert into ICStockBill(FInterID,FTranType,FDate) values(" + std::to_string(id) +
               ",112,'2025-03-02')";
    });
    ex.commit();
    EXPECT_EQ(draws, 1);
    EXPECT_EQ(scalar("select count(*) from ICStockBill where FInterID=8").to_int32(), 1);

    // A duplicate on another key is raised, not retried.
    common::Executor other(cn, common::Handler::DuplicateKey);
    other.on_duplicate_interior_id([&] { ++draws; });
    exec("insert into ICBillNo(FTranType,FDate,FMaxNum) values(11,'2025-03-01',1)");
    EXPECT_THROW(other.execute("insert into ICBillNo(FTranType,FDate,FMaxNum) "
                               "values(11,'2025-03-01',2)"),
                 ado::ComError);
    EXPECT_EQ(draws, 1);
}

}  // namespace
}  // namespace billdata::testing
