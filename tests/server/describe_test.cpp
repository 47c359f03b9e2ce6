// `billdata describe` kept honest against the code: every registered method has its header's
// contract, every example runs as printed on a new demo database, and the record-set fields a
// method declares are the ones its example passes and its result has.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "billdata/server/describe.h"
#include "billdata/server/dispatch.h"
#include "support/program.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

using nlohmann::json;
using server::Registry;

// Runs a command line of the program in `dir` as a shell runs it; standard error is dropped.
Outcome run(const std::string& dir, const std::string& command_line) {
    const std::string program = "billdata ";
    EXPECT_EQ(command_line.rfind(program, 0), 0u) << command_line;
    return shell("cd '" + dir + "' && " + BILLDATA_CLI + " " + command_line.substr(program.size()));
}

TEST(Describe, EveryClassAndMethodHasItsHeadersContract) {
    auto& registry = Registry::instance();
    for (const std::string& name : registry.class_names()) {
        EXPECT_FALSE(server::contract(name, "").empty()) << name;
        for (const server::Method& m : registry.find_class(name)->methods()) {
            const std::string summary = server::first_sentence(server::contract(name, m.name));
            EXPECT_TRUE(!summary.empty() && summary.back() == '.') << name << "." << m.name;
        }
    }
}

TEST(Describe, EveryExampleWorksAsPrintedOnANewDemoDatabase) {
    auto& registry = Registry::instance();
    for (const std::string& name : registry.class_names()) {
        const auto info = registry.find_class(name);
        for (const server::Method& m : info->methods()) {
            const std::string where = name + "." + m.name;
            const auto commands = server::example_commands(registry, *info, m);
            if (commands.empty()) {
                EXPECT_FALSE(m.example.none.empty()) << where << ": no example, and no reason";
                continue;
            }
            TempDir dir;
            Outcome last;
            for (const std::string& command : commands) {
                last = run(dir.path().string(), command);
                ASSERT_EQ(last.status, 0) << where << ": " << command << "\n" << last.out;
            }
            const json answer = json::parse(last.out);
            const json args = json::parse(m.example.args);
            for (const server::Param& p : m.params) {
                if (!p.fields.empty()) {
                    EXPECT_EQ(args.at(p.name).at("fields"), json(p.fields))
                        << where << " " << p.name;
                }
            }
            if (!m.result_fields.empty()) {
                EXPECT_EQ(answer.at("result").at("fields"), json(m.result_fields)) << where;
            }
        }
    }
}

TEST(Describe, TheCommandFindsNamesWithoutRegardToCaseAndRefusesUnknownOnes) {
    TempDir dir;
    const std::string here = dir.path().string();
    Outcome method = run(here, "billdata describe posdata.DELETEBILL --format json");
    ASSERT_EQ(method.status, 0) << method.out;
    const json d = json::parse(method.out);
    EXPECT_EQ(d.at("class"), "PosData");
    EXPECT_EQ(d.at("name"), "DeleteBill");
    EXPECT_EQ(d.at("params").at(2), json::parse(R"({"name": "Cn", "type": "connection",
        "direction": "in", "optional": true, "default": null, "fields": null})"));
    EXPECT_EQ(d.at("params").at(3).at("default"), false);
    EXPECT_EQ(d.at("result"), nullptr);

    Outcome list = run(here, "billdata describe --format json");
    ASSERT_EQ(list.status, 0);
    EXPECT_EQ(json::parse(list.out).at("classes").size(),
              Registry::instance().class_names().size());

    Outcome no_class = run(here, "billdata describe Nothing.Init --format json");
    EXPECT_EQ(no_class.status, 1);
    EXPECT_EQ(json::parse(no_class.out).at("error").at("number"), 429);
    Outcome no_method = run(here, "billdata describe PosData.Nothing");
    EXPECT_EQ(no_method.status, 1);
    EXPECT_EQ(json::parse(no_method.out).at("error").at("number"), 438);
    Outcome text = run(here, "billdata describe PosData.Nothing --format text");
    EXPECT_EQ(text.status, 1);
}

}  // namespace
}  // namespace billdata::testing
