// The embedded stored procedures on real database files.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "billdata/drivers/sqlite/procedures.h"
#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/test_support.h"

using billdata::ado::ComError;
using billdata::ado::Variant;
using billdata::ado::VarType;
using billdata::ado::driver::ProcArg;
using billdata::drivers::sqlite::find_procedure;
using billdata::testing::RawDb;
using billdata::testing::TempDir;

namespace {

std::string new_database(const TempDir& dir) {
    std::string path = dir.file("shop.db");
    billdata::schema::create_database(path, false, 2025, 3);
    return path;
}

double stock_qty(RawDb& db, int stock, int item, int inter) {
    auto proc = find_procedure("sp_getstockqty");
    std::vector<ProcArg> args = {
        {"@StockID", VarType::Long, 1, Variant(std::int32_t{stock})},
        {"@ItemID", VarType::Long, 1, Variant(std::int32_t{item})},
        {"@InterID", VarType::Long, 1, Variant(std::int32_t{inter})},
        {"@RtnQty", VarType::Double, 2, Variant()},
    };
    proc(db.handle(), args);
    EXPECT_EQ(args[3].value.type(), VarType::Double);
    return args[3].value.to_double();
}

// A header and one line per quantity (entry ids from 1).
void bill(RawDb& db, int id, int kind, int in_stock, int out_stock, int item,
          std::vector<double> qtys, int deleted = 0) {
    int entry = 1;
    for (double q : qtys)
        db.exec(
            "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FRowKey, FQty) VALUES "
            "(" +
            std::to_string(id) + "," + std::to_string(entry++) + "," + std::to_string(item) +
            ",'r'," + std::to_string(q) + ")");
    db.exec(
        "INSERT INTO ICStockBill (FInterID, FTranType, FInStockID, FOutStockID, FDeleted) "
        "VALUES (" +
        std::to_string(id) + "," + std::to_string(kind) + "," + std::to_string(in_stock) + "," +
        std::to_string(out_stock) + "," + std::to_string(deleted) + ")");
}

}  // namespace

TEST(StockQty, SignedQuantitiesByBillKind) {
    TempDir dir;
    RawDb db(new_database(dir));
    db.exec(
        "INSERT INTO ICInitData (FStockID, FItemID, FQty, FAmount) VALUES (1, 1, 10, 400), "
        "(2, 1, 0, 0), (1, 2, 99, 0)");
    bill(db, 1, 112, 1, 0, 1, {5});
    // An adjustment row with a quantity that would show if it were counted.
    db.exec(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FTjStockID) VALUES "
        "(1, -1, 1, 100, 1)");
    bill(db, 2, 114, 1, 0, 1, {2});
    bill(db, 3, 99, 0, 1, 1, {1});
    // Pre-sent goods leave with the sale; a line selling goods lent by a kind-27 bill does not.
    db.exec(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPreSend) VALUES "
        "(3, NULL, 1, 1, 1)");
    db.exec(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FRefInterID, "
        "FRefEntryID, FRefTranType) VALUES (3, 2, 1, 4, 7, 1, 27)");
    bill(db, 4, 31, 2, 1, 1, {3});
    bill(db, 5, 115, 2, 0, 1, {7});
    bill(db, 6, 125, 2, 2, 1, {1});  // other stock out carries the stock in both columns
    bill(db, 7, 27, 0, 1, 1, {2});
    bill(db, 8, 17, 1, 0, 1, {1});
    bill(db, 9, 112, 1, 0, 1, {50}, 1);  // voided
    // Lines whose header is not written yet.
    db.exec(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty) VALUES (10, 1, 1, "
        "30)");
    bill(db, 11, 112, 1, 0, 2, {1});  // another item

    // 10 + 5 - 2 - 1 - 1 - 3 - 2 + 1
    EXPECT_DOUBLE_EQ(stock_qty(db, 1, 1, 0), 7);
    EXPECT_DOUBLE_EQ(stock_qty(db, 1, 1, 1), 2);    // the purchase left out
    EXPECT_DOUBLE_EQ(stock_qty(db, 1, 1, 3), 9);    // the sale left out
    EXPECT_DOUBLE_EQ(stock_qty(db, 2, 1, 0), 9);    // 3 + 7 - 1
    EXPECT_DOUBLE_EQ(stock_qty(db, 2, 1, 4), 6);    // the transfer left out
    EXPECT_DOUBLE_EQ(stock_qty(db, 3, 1, 0), 0);    // nothing there
    EXPECT_DOUBLE_EQ(stock_qty(db, 1, 2, 0), 100);  // opening 99 + 1
    EXPECT_DOUBLE_EQ(stock_qty(db, 1, 2, 11), 99);

    // Restoring the voided purchase brings it in; the header arriving brings bill 10 in.
    db.exec("UPDATE ICStockBill SET FDeleted=0 WHERE FInterID=9");
    db.exec("INSERT INTO ICStockBill (FInterID, FTranType, FInStockID) VALUES (10, 112, 1)");
    EXPECT_DOUBLE_EQ(stock_qty(db, 1, 1, 0), 87);
}

// (That it sees the caller's uncommitted rows is checked through the data layer's call.)
TEST(StockQty, ChecksItsArgumentsByName) {
    TempDir dir;
    RawDb db(new_database(dir));
    bill(db, 1, 112, 1, 0, 1, {5});

    // Names match without regard to case; the output is found as "@Rtnqty".
    auto proc = find_procedure("SP_GETSTOCKQTY");
    ASSERT_NE(proc, nullptr);
    EXPECT_EQ(proc, find_procedure("sp_GetStockQty"));
    std::vector<ProcArg> args = {
        {"@rtnqty", VarType::Double, 2, Variant()},
        {"@INTERID", VarType::Long, 1, Variant(std::int32_t{0})},
        {"@itemid", VarType::Long, 1, Variant(std::int32_t{1})},
        {"@stockid", VarType::Long, 1, Variant(std::int32_t{1})},
    };
    proc(db.handle(), args);
    EXPECT_DOUBLE_EQ(args[0].value.to_double(), 5);

    std::vector<ProcArg> missing = {
        {"@StockID", VarType::Long, 1, Variant(std::int32_t{1})},
        {"@ItemID", VarType::Long, 1, Variant(std::int32_t{1})},
        {"@RtnQty", VarType::Double, 2, Variant()},
    };
    try {
        proc(db.handle(), missing);
        FAIL() << "a missing argument was accepted";
    } catch (const ComError& e) {
        EXPECT_NE(e.description().find("@InterID"), std::string::npos) << e.description();
    }
    EXPECT_EQ(find_procedure("sp_NoSuchProcedure"), nullptr);
}

TEST(CacuCost, MovingAverageWritesOnlyTheCurrentPeriodOn) {
    TempDir dir;
    RawDb db(new_database(dir));  // current period 2025/3
    db.exec(
        "INSERT INTO t_ICItem (FItemID, FName, FPjCost) VALUES (1, 'shirt', 0), "
        "(3, 'belt', 30)");
    db.exec(
        "INSERT INTO ICInitData (FStockID, FItemID, FQty, FAmount, FPrice) VALUES "
        "(1, 1, 10, 400, 40)");
    auto line = [&](int id, int kind, int year, int period, double qty, double price,
                    int item = 1) {
        db.exec(
            "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice, "
            "FUnitCost, FCost) VALUES (" +
            std::to_string(id) + ", 1, " + std::to_string(item) + ", " + std::to_string(qty) +
            ", " + std::to_string(price) + ", 1, 1)");
        db.exec(
            "INSERT INTO ICStockBill (FInterID, FTranType, FYear, FPeriod, FDate, FInStockID, "
            "FOutStockID) VALUES (" +
            std::to_string(id) + ", " + std::to_string(kind) + ", " + std::to_string(year) + ", " +
            std::to_string(period) + ", '" + std::to_string(year) + "-0" + std::to_string(period) +
            "-15', 1, 1)");
    };
    line(1, 112, 2025, 2, 10, 50);  // (400 + 500) / 20 = 45
    line(2, 99, 2025, 2, 4, 0);     // earlier period: feeds, is not written
    line(3, 112, 2025, 3, 4, 60);   // (16*45 + 240) / 20 = 48
    line(4, 99, 2025, 3, 5, 0);     // 48
    line(5, 114, 2025, 3, 5, 60);   // (15*48 - 300) / 10 = 42
    line(6, 125, 2025, 4, 2, 0);    // later period: written, 42
    line(7, 112, 2025, 3, 100, 1);  // voided: ignored
    db.exec("UPDATE ICStockBill SET FDeleted=1 WHERE FInterID=7");
    line(8, 27, 2025, 3, 1, 0);   // lent to a member: 42, 7 left
    line(9, 31, 2025, 3, 7, 50);  // transfer: quantity stays, value moves to (7*42+7*50-7*42)/7
    line(10, 99, 2025, 3, 1, 0);  // 50

    // Belt: no opening, sold before it was bought (master cost), then bought below zero stock.
    line(20, 99, 2025, 3, 2, 0, 3);    // 30 from the master
    line(21, 112, 2025, 3, 5, 20, 3);  // stock -2 valued at 20: (-40 + 100) / 3 = 20
    line(22, 99, 2025, 3, 3, 0, 3);    // 20, stock 0
    line(23, 99, 2025, 3, 1, 0, 3);    // stock 0 keeps the last average: 20

    auto proc = find_procedure("sp_cacucost");
    ASSERT_NE(proc, nullptr);
    std::vector<ProcArg> none;
    proc(db.handle(), none);

    auto unit = [&](int id) {
        return db.real("SELECT FUnitCost FROM ICStockBillEntry WHERE FInterID=" +
                       std::to_string(id));
    };
    auto cost = [&](int id) {
        return db.real("SELECT FCost FROM ICStockBillEntry WHERE FInterID=" + std::to_string(id));
    };
    EXPECT_DOUBLE_EQ(unit(2), 1);  // earlier period untouched
    EXPECT_DOUBLE_EQ(cost(2), 1);
    EXPECT_DOUBLE_EQ(unit(4), 48);
    EXPECT_DOUBLE_EQ(cost(4), 240);
    EXPECT_DOUBLE_EQ(unit(6), 42);
    EXPECT_DOUBLE_EQ(cost(6), 84);
    EXPECT_DOUBLE_EQ(unit(8), 42);
    EXPECT_DOUBLE_EQ(unit(10), 50);
    EXPECT_DOUBLE_EQ(unit(3), 1);  // stock-in lines keep their own values
    EXPECT_DOUBLE_EQ(unit(9), 1);
    EXPECT_DOUBLE_EQ(db.real("SELECT FPjCost FROM t_ICItem WHERE FItemID=1"), 50);
    EXPECT_DOUBLE_EQ(unit(20), 30);
    EXPECT_DOUBLE_EQ(cost(20), 60);
    EXPECT_DOUBLE_EQ(unit(22), 20);
    EXPECT_DOUBLE_EQ(unit(23), 20);
    EXPECT_DOUBLE_EQ(db.real("SELECT FPjCost FROM t_ICItem WHERE FItemID=3"), 20);
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICCostDirty"), 0);
}

TEST(CacuCost, RecomputesOnlyItemsWhoseLinesChanged) {
    TempDir dir;
    RawDb db(new_database(dir));
    db.exec("INSERT INTO t_ICItem (FItemID, FPjCost) VALUES (1, 0), (2, 0)");
    for (int item : {1, 2}) {
        std::string i = std::to_string(item);
        db.exec(
            "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice) VALUES "
            "(" +
            std::to_string(item * 10) + ", 1, " + i + ", 10, 8)");
        db.exec(
            "INSERT INTO ICStockBill (FInterID, FTranType, FYear, FPeriod, FInStockID) VALUES "
            "(" +
            std::to_string(item * 10) + ", 112, 2025, 3, 1)");
        db.exec("INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty) VALUES (" +
                std::to_string(item * 10 + 1) + ", 1, " + i + ", 2)");
        db.exec(
            "INSERT INTO ICStockBill (FInterID, FTranType, FYear, FPeriod, FOutStockID) "
            "VALUES (" +
            std::to_string(item * 10 + 1) + ", 99, 2025, 3, 1)");
    }
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICCostDirty"), 2);
    auto proc = find_procedure("Sp_CacuCost");
    std::vector<ProcArg> none;
    proc(db.handle(), none);
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICCostDirty"), 0);
    EXPECT_DOUBLE_EQ(db.real("SELECT FUnitCost FROM ICStockBillEntry WHERE FInterID=21"), 8);

    // Writing costs by hand (a column that moves no value) marks nothing: a second run leaves
    // both sales alone.
    db.exec("UPDATE ICStockBillEntry SET FUnitCost=99, FCost=198 WHERE FInterID IN (11, 21)");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICCostDirty"), 0);
    proc(db.handle(), none);
    EXPECT_DOUBLE_EQ(db.real("SELECT FUnitCost FROM ICStockBillEntry WHERE FInterID=11"), 99);

    // A new purchase of item 2 makes item 2 dirty, and only item 2 is recomputed.
    db.exec(
        "INSERT INTO ICStockBillEntry (FInterID, FEntryID, FItemID, FQty, FPrice) VALUES "
        "(5, 1, 2, 10, 12)");
    db.exec(
        "INSERT INTO ICStockBill (FInterID, FTranType, FYear, FPeriod, FInStockID) VALUES "
        "(5, 112, 2025, 3, 1)");
    EXPECT_EQ(db.integer("SELECT FItemID FROM ICCostDirty"), 2);
    proc(db.handle(), none);
    EXPECT_DOUBLE_EQ(db.real("SELECT FUnitCost FROM ICStockBillEntry WHERE FInterID=11"), 99);
    EXPECT_DOUBLE_EQ(db.real("SELECT FUnitCost FROM ICStockBillEntry WHERE FInterID=21"), 10);
    EXPECT_DOUBLE_EQ(db.real("SELECT FPjCost FROM t_ICItem WHERE FItemID=2"), 10);

    // Voiding a bill and moving the current period both mark the items concerned.
    db.exec("UPDATE ICStockBill SET FDeleted=1 WHERE FInterID=5");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICCostDirty WHERE FItemID=2"), 1);
    proc(db.handle(), none);
    EXPECT_DOUBLE_EQ(db.real("SELECT FUnitCost FROM ICStockBillEntry WHERE FInterID=21"), 8);
    db.exec("UPDATE t_SystemProfile SET FValue='2' WHERE FKey='CurrentPeriod'");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICCostDirty"), 2);
}
