// Price propagation of one purchase bill whose item has many later purchase bills, spread over
// five stocks: the walk visits every later bill once per stock, and each receipt at a new price
// asks for the stock on hand and re-prices the bills after it, so the time grows faster than
// the number of bills. Run: ./build/bench/bench_cacusptjd

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/publicdata/publicdata.h"
#include "billdata/schema/schema.h"

namespace {

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
    billdata::schema::create_database(path, true, 2025, 3);
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    billdata::drivers::sqlite::register_tsql_runtime(db);
    run(db, "BEGIN");
    run(db, "INSERT INTO t_Stock(FItemID,FNumber,FName) VALUES(4,'04','S4'),(5,'05','S5')");
    run(db,
        "INSERT INTO ICStockBill(FInterID,FTranType,FDate,FInStockID,FDeleted) "
        "VALUES(1,112,'2025-03-01 00:00:00',1,0)");
    run(db,
        "INSERT INTO ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FPrice,FHisPrice) "
        "VALUES(1,1,6,10,70,60)");
    for (int i = 0; i < later; ++i) {
        const int id = i + 2;
        const int kind = i % 5 == 4 ? 114 : 112;
        const int stock = i % kStocks + 1;
        const double price = 60 + i % 7;
        run(db,
            "INSERT INTO ICStockBill(FInterID,FTranType,FDate,FInStockID,FOrgaID,FDeleted) "
            "VALUES(" +
                std::to_string(id) + "," + std::to_string(kind) + ",'2025-03-02 00:00:00'," +
                std::to_string(stock) + ",101,0)");
        run(db,
            "INSERT INTO ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FPrice,FHisPrice) "
            "VALUES(" +
                std::to_string(id) + ",1," + std::to_string(kItem) + ",3," + std::to_string(price) +
                ",0)");
    }
    run(db, "COMMIT");
    sqlite3_close(db);
}

void BM_CacuSptjd(benchmark::State& state) {
    const auto dir = std::filesystem::temp_directory_path() /
                     ("bench_cacusptjd_" + std::to_string(state.range(0)));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const std::string path = (dir / "shop.db").string();
    fill(path, static_cast<int>(state.range(0)));
    const std::string cs = "Provider=SQLite;Data Source=" + path;
    billdata::common::session() = billdata::common::SessionContext{};
    billdata::common::init_session(cs, 2025, 3);
    auto cn = billdata::ado::Connection::create();
    cn->Open(cs);
    for (auto _ : state)
        billdata::PublicData().CacuSptjd(cn, 1, true);
    cn->Close();
    std::filesystem::remove_all(dir);
    state.counters["later_bills"] = static_cast<double>(state.range(0));
}

BENCHMARK(BM_CacuSptjd)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CacuSptjd)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
