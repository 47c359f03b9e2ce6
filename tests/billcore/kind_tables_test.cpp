// The table of bill kinds names tables the schema creates: a misspelt header or line table would
// only show when the first bill of that kind is audited, listed or guarded.
#include <string>
#include <string_view>

#include "billdata/billcore/bill_kinds.h"
#include "common/fixture.h"

namespace billdata::testing {
namespace {

using KindTables = DatabaseTest;

TEST_F(KindTables, EveryTableOfEveryKindExists) {
    // The catalogue refuses a statement on a table it does not know.
    auto exists = [&](std::string_view table) {
        try {
            scalar("select count(*) from " + std::string(table));
            return true;
        } catch (const ado::ComError&) {
            return false;
        }
    };
    for (const auto& k : billcore::kBillKinds) {
        EXPECT_TRUE(exists(k.header)) << k.code << " " << k.header;
        EXPECT_TRUE(exists(k.guard_table)) << k.code << " " << k.guard_table;
        std::string_view lines = k.lines;
        while (!lines.empty()) {
            const auto comma = lines.find(',');
            EXPECT_TRUE(exists(lines.substr(0, comma))) << k.code << " " << lines;
            lines = comma == std::string_view::npos ? "" : lines.substr(comma + 1);
        }
    }
}

}  // namespace
}  // namespace billdata::testing
