#include "billdata/common/audit.h"

#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"
#include "billdata/common/session.h"
#include "billdata/util/text.h"

namespace billdata::common {

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

// The ids go into the statement as they stand, so they must be nothing but ids: a text such as
// "1) or (1=1" would otherwise mark every bill. An empty list is left to the database to refuse.
void require_id_list(std::string_view inter_ids) {
    for (char c : inter_ids) {
        if ((c >= '0' && c <= '9') || c == ',' || c == ' ') continue;
        throw ado::ComError::component("单据内码只能是以逗号分隔的整数：“" +
                                       util::excerpt(inter_ids) + "”！");
    }
}

void run_one(const std::string& sql) {
    OwnConnection own;
    Executor ex(own.get(), Handler::Common);
    ex.execute(sql);
}

}  // namespace

void SetCheckMark(std::string_view header_table, std::string_view inter_ids,
                  std::int32_t checker_id) {
    require_id_list(inter_ids);
    audit_guarded("没有需要审核的单据!", [&] {
        run_one("Update " + std::string(header_table) + " set FCheckerID=" +
                std::to_string(checker_id) + " where FInterID in (" + std::string(inter_ids) + ")");
    });
}

void ClearCheckMark(std::string_view header_table, std::string_view inter_ids,
                    std::int32_t /*user_id*/) {
    require_id_list(inter_ids);
    audit_guarded("没有需要反审核的单据!", [&] {
        run_one("Update " + std::string(header_table) + " set FCheckerID=0 where FInterID in (" +
                std::string(inter_ids) + ")");
    });
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
