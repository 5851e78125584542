// Compound's server calls.
#include "veltrane/catalogue/Compound.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void Compound::listWithPlanItemID(int32_t planItemID, int32_t andTypeID, ResultCallback<std::vector<Compound>> callback) {
    Dictionary params{{"planItemID", NSBoxInt(planItemID)}, {"typeID", NSBoxInt(andTypeID)}};
    reply::get("listCompounds", params, reply::convertListNullIsEmpty<Compound>(std::move(callback)));
}

void Compound::getDetailWithCompoundID(int32_t compoundID, ResultCallback<Value> callback) {
    reply::get("getCompoundDetail", Dictionary{{"ID", NSBoxInt(compoundID)}}, reply::dataOnSuccess(std::move(callback)));
}

} // namespace veltrane
