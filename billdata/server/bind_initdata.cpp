// Binds the class InitData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/server/builtin.h"

#if __has_include("billdata/initdata/initdata.h")
#include "billdata/initdata/initdata.h"
#include "billdata/server/binder.h"

namespace billdata::server {

namespace {

template <class C>
void bind(Registry& registry) {
    if constexpr (requires { &C::CloseICInit; }) {
        registry.add(ClassBinder<C>("InitData")
                         .method("CloseICInit", &C::CloseICInit,
                                 {"PromptString", "StartYear", "StartPeriod"})
                         .method("UnCloseICInit", &C::UnCloseICInit, {"PromptString"})
                         .method("CloseWLInit", &C::CloseWLInit, {"PromptString"})
                         .method("UnCloseWLInit", &C::UnCloseWLInit, {"New_CnStr"})
                         .method("SaveInitWLData", &C::SaveInitWLData, {"ItemClassID", "rs"})
                         .method("CloseCashInit", &C::CloseCashInit)
                         .method("UnCloseCashInit", &C::UnCloseCashInit)
                         .info());
    }
}

}  // namespace

void bind_initdata(Registry& registry) {
    bind<InitData>(registry);
}

}  // namespace billdata::server

#else

namespace billdata::server {

void bind_initdata(Registry&) {}

}  // namespace billdata::server

#endif
