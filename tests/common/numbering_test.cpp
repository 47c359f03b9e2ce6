#include "billdata/common/numbering.h"
#include "billdata/billcore/bill_kinds.h"

#include "fixture.h"

namespace billdata::testing {
namespace {

using common::Executor;
using common::Handler;

class NumberingTest : public DatabaseTest {
  protected:
    std::int32_t next_id(std::int16_t series) {
        auto cn = open();
        Executor ex(cn, Handler::Common);
        return common::NextInterID(ex, series, 0);
    }
    std::string next_no(const std::string& kind, const ado::DateTime& date,
                        std::string prefix = "") {
        auto cn = open();
        Executor ex(cn, Handler::Common);
        return billcore::NextBillNo(ex, kind, date, prefix);
    }
};

TEST_F(NumberingTest, InteriorIdSeries) {
    // A new series starts at 1 with an empty description.
    EXPECT_EQ(next_id(4), 1);
    EXPECT_EQ(scalar("select FMaxNum from ICMaxNum where FTranType=4").to_int32(), 1);
    EXPECT_EQ(scalar("select FDescription from ICMaxNum where FTranType=4").to_string(), "");
    EXPECT_EQ(next_id(4), 2);

    // Series 0 keeps above the ids already in ICStockBill, while its counter moves by one.
    exec("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0,100,'')");
    exec("insert into ICStockBill(FInterID,FTranType,FDate) values(250,112,'2025-03-01')");
    EXPECT_EQ(next_id(0), 251);
    EXPECT_EQ(scalar("select FMaxNum from ICMaxNum where FTranType=0").to_int32(), 101);

    // Other series are not checked against ICStockBill; series 11 is seeded at 1,000,000,000.
    EXPECT_EQ(next_id(11), 1000000001);
    exec("update ICMaxNum set FMaxNum=100 where FTranType=11");
    EXPECT_EQ(next_id(11), 101);
}

TEST_F(NumberingTest, DailyBillNumbers) {
    ado::DateTime day(2025, 3, 9);
    EXPECT_EQ(next_no("11", day), "CD250309-001");
    for (int i = 2; i < 10; ++i)
        next_no("11", day);
    EXPECT_EQ(next_no("11", day), "CD250309-010");
    exec("update ICBillNo set FMaxNum=999 where FTranType=11");
    EXPECT_EQ(next_no("11", day), "CD250309-1000");
    // Another day and another kind each start their own sequence.
    EXPECT_EQ(next_no("11", ado::DateTime(2025, 3, 10)), "CD250310-001");
    EXPECT_EQ(next_no("21", day), "XD250309-001");
    // The counter row is keyed by the date as text without a time of day.
    EXPECT_EQ(
        scalar("select FMaxNum from ICBillNo where FTranType=11 and FDate='2025-03-09'").to_int32(),
        1000);
    // A bill date with a time of day gets a counter row of its own.
    EXPECT_EQ(next_no("11", ado::DateTime(2025, 3, 9, 10, 30, 0)), "CD250309-001");
}

TEST_F(NumberingTest, PrefixesByKind) {
    // Kinds whose text decides: mixed case, till sales by their leading digits, none at all.
    const std::pair<const char*, const char*> table[] = {
        {"13", "Fkd"}, {"99", "pos"}, {"991", "pos"}, {"99.5", "pos"}, {"60", ""}};
    ado::DateTime day(2024, 1, 5);
    for (const auto& [kind, prefix] : table) {
        EXPECT_EQ(next_no(kind, day), std::string(prefix) + "240105-001") << "kind " << kind;
    }
    // Till sales are told by the text: 099 is kind 99 but no till sale.
    EXPECT_EQ(billcore::bill_prefix("099"), "");
    // A caller's prefix is used as it stands, and the caller sees the filled one otherwise.
    EXPECT_EQ(next_no("99", day, "A"), "A240105-002");
    auto cn = open();
    Executor ex(cn, Handler::Common);
    std::string prefix;
    billcore::NextBillNo(ex, "125", day, prefix);
    EXPECT_EQ(prefix, "QC");
}

TEST_F(NumberingTest, BadKindAndOverflow) {
    ado::DateTime day(2024, 1, 5);
    // A kind that is no number fails before anything is written.
    expect_com_error([&] { next_no("abc", day); }, ado::err::kTypeMismatch, "类型不匹配");
    EXPECT_EQ(scalar("select count(*) from ICBillNo").to_int32(), 0);
    // The daily sequence is 16 bits wide.
    next_no("11", day);
    exec("update ICBillNo set FMaxNum=32767 where FTranType=11");
    expect_com_error([&] { next_no("11", day); }, ado::err::kOverflow, "溢出");
}

TEST_F(NumberingTest, RolledBackSaveGivesNumbersBack) {
    auto cn = open();
    Executor ex(cn, Handler::Common);
    ex.begin();
    EXPECT_EQ(common::NextInterID(ex, 4, 0), 1);
    std::string prefix;
    EXPECT_EQ(billcore::NextBillNo(ex, "23", ado::DateTime(2025, 3, 9), prefix), "SK250309-001");
    ex.rollback();
    EXPECT_EQ(common::NextInterID(ex, 4, 0), 1);
    prefix.clear();
    EXPECT_EQ(billcore::NextBillNo(ex, "23", ado::DateTime(2025, 3, 9), prefix), "SK250309-001");
}

}  // namespace
}  // namespace billdata::testing
