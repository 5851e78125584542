/// @file
/// A tariff plan of the catalogue.
#pragma once

#include <vector>

#include "veltrane/catalogue/PlanFields.h"
#include "veltrane/foundation/Callbacks.h"

namespace veltrane {

/// A tariff plan of the catalogue.
class PlanInfo : public PlanFields<PlanInfo> {
public:
    using PlanFields::PlanFields;

    /// GET "getPlanList" with "companyid"; one bad plan fails the whole list.
    static void listWithCompany(int32_t company, ResultCallback<std::vector<PlanInfo>> callback);
};

} // namespace veltrane
