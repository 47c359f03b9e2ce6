// A new embedded database: schema, settings rows, counters, demo data and the refusals.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "billdata/ado/com_error.h"
#include "billdata/schema/schema.h"
#include "schema/schema_test_util.h"
#include "support/test_support.h"

using billdata::ado::ComError;
using billdata::schema::create_database;
using billdata::testing::Db;
using billdata::testing::TempDir;

TEST(CreateDatabase, FreshFileGetsSchemaSettingsAndSeed) {
    TempDir dir;
    std::string path = dir.file("shop.db");
    create_database(path, false, 2025, 3);

    Db db(path);
    EXPECT_GE(db.integer("SELECT count(*) FROM sqlite_master WHERE type='table'"), 35);
    EXPECT_EQ(db.text("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(db.text("SELECT FValue FROM t_SystemProfile WHERE FKey='StartYear'"), "2025");
    EXPECT_EQ(db.text("SELECT FValue FROM t_SystemProfile WHERE FKey='StartPeriod'"), "3");
    EXPECT_EQ(db.text("SELECT FValue FROM t_SystemProfile WHERE FKey='CurrentYear'"), "2025");
    EXPECT_EQ(db.text("SELECT FValue FROM t_SystemProfile WHERE FKey='CurrentPeriod'"), "3");
    for (const char* key : {"ICClosed", "WLClosed", "CashClosed"})
        EXPECT_EQ(
            db.text(std::string("SELECT FValue FROM t_SystemProfile WHERE FKey='") + key + "'"),
            "0")
            << key;
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_SystemProfile WHERE FKey='CostStyle'"), 0);
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_SystemProfile"), 7);
    EXPECT_EQ(db.integer("SELECT FMaxNum FROM ICMaxNum WHERE FTranType=11"), 1000000000);
    EXPECT_EQ(db.text("SELECT FDescription FROM ICMaxNum WHERE FTranType=11"), "");
    EXPECT_EQ(db.integer("SELECT count(*) FROM ICMaxNum"), 1);
    // No master data without the demo.
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_ICItem"), 0);
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_Stock"), 0);
}

TEST(CreateDatabase, DefaultPeriodIsThisMonth) {
    TempDir dir;
    std::string path = dir.file("now.db");
    create_database(path, false);
    std::time_t t = std::time(nullptr);
    std::tm local{};
    localtime_r(&t, &local);
    Db db(path);
    EXPECT_EQ(db.integer("SELECT CAST(FValue AS INTEGER) FROM t_SystemProfile WHERE "
                         "FKey='CurrentYear'"),
              local.tm_year + 1900);
    EXPECT_EQ(db.integer("SELECT CAST(FValue AS INTEGER) FROM t_SystemProfile WHERE "
                         "FKey='StartPeriod'"),
              local.tm_mon + 1);
}

TEST(CreateDatabase, RefusesFilesThatHoldTablesAndBadPeriods) {
    TempDir dir;
    std::string path = dir.file("used.db");
    {
        Db db(path);
        db.exec("CREATE TABLE Customers (Name TEXT)");
        db.exec("INSERT INTO Customers VALUES ('kept')");
    }
    auto size_before = std::filesystem::file_size(path);
    try {
        create_database(path, true, 2025, 1);
        FAIL() << "an existing database was overwritten";
    } catch (const ComError& e) {
        EXPECT_EQ(e.number(), billdata::ado::err::kDatabase);
        EXPECT_NE(e.description().find("already holds tables"), std::string::npos);
    }
    EXPECT_EQ(std::filesystem::file_size(path), size_before);
    {
        Db db(path);
        EXPECT_EQ(db.text("SELECT Name FROM Customers"), "kept");
        EXPECT_EQ(db.integer("SELECT count(*) FROM sqlite_master WHERE name='ICStockBill'"), 0);
    }

    // A second create on a database made by us is refused as well.
    std::string ours = dir.file("ours.db");
    create_database(ours, false, 2025, 1);
    EXPECT_THROW(create_database(ours, false, 2025, 1), ComError);

    // A bad period writes nothing, not even an empty file.
    std::string bad = dir.file("bad.db");
    EXPECT_THROW(create_database(bad, false, 2025, 13), ComError);
    EXPECT_FALSE(std::filesystem::exists(bad));

    // A file that is no database is refused and left as it was.
    std::string text = dir.file("notes.db");
    std::ofstream(text) << "this is not a database file, just some notes that are long enough";
    EXPECT_THROW(create_database(text, false, 2025, 1), ComError);
    EXPECT_TRUE(std::filesystem::exists(text));
}

TEST(CreateDatabase, DemoDataKeepsTheJoinedIdsConsistent) {
    TempDir dir;
    std::string path = dir.file("demo.db");
    create_database(path, true, 2025, 3);
    Db db(path);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_Stock"), 3);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_ICItem WHERE FSizeID=0"), 1);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_ICItem i JOIN t_Size s ON s.FGroupID=i.FSizeID"),
              4);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_Color"), 2);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_Account"), 2);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_Emp"), 2);
    // Every supplier is a trading partner with the same id; every goods' supplier exists.
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_Supplier s LEFT JOIN t_Item i ON "
                         "i.FItemID=s.FItemID WHERE i.FItemID IS NULL"),
              0);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_Supplier"), 2);
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_ICItem g LEFT JOIN t_Supplier s ON "
                         "s.FItemID=g.FSupplierID WHERE s.FItemID IS NULL"),
              0);
    // Members: the same id in Vip and t_VipCard, one provisional card.
    EXPECT_EQ(db.integer("SELECT count(*) FROM Vip v LEFT JOIN t_VipCard c ON c.FItemID=v.FVipID "
                         "WHERE c.FItemID IS NULL"),
              0);
    EXPECT_EQ(db.integer("SELECT count(*) FROM Vip WHERE FBogus=1"), 1);
    // Users with and without list restrictions, one with nulls.
    EXPECT_GE(db.integer("SELECT count(*) FROM t_User WHERE FDays>0 AND FStockID>0"), 1);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_User WHERE FDays=0"), 1);
    EXPECT_GE(db.integer("SELECT count(*) FROM t_User WHERE FDays IS NULL AND FStockID IS NULL"),
              1);
    // Opening data: stock whose size/colour breakdown adds up, receivables/payables and cash.
    EXPECT_EQ(db.integer("SELECT count(*) FROM (SELECT d.FStockID, d.FItemID, d.FQty, "
                         "(SELECT sum(e.FQty) FROM ICInitData_Entry e WHERE "
                         "e.FStockID=d.FStockID AND e.FItemID=d.FItemID) AS s FROM ICInitData d) "
                         "WHERE s IS NULL OR s<>FQty"),
              0);
    EXPECT_GE(db.integer("SELECT count(*) FROM ICInitData"), 5);
    EXPECT_EQ(db.integer("SELECT count(*) FROM WLInitData w LEFT JOIN t_Item i ON "
                         "i.FItemID=w.FOrgaID WHERE i.FItemID IS NULL"),
              0);
    EXPECT_GE(db.integer("SELECT count(*) FROM CashInitData"), 2);
}
