// Price propagation of one purchase bill whose item has many later purchase bills, spread over
// five stocks, run as a purchase receipt's save runs it after its commit: on the save's own
// connection, in autocommit, with the default durability. The walk visits every later bill once
// per stock, and each receipt at a new price asks for the stock on hand, writes an adjustment
// row and re-prices the bills after it, so it issues several statements per later bill and
// stock. Reported for 100, 1,000 and 10,000 later bills to show how it grows.
// BENCH_CACUSPTJD_OPTIONS=";Synchronous=Off" appends options to the connection string (to see
// what durability costs); BENCH_SCALE shrinks the largest case.
//
// The largest case is also compared with a plain program that runs the same statements on the
// engine: the statements of one walk are captured (the statement log, with the arguments of
// each stock-quantity call), translated and replayed on a copy of the database, each distinct
// statement prepared once and bound, all between one BEGIN and COMMIT.

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_table.h"
#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/procedures.h"
#include "billdata/drivers/sqlite/sqlite_driver.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/publicdata/publicdata.h"
#include "billdata/schema/schema.h"

namespace {

using namespace billdata;

constexpr int kItem = 6;
constexpr int kStocks = 5;

void run(sqlite3* db, const std::string& sql) {
    char* msg = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
        std::string text = msg ? msg : "?";
        sqlite3_free(msg);
        throw std::runtime_error(text + " in " + sql);
    }
}

// The demo shop with two more stocks, the bill under test (id 1, a receipt at 70 after 60) and
// `later` purchase bills of the same item after it: one in five a return, the others receipts
// whose price changes from one bill to the next, round the five stocks.
void fill(const std::string& path, int later) {
    schema::create_database(path, true, 2025, 3);
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    drivers::sqlite::register_tsql_runtime(db);
    run(db, "BEGIN");
    run(db, "INSERT INTO t_Stock(FItemID,FNumber,FName) VALUES(4,'04','S4'),(5,'05','S5')");
    run(db,
        "INSERT INTO ICStockBill(FInterID,FTranType,FDate,FInStockID,FDeleted) "
        "VALUES(1,112,'2025-03-01 00:00:00',1,0)");
    run(db,
        "INSERT INTO ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FPrice,FHisPrice) "
        "VALUES(1,1,6,10,70,60)");
    for (int i = 0; i < later; ++i) {
        const std::string id = std::to_string(i + 2);
        const int kind = i % 5 == 4 ? 114 : 112;
        const int stock = i % kStocks + 1;
        const int price = 60 + i % 7;
        run(db,
            "INSERT INTO ICStockBill(FInterID,FTranType,FDate,FInStockID,FOrgaID,FDeleted) "
            "VALUES(" +
                id + "," + std::to_string(kind) + ",'2025-03-02 00:00:00'," +
                std::to_string(stock) + ",101,0)");
        run(db,
            "INSERT INTO ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FPrice,FHisPrice) "
            "VALUES(" +
                id + ",1," + std::to_string(kItem) + ",3," + std::to_string(price) + ",0)");
    }
    run(db, "COMMIT");
    sqlite3_close(db);
}

long count_rows(const std::string& path, const char* sql) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
    long n = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_int64(st, 0) : -1;
    sqlite3_finalize(st);
    sqlite3_close(db);
    return n;
}

// ---- the plain program ----------------------------------------------------------------------

// The arguments of each stock-quantity call of the captured walk, in order.
std::vector<std::vector<std::int64_t>> stock_qty_calls;

void recording_stock_qty(sqlite3* db, std::vector<ado::driver::ProcArg>& args) {
    stock_qty_calls.push_back(
        {args.at(0).value.to_int32(), args.at(1).value.to_int32(), args.at(2).value.to_int32()});
    drivers::sqlite::find_procedure("sp_GetStockQty")(db, args);
}

// One statement of the replay: which prepared text, and the values bound to it.
struct Step {
    std::size_t statement = 0;
    std::vector<dialect::LiteralValue> values;
};

struct Replay {
    std::vector<std::string> texts;  // distinct translated statements
    std::vector<Step> steps;
};

std::string unescape(const std::string& line) {
    std::string out;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == 'n' || line[i + 1] == 'r')) {
            out += line[i + 1] == 'n' ? '\n' : '\r';
            ++i;
        } else {
            out += line[i];
        }
    }
    return out;
}

// Translates the logged statements as the driver does, with their literals as parameters.
Replay make_replay(const std::string& log_path, const std::string& db_path) {
    sqlite3* db = nullptr;
    sqlite3_open(db_path.c_str(), &db);
    drivers::sqlite::register_tsql_runtime(db);
    const dialect::Catalog catalog = drivers::sqlite::read_catalog(db);
    const std::string stock_qty = drivers::sqlite::stock_qty_statement(db);
    sqlite3_close(db);

    Replay r;
    std::map<std::string, std::size_t> index;
    auto statement = [&](const std::string& text) {
        auto [it, added] = index.try_emplace(text, r.texts.size());
        if (added) r.texts.push_back(text);
        return it->second;
    };
    std::ifstream log(log_path);
    std::string line;
    std::size_t call = 0;
    while (std::getline(log, line)) {
        const std::string tsql = unescape(line);
        Step step;
        if (tsql == "sp_GetStockQty") {
            step.statement = statement(stock_qty);
            for (std::int64_t v : stock_qty_calls.at(call++)) {
                dialect::LiteralValue value;
                value.integer = v;
                step.values.push_back(value);
            }
        } else {
            dialect::TranslateOptions options;
            options.parameterise = true;
            const dialect::Translation tr = dialect::translate_sqlite(tsql, catalog, options);
            step.statement = statement(tr.sql);
            for (std::size_t offset : tr.parameters) {
                for (const dialect::Literal& l : tr.literals) {
                    if (l.offset != offset) continue;
                    dialect::LiteralValue value;
                    if (!dialect::literal_value(std::string_view(tsql).substr(l.offset, l.length),
                                                value))
                        throw std::runtime_error("a literal that cannot be bound: " + tsql);
                    step.values.push_back(value);
                    break;
                }
            }
        }
        r.steps.push_back(std::move(step));
    }
    if (call != stock_qty_calls.size()) throw std::runtime_error("stock-quantity calls unmatched");
    return r;
}

// Runs the replay on `path` in one transaction, synced at its commit (Synchronous=Full).
void replay(const Replay& r, const std::string& path) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    drivers::sqlite::register_tsql_runtime(db);
    run(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
    run(db, "BEGIN IMMEDIATE");
    std::vector<sqlite3_stmt*> prepared(r.texts.size(), nullptr);
    for (const Step& step : r.steps) {
        sqlite3_stmt*& st = prepared[step.statement];
        if (!st &&
            sqlite3_prepare_v2(db, r.texts[step.statement].c_str(), -1, &st, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(db));
        int k = 1;
        for (const dialect::LiteralValue& v : step.values) {
            switch (v.type) {
                case dialect::LiteralValue::Type::Integer:
                    sqlite3_bind_int64(st, k++, v.integer);
                    break;
                case dialect::LiteralValue::Type::Real:
                    sqlite3_bind_double(st, k++, v.real);
                    break;
                case dialect::LiteralValue::Type::Text:
                    sqlite3_bind_text(st, k++, v.text.data(), static_cast<int>(v.text.size()),
                                      SQLITE_STATIC);
                    break;
            }
        }
        int rc;
        const int columns = sqlite3_column_count(st);
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            for (int c = 0; c < columns; ++c)
                if (sqlite3_column_type(st, c) == SQLITE_TEXT) sqlite3_column_text(st, c);
        }
        if (rc != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db));
        sqlite3_reset(st);
    }
    for (sqlite3_stmt* st : prepared)
        sqlite3_finalize(st);
    run(db, "COMMIT");
    sqlite3_close(db);
}

}  // namespace

int main() {
    try {
        const char* extra = std::getenv("BENCH_CACUSPTJD_OPTIONS");
        bench::Scratch scratch("billdata-bench-cacusptjd");
        std::vector<long> sizes = {100, 1000};
        if (bench::scaled(10000, 1000) > 1000) sizes.push_back(bench::scaled(10000, 1000));
        for (long later : sizes) {
            const std::string path = scratch.path("shop" + std::to_string(later) + ".db");
            std::fprintf(stderr, "CacuSptjd with %ld later purchase bills...\n", later);
            fill(path, static_cast<int>(later));
            const std::string cs =
                "Provider=SQLite;Data Source=" + path + (extra ? std::string(extra) : "");
            common::session() = common::SessionContext{};
            common::init_session(cs, 2025, 3);
            const int runs = later >= 10000 ? 3 : 5;
            const double seconds = bench::measure(runs, [&] {
                // What a purchase receipt's save does after its commit: its own connection, no
                // transaction.
                auto cn = ado::Connection::create();
                cn->Open(cs);
                PublicData().CacuSptjd(cn, 1, true);
                cn->Close();
            });
            const long adjustments =
                count_rows(path, "select count(*) from ICStockBillEntry where FEntryID<0");
            if (adjustments <= 0) throw std::runtime_error("the walk wrote no adjustment rows");
            char what[160];
            std::snprintf(what, sizeof what,
                          "`CacuSptjd` after a purchase receipt's save: %ld later purchase bills "
                          "in %d stocks (%ld adjustment rows)",
                          later, kStocks, adjustments);
            const bool target = later >= 10000;
            bench::print_row({what, bench::quantity(seconds * 1e3, "ms"), "", "",
                              target ? bench::verdict(seconds < 1.0, "< 1 s") : ""});
            if (later != sizes.back()) continue;

            // The same walk's statements, captured once and replayed by a plain program.
            const std::string log_path = scratch.path("statements.log");
            stock_qty_calls.clear();
            drivers::sqlite::register_procedure("sp_GetStockQty", recording_stock_qty);
            setenv("BILLDATA_SQL_LOG", log_path.c_str(), 1);
            {
                auto cn = ado::Connection::create();
                cn->Open(cs);
                PublicData().CacuSptjd(cn, 1, true);
                cn->Close();
            }
            unsetenv("BILLDATA_SQL_LOG");
            drivers::sqlite::register_procedure("sp_GetStockQty", nullptr);
            const Replay r = make_replay(log_path, path);
            const std::string copy = scratch.path("plain.db");
            {
                sqlite3* db = nullptr;
                sqlite3_open(path.c_str(), &db);
                drivers::sqlite::register_tsql_runtime(db);
                run(db, "VACUUM INTO '" + copy + "'");
                sqlite3_close(db);
            }
            std::vector<double> ours, plain;
            for (int i = 0; i < runs; ++i) {
                auto t0 = bench::Clock::now();
                auto cn = ado::Connection::create();
                cn->Open(cs);
                PublicData().CacuSptjd(cn, 1, true);
                cn->Close();
                ours.push_back(bench::seconds_since(t0));
                t0 = bench::Clock::now();
                replay(r, copy);
                plain.push_back(bench::seconds_since(t0));
            }
            const double a = bench::median(ours), b = bench::median(plain);
            std::snprintf(what, sizeof what,
                          "`CacuSptjd` with %ld later purchase bills vs the same %zu statements "
                          "prepared, bound and run in one transaction",
                          later, r.steps.size());
            bench::print_row({what, bench::quantity(a * 1e3, "ms"), bench::quantity(b * 1e3, "ms"),
                              bench::ratio_text(b / a), bench::verdict(b / a >= 0.8, "≥ 0.80")});
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_cacusptjd: %s\n", e.what());
        return 1;
    }
    return 0;
}
