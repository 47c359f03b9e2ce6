// The component's own classes through the shipped program: `billdata call` and `billdata batch`
// on a real database.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "billdata/ado/datetime.h"
#include "billdata/server/dispatch.h"
#include "support/program.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

using Answer = Outcome;

Answer run_program(const std::string& args) {
    return shell(std::string(BILLDATA_CLI) + " " + args);
}

class BuiltinClassTest : public ::testing::Test {
  protected:
    void SetUp() override {
        db_ = dir_.file("shop.db");
        ASSERT_EQ(run_program("init '" + db_ + "' --demo --year 2025 --period 3").status, 0);
    }
    Answer call(const std::string& target, const std::string& args) {
        return run_program("call --format json --db " + shell_quote(db_) + " " + target + " " +
                           shell_quote(args));
    }
    Answer batch(const std::string& lines) {
        std::string input = dir_.file("in.jsonl");
        std::ofstream(input) << lines;
        return run_program("batch < '" + input + "'");
    }
    std::string sql(const std::string& statement) {
        return run_program("sql --format csv --db " + shell_quote(db_) + " " +
                           shell_quote(statement))
            .out;
    }
    // The arguments of a cash sale of one scarf (item 6) from `stock` on `date`, as a till sends
    // them.
    static nlohmann::json sale(int stock, const std::string& date, double qty) {
        auto args = nlohmann::json::parse(R"({
            "BillData": {"fields": ["FItemID", "FQty", "FPrice", "FAmount", "FZkRate",
                "FRetailPrice", "FRetailAmount", "FSalerID", "FPreSend", "FUnitCost",
                "FRefInterId", "FRefEntryID", "FRefTranType", "FColor", "FSizeID"]},
            "GetBlank": 0, "GetDyq": 0, "OddMent": 0, "BillRemark": "r", "ClassName": "早班",
            "QkAmount": 0, "VipID": 0, "BillerID": 1, "ChangeAmount": 0, "GetQk": 0,
            "rsPreSendItem": null, "SumJf": 0, "AutoDelRefBill": false, "AmountBogusToVip": 1000,
            "JfExchange": 0, "GetJfAmount": 0, "Machine": "POS1", "StockBillID": 0,
            "BillNoBegChar": ""})");
        args["StockID"] = stock;
        args["BillDate"] = date;
        args["BillData"]["rows"] = {
            {6, qty, 150, 150 * qty, 1, 159, 159 * qty, 2, 0, 60, 0, 0, 0, "", 0}};
        args["SumAmount"] = args["GetCash"] = args["GetAmount"] = 150 * qty;
        return args;
    }
    // The values of one column of a record set given back as JSON.
    static std::vector<nlohmann::json> column(const nlohmann::json& rs, const std::string& name) {
        std::vector<nlohmann::json> out;
        const auto& fields = rs.at("fields");
        const auto at = std::find(fields.begin(), fields.end(), name) - fields.begin();
        for (const auto& row : rs.at("rows"))
            out.push_back(row.at(static_cast<std::size_t>(at)));
        return out;
    }
    TempDir dir_;
    std::string db_;
};

TEST_F(BuiltinClassTest, AllNineClassesAreRegisteredWithTheirMethods) {
    const std::map<std::string, std::set<std::string>> expected = {
        {"OrderBill",
         {"Init", "SaveData", "UnblankOut", "DeleteBill", "GetBill", "GetBillList",
          "GetBillList_Simple", "GetBillInterID"}},
        {"PurRkd",
         {"Init", "SaveData", "UnblankOut", "DeleteBill", "GetBillList", "GetBillList_Simple"}},
        {"PosData",
         {"Init", "SaveData", "DeleteBill", "UnblankOut", "GetBillList", "GetBillList_Simple",
          "GetPosBill"}},
        {"SFKData",
         {"Init", "SaveData", "DeleteBill", "GetBillList", "GetBillInterID", "CheckBill",
          "UnCheckBill", "UnblankOut"}},
        {"OtherBill",
         {"Init", "SaveData", "UnblankOut", "DeleteBill", "GetBillList", "GetBillList_Simple"}},
        {"PublicData",
         {"Init", "GetBillData", "UnblankOut", "DelBill", "CheckBill", "UnCheckBill", "CacuSptjd",
          "RecacuSptjd"}},
        {"vipOrder", {"Init", "SaveData", "DeleteBill", "UnblankOut", "GetBillList"}},
        {"InitData",
         {"CloseICInit", "UnCloseICInit", "CloseWLInit", "UnCloseWLInit", "SaveInitWLData",
          "CloseCashInit", "UnCloseCashInit"}},
        {"Credit", {"Init", "SaveData", "DeleteBill", "UnblankOut", "GetBillList"}},
    };
    auto& registry = server::Registry::instance();
    std::set<std::string> registered;
    for (const auto& name : registry.class_names())
        registered.insert(name);
    for (const auto& [name, methods] : expected) {
        EXPECT_TRUE(registered.count(name)) << name;
        auto object = registry.create("orn_billdata_velt." + name);
        EXPECT_EQ(object->info().name(), name);
        std::set<std::string> bound;
        for (const auto& m : object->info().methods())
            bound.insert(m.name);
        EXPECT_EQ(bound, methods) << name;
    }
}

TEST_F(BuiltinClassTest, InitDataClosesAndStagesThroughCall) {
    Answer close = call("InitData.CloseICInit", "{\"PromptString\": \"" + db_ +
                                                    "\", \"StartYear\": \"2025\", "
                                                    "\"StartPeriod\": 3}");
    EXPECT_EQ(close.status, 0);
    EXPECT_EQ(close.out, "{\"result\": null, \"out\": {}}\n");
    EXPECT_EQ(sql("select FValue from t_SystemProfile where FKey='ICClosed'"), "FValue\n1\n");

    // The record set goes in as rows and comes back as Nothing; the session came from --db.
    Answer staged = call("InitData.SaveInitWLData",
                         "{\"ItemClassID\": 9, \"rs\": {\"fields\": [\"FItemID\", \"FAmount\"], "
                         "\"rows\": [[3, 120.5], [4, \"80\"]]}}");
    EXPECT_EQ(staged.out, "{\"result\": null, \"out\": {\"rs\": null}}\n");
    EXPECT_EQ(sql("select FItemClassID,FOrgaID,FAmount from WLInitData order by FOrgaID"),
              "FItemClassID,FOrgaID,FAmount\n2,3,120.5\n2,4,80\n");
}

TEST_F(BuiltinClassTest, PublicDataAuditsThroughABatchThatCallsInitItself) {
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
}

TEST_F(BuiltinClassTest, SalesAndOrdersAreSavedThroughCall) {
    // A till sale: the lines go in as a JSON record set, the interior id comes back.
    Answer saved = call("PosData.SaveData", sale(2, "2025-03-09", 2).dump());
    EXPECT_EQ(saved.status, 0);
    EXPECT_EQ(saved.out, "{\"result\": 1, \"out\": {\"BillData\": null}}\n");
    EXPECT_EQ(sql("select FTranType,FBillNo,FOutStockID,FSumAmount,FSumQty from ICStockBill"),
              "FTranType,FBillNo,FOutStockID,FSumAmount,FSumQty\n99,pos250309-001,2,300,2\n");

    // An order: the new bill number and interior id are written back into the in/out arguments.
    Answer order = call("OrderBill.SaveData",
                        R"({"TranType": 11, "BillDate": "2025-03-09", "BillNo": "", "OrgaID": 101,
            "Remark": "first", "BillerID": 1, "OldInterID": 0, "Amount": 0, "AcctID": 0,
            "RsBill": {"fields": ["FItemID", "FRowKey", "FQty", "FZkRate", "FPrice", "FAmount",
                                  "FRetailPrice", "FRetailAmount", "FMemo"],
                       "rows": [[1, "r1", 3, 1, 40, 120, 99, 297, "tee"]]},
            "rsBillDetail": {"fields": ["FDel", "FItemID", "FRowKey", "FSizeiD", "FColor",
                                        "FColorEntryID", "FQty"],
                             "rows": [[0, 1, "r1", 1, "黑色", 1, 1], [0, 1, "r1", 2, "黑色", 1, 2]]}})");
    EXPECT_EQ(order.status, 0);
    auto answer = nlohmann::json::parse(order.out);
    EXPECT_EQ(answer["result"], "True");
    EXPECT_EQ(answer["out"]["BillNo"], "CD250309-001");
    EXPECT_EQ(answer["out"]["OldInterID"], 1000000001);
    EXPECT_EQ(sql("select FInterID,FBillNo,FSumQty from ICOrder"),
              "FInterID,FBillNo,FSumQty\n1000000001,CD250309-001,3\n");

    // A kind no class serves: the platform's error object and exit status 1.
    const Answer none =
        call("PublicData.GetBillData",
             R"({"TranType": 50, "QuerySql": "", "UserID": 1, "ShowDetail": true})");
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "{\"error\": {\"number\": 424, \"description\": \"要求对象\"}}\n");
}

TEST_F(BuiltinClassTest, ANumberTooLargeToWriteIsAnOverflowAndNothingIsKept) {
    // The line's cost (quantity × unit cost) is beyond any double: no statement can carry it.
    nlohmann::json args = sale(2, "2025-03-09", 1);
    args["BillData"]["rows"][0][1] = 1e308;
    Answer saved = call("PosData.SaveData", args.dump());
    EXPECT_EQ(saved.status, 1);
    EXPECT_EQ(saved.out, "{\"error\": {\"number\": -2147220503, \"description\": \"溢出\"}}\n");
    EXPECT_EQ(sql("select (select count(*) from ICStockBill)+(select count(*) from "
                  "ICStockBillEntry)+(select count(*) from ICBillNo) as n"),
              "n\n0\n");
}

TEST_F(BuiltinClassTest, ABatchKeepsOneSessionAcrossClasses) {
    // Sales dated today, so that a user's list window of days holds them.
    const std::string today = ado::DateTime::today().to_string();
    auto line = [](const std::string& target, const nlohmann::json& args) {
        return nlohmann::json{{"call", target}, {"args", args}}.dump() + "\n";
    };
    const nlohmann::json query = {{"TranType", 99}, {"QuerySql", ""}, {"ShowDetail", false}};
    auto as_user = [&](int user) {
        nlohmann::json q = query;
        q["UserID"] = user;
        return q;
    };
    Answer run = batch(
        line("PosData.Init",
             {{"NewPromptString", db_}, {"New_CurYear", 2025}, {"New_CurPeriod", 3}}) +
        line("PosData.SaveData", sale(2, today, 1)) + line("PosData.SaveData", sale(3, today, 2)) +
        // The cashier of stock 3: the restriction stays in the session for the lines after it.
        line("PublicData.GetBillData", as_user(3)) +
        line("PosData.GetBillList_Simple", {{"TranType", 99}, {"strFilter", ""}}) +
        line("PublicData.GetBillData", as_user(999)) + line("PublicData.GetBillData", as_user(1)));
    EXPECT_EQ(run.status, 0) << run.out;
    std::vector<nlohmann::json> answers;
    std::istringstream in(run.out);
    for (std::string text; std::getline(in, text);)
        answers.push_back(nlohmann::json::parse(text));
    ASSERT_EQ(answers.size(), 7u) << run.out;
    EXPECT_EQ(answers[1]["result"], 1);
    EXPECT_EQ(answers[2]["result"], 2);
    using Ids = std::vector<nlohmann::json>;
    EXPECT_EQ(column(answers[3]["result"], "FInterID"), Ids{2});
    EXPECT_EQ(column(answers[4]["result"], "FInterID"), Ids{2});
    EXPECT_EQ(column(answers[5]["result"], "FInterID"), Ids{2});
    EXPECT_EQ(column(answers[6]["result"], "FInterID"), (Ids{2, 1}));
}

}  // namespace
}  // namespace billdata::testing
