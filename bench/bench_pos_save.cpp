// Till sales saved per second — 5 lines with sizes, a member card and one pre-sent item —
// through PosData::SaveData, side by side with a plain program that sends the very same
// translated statements to SQLite itself, each prepared once and then bound and stepped for
// every sale. The ratio is what the component's layers cost on top of the engine's own work.
// Measured with WAL and synchronous NORMAL and FULL, on a fresh shop and on one that already
// holds 200,000 sales (generated once with plain inserts and kept under the build folder).
// BENCH_SCALE=<fraction> shortens the runs and shrinks the large shop for a quick try.

#include <sqlite3.h>
#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_table.h"
#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/posdata/posdata.h"
#include "billdata/schema/schema.h"
#include "pos_sale.h"

namespace {

using namespace billdata;

using bench::Captured;
using bench::kSentinel;
using bench::SaleInput;
// The captured sale's date and number, replaced when the large shop is generated.
constexpr const char* kDate = bench::kSaleDate;
constexpr const char* kBillNo = bench::kSaleBillNo;
// The captured sale's place in its day: the bill-number counter is set to it.
constexpr std::int64_t kSaleSequence = 2;

std::string connection_string(const std::string& path, const std::string& sync) {
    return "Provider=SQLite;Data Source=" + path + ";Synchronous=" + sync;
}

void new_shop(const std::string& path) {
    schema::create_database(path, true, 2025, 3);
}

std::vector<Captured> capture(const bench::Scratch& scratch) {
    const std::string path = scratch.path("capture.db");
    new_shop(path);
    return bench::capture_sale(connection_string(path, "Normal"), scratch.path("capture.log"));
}

// A parameter of a prepared statement: the captured literal's value, and whether it is one of
// the captured sale's own values that every sale draws afresh: its interior id, the day's
// bill-number sequence the counter is set to, or a text holding its bill number.
struct Param {
    dialect::LiteralValue value;
    bool is_id = false;
    bool is_sequence = false;
    bool has_bill_no = false;
};

struct Prepared {
    sqlite3_stmt* stmt = nullptr;
    std::vector<Param> params;
    bool after_commit = false;
    bool reads = false;
    bool counter = false;  // a statement of the bill-number counter
};

sqlite3* open_plain(const std::string& path, const std::string& sync) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) !=
        SQLITE_OK)
        throw std::runtime_error("cannot open " + path);
    sqlite3_busy_timeout(db, 5000);
    drivers::sqlite::register_tsql_runtime(db);
    const std::string pragmas = "PRAGMA journal_mode=WAL; PRAGMA synchronous=" + sync + ";";
    sqlite3_exec(db, pragmas.c_str(), nullptr, nullptr, nullptr);
    return db;
}

[[noreturn]] void fail(sqlite3* db, const std::string& what) {
    throw std::runtime_error(what + ": " + sqlite3_errmsg(db));
}

// The plain program: the translated statements of the captured sale, prepared once on its own
// handle, each sale binding the captured values with its own interior id.
class PlainProgram {
  public:
    PlainProgram(const std::vector<Captured>& sale, const std::string& path,
                 const std::string& sync)
        : db_(open_plain(path, sync)) {
        const dialect::Catalog catalog = drivers::sqlite::read_catalog(db_);
        dialect::TranslateOptions options;
        options.parameterise = true;
        for (const Captured& c : sale) {
            const dialect::Shape shape = dialect::statement_shape(c.tsql);
            const dialect::Translation tr = dialect::translate_sqlite(c.tsql, catalog, options);
            Prepared p;
            p.after_commit = c.after_commit;
            p.counter = c.tsql.find("ICBillNo") != std::string::npos;
            for (const dialect::Literal& l : shape.literals) {
                bool bound = false;
                for (std::size_t offset : tr.parameters)
                    bound = bound || offset == l.offset;
                const std::string_view token = std::string_view(c.tsql).substr(l.offset, l.length);
                if (!bound && token == std::to_string(kSentinel))
                    throw std::runtime_error("the interior id is written inline: " + tr.sql);
            }
            for (std::size_t offset : tr.parameters) {
                std::size_t length = 0;
                for (const dialect::Literal& l : shape.literals)
                    if (l.offset == offset) length = l.length;
                Param param;
                if (!dialect::literal_value(std::string_view(c.tsql).substr(offset, length),
                                            param.value))
                    throw std::runtime_error("a literal that cannot be bound: " + c.tsql);
                param.is_id = param.value.type == dialect::LiteralValue::Type::Integer &&
                              param.value.integer == kSentinel;
                // The counter's new value: binding the captured one again would leave its row
                // as it is, and the engine would skip writing that page for every later sale.
                param.is_sequence = c.tsql.rfind("Update ICBillNo set FMaxNum=", 0) == 0 &&
                                    param.value.type == dialect::LiteralValue::Type::Integer &&
                                    param.value.integer == kSaleSequence;
                param.has_bill_no = param.value.type == dialect::LiteralValue::Type::Text &&
                                    param.value.text.find(kBillNo) != std::string::npos;
                p.params.push_back(std::move(param));
            }
            if (sqlite3_prepare_v2(db_, tr.sql.c_str(), -1, &p.stmt, nullptr) != SQLITE_OK)
                fail(db_, "prepare " + tr.sql);
            p.reads = sqlite3_stmt_readonly(p.stmt);
            statements_.push_back(std::move(p));
        }
        int drawn = 0;
        for (const Prepared& p : statements_)
            for (const Param& param : p.params)
                drawn += param.is_sequence ? 1 : 0;
        if (drawn != 1) throw std::runtime_error("the bill-number counter's new value not found");
        sqlite3_prepare_v2(db_, "BEGIN IMMEDIATE", -1, &begin_, nullptr);
        sqlite3_prepare_v2(db_, "COMMIT", -1, &commit_, nullptr);
    }
    ~PlainProgram() {
        for (Prepared& p : statements_)
            sqlite3_finalize(p.stmt);
        sqlite3_finalize(begin_);
        sqlite3_finalize(commit_);
        sqlite3_close_v2(db_);
    }
    PlainProgram(const PlainProgram&) = delete;
    PlainProgram& operator=(const PlainProgram&) = delete;

    // One sale as the component issues it: the transaction, then the statements after it. Sale
    // `id` (from 1) is the day's sale number `id + 1` (the shop's counter starts at 1), with the
    // bill number the component gives it.
    void save(std::int64_t id) {
        Drawn drawn{id, id + 1, {}};
        char bill_no[32];
        const int prefix = static_cast<int>(std::strchr(kBillNo, '-') - kBillNo) + 1;
        std::snprintf(bill_no, sizeof bill_no, "%.*s%03lld", prefix, kBillNo,
                      static_cast<long long>(drawn.sequence));
        drawn.bill_no = bill_no;
        step(begin_);
        for (const Prepared& p : statements_)
            if (!p.after_commit) run(p, drawn, nullptr);
        step(commit_);
        for (const Prepared& p : statements_)
            if (p.after_commit) run(p, drawn, nullptr);
    }

    // Writes one generated sale (no reads, no counter rows) with its id, date and number.
    void write_generated(std::int64_t id, const std::string& date, const std::string& bill_no) {
        const std::string substitutes[2][2] = {{kDate, date}, {kBillNo, bill_no}};
        for (const Prepared& p : statements_)
            if (!p.after_commit && !p.reads && !p.counter) run(p, Drawn{id, 0, {}}, substitutes);
    }

    void exec(const std::string& sql) {
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(db_, sql);
    }

  private:
    void step(sqlite3_stmt* stmt) {
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        }
        sqlite3_reset(stmt);
        if (rc != SQLITE_DONE) fail(db_, sqlite3_sql(stmt));
    }

    // What a sale draws for itself (see Param).
    struct Drawn {
        std::int64_t id = 0;
        std::int64_t sequence = 0;
        std::string bill_no;
    };

    void run(const Prepared& p, const Drawn& drawn, const std::string (*substitutes)[2]) {
        int index = 0;
        std::string text;
        for (const Param& param : p.params) {
            ++index;
            switch (param.value.type) {
                case dialect::LiteralValue::Type::Integer:
                    sqlite3_bind_int64(p.stmt, index,
                                       param.is_id         ? drawn.id
                                       : param.is_sequence ? drawn.sequence
                                                           : param.value.integer);
                    break;
                case dialect::LiteralValue::Type::Real:
                    sqlite3_bind_double(p.stmt, index, param.value.real);
                    break;
                case dialect::LiteralValue::Type::Text:
                    if (substitutes) {
                        text = param.value.text;
                        for (int s = 0; s < 2; ++s)
                            for (auto at = text.find(substitutes[s][0]); at != std::string::npos;
                                 at = text.find(substitutes[s][0], at + substitutes[s][1].size()))
                                text.replace(at, substitutes[s][0].size(), substitutes[s][1]);
                        sqlite3_bind_text(p.stmt, index, text.data(), static_cast<int>(text.size()),
                                          SQLITE_TRANSIENT);
                    } else if (param.has_bill_no) {
                        text = param.value.text;
                        text.replace(text.find(kBillNo), std::strlen(kBillNo), drawn.bill_no);
                        sqlite3_bind_text(p.stmt, index, text.data(), static_cast<int>(text.size()),
                                          SQLITE_TRANSIENT);
                    } else {
                        sqlite3_bind_text(p.stmt, index, param.value.text.data(),
                                          static_cast<int>(param.value.text.size()), SQLITE_STATIC);
                    }
                    break;
            }
        }
        step(p.stmt);
    }

    sqlite3* db_;
    std::vector<Prepared> statements_;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
};

// A new demo shop for the plain program, with the counter rows the component's shop has after
// its first sale of the day (so that the captured updates find their rows).
void new_plain_shop(const std::string& path) {
    new_shop(path);
    auto cn = ado::Connection::create();
    cn->Open(connection_string(path, "Normal"));
    cn->Execute("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0,0,'')");
    cn->Execute("insert into ICBillNo(FTranType,FDate,FMaxNum) values(99,'2025-03-09',1)");
}

std::uint64_t fnv1a(std::string_view text, std::uint64_t h = 1469598103934665603ULL) {
    for (unsigned char c : text) {
        h ^= c;
        h *= 1099511628211ULL;
    }
    return h;
}

std::string schema_text(const std::string& path) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "select group_concat(sql, ';') from sqlite_master", -1, &st, nullptr);
    std::string text;
    if (sqlite3_step(st) == SQLITE_ROW && sqlite3_column_text(st, 0))
        text = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    sqlite3_finalize(st);
    sqlite3_close(db);
    return text;
}

// "YYYY-MM-DD" of `days` days before the captured sale's date.
std::string day_before(int days) {
    std::tm tm{};
    tm.tm_year = 2025 - 1900;
    tm.tm_mon = 2;
    tm.tm_mday = 9 - days;
    tm.tm_hour = 12;
    std::mktime(&tm);
    char out[16];
    std::strftime(out, sizeof out, "%Y-%m-%d", &tm);
    return out;
}

// The shop with `sales` sales already saved, 270 a day up to the day before the measured sales,
// each the captured sale with its own id, date and number. Generated once with the plain
// program's statements in one transaction and kept under the build folder, keyed by the schema
// and the sale's statements, so that a changed schema or sale makes a new one.
std::string large_shop(const std::vector<Captured>& sale, const bench::Scratch& scratch,
                       long sales) {
    const std::string fresh = scratch.path("schema.db");
    new_plain_shop(fresh);
    std::uint64_t key = fnv1a(schema_text(fresh));
    for (const Captured& c : sale)
        key = fnv1a(c.tsql, key);
    const std::filesystem::path folder = BILLDATA_BENCH_DATA_DIR;
    std::filesystem::create_directories(folder);
    char name[96];
    std::snprintf(name, sizeof name, "pos-sales-%ld-%016llx.db", sales,
                  static_cast<unsigned long long>(key));
    const std::filesystem::path cached = folder / name;
    if (std::filesystem::exists(cached)) return cached.string();

    std::fprintf(stderr, "generating a shop with %ld sales (kept as %s)...\n", sales,
                 cached.string().c_str());
    const auto t0 = bench::Clock::now();
    const std::filesystem::path partial = cached.string() + ".partial";
    std::filesystem::remove(partial);
    std::filesystem::copy_file(fresh, partial);
    {
        PlainProgram plain(sale, partial.string(), "Off");
        const long per_day = 270;
        const int days = static_cast<int>((sales + per_day - 1) / per_day);
        plain.exec("BEGIN");
        for (long k = 0; k < sales; ++k) {
            const int day = static_cast<int>(k / per_day);
            const std::string date = day_before(days - day);
            char bill_no[32];
            std::snprintf(bill_no, sizeof bill_no, "pos%s%s%s-%03ld", date.substr(2, 2).c_str(),
                          date.substr(5, 2).c_str(), date.substr(8, 2).c_str(), k % per_day + 1);
            plain.write_generated(k + 1, date, bill_no);
            if (k % per_day == per_day - 1 || k == sales - 1)
                plain.exec("INSERT INTO ICBillNo(FTranType,FDate,FMaxNum) VALUES(99,'" + date +
                           " 00:00:00'," + std::to_string(k % per_day + 1) + ")");
        }
        plain.exec("UPDATE ICMaxNum SET FMaxNum=" + std::to_string(sales) + " WHERE FTranType=0");
        plain.exec("COMMIT");
        plain.exec("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    std::filesystem::rename(partial, cached);
    std::fprintf(stderr, "  generated in %.1f s\n", bench::seconds_since(t0));
    return cached.string();
}

std::string copy_of(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    return to;
}

// A shop the component saves into under `sync`, its session set as a till's Init sets it.
struct ComponentShop {
    std::string cs;
    SaleInput sale;
    explicit ComponentShop(const std::string& path, const std::string& sync)
        : cs(connection_string(path, sync)) {}
    void save(long n) {
        PosData().Init(cs, 2025, 3);
        for (long i = 0; i < n; ++i)
            sale.save();
    }
};

}  // namespace

int main() {
    try {
        bench::Scratch scratch("billdata-bench-pos");
        const std::vector<Captured> sale = capture(scratch);
        const int runs = 7;
        // BENCH_POS_SYNC=<mode> runs only that mode's side-by-side runs (for a profiler's run).
        const char* only = std::getenv("BENCH_POS_SYNC");
        std::vector<std::string> modes = {"Normal", "Full"};
        if (only != nullptr && *only != '\0') modes = {only};

        // The component against the plain program, both on fresh shops.
        for (const std::string& sync : modes) {
            const long per_run = bench::scaled(sync == "Full" ? 300 : 1000, 50);
            std::fprintf(stderr, "POS sale save, synchronous=%s: %d runs of %ld sales...\n",
                         sync.c_str(), runs, per_run);
            const std::string ours = scratch.path("component-" + sync + ".db");
            const std::string theirs = scratch.path("plain-" + sync + ".db");
            new_shop(ours);
            new_plain_shop(theirs);
            ComponentShop shop(ours, sync);
            PlainProgram plain(sale, theirs, sync);
            std::int64_t next_id = 1;
            shop.save(10);  // the day's counter row, the pool and the caches
            const auto [component, reference] = bench::side_by_side(
                runs, per_run, [&] { shop.save(per_run); },
                [&] {
                    for (long i = 0; i < per_run; ++i)
                        plain.save(next_id++);
                });
            bench::report_rates(
                "POS sale save, WAL synchronous=" + sync +
                    ": `PosData::SaveData` vs the same translated statements prepared and bound",
                component, reference, "sales/s", 0.9);
        }

        if (only != nullptr && *only != '\0') return 0;
        // The component on a shop with 200,000 sales against the component on a fresh shop.
        const long sales = bench::scaled(200000, 2000);
        const std::string large = large_shop(sale, scratch, sales);
        for (const std::string& sync : modes) {
            const long per_run = bench::scaled(sync == "Full" ? 300 : 1000, 50);
            std::fprintf(stderr, "POS sale save with %ld sales saved, synchronous=%s...\n", sales,
                         sync.c_str());
            const std::string fresh = scratch.path("fresh-" + sync + ".db");
            new_shop(fresh);
            const std::string grown = copy_of(large, scratch.path("large-" + sync + ".db"));
            ComponentShop big(grown, sync), small(fresh, sync);
            big.save(10);
            small.save(10);
            const auto [on_large, on_fresh] = bench::side_by_side(
                runs, per_run, [&] { big.save(per_run); }, [&] { small.save(per_run); });
            char what[200];
            std::snprintf(what, sizeof what,
                          "POS sale save, WAL synchronous=%s: with %ld sales already saved vs a "
                          "fresh shop (both `PosData::SaveData`)",
                          sync.c_str(), sales);
            bench::report_rates(what, on_large, on_fresh, "sales/s", 0.8);
            std::filesystem::remove(grown);
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_pos_save: %s\n", e.what());
        return 1;
    }
    return 0;
}
