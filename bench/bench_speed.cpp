// Speed below the statement texts, each comparison side by side in one run, medians of several
// runs: opening from the pool against a fresh open, the interior-id cross-check at 200,000
// headers, stock on hand with 10 against 100,000 bills of an item, and the POS lists on 200,000
// headers and 1,000,000 lines against the same translated statements run on the raw engine.
// BENCH_SCALE=<fraction> shrinks the data for a quick try. A plain program: it prints a table.
#include <sqlite3.h>

#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench_table.h"
#include "billdata/ado/ado.h"
#include "billdata/ado/driver.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/procedures.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/schema/schema.h"
#include "pos_list.h"

namespace {

using namespace billdata;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Median seconds of one call of `fn` over `runs` runs.
double measure(int runs, const std::function<void()>& fn) {
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        auto t0 = Clock::now();
        fn();
        t.push_back(seconds_since(t0));
    }
    return median(t);
}

long rss_kb() {
    std::ifstream in("/proc/self/statm");
    long pages = 0, resident = 0;
    in >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct Raw {
    sqlite3* db = nullptr;
    explicit Raw(const std::string& path) {
        sqlite3_open(path.c_str(), &db);
        drivers::sqlite::register_tsql_runtime(db);
        sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr,
                     nullptr);
    }
    ~Raw() { sqlite3_close_v2(db); }
    void exec(const std::string& sql) {
        char* msg = nullptr;
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
            std::fprintf(stderr, "%s\n", msg ? msg : "?");
            std::exit(1);
        }
    }
    // Runs a statement to its end reading every column of every row; returns the rows.
    long rows(const std::string& sql) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
            std::fprintf(stderr, "%s\n", sqlite3_errmsg(db));
            std::exit(1);
        }
        long n = 0;
        const int cols = sqlite3_column_count(st);
        while (sqlite3_step(st) == SQLITE_ROW) {
            for (int i = 0; i < cols; ++i) {
                if (sqlite3_column_type(st, i) == SQLITE_TEXT) sqlite3_column_text(st, i);
            }
            ++n;
        }
        sqlite3_finalize(st);
        return n;
    }
};

// Headers of kind 99 on consecutive days, `per_day` a day from 2024-01-01, five lines each with
// one size/colour row; `item_bills` extra purchase bills of item 1 into stock 1.
void fill(const std::string& path, long headers, long per_day) {
    Raw raw(path);
    raw.exec("BEGIN");
    sqlite3_stmt *h = nullptr, *e = nullptr, *e1 = nullptr;
    sqlite3_prepare_v2(raw.db,
                       "INSERT INTO ICStockBill (FInterID, FTranType, FDate, FBillNo, "
                       "FOutStockID, FBillerID, FSumQty, FSumAmount, FVipID, FSysTime) VALUES "
                       "(?1, 99, date('2024-01-01', '+' || (?1 / ?2) || ' days'), "
                       "'LS' || ?1, 1, 1, 5, 500, 1, '2024-01-01 10:00:00')",
                       -1, &h, nullptr);
    sqlite3_prepare_v2(raw.db,
                       "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FRowKey, "
                       "FQty, FPrice, FAmount, FRetailPrice, FSalerID) VALUES "
                       "(?1, ?2, 1 + ?2, 'r' || ?2, 1, 100, 100, 120, 1)",
                       -1, &e, nullptr);
    sqlite3_prepare_v2(raw.db,
                       "INSERT INTO ICStockBillEntry_1 (FInterID, FItemID, FRowKey, FSizeID, "
                       "FColor, FQty) VALUES (?1, 1 + ?2, 'r' || ?2, 1, 'red', 1)",
                       -1, &e1, nullptr);
    for (long id = 1; id <= headers; ++id) {
        for (int line = 1; line <= 5; ++line) {
            for (sqlite3_stmt* st : {e, e1}) {
                sqlite3_bind_int64(st, 1, id);
                sqlite3_bind_int(st, 2, line);
                sqlite3_step(st);
                sqlite3_reset(st);
            }
        }
        sqlite3_bind_int64(h, 1, id);
        sqlite3_bind_int64(h, 2, per_day);
        sqlite3_step(h);
        sqlite3_reset(h);
    }
    sqlite3_finalize(h);
    sqlite3_finalize(e);
    sqlite3_finalize(e1);
    raw.exec("COMMIT");
}

using bench::Row;
std::vector<Row> table;

// `min_ratio` > 0: the ratio the row must reach (billdata's rate over the reference's, or the
// reference's time over billdata's).
void report(const std::string& what, double ours, double theirs, const char* unit,
            bool higher_is_better, double min_ratio = 0, const std::string& target = {}) {
    const double r = higher_is_better ? ours / theirs : theirs / ours;
    table.push_back({what, bench::quantity(ours, unit), bench::quantity(theirs, unit),
                     bench::ratio_text(r),
                     min_ratio > 0 ? bench::verdict(r >= min_ratio, target) : target});
    std::fprintf(stderr, "  %s: %s vs %s\n", what.c_str(), table.back().ours.c_str(),
                 table.back().reference.c_str());
}

}  // namespace

int main() {
    const char* scale_env = std::getenv("BENCH_SCALE");
    const double scale = scale_env ? std::atof(scale_env) : 1.0;
    const long headers = std::max(1000L, static_cast<long>(200000 * scale));
    const long per_day = 270;  // 200,000 sales over about two years
    char folder[] = "/tmp/billdata-bench-XXXXXX";
    if (!mkdtemp(folder)) return 1;
    const std::string path = std::string(folder) + "/shop.db";
    schema::create_database(path, true, 2025, 3);
    const std::string cs = "Provider=SQLite;Data Source=" + path + ";Synchronous=Normal";

    // Opening a connection: from the pool against a fresh handle.
    {
        const int n = 2000;
        auto open_close = [&](const std::string& c) {
            for (int i = 0; i < n; ++i) {
                auto cn = ado::Connection::create();
                cn->Open(c);
                cn->Close();
            }
        };
        double pooled = measure(5, [&] { open_close(cs); }) / n * 1e6;
        double fresh = measure(5, [&] { open_close(cs + ";Pooling=False"); }) / n * 1e6;
        report("open + close a connection: from the pool vs a fresh handle", pooled, fresh, "µs",
               false);
    }

    std::fprintf(stderr, "filling %ld headers, %ld lines...\n", headers, headers * 5);
    fill(path, headers, per_day);

    Raw raw(path);
    const auto catalog = drivers::sqlite::read_catalog(raw.db);
    auto translated = [&](const std::string& tsql) {
        return dialect::translate_sqlite(tsql, catalog).sql;
    };

    // The interior-id cross-check: kept count against the plain count the statement means.
    {
        const std::string check =
            "Select max(finterID) as FMax,count(*) as Fcount from icstockbill";
        auto cn = ado::Connection::create();
        cn->Open(cs);
        double ours = measure(21,
                              [&] {
                                  auto rs = cn->Execute(check);
                                  (void)rs->Fields("Fcount").Value();
                              }) *
                      1e3;
        double scan = measure(21,
                              [&] {
                                  raw.rows(
                                      "SELECT max(FInterID) AS FMax, count(*) AS Fcount "
                                      "FROM ICStockBill");
                              }) *
                      1e3;
        report("interior-id cross-check at " + std::to_string(headers) +
                   " headers vs the same on the raw engine (full count)",
               ours, scan, "ms", false);
    }

    // Stock on hand: item 1 in stock 1 with 10 bills, item 2 with 100,000 (purchase bills).
    {
        const long many = std::max(1000L, static_cast<long>(100000 * scale));
        raw.exec("BEGIN");
        long id = 10000000;
        for (long i = 0; i < 10; ++i, ++id)
            raw.exec("INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty) VALUES (" +
                     std::to_string(id) +
                     ", 1, 1, 2); INSERT INTO ICStockBill (FInterID, "
                     "FTranType, FInStockID) VALUES (" +
                     std::to_string(id) + ", 112, 1)");
        sqlite3_stmt* st = nullptr;
        sqlite3_prepare_v2(raw.db,
                           "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty) "
                           "VALUES (?1, 1, 2, 2)",
                           -1, &st, nullptr);
        sqlite3_stmt* hd = nullptr;
        sqlite3_prepare_v2(raw.db,
                           "INSERT INTO ICStockBill (FInterID, FTranType, FInStockID) "
                           "VALUES (?1, 112, 1)",
                           -1, &hd, nullptr);
        for (long i = 0; i < many; ++i, ++id) {
            for (sqlite3_stmt* s : {st, hd}) {
                sqlite3_bind_int64(s, 1, id);
                sqlite3_step(s);
                sqlite3_reset(s);
            }
        }
        sqlite3_finalize(st);
        sqlite3_finalize(hd);
        raw.exec("COMMIT");
        auto proc = drivers::sqlite::find_procedure("sp_GetStockQty");
        auto call = [&](int item) {
            std::vector<ado::driver::ProcArg> args = {
                {"@StockID", ado::VarType::Long, 1, ado::Variant(std::int32_t{1})},
                {"@ItemID", ado::VarType::Long, 1, ado::Variant(std::int32_t{item})},
                {"@InterID", ado::VarType::Long, 1, ado::Variant(std::int32_t{10000001})},
                {"@RtnQty", ado::VarType::Double, 2, ado::Variant()}};
            for (int i = 0; i < 1000; ++i)
                proc(raw.db, args);
        };
        double big = measure(5, [&] { call(2); }) / 1000 * 1e6;
        double small = measure(5, [&] { call(1); }) / 1000 * 1e6;
        report("`sp_GetStockQty` of an item with " + std::to_string(many) +
                   " bills vs one with 10 bills",
               big, small, "µs", false);
    }

    // The POS lists: the component's record set against the translated text on the raw engine.
    {
        auto cn = ado::Connection::create();
        cn->Open(cs);
        const long last_day = headers / per_day;
        char from[16], to[16];
        auto day = [](long d, char* out) {
            std::tm tm{};
            tm.tm_year = 124;
            tm.tm_mon = 0;
            tm.tm_mday = 1 + static_cast<int>(d);
            std::mktime(&tm);
            std::strftime(out, 16, "%Y-%m-%d", &tm);
        };
        day(last_day - 6, from);
        day(last_day, to);
        const std::string week = bench::pos_list_statement(std::string("and t1.FDate between '") +
                                                           from + "' and '" + to + "'");
        const std::string all = bench::pos_list_statement("");
        auto read_all = [&](const std::string& sql, long* peak_kb) {
            auto rs = cn->Execute(sql);
            auto& fields = rs->GetFields();
            long n = 0;
            const long before = rss_kb();
            while (!rs->Eof()) {
                for (std::size_t i = 0; i < fields.Count(); ++i)
                    (void)fields.Item(i).Value();
                if (peak_kb && (++n & 0xffff) == 0)
                    *peak_kb = std::max(*peak_kb, rss_kb() - before);
                rs->MoveNext();
            }
        };
        const std::string week_sql = translated(week);
        const long week_rows = raw.rows(week_sql);
        // About 25 ms each: on a machine that other work shares, the two take turns, each
        // going first in every other round, and the medians of many rounds are compared.
        std::vector<double> t_week_ours, t_week_raw;
        for (int round = 0; round < 31; ++round) {
            auto ours_once = [&] {
                const auto t0 = Clock::now();
                read_all(week, nullptr);
                t_week_ours.push_back(seconds_since(t0));
            };
            auto raw_once = [&] {
                const auto t0 = Clock::now();
                raw.rows(week_sql);
                t_week_raw.push_back(seconds_since(t0));
            };
            if (round % 2) {
                ours_once();
                raw_once();
            } else {
                raw_once();
                ours_once();
            }
        }
        const double ours = median(t_week_ours) * 1e3;
        const double plain = median(t_week_raw) * 1e3;
        report("7-day POS list (" + std::to_string(week_rows) +
                   " rows) through a record set vs the translated text on the raw engine",
               ours, plain, "ms", false, 1 / 1.2, "≥ 0.83 (within 1.2× raw)");

        const std::string all_sql = translated(all);
        const long all_rows = raw.rows(all_sql);
        long peak = 0;
        // Seconds a run: the two take turns too, so that both see the same state of the machine.
        std::vector<double> t_all_ours, t_all_raw;
        for (int round = 0; round < 3; ++round) {
            auto t0 = Clock::now();
            read_all(all, &peak);
            t_all_ours.push_back(seconds_since(t0));
            t0 = Clock::now();
            raw.rows(all_sql);
            t_all_raw.push_back(seconds_since(t0));
        }
        const double t_ours = median(t_all_ours);
        const double t_plain = median(t_all_raw);
        report("whole-kind POS list (" + std::to_string(all_rows) +
                   " rows) streamed through a record set vs the raw engine",
               all_rows / t_ours, all_rows / t_plain, "rows/s", true, 0.9, "≥ 0.90");
        table.push_back({"resident memory growth while streaming the whole-kind list",
                         std::to_string(peak) + " kB", "", "", "flat"});
    }

    std::filesystem::remove_all(folder);
    for (const Row& r : table)
        bench::print_row(r);
    return 0;
}
