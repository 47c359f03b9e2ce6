// Binds the class InitData to the host: its methods, their parameters in order, optional ones
// marked.

#include "billdata/initdata/initdata.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_initdata(Registry& registry) {
    registry.add(ClassBinder<InitData>("InitData")
                     .method("CloseICInit", &InitData::CloseICInit,
                             {"PromptString", "StartYear", "StartPeriod"})
                     .method("UnCloseICInit", &InitData::UnCloseICInit, {"PromptString"})
                     .method("CloseWLInit", &InitData::CloseWLInit, {"PromptString"})
                     .method("UnCloseWLInit", &InitData::UnCloseWLInit, {"New_CnStr"})
                     .method("SaveInitWLData", &InitData::SaveInitWLData, {"ItemClassID", "rs"})
                     .method("CloseCashInit", &InitData::CloseCashInit)
                     .method("UnCloseCashInit", &InitData::UnCloseCashInit)
                     .info());
}

}  // namespace billdata::server
