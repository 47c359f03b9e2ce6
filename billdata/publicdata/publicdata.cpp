// PublicData's operations over any bill kind: the list query with the user's restriction, and
// restore, void, delete and audit. The kind decides which class does the work, from the one table
// of bill kinds, so the query and the maintenance operations can never disagree on it.

#include "billdata/publicdata/publicdata.h"

#include <limits>
#include <string>

#include "billdata/billcore/bill_kinds.h"
#include "billdata/billcore/costing.h"
#include "billdata/common/filter_guard.h"
#include "billdata/common/handlers.h"
#include "billdata/common/session.h"
#include "billdata/credit/credit.h"
#include "billdata/orderbill/orderbill.h"
#include "billdata/otherbill/otherbill.h"
#include "billdata/posdata/posdata.h"
#include "billdata/purrkd/purrkd.h"
#include "billdata/sfkdata/sfkdata.h"
#include "billdata/viporder/viporder.h"

namespace billdata {

namespace {

using common::Handler;

// What PublicData asks of the class that owns a bill kind.
class BillService {
  public:
    virtual ~BillService() = default;
    virtual void Init(const std::string& prompt, std::int16_t year, std::int16_t period) = 0;
    virtual std::shared_ptr<ado::Recordset> GetBillList(std::int16_t tran_type,
                                                        const std::string& filter) = 0;
    virtual std::shared_ptr<ado::Recordset> GetBillList_Simple(std::int16_t tran_type,
                                                               const std::string& filter) = 0;
    virtual void UnblankOut(std::int32_t inter_id) = 0;
    virtual void DeleteBill(std::int16_t tran_type, std::int32_t inter_id, bool blank_out) = 0;
};

template <class C>
class ServiceOf final : public BillService {
  public:
    void Init(const std::string& prompt, std::int16_t year, std::int16_t period) override {
        bills_.Init(prompt, year, period);
    }
    std::shared_ptr<ado::Recordset> GetBillList(std::int16_t tran_type,
                                                const std::string& filter) override {
        return bills_.GetBillList(tran_type, filter);
    }
    std::shared_ptr<ado::Recordset> GetBillList_Simple(std::int16_t tran_type,
                                                       const std::string& filter) override {
        // Receipts, credit bills and member orders have no short list; GetBillData never asks
        // them for one, and a late-bound call would fail the same way.
        if constexpr (requires { &C::GetBillList_Simple; })
            return bills_.GetBillList_Simple(tran_type, filter);
        else
            throw ado::ComError(438, "对象不支持该属性或方法");
    }
    void UnblankOut(std::int32_t inter_id) override { bills_.UnblankOut(inter_id); }
    void DeleteBill(std::int16_t tran_type, std::int32_t inter_id, bool blank_out) override {
        bills_.DeleteBill(tran_type, inter_id, nullptr, blank_out);
    }

  private:
    C bills_;
};

// The class that owns bill kind `tran_type`, or nothing for a kind that no class here serves.
std::unique_ptr<BillService> service_for(std::int16_t tran_type) {
    switch (billcore::bill_kind(tran_type).owner) {
        case billcore::Owner::OrderBill:
            return std::make_unique<ServiceOf<OrderBill>>();
        case billcore::Owner::SFKData:
            return std::make_unique<ServiceOf<SFKData>>();
        case billcore::Owner::Credit:
            return std::make_unique<ServiceOf<Credit>>();
        case billcore::Owner::vipOrder:
            return std::make_unique<ServiceOf<vipOrder>>();
        case billcore::Owner::OtherBill:
            return std::make_unique<ServiceOf<OtherBill>>();
        case billcore::Owner::PosData:
            return std::make_unique<ServiceOf<PosData>>();
        case billcore::Owner::PurRkd:
            return std::make_unique<ServiceOf<PurRkd>>();
        case billcore::Owner::None:
        case billcore::Owner::PublicData:
        case billcore::Owner::InitData:
            return nullptr;
    }
    return nullptr;
}

// Using the service of a kind outside the table is the platform's "object required".
BillService& require(const std::unique_ptr<BillService>& service) {
    if (!service) throw ado::ComError::platform(ado::err::kObjectRequired);
    return *service;
}

// year × 12 + month in 16-bit arithmetic, as the guard has always compared them: a value that
// does not fit is an overflow, never a wrapped comparison.
std::int16_t month_index(std::int32_t year, std::int32_t month) {
    auto checked = [](std::int32_t v) {
        if (v < std::numeric_limits<std::int16_t>::min() ||
            v > std::numeric_limits<std::int16_t>::max())
            throw ado::ComError::platform(ado::err::kOverflow);
        return static_cast<std::int16_t>(v);
    };
    return checked(checked(year * 12) + month);
}

// The bill's head row, for its date (no row for an unknown id).
std::shared_ptr<ado::Recordset> open_head(std::int16_t tran_type, std::int32_t inter_id) {
    return common::open_recordset(std::string("select FDate from ") +
                                      billcore::bill_kind(tran_type).guard_table +
                                      " Where FInterID=" + std::to_string(inter_id),
                                  common::GetPromptString(), Handler::None);
}

// True when the bill on the head row is dated in a calendar month before CurYear/CurPeriod.
// Reading the date at the end of the record set is the data layer's error 3021.
bool before_current_month(const std::shared_ptr<ado::Recordset>& head, std::int16_t cur_year,
                          std::int16_t cur_period) {
    const std::int16_t current = month_index(cur_year, cur_period);
    const ado::DateTime date = head->Fields("FDate").Value().to_date();
    return current > month_index(date.year(), date.month());
}

}  // namespace

std::shared_ptr<ado::Recordset> PublicData::GetBillData(std::int16_t TranType,
                                                        const std::string& QuerySql,
                                                        std::int32_t UserID, bool ShowDetail) {
    common::require_safe_filter(QuerySql);  // before the user's row is read
    {
        auto user = common::open_recordset(
            "select isnull(Fdays,0) as FDays,isnull(FStockID,0) as FStockID from t_User where "
            "FUserID=" +
                std::to_string(UserID),
            common::GetPromptString(), Handler::None);
        // An unknown user keeps the restriction that stands: it is not reset on purpose.
        if (!user->Eof()) {
            auto& s = common::session();
            s.ListDays = user->Fields("FDays").Value().to_int16();
            s.ListStockID = user->Fields("FStockID").Value().to_int32();
        }
    }

    auto service = service_for(TranType);
    using namespace billcore::kind;
    if (TranType == kPayment || TranType == kReceipt) {
        const auto& s = common::session();
        require(service).Init(common::GetPromptString(), s.CurYear, s.CurPeriod);
    }
    const bool full_list = ShowDetail || TranType == kPayment || TranType == kCreditReturn ||
                           TranType == kMemberOrder || TranType == kReceipt ||
                           TranType == kCreditLend;
    if (full_list) return require(service).GetBillList(TranType, QuerySql);
    return require(service).GetBillList_Simple(TranType, QuerySql);
}

void PublicData::UnblankOut(std::int32_t InterID, std::int16_t TranType, std::int16_t CurYear,
                            std::int16_t CurPeriod) {
    {
        auto head = open_head(TranType, InterID);
        if (before_current_month(head, CurYear, CurPeriod))
            throw ado::ComError::component("对不起，不能恢复已前月份已作废的单据！");
    }
    auto service = service_for(TranType);
    require(service).Init(common::GetPromptString(), CurYear, CurPeriod);
    service->UnblankOut(InterID);
}

void PublicData::DelBill(std::int32_t InterID, std::int16_t TranType, std::int16_t CurYear,
                         std::int16_t CurPeriod, bool DoBlankOut) {
    {
        // An id with no head row is not guarded: the owning class decides what deleting it means.
        auto head = open_head(TranType, InterID);
        if (!head->Eof() && before_current_month(head, CurYear, CurPeriod))
            throw ado::ComError::component(std::string("对不起，不能") +
                                           (DoBlankOut ? "作废" : "删除") + "以前月份的单据！");
    }
    auto service = service_for(TranType);
    require(service).Init(common::GetPromptString(), CurYear, CurPeriod);
    service->DeleteBill(TranType, InterID, DoBlankOut);
}

void PublicData::CheckBill(std::int16_t TranType, const std::string& InterID, std::int32_t UserID) {
    billcore::SetCheckMark(TranType, InterID, UserID);
}

void PublicData::UnCheckBill(std::int16_t TranType, const std::string& InterID,
                             std::int32_t UserID) {
    billcore::ClearCheckMark(TranType, InterID, UserID);
}

void PublicData::Init(const std::string& NewValue) {
    common::SetPromptString(NewValue);
}

void PublicData::CacuSptjd(std::shared_ptr<ado::Connection> Cn, std::int32_t InterID, bool ReGen) {
    billcore::CacuSptjd(Cn, InterID, ReGen);
}

void PublicData::RecacuSptjd(std::shared_ptr<ado::Connection> Cn, std::int32_t InterID) {
    billcore::RecacuSptjd(Cn, InterID);
}

}  // namespace billdata
