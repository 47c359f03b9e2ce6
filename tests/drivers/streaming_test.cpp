#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "billdata/ado/ado.h"
#include "drivers/sqlite_fixture.h"
#include "support/test_support.h"

namespace {

using namespace billdata::ado;
using billdata::testing::resident_bytes;

TEST(Streaming, AMillionRowListNeverSitsInMemory) {
    billdata::testing::TempDir dir;
    const std::string db = dir.file("big.db");
    billdata::testing::create_database(
        db,
        "create table Big(FID INTEGER PRIMARY KEY, FName TEXT COLLATE BDTEXT, FQty REAL);"
        "with recursive n(i) as (select 1 union all select i+1 from n where i<1000000) "
        "insert into Big select i, 'item number ' || i, i * 0.5 from n;");
    const long before = resident_bytes();
    auto rs = Recordset::create();
    rs->Open("select FID, FName, FQty from Big", billdata::testing::sqlite_connection(db));
    long rows = 0, peak = 0;
    double sum = 0;
    for (; !rs->Eof(); rs->MoveNext()) {
        if (++rows % 100000 == 0) peak = std::max(peak, resident_bytes());
        sum += rs->Fields("FQty").Value().to_double();
    }
    const long growth = peak - before;
    EXPECT_EQ(rows, 1000000);
    EXPECT_DOUBLE_EQ(sum, 0.5 * 1000000.0 * 1000001.0 / 2);
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine: resident size says nothing";
#endif
    // Held in memory the rows would take well over 100 MB; the engine's page cache is bounded.
    EXPECT_LT(growth, 16L * 1024 * 1024) << "resident memory grew by " << growth << " bytes";
}

}  // namespace
