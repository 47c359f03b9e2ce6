// Translation of every corpus statement against the engine's own preparation of the translated
// text, side by side. Translation runs on every statement's path, so it should cost less than
// the preparation it feeds (ratio below 1).

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "dialect/bill_schema.h"

namespace {

struct Corpus {
    sqlite3* db = nullptr;
    billdata::dialect::Catalog catalog;
    std::vector<std::string> statements;
    std::vector<std::string> translated;

    Corpus() {
        std::ifstream in(std::string(BILLDATA_SOURCE_DIR) + "/tests/data/statements.sql");
        std::string line;
        while (std::getline(in, line)) {
            if (!line.empty() && line.rfind("--", 0) != 0) statements.push_back(line);
        }
        if (statements.empty()) throw std::runtime_error("no corpus statements");
        sqlite3_open(":memory:", &db);
        billdata::drivers::sqlite::register_tsql_runtime(db);
        sqlite3_exec(db, billdata::testing::kBillSchema, nullptr, nullptr, nullptr);
        catalog = billdata::drivers::sqlite::read_catalog(db);
        for (const auto& s : statements)
            translated.push_back(billdata::dialect::translate_sqlite(s, catalog).sql);
    }
    ~Corpus() { sqlite3_close(db); }
};

Corpus& corpus() {
    static Corpus c;
    return c;
}

void translate_all() {
    auto& c = corpus();
    for (const auto& s : c.statements) {
        auto t = billdata::dialect::translate_sqlite(s, c.catalog);
        benchmark::DoNotOptimize(t.sql.data());
    }
}

void prepare_all() {
    auto& c = corpus();
    for (const auto& sql : c.translated) {
        sqlite3_stmt* stmt = nullptr;
        sqlite3_prepare_v2(c.db, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr);
        benchmark::DoNotOptimize(stmt);
        sqlite3_finalize(stmt);
    }
}

void BM_TranslateCorpus(benchmark::State& state) {
    for (auto _ : state)
        translate_all();
    state.counters["statements"] = static_cast<double>(corpus().statements.size());
    state.counters["per_statement"] = benchmark::Counter(
        static_cast<double>(corpus().statements.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_TranslateCorpus)->Unit(benchmark::kMicrosecond);

void BM_PrepareTranslated(benchmark::State& state) {
    for (auto _ : state)
        prepare_all();
    state.counters["statements"] = static_cast<double>(corpus().statements.size());
    state.counters["per_statement"] = benchmark::Counter(
        static_cast<double>(corpus().statements.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_PrepareTranslated)->Unit(benchmark::kMicrosecond);

double seconds_for(void (*fn)(), int rounds) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < rounds; ++i)
        fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The two costs measured back to back, for the ratio.
    translate_all();
    prepare_all();
    const double translate = seconds_for(translate_all, 200);
    const double prepare = seconds_for(prepare_all, 200);
    std::printf(
        "translate/prepare ratio over %zu statements: %.3f (translate %.1f us, prepare %.1f us per corpus)\n",
        corpus().statements.size(), translate / prepare, translate / 200 * 1e6,
        prepare / 200 * 1e6);
    return 0;
}
