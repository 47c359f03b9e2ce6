// Price propagation of one purchase bill whose item has many later purchase bills, spread over
// five stocks, run as a purchase receipt's save runs it after its commit: on the save's own
// connection, in autocommit, with the default durability. The walk visits every later bill once
// per stock, and each receipt at a new price asks for the stock on hand, writes an adjustment
// row and re-prices the bills after it, so it issues several statements per later bill and
// stock. Reported for 100, 1,000 and 10,000 later bills to show how it grows.
// BENCH_CACUSPTJD_OPTIONS=";Synchronous=Off" appends options to the connection string (to see
// what durability costs); BENCH_SCALE shrinks the largest case.

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_table.h"
#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
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
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_cacusptjd: %s\n", e.what());
        return 1;
    }
    return 0;
}
