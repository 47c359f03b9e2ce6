#include "billdata/initdata/initdata.h"

#include <chrono>
#include <future>

#include "common/fixture.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

// The demo shop, started in 2025/3 with opening stock, receivables, payables and cash.
class InitDataTest : public DatabaseTest {
  protected:
    bool demo() const override { return true; }

    // Every row of a query as "a|b|c;" text, to compare whole tables.
    std::string rows(const std::string& sql) const {
        std::string out;
        for (const auto& row : query_rows(connection_string(), sql))
            out += row + ";";
        return out;
    }
    std::string setting(const std::string& key) const {
        return scalar("select FValue from t_SystemProfile where FKey='" + key + "'").to_string();
    }
    void set_setting(const std::string& key, const std::string& value) const {
        exec("update t_SystemProfile set FValue='" + value + "' where FKey='" + key + "'");
    }
    int count(const std::string& table) const {
        return scalar("select count(*) from " + table).to_int32();
    }

    InitData init_;
};

TEST_F(InitDataTest, ClosingStockWritesTheStartBalancesAndCosts) {
    // A bill line saved before the close without a unit cost, and one with a cost of its own.
    exec(
        "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FUnitCost) values(9,1,3,2,0)");
    exec(
        "insert into ICStockBillEntry(FInterID,FEntryID,FItemID,FQty,FUnitCost) values(9,2,5,1,50)");
    exec("update t_ICItem set FPjCost=0");
    exec("insert into ICBal(FYear,FPeriod,FStockID,FItemID,FBegQty) values(2025,3,9,9,1)");
    exec("insert into ICBal(FYear,FPeriod,FStockID,FItemID,FBegQty) values(2025,2,9,9,1)");

    init_.CloseICInit(connection_string(), 2025, 3);

    EXPECT_EQ(rows("select FStockID,FItemID,FBegQty,FBegPrice,FBegBal from ICBal where FYear=2025 "
                   "and FPeriod=3 order by FStockID,FItemID"),
              "1|1|100|40|4000;1|2|50|85|4250;1|3|60|110|6600;1|5|30|45|1350;1|6|20|60|1200;"
              "2|1|20|40|800;2|3|10|110|1100;2|7|100|12|1200;3|2|10|85|850;3|4|15|95|1425;");
    // Another period's balances stay; the start period's old row is gone.
    EXPECT_EQ(rows("select FYear,FPeriod,FStockID from ICBal where FStockID=9"), "2025|2|9;");
    EXPECT_EQ(rows("select FColor,FSizeID,FBegQty from ICBal_Entry where FStockID=1 and FItemID=1 "
                   "order by FColor,FSizeID"),
              "白色|2|30;白色|3|20;黑色|1|20;黑色|2|30;");
    EXPECT_EQ(count("ICBal_Entry"), 22);
    EXPECT_EQ(setting("ICClosed"), "1");
    EXPECT_EQ(rows("select FPjCost from t_ICItem where FItemID in (3,4) order by FItemID"),
              "110;95;");
    EXPECT_EQ(
        rows("select FEntryID,FUnitCost,FCost from ICStockBillEntry where FInterID=9 order by "
             "FEntryID"),
        "1|110|220;2|50|0;");
}

TEST_F(InitDataTest, ReopeningStockDependsOnStartAgainstCurrent) {
    init_.CloseICInit(connection_string(), 2025, 3);
    exec("insert into ICBal(FYear,FPeriod,FStockID,FItemID,FBegQty) values(2025,4,1,1,5)");

    // A later current period refuses and changes nothing.
    set_setting("CurrentPeriod", "4");
    expect_com_error([&] { init_.UnCloseICInit(connection_string()); }, ado::err::kComponent,
                     "启用期间与当前期间不一致，不能返回初始化！");
    EXPECT_EQ(count("ICBal"), 11);
    EXPECT_EQ(setting("ICClosed"), "1");

    // Equal periods reopen, and every period's balances go.
    set_setting("CurrentPeriod", "3");
    init_.UnCloseICInit(connection_string());
    EXPECT_EQ(count("ICBal"), 0);
    EXPECT_EQ(count("ICBal_Entry"), 0);
    EXPECT_EQ(setting("ICClosed"), "0");

    // A current period earlier than the start reopens too.
    init_.CloseICInit(connection_string(), 2025, 3);
    set_setting("CurrentYear", "2024");
    set_setting("CurrentPeriod", "12");
    init_.UnCloseICInit(connection_string());
    EXPECT_EQ(count("ICBal"), 0);
    EXPECT_EQ(setting("ICClosed"), "0");
}

TEST_F(InitDataTest, MissingPeriodKeyCountsAsZero) {
    // Without CurrentYear the current period is 0 × 12 + 3, earlier than the start: reopens.
    init_.CloseICInit(connection_string(), 2025, 3);
    exec("delete from t_SystemProfile where FKey='CurrentYear'");
    init_.UnCloseICInit(connection_string());
    EXPECT_EQ(count("ICBal"), 0);

    // Start 2025×12+0 against current 0×12+3: they differ, the receivables close is refused.
    exec("delete from t_SystemProfile where FKey='StartPeriod'");
    expect_com_error([&] { init_.CloseWLInit(connection_string()); }, ado::err::kComponent,
                     "帐套当前月份与启用月份不一致,不能关闭初始化!");
    EXPECT_EQ(count("WLBal"), 0);

    // With the start year and the current period gone as well, both sides are 0: the close runs,
    // and the balances carry the start year and period as read, 0 and 0.
    exec("delete from t_SystemProfile where FKey='StartYear'");
    exec("delete from t_SystemProfile where FKey='CurrentPeriod'");
    EXPECT_TRUE(init_.CloseWLInit(connection_string()));
    EXPECT_EQ(rows("select FYear,FPeriod,FOrgaID from WLBal order by FOrgaID"),
              "0|0|101;0|0|102;0|0|201;");
}

TEST_F(InitDataTest, ClosingReceivablesTwiceGivesTheSameRows) {
    exec("insert into WLSettleBal(FYear,FPeriod,FOrgaID,FAmount) values(2025,3,101,1)");
    EXPECT_TRUE(init_.CloseWLInit(connection_string()));
    const std::string bal =
        rows("select FYear,FPeriod,FItemClassID,FOrgaID,FBegBal from WLBal order by FOrgaID");
    const std::string bills =
        rows("select FInterID,FOrgaID,FTranType,FSumAmount from ICStockBill order by FInterID");
    EXPECT_EQ(bal, "2025|3|2|101|5000;2025|3|2|102|3200;2025|3|1|201|1800;");
    EXPECT_EQ(bills, "-201|201|-22|1800;-102|102|-12|3200;-101|101|-12|5000;");
    EXPECT_EQ(count("WLSettleBal"), 0);
    EXPECT_EQ(setting("WLClosed"), "1");

    EXPECT_TRUE(init_.CloseWLInit(connection_string()));
    EXPECT_EQ(rows("select FYear,FPeriod,FItemClassID,FOrgaID,FBegBal from WLBal order by FOrgaID"),
              bal);
    EXPECT_EQ(rows("select FInterID,FOrgaID,FTranType,FSumAmount from ICStockBill order by "
                   "FInterID"),
              bills);

    // Out of the start period the close is refused before anything changes.
    set_setting("CurrentPeriod", "4");
    exec("delete from WLInitData");
    expect_com_error([&] { init_.CloseWLInit(connection_string()); }, ado::err::kComponent,
                     "帐套当前月份与启用月份不一致,不能关闭初始化!");
    EXPECT_EQ(count("WLBal"), 3);
}

// A close while another connection's close is under way waits for it, then replaces the opening
// bills it wrote instead of clashing on their ids.
TEST_F(InitDataTest, ClosingReceivablesWaitsForACloseUnderWay) {
    auto other = open();
    other->BeginTrans();
    other->Execute("truncate table WLBal");  // a close under way, as far as its first step
    other->Execute(
        "insert into ICStockBill(FInterID,FOrgaID,FTranType,FSumAmount) select -FOrgaID,FOrgaID,"
        "case FItemClassID when 1 then -22 else -12 end,FAmount from WLInitData");
    auto close =
        std::async(std::launch::async, [&] { return init_.CloseWLInit(connection_string()); });
    EXPECT_EQ(close.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    other->CommitTrans();
    EXPECT_TRUE(close.get());
    EXPECT_EQ(rows("select FInterID,FTranType from ICStockBill order by FInterID"),
              "-201|-22;-102|-12;-101|-12;");
    EXPECT_EQ(count("WLBal"), 3);
}

TEST_F(InitDataTest, ReopeningReceivablesRemovesNegatedPartnersOnly) {
    ASSERT_TRUE(init_.CloseWLInit(connection_string()));
    // A stock bill that names a partner by its negated id: that is what the reopening matches.
    exec("insert into ICStockBill(FInterID,FOrgaID,FTranType) values(500,-102,112)");
    exec("insert into ICStockBill(FInterID,FOrgaID,FTranType) values(501,102,112)");
    exec("insert into WLSettleBal(FYear,FPeriod,FOrgaID,FAmount) values(2025,3,101,1)");
    common::SetPromptString("Provider=SQLite;Data Source=/nonexistent/elsewhere.db");

    EXPECT_TRUE(init_.UnCloseWLInit(connection_string()));
    EXPECT_EQ(common::GetPromptString(), connection_string());
    EXPECT_EQ(count("WLBal"), 0);
    EXPECT_EQ(count("WLSettleBal"), 0);
    EXPECT_EQ(setting("WLClosed"), "0");
    // The pseudo bills carry the partner id itself, so they stay; the next close removes them
    // by kind.
    EXPECT_EQ(rows("select FInterID from ICStockBill order by FInterID"), "-201;-102;-101;501;");
    ASSERT_TRUE(init_.CloseWLInit(connection_string()));
    EXPECT_EQ(count("ICStockBill where FTranType in (-12,-22)"), 3);

    set_setting("CurrentYear", "2026");
    expect_com_error([&] { init_.UnCloseWLInit(connection_string()); }, ado::err::kComponent,
                     "帐套当前月份与启用月份不一致,不能返回初始化!");
    EXPECT_EQ(count("WLBal"), 3);
    EXPECT_EQ(setting("WLClosed"), "1");
}

// Partner rows as the front end hands them over: partner id and amount.
std::shared_ptr<ado::Recordset> partner_rows(const std::vector<std::vector<ado::Variant>>& rows) {
    return caller_rows({"FItemID", "FAmount"}, rows);
}

TEST_F(InitDataTest, SavingReceivablesReplacesEveryClass) {
    auto rs = partner_rows({{201, 150.5}, {103, 99}});
    init_.SaveInitWLData(1, rs);
    EXPECT_EQ(rs, nullptr);
    // The class argument is ignored: every row is written as class 2, all old rows gone.
    EXPECT_EQ(rows("select FItemClassID,FOrgaID,FAmount from WLInitData order by FOrgaID"),
              "2|103|99;2|201|150.5;");

    // An empty record set empties the staging table.
    rs = partner_rows({});
    init_.SaveInitWLData(2, rs);
    EXPECT_EQ(rs, nullptr);
    EXPECT_EQ(count("WLInitData"), 0);
}

TEST_F(InitDataTest, BadReceivableRowsLeaveTheStagingRows) {
    const std::string before = rows("select FItemClassID,FOrgaID,FAmount from WLInitData");
    auto no_amount = caller_rows({"FItemID"}, {{101}});
    expect_com_error([&] { init_.SaveInitWLData(2, no_amount); }, ado::err::kComponent,
                     "在对应所需名称或序数的集合中，未找到项目。");
    EXPECT_NE(no_amount, nullptr);

    auto null_amount = partner_rows({{101, 5}, {102, ado::Variant::null()}});
    expect_com_error([&] { init_.SaveInitWLData(2, null_amount); }, ado::err::kComponent,
                     "无效使用 Null");

    EXPECT_EQ(rows("select FItemClassID,FOrgaID,FAmount from WLInitData"), before);
}

TEST_F(InitDataTest, CashCloseAndReopen) {
    exec("insert into CashBal(FItemClassID,FItemID,FAmount) values(1,9,1)");
    init_.CloseCashInit();
    EXPECT_EQ(rows("select FItemClassID,FItemID,FAmount from CashBal order by FItemID"),
              "1|1|5000;1|2|120000;");
    EXPECT_EQ(setting("CashClosed"), "1");
    // No period check: a later current period closes again the same way.
    set_setting("CurrentPeriod", "7");
    init_.CloseCashInit();
    EXPECT_EQ(count("CashBal"), 2);

    init_.UnCloseCashInit();
    EXPECT_EQ(count("CashBal"), 0);
    EXPECT_EQ(setting("CashClosed"), "0");
}

}  // namespace
}  // namespace billdata::testing
