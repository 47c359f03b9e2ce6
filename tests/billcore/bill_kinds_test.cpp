#include "billdata/billcore/bill_kinds.h"

#include "billdata/common/audit.h"
#include "common/fixture.h"

namespace billdata::testing {
namespace {

using billcore::bill_kind;
using billcore::kBillKinds;

class StockEffectTest : public DatabaseTest {
  protected:
    double stock_qty(std::int32_t stock, std::int32_t inter_id) {
        auto cn = open();
        const double q = common::GetStockQty(cn, stock, kItem, inter_id);
        cn->Close();
        return q;
    }
    static constexpr std::int32_t kItem = 7;
    static constexpr std::int32_t kIn = 1;
    static constexpr std::int32_t kOut = 2;
};

// The stored procedure and the triggers that keep ICStockQty count each kind's lines with the
// signs of the table, both through the kept balance and by summing the bills.
TEST_F(StockEffectTest, EveryKindMovesStockAsTheTableSays) {
    std::int32_t id = 100;
    std::vector<std::pair<std::int16_t, std::int32_t>> saved;
    for (const auto& k : kBillKinds) {
        if (std::string_view(k.header) != "ICStockBill") continue;
        ++id;
        exec("insert into ICStockBill(FInterID,FTranType,FDate,FInStockID,FOutStockID) values(" +
             std::to_string(id) + "," + std::to_string(k.code) + ",'2025-03-05'," +
             std::to_string(kIn) + "," + std::to_string(kOut) + ")");
        const double in_before = stock_qty(kIn, 0), out_before = stock_qty(kOut, 0);
        exec("insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty) values(" +
             std::to_string(id) + ",1," + std::to_string(kItem) + ",5)");
        EXPECT_EQ(stock_qty(kIn, 0) - in_before, 5 * k.stock.in_stock) << k.code;
        EXPECT_EQ(stock_qty(kOut, 0) - out_before, 5 * k.stock.out_stock) << k.code;
        // Leaving the bill itself out undoes exactly its own move.
        EXPECT_EQ(stock_qty(kIn, id), in_before) << k.code;
        EXPECT_EQ(stock_qty(kOut, id), out_before) << k.code;
        saved.emplace_back(k.code, id);
    }
    const double in_kept = stock_qty(kIn, 0), out_kept = stock_qty(kOut, 0);
    double in_sum = 0, out_sum = 0;
    for (const auto& [code, bill] : saved) {
        in_sum += 5 * bill_kind(code).stock.in_stock;
        out_sum += 5 * bill_kind(code).stock.out_stock;
    }
    EXPECT_EQ(in_kept, in_sum);
    EXPECT_EQ(out_kept, out_sum);

    // A database without the kept balance sums the bills' lines instead (the embedded engine's
    // procedure; the server's schema always has it).
    if (on_server()) return;
    sqlite_exec("drop table ICStockQty");
    scalar("select count(*) from ICStockBill");  // lets the pooled connection see the change
    EXPECT_EQ(stock_qty(kIn, 0), in_sum);
    EXPECT_EQ(stock_qty(kOut, 0), out_sum);
}

}  // namespace
}  // namespace billdata::testing
