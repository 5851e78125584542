// CompoundType's listing.
#include "veltrane/catalogue/CompoundType.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void CompoundType::listWithCallback(ResultCallback<std::vector<CompoundType>> callback) {
    reply::get("listCompoundTypes", std::nullopt, reply::convertList<CompoundType>(std::move(callback)));
}

} // namespace veltrane
