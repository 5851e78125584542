// BillingOption's listing.
#include "catalogue/BillingOption.h"

#include "foundation/RequestPattern.h"
#include "platform/Server.h"

namespace veltrane {

void BillingOption::listWithPlanItemID(int32_t planItemID, int32_t andCompanyID, ResultCallback<std::vector<BillingOption>> callback) {
    Dictionary params{{"planItemID", NSBoxInt(planItemID)}, {"companyID", NSBoxInt(andCompanyID)}};
    reply::get("getBillingOptions", params, reply::loopList<BillingOption>(std::move(callback)));
}

} // namespace veltrane
