#pragma once
// Record sets as a front end fills them to hand bill lines to the component, and query results
// as text to compare them whole.

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

// Every row of a query run on a connection of its own, the columns of a row joined by '|'.
inline std::vector<std::string> query_rows(const std::string& connection_string,
                                           const std::string& sql) {
    auto cn = ado::Connection::create();
    cn->Open(connection_string);
    auto rs = cn->Execute(sql);
    std::vector<std::string> out;
    for (; !rs->Eof(); rs->MoveNext()) {
        std::string row;
        for (std::size_t i = 0; i < rs->GetFields().Count(); ++i)
            row += (i ? "|" : "") + rs->Fields(i).Value().to_string();
        out.push_back(row);
    }
    rs->Close();
    cn->Close();
    return out;
}

// One field of every row of a record set from where it stands, in order.
inline std::vector<std::string> column(const std::shared_ptr<ado::Recordset>& rs,
                                       const std::string& name) {
    std::vector<std::string> out;
    for (; !rs->Eof(); rs->MoveNext())
        out.push_back(rs->Fields(name).Value().to_string());
    return out;
}

// Fields of the current row of a record set, joined by '|'.
inline std::string fields(const std::shared_ptr<ado::Recordset>& rs,
                          const std::vector<std::string>& names) {
    std::string out;
    for (std::size_t i = 0; i < names.size(); ++i)
        out += (i ? "|" : "") + rs->Fields(names[i]).Value().to_string();
    return out;
}

}  // namespace billdata::testing
