// Area's listing.
#include "veltrane/customer/Area.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void Area::list(int32_t parentID, ResultCallback<std::vector<Area>> callback) {
    reply::get("getTelecomArea", Dictionary{{"pid", NSBoxInt(parentID)}}, reply::convertList<Area>(std::move(callback)));
}

} // namespace veltrane
