#include "billdata/drivers/sqlite/procedures.h"

#include <sqlite3.h>

#include <cctype>
#include <cmath>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "billdata/ado/com_error.h"

namespace billdata::drivers::sqlite {

namespace {

bool iequals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

[[noreturn]] void fail(sqlite3* db, const char* what) {
    throw ado::ComError(ado::err::kDatabase, std::string(what) + ": " + sqlite3_errmsg(db));
}

// A prepared statement that is finalised on every exit.
class Statement {
  public:
    Statement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &st_, nullptr) != SQLITE_OK) {
            sqlite3_finalize(st_);
            st_ = nullptr;
            fail(db, "prepare");
        }
    }
    ~Statement() { sqlite3_finalize(st_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int i, std::int64_t v) {
        sqlite3_bind_int64(st_, i, v);
        return *this;
    }
    Statement& bind(int i, double v) {
        sqlite3_bind_double(st_, i, v);
        return *this;
    }
    Statement& bind(int i, std::string_view v) {
        sqlite3_bind_text(st_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    // True while a row is available; raises on an engine error.
    bool step() {
        int rc = sqlite3_step(st_);
        if (rc == SQLITE_ROW) return true;
        if (rc == SQLITE_DONE) return false;
        fail(db_, "step");
    }
    void run() {
        step();
        sqlite3_reset(st_);
    }
    void reset() {
        sqlite3_reset(st_);
        sqlite3_clear_bindings(st_);
    }
    std::int64_t int_at(int i) const { return sqlite3_column_int64(st_, i); }
    double real_at(int i) const { return sqlite3_column_double(st_, i); }
    bool null_at(int i) const { return sqlite3_column_type(st_, i) == SQLITE_NULL; }

  private:
    sqlite3* db_;
    sqlite3_stmt* st_ = nullptr;
};

// Statements a procedure runs on every call, kept prepared per handle: the price propagation
// asks for a stock quantity thousands of times on one connection, and preparing the query cost
// more than running it. The engine prepares a kept statement again by itself when the schema
// changes.
struct KeptStatements {
    std::mutex mutex;
    std::unordered_map<sqlite3*, std::map<const char*, sqlite3_stmt*>> by_db;
};

// Never destroyed: pooled handles are closed by static destructors at exit, and each one still
// finalizes its kept statements then (a statement left unfinalized would keep its handle from
// ever closing).
KeptStatements& kept_statements() {
    static auto* k = new KeptStatements;
    return *k;
}

// A statement of the handle's kept ones (`sql` is a constant of this file, its address the key),
// reset with its bindings cleared when done. One that is running already (a procedure called
// from within itself) is not shared: a statement of its own is prepared then.
class KeptStatement {
  public:
    KeptStatement(sqlite3* db, const char* sql) : db_(db) {
        {
            KeptStatements& k = kept_statements();
            std::lock_guard lock(k.mutex);
            sqlite3_stmt*& slot = k.by_db[db][sql];
            if (slot && !sqlite3_stmt_busy(slot)) {
                st_ = slot;
                return;
            }
            if (!slot) {
                if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &slot, nullptr) !=
                    SQLITE_OK) {
                    sqlite3_finalize(slot);
                    slot = nullptr;
                    fail(db, "prepare");
                }
                st_ = slot;
                return;
            }
        }
        own_ = true;
        if (sqlite3_prepare_v2(db, sql, -1, &st_, nullptr) != SQLITE_OK) {
            sqlite3_finalize(st_);
            fail(db, "prepare");
        }
    }
    ~KeptStatement() {
        if (own_) {
            sqlite3_finalize(st_);
        } else {
            sqlite3_reset(st_);
            sqlite3_clear_bindings(st_);
        }
    }
    KeptStatement(const KeptStatement&) = delete;
    KeptStatement& operator=(const KeptStatement&) = delete;

    sqlite3_stmt* get() const { return st_; }
    bool step() {
        const int rc = sqlite3_step(st_);
        if (rc == SQLITE_ROW) return true;
        if (rc == SQLITE_DONE) return false;
        fail(db_, "step");
    }

  private:
    sqlite3* db_;
    sqlite3_stmt* st_ = nullptr;
    bool own_ = false;
};

ado::driver::ProcArg* find_arg(std::vector<ado::driver::ProcArg>& args, std::string_view name,
                               std::size_t position) {
    for (auto& a : args)
        if (iequals(a.name, name)) return &a;
    // Arguments created without names are matched by their position, as a server does.
    if (position < args.size() && args[position].name.empty()) return &args[position];
    return nullptr;
}

ado::driver::ProcArg& require_arg(std::vector<ado::driver::ProcArg>& args, std::string_view proc,
                                  std::string_view name, std::size_t position) {
    if (auto* a = find_arg(args, name, position)) return *a;
    throw ado::ComError(ado::err::kDatabase, "Procedure or function '" + std::string(proc) +
                                                 "' expects parameter '" + std::string(name) +
                                                 "', which was not supplied.");
}

// Stock on hand of one item in one stock, leaving out one bill: the opening quantity plus the
// signed quantities of the lines of every live bill. Adjustment rows (negative FEntryID) never
// move stock, pre-sent rows (no FEntryID) do, and a POS line that sells goods lent by a kind-27
// bill moved nothing more: they left with the lending bill. Lines whose header is not written
// yet have no join partner and do not count. The item's lines are found through
// (FItemID, FInterID), never by scanning the bill tables.
constexpr const char* kStockQtySql = R"sql(
SELECT (SELECT coalesce(sum(FQty), 0) FROM ICInitData WHERE FItemID = ?2 AND FStockID = ?1)
     + coalesce((
        SELECT sum(
              CASE WHEN h.FInStockID = ?1 THEN
                  CASE WHEN h.FTranType IN (112, 115, 17, 31) THEN e.FQty
                       WHEN h.FTranType = 114 THEN -e.FQty
                       ELSE 0 END
              ELSE 0 END
            + CASE WHEN h.FOutStockID = ?1 AND h.FTranType IN (99, 125, 27, 31) THEN -e.FQty
                   ELSE 0 END)
        FROM ICStockBillEntry e INDEXED BY IX_ICStockBillEntry_Item
        JOIN ICStockBill h ON h.FInterID = e.FInterID
        WHERE e.FItemID = ?2 AND e.FInterID <> ?3
          AND coalesce(h.FDeleted, 0) = 0
          AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
          AND NOT (h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27)
          AND (h.FInStockID = ?1 OR h.FOutStockID = ?1)), 0)
)sql";

// The same quantity from the balance that the schema's triggers keep per stock and item
// (ICStockQty), less what the named bill's own lines moved: one row and one bill's lines, however
// long the item's history is. The subtracted part is the query above restricted to that bill.
constexpr const char* kKeptStockQtySql = R"sql(
SELECT coalesce((SELECT FQty FROM ICStockQty WHERE FStockID = ?1 AND FItemID = ?2), 0)
     - coalesce((
        SELECT sum(
              CASE WHEN h.FInStockID = ?1 THEN
                  CASE WHEN h.FTranType IN (112, 115, 17, 31) THEN e.FQty
                       WHEN h.FTranType = 114 THEN -e.FQty
                       ELSE 0 END
              ELSE 0 END
            + CASE WHEN h.FOutStockID = ?1 AND h.FTranType IN (99, 125, 27, 31) THEN -e.FQty
                   ELSE 0 END)
        FROM ICStockBillEntry e INDEXED BY IX_ICStockBillEntry_Item
        JOIN ICStockBill h ON h.FInterID = e.FInterID
        WHERE e.FItemID = ?2 AND e.FInterID = ?3
          AND coalesce(h.FDeleted, 0) = 0
          AND (e.FEntryID IS NULL OR e.FEntryID >= 0)
          AND NOT (h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27)
          AND (h.FInStockID = ?1 OR h.FOutStockID = ?1)), 0)
)sql";

bool has_kept_stock_qty(sqlite3* db) {
    // A database made before the balance was kept has no ICStockQty: it sums the history.
    return sqlite3_table_column_metadata(db, nullptr, "ICStockQty", "FQty", nullptr, nullptr,
                                         nullptr, nullptr, nullptr) == SQLITE_OK;
}

void sp_get_stock_qty(sqlite3* db, std::vector<ado::driver::ProcArg>& args) {
    constexpr std::string_view kName = "sp_GetStockQty";
    std::int32_t stock = require_arg(args, kName, "@StockID", 0).value.to_int32();
    std::int32_t item = require_arg(args, kName, "@ItemID", 1).value.to_int32();
    std::int32_t inter = require_arg(args, kName, "@InterID", 2).value.to_int32();
    ado::driver::ProcArg& out = require_arg(args, kName, "@RtnQty", 3);

    KeptStatement st(db, stock_qty_statement(db));
    sqlite3_bind_int64(st.get(), 1, stock);
    sqlite3_bind_int64(st.get(), 2, item);
    sqlite3_bind_int64(st.get(), 3, inter);
    double qty = st.step() ? sqlite3_column_double(st.get(), 0) : 0.0;
    out.value = ado::Variant(qty);
}

double round4(double v) {
    return std::round(v * 10000.0) / 10000.0;
}

std::int64_t read_setting(sqlite3* db, const char* key) {
    // The key is compared under its column's collation, as every statement of the system does.
    Statement st(db, "SELECT CAST(FValue AS INTEGER) FROM t_SystemProfile WHERE FKey = ?1");
    st.bind(1, std::string_view(key));
    return st.step() && !st.null_at(0) ? st.int_at(0) : 0;
}

// Moving weighted average cost of one item (see Sp_CacuCost below). All lines of the item in
// one bill move together, as one quantity at the bill's average price; a stock-out bill's lines
// share the average of that moment.
class ItemCosting {
  public:
    ItemCosting(sqlite3* db, std::int64_t first_writable_period)
        : first_writable_(first_writable_period),
          opening_(db,
                   "SELECT coalesce(sum(FQty), 0), coalesce(sum(FAmount), 0) FROM ICInitData "
                   "WHERE FItemID = ?1"),
          master_(db, "SELECT FPjCost FROM t_ICItem WHERE FItemID = ?1"),
          bills_(db,
                 "SELECT h.FInterID, h.FTranType, "
                 "coalesce(h.FYear, CAST(substr(h.FDate, 1, 4) AS INTEGER), 0) * 12 + "
                 "coalesce(h.FPeriod, CAST(substr(h.FDate, 6, 2) AS INTEGER), 0), "
                 "total(e.FQty), total(coalesce(e.FQty, 0) * coalesce(e.FPrice, 0)), "
                 "total(CASE WHEN h.FTranType = 99 AND coalesce(e.FRefTranType, 0) = 27 "
                 "THEN 0 ELSE e.FQty END) "
                 "FROM ICStockBillEntry e INDEXED BY IX_ICStockBillEntry_Item "
                 "JOIN ICStockBill h ON h.FInterID = e.FInterID "
                 "WHERE e.FItemID = ?1 AND coalesce(h.FDeleted, 0) = 0 "
                 "AND (e.FEntryID IS NULL OR e.FEntryID >= 0) "
                 "AND h.FTranType IN (17, 27, 31, 99, 112, 114, 115, 125) "
                 "GROUP BY e.FInterID ORDER BY e.FInterID"),
          // Rows already holding the right cost are left alone.
          write_lines_(
              db,
              "UPDATE ICStockBillEntry SET FUnitCost = ?1, "
              "FCost = round(coalesce(FQty, 0) * ?1, 4) "
              "WHERE FInterID = ?2 AND FItemID = ?3 "
              "AND (FEntryID IS NULL OR FEntryID >= 0) "
              "AND (FUnitCost IS NOT ?1 OR FCost IS NOT round(coalesce(FQty, 0) * ?1, 4))"),
          write_item_(db, "UPDATE t_ICItem SET FPjCost = ?1 WHERE FItemID = ?2"),
          clean_(db, "DELETE FROM ICCostDirty WHERE FItemID = ?1") {}

    void run(std::int64_t item) {
        double qty = 0, avg = 0;
        bool known = false;
        opening_.bind(1, item);
        if (opening_.step()) {
            qty = opening_.real_at(0);
            if (qty > 0) {
                avg = opening_.real_at(1) / qty;
                known = true;
            }
        }
        opening_.reset();
        if (!known) {
            master_.bind(1, item);
            if (master_.step() && !master_.null_at(0)) avg = master_.real_at(0);
            master_.reset();
        }

        struct Write {
            std::int64_t inter;
            double unit;
        };
        std::vector<Write> writes;
        bills_.bind(1, item);
        while (bills_.step()) {
            std::int64_t inter = bills_.int_at(0);
            std::int64_t kind = bills_.int_at(1);
            bool writable = bills_.int_at(2) >= first_writable_;
            double in_qty = bills_.real_at(3);
            double in_value = bills_.real_at(4);
            double out_qty = bills_.real_at(5);
            switch (kind) {
                case 31:
                    // The issuing side leaves at the average, the receiving side comes in at
                    // the line's own price: the quantity stays, the value moves.
                    qty -= in_qty;
                    [[fallthrough]];
                case 112:
                case 115:
                case 17: {
                    // Stock that went below zero is valued at the incoming price, so an
                    // oversold item does not distort the average of the goods that arrive.
                    double base =
                        qty > 0 ? qty * avg : (in_qty != 0 ? qty * (in_value / in_qty) : 0.0);
                    qty += in_qty;
                    if (qty > 0) avg = (base + in_value) / qty;
                    known = true;
                    break;
                }
                case 114: {
                    double value = qty * avg - in_value;
                    qty -= in_qty;
                    if (qty > 0) avg = value / qty;
                    break;
                }
                default:  // 99, 125, 27: costed at the running average
                    qty -= out_qty;
                    if (writable) writes.push_back({inter, round4(avg)});
                    break;
            }
        }
        bills_.reset();

        for (const Write& w : writes) {
            write_lines_.bind(1, w.unit).bind(2, w.inter).bind(3, item);
            write_lines_.run();
            write_lines_.reset();
        }
        if (known) {
            write_item_.bind(1, round4(avg)).bind(2, item);
            write_item_.run();
            write_item_.reset();
        }
        clean_.bind(1, item);
        clean_.run();
        clean_.reset();
    }

  private:
    std::int64_t first_writable_;
    Statement opening_, master_, bills_, write_lines_, write_item_, clean_;
};

// Cost recalculation for the items whose lines changed since the last run (ICCostDirty, kept by
// triggers): a moving weighted average per item over the lines of live bills in interior-id
// order, starting from the opening stock. Stock-in lines (112, 115, 17, the receiving side of
// 31) add their quantity at their own price, 114 takes its quantity out at its own price,
// stock-out lines (99, 125, 27) are costed at the running average; a running quantity of 0 or
// less keeps the last average. Only bills of the current period or later are written; earlier
// ones feed the average. t_ICItem.FPjCost receives the final average. All or nothing: a
// failure leaves every row as it was.
void sp_cacu_cost(sqlite3* db, std::vector<ado::driver::ProcArg>&) {
    if (sqlite3_exec(db, "SAVEPOINT sp_cacu_cost", nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(db, "Sp_CacuCost");
    try {
        std::int64_t first_writable =
            read_setting(db, "CurrentYear") * 12 + read_setting(db, "CurrentPeriod");
        std::vector<std::int64_t> items;
        {
            Statement dirty(db, "SELECT FItemID FROM ICCostDirty ORDER BY FItemID");
            while (dirty.step())
                items.push_back(dirty.int_at(0));
        }
        if (!items.empty()) {
            ItemCosting costing(db, first_writable);
            for (std::int64_t item : items)
                costing.run(item);
        }
    } catch (...) {
        sqlite3_exec(db, "ROLLBACK TO sp_cacu_cost", nullptr, nullptr, nullptr);
        sqlite3_exec(db, "RELEASE sp_cacu_cost", nullptr, nullptr, nullptr);
        throw;
    }
    if (sqlite3_exec(db, "RELEASE sp_cacu_cost", nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(db, "Sp_CacuCost");
}

}  // namespace

ProcedureFn find_procedure(std::string_view name) {
    if (iequals(name, "sp_GetStockQty")) return &sp_get_stock_qty;
    if (iequals(name, "Sp_CacuCost")) return &sp_cacu_cost;
    return nullptr;
}

const char* stock_qty_statement(sqlite3* db) {
    return has_kept_stock_qty(db) ? kKeptStockQtySql : kStockQtySql;
}

void forget_procedure_statements(sqlite3* db) {
    KeptStatements& k = kept_statements();
    std::lock_guard lock(k.mutex);
    auto it = k.by_db.find(db);
    if (it == k.by_db.end()) return;
    for (auto& [sql, st] : it->second)
        sqlite3_finalize(st);
    k.by_db.erase(it);
}

}  // namespace billdata::drivers::sqlite
