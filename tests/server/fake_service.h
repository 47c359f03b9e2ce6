#pragma once
// A service class that exists only in the tests: one method per kind of parameter and result,
// so that the host's dispatch, conversions and write-back are tested without the bill classes.
// It reads and writes the real database of the session like a bill class does.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/server/dispatch.h"

namespace billdata::testing {

class TestService {
  public:
    void Init(const std::string& NewPromptString, std::int16_t New_CurYear,
              std::int16_t New_CurPeriod);
    // Every argument as text: "Kind=12;ID=70000;Amount=1.5;Flag=True;Text=abc;Day=2025-03-09".
    std::string Describe(std::int16_t Kind, std::int32_t ID, double Amount, bool Flag,
                         const std::string& Text, const ado::DateTime& Day);
    // Sums FQty of RsBill's rows into the result. A new bill (OldInterID < 1) gets the number
    // "T-<count of lines>" and the id 100 + the sum of Ids; Ids come back reversed. RsBill is
    // closed and set to nothing unless KeepLines. The total is recorded as the setting
    // "Settled <BillNo>" on Cn, or on a connection of its own when the session has a database.
    double Settle(std::string& BillNo, std::int32_t& OldInterID,
                  std::shared_ptr<ado::Recordset>& RsBill, std::vector<std::int32_t>& Ids,
                  std::shared_ptr<ado::Connection> Cn = nullptr, bool KeepLines = false);
    // The settings of the session database whose rows match the filter, ordered by key.
    std::shared_ptr<ado::Recordset> Settings(const std::string& strFilter);
    // The interior-id series of the session database.
    std::vector<std::int32_t> Series();
    // The session's year and period: "2025/3".
    std::string Period();
    // The day after.
    ado::DateTime NextDay(const ado::DateTime& Day);
    // Refuses with the component's error and the message.
    void Refuse(const std::string& Message);
    // The value as given, with its type name written into TypeName.
    ado::Variant Echo(const ado::Variant& Value, std::string& TypeName);
};

// The binding of TestService, as a bill class is bound.
std::shared_ptr<const server::ClassInfo> test_service_class();

}  // namespace billdata::testing

// For the C test and the tests' build of the command line.
extern "C" {
void billdata_test_register(void);
int billdata_test_create_database(const char* path);
}
