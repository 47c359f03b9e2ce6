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
    return ado::make_recordset(fields, rows);
}

// Size/colour cells: FDel, item, row key, size, colour, colour entry, quantity.
inline std::shared_ptr<ado::Recordset> size_cells(
    const std::vector<std::vector<ado::Variant>>& rows) {
    return caller_rows({"FDel", "FItemID", "FRowKey", "FSizeiD", "FColor", "FColorEntryID", "FQty"},
                       rows);
}

}  // namespace billdata::testing
