#pragma once
// The bindings of the component's public classes, one file each (bind_<class>.cpp).

#include "billdata/server/dispatch.h"

namespace billdata::server {

void bind_orderbill(Registry& registry);
void bind_purrkd(Registry& registry);
void bind_posdata(Registry& registry);
void bind_sfkdata(Registry& registry);
void bind_otherbill(Registry& registry);
void bind_publicdata(Registry& registry);
void bind_viporder(Registry& registry);
void bind_initdata(Registry& registry);
void bind_credit(Registry& registry);

}  // namespace billdata::server
