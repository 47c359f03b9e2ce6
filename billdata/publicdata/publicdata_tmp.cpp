// Stand-ins until the price propagation lands; removed when the branches are merged.

#include "billdata/common/session.h"
#include "billdata/publicdata/publicdata.h"

namespace billdata {

void PublicData::Init(const std::string& NewValue) {
    common::SetPromptString(NewValue);
}

void PublicData::CacuSptjd(std::shared_ptr<ado::Connection> /*Cn*/, std::int32_t /*InterID*/,
                           bool /*ReGen*/) {}

void PublicData::RecacuSptjd(std::shared_ptr<ado::Connection> /*Cn*/, std::int32_t /*InterID*/) {}

}  // namespace billdata
