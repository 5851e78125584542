// PlanInfo's listing.
#include "catalogue/PlanInfo.h"

#include "foundation/RequestPattern.h"
#include "platform/Server.h"

namespace veltrane {

void PlanInfo::listWithCompany(int32_t company, ResultCallback<std::vector<PlanInfo>> callback) {
    reply::get("getPlanList", Dictionary{{"companyid", NSBoxInt(company)}}, reply::loopList<PlanInfo>(std::move(callback)));
}

} // namespace veltrane
