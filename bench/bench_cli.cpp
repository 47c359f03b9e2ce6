// The command line against the library it wraps:
// - till sales saved per second through `billdata batch` fed JSON lines (one PosData.Init line,
//   then one PosData.SaveData line per sale, read from a file, the answers read from a pipe),
//   side by side with the same sales saved by PosData::SaveData in this process, each run on a
//   fresh copy of the demo shop, the two taking turns run by run;
// - `billdata call` start-up: from starting the process to its answer having been read, on a
//   fresh copy of the demo shop each time, median of many.
// BENCH_SCALE=<fraction> shortens the runs for a quick try.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_table.h"
#include "billdata/common/session.h"
#include "billdata/posdata/posdata.h"
#include "billdata/schema/schema.h"
#include "pos_sale.h"

extern char** environ;

namespace {

using namespace billdata;

// The sale of bench::SaleInput as a batch line: the same lines, pre-sent item and arguments.
std::string sale_line() {
    return R"({"call": "PosData.SaveData", "args": {"StockID": 2, "BillDate": "2025-03-09", )"
           R"("BillData": {"fields": ["FItemID", "FSalerID", "FPreSend", "FRefInterId", )"
           R"("FRefEntryID", "FRefTranType", "FSizeID", "FQty", "FPrice", "FAmount", "FZkRate", )"
           R"("FRetailPrice", "FRetailAmount", "FUnitCost", "FColor"], "rows": [)"
           R"([1, 1, 0, 0, 0, 0, 2, 1.0, 80.0, 80.0, 0.8, 100.0, 100.0, 45.5, "黑色"], )"
           R"([2, 2, 0, 0, 0, 0, 3, 2.0, 80.0, 160.0, 0.8, 100.0, 200.0, 45.5, "白色"], )"
           R"([3, 3, 0, 0, 0, 0, 6, 1.0, 80.0, 80.0, 0.8, 100.0, 100.0, 45.5, "黑色"], )"
           R"([4, 1, 0, 0, 0, 0, 7, 2.0, 80.0, 160.0, 0.8, 100.0, 200.0, 45.5, "白色"], )"
           R"([1, 2, 0, 0, 0, 0, 3, 1.0, 80.0, 80.0, 0.8, 100.0, 100.0, 45.5, "黑色"]]}, )"
           R"("SumAmount": 640, "GetCash": 700, "GetBlank": 0, "GetDyq": 0, "OddMent": 0, )"
           R"("BillRemark": "bench", "ClassName": "早班", "QkAmount": 0, "VipID": 1002, )"
           R"("BillerID": 1, "GetAmount": 700, "ChangeAmount": 60, "GetQk": 0, )"
           R"("rsPreSendItem": {"fields": ["FItemID", "FQty", "FRetailPrice", "FUnitCost", )"
           R"("Fmemo", "FColor", "FSizeID"], "rows": [[7, 1.0, 39.0, 12.0, "赠品", "", 0]]}, )"
           R"("SumJf": 640, "AutoDelRefBill": false, "AmountBogusToVip": 1000, "JfExchange": 0, )"
           R"("GetJfAmount": 0, "Machine": "POS1", "StockBillID": 0, "BillNoBegChar": ""}})";
}

// Starts the command line with `args`, standard input from `in` (or /dev/null), standard output
// into a pipe whose reading end is returned in `out`, standard error to /dev/null.
pid_t start(const std::vector<std::string>& args, const std::string& in, int& out) {
    int pipe_fds[2];
    if (pipe(pipe_fds) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.empty() ? "/dev/null" : in.c_str(), O_RDONLY,
                                     0);
    posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);  // its progress
    posix_spawn_file_actions_addclose(&actions, pipe_fds[0]);
    posix_spawn_file_actions_addclose(&actions, pipe_fds[1]);
    std::vector<std::string> all{BILLDATA_CLI};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipe_fds[1]);
    if (rc != 0) {
        close(pipe_fds[0]);
        throw std::runtime_error("cannot start " + all[0]);
    }
    out = pipe_fds[0];
    return pid;
}

// Reads the process's answers to their end and waits for it; returns the answer lines and the
// number of error answers, raising when the process failed.
long finish(pid_t pid, int out, long* errors) {
    long lines = 0;
    std::string pending;
    char buf[1 << 16];
    for (ssize_t n; (n = read(out, buf, sizeof buf)) > 0;) {
        pending.append(buf, static_cast<std::size_t>(n));
        for (std::size_t at; (at = pending.find('\n')) != std::string::npos;) {
            if (pending.compare(0, 10, "{\"error\": ") == 0) {
                if (*errors == 0) std::fprintf(stderr, "%s\n", pending.substr(0, at).c_str());
                ++*errors;
            }
            pending.erase(0, at + 1);
            ++lines;
        }
    }
    close(out);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status)) throw std::runtime_error("the command line did not exit");
    return lines;
}

}  // namespace

int main() {
    try {
        bench::Scratch scratch("billdata-bench-cli");
        const std::string demo = scratch.path("demo.db");
        schema::create_database(demo, true, 2025, 3);
        // A database never used before: a pooled handle or a write-ahead log left by an earlier
        // run must never meet a database copied over the old one.
        auto fresh_copy = [&](const std::string& name) {
            const std::string path = scratch.path(name);
            for (const char* suffix : {"", "-wal", "-shm"})
                std::filesystem::remove(path + suffix);
            std::filesystem::copy_file(demo, path);
            return path;
        };
        int runs_so_far = 0;

        // Sales through `billdata batch` against the same sales through the library.
        {
            const long sales = bench::scaled(10000, 200);
            const int runs = 5;
            const std::string batch_db = scratch.path("batch.db");
            const std::string lines_file = scratch.path("sales.jsonl");
            {
                std::ofstream lines(lines_file);
                lines
                    << R"({"call": "PosData.Init", "args": {"NewPromptString": "Provider=SQLite;Data Source=)"
                    << batch_db << R"(", "New_CurYear": 2025, "New_CurPeriod": 3}})"
                    << "\n";
                const std::string sale = sale_line();
                for (long i = 0; i < sales; ++i)
                    lines << sale << "\n";
            }
            std::fprintf(stderr, "POS sales through `billdata batch`: %d runs of %ld sales...\n",
                         runs, sales);
            const auto [cli, library] = bench::side_by_side(
                runs, sales,
                [&] {
                    fresh_copy("batch.db");
                    int out = -1;
                    const pid_t pid = start({"batch"}, lines_file, out);
                    long errors = 0;
                    const long answers = finish(pid, out, &errors);
                    if (answers != sales + 1 || errors != 0)
                        throw std::runtime_error("the batch answered " + std::to_string(answers) +
                                                 " lines, " + std::to_string(errors) + " errors");
                },
                [&] {
                    // In this process the pool keeps the last run's handles: a new name.
                    const std::string path =
                        fresh_copy("library-" + std::to_string(++runs_so_far) + ".db");
                    common::session() = common::SessionContext{};
                    PosData().Init("Provider=SQLite;Data Source=" + path, 2025, 3);
                    bench::SaleInput sale;
                    for (long i = 0; i < sales; ++i)
                        sale.save();
                });
            bench::report_rates(
                "POS sale save (" + std::to_string(sales) +
                    " sales, default durability): `billdata batch` fed JSON lines vs "
                    "`PosData::SaveData` in the program",
                cli, library, "sales/s", 0.8);
        }

        // `billdata call` from the start of its process to its answer.
        {
            const int runs = static_cast<int>(bench::scaled(51, 11));
            std::fprintf(stderr, "`billdata call` start-up: %d runs...\n", runs);
            std::vector<double> times;
            for (int i = 0; i < runs; ++i) {
                const std::string db = fresh_copy("call.db");
                const auto t0 = bench::Clock::now();
                int out = -1;
                const pid_t pid =
                    start({"call", "--db", db, "--format", "json", "PublicData.GetBillData",
                           R"({"TranType": 99, "QuerySql": "", "UserID": 1, "ShowDetail": false})"},
                          "", out);
                long errors = 0;
                const long answers = finish(pid, out, &errors);
                times.push_back(bench::seconds_since(t0) * 1e3);
                if (answers != 1 || errors != 0)
                    throw std::runtime_error("`billdata call` did not answer");
            }
            const double ms = bench::median(times);
            bench::print_row(
                {"`billdata call` start-up on a fresh database: process start to its "
                 "answer (median of " +
                     std::to_string(runs) + ")",
                 bench::quantity(ms, "ms"), "", "", bench::verdict(ms < 20, "< 20 ms")});
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_cli: %s\n", e.what());
        return 1;
    }
    return 0;
}
