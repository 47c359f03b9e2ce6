// Hostile input through the published command line, one case per line of corpus.jsonl: list
// filters that try to escape the appended restriction or to run something else, texts with
// quotes, numbers out of range, malformed and deeply nested JSON. Each line of the corpus is sent
// to `billdata batch` on a shop with demo data and two bills, followed by a harmless list, and:
//   - the program must not crash, and must answer both lines (the batch goes on);
//   - the answer must be of the expected class: "rows" (a record set), "ok" (a result; "readback"
//     statements then give back exactly the texts that were saved), "refused" (0x800403E9) or
//     "error" (the platform error "number", or any when none is given), always with a non-empty
//     description that holds "description" when one is given (on the server "server_description"
//     when given: its decimal columns refuse a quantity past their size before any sum is made;
//     on SQL Server "sqlserver_description", one of its texts when a list is given);
//   - a list or a refused or failed call must leave the database unchanged (a file's
//     data_version; on the server, what every table holds);
//   - a list must issue only queries, no more of them than the same list with an empty filter
//     (a filter refused before it reaches the database issues fewer).
// A case is {"name", "call", "args"} (args laid over the named "base" call of templates.json), or
// {"name", "line"} for a raw line; "nest": [depth, open, inner, close] replaces "@nest" in the
// line by open×depth + inner + close×depth.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/schema/schema.h"
#include "support/program.h"
#include "support/server_db.h"
#include "support/test_support.h"

namespace billdata::testing {
namespace {

using nlohmann::json;

const std::string kDir = std::string(BILLDATA_SOURCE_DIR) + "/tests/hostile/";
// Sent after every case: the batch must still answer it with a record set.
const std::string kAfter =
    R"({"call": "PosData.GetBillList_Simple", "args": {"TranType": 99, "strFilter": " and 1=0"}})";

struct Case {
    std::string name;  // test name: file, line number, and the case's words
    json entry;
    std::string line;  // what is sent
};

// What a failing case shows of itself: the start of its line.
void PrintTo(const Case& c, std::ostream* os) {
    *os << c.line.substr(0, 200);
}

std::string line_of(const json& entry, const json& templates) {
    if (entry.contains("line")) return entry["line"].get<std::string>();
    json request = {{"call", entry["call"]}, {"args", json::object()}};
    if (entry.contains("base")) request = templates.at(entry["base"].get<std::string>());
    const json args = entry.value("args", json::object());
    for (auto& [key, value] : args.items())
        request["args"][key] = value;
    std::string line = request.dump();
    if (entry.contains("nest")) {
        const json& n = entry["nest"];
        std::string nested;
        for (int i = 0; i < n[0].get<int>(); ++i)
            nested += n[1].get<std::string>();
        nested += n[2].get<std::string>();
        for (int i = 0; i < n[0].get<int>(); ++i)
            nested += n[3].get<std::string>();
        const bool whole = line.find("\"@nest\"") != std::string::npos;
        const std::string mark = whole ? "\"@nest\"" : "@nest";
        line.replace(line.find(mark), mark.size(), nested);
    }
    return line;
}

std::vector<Case> load(const std::string& file) {
    std::ifstream in(kDir + file);
    std::ifstream tin(kDir + "templates.json");
    const json templates = json::parse(tin);
    std::vector<Case> cases;
    std::string text;
    for (int number = 1; std::getline(in, text); ++number) {
        if (text.empty() || text[0] == '#') continue;
        Case c;
        c.entry = json::parse(text);
        c.name = file.substr(0, file.find('.')) + "_" + std::to_string(number) + "_";
        for (char ch : c.entry.at("name").get<std::string>())
            c.name += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
        c.line = line_of(c.entry, templates);
        cases.push_back(std::move(c));
    }
    return cases;
}

struct Answers {
    bool exited = false;  // ran to its end (exit status 0 or 1)
    int status = 0;       // the shell's exit status: 128 + the signal when the program died
    std::vector<std::string> answers;
    std::vector<std::string> statements;  // from the statement log
};

class HostileInput : public ::testing::TestWithParam<Case> {
  protected:
    static void SetUpTestSuite() {
        if (!missing_test_server().empty()) return;
        try {
            make_shop();
        } catch (const std::exception& e) {
            shop_error_ = e.what();
        }
    }
    static void make_shop() {
        dir_ = new TempDir();
        shop_ = new EngineDatabase();
        db_ = shop_->target();
        schema::create_database(db_, true, 2025, 3);
        std::ifstream tin(kDir + "templates.json");
        const json templates = json::parse(tin);
        const Answers seeded = batch(templates["sale"].dump() + "\n" + templates["order"].dump());
        ASSERT_EQ(seeded.answers.size(), 2u);
        for (const std::string& answer : seeded.answers)
            ASSERT_TRUE(json::parse(answer).contains("result")) << answer;
        if (const ServerDatabase* server = shop_->server(); server && server->sqlserver()) {
            // Every table's row count and the checksum of its rows.
            std::vector<std::string> tables;
            for (const std::string& row : server->exec("select name from sys.tables"))
                tables.push_back(row.substr(0, row.size() - 1));
            contents_ = sqlserver_contents_query(tables);
            return;
        }
        if (const ServerDatabase* server = shop_->server()) {
            // Every table's rows, as one text per table.
            for (const std::string& row :
                 server->exec("select table_name from information_schema.tables where "
                              "table_schema='public' and table_type='BASE TABLE' order by 1")) {
                const std::string table = row.substr(0, row.size() - 1);
                contents_ += std::string(contents_.empty() ? "" : " union all ") + "select '" +
                             table +
                             "',md5(coalesce(string_agg(t::text,',' order by t::text),'')) "
                             "from " +
                             table + " t";
            }
            return;
        }
        ASSERT_EQ(sqlite3_open(db_.c_str(), &watch_), SQLITE_OK);
    }
    static void TearDownTestSuite() {
        sqlite3_close(watch_);
        delete shop_;
        delete dir_;
    }
    void SetUp() override {
        if (const std::string why = missing_test_server(); !why.empty()) GTEST_SKIP() << why;
        ASSERT_TRUE(shop_error_.empty()) << "the shop's database: " << shop_error_;
    }

    // Runs `billdata batch` on the shop with the lines given and the statement log on.
    static Answers batch(const std::string& lines) {
        const std::string input = dir_->file("in.jsonl"), log = dir_->file("sql.log");
        std::ofstream(input, std::ios::trunc) << lines << "\n";
        std::remove(log.c_str());
        Answers run;
        const Outcome out = shell("BILLDATA_SQL_LOG='" + log + "' " + BILLDATA_CLI +
                                  " batch --db '" + db_ + "' < '" + input + "'");
        run.status = out.status;
        run.exited = run.status <= 1;
        std::ifstream logged(log);
        std::istringstream answers(out.out);
        for (std::string l; std::getline(answers, l);)
            run.answers.push_back(l);
        for (std::string l; logged && std::getline(logged, l);)
            run.statements.push_back(l);
        return run;
    }

    // What changes with every write the database keeps.
    static std::string data_version() {
        if (shop_->server() && shop_->server()->sqlserver())
            return shop_->server()->scalar(contents_);
        if (shop_->server()) {
            std::string all;
            for (const std::string& row : shop_->server()->exec(contents_ + " order by 1"))
                all += row + "\n";
            return all;
        }
        sqlite3_stmt* stmt = nullptr;
        sqlite3_prepare_v2(watch_, "PRAGMA data_version", -1, &stmt, nullptr);
        sqlite3_step(stmt);
        const long version = sqlite3_column_int64(stmt, 0);
        sqlite3_finalize(stmt);
        return std::to_string(version);
    }

    // How many statements the same list issues with an empty filter.
    static std::size_t plain_statements(const json& entry) {
        json plain = {{"call", entry["call"]}, {"args", entry["args"]}};
        for (const char* filter : {"strFilter", "QuerySql"})
            if (plain["args"].contains(filter)) plain["args"][filter] = "";
        return batch(plain.dump() + "\n" + kAfter).statements.size();
    }

    static std::string readback(const std::string& sql) {
        auto cn = ado::Connection::create();
        cn->Open(db_);
        auto rs = cn->Execute(sql);
        std::string value = rs->Eof() ? "(no row)" : rs->Fields(0).Value().to_string();
        rs->Close();
        cn->Close();
        return value;
    }

    static inline TempDir* dir_ = nullptr;
    static inline EngineDatabase* shop_ = nullptr;
    static inline std::string db_;
    static inline std::string contents_;    // the server's query of every table's rows
    static inline std::string shop_error_;  // why the shop's database could not be made
    static inline sqlite3* watch_ = nullptr;
};

TEST_P(HostileInput, ClearAnswerAndNoStrayWork) {
    const Case& c = GetParam();
    const json& entry = c.entry;
    const std::string expect = entry.at("expect");
    const std::string version = data_version();
    const Answers run = batch(c.line + "\n" + kAfter);

    ASSERT_TRUE(run.exited) << "the program died (exit status " << run.status << ")";
    ASSERT_EQ(run.answers.size(), 2u) << "every line gets one answer line";
    const json answer = json::parse(run.answers[0], nullptr, false);
    ASSERT_TRUE(answer.is_object()) << run.answers[0].substr(0, 300);
    EXPECT_TRUE(json::parse(run.answers[1], nullptr, false).contains("result"))
        << "the batch goes on: " << run.answers[1].substr(0, 300);
    const std::string shown = run.answers[0].substr(0, 300);

    if (expect == "rows" || expect == "ok") {
        ASSERT_TRUE(answer.contains("result")) << shown;
        if (expect == "rows") {
            EXPECT_TRUE(answer["result"].contains("fields")) << shown;
        }
    } else {
        ASSERT_TRUE(answer.contains("error")) << shown;
        const json& error = answer["error"];
        const json number = expect == "refused" ? json(-2147220503) : entry.value("number", json());
        if (!number.is_null()) {
            EXPECT_EQ(error["number"], number) << shown;
        }
        const std::string description = error["description"];
        EXPECT_FALSE(description.empty());
        // The engine's own words where the corpus gives them for a server (on SQL Server in
        // either of the languages a login may have).
        const char* own = on_sqlserver() ? "sqlserver_description" : "server_description";
        const json expected = shop_->server() && entry.contains(own)
                                  ? entry[own]
                                  : json(entry.value("description", ""));
        bool found = false;
        for (const json& words : expected.is_array() ? expected : json::array({expected}))
            found = found || description.find(words.get<std::string>()) != std::string::npos;
        EXPECT_TRUE(found) << shown << "\nexpected: " << expected.dump();
    }

    const bool list = entry.value("call", "").find(".Get") != std::string::npos;
    if (expect != "ok" || list) {
        EXPECT_EQ(data_version(), version) << "the database was written";
    }
    for (const auto& check : entry.value("readback", json::array())) {
        EXPECT_EQ(readback(check[0]), check[1].get<std::string>()) << check[0];
    }

    if (list) {
        ASSERT_FALSE(run.statements.empty()) << "the statement log is written";
        for (const std::string& statement : run.statements) {
            std::string head = statement.substr(0, 6);
            for (char& ch : head)
                ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
            EXPECT_EQ(head, "select") << statement.substr(0, 200);
        }
        EXPECT_LE(run.statements.size(), plain_statements(entry));
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, HostileInput, ::testing::ValuesIn(load("corpus.jsonl")),
                         [](const ::testing::TestParamInfo<Case>& each) {
                             return each.param.name;
                         });

}  // namespace
}  // namespace billdata::testing
