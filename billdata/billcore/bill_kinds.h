#pragma once
// The one table of bill kinds: for every code of FTranType, the tables its bills live in, the
// letters of its bill numbers, the class that serves it, the interior-id series it draws from and
// how its lines move stock. Everything that depends on the kind is derived from this table.

#include <cstdint>
#include <string>
#include <string_view>

#include "billdata/ado/datetime.h"
#include "billdata/common/handlers.h"
#include "billdata/common/numbering.h"

namespace billdata::billcore {

// Bill-kind codes (FTranType).
namespace kind {
inline constexpr std::int16_t kOrder = 11;             // order bill
inline constexpr std::int16_t kPayment = 13;           // payment bill
inline constexpr std::int16_t kJT = 14;                // numbered "JT", served by no class
inline constexpr std::int16_t kCreditReturn = 17;      // lent goods returned
inline constexpr std::int16_t kMemberOrder = 21;       // VIP (member) order
inline constexpr std::int16_t kReceipt = 23;           // receipt bill
inline constexpr std::int16_t kCreditLend = 27;        // goods lent to a member
inline constexpr std::int16_t kTransfer = 31;          // transfer between stocks
inline constexpr std::int16_t kPriceAdjustment = 50;   // price adjustment bill
inline constexpr std::int16_t kPosSale = 99;           // till sale
inline constexpr std::int16_t kPurchaseReceipt = 112;  // purchase receipt
inline constexpr std::int16_t kPurchaseReturn = 114;   // purchase return to the supplier
inline constexpr std::int16_t kOtherIn = 115;          // other stock in
inline constexpr std::int16_t kOtherOut = 125;         // other stock out
inline constexpr std::int16_t kOpeningOther =
    -12;  // opening balance, partners of item class 2 and up
inline constexpr std::int16_t kOpeningClass1 = -22;  // opening balance, partners of item class 1
}  // namespace kind

// The class that serves a kind's bills.
enum class Owner {
    None,
    OrderBill,
    vipOrder,
    SFKData,
    Credit,
    OtherBill,
    PosData,
    PurRkd,
    PublicData,
    InitData
};

// How one line of a live bill moves the stock on hand: the sign its FQty is counted with in the
// stock named by FInStockID and in the one named by FOutStockID (0: that column is not read).
struct StockEffect {
    int in_stock;
    int out_stock;
};

inline constexpr std::int16_t kNoSeries = -1;

struct BillKind {
    std::int16_t code;
    const char* header;  // header table; its FCheckerID is the audit mark
    const char* lines;   // line tables, comma separated ("" when none)
    const char* prefix;  // bill-number letters
    Owner owner;
    std::int16_t series;  // ICMaxNum series of the interior id, kNoSeries when none is drawn
    StockEffect stock;
    // The period guard of PublicData reads FDate from this table. It is the header table except
    // for kind 50, whose price adjustments are served by no dispatching class: the guard has
    // always read ICStockBill for it (the operation then fails for want of a class).
    const char* guard_table;
};

namespace detail {
inline constexpr const char* kStock = "ICStockBill";
inline constexpr const char* kStockLines = "ICStockBillEntry,ICStockBillEntry_1";
inline constexpr const char* kOrderLines = "ICOrderEntry,ICOrderEntry_1";
inline constexpr std::int16_t kStockIds = common::kSeriesStockBill;
inline constexpr std::int16_t kMoneyIds = common::kSeriesMoneyBill;
inline constexpr std::int16_t kOrderIds = common::kSeriesOrder;
}  // namespace detail

// In the order in which a bill number's prefix is looked up.
// clang-format off
inline constexpr BillKind kBillKinds[] = {
    // code                  header           lines                 prefix  owner               series              stock      guard
    {kind::kOrder,            "ICOrder",       detail::kOrderLines,  "CD",   Owner::OrderBill,   detail::kOrderIds,  {0, 0},    "ICOrder"},
    {kind::kMemberOrder,      "ICOrder",       detail::kOrderLines,  "XD",   Owner::vipOrder,    detail::kStockIds,  {0, 0},    "ICOrder"},
    {kind::kPayment,          "WLBill",        "WLBillEntry",        "Fkd",  Owner::SFKData,     detail::kMoneyIds,  {0, 0},    "WLBill"},
    {kind::kJT,               detail::kStock,  "",                   "JT",   Owner::None,        kNoSeries,          {0, 0},    detail::kStock},
    {kind::kOtherIn,          detail::kStock,  detail::kStockLines,  "QR",   Owner::OtherBill,   detail::kStockIds,  {+1, 0},   detail::kStock},
    {kind::kCreditReturn,     detail::kStock,  detail::kStockLines,  "JR",   Owner::Credit,      detail::kStockIds,  {+1, 0},   detail::kStock},
    {kind::kReceipt,          "WLBill",        "WLBillEntry",        "SK",   Owner::SFKData,     detail::kMoneyIds,  {0, 0},    "WLBill"},
    {kind::kCreditLend,       detail::kStock,  detail::kStockLines,  "JC",   Owner::Credit,      detail::kStockIds,  {0, -1},   detail::kStock},
    {kind::kTransfer,         detail::kStock,  detail::kStockLines,  "DB",   Owner::OtherBill,   detail::kStockIds,  {+1, -1},  detail::kStock},
    {kind::kOtherOut,         detail::kStock,  detail::kStockLines,  "QC",   Owner::OtherBill,   detail::kStockIds,  {0, -1},   detail::kStock},
    // Till sales: every kind whose decimal text begins with "99" takes their prefix.
    {kind::kPosSale,          detail::kStock,  detail::kStockLines,  "pos",  Owner::PosData,     detail::kStockIds,  {0, -1},   detail::kStock},
    {kind::kPurchaseReceipt,  detail::kStock,  detail::kStockLines,  "ZP",   Owner::PurRkd,      detail::kStockIds,  {+1, 0},   detail::kStock},
    {kind::kPurchaseReturn,   detail::kStock,  detail::kStockLines,  "ZT",   Owner::PurRkd,      detail::kStockIds,  {-1, 0},   detail::kStock},
    {kind::kPriceAdjustment,  "ICSpTjd",       "",                   "Tj",   Owner::PublicData,  kNoSeries,          {0, 0},    detail::kStock},
    // Opening balances of partners, written by InitData with -FOrgaID as their interior id.
    {kind::kOpeningOther,     detail::kStock,  "",                   "",     Owner::InitData,    kNoSeries,          {0, 0},    detail::kStock},
    {kind::kOpeningClass1,    detail::kStock,  "",                   "",     Owner::InitData,    kNoSeries,          {0, 0},    detail::kStock},
};
// clang-format on

// What a code outside the table gets: a stock bill (its tables and interior ids), no prefix, no
// class.
inline constexpr BillKind kUnknownKind{0,      "ICStockBill", detail::kStockLines,
                                       "",     Owner::None,   detail::kStockIds,
                                       {0, 0}, "ICStockBill"};

// The entry of a code, or kUnknownKind (with the code filled in) for one outside the table.
constexpr BillKind bill_kind(std::int16_t code) {
    for (const auto& k : kBillKinds)
        if (k.code == code) return k;
    BillKind unknown = kUnknownKind;
    unknown.code = code;
    return unknown;
}

// The bill-number prefix of a kind given as decimal text, or "" for a kind outside the table.
// Raises ComError 13 for a kind that is no number.
std::string bill_prefix(std::string_view kind);

// The next bill number of a kind: the prefix, when `prefix` is empty, comes from the table (and
// the caller sees it); a kind that is no number then raises ComError 13 before any statement
// runs. Otherwise as common::NextBillNo.
std::string NextBillNo(common::Executor& ex, std::string_view kind, const ado::DateTime& bill_date,
                       std::string& prefix);

// Audit marks on the header table of the kind (common::SetCheckMark / ClearCheckMark).
void SetCheckMark(std::int16_t tran_type, std::string_view inter_ids, std::int32_t checker_id);
void ClearCheckMark(std::int16_t tran_type, std::string_view inter_ids, std::int32_t user_id);

}  // namespace billdata::billcore
