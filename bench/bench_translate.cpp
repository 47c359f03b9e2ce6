// Translation of every corpus statement against the engine's own preparation of the translated
// text, side by side. A statement whose shape is cached does neither; a new shape does both,
// and the translation should cost well under the preparation it feeds (ratio above 1).

#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_table.h"
#include "bill_schema.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"

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
        volatile const char* keep = t.sql.data();
        (void)keep;
    }
}

void prepare_all() {
    auto& c = corpus();
    for (const auto& sql : c.translated) {
        sqlite3_stmt* stmt = nullptr;
        sqlite3_prepare_v2(c.db, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr);
        volatile sqlite3_stmt* keep = stmt;
        (void)keep;
        sqlite3_finalize(stmt);
    }
}

}  // namespace

int main() {
    namespace bench = billdata::bench;
    // Both once first (the catalogue, the engine's caches), then medians of rounds of each.
    translate_all();
    prepare_all();
    const int rounds = 50;
    const std::size_t n = corpus().statements.size();
    const double translate = bench::measure(7,
                                            [] {
                                                for (int i = 0; i < rounds; ++i)
                                                    translate_all();
                                            }) /
                             rounds / static_cast<double>(n);
    const double prepare = bench::measure(7,
                                          [] {
                                              for (int i = 0; i < rounds; ++i)
                                                  prepare_all();
                                          }) /
                           rounds / static_cast<double>(n);
    char what[160];
    std::snprintf(what, sizeof what,
                  "translating a statement vs the engine preparing its translation (%zu "
                  "statements of the corpus, per statement; a cached statement does neither)",
                  n);
    bench::print_row({what, bench::quantity(translate * 1e6, "µs"),
                      bench::quantity(prepare * 1e6, "µs"), bench::ratio_text(prepare / translate),
                      ""});
    return 0;
}
