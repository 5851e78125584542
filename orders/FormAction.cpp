// FormAction's menu.
#include "veltrane/orders/FormAction.h"

#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void FormAction::listWithUserID(int32_t userID, int32_t andCompanyID, ResultCallback<std::vector<FormAction>> callback) {
    Dictionary params{{"userid", NSBoxInt(userID)}, {"companyid", NSBoxInt(andCompanyID)}};
    reply::get("getActionList", std::move(params), reply::convertList<FormAction>(std::move(callback)));
}

} // namespace veltrane
