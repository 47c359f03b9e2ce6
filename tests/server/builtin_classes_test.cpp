// The component's own classes through the shipped program: `billdata call` and `billdata batch`
// on a real database. A class that is not part of this build is skipped, so these run as soon as
// its binding registers it.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include "billdata/server/dispatch.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

struct Answer {
    int status = -1;
    std::string out;
};

Answer run_program(const std::string& args) {
    Answer a;
    FILE* pipe = ::popen((std::string(BILLDATA_CLI) + " " + args + " 2>/dev/null").c_str(), "r");
    if (!pipe) return a;
    std::array<char, 4096> buffer{};
    std::size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        a.out.append(buffer.data(), n);
    int status = ::pclose(pipe);
    a.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return a;
}

class BuiltinClassTest : public ::testing::Test {
  protected:
    void SetUp() override {
        db_ = dir_.file("shop.db");
        ASSERT_EQ(run_program("init '" + db_ + "' --demo --year 2025 --period 3").status, 0);
    }
    bool bound(const char* class_name) {
        return server::Registry::instance().find_class(class_name) != nullptr;
    }
    Answer call(const std::string& target, const std::string& args) {
        return run_program("call --format json --db '" + db_ + "' " + target + " '" + args + "'");
    }
    Answer batch(const std::string& lines) {
        std::string input = dir_.file("in.jsonl");
        std::ofstream(input) << lines;
        return run_program("batch < '" + input + "'");
    }
    std::string sql(const std::string& statement) {
        return run_program("sql --format csv --db '" + db_ + "' \"" + statement + "\"").out;
    }
    TempDir dir_;
    std::string db_;
};

TEST_F(BuiltinClassTest, AllNineClassesAreRegisteredOnceBuilt) {
    const char* classes[] = {"OrderBill",  "PurRkd",   "PosData",  "SFKData", "OtherBill",
                             "PublicData", "vipOrder", "InitData", "Credit"};
    int registered = 0;
    for (const char* name : classes) {
        if (!bound(name)) continue;
        ++registered;
        auto object = server::Registry::instance().create(std::string("orn_billdata_velt.") + name);
        EXPECT_EQ(object->info().name(), name);
        EXPECT_FALSE(object->info().methods().empty()) << name;
    }
    if (registered == 0) GTEST_SKIP() << "no bill class is part of this build yet";
}

TEST_F(BuiltinClassTest, InitDataClosesAndReopensThroughCall) {
    if (!bound("InitData")) GTEST_SKIP() << "InitData is not part of this build";
    // Only this opening row, so that the balance it closes into is plain to see.
    sql("delete from ICInitData");
    sql("insert into ICInitData(FStockID,FItemID,FQty,FAmount,FPrice) values(1,1,10,50,5)");
    Answer close = call("InitData.CloseICInit", "{\"PromptString\": \"" + db_ +
                                                    "\", \"StartYear\": \"2025\", "
                                                    "\"StartPeriod\": 3}");
    EXPECT_EQ(close.status, 0);
    EXPECT_EQ(close.out, "{\"result\": null, \"out\": {}}\n");
    EXPECT_EQ(sql("select FYear,FPeriod,FStockID,FItemID,FBegQty,FBegPrice,FBegBal from ICBal"),
              "FYear,FPeriod,FStockID,FItemID,FBegQty,FBegPrice,FBegBal\n2025,3,1,1,10,5,50\n");
    EXPECT_EQ(sql("select FValue from t_SystemProfile where FKey='ICClosed'"), "FValue\n1\n");

    // The record set goes in as rows and comes back as Nothing; the session came from --db.
    Answer staged = call("InitData.SaveInitWLData",
                         "{\"ItemClassID\": 9, \"rs\": {\"fields\": [\"FItemID\", \"FAmount\"], "
                         "\"rows\": [[3, 120.5], [4, \"80\"]]}}");
    EXPECT_EQ(staged.out, "{\"result\": null, \"out\": {\"rs\": null}}\n");
    EXPECT_EQ(sql("select FItemClassID,FOrgaID,FAmount from WLInitData order by FOrgaID"),
              "FItemClassID,FOrgaID,FAmount\n2,3,120.5\n2,4,80\n");

    Answer reopen = call("InitData.UnCloseICInit", "{\"PromptString\": \"" + db_ + "\"}");
    EXPECT_EQ(reopen.status, 0);
    EXPECT_EQ(sql("select count(*) as n from ICBal"), "n\n0\n");
    EXPECT_EQ(sql("select FValue from t_SystemProfile where FKey='ICClosed'"), "FValue\n0\n");
}

TEST_F(BuiltinClassTest, PublicDataAuditsThroughABatchThatCallsInitItself) {
    if (!bound("PublicData")) GTEST_SKIP() << "PublicData is not part of this build";
    sql("insert into ICOrder(FInterID,FTranType,FBillNo,FDate,FCheckerID) "
        "values(5,11,'CD250309-001','2025-03-09',0)");
    Answer run = batch(
        "{\"call\": \"PublicData.CheckBill\", \"args\": {\"TranType\": 11, \"InterID\": \"5\", "
        "\"UserID\": 7}}\n"
        "{\"call\": \"PublicData.Init\", \"args\": {\"NewValue\": \"" +
        db_ +
        "\"}}\n"
        "{\"call\": \"PublicData.CheckBill\", \"args\": {\"TranType\": \"11\", \"InterID\": 5, "
        "\"UserID\": 7}}\n");
    // Before Init the session has no database: the first call fails, the batch goes on.
    EXPECT_EQ(run.status, 1);
    ASSERT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3) << run.out;
    EXPECT_EQ(run.out.rfind("{\"error\": {\"number\": ", 0), 0u) << run.out;
    EXPECT_NE(run.out.find("\n{\"result\": null, \"out\": {}}\n{\"result\": null, \"out\": {}}\n"),
              std::string::npos)
        << run.out;
    EXPECT_EQ(sql("select FCheckerID from ICOrder where FInterID=5"), "FCheckerID\n7\n");

    Answer uncheck =
        call("PublicData.UnCheckBill", "{\"TranType\": 11, \"InterID\": \"5\", \"UserID\": 7}");
    EXPECT_EQ(uncheck.status, 0);
    EXPECT_EQ(sql("select FCheckerID from ICOrder where FInterID=5"), "FCheckerID\n0\n");
}

}  // namespace
}  // namespace billdata::testing
