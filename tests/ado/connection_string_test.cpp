#include <gtest/gtest.h>

#include "billdata/ado/com_error.h"
#include "billdata/ado/driver.h"
#include "support/test_support.h"

namespace {

using billdata::ado::ComError;
using billdata::ado::ConnectionString;
namespace err = billdata::ado::err;

TEST(ConnectionString, ReadsKeywordsQuotesAndBarePaths) {
    auto cs = ConnectionString::parse(" Provider = SQLite ; DATA   SOURCE=/var/shop/a.db;");
    EXPECT_EQ(cs.get("provider"), "SQLite");
    EXPECT_EQ(cs.get("Data Source"), "/var/shop/a.db");
    EXPECT_TRUE(cs.has("data source"));
    EXPECT_FALSE(cs.has("busy timeout"));
    EXPECT_EQ(cs.get("Busy Timeout", "5000"), "5000");
    EXPECT_EQ(cs.items().size(), 2u);

    cs = ConnectionString::parse("Data Source=\"/tmp/a;b.db\";Password='it''s;secret'");
    EXPECT_EQ(cs.get("data source"), "/tmp/a;b.db");
    EXPECT_EQ(cs.get("password"), "it's;secret");

    cs = ConnectionString::parse("/home/shop/billdata.db");
    EXPECT_EQ(cs.get("provider"), "SQLite");
    EXPECT_EQ(cs.get("data source"), "/home/shop/billdata.db");
    EXPECT_EQ(cs.text(), "/home/shop/billdata.db");
}

TEST(ConnectionString, MalformedTextIsRefused) {
    for (const std::string& bad :
         {std::string(), std::string("Provider=SQLite;Data Source"),
          std::string("Data Source=\"/tmp/a.db"), std::string("=x"),
          std::string("Data Source='a.db' trailing"), std::string("/tmp/notes.txt"),
          std::string("Driver=:\0odbc;Server=h", 22), std::string("Driver=:\xd4;Server=h")}) {
        const ComError e = billdata::testing::error_of([&] { ConnectionString::parse(bad); });
        EXPECT_EQ(e.number(), err::kConnection) << bad;
        EXPECT_FALSE(e.description().empty());
    }
}

}  // namespace
