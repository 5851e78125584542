// SubApp's tiles.
#include "veltrane/messaging/SubApp.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void SubApp::list(ResultCallback<std::vector<SubApp>> callback) {
    std::optional<User> user = Account::getCurrentUser();
    Dictionary params{{"CompanyID", NSBoxLong(user ? user->companyID() : 0)}};
    reply::get("getAppsID", std::move(params), reply::loopList<SubApp>(std::move(callback), [](const Value& tile) {
                   const Value* name = tile.asDictionary().find("name");
                   return name && name->isNull();
               }));
}

} // namespace veltrane
