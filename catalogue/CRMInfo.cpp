// CRMInfo's lookup.
#include "veltrane/catalogue/CRMInfo.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void CRMInfo::checkWithBusinessNumber(std::string number, ResultCallback<CRMInfo> andCallback) {
    std::optional<User> user = Account::getCurrentUser();
    Dictionary params{{"number", std::move(number)}, {"userID", NSBoxLong(user ? user->ID() : 0)}};
    reply::get("checkCRMInfo", params, reply::oneRecordOfDictionary<CRMInfo>(std::move(andCallback)));
}

} // namespace veltrane
