#pragma once
// A fresh demo shop per test (year 2025, period 3) and the builders of till sales.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/posdata/posdata.h"
#include "common/fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {

// One sale line as the till hands it over: quantity × price, at a retail price.
struct Line {
    Line(std::int32_t item_id, double quantity, double unit_price, double retail, double cost)
        : item(item_id),
          qty(quantity),
          price(unit_price),
          amount(quantity * unit_price),
          zk_rate(unit_price / retail),
          retail_price(retail),
          retail_amount(quantity * retail),
          unit_cost(cost) {}
    std::int32_t item;
    double qty, price, amount, zk_rate, retail_price, retail_amount;
    std::int32_t saler = 1, presend = 0;
    double unit_cost;
    std::int32_t ref_inter = 0, ref_entry = 0, ref_tran = 0;
    std::string color = "黑色";
    std::int32_t size = 2;
    // Refers the line to line `entry` of bill `inter` of kind `tran`, whose sold quantity it
    // raises.
    Line& ref(std::int32_t inter, std::int32_t entry, std::int32_t tran) {
        ref_inter = inter, ref_entry = entry, ref_tran = tran;
        return *this;
    }
};

// Goods handed over in advance with a sale.
struct PreSend {
    std::int32_t item;
    double qty, retail_price, unit_cost;
    std::string memo, color = "";
    std::int32_t size = 0;
};

// The arguments of SaveData, with the values of a plain cash sale by default.
struct Sale {
    std::int32_t StockID = 2;
    ado::DateTime BillDate{2025, 3, 9};
    std::vector<Line> lines;
    double SumAmount = 0, GetCash = 0, GetBlank = 0, GetDyq = 0, OddMent = 0;
    std::string BillRemark = "remark", ClassName = "早班";
    double QkAmount = 0;
    std::int32_t VipID = 0, BillerID = 1;
    double GetAmount = 0, ChangeAmount = 0, GetQk = 0;
    std::vector<PreSend> presend;
    double SumJf = 0;
    bool AutoDelRefBill = false;
    double AmountBogusToVip = 1000, JfExchange = 0, GetJfAmount = 0;
    std::string Machine = "POS1";
    std::int32_t StockBillID = 0;
    std::string BillNoBegChar;
};

inline std::shared_ptr<ado::Recordset> line_set(const std::vector<Line>& lines) {
    std::vector<std::vector<ado::Variant>> rows;
    for (const Line& l : lines)
        rows.push_back({l.item, l.qty, l.price, l.amount, l.zk_rate, l.retail_price,
                        l.retail_amount, l.saler, l.presend, l.unit_cost, l.ref_inter, l.ref_entry,
                        l.ref_tran, l.color, l.size});
    return caller_rows({"FItemID", "FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice",
                        "FRetailAmount", "FSalerID", "FPreSend", "FUnitCost", "FRefInterId",
                        "FRefEntryID", "FRefTranType", "FColor", "FSizeID"},
                       rows);
}

inline std::shared_ptr<ado::Recordset> presend_set(const std::vector<PreSend>& items) {
    std::vector<std::vector<ado::Variant>> rows;
    for (const PreSend& p : items)
        rows.push_back({p.item, p.qty, p.retail_price, p.unit_cost, p.memo, p.color, p.size});
    return caller_rows(
        {"FItemID", "FQty", "FRetailPrice", "FUnitCost", "Fmemo", "FColor", "FSizeID"}, rows);
}

// Saves a sale through a fresh PosData, as a till does.
inline std::int32_t save_sale(const Sale& s) {
    auto lines = line_set(s.lines);
    auto presend = s.presend.empty() ? nullptr : presend_set(s.presend);
    return PosData().SaveData(s.StockID, s.BillDate, lines, s.SumAmount, s.GetCash, s.GetBlank,
                              s.GetDyq, s.OddMent, s.BillRemark, s.ClassName, s.QkAmount, s.VipID,
                              s.BillerID, s.GetAmount, s.ChangeAmount, s.GetQk, presend, s.SumJf,
                              s.AutoDelRefBill, s.AmountBogusToVip, s.JfExchange, s.GetJfAmount,
                              s.Machine, s.StockBillID, s.BillNoBegChar);
}

// A two-line sale of 150 (retail 200) on a member card: T-shirt 2 × 40 (retail 2 × 50) and
// jeans 1 × 70 (retail 100).
inline Sale member_sale(std::int32_t vip = 1002) {
    Sale s;
    s.lines = {Line(1, 2, 40, 50, 30), Line(3, 1, 70, 100, 55)};
    s.lines[1].saler = 2;
    s.lines[1].color = "蓝色";
    s.lines[1].size = 6;
    s.SumAmount = 150;
    s.GetCash = 200;
    s.GetAmount = 200;
    s.ChangeAmount = 50;
    s.VipID = vip;
    s.SumJf = 150;
    return s;
}

class PosTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }
    void SetUp() override {
        DatabaseTest::SetUp();
        if (IsSkipped()) return;
        PosData().Init(connection_string(), 2025, 3);
    }
    std::string text(const std::string& sql) const { return scalar(sql).to_string(); }
    std::int32_t count(const std::string& sql) const {
        return scalar("select count(*) from " + sql).to_int32();
    }
};

}  // namespace billdata::testing
