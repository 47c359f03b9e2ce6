// A statement that the server dialect refuses fails on every engine with the server's own error
// number as the error's native code, whether the translator finds it or the engine's run does.

#include "fixture.h"

namespace billdata::testing {
namespace {

TEST_F(DatabaseTest, ServerErrorsReachTheCallerWithTheServersNumber) {
    exec(
        "insert into t_Stock(FItemID, FNumber, FName) values (1, '01', 'Main'), (2, 'B2', 'Side')");
    const struct {
        const char* sql;
        int number;
    } cases[] = {
        {"select count(*) from t_Stock where FNumber = 1", 245},
        {"select cast('2025-02-30' as datetime)", 242},
        {"select cast('2025-02-3x' as datetime)", 241},
        {"select FItemID + 2147483647 from t_Stock where FItemID = 2", 8115},
        {"select (select FItemID from t_Stock)", 512},
        {"select FName, count(*) from t_Stock", 8120},
    };
    auto cn = open();
    for (const auto& c : cases) {
        const ado::ComError e = error_of([&] { cn->Execute(c.sql); });
        EXPECT_EQ(e.native_code(), c.number) << c.sql << ": " << e.description();
        EXPECT_EQ(e.number(), ado::err::kDatabase) << c.sql;
    }
}

}  // namespace
}  // namespace billdata::testing
