// Till sales saved per second on an embedded database — 5 lines with sizes, a member card and
// one pre-sent item — through PosData::SaveData, side by side with a plain program that sends
// the very same translated statements to SQLite itself (prepare, step, finalize; texts
// translated once up front). The ratio of the two times is what the component's layers cost on
// top of the engine's own work.

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "billdata/posdata/posdata.h"
#include "billdata/schema/schema.h"

namespace {

using namespace billdata;

// A scratch folder for the databases of one run, removed at exit.
struct Scratch {
    std::filesystem::path dir;
    int shops = 0;
    Scratch() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "bench_pos_XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot create a scratch folder");
        dir = pattern;
    }
    ~Scratch() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    // A new demo shop (year 2025, period 3); returns its path. Every run of a benchmark
    // function gets a shop of its own.
    std::string shop(const std::string& name) {
        const std::string path = (dir / (std::to_string(++shops) + name)).string();
        schema::create_database(path, true, 2025, 3);
        return path;
    }
};

Scratch& scratch() {
    static Scratch s;
    return s;
}

std::string connection_string(const std::string& path) {
    return "Provider=SQLite;Data Source=" + path;
}

// The sale every iteration saves: five lines with colours and sizes, one pre-sent item.
struct SaleInput {
    std::shared_ptr<ado::Recordset> lines = ado::Recordset::create();
    std::shared_ptr<ado::Recordset> presend = ado::Recordset::create();

    SaleInput() {
        using namespace ado;
        for (const char* f : {"FItemID", "FSalerID", "FPreSend", "FRefInterId", "FRefEntryID",
                              "FRefTranType", "FSizeID"})
            lines->GetFields().Append(f, adInteger);
        for (const char* f :
             {"FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice", "FRetailAmount", "FUnitCost"})
            lines->GetFields().Append(f, adDouble);
        lines->GetFields().Append("FColor", adVarWChar, 20);
        lines->Open();
        const int items[5] = {1, 2, 3, 4, 1};
        const int sizes[5] = {2, 3, 6, 7, 3};
        for (int i = 0; i < 5; ++i) {
            lines->AddNew();
            lines->Fields("FItemID").SetValue(items[i]);
            lines->Fields("FSalerID").SetValue(1 + i % 3);
            lines->Fields("FPreSend").SetValue(0);
            lines->Fields("FRefInterId").SetValue(0);
            lines->Fields("FRefEntryID").SetValue(0);
            lines->Fields("FRefTranType").SetValue(0);
            lines->Fields("FSizeID").SetValue(sizes[i]);
            lines->Fields("FQty").SetValue(1.0 + i % 2);
            lines->Fields("FPrice").SetValue(80.0);
            lines->Fields("FAmount").SetValue(80.0 * (1 + i % 2));
            lines->Fields("FZkRate").SetValue(0.8);
            lines->Fields("FRetailPrice").SetValue(100.0);
            lines->Fields("FRetailAmount").SetValue(100.0 * (1 + i % 2));
            lines->Fields("FUnitCost").SetValue(45.5);
            lines->Fields("FColor").SetValue(i % 2 ? "白色" : "黑色");
            lines->Update();
        }
        presend->GetFields().Append("FItemID", adInteger);
        presend->GetFields().Append("FQty", adDouble);
        presend->GetFields().Append("FRetailPrice", adDouble);
        presend->GetFields().Append("FUnitCost", adDouble);
        presend->GetFields().Append("Fmemo", adVarWChar, 50);
        presend->GetFields().Append("FColor", adVarWChar, 20);
        presend->GetFields().Append("FSizeID", adInteger);
        presend->Open();
        presend->AddNew();
        presend->Fields("FItemID").SetValue(7);
        presend->Fields("FQty").SetValue(1.0);
        presend->Fields("FRetailPrice").SetValue(39.0);
        presend->Fields("FUnitCost").SetValue(12.0);
        presend->Fields("Fmemo").SetValue("赠品");
        presend->Fields("FColor").SetValue("");
        presend->Fields("FSizeID").SetValue(0);
        presend->Update();
    }

    std::int32_t save() {
        lines->MoveFirst();
        presend->MoveFirst();
        auto bill_data = lines;  // SaveData releases the caller's reference
        return PosData().SaveData(2, ado::DateTime(2025, 3, 9), bill_data, 640, 700, 0, 0, 0,
                                  "bench", "早班", 0, 1002, 1, 700, 60, 0, presend, 640, false,
                                  1000, 0, 0, "POS1", 0, "");
    }
};

void BM_PosSave_Component(benchmark::State& state) {
    const std::string path = scratch().shop("component.db");
    common::session() = common::SessionContext{};
    PosData().Init(connection_string(path), 2025, 3);
    SaleInput sale;
    for (auto _ : state)
        benchmark::DoNotOptimize(sale.save());
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("sales");
}

// The translated statements of one sale, its interior id standing as kSentinel.
constexpr const char* kSentinel = "987654321";

struct PlainSale {
    std::vector<std::string> in_transaction;
    std::vector<std::string> after_commit;
};

// Saves two sales through the component on a scratch shop and keeps the statements of the
// second (a day's later sale: the bill-number counter row exists), translated once.
PlainSale capture() {
    const std::string path = scratch().shop("capture.db");
    {
        auto cn = ado::Connection::create();
        cn->Open(connection_string(path));
        cn->Execute("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0,987654319,'')");
    }
    common::session() = common::SessionContext{};
    PosData().Init(connection_string(path), 2025, 3);
    SaleInput sale;
    sale.save();
    const std::string log = (scratch().dir / "capture.log").string();
    setenv("BILLDATA_SQL_LOG", log.c_str(), 1);
    const std::int32_t id = sale.save();
    unsetenv("BILLDATA_SQL_LOG");
    if (std::to_string(id) != kSentinel) throw std::runtime_error("unexpected interior id");

    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    drivers::sqlite::register_tsql_runtime(db);
    const dialect::Catalog catalog = drivers::sqlite::read_catalog(db);
    sqlite3_close(db);

    PlainSale plain;
    std::ifstream in(log);
    bool committed = false;
    for (std::string line; std::getline(in, line);) {
        // The sold-quantity updates are the first statements after the commit.
        if (line.rfind("Update t1 set t1.FSaleQty", 0) == 0) committed = true;
        auto& list = committed ? plain.after_commit : plain.in_transaction;
        list.push_back(dialect::translate_sqlite(line, catalog).sql);
    }
    if (plain.in_transaction.size() < 10 || plain.after_commit.size() != 2)
        throw std::runtime_error("unexpected statement log of a sale");
    return plain;
}

void run_plain(sqlite3* db, const std::string& sql) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(db));
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    }
    sqlite3_finalize(stmt);
    if (rc != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db));
}

std::string with_id(std::string sql, const std::string& id) {
    for (auto at = sql.find(kSentinel); at != std::string::npos; at = sql.find(kSentinel, at))
        sql.replace(at, std::char_traits<char>::length(kSentinel), id);
    return sql;
}

void BM_PosSave_PlainSQLite(benchmark::State& state) {
    static const PlainSale plain = capture();
    const std::string path = scratch().shop("plain.db");
    {
        // The counter rows the component's shop has after its first sale of the day.
        auto cn = ado::Connection::create();
        cn->Open(connection_string(path));
        cn->Execute("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0,0,'')");
        cn->Execute("insert into ICBillNo(FTranType,FDate,FMaxNum) values(99,'2025-03-09',1)");
    }
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    sqlite3_busy_timeout(db, 5000);
    drivers::sqlite::register_tsql_runtime(db);
    // The same durability as the component's connections.
    sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", nullptr, nullptr,
                 nullptr);
    std::int64_t next_id = 1;
    try {
        for (auto _ : state) {
            const std::string id = std::to_string(next_id++);
            run_plain(db, "BEGIN IMMEDIATE");
            for (const std::string& sql : plain.in_transaction)
                run_plain(db, with_id(sql, id));
            run_plain(db, "COMMIT");
            for (const std::string& sql : plain.after_commit)
                run_plain(db, with_id(sql, id));
        }
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
    }
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("sales");
}

BENCHMARK(BM_PosSave_Component)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PosSave_PlainSQLite)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
