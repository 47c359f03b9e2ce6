// Several tills saving at once on one database (a file, or a server's where the writers really
// run at the same time), each a `billdata batch` process of its
// own, then the books checked: nothing lost, nothing handed out twice, nothing half written.
// RELIABILITY_TILLS and RELIABILITY_CALLS (calls per till) set the size; RELIABILITY_SEED the
// calls drawn.

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "reliability/harness.h"
#include "support/server_db.h"

namespace billdata::reliability {
namespace {

struct TillsRun {
    std::vector<Saved> saved;
    std::vector<std::string> failures;
    long answered = 0;
    long deadlocks = 0;  // saves a server chose as deadlock victims, sent again
};

// `tills` processes at once, each sending `calls` calls of `mix` and waiting for every answer.
TillsRun run_tills(const std::string& db, const std::vector<Op>& mix, int tills, int calls,
                   std::uint32_t seed) {
    std::vector<TillsRun> runs(static_cast<std::size_t>(tills));
    std::vector<std::thread> threads;
    for (int t = 0; t < tills; ++t) {
        threads.emplace_back([&, t] {
            TillsRun& run = runs[static_cast<std::size_t>(t)];
            try {
                Till till(db);
                FrontEnd front(db, mix, seed + static_cast<std::uint32_t>(t),
                               "till " + std::to_string(t + 1));
                for (int n = 0; n < calls; ++n) {
                    const Call call = front.next();
                    std::string error;
                    // A server may pick one of two saves that wait for each other as its
                    // deadlock victim: that save fails whole with the lock error, and the till
                    // sends it again, as a till does. Anything else that fails is a finding.
                    for (int attempt = 0;; ++attempt) {
                        const auto answer = till.call(call.line());
                        if (!answer) {
                            run.failures.push_back("till " + std::to_string(t + 1) + " died");
                            return;
                        }
                        if (attempt == 0) ++run.answered;
                        error.clear();
                        if (auto saved = front.answered(call, *answer, error)) {
                            run.saved.push_back(*saved);
                        } else if (error.find("deadlock detected") != std::string::npos &&
                                   attempt < 3) {
                            ++run.deadlocks;
                            continue;
                        }
                        break;
                    }
                    if (!error.empty()) run.failures.push_back(call.target + ": " + error);
                }
                if (till.finish() < 0)
                    run.failures.push_back("till " + std::to_string(t + 1) + " did not exit");
            } catch (const std::exception& e) {
                run.failures.push_back(e.what());
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    TillsRun all;
    for (auto& run : runs) {
        all.saved.insert(all.saved.end(), run.saved.begin(), run.saved.end());
        all.failures.insert(all.failures.end(), run.failures.begin(), run.failures.end());
        all.answered += run.answered;
        all.deadlocks += run.deadlocks;
    }
    return all;
}

void tills_at_once(const std::vector<Op>& mix, const std::string& what) {
    const int tills = env_or("RELIABILITY_TILLS", 4);
    const int calls = env_or("RELIABILITY_CALLS", 30);
    if (const std::string why = testing::missing_test_server(); !why.empty()) GTEST_SKIP() << why;
    if (testing::on_sqlserver())
        GTEST_SKIP() << "the books are checked with the embedded engine's and PostgreSQL's own "
                        "SQL, not written for SQL Server";
    const testing::EngineDatabase shop;
    const std::string& db = shop.target();
    const std::string engine = testing::test_engine();
    Books books(db);
    const auto start = std::chrono::steady_clock::now();
    const TillsRun run =
        run_tills(db, mix, tills, calls, static_cast<std::uint32_t>(env_or("RELIABILITY_SEED", 1)));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const Findings findings = books.check(run.saved);

    std::cout << "[ reliability ] " << engine << ": " << tills << " tills x " << calls << " calls ("
              << what << ") in " << seconds << " s: " << run.answered << " answered, "
              << run.failures.size() << " failed, " << run.deadlocks
              << " sent again as deadlock victims; " << findings.summary() << std::endl;
    std::string failures;
    for (std::size_t i = 0; i < run.failures.size() && i < 10; ++i)
        failures += run.failures[i] + "\n";
    EXPECT_EQ(run.answered, long{tills} * calls);
    EXPECT_TRUE(run.failures.empty()) << failures;
    EXPECT_TRUE(findings.ok()) << findings.details();
}

TEST(Tills, SaveAtOnceWithoutLosingRepeatingOrHalfWritingABill) {
    tills_at_once(kShopDay, "every class but credit bills");
}

TEST(Tills, LendAndTakeBackAtOnce) {
    tills_at_once(kCreditDay, "credit bills and sales");
}

}  // namespace
}  // namespace billdata::reliability
