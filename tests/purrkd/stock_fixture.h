#pragma once
// Fixture of the stock-bill tests: a fresh demo database per test, bills written directly where
// a test needs a given history, the caller's line record sets, and the statement log.

#include <string>
#include <tuple>
#include <vector>

#include "common/fixture.h"
#include "support/caller_rows.h"
#include "support/sql_log.h"

namespace billdata::testing {

// Lines of a purchase receipt: item, row key, quantity, price, historical price; amounts follow.
inline std::shared_ptr<ado::Recordset> receipt_lines(
    const std::vector<std::tuple<int, std::string, double, double, double>>& lines) {
    std::vector<std::vector<ado::Variant>> rows;
    for (const auto& [item, key, qty, price, his] : lines)
        rows.push_back(
            {item, key, qty, price, qty * price, price * 2, qty * price * 2, 1.0, "m" + key, his});
    return caller_rows({"FItemID", "FRowKey", "FQty", "FPrice", "FAmount", "FRetailPrice",
                        "FRetailAmount", "FZkRate", "FMemo", "FHisPrice"},
                       rows);
}

class StockBillTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // A bill header written as another program would, without going through a class.
    void header(int id, int kind, const std::string& date, int in_stock, int out_stock,
                int deleted = 0, int orga = 0) const {
        exec(
            "insert into ICStockBill(FInterID,FTranType,FDate,FBillNo,FInStockID,FOutStockID,"
            "FDeleted,FOrgaID,FYear,FPeriod) values(" +
            std::to_string(id) + "," + std::to_string(kind) + ",'" + date + "','B" +
            std::to_string(id) + "'," + std::to_string(in_stock) + "," + std::to_string(out_stock) +
            "," + std::to_string(deleted) + "," + std::to_string(orga) + "," + date.substr(0, 4) +
            "," + date.substr(5, 2) + ")");
    }
    void line(int id, int entry, int item, double qty, double price, double his_price = 0) const {
        exec(
            "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FPrice,FAmount,"
            "FHisPrice) values(" +
            std::to_string(id) + "," + std::to_string(entry) + "," + std::to_string(item) + "," +
            ado::Variant(qty).to_string() + "," + ado::Variant(price).to_string() + "," +
            ado::Variant(qty * price).to_string() + "," + ado::Variant(his_price).to_string() +
            ")");
    }
    // An adjustment row left by an earlier run.
    void adjustment(int id, int entry, int stock, int item) const {
        exec(
            "insert into ICStockBillEntry(FInterID,FEntryID,FTjStockID,FItemID,FQty,FPrice,"
            "FAmount,FMemo,FHisPrice) values(" +
            std::to_string(id) + "," + std::to_string(entry) + "," + std::to_string(stock) + "," +
            std::to_string(item) + ",0,1,1,'stale',0)");
    }
    void set_cost_style_2() const {
        exec("insert into t_SystemProfile(FKey,FValue) values('CostStyle','1')");
    }

    // Adjustment rows: bill, entry, stock, item, quantity, price, amount, memo, previous price.
    std::vector<std::string> adjustments() const {
        return rows(
            "select FInterID,FEntryID,FTjStockID,FItemID,FQty,FPrice,FAmount,FMemo,FHisPrice "
            "from ICStockBillEntry where FEntryID<0 order by FInterID,FTjStockID,FEntryID");
    }
    std::vector<std::string> all_lines() const {
        return rows("select * from ICStockBillEntry order by FInterID,FEntryID,FTjStockID");
    }
    int count(const std::string& sql) const { return scalar(sql).to_int32(); }
    std::string log_path() const { return dir_.file("sql.log"); }
};

}  // namespace billdata::testing
