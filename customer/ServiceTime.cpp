// ServiceTime's listing.
#include "veltrane/customer/ServiceTime.h"

#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void ServiceTime::listWithAreaCode(std::optional<std::string> areaCode, ResultCallback<std::vector<ServiceTime>> callback) {
    Parameters params;
    if (areaCode && !areaCode->empty()) params = Dictionary{{"SubAreaCode", *areaCode}};
    reply::get("getInstallTime", std::move(params), reply::convertList<ServiceTime>(std::move(callback)));
}

} // namespace veltrane
