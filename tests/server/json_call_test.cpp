// The JSON mapping both ways: arguments keyed by parameter names, record sets as fields and rows,
// id arrays, dates, the answer and error shapes.

#include <gtest/gtest.h>

#include "../common/fixture.h"
#include "billdata/server/json_call.h"
#include "fake_service.h"

namespace billdata::testing {
namespace {

class JsonCallTest : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        if (IsSkipped()) return;
        billdata_test_register();
        service_ = server::Registry::instance().create("Orn_BillData_Velt.TestService");
    }
    std::string call(const std::string& method, const std::string& args) {
        return server::outcome_json(server::call_json(*service_, method, args));
    }
    std::string error_of(const std::string& method, const std::string& args) {
        try {
            call(method, args);
        } catch (const ado::ComError& e) {
            return server::error_json(e);
        }
        return "no error";
    }
    std::unique_ptr<server::Object> service_;
};

TEST_F(JsonCallTest, ArgumentsAndAnswers) {
    EXPECT_EQ(
        call("Describe",
             R"j({"Kind": "12", "ID": 70000, "Amount": 0.1, "Flag": false, "Text": "红色 M",
                       "Day": "2025-03-09 08:30:00"})j"),
        R"j({"result": "Kind=12;ID=70000;Amount=0.1;Flag=False;Text=红色 M;Day=2025-03-09 08:30:00", "out": {}})j");
    // Record set in, in/out values out in the order of the parameters; the optional ones left
    // out. A record set given in is positioned on its first row.
    EXPECT_EQ(
        call("Settle", R"j({"Ids": [3, "4", 5.5], "RsBill": {"fields": ["FItemID", "FQty"],
                                "rows": [[1, 2], [2, 0.5], [3, "0"]]}, "OldInterID": -1,
                                "BillNo": null})j"),
        R"j({"result": 2.5, "out": {"BillNo": "T-3", "OldInterID": 113, "RsBill": null, "Ids": [6, 4, 3]}})j");
    // Kept lines come back as read: from the current row (here the end) to the end.
    EXPECT_EQ(
        call("Settle", R"j({"BillNo": "X", "OldInterID": 9, "Ids": [],
                                "RsBill": {"fields": ["FQty"], "rows": [[1]]}, "KeepLines": 1})j"),
        R"j({"result": 1, "out": {"BillNo": "X", "OldInterID": 9, "RsBill": {"fields": ["FQty"], "rows": []}, "Ids": []}})j");
    // No rows at all, and Nothing for the record set.
    EXPECT_EQ(
        call("Settle",
             R"j({"BillNo": "Y", "OldInterID": 9, "Ids": [], "RsBill": {"fields": ["FQty"]}})j"),
        R"j({"result": 0, "out": {"BillNo": "Y", "OldInterID": 9, "RsBill": null, "Ids": []}})j");
    EXPECT_EQ(
        call("Settle", R"j({"BillNo": "Z", "OldInterID": 9, "Ids": [], "RsBill": null})j"),
        R"j({"result": 0, "out": {"BillNo": "Z", "OldInterID": 9, "RsBill": null, "Ids": []}})j");

    // Returned record sets, arrays, dates and void results; an empty argument text is no argument.
    EXPECT_EQ(
        call("Settings", R"j({"strFilter": "and FKey like 'Settled%'"})j"),
        R"j({"result": {"fields": ["FKey", "FValue"], "rows": [["Settled T-3", "2.5"], ["Settled X", "1"], ["Settled Y", "0"], ["Settled Z", "0"]]}, "out": {}})j");
    EXPECT_EQ(call("Series", ""), R"j({"result": [11], "out": {}})j");
    EXPECT_EQ(call("NextDay", R"j({"Day": "2025/12/31"})j"),
              R"j({"result": "2026-01-01", "out": {}})j");
    EXPECT_EQ(call("Init",
                   R"j({"NewPromptString": "x.db", "New_CurYear": 2024, "New_CurPeriod": 12.0})j"),
              R"j({"result": null, "out": {}})j");
    EXPECT_EQ(call("Period", " "), R"j({"result": "2024/12", "out": {}})j");
    EXPECT_EQ(call("Echo", R"j({"Value": true, "TypeName": ""})j"),
              R"j({"result": true, "out": {"TypeName": "Boolean"}})j");
    EXPECT_EQ(call("Echo", R"j({"Value": 3000000000, "TypeName": ""})j"),
              R"j({"result": 3000000000, "out": {"TypeName": "Double"}})j");
    EXPECT_EQ(call("Echo", R"j({"Value": "say \"hi\"\n", "TypeName": ""})j"),
              R"j({"result": "say \"hi\"\n", "out": {"TypeName": "String"}})j");
}

TEST_F(JsonCallTest, BadJsonIsAClearErrorAndCallsNothing) {
    EXPECT_EQ(
        error_of("Period", "{"),
        R"j({"error": {"number": 5, "description": "无效的过程调用或参数 (the arguments are not valid JSON)"}})j");
    EXPECT_EQ(
        error_of("Period", "[]"),
        R"j({"error": {"number": 5, "description": "无效的过程调用或参数 (the arguments must be a JSON object keyed by parameter names)"}})j");
    EXPECT_EQ(
        error_of(
            "Settle",
            R"j({"BillNo": "", "OldInterID": 0, "Ids": [], "RsBill": {"fields": ["FQty"], "rows": [[1, 2]]}})j"),
        R"j({"error": {"number": 5, "description": "无效的过程调用或参数 (TestService.Settle, parameter RsBill: row 0 must hold 1 values)"}})j");
    EXPECT_EQ(
        error_of(
            "Settle",
            R"j({"BillNo": "", "OldInterID": 0, "Ids": [], "RsBill": {"columns": ["FQty"]}})j"),
        R"j({"error": {"number": 5, "description": "无效的过程调用或参数 (TestService.Settle, parameter RsBill: a record set is {\"fields\": [names], \"rows\": [[values], …]})"}})j");
    EXPECT_EQ(
        error_of("Settle", R"j({"BillNo": "", "OldInterID": 0, "Ids": [1, "x"], "RsBill": null})j"),
        R"j({"error": {"number": 13, "description": "类型不匹配 (TestService.Settle, parameter Ids: \"x\" is not a 32-bit integer)"}})j");
    EXPECT_EQ(
        error_of("Settle", R"j({"BillNo": "", "OldInterID": 0, "Ids": [[1]], "RsBill": null})j"),
        R"j({"error": {"number": 5, "description": "无效的过程调用或参数 (TestService.Settle, parameter Ids: [1] is not a single value)"}})j");
    EXPECT_EQ(
        error_of("Settle",
                 R"j({"BillNo": "", "OldInterID": 0, "Ids": {"fields": []}, "RsBill": null})j"),
        R"j({"error": {"number": 13, "description": "类型不匹配 (TestService.Settle, parameter Ids: a record set where an array of 32-bit integers is required)"}})j");
    EXPECT_EQ(scalar("select count(*) from t_SystemProfile where FKey like 'Settled%'").to_int32(),
              0);

    EXPECT_EQ(server::to_json(
                  server::value_from_json(R"j({"fields": ["A", "B"], "rows": [["x", 1.25]]})j")),
              R"j({"fields": ["A", "B"], "rows": [["x", 1.25]]})j");
    EXPECT_THROW(server::value_from_json(R"j({"fields": ["A", "a"]})j"), ado::ComError);
}

// The argument text is read by the grammar's letter: what is refused and how the edge cases
// read, to the byte of the answer.
TEST_F(JsonCallTest, ArgumentTextsAtTheEdgesOfTheGrammar) {
    using namespace std::string_literals;
    const std::string not_json =
        R"j({"error": {"number": 5, "description": "无效的过程调用或参数 (the arguments are not valid JSON)"}})j";
    for (const std::string& text : {R"j({"Value": 1,})j"s,
                                    R"j({"Value": [1,]})j"s,
                                    R"j({"Value" 1})j"s,
                                    R"j({'Value': 1})j"s,
                                    R"j({"Value": 01})j"s,
                                    R"j({"Value": 1.})j"s,
                                    R"j({"Value": .5})j"s,
                                    R"j({"Value": +1})j"s,
                                    R"j({"Value": 1e})j"s,
                                    R"j({"Value": -})j"s,
                                    R"j({"Value": 1e999})j"s,
                                    R"j({"Value": NaN})j"s,
                                    R"j({"Value": tru})j"s,
                                    R"j({"Value": "a)j"s + "\t" + R"j("})j",
                                    R"j({"Value": "\q"})j"s,
                                    R"j({"Value": "\u12"})j"s,
                                    R"j({"Value": "\ud800"})j"s,
                                    R"j({"Value": "\udc00\ud800"})j"s,
                                    R"j({"Value": "\ud800\u0041"})j"s,
                                    R"j({"Value": "x)j"s,
                                    R"j({"Value": 1} 2)j"s,
                                    R"j(/* */ {"Value": 1})j"s,
                                    "\0{}"s,
                                    "{\"Value\": 1\0}"s})
        EXPECT_EQ(error_of("Echo", text), not_json) << text;

    const std::pair<std::string, std::string> read[] = {
        {R"j({"Value": "\u4e2d\ud83d\ude00\/\b\"", "TypeName": ""})j",
         R"j({"result": "中😀/\b\"", "out": {"TypeName": "String"}})j"},
        {R"j({"Val\u0075e": true, "TypeName": ""})j",
         R"j({"result": true, "out": {"TypeName": "Boolean"}})j"},
        {R"j({"Value": 1, "TypeName": "", "Value": -0})j",
         R"j({"result": 0, "out": {"TypeName": "Long"}})j"},
        {R"j({"Value": -9223372036854775808, "TypeName": ""})j",
         R"j({"result": -9223372036854775808, "out": {"TypeName": "Double"}})j"},
        {R"j({"Value": 18446744073709551616, "TypeName": ""})j",
         R"j({"result": 18446744073709551616, "out": {"TypeName": "Double"}})j"},
        {R"j({"Value": 25E-1, "TypeName": ""})j",
         R"j({"result": 2.5, "out": {"TypeName": "Double"}})j"},
        {R"j({"Value": 1e-400, "TypeName": ""})j",
         R"j({"result": 0, "out": {"TypeName": "Double"}})j"},
        {"\xEF\xBB\xBF {\"Value\": null, \"TypeName\": \"\"}\r\n",
         R"j({"result": null, "out": {"TypeName": "Null"}})j"},
        // A NUL byte ends the text, as it ends a C string.
        {"{\"Value\": [], \"TypeName\": \"\"}\0{"s,
         R"j({"error": {"number": 13, "description": "类型不匹配 (TestService.Echo, parameter Value: an array where a variant is required)"}})j"},
        // Members are taken in byte order of their names: the first unknown one is "B".
        {R"j({"b": 1, "Value": 1, "TypeName": "", "B": 2})j",
         R"j({"error": {"number": 448, "description": "未找到命名参数 (TestService.Echo has no parameter B)"}})j"},
    };
    for (const auto& [text, answer] : read) {
        std::string got;
        try {
            got = call("Echo", text);
        } catch (const ado::ComError& e) {
            got = server::error_json(e);
        }
        EXPECT_EQ(got, answer) << text;
    }
}

}  // namespace
}  // namespace billdata::testing
