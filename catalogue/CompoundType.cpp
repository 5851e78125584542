// CompoundType's listing.
#include "catalogue/CompoundType.h"

#include "foundation/RequestPattern.h"
#include "platform/Server.h"

namespace veltrane {

void CompoundType::listWithCallback(ResultCallback<std::vector<CompoundType>> callback) {
    reply::get("listCompoundTypes", std::nullopt, reply::convertList<CompoundType>(std::move(callback)));
}

} // namespace veltrane
