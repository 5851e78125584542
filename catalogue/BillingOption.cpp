// BillingOption's listing.
#include "veltrane/catalogue/BillingOption.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void BillingOption::listWithPlanItemID(int32_t planItemID, int32_t andCompanyID, ResultCallback<std::vector<BillingOption>> callback) {
    Dictionary params{{"planItemID", NSBoxInt(planItemID)}, {"companyID", NSBoxInt(andCompanyID)}};
    reply::get("getBillingOptions", params, reply::loopList<BillingOption>(std::move(callback)));
}

} // namespace veltrane
