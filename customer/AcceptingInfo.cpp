// AcceptingInfo's lookup.
#include "veltrane/customer/AcceptingInfo.h"

#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void AcceptingInfo::getWithSN(std::string SN, ResultCallback<AcceptingInfo> callback) {
    reply::get("getAcceptUserInfo", Dictionary{{"SN", std::move(SN)}}, reply::codedRecord<AcceptingInfo>(std::move(callback)));
}

} // namespace veltrane
