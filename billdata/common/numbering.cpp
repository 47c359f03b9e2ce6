#include "billdata/common/numbering.h"

#include "billdata/ado/ado.h"

namespace billdata::common {

using ado::Statement;
using ado::Variant;

namespace {

// Drawn for every bill saved: built from their skeletons.
const ado::Skeleton kMaxNum("select * from ICMaxNum where FTranType={}");
const ado::Skeleton kMaxNumStep("Update ICMaxNum set FMaxNum=FMaxNum+{}  Where FtranType={}");
const ado::Skeleton kBillNo("select * from ICBillNo where FDate='{}' and FTranType={}");
const ado::Skeleton kMaxStockBill(
    "Select max(finterID) as FMax,count(*) as Fcount from icstockbill");
const ado::Skeleton kBillNoStep("Update ICBillNo set FMaxNum={} where FTranType={} and FDate='{}'");

}  // namespace

std::int32_t NextInterID(Executor& ex, std::int16_t series, std::int16_t step) {
    const std::int32_t increment = step == 0 ? 1 : step;
    const std::string s = std::to_string(series);
    auto rs = ex.query([&](Statement& st) { st.build(kMaxNum, series); });
    if (rs->Eof()) {
        rs->Close();
        ex.execute("Insert Into ICMaxNum(FtranType,FMaxNUm,FDescription) Values(" + s + ",1,'')");
        return 1;
    }
    std::int32_t candidate =
        Variant(rs->Fields("FMaxNum").Value().to_double() + increment).to_int32();
    rs->Close();
    if (series == kSeriesStockBill) {
        auto check = ex.query([&](Statement& st) { st.build(kMaxStockBill); });
        if (!check->Eof() && check->Fields("FCount").Value().to_int32() > 0) {
            std::int32_t max = check->Fields("FMax").Value().to_int32();
            if (max > candidate) candidate = Variant(static_cast<double>(max) + 1).to_int32();
        }
        check->Close();
    }
    ex.execute([&](Statement& st) { st.build(kMaxNumStep, increment, series); });
    return candidate;
}

std::string NextBillNo(Executor& ex, std::string_view kind, const ado::DateTime& bill_date,
                       std::string_view prefix) {
    const std::string date = bill_date.to_string();
    const std::string k(kind);
    auto rs = ex.query([&](Statement& st) { st.build(kBillNo, date, kind); });
    std::int16_t sequence = 1;
    if (rs->Eof()) {
        rs->Close();
        ex.execute("Insert Into ICBillNo(FTranType,FDate,FMaxNum) values(" + k + ",'" + date +
                   "'," + std::to_string(sequence) + ")");
    } else {
        sequence = Variant(rs->Fields("FMaxNum").Value().to_double() + 1).to_int16();
        rs->Close();
        ex.execute([&](Statement& st) { st.build(kBillNoStep, sequence, kind, date); });
    }
    std::string digits = std::to_string(sequence);
    std::string padding(digits.size() < 3 ? 3 - digits.size() : 0, '0');
    auto two = [](int v) {
        std::string s(v < 10 ? "0" : "");
        return s.append(std::to_string(v));
    };
    return std::string(prefix) + two(bill_date.year() % 100) + two(bill_date.month()) +
           two(bill_date.day()) + "-" + padding + digits;
}

}  // namespace billdata::common
