#include "billdata/server/builtin.h"

namespace billdata::server {

// Registration is explicit: a self-registering object in a static library would be dropped by
// the linker together with the class it registers.
void register_builtin_classes(Registry& registry) {
    bind_orderbill(registry);
    bind_purrkd(registry);
    bind_posdata(registry);
    bind_sfkdata(registry);
    bind_otherbill(registry);
    bind_publicdata(registry);
    bind_viporder(registry);
    bind_initdata(registry);
    bind_credit(registry);
}

}  // namespace billdata::server
