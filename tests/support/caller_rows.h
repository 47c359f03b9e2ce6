#pragma once
// Record sets as a front end fills them to hand bill lines to the component.

#include <memory>
#include <string>
#include <vector>

#include "billdata/ado/ado.h"

namespace billdata::testing {

// A caller-built record set with these fields and rows, positioned on its first row.
inline std::shared_ptr<ado::Recordset> caller_rows(
    const std::vector<std::string>& fields, const std::vector<std::vector<ado::Variant>>& rows) {
    auto rs = ado::Recordset::create();
    for (const auto& name : fields)
        rs->GetFields().Append(name, ado::adVariant);
    rs->Open();
    for (const auto& row : rows) {
        rs->AddNew();
        for (std::size_t i = 0; i < row.size(); ++i)
            rs->Fields(i).SetValue(row[i]);
        rs->Update();
    }
    if (!rows.empty()) rs->MoveFirst();
    return rs;
}

}  // namespace billdata::testing
