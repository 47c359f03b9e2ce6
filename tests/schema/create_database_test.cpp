// A new embedded database: schema, settings rows, counters, demo data and the refusals.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "billdata/ado/com_error.h"
#include "billdata/schema/schema.h"
#include "support/raw_db.h"
#include "support/test_support.h"

using billdata::ado::ComError;
using billdata::schema::create_database;
using billdata::testing::RawDb;
using billdata::testing::TempDir;

TEST(CreateDatabase, FreshFileGetsSchemaSettingsAndSeed) {
    TempDir dir;
    std::string path = dir.file("shop.db");
    create_database(path, false, 2025, 3);

    RawDb db(path);
    EXPECT_EQ(db.text("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(db.text("SELECT group_concat(FKey || '=' || FValue, ';') FROM "
                      "(SELECT FKey, FValue FROM t_SystemProfile ORDER BY FKey)"),
              "CashClosed=0;CurrentPeriod=3;CurrentYear=2025;ICClosed=0;StartPeriod=3;"
              "StartYear=2025;WLClosed=0");
    EXPECT_EQ(db.text("SELECT group_concat(FTranType || '=' || FMaxNum || ':' || FDescription) "
                      "FROM ICMaxNum"),
              "11=1000000000:");
    // No master data without the demo.
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_ICItem"), 0);
}

TEST(CreateDatabase, DefaultPeriodIsThisMonth) {
    TempDir dir;
    std::string path = dir.file("now.db");
    create_database(path, false);
    std::time_t t = std::time(nullptr);
    std::tm local{};
    localtime_r(&t, &local);
    RawDb db(path);
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
        RawDb db(path, /*create=*/true);
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
        RawDb db(path);
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
    RawDb db(path);
    // Every supplier is a trading partner with the same id; every goods' supplier exists.
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_Supplier s LEFT JOIN t_Item i ON "
                         "i.FItemID=s.FItemID WHERE i.FItemID IS NULL"),
              0);
    EXPECT_EQ(db.integer("SELECT count(*) FROM t_ICItem g LEFT JOIN t_Supplier s ON "
                         "s.FItemID=g.FSupplierID WHERE s.FItemID IS NULL"),
              0);
    // Members: the same id in Vip and t_VipCard.
    EXPECT_EQ(db.integer("SELECT count(*) FROM Vip v LEFT JOIN t_VipCard c ON c.FItemID=v.FVipID "
                         "WHERE c.FItemID IS NULL"),
              0);
    // Opening data: stock whose size/colour breakdown adds up, receivables of known partners.
    EXPECT_EQ(db.integer("SELECT count(*) FROM (SELECT d.FStockID, d.FItemID, d.FQty, "
                         "(SELECT sum(e.FQty) FROM ICInitData_Entry e WHERE "
                         "e.FStockID=d.FStockID AND e.FItemID=d.FItemID) AS s FROM ICInitData d) "
                         "WHERE s IS NULL OR s<>FQty"),
              0);
    EXPECT_EQ(db.integer("SELECT count(*) FROM WLInitData w LEFT JOIN t_Item i ON "
                         "i.FItemID=w.FOrgaID WHERE i.FItemID IS NULL"),
              0);
}
