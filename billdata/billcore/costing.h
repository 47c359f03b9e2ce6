#pragma once
// The costing service: the purchase-price propagation that keeps stock costs right when purchase
// prices change. The classes that write stock bills call it after their writes; PublicData
// publishes it to front ends. Both operations do nothing unless the cost style is 1.

#include <cstdint>
#include <memory>

#include "billdata/ado/ado.h"

namespace billdata::billcore {

// The stocks (t_Stock.FItemID), read whole through a private connection of the session's string
// and then let go of it, so that a walk over them can write on the caller's connection.
std::shared_ptr<ado::Recordset> stock_list();

// Carries the unit prices of purchase bill `InterID` forward through the stock books: sets the
// items' purchase prices, re-prices later sales and other stock bills, walks the later purchase
// bills of each item in interior-id order and writes their price-adjustment rows. ReGen true
// makes the bill's own prices take effect, false brings back the prices that stood before it.
// All statements run on `Cn` (the caller's open connection, inside its transaction if any); the
// stock list is read through the session connection string. No handler of its own: a failure
// stops the walk where it is and reaches the caller, who decides whether to roll back.
void CacuSptjd(const std::shared_ptr<ado::Connection>& Cn, std::int32_t InterID, bool ReGen);

// Rebuilds the price-adjustment rows that follow bill `InterID`, without changing any price: the
// first purchase bill after it, and for its kind-112 lines at a changed price the later purchase
// bills of the item, stock by stock. Writes on `Cn`, reads through the session connection
// string. No handler of its own.
void RecacuSptjd(const std::shared_ptr<ado::Connection>& Cn, std::int32_t InterID);

}  // namespace billdata::billcore
