#pragma once
// The till sale that the save benchmarks measure, on either engine: its input, and the capture of
// the statements the component sends for it (from the SQL log), so that a plain program can send
// the very same statements.

#include <stdlib.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/posdata/posdata.h"

namespace billdata::bench {

// The interior id that the captured sale is given, so that it can be told from other numbers.
constexpr std::int64_t kSentinel = 987654321;
// The captured sale's date and number.
constexpr const char* kSaleDate = "2025-03-09";
constexpr const char* kSaleBillNo = "pos250309-002";

// The sale every iteration saves: five lines with colours and sizes, one pre-sent item.
struct SaleInput {
    std::shared_ptr<ado::Recordset> lines = ado::Recordset::create();
    std::shared_ptr<ado::Recordset> presend = ado::Recordset::create();

    SaleInput() {
        using namespace ado;
        for (const char* f : {"FItemID", "FSalerID", "FPreSend", "FRefInterId", "FRefEntryID",
                              "FRefTranType", "FSizeID"})
            lines->GetFields().Append(f, adInteger);
        for (const char* f :
             {"FQty", "FPrice", "FAmount", "FZkRate", "FRetailPrice", "FRetailAmount", "FUnitCost"})
            lines->GetFields().Append(f, adDouble);
        lines->GetFields().Append("FColor", adVarWChar, 20);
        lines->Open();
        const int items[5] = {1, 2, 3, 4, 1};
        const int sizes[5] = {2, 3, 6, 7, 3};
        for (int i = 0; i < 5; ++i) {
            lines->AddNew();
            lines->Fields("FItemID").SetValue(items[i]);
            lines->Fields("FSalerID").SetValue(1 + i % 3);
            lines->Fields("FPreSend").SetValue(0);
            lines->Fields("FRefInterId").SetValue(0);
            lines->Fields("FRefEntryID").SetValue(0);
            lines->Fields("FRefTranType").SetValue(0);
            lines->Fields("FSizeID").SetValue(sizes[i]);
            lines->Fields("FQty").SetValue(1.0 + i % 2);
            lines->Fields("FPrice").SetValue(80.0);
            lines->Fields("FAmount").SetValue(80.0 * (1 + i % 2));
            lines->Fields("FZkRate").SetValue(0.8);
            lines->Fields("FRetailPrice").SetValue(100.0);
            lines->Fields("FRetailAmount").SetValue(100.0 * (1 + i % 2));
            lines->Fields("FUnitCost").SetValue(45.5);
            lines->Fields("FColor").SetValue(i % 2 ? "白色" : "黑色");
            lines->Update();
        }
        presend->GetFields().Append("FItemID", adInteger);
        presend->GetFields().Append("FQty", adDouble);
        presend->GetFields().Append("FRetailPrice", adDouble);
        presend->GetFields().Append("FUnitCost", adDouble);
        presend->GetFields().Append("Fmemo", adVarWChar, 50);
        presend->GetFields().Append("FColor", adVarWChar, 20);
        presend->GetFields().Append("FSizeID", adInteger);
        presend->Open();
        presend->AddNew();
        presend->Fields("FItemID").SetValue(7);
        presend->Fields("FQty").SetValue(1.0);
        presend->Fields("FRetailPrice").SetValue(39.0);
        presend->Fields("FUnitCost").SetValue(12.0);
        presend->Fields("Fmemo").SetValue("赠品");
        presend->Fields("FColor").SetValue("");
        presend->Fields("FSizeID").SetValue(0);
        presend->Update();
    }

    std::int32_t save() {
        lines->MoveFirst();
        presend->MoveFirst();
        auto bill_data = lines;  // SaveData releases the caller's reference
        return PosData().SaveData(2, ado::DateTime(2025, 3, 9), bill_data, 640, 700, 0, 0, 0,
                                  "bench", "早班", 0, 1002, 1, 700, 60, 0, presend, 640, false,
                                  1000, 0, 0, "POS1", 0, "");
    }
};

// One T-SQL statement of the captured sale.
struct Captured {
    std::string tsql;
    bool after_commit = false;
};

// Saves two sales through the component on the new demo shop of `connection_string` and keeps
// the statement texts of the second (a later sale of the day: the bill-number counter row
// exists), as the SQL log (written to `log`) has them.
inline std::vector<Captured> capture_sale(const std::string& connection_string,
                                          const std::string& log) {
    {
        auto cn = ado::Connection::create();
        cn->Open(connection_string);
        cn->Execute("insert into ICMaxNum(FTranType,FMaxNum,FDescription) values(0," +
                    std::to_string(kSentinel - 2) + ",'')");
    }
    common::session() = common::SessionContext{};
    PosData().Init(connection_string, 2025, 3);
    SaleInput sale;
    sale.save();
    setenv("BILLDATA_SQL_LOG", log.c_str(), 1);
    const std::int32_t id = sale.save();
    unsetenv("BILLDATA_SQL_LOG");
    if (id != kSentinel) throw std::runtime_error("unexpected interior id of the captured sale");

    std::vector<Captured> out;
    std::ifstream in(log);
    bool committed = false;
    for (std::string line; std::getline(in, line);) {
        // The sold-quantity updates are the first statements after the commit.
        if (line.rfind("Update t1 set t1.FSaleQty", 0) == 0) committed = true;
        out.push_back({line, committed});
    }
    if (out.size() < 15) throw std::runtime_error("unexpected statement log of a sale");
    return out;
}

}  // namespace billdata::bench
