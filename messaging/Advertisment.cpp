// Advertisment's reading and the banner row.
#include "veltrane/messaging/Advertisment.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/messaging/GuideItem.h"

namespace veltrane {

Advertisment::Advertisment(const Dictionary& d)
    : Name_(d.optValue("name")), ImageUrl_(d.optValue("icon")), Link_(d.optValue("link")), ShowBanner_(showsBanner(d)) {}

void Advertisment::listWithCallback(ResultCallback<std::vector<Advertisment>> callback) {
    reply::get("getHeadAd", std::nullopt, reply::loopList<Advertisment>(std::move(callback)));
}

} // namespace veltrane
