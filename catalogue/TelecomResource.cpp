// TelecomResource and its listing.
#include "veltrane/catalogue/TelecomResource.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

TelecomResource::TelecomResource(const Dictionary& dictionary) : name_(dictionary.optValue("name")) {
    int32_t type = dictionary.intValue("type");
    isTel_ = type == 0 || type == 2;
    isWan_ = type == 1 || type == 2;
    available_ = dictionary.intValue("code") != 0;
}

void TelecomResource::list(int32_t areaCode, int32_t andSiteID, int32_t andSubAreaID, ResultCallback<std::vector<TelecomResource>> callback) {
    Dictionary params{{"areaCode", NSBoxInt(areaCode)}, {"siteID", NSBoxInt(andSiteID)}, {"addressID", NSBoxInt(andSubAreaID)}};
    reply::get("getResourceConfirm", params, reply::convertList<TelecomResource>(std::move(callback)));
}

} // namespace veltrane
