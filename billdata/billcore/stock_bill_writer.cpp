#include "billdata/billcore/stock_bill_writer.h"

#include "billdata/billcore/bill_kinds.h"
#include "billdata/common/numbering.h"
#include "billdata/common/session.h"

namespace billdata::billcore {

std::string season_text(const ado::DateTime& bill_date) {
    return std::to_string(bill_date.year()) + "年" +
           std::to_string((bill_date.month() - 1) / 3 + 1) + "季度";
}

std::string month_text(const ado::DateTime& bill_date) {
    const int month = bill_date.month();
    return std::to_string(bill_date.year()) + "年" + (month < 10 ? "0" : "") +
           std::to_string(month) + "月";
}

std::string now_text() {
    const ado::DateTime now = ado::DateTime::now();
    return now.date_string() + " " + now.time_string();
}

void check_removable(const std::shared_ptr<ado::Recordset>& rs) {
    if (rs->Fields("FcheckerID").Value().to_int32() > 0)
        throw ado::ComError::component("删除单据失败，单据“" +
                                       rs->Fields("FBillNo").Value().to_string() + "”已经审核！");
    // Periods compare as year × 12 + month in 16 bits, as the books always have.
    const int bill_period =
        rs->Fields("FYear").Value().to_int16() * 12 + rs->Fields("FPeriod").Value().to_int16();
    const int session_period = common::session().CurYear * 12 + common::session().CurPeriod;
    if (bill_period > 32767 || bill_period < -32768 || session_period > 32767 ||
        session_period < -32768)
        throw ado::ComError::platform(ado::err::kOverflow);
    if (bill_period < session_period)
        throw ado::ComError::component("对不起,不能删除以前月份的单据!");
}

void write_size_rows(common::Executor& ex, const std::int32_t& id,
                     const std::shared_ptr<ado::Recordset>& detail) {
    if (detail && detail->State() == ado::adStateOpen) {
        if (detail->RecordCount() != 0) detail->MoveFirst();
        while (!detail->Eof()) {
            // A cell deleted in the front end carries a non-zero FDel and is not written.
            const ado::Variant& del = detail->Fields("FDel").Value();
            if (!del.is_null() && del.to_double() == 0) {
                ex.execute([&] {
                    return "Insert Into ICStockBillEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,"
                           "FColorEntryID,FQty) Values(" +
                           std::to_string(id) + "," +
                           detail->Fields("FItemID").Value().to_string() + ",'" +
                           common::sql_text(detail->Fields("FRowKey").Value().to_string()) + "'," +
                           detail->Fields("FSizeiD").Value().to_string() + ",'" +
                           common::sql_text(detail->Fields("FColor").Value().to_string()) + "'," +
                           detail->Fields("FColorEntryID").Value().to_string() + "," +
                           detail->Fields("FQty").Value().to_string() + ")";
                });
            }
            detail->MoveNext();
        }
    }
    write_unsized_rows(ex, id);
}

void write_unsized_rows(common::Executor& ex, const std::int32_t& id) {
    ex.execute([&] {
        return "Insert Into ICStockBillEntry_1(FInterID,FItemID,FRowKey,FSizeID,FColor,"
               "FColorEntryID,FQty) select t1.FInterID,t1.FItemID,t1.FRowKey,0,'',0,Fqty from "
               "ICStockBillEntry t1 inner join t_icitem t3 on t1.fitemid=t3.fitemid where "
               "t1.FInterID=" +
               std::to_string(id) + " and isnull(t3.FSizeID,0)=0";
    });
}

std::string list_window() {
    const std::int16_t days = common::session().ListDays;
    if (days <= 0) return "";
    const ado::DateTime today = ado::DateTime::today();
    return " and t1.FDate between '" + today.add_days(1 - days).to_string() + "' and '" +
           today.add_days(1).to_string() + "'";
}

void delete_stock_bill(common::Executor& ex, std::int32_t id) {
    const std::string s = std::to_string(id);
    ex.execute("delete from ICStockBill where FInterID=" + s);
    ex.execute("delete from ICStockBillEntry where FInterID=" + s);
    ex.execute("delete from ICStockBillEntry_1 where FInterID=" + s);
}

void take_id_or_clear(Operation& op, bool is_new, std::int32_t& id, std::int16_t tran_type,
                      const ado::DateTime& bill_date, std::string& bill_no) {
    common::Executor& ex = op.ex();
    if (is_new) {
        bill_no = op.new_bill(id, tran_type, bill_date);
        return;
    }
    ex.execute([&] { return "Delete from icstockbill where FInterID=" + std::to_string(id); });
    ex.execute([&] { return "Delete from icstockbillEntry where FInterID=" + std::to_string(id); });
    ex.execute(
        [&] { return "Delete from icstockbillEntry_1 where FInterID=" + std::to_string(id); });
}

}  // namespace billdata::billcore
