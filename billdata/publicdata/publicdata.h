#pragma once
// PublicData: operations over any bill kind, and the purchase-price propagation that keeps
// stock costs right when purchase prices change.

#include <cstdint>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"

namespace billdata {

class PublicData {
  public:
    // Stores the connection string in this thread's session; sets no year or period.
    void Init(const std::string& NewValue);

    // Carries the unit prices of purchase bill `InterID` forward through the stock books when the
    // cost style is 1 (otherwise does nothing): sets the items' purchase prices, re-prices later
    // sales and other stock bills, walks the later purchase bills of each item in interior-id
    // order and writes their price-adjustment rows. ReGen true makes the bill's own prices take
    // effect, false brings back the prices that stood before it. All statements run on `Cn`
    // (the caller's open connection, inside its transaction if any); the stock list is read
    // through the session connection string. No handler of its own: errors reach the caller.
    void CacuSptjd(std::shared_ptr<ado::Connection> Cn, std::int32_t InterID, bool ReGen);

    // Rebuilds the price-adjustment rows that follow bill `InterID` (cost style 1 only), without
    // changing any price: the first purchase bill after it, and for its kind-112 lines at a
    // changed price the later purchase bills of the item, stock by stock. Writes on `Cn`, reads
    // through the session connection string. No handler of its own.
    void RecacuSptjd(std::shared_ptr<ado::Connection> Cn, std::int32_t InterID);
};

}  // namespace billdata
