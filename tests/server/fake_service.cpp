#include "fake_service.h"

#include <algorithm>

#include "billdata/common/session.h"
#include "billdata/schema/schema.h"
#include "billdata/server/binder.h"

namespace billdata::testing {

void TestService::Init(const std::string& NewPromptString, std::int16_t New_CurYear,
                       std::int16_t New_CurPeriod) {
    common::init_session(NewPromptString, New_CurYear, New_CurPeriod);
}

std::string TestService::Describe(std::int16_t Kind, std::int32_t ID, double Amount, bool Flag,
                                  const std::string& Text, const ado::DateTime& Day) {
    return "Kind=" + std::to_string(Kind) + ";ID=" + std::to_string(ID) +
           ";Amount=" + ado::Variant(Amount).to_string() +
           ";Flag=" + ado::Variant(Flag).to_string() + ";Text=" + Text + ";Day=" + Day.to_string();
}

double TestService::Settle(std::string& BillNo, std::int32_t& OldInterID,
                           std::shared_ptr<ado::Recordset>& RsBill, std::vector<std::int32_t>& Ids,
                           std::shared_ptr<ado::Connection> Cn, bool KeepLines) {
    double total = 0;
    int lines = 0;
    if (RsBill) {
        for (; !RsBill->Eof(); RsBill->MoveNext(), ++lines)
            total += RsBill->Fields("FQty").Value().to_double();
        if (!KeepLines) {
            RsBill->Close();
            RsBill = nullptr;
        }
    }
    if (OldInterID < 1) {
        BillNo = "T-" + std::to_string(lines);
        OldInterID = 100;
        for (std::int32_t id : Ids)
            OldInterID += id;
    }
    std::reverse(Ids.begin(), Ids.end());
    const std::string sql = "insert into t_SystemProfile(FKey,FValue) values('Settled " + BillNo +
                            "','" + ado::Variant(total).to_string() + "')";
    if (Cn) {
        Cn->Execute(sql);
    } else if (!common::GetPromptString().empty()) {
        auto own = ado::Connection::create();
        own->Open(common::GetPromptString());
        own->Execute(sql);
        own->Close();
    }
    return total;
}

std::shared_ptr<ado::Recordset> TestService::Settings(const std::string& strFilter) {
    auto rs = ado::Recordset::create();
    rs->Open("select FKey,FValue from t_SystemProfile where 1=1 " + strFilter + " order by FKey",
             common::GetPromptString());
    return rs;
}

std::vector<std::int32_t> TestService::Series() {
    auto rs = ado::Recordset::create();
    rs->Open("select FTranType from ICMaxNum order by FTranType", common::GetPromptString());
    std::vector<std::int32_t> ids;
    for (; !rs->Eof(); rs->MoveNext())
        ids.push_back(rs->Fields("FTranType").Value().to_int32());
    return ids;
}

std::string TestService::Period() {
    return std::to_string(common::session().CurYear) + "/" +
           std::to_string(common::session().CurPeriod);
}

ado::DateTime TestService::NextDay(const ado::DateTime& Day) {
    return Day.add_days(1);
}

void TestService::Refuse(const std::string& Message) {
    throw ado::ComError::component(Message);
}

ado::Variant TestService::Echo(const ado::Variant& Value, std::string& TypeName) {
    static const char* names[] = {"Empty", "Null",   "Boolean", "Integer",
                                  "Long",  "Double", "Date",    "String"};
    TypeName = names[static_cast<int>(Value.type())];
    return Value;
}

std::shared_ptr<const server::ClassInfo> test_service_class() {
    using server::optional;
    return server::ClassBinder<TestService>("TestService")
        .method("Init", &TestService::Init, {"NewPromptString", "New_CurYear", "New_CurPeriod"})
        .method("Describe", &TestService::Describe, {"Kind", "ID", "Amount", "Flag", "Text", "Day"})
        .method(
            "Settle", &TestService::Settle,
            {"BillNo", "OldInterID", "RsBill", "Ids", optional("Cn"), optional("KeepLines", false)})
        .method("Settings", &TestService::Settings, {optional("strFilter", "")})
        .method("Series", &TestService::Series)
        .method("Period", &TestService::Period)
        .method("NextDay", &TestService::NextDay, {"Day"})
        .method("Refuse", &TestService::Refuse, {"Message"})
        .method("Echo", &TestService::Echo, {"Value", "TypeName"})
        .info();
}

}  // namespace billdata::testing

extern "C" void billdata_test_register(void) {
    billdata::server::Registry::instance().add(billdata::testing::test_service_class());
}

extern "C" int billdata_test_create_database(const char* path) {
    try {
        billdata::schema::create_database(path, true, 2025, 3);
        return 0;
    } catch (...) {
        return -1;
    }
}
