#pragma once
// A real embedded database with the bill tables the statements use, declared as the schema
// declares them (texts with the text collation, dates with the date collation), the T-SQL
// runtime registered, and the catalogue read back from the file.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <charconv>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/dialect/dialect.h"
#include "billdata/drivers/sqlite/catalog.h"
#include "billdata/drivers/sqlite/tsql_runtime.h"
#include "support/test_support.h"

namespace billdata::testing {

// The tables and columns of the bill statements. I = ids, kinds, counters, flags; R = amounts;
// T = texts; D = dates.
inline const char* kBillSchema = R"sql(
CREATE TABLE ICOrder(FInterID INTEGER PRIMARY KEY, FTranType INTEGER, FDate DATETIME COLLATE BDDATE,
  FJhDate DATETIME COLLATE BDDATE, FBillNo TEXT COLLATE BDTEXT, FOrgaID INTEGER, FRemark TEXT COLLATE BDTEXT,
  FBillerID INTEGER, FSumQty REAL, FSumAmount REAL, FSumRetailAmount REAL, FEarnest REAL, FAcctID INTEGER,
  FDeleted INTEGER, FSysTime DATETIME COLLATE BDDATE, FPhone TEXT COLLATE BDTEXT, FOwner TEXT COLLATE BDTEXT,
  FCheckerID INTEGER);
CREATE TABLE ICOrderEntry(FInterID INTEGER, FEntryID INTEGER, FItemID INTEGER, FRowKey TEXT COLLATE BDTEXT,
  FQty REAL, FZkRate REAL, FPrice REAL, FAmount REAL, FRetailPrice REAL, FRetailAmount REAL,
  FMemo TEXT COLLATE BDTEXT, FSalerID INTEGER, FUnitCost REAL, FPreSend INTEGER, FSaleQty REAL);
CREATE TABLE ICOrderEntry_1(FInterID INTEGER, FItemID INTEGER, FRowKey TEXT COLLATE BDTEXT, FSizeID INTEGER,
  FColor TEXT COLLATE BDTEXT, FColorEntryID INTEGER, FQty REAL);
CREATE TABLE ICStockBill(FInterID INTEGER PRIMARY KEY, FTranType INTEGER, FDate DATETIME COLLATE BDDATE,
  FBillNo TEXT COLLATE BDTEXT, FOrgaID INTEGER, FInStockID INTEGER, FOutStockID INTEGER, FAcctID INTEGER,
  FSettleID INTEGER, FRemark TEXT COLLATE BDTEXT, FBillerID INTEGER, FCheckerID INTEGER, FYear INTEGER,
  FPeriod INTEGER, FSysTime DATETIME COLLATE BDDATE, FSumQty REAL, FSumAmount REAL, FSumRetailAmount REAL,
  FSeason TEXT COLLATE BDTEXT, FMonth TEXT COLLATE BDTEXT, FCause TEXT COLLATE BDTEXT, FVipID INTEGER,
  FPhone TEXT COLLATE BDTEXT, FOwner TEXT COLLATE BDTEXT, FDeleted INTEGER, FGetCash REAL, FBzkBillAmount REAL,
  FSumZkAmount REAL, FGetDyq REAL, FGetBlank REAL, FSumCost REAL, FSumProfit REAL, FSumOddMent REAL,
  FClassName TEXT COLLATE BDTEXT, FQkAmount REAL, FGetAmount REAL, FChange REAL, FSumJf REAL,
  FJfExchange REAL, FGetJfAmount REAL, FMachine TEXT COLLATE BDTEXT, FPosGetMoney INTEGER, FGetQk REAL,
  FPrintTimes INTEGER);
CREATE TABLE ICStockBillEntry(FInterID INTEGER, FEntryID INTEGER, FItemID INTEGER, FRowKey TEXT COLLATE BDTEXT,
  FQty REAL, FPrice REAL, FAmount REAL, FHisPrice REAL, FZkRate REAL, FRetailPrice REAL, FRetailAmount REAL,
  FMemo TEXT COLLATE BDTEXT, FOddMentEntry REAL, FZkAmount REAL, FSalerID INTEGER, FPreSend INTEGER,
  FUnitCost REAL, FCost REAL, FRefInterID INTEGER, FRefEntryID INTEGER, FRefTranType INTEGER,
  FTjStockID INTEGER, FSaleQty REAL, FRtnQty REAL, FSdyh REAL);
CREATE INDEX ix_ICStockBillEntry ON ICStockBillEntry(FInterID, FEntryID);
CREATE TABLE ICStockBillEntry_1(FInterID INTEGER, FItemID INTEGER, FRowKey TEXT COLLATE BDTEXT, FSizeID INTEGER,
  FColor TEXT COLLATE BDTEXT, FColorEntryID INTEGER, FQty REAL);
CREATE TABLE WLBill(FInterID INTEGER PRIMARY KEY, FTranType INTEGER, FSettleID INTEGER, FEmpID INTEGER,
  FDate DATETIME COLLATE BDDATE, FBillNo TEXT COLLATE BDTEXT, FAcctID INTEGER, FOrgaID INTEGER,
  FSettleAmount REAL, FSumAmount REAL, FOddMent REAL, FMemo TEXT COLLATE BDTEXT, FBillerID INTEGER,
  FCheckerID INTEGER, FSysTime DATETIME COLLATE BDDATE, FOrderBillID INTEGER, FStockBillID INTEGER,
  FClosed INTEGER, FDeleted INTEGER);
CREATE TABLE WLBillEntry(FInterID INTEGER, FEntryID INTEGER, FAmount REAL);
CREATE TABLE ICSpTjd(FInterID INTEGER PRIMARY KEY, FCheckerID INTEGER);
CREATE TABLE vipjf_History(FBillInterID INTEGER, FVipID INTEGER, FDate DATETIME COLLATE BDDATE, Fjf REAL,
  FBiller TEXT COLLATE BDTEXT, FMemo TEXT COLLATE BDTEXT, FDeleted INTEGER);
CREATE TABLE ICMaxNum(FTranType INTEGER PRIMARY KEY, FMaxNum INTEGER, FDescription TEXT COLLATE BDTEXT);
CREATE TABLE ICBillNo(FTranType INTEGER, FDate DATETIME COLLATE BDDATE, FMaxNum INTEGER,
  PRIMARY KEY(FTranType, FDate));
CREATE TABLE ICInitData(FStockID INTEGER, FItemID INTEGER, FQty REAL, FAmount REAL, FPrice REAL);
CREATE TABLE ICInitData_Entry(FStockID INTEGER, FItemID INTEGER, FColor TEXT COLLATE BDTEXT, FSizeID INTEGER,
  FQty REAL);
CREATE TABLE ICBal(FYear INTEGER, FPeriod INTEGER, FStockID INTEGER, FItemID INTEGER, FBegQty REAL,
  FBegPrice REAL, FBegBal REAL);
CREATE TABLE ICBal_Entry(FYear INTEGER, FPeriod INTEGER, FStockID INTEGER, FItemID INTEGER,
  FColor TEXT COLLATE BDTEXT, FSizeID INTEGER, FBegQty REAL);
CREATE TABLE WLInitData(FItemClassID INTEGER, FOrgaID INTEGER, FAmount REAL);
CREATE TABLE WLBal(FYear INTEGER, FPeriod INTEGER, FItemClassID INTEGER, FOrgaID INTEGER, FBegBal REAL);
CREATE TABLE WLSettleBal(FYear INTEGER, FPeriod INTEGER, FItemClassID INTEGER, FOrgaID INTEGER, FAmount REAL);
CREATE TABLE CashInitData(FItemClassID INTEGER, FItemID INTEGER, FAmount REAL);
CREATE TABLE CashBal(FItemClassID INTEGER, FItemID INTEGER, FAmount REAL);
CREATE TABLE t_Item(FItemID INTEGER PRIMARY KEY, FNumber TEXT COLLATE BDTEXT, FName TEXT COLLATE BDTEXT);
CREATE TABLE t_ICItem(FItemID INTEGER PRIMARY KEY, FNumber TEXT COLLATE BDTEXT, FName TEXT COLLATE BDTEXT,
  FUnit TEXT COLLATE BDTEXT, FProductNo TEXT COLLATE BDTEXT, FSizeID INTEGER, FPurYear TEXT COLLATE BDTEXT,
  FQuarter TEXT COLLATE BDTEXT, FPurPrice REAL, FSupplierID INTEGER, FPjCost REAL, FJfFactor REAL,
  FRetailPrice_2 REAL);
CREATE TABLE t_Stock(FItemID INTEGER PRIMARY KEY, FName TEXT COLLATE BDTEXT);
CREATE TABLE t_Account(FItemID INTEGER PRIMARY KEY, FName TEXT COLLATE BDTEXT);
CREATE TABLE t_Emp(FItemID INTEGER PRIMARY KEY, FName TEXT COLLATE BDTEXT);
CREATE TABLE t_Supplier(FItemID INTEGER PRIMARY KEY, FNumber TEXT COLLATE BDTEXT, FName TEXT COLLATE BDTEXT);
CREATE TABLE t_Size(FItemID INTEGER PRIMARY KEY, FName TEXT COLLATE BDTEXT);
CREATE TABLE t_User(FUserID INTEGER PRIMARY KEY, FUserName TEXT COLLATE BDTEXT, FDays INTEGER, FStockID INTEGER);
CREATE TABLE t_VipCard(FItemID INTEGER PRIMARY KEY);
CREATE TABLE Vip(FVipID INTEGER PRIMARY KEY, FVipNo TEXT COLLATE BDTEXT, FOwner TEXT COLLATE BDTEXT,
  FSumJf REAL, FSumJf_Un REAL, FSumBuyAmount REAL, FBogus INTEGER, FEditTime DATETIME COLLATE BDDATE);
CREATE TABLE t_SystemProfile(FKey TEXT COLLATE BDTEXT, FValue TEXT COLLATE BDTEXT);
)sql";

using Rows = std::vector<std::vector<std::string>>;

class DialectDb : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(sqlite3_open(dir_.file("bills.db").c_str(), &db_), SQLITE_OK);
        ASSERT_EQ(drivers::sqlite::register_tsql_runtime(db_), SQLITE_OK);
        raw(kBillSchema);
        catalog_ = drivers::sqlite::read_catalog(db_);
    }
    void TearDown() override { sqlite3_close(db_); }

    // Runs SQL of the engine itself (set-up data), failing the test on an error.
    void raw(const std::string& sql) {
        char* err = nullptr;
        int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err);
        std::string msg = err ? err : "";
        sqlite3_free(err);
        ASSERT_EQ(rc, SQLITE_OK) << msg << "\n" << sql;
    }

    dialect::Translation translate(const std::string& tsql) {
        return dialect::translate_sqlite(tsql, catalog_);
    }

    // Translates and runs one T-SQL statement; the rows as text ("NULL" for null; reals in
    // their shortest form). Raises std::runtime_error with the engine's message on failure.
    Rows run(const std::string& tsql) { return run_sqlite(translate(tsql).sql); }

    Rows run_sqlite(const std::string& sql) {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
            throw std::runtime_error(std::string(sqlite3_errmsg(db_)) + " in: " + sql);
        }
        Rows rows;
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            std::vector<std::string> row;
            for (int i = 0; i < sqlite3_column_count(stmt); ++i) row.push_back(cell(stmt, i));
            rows.push_back(std::move(row));
        }
        std::string msg = sqlite3_errmsg(db_);
        sqlite3_finalize(stmt);
        if (rc != SQLITE_DONE) throw std::runtime_error(msg);
        return rows;
    }

    // The single value of a one-row, one-column result.
    std::string value(const std::string& tsql) {
        Rows rows = run(tsql);
        if (rows.size() != 1 || rows[0].size() != 1) {
            throw std::runtime_error("expected one value from: " + tsql);
        }
        return rows[0][0];
    }

    // The names of the result columns of a translated select.
    std::vector<std::string> column_names(const std::string& tsql) {
        std::string sql = translate(tsql).sql;
        sqlite3_stmt* stmt = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr), SQLITE_OK) << sql;
        std::vector<std::string> names;
        for (int i = 0; stmt && i < sqlite3_column_count(stmt); ++i) names.push_back(sqlite3_column_name(stmt, i));
        sqlite3_finalize(stmt);
        return names;
    }

    // The engine's plan of a translated statement, all detail lines joined.
    std::string plan(const std::string& tsql) {
        Rows rows = run_sqlite("EXPLAIN QUERY PLAN " + translate(tsql).sql);
        std::string out;
        for (const auto& r : rows) out += r.back() + "\n";
        return out;
    }

    static std::string cell(sqlite3_stmt* stmt, int i) {
        switch (sqlite3_column_type(stmt, i)) {
        case SQLITE_NULL: return "NULL";
        case SQLITE_INTEGER: return std::to_string(sqlite3_column_int64(stmt, i));
        case SQLITE_FLOAT: {
            char buf[64];
            auto res = std::to_chars(buf, buf + sizeof(buf), sqlite3_column_double(stmt, i));
            return std::string(buf, res.ptr);
        }
        default: return reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
        }
    }

    TempDir dir_;
    sqlite3* db_ = nullptr;
    dialect::Catalog catalog_;
};

}  // namespace billdata::testing
