// Binds the class InitData to the host: its methods, their parameters in order, optional ones
// marked, the record-set fields they read and return, and an example call of each that works on
// a new demo database (server/describe.h).

#include "billdata/initdata/initdata.h"
#include "billdata/server/binder.h"
#include "billdata/server/builtin.h"

namespace billdata::server {

void bind_initdata(Registry& registry) {
    registry.add(
        ClassBinder<InitData>("InitData")
            .method("CloseICInit", &InitData::CloseICInit,
                    {"PromptString", "StartYear", "StartPeriod"})
            .example(R"({"PromptString": "Provider=SQLite;Data Source=shop.db", "StartYear": 2025,
                                  "StartPeriod": 3})")
            .method("UnCloseICInit", &InitData::UnCloseICInit, {"PromptString"})
            .example(R"({"PromptString": "Provider=SQLite;Data Source=shop.db"})",
                     {"InitData.CloseICInit"})
            .method("CloseWLInit", &InitData::CloseWLInit, {"PromptString"})
            .example(R"({"PromptString": "Provider=SQLite;Data Source=shop.db"})")
            .method("UnCloseWLInit", &InitData::UnCloseWLInit, {"New_CnStr"})
            .example(R"({"New_CnStr": "Provider=SQLite;Data Source=shop.db"})",
                     {"InitData.CloseWLInit"})
            .method("SaveInitWLData", &InitData::SaveInitWLData, {"ItemClassID", "rs"})
            .reads("rs", {"FItemID", "FAmount"})
            .example(R"({"ItemClassID": 2, "rs": {"fields": ["FItemID", "FAmount"],
                                  "rows": [[101, 5000], [102, 3200], [103, 800]]}})")
            .method("CloseCashInit", &InitData::CloseCashInit)
            .example("{}")
            .method("UnCloseCashInit", &InitData::UnCloseCashInit)
            .example("{}", {"InitData.CloseCashInit"})
            .info());
}

}  // namespace billdata::server
