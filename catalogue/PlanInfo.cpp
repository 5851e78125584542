// PlanInfo's listing.
#include "veltrane/catalogue/PlanInfo.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void PlanInfo::listWithCompany(int32_t company, ResultCallback<std::vector<PlanInfo>> callback) {
    reply::get("getPlanList", Dictionary{{"companyid", NSBoxInt(company)}}, reply::loopList<PlanInfo>(std::move(callback)));
}

} // namespace veltrane
