#pragma once
// The scaffolding every bill operation stands on: the connection it works on (the caller's, or
// one of its own closed on every way out), the statement runner under its error handler, its
// transaction, and the interior id a saved bill is written under. Internal to the library.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "billdata/ado/ado.h"
#include "billdata/common/bill_parts.h"
#include "billdata/common/handlers.h"

namespace billdata::billcore {

class Operation {
  public:
    // On the caller's connection `callers` when given (its transaction, if any, stays the
    // caller's), otherwise on a connection of its own from the session's connection string.
    explicit Operation(common::Handler handler, std::shared_ptr<ado::Connection> callers = nullptr);
    // On a connection of its own from `connection_string`.
    Operation(common::Handler handler, const std::string& connection_string);
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    const std::shared_ptr<ado::Connection>& connection() const { return own_.get(); }
    common::Executor& ex() { return ex_; }
    // True when the connection is the operation's own rather than the caller's.
    bool owned() const { return own_.owned(); }

    // Runs `body` in a transaction begun here and commits it. When the connection is the
    // caller's and `join_callers` is true, `body` runs inside whatever the caller has open
    // instead, and nothing is begun or committed here. On a failure the transaction begun here
    // is rolled back before the error goes on; if that rollback fails too, its failure is
    // attached to the error (ComError::cleanup_failure) instead of being lost.
    template <class Fn>
    decltype(auto) transaction(Fn&& body, bool join_callers = false) {
        const bool begin_here = !(join_callers && !owned());
        if (begin_here) ex_.begin();
        try {
            if constexpr (std::is_void_v<decltype(body())>) {
                body();
                if (begin_here) ex_.commit();
            } else {
                decltype(auto) result = body();
                if (begin_here) ex_.commit();
                return result;
            }
        } catch (ado::ComError& e) {
            if (begin_here) roll_back_after(e);
            throw;
        } catch (...) {
            if (begin_here) roll_back_after_other();
            throw;
        }
    }

    // A fresh interior id for a bill of kind `tran_type` into `id`, from the kind's series in
    // the table of bill kinds, drawn now; and again whenever a statement clashes on it under the
    // DuplicateKey handler, so that statements built after the clash carry the new id.
    // `on_redraw` runs after each redraw, given the id that clashed (to move rows already
    // written). A kind that draws no ids (opening balances, price adjustments) is a defect of
    // the caller: std::logic_error.
    void draw_interior_id(std::int32_t& id, std::int16_t tran_type);
    void redraw_on_clash(std::int32_t& id, std::int16_t tran_type,
                         std::function<void(std::int32_t clashed)> on_redraw = nullptr);

    // A new bill of kind `tran_type`: its interior id into `id` (as draw_interior_id) and its
    // number, returned: `prefix`, or the kind's own letters when it is empty, then the date and
    // the day's sequence (billcore::NextBillNo).
    std::string new_bill(std::int32_t& id, std::int16_t tran_type, const ado::DateTime& bill_date,
                         std::string prefix = {});

    // Closes an own connection now, raising a failure to close (see common::OwnConnection).
    void close() { own_.close(); }

  private:
    void roll_back_after(ado::ComError& error);
    void roll_back_after_other();

    common::OwnConnection own_;
    common::Executor ex_;
};

}  // namespace billdata::billcore
