// Late-bound calls through the registry: creation by programmatic id, conversions by the
// platform's rules, optional arguments, in/out write-back and the errors of wrong calls.

#include <gtest/gtest.h>

#include "../common/fixture.h"
#include "billdata/server/dispatch.h"
#include "fake_service.h"
#include "support/caller_rows.h"

namespace billdata::testing {
namespace {

using server::NamedArg;
using server::Value;

class DispatchTest : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        if (IsSkipped()) return;
        billdata_test_register();
        service_ = server::Registry::instance().create("Orn_BillData_Velt.TestService");
    }
    std::string call_text(const std::string& method, std::vector<Value> args,
                          std::vector<NamedArg> named = {}) {
        return service_->Invoke(method, args, named).variant().to_string();
    }
    void expect_refused(const std::string& method, std::vector<Value> args, std::int32_t number,
                        const std::string& message, std::vector<NamedArg> named = {}) {
        expect_com_error([&] { service_->Invoke(method, args, named); }, number, message);
    }
    static std::shared_ptr<ado::Recordset> lines(const std::vector<double>& quantities) {
        std::vector<std::vector<ado::Variant>> rows;
        for (std::size_t i = 0; i < quantities.size(); ++i)
            rows.push_back({static_cast<std::int32_t>(i + 1), quantities[i]});
        return caller_rows({"FItemID", "FQty"}, rows);
    }
    std::unique_ptr<server::Object> service_;
};

TEST_F(DispatchTest, RegistryCreatesByProgrammaticIdWithoutRegardToCase) {
    auto& registry = server::Registry::instance();
    EXPECT_EQ(registry.create("ORN_BILLDATA_VELT.testservice")->info().name(), "TestService");
    expect_com_error([&] { registry.create("Orn_BillData_Velt.NoSuchClass"); }, 429,
                     "ActiveX 部件不能创建对象 (no class is registered as "
                     "Orn_BillData_Velt.NoSuchClass)");
    // The class name alone is no programmatic id.
    expect_com_error([&] { registry.create("TestService"); }, 429,
                     "ActiveX 部件不能创建对象 (no class is registered as TestService)");
}

TEST_F(DispatchTest, BindingFaultsAreRefusedWhenTheClassIsBound) {
    // A required parameter after an optional one, or a method bound twice.
    server::ClassInfo info("X", [] { return std::shared_ptr<void>(); });
    server::Method bad{"M",
                       {{"A", server::Type::Int16, server::Direction::In, true, {}},
                        {"B", server::Type::Int16, server::Direction::In, false, {}}}};
    EXPECT_THROW(info.add(bad, nullptr), std::logic_error);
    info.add(server::Method{"M", {}}, nullptr);
    EXPECT_THROW(info.add(server::Method{"m", {}}, nullptr), std::logic_error);
}

TEST_F(DispatchTest, ArgumentsConvertByThePlatformsRules) {
    // Texts for numbers and dates, numbers for texts, named arguments in any case and order.
    EXPECT_EQ(call_text("Describe", {"12", "70000", "1.5", "true", 42, "2025-03-09"}),
              "Kind=12;ID=70000;Amount=1.5;Flag=True;Text=42;Day=2025-03-09");
    EXPECT_EQ(call_text("describe", {12.5, 3},
                        {{"day", "20250309 13:45"}, {"TEXT", "abc"}, {"Flag", 0}, {"Amount", -2}}),
              "Kind=12;ID=3;Amount=-2;Flag=False;Text=abc;Day=2025-03-09 13:45:00");
    EXPECT_EQ(
        call_text("Describe", {ado::Variant(13.5), ado::Variant(2.5), "1e2", ado::Variant(true),
                               ado::Variant::null(), ado::DateTime(2025, 12, 31)}),
        "Kind=14;ID=2;Amount=100;Flag=True;Text=;Day=2025-12-31");

    std::vector<Value> echo{ado::Variant(std::int16_t{7}), "x"};
    EXPECT_EQ(service_->Invoke("Echo", echo).variant(), ado::Variant(std::int16_t{7}));
    EXPECT_EQ(echo[1].variant().to_string(), "Integer");
    echo = {ado::Variant(), "x"};
    EXPECT_TRUE(service_->Invoke("Echo", echo).variant().is_empty());
    EXPECT_EQ(echo[1].variant().to_string(), "Empty");
}

TEST_F(DispatchTest, UnconvertibleValuesAreRefusedBeforeAnythingIsCalled) {
    const std::string d = "TestService.Describe, parameter ";
    expect_refused("Describe", {"abc", 1, 1, true, "", "2025-03-09"}, 13,
                   "类型不匹配 (" + d + "Kind: \"abc\" is not a 16-bit integer)");
    expect_refused("Describe", {40000, 1, 1, true, "", "2025-03-09"}, 6,
                   "溢出 (" + d + "Kind: 40000 is not a 16-bit integer)");
    expect_refused("Describe", {1, ado::Variant::null(), 1, true, "", "2025-03-09"}, 94,
                   "无效使用 Null (" + d + "ID: Null is not a 32-bit integer)");
    expect_refused("Describe", {1, 1, 1, true, "", "2025-02-30"}, 13,
                   "类型不匹配 (" + d + "Day: \"2025-02-30\" is not a date)");
    expect_refused("Describe", {lines({1}), 1, 1, true, "", "2025-03-09"}, 13,
                   "类型不匹配 (" + d + "Kind: a record set where a 16-bit integer is required)");
    expect_refused("Settle", {"", 0, "lines", server::IdArray{}}, 13,
                   "类型不匹配 (TestService.Settle, parameter RsBill: a value where a record set "
                   "is required)");
    expect_refused("Settle", {"", 0, lines({1}), 5}, 13,
                   "类型不匹配 (TestService.Settle, parameter Ids: a value where an array of "
                   "32-bit integers is required)");

    // A refused call wrote nothing back and touched no database.
    std::vector<Value> args{"keep", 0, lines({2}), server::IdArray{1, 2}, "not a connection"};
    EXPECT_THROW(service_->Invoke("Settle", args), ado::ComError);
    EXPECT_EQ(args[0].variant().to_string(), "keep");
    EXPECT_EQ(args[3].ids(), (server::IdArray{1, 2}));
    EXPECT_FALSE(args[2].recordset()->Eof());
    EXPECT_EQ(scalar("select count(*) from t_SystemProfile where FKey like 'Settled%'").to_int32(),
              0);
}

TEST_F(DispatchTest, WrongCallsAreClearErrors) {
    expect_refused("Frobnicate", {}, 438,
                   "对象不支持该属性或方法 (TestService has no method Frobnicate)");
    expect_refused("NextDay", {"2025-01-01", 2}, 450,
                   "错误的参数号或无效的属性赋值 (TestService.NextDay takes 1 argument, 2 given)");
    expect_refused("NextDay", {}, 448, "未找到命名参数 (TestService.NextDay has no parameter Date)",
                   {{"Date", "2025-01-01"}});
    expect_refused("NextDay", {"2025-01-01"}, 448,
                   "未找到命名参数 (TestService.NextDay, parameter Day given twice)",
                   {{"day", "2025-01-02"}});
    expect_refused("NextDay", {}, 449, "参数不可选 (TestService.NextDay, parameter Day)");
    // A Missing value in a required place is the same as leaving it out.
    expect_refused("NextDay", {Value()}, 449, "参数不可选 (TestService.NextDay, parameter Day)");
    // The method's own errors pass unchanged.
    expect_refused("Refuse", {"已审核的单据不能删除!"}, ado::err::kComponent,
                   "已审核的单据不能删除!");
}

TEST_F(DispatchTest, InOutArgumentsAreWrittenBackAndOptionalOnesTakeTheirDefaults) {
    // Positional; the optional connection and flag left out: own connection, lines released.
    std::vector<Value> args{"", 0, lines({2, 3.5}), server::IdArray{5, 6}};
    EXPECT_EQ(service_->Invoke("Settle", args).variant(), ado::Variant(5.5));
    EXPECT_EQ(args[0].variant().to_string(), "T-2");
    EXPECT_EQ(args[1].variant().to_int32(), 111);
    EXPECT_EQ(args[2].kind(), Value::Kind::Recordset);
    EXPECT_EQ(args[2].recordset(), nullptr);
    EXPECT_EQ(args[3].ids(), (server::IdArray{6, 5}));
    EXPECT_EQ(scalar("select FValue from t_SystemProfile where FKey='Settled T-2'").to_string(),
              "5.5");

    // Named, with the caller's connection inside its transaction and KeepLines given: the
    // lines stay with the caller, read to their end; an existing bill keeps its number.
    auto cn = open();
    cn->BeginTrans();
    auto rs = lines({1});
    std::vector<Value> none;
    std::vector<NamedArg> named{{"oldinterid", "7"},        {"BillNo", "B-1"}, {"RsBill", rs},
                                {"Ids", server::IdArray{}}, {"Cn", cn},        {"KeepLines", true}};
    service_->Invoke("Settle", none, named);
    EXPECT_EQ(named[0].value.variant(), ado::Variant(std::int32_t{7}));
    EXPECT_EQ(named[1].value.variant().to_string(), "B-1");
    EXPECT_EQ(named[2].value.recordset(), rs);
    EXPECT_TRUE(rs->Eof());
    // The in-only connection is not written back, and the write is the caller's to commit.
    EXPECT_EQ(named[4].value.connection(), cn);
    EXPECT_TRUE(cn->InTransaction());
    cn->RollbackTrans();
    cn->Close();
    EXPECT_EQ(scalar("select count(*) from t_SystemProfile where FKey='Settled B-1'").to_int32(),
              0);

    // An optional text with a default: left out, the whole settings table comes back.
    auto all = service_->Invoke("Settings", none).recordset();
    int rows = 0;
    for (; !all->Eof(); all->MoveNext())
        ++rows;
    EXPECT_EQ(rows, scalar("select count(*) from t_SystemProfile").to_int32());
}

}  // namespace
}  // namespace billdata::testing
