// `billdata call` and `billdata batch` end to end: the program run as a script runs it, on a real
// database file, with the tests' service class registered in the tests' build of the program.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

class CliCallTest : public ::testing::Test {
  protected:
    void SetUp() override {
        db_ = dir_.file("shop.db");
        Outcome init = shell(std::string(BILLDATA_CLI) + " init " + shell_quote(db_) +
                             " --demo --year 2025 --period 3");
        ASSERT_EQ(init.status, 0) << init.out;
    }
    Outcome call(const std::string& options, const std::string& target,
                 const std::string& args = "") {
        return shell(std::string(BILLDATA_TEST_CLI) + " call --db " + shell_quote(db_) + " " +
                     options + " " + target + (args.empty() ? "" : " " + shell_quote(args)));
    }
    Outcome sql(const std::string& statement) {
        return shell(std::string(BILLDATA_CLI) + " sql --db " + shell_quote(db_) +
                     " --format csv " + shell_quote(statement));
    }
    Outcome batch(const std::string& options, const std::string& lines) {
        std::string input = dir_.file("input.jsonl");
        std::ofstream(input) << lines;
        return shell(std::string(BILLDATA_TEST_CLI) + " batch " + options + " < " +
                     shell_quote(input));
    }
    TempDir dir_;
    std::string db_;
};

TEST_F(CliCallTest, CallSetsTheSessionFirstAndAnswersOneJsonObject) {
    // Year and period come from the database unless given.
    Outcome period = call("", "TestService.Period");
    EXPECT_EQ(period.status, 0);
    EXPECT_EQ(period.out, "{\"result\": \"2025/3\", \"out\": {}}\n");
    EXPECT_EQ(call("--year 2024 --period 11", "TestService.Period").out,
              "{\"result\": \"2024/11\", \"out\": {}}\n");
    Outcome from_env = shell("BILLDATA_DB=" + shell_quote(db_) + " " + BILLDATA_TEST_CLI +
                             " call --format json testservice.period");
    EXPECT_EQ(from_env.out, "{\"result\": \"2025/3\", \"out\": {}}\n");

    // In/out arguments come back, and the work reached the database the session names.
    Outcome settle = call("", "TestService.Settle",
                          R"({"BillNo": "", "OldInterID": 0, "Ids": [1, 2],
                          "RsBill": {"fields": ["FItemID", "FQty"], "rows": [[7, 1.5], [8, 2]]}})");
    EXPECT_EQ(settle.status, 0);
    EXPECT_EQ(settle.out,
              "{\"result\": 3.5, \"out\": {\"BillNo\": \"T-2\", \"OldInterID\": 103, \"RsBill\": "
              "null, \"Ids\": [2, 1]}}\n");
    EXPECT_EQ(sql("select FValue from t_SystemProfile where FKey='Settled T-2'").out,
              "FValue\n3.5\n");

    // Record sets as asked: readable table, CSV, JSON.
    const std::string filter = R"({"strFilter": "and FKey like 'Settled%'"})";
    EXPECT_EQ(call("--format csv", "TestService.Settings", filter).out,
              "result:\nFKey,FValue\nSettled T-2,3.5\n");
    EXPECT_EQ(call("--format json", "TestService.Settings", filter).out,
              "{\"result\": {\"fields\": [\"FKey\", \"FValue\"], \"rows\": [[\"Settled T-2\", "
              "\"3.5\"]]}, \"out\": {}}\n");
    Outcome table = call("--format table", "TestService.Settings", filter);
    EXPECT_EQ(
        table.out,
        "result:\nFKey        | FValue\n------------+-------\nSettled T-2 | 3.5   \n(1 row)\n");
    EXPECT_EQ(call("--format table", "TestService.Settle",
                   R"({"BillNo": "B", "OldInterID": 5, "Ids": [], "RsBill": null})")
                  .out,
              "result: 0\nBillNo: B\nOldInterID: 5\nRsBill: Nothing\nIds: []\n");
    EXPECT_EQ(call("--format table", "TestService.Init",
                   R"({"NewPromptString": "x", "New_CurYear": 1, "New_CurPeriod": 1})")
                  .out,
              "done\n");
}

TEST_F(CliCallTest, CallErrorsAnswerTheErrorObjectWithExitStatusOne) {
    Outcome refused = call("", "TestService.Refuse", R"({"Message": "已审核的单据不能删除!"})");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(
        refused.out,
        "{\"error\": {\"number\": -2147220503, \"description\": \"已审核的单据不能删除!\"}}\n");
    Outcome readable = call("--format table", "TestService.Refuse", R"({"Message": "不能删除!"})");
    EXPECT_EQ(readable.status, 1);
    EXPECT_EQ(readable.out, "error -2147220503: 不能删除!\n");

    Outcome unknown = call("", "NoSuchClass.Init", "{}");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.out,
              "{\"error\": {\"number\": 429, \"description\": \"ActiveX 部件不能创建对象 (no class "
              "is registered as Orn_BillData_Velt.NoSuchClass)\"}}\n");
    Outcome no_method = call("", "TestService", "{}");
    EXPECT_EQ(no_method.status, 1);
    EXPECT_NE(no_method.out.find("\"number\": 5"), std::string::npos) << no_method.out;
    Outcome missing = call("", "TestService.NextDay", "{}");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out,
              "{\"error\": {\"number\": 449, \"description\": \"参数不可选 (TestService.NextDay, "
              "parameter Day)\"}}\n");

    // A database that is not there fails before any call, as the same error object.
    Outcome no_db = shell(std::string(BILLDATA_TEST_CLI) + " call --db " +
                          shell_quote(dir_.file("none.db")) + " TestService.Period");
    EXPECT_EQ(no_db.status, 1);
    EXPECT_EQ(no_db.out.rfind("{\"error\": {\"number\": ", 0), 0u) << no_db.out;
}

TEST_F(CliCallTest, BatchAnswersEveryLineInOrderInOneSession) {
    const std::string lines =
        "{\"call\": \"TestService.Period\"}\n"
        "{\"call\": \"TestService.Init\", \"args\": {\"NewPromptString\": \"Provider=SQLite;Data "
        "Source=" +
        db_ +
        "\", \"New_CurYear\": 2030, \"New_CurPeriod\": \"7\"}}\n"
        "{\"call\": \"TestService.Period\"}\n"
        "\n"
        "{\"call\": \"TestService.Refuse\", \"args\": {\"Message\": \"不能删除!\"}}\n"
        "not json\r\n"
        "{\"call\": \"TestService.Settle\", \"args\": {\"BillNo\": \"\", \"OldInterID\": 0, "
        "\"Ids\": [4], \"RsBill\": {\"fields\": [\"FQty\"], \"rows\": [[2], [3]]}}}\n"
        "{\"call\": \"TestService.Settings\", \"args\": {\"strFilter\": \"and FKey like "
        "'Settled%'\"}}\n"
        "{\"cal\": \"TestService.Period\"}\n";
    // Nothing implicit: the stream's own Init sets the session for the calls after it.
    Outcome run = batch("", lines);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(
        run.out,
        "{\"result\": \"0/0\", \"out\": {}}\n"
        "{\"result\": null, \"out\": {}}\n"
        "{\"result\": \"2030/7\", \"out\": {}}\n"
        "{\"error\": {\"number\": -2147220503, \"description\": \"不能删除!\"}}\n"
        "{\"error\": {\"number\": 5, \"description\": \"无效的过程调用或参数 (a batch line is "
        "a JSON object {\\\"call\\\": \\\"Class.Method\\\", \\\"args\\\": {...}})\"}}\n"
        "{\"result\": 5, \"out\": {\"BillNo\": \"T-2\", \"OldInterID\": 104, \"RsBill\": "
        "null, \"Ids\": [4]}}\n"
        "{\"result\": {\"fields\": [\"FKey\", \"FValue\"], \"rows\": [[\"Settled T-2\", "
        "\"5\"]]}, \"out\": {}}\n"
        "{\"error\": {\"number\": 5, \"description\": \"无效的过程调用或参数 (unknown member "
        "\\\"cal\\\" (a batch line has \\\"call\\\" and \\\"args\\\"))\"}}\n");
    EXPECT_EQ(sql("select count(*) as n from t_SystemProfile where FKey like 'Settled%'").out,
              "n\n1\n");

    // With --db the session starts as call sets it; a batch without failures exits 0.
    Outcome started = batch("--db " + shell_quote(db_), "{\"call\": \"TestService.Period\"}\n");
    EXPECT_EQ(started.status, 0);
    EXPECT_EQ(started.out, "{\"result\": \"2025/3\", \"out\": {}}\n");
    Outcome empty = batch("", "");
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.out, "");
}

TEST_F(CliCallTest, HostileLinesAreEachAnsweredAndTheBatchGoesOn) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const std::string huge(1000000, 'x');
    const std::string lines = "{\"call\": \"TestService.Echo\", \"args\": {\"Value\": " + deep +
                              "}}\n"
                              "{\"call\": \"TestService.Period\", \"args\": {\"x\": \"a\xff\"}}\n"
                              "{\"call\": \"TestService." +
                              huge + "\"}\n{\"call\": \"TestService.Period\", \"" + huge +
                              "\": 1}\n{\"call\": \"TestService.Period\"}\n";
    Outcome run = batch("--db " + shell_quote(db_), lines);
    EXPECT_EQ(run.status, 1);
    std::vector<std::string> answers;
    std::istringstream in(run.out);
    for (std::string line; std::getline(in, line);)
        answers.push_back(line);
    ASSERT_EQ(answers.size(), 5u) << run.out.substr(0, 2000);
    EXPECT_EQ(answers[0],
              "{\"error\": {\"number\": 5, \"description\": \"无效的过程调用或参数 (the batch "
              "line: nested deeper than 256 levels at byte 301)\"}}");
    EXPECT_EQ(answers[1],
              "{\"error\": {\"number\": 5, \"description\": \"无效的过程调用或参数 (the batch "
              "line: invalid UTF-8 at byte 47)\"}}");
    // A huge name comes back as an excerpt.
    for (int i : {2, 3}) {
        EXPECT_LT(answers[i].size(), 300u) << answers[i].substr(0, 300);
        EXPECT_NE(answers[i].find("xxx…"), std::string::npos) << answers[i].substr(0, 300);
    }
    EXPECT_EQ(answers[4], "{\"result\": \"2025/3\", \"out\": {}}");
}

TEST_F(CliCallTest, AnswersThatCannotBeWrittenStopTheBatchWithStatusTwo) {
    const std::string settle =
        "{\"call\": \"TestService.Settle\", \"args\": {\"BillNo\": \"\", \"OldInterID\": 0, "
        "\"Ids\": [], \"RsBill\": null}}\n";
    std::string input = dir_.file("input.jsonl");
    std::ofstream(input) << settle << settle;
    // Standard error to the pipe, standard output to a full device.
    Outcome run = shell("(" + std::string(BILLDATA_TEST_CLI) + " batch --db " + shell_quote(db_) +
                        " < " + shell_quote(input) + " 2>&1 >/dev/full)");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out,
              "billdata: cannot write to standard output (No space left on device): the answers "
              "are lost\n");
    // The second call was never read: its answer could not have reached anyone.
    EXPECT_EQ(sql("select count(*) as n from t_SystemProfile where FKey like 'Settled%'").out,
              "n\n1\n");
    Outcome call_run = shell(std::string(BILLDATA_TEST_CLI) + " call --db " + shell_quote(db_) +
                             " TestService.Period >/dev/full");
    EXPECT_EQ(call_run.status, 2);
}

}  // namespace
}  // namespace billdata::testing
