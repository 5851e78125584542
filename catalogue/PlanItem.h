/// @file
/// A plan project (plan item) offered under a plan, with its long description.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "veltrane/catalogue/PlanFields.h"
#include "veltrane/foundation/Callbacks.h"

namespace veltrane {

/// A plan project (plan item) offered under a plan, with its long description.
class PlanItem : public PlanFields<PlanItem> {
public:
    using PlanFields::PlanFields;

    /// GET "getPlanProjectPages" with "companyid", "planid", and "keyword" (as
    /// it is) when keywords are present and not empty. A list, not a page: data
    /// that is not an array gives an empty list; one bad item fails the list.
    static void listWithCompany(int32_t company, int32_t andPlan, std::optional<std::string> andKeywords,
                                ResultCallback<std::vector<PlanItem>> callback);
    /// GET "getPlanProjectInfo" with "id": the value under "Description" as it stands.
    static void getDescriptionOfItem(int32_t itemID, ResultCallback<Value> callback);
};

} // namespace veltrane
