#include "billdata/common/audit.h"

#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"
#include "billdata/common/session.h"

namespace billdata::common {

const char* audit_table(std::int16_t tran_type) {
    switch (tran_type) {
        case 11:
        case 21:
            return "ICOrder";
        case 13:
        case 23:
            return "WLBill";
        case 50:
            return "ICSpTjd";
        default:
            return "ICStockBill";
    }
}

namespace {

// The audit operations' handler: the common one, with error 9 first mapped to their own message.
template <class Fn>
void audit_guarded(const char* subscript_message, Fn&& fn) {
    try {
        guarded(Handler::Common, fn);
    } catch (const ado::ComError& e) {
        if (e.number() == ado::err::kSubscript) throw ado::ComError::component(subscript_message);
        throw;
    }
}

void run_one(const std::string& sql) {
    OwnConnection own;
    Executor ex(own.get(), Handler::Common);
    ex.execute(sql);
}

}  // namespace

void SetCheckMark(std::int16_t tran_type, std::string_view inter_ids, std::int32_t checker_id) {
    audit_guarded("没有需要审核的单据!", [&] {
        run_one(std::string("Update ") + audit_table(tran_type) + " set FCheckerID=" +
                std::to_string(checker_id) + " where FInterID in (" + std::string(inter_ids) + ")");
    });
}

void ClearCheckMark(std::int16_t tran_type, std::string_view inter_ids, std::int32_t /*user_id*/) {
    // The un-audit statement of kind 50 spells the table ICSptjd; table names match without
    // regard to case, and the text is kept as the system has always written it.
    const char* head = nullptr;
    switch (tran_type) {
        case 11:
        case 21:
            head = "Update ICOrder set FCheckerID=0 where FInterID in (";
            break;
        case 13:
        case 23:
            head = "Update WLBill set FCheckerID=0 where FInterID in (";
            break;
        case 50:
            head = "Update ICSptjd set FCheckerID=0 where FInterID in (";
            break;
        default:
            head = "Update ICStockBill set FCheckerID=0 where FInterID in (";
            break;
    }
    audit_guarded("没有需要反审核的单据!", [&] { run_one(head + std::string(inter_ids) + ")"); });
}

double GetStockQty(const std::shared_ptr<ado::Connection>& cn, std::int32_t stock_id,
                   std::int32_t item_id, std::int32_t inter_id) {
    auto cmd = ado::Command::create();
    cmd->CommandText = "sp_GetStockQty";
    cmd->CommandType = ado::adCmdStoredProc;
    cmd->ActiveConnection = cn;
    cmd->Parameters().Append(
        cmd->CreateParameter("@StockID", ado::adInteger, ado::adParamInput, 0, stock_id));
    cmd->Parameters().Append(
        cmd->CreateParameter("@ItemID", ado::adInteger, ado::adParamInput, 0, item_id));
    cmd->Parameters().Append(
        cmd->CreateParameter("@InterID", ado::adInteger, ado::adParamInput, 0, inter_id));
    cmd->Parameters().Append(cmd->CreateParameter("@RtnQty", ado::adDouble, ado::adParamOutput, 0));
    cmd->Execute(nullptr, ado::adOptionUnspecified);
    return cmd->Parameters().Item("@Rtnqty").Value().to_double();
}

}  // namespace billdata::common
