// Purchase-price propagation: CacuSptjd carries a purchase bill's prices forward through the
// later bills of its items, RecacuSptjd rebuilds the price-adjustment rows after a bill without
// changing any price. Both run only under cost style 1, on the caller's connection, with no
// handler and no transaction of their own: a failure stops the walk where it is and reaches the
// caller, who decides whether to roll back.

#include "billdata/billcore/costing.h"

#include <cmath>
#include <string>
#include <vector>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/common/audit.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/session.h"

namespace billdata::billcore {

using ado::Variant;

namespace {

// Differences of 0.00001 or less after rounding to four places are no price change.
bool price_changed(double difference) {
    return std::abs(Variant::round_half_even(difference, 4)) > 0.00001;
}

std::string text_of(const std::shared_ptr<ado::Recordset>& rs, const char* field) {
    return rs->Fields(field).Value().to_string();
}

double number_of(const std::shared_ptr<ado::Recordset>& rs, const char* field) {
    return rs->Fields(field).Value().to_double();
}

// A client-side, static, read-only record set, read whole and then let go of its connection, so
// that the walk below can write on the caller's connection while it iterates.
std::shared_ptr<ado::Recordset> disconnected(const std::string& sql,
                                             const std::shared_ptr<ado::Connection>& cn) {
    auto rs = ado::Recordset::create();
    rs->SetCursorLocation(ado::adUseClient);
    rs->Open(sql, cn, ado::adOpenStatic, ado::adLockReadOnly, ado::adCmdText);
    rs->SetActiveConnection(nullptr);
    return rs;
}

// One price-adjustment row: quantity 0, so stock quantities never move; the difference in the
// price column, its value over the revalued quantity in the amount column, that quantity as text
// in the memo, and the price that stood before.
void insert_adjustment(ado::Connection& cn, const std::string& inter_id, std::int32_t entry_id,
                       const std::string& stock, const std::string& item, double difference,
                       double amount, const std::string& memo, const std::string& his_price) {
    cn.Execute(
        "Insert Into ICStockbillEntry(FInterID,FEntryID,FTjStockID,FItemID,FQty,"
        "FPrice,FAmount,FMemo,FHisPrice) "
        "Values(" +
        inter_id + "," + std::to_string(-entry_id) + "," + stock + "," + item + ",0," +
        common::sql_number(difference) + "," + common::sql_number(amount) + ",'" + memo + "'," +
        his_price + ")");
}

// Re-prices the later sales lines (cost) and other stock bill lines (price) of an item at `price`.
void reprice_forward(ado::Connection& cn, const std::string& price, const std::string& threshold,
                     const std::string& item) {
    cn.Execute("Update t2 set t2.FUnitCost=" + price + ",FCost=FQty*" + price +
               " from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
               "where t1.FTranType in (17,27,99)  and t1.FInterID>" +
               threshold + " and t2.FItemID=" + item);
    cn.Execute("Update t2 set t2.FPrice=" + price + ",FAmount=FQty*" + price +
               " from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
               "where t1.FTranType in (115,125,31)   and t1.FInterID>" +
               threshold + " and t2.FItemID=" + item);
}

// A later purchase line as the walks read it. The rows are taken out of their cursor before any
// of them is acted on: the walk writes adjustment rows and prices of the same tables while it
// goes, and none of those writes touches a column or row the query selects.
struct LaterLine {
    std::int32_t stock_id = 0;  // only read by the propagation walk
    std::int32_t tran_type = 0;
    std::string orga_id;
    std::string inter_id;
    std::int32_t inter_id_value = 0;
    std::int32_t entry_id = 0;
    std::string qty;
    double qty_value = 0;
    double price = 0;
    std::string his_price;
    double his_price_value = 0;
};

std::vector<LaterLine> read_later_lines(ado::Connection& cn, const std::string& sql,
                                        bool with_stock) {
    std::vector<LaterLine> lines;
    auto rs = cn.Execute(sql);
    while (!rs->Eof()) {
        LaterLine l;
        if (with_stock) {
            const Variant& stock = rs->Fields("FStockID").Value();
            l.stock_id = stock.is_null() ? 0 : stock.to_int32();
        }
        l.tran_type = rs->Fields("FTranType").Value().to_int32();
        l.orga_id = text_of(rs, "FOrgaID");
        l.inter_id = text_of(rs, "FInterID");
        l.inter_id_value = rs->Fields("FInterID").Value().to_int32();
        l.entry_id = rs->Fields("FEntryID").Value().to_int32();
        l.qty = text_of(rs, "FQty");
        l.qty_value = number_of(rs, "FQty");
        l.price = number_of(rs, "FPrice");
        l.his_price = text_of(rs, "FHisPrice");
        l.his_price_value = number_of(rs, "FHisPrice");
        lines.push_back(std::move(l));
        rs->MoveNext();
    }
    rs->Close();
    return lines;
}

}  // namespace

std::shared_ptr<ado::Recordset> stock_list() {
    auto rs = ado::Recordset::create();
    rs->SetCursorLocation(ado::adUseClient);
    rs->Open("select FItemID from t_Stock", common::GetPromptString(), ado::adOpenStatic,
             ado::adLockReadOnly, ado::adCmdText);
    rs->SetActiveConnection(nullptr);
    return rs;
}

void CacuSptjd(const std::shared_ptr<ado::Connection>& Cn, std::int32_t InterID, bool ReGen) {
    if (common::GetCostStyle() != 1) return;
    ado::Connection& cn = *Cn;
    const std::string bill = std::to_string(InterID);

    auto stocks = stock_list();
    auto lines = disconnected(
        "select t1.FTranType,t1.FDate,t1.FInterId,t1.FBillNo,t2.FQty,t2.FPrice,t2.FHisPrice,t2.FItemID "
        "from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
        "where t1.FInterId=" +
            bill + " and FentryID>=0",
        Cn);

    while (!lines->Eof()) {
        const std::int32_t line_type = lines->Fields("FTranType").Value().to_int32();
        const std::string item = text_of(lines, "FItemID");
        const std::int32_t item_id = lines->Fields("FItemID").Value().to_int32();
        const double own_price = number_of(lines, "FPrice");
        const double his_price = number_of(lines, "FHisPrice");

        // A return (114) never sets the purchase price; otherwise the bill's own price takes
        // effect when regenerating and the price that stood before it comes back when not.
        const double master_price = line_type == billcore::kind::kPurchaseReturn
                                        ? his_price
                                        : (ReGen ? own_price : his_price);
        cn.Execute("delete from icstockbillentry where FEntryID<0 and FItemID=" + item +
                   " and FInterID>" + bill);
        cn.Execute("Update t_icitem set FPurPrice=" + common::sql_number(master_price) +
                   " where fitemid=" + item);

        stocks->MoveFirst();
        while (!stocks->Eof()) {
            const std::string stock = text_of(stocks, "FItemID");
            const std::int32_t stock_id = stocks->Fields("FItemID").Value().to_int32();
            // The running price starts afresh for every stock. For a line of another kind than
            // 112 it is the price before the bill even when regenerating, unlike the master
            // price above; both rules stand as the books have always been kept.
            double running =
                ReGen && line_type == billcore::kind::kPurchaseReceipt ? own_price : his_price;
            if (line_type == billcore::kind::kPurchaseReceipt)
                reprice_forward(cn, common::sql_number(running), bill, item);

            const auto later = read_later_lines(
                cn,
                "Select case isnull(t1.FInStockID,0) when 0 then t1.FOutStockID else t1.FInStockID end as FStockID,"
                "t1.FTranType,t1.FOrgaID,t1.FDate,t1.FInterID,t2.FEntryID,t2.FQty,t2.FPrice,t2.FHisPrice "
                "from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
                "where isnull(t1.FDeleted,0)=0 and FItemID=" +
                    item + " and t1.FInterID>" + bill +
                    " and FTranType in (112,114) and FEntryID>=0 order by t1.finterid",
                true);

            for (const LaterLine& row : later) {
                const double difference = row.price - running;
                if (row.tran_type == billcore::kind::kPurchaseReturn) {
                    // A return revalues only the goods it takes out of its own stock, and never
                    // moves the running price.
                    if (row.stock_id != stock_id) continue;
                    const double qty =
                        common::GetStockQty(Cn, stock_id, item_id, row.inter_id_value);
                    if (price_changed(difference) && qty != 0)
                        insert_adjustment(cn, row.inter_id, row.entry_id,
                                          std::to_string(row.stock_id), item, difference,
                                          difference * row.qty_value, row.qty,
                                          common::sql_number(running));
                    continue;
                }
                if (!price_changed(difference)) continue;
                const double qty = common::GetStockQty(Cn, stock_id, item_id, row.inter_id_value);
                if (qty != 0)
                    insert_adjustment(cn, row.inter_id, row.entry_id, stock, item, difference,
                                      difference * qty, common::sql_number(qty),
                                      common::sql_number(running));
                cn.Execute("Update ICStockBillEntry set FHisPrice=" + common::sql_number(running) +
                           " where FInterID=" + row.inter_id +
                           " and FEntryID=" + std::to_string(row.entry_id));
                running = row.price;
                reprice_forward(cn, common::sql_number(running), row.inter_id, item);
                cn.Execute("Update t_icitem set FPurPrice=" + common::sql_number(running) +
                           ",FSupplierID=" + row.orga_id + " where fitemid=" + item);
            }
            stocks->MoveNext();
        }
        lines->MoveNext();
    }
    lines->Close();
    stocks->Close();
}

void RecacuSptjd(const std::shared_ptr<ado::Connection>& Cn, std::int32_t InterID) {
    if (common::GetCostStyle() != 1) return;
    ado::Connection& cn = *Cn;

    auto stocks = stock_list();

    // The next purchase bill after the given one, read through the session's connection string.
    // Only FDeleted=0 qualifies here: a bill whose mark is null is not found.
    auto next = ado::Recordset::create();
    next->Open(
        "select top 1 FInterID from ICStockBill where FDeleted=0 and FTranType in (112,114) "
        "and FInterID>" +
            std::to_string(InterID) + " order by FInterID",
        common::GetPromptString(), ado::adOpenUnspecified, ado::adLockUnspecified, ado::adCmdText);
    if (next->Eof()) {
        next->Close();
        stocks->Close();
        return;
    }
    const std::string n = text_of(next, "FInterID");
    const std::int32_t n_value = next->Fields("FInterID").Value().to_int32();
    next->Close();

    cn.Execute("delete from icstockbillentry where fentryid<0 and finterid=" + n);

    struct Line {
        std::string stock;
        std::int32_t tran_type;
        std::string item;
        std::int32_t item_value;
        std::int32_t entry_id;
        std::string qty;
        double qty_value;
        double price;
        std::string his_price;
        double his_price_value;
    };
    // Lines of entry 0 are left out here on purpose, while the delete above removed every
    // adjustment row of the bill.
    std::vector<Line> lines;
    {
        auto rs = ado::Recordset::create();
        rs->Open(
            "select (case isnull(t1.FInStockID,0) when 0 then t1.FOutStockID else t1.FInStockID end) as FStockID,"
            "t1.FTranType,t2.FItemID,t2.FEntryID,t2.FQty,t2.FPrice,t2.FHisPrice "
            "from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
            "where FEntryID>0 and t1.FInterID=" +
                n + " order by fentryid ",
            common::GetPromptString(), ado::adOpenUnspecified, ado::adLockUnspecified,
            ado::adCmdText);
        while (!rs->Eof()) {
            lines.push_back({text_of(rs, "FStockID"), rs->Fields("FTranType").Value().to_int32(),
                             text_of(rs, "FItemID"), rs->Fields("FItemID").Value().to_int32(),
                             rs->Fields("FEntryID").Value().to_int32(), text_of(rs, "FQty"),
                             number_of(rs, "FQty"), number_of(rs, "FPrice"),
                             text_of(rs, "FHisPrice"), number_of(rs, "FHisPrice")});
            rs->MoveNext();
        }
        rs->Close();
    }

    for (const Line& line : lines) {
        const double difference = line.price - line.his_price_value;
        if (!price_changed(difference)) continue;
        if (line.tran_type == billcore::kind::kPurchaseReturn) {
            insert_adjustment(cn, n, line.entry_id, line.stock, line.item, difference,
                              difference * line.qty_value, line.qty, line.his_price);
            continue;
        }
        if (line.tran_type != kind::kPurchaseReceipt) continue;
        stocks->MoveFirst();
        while (!stocks->Eof()) {
            const std::string stock = text_of(stocks, "FItemID");
            const std::int32_t stock_id = stocks->Fields("FItemID").Value().to_int32();
            const double qty = common::GetStockQty(Cn, stock_id, line.item_value, n_value);
            if (qty == 0) {
                // Nothing of the item in this stock at N: its rows, and the later bills' rows
                // for this stock, stay as they are.
                stocks->MoveNext();
                continue;
            }
            cn.Execute("delete from icstockbillentry where FTjStockID=" + stock +
                       " and FItemID=" + line.item + " and FInterID>" + n);
            insert_adjustment(cn, n, line.entry_id, stock, line.item, difference, difference * qty,
                              common::sql_number(qty), line.his_price);

            // Later bills of this stock, by bill date first and interior id second.
            const auto later = read_later_lines(
                cn,
                "Select t1.FTranType,t1.FOrgaID,t1.FDate,t1.FInterID,t2.FEntryID,t2.FQty,t2.FPrice,t2.FHisPrice "
                "from icstockbill t1 inner join icstockbillentry t2 on t1.finterid=t2.finterid "
                "where (FInStockID=" +
                    stock + " or FOutStockID=" + stock +
                    ") and FEntryID>=0 and isnull(t1.FDeleted,0)=0 and FItemID=" + line.item +
                    " and t1.FInterID>" + n +
                    " and FTranType in (112,114) order by FDate,t1.finterid",
                false);
            for (const LaterLine& row : later) {
                const double row_difference = row.price - row.his_price_value;
                if (!price_changed(row_difference)) continue;
                // The quantity is asked for a return as well, though only a receipt uses it.
                const double row_qty =
                    common::GetStockQty(Cn, stock_id, line.item_value, row.inter_id_value);
                if (row.tran_type == billcore::kind::kPurchaseReturn)
                    insert_adjustment(cn, row.inter_id, row.entry_id, stock, line.item,
                                      row_difference, row_difference * row.qty_value, row.qty,
                                      row.his_price);
                else
                    insert_adjustment(cn, row.inter_id, row.entry_id, stock, line.item,
                                      row_difference, row_difference * row_qty,
                                      common::sql_number(row_qty), row.his_price);
            }
            stocks->MoveNext();
        }
    }
    stocks->Close();
}

}  // namespace billdata::billcore
