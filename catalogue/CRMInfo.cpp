// CRMInfo's lookup.
#include "catalogue/CRMInfo.h"

#include "foundation/RequestPattern.h"
#include "platform/Server.h"

namespace veltrane {

void CRMInfo::checkWithBusinessNumber(std::string number, ResultCallback<CRMInfo> andCallback) {
    std::optional<User> user = Account::getCurrentUser();
    Dictionary params{{"number", std::move(number)}, {"userID", NSBoxLong(user ? user->ID() : 0)}};
    reply::get("checkCRMInfo", params, reply::oneRecordOfDictionary<CRMInfo>(std::move(andCallback)));
}

} // namespace veltrane
