// PlanItem's listing and description.
#include "veltrane/catalogue/PlanItem.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void PlanItem::listWithCompany(int32_t company, int32_t andPlan, std::optional<std::string> andKeywords,
                               ResultCallback<std::vector<PlanItem>> callback) {
    Dictionary params{{"companyid", NSBoxInt(company)}, {"planid", NSBoxInt(andPlan)}};
    if (andKeywords && !andKeywords->empty()) params.set("keyword", *andKeywords);
    reply::get("getPlanProjectPages", params, reply::loopListNonArrayIsEmpty<PlanItem>(std::move(callback)));
}

void PlanItem::getDescriptionOfItem(int32_t itemID, ResultCallback<Value> callback) {
    reply::get("getPlanProjectInfo", Dictionary{{"id", NSBoxInt(itemID)}}, reply::field(std::move(callback), "Description"));
}

} // namespace veltrane
