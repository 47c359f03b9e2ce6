#include "billdata/billcore/bill_kinds.h"

#include "billdata/ado/variant.h"
#include "billdata/common/audit.h"
#include "billdata/common/numbering.h"

namespace billdata::billcore {

using ado::Variant;

std::string bill_prefix(std::string_view kind) {
    const double code = Variant(kind).to_double();  // 13 for a kind that is no number
    for (const auto& k : kBillKinds) {
        if (k.code == kind::kPosSale) {
            // Matched by its text, not its value: 99, 991 and 99.5 are till sales, 099 is not.
            double lead = 0;
            if (Variant::parse_number(kind.substr(0, 2), lead) && lead == kind::kPosSale)
                return k.prefix;
        } else if (code == k.code) {
            return k.prefix;
        }
    }
    return "";
}

std::string NextBillNo(common::Executor& ex, std::string_view kind, const ado::DateTime& bill_date,
                       std::string& prefix) {
    // The prefix is settled first so that a kind that is no number fails before anything is
    // written, even outside a transaction; the caller sees it only once the number is drawn.
    std::string chosen = prefix.empty() ? bill_prefix(kind) : prefix;
    std::string number = common::NextBillNo(ex, kind, bill_date, chosen);
    prefix = std::move(chosen);
    return number;
}

void SetCheckMark(std::int16_t tran_type, std::string_view inter_ids, std::int32_t checker_id) {
    common::SetCheckMark(bill_kind(tran_type).header, inter_ids, checker_id);
}

void ClearCheckMark(std::int16_t tran_type, std::string_view inter_ids, std::int32_t user_id) {
    // The un-audit statement of kind 50 spells the table ICSptjd; table names match without
    // regard to case, and the text is kept as the system has always written it.
    const char* header =
        tran_type == kind::kPriceAdjustment ? "ICSptjd" : bill_kind(tran_type).header;
    common::ClearCheckMark(header, inter_ids, user_id);
}

}  // namespace billdata::billcore
