// Every statement the bill classes send during the demo's day (and the till's two readings the
// day does not use) is, up to its literal values, a statement of the corpus, so the corpus's
// translation and preparation checks cover all of them.

#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <set>
#include <string>

#include "billdata/dialect/dialect.h"
#include "support/sql_log.h"
#include "support/test_support.h"
#include "tools/cli_run.h"

namespace billdata::testing {
namespace {

// The log escapes line breaks inside a statement; the shape needs the text as sent.
std::string unescape(const std::string& line) {
    std::string out;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == 'n' || line[i + 1] == 'r')) {
            out += line[++i] == 'n' ? '\n' : '\r';
        } else {
            out += line[i];
        }
    }
    return out;
}

// The statement with its values left out: a whole number and a decimal, with or without a minus
// sign, are all a number, and a list of numbers (the ids an audit marks) stands for any length.
std::string without_values(const std::string& tsql) {
    const std::string key = dialect::statement_shape(tsql).key;
    const std::string mark(1, '\x01');  // what stands for a value in a shape
    static const std::regex decimal(mark + "d");
    static const std::regex negative("([,(=+*/ ])-" + mark);
    static const std::regex number_list(mark + "i(\\s*,\\s*" + mark + "i)+");
    std::string out = std::regex_replace(key, decimal, mark + "i");
    out = std::regex_replace(out, negative, "$1" + mark);
    return std::regex_replace(out, number_list, mark + "i");
}

using StatementLog = EngineCase;

TEST_F(StatementLog, EveryLoggedShapeIsInTheCorpus) {
    std::set<std::string> corpus;
    for (const std::string& tsql : load_statement_corpus())
        corpus.insert(without_values(tsql));

    const EngineDatabase shop;
    const std::string log = shop.dir().file("sql.log");
    std::optional<SqlLog> on(std::in_place, log);
    const std::string db = "'" + shop.target() + "'";
    const CliRun day = run_cli("demo --db " + db);
    const CliRun list = run_cli("call --db " + db + " --format json PosData.GetBillList_Simple " +
                                R"('{"TranType":99,"strFilter":""}')");
    const CliRun bill =
        run_cli("call --db " + db + " --format json PosData.GetPosBill " + R"('{"BillID":1}')");
    on.reset();
    ASSERT_EQ(day.status, 0) << day.out;
    ASSERT_EQ(list.status, 0) << list.out;
    ASSERT_EQ(bill.status, 0) << bill.out;

    std::set<std::string> missing;
    int logged = 0;
    for (const std::string& line : file_lines(log)) {
        ++logged;
        const std::string tsql = unescape(line);
        // A stored procedure's name, logged as the command that calls it.
        if (tsql.find(' ') == std::string::npos) continue;
        if (!corpus.count(without_values(tsql))) missing.insert(tsql);
    }
    EXPECT_GT(logged, 50);
    for (const std::string& tsql : missing)
        ADD_FAILURE() << "not in tests/data/statements.sql: " << tsql;
}

}  // namespace
}  // namespace billdata::testing
