#include "billdata/billcore/operation.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "billdata/billcore/bill_kinds.h"

#include "billdata/common/numbering.h"

namespace billdata::billcore {

Operation::Operation(common::Handler handler, std::shared_ptr<ado::Connection> callers)
    : own_(std::move(callers)), ex_(own_.get(), handler) {}

Operation::Operation(common::Handler handler, const std::string& connection_string)
    : own_(connection_string), ex_(own_.get(), handler) {}

namespace {

std::int16_t series_of(std::int16_t tran_type) {
    const std::int16_t series = bill_kind(tran_type).series;
    if (series == kNoSeries)
        throw std::logic_error("bill kind " + std::to_string(tran_type) + " draws no interior id");
    return series;
}

}  // namespace

void Operation::draw_interior_id(std::int32_t& id, std::int16_t tran_type) {
    id = common::NextInterID(ex_, series_of(tran_type), 0);
}

std::string Operation::new_bill(std::int32_t& id, std::int16_t tran_type,
                                const ado::DateTime& bill_date, std::string prefix) {
    draw_interior_id(id, tran_type);
    return NextBillNo(ex_, std::to_string(tran_type), bill_date, prefix);
}

void Operation::redraw_on_clash(std::int32_t& id, std::int16_t tran_type,
                                std::function<void(std::int32_t clashed)> on_redraw) {
    const std::int16_t series = series_of(tran_type);
    ex_.on_duplicate_interior_id([this, &id, series, on_redraw = std::move(on_redraw)] {
        const std::int32_t clashed = id;
        id = common::NextInterID(ex_, series, 0);
        if (on_redraw) on_redraw(clashed);
    });
}

void Operation::roll_back_after(ado::ComError& error) {
    try {
        if (connection()->InTransaction()) ex_.rollback();
    } catch (const ado::ComError& cleanup) {
        error.attach_cleanup_failure(cleanup);
    }
}

void Operation::roll_back_after_other() {
    try {
        if (connection()->InTransaction()) ex_.rollback();
    } catch (const ado::ComError&) {
        // The error in flight is not the data layer's (a failed allocation): it is the one the
        // caller gets, and closing the connection rolls back what is left.
    }
}

}  // namespace billdata::billcore
