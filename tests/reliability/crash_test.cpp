// A till killed with SIGKILL at random moments while it saves, again and again on one database,
// and the books checked after every kill (on a server, once it has rolled back the killed
// session's transaction): the file intact, every answered save there, no half
// bill, the kept totals exact. Each kill comes while a call is being saved: each kind of call of
// the mix in turn, at a random statement of it (counted in the statement log) and a random few
// microseconds after that statement was issued.
// RELIABILITY_KILLS sets the number of kills, RELIABILITY_SEED the calls and the moments.

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "reliability/harness.h"
#include "support/server_db.h"

namespace billdata::reliability {
namespace {

void kill_while_saving(const std::vector<Op>& mix, const std::string& what) {
    const int kills = env_or("RELIABILITY_KILLS", 30);
    const auto seed = static_cast<std::uint32_t>(env_or("RELIABILITY_SEED", 1));
    if (const std::string why = testing::missing_test_server(); !why.empty()) GTEST_SKIP() << why;
    if (testing::on_sqlserver())
        GTEST_SKIP() << "the books are checked with the embedded engine's and PostgreSQL's own "
                        "SQL, not written for SQL Server";
    const testing::EngineDatabase shop;
    const std::string& db = shop.target();
    const std::string engine = testing::test_engine();
    Books books(db);
    FrontEnd front(db, mix, seed, "crash");
    std::mt19937 moments(seed);
    auto uniform = [&](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(moments);
    };
    // Each kind of call in turn is the one killed, after a few calls drawn from the mix, at a
    // random statement of the ones it issued the last time.
    std::vector<Op> aims;
    for (Op op : mix)
        if (std::find(aims.begin(), aims.end(), op) == aims.end()) aims.push_back(op);
    std::map<Op, int> statements;
    std::map<std::string, int> killed;
    std::vector<Saved> saved;
    std::vector<std::string> failures;
    long answered = 0;
    Findings findings;
    int done = 0;
    while (done < kills && findings.ok()) {
        const Op aim = aims[static_cast<std::size_t>(done) % aims.size()];
        Till till(db, shop.dir().file("statements.log"));
        const int calls_before = uniform(0, 3);
        for (int n = 0;; ++n) {
            const Call call = n < calls_before ? front.next() : front.next(aim);
            int kill_at = 0;
            if (n >= calls_before) {
                const auto known = statements.find(call.op);
                kill_at = uniform(1, known == statements.end() ? 30 : known->second);
            }
            const auto answer =
                till.call(call.line(), kill_at, std::chrono::microseconds(uniform(0, 50)));
            if (!answer) {
                ++killed[name(call.op)];
                // A bill saved again when the till died holds its old lines or its new ones.
                if (call.saves.again)
                    for (Saved& s : saved)
                        if (s.table == call.saves.table && s.id == call.saves.id) s.lines = -1;
                break;
            }
            statements[call.op] = std::max(1, till.statements());
            ++answered;
            std::string error;
            if (auto s = front.answered(call, *answer, error))
                saved.push_back(*s);
            else if (!error.empty())
                failures.push_back(call.target + ": " + error);
        }
        ++done;
        findings = books.check(saved);
    }

    std::string inside;
    for (const auto& [op, n] : killed)
        inside += (inside.empty() ? "" : ", ") + op + " " + std::to_string(n);
    std::cout << "[ reliability ] " << engine << ": " << done << " kills (" << what << "; inside "
              << inside << "): " << answered << " answered, " << failures.size() << " failed; "
              << findings.summary() << std::endl;
    std::string failed;
    for (std::size_t i = 0; i < failures.size() && i < 10; ++i)
        failed += failures[i] + "\n";
    EXPECT_TRUE(failures.empty()) << failed;
    EXPECT_TRUE(findings.ok()) << "after kill " << done << ":\n" << findings.details();
}

TEST(Crashes, AKilledTillLeavesNoHalfBillOfAnyClassButCredit) {
    kill_while_saving(kShopDay, "every class but credit bills");
}

TEST(Crashes, AKilledTillLeavesNoHalfCreditBill) {
    kill_while_saving(kCreditDay, "credit bills and sales");
}

}  // namespace
}  // namespace billdata::reliability
