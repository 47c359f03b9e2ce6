// Stand-ins until the price propagation lands: they change nothing.
#include "billdata/common/session.h"
#include "billdata/publicdata/publicdata.h"

namespace billdata {

void PublicData::Init(const std::string& NewValue) {
    common::SetPromptString(NewValue);
}

void PublicData::CacuSptjd(std::shared_ptr<ado::Connection>, std::int32_t, bool) {}

void PublicData::RecacuSptjd(std::shared_ptr<ado::Connection>, std::int32_t) {}

}  // namespace billdata
