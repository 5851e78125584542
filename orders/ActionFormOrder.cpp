// ActionFormOrder's action list and class operations.
#include "veltrane/orders/ActionFormOrder.h"

#include <stdexcept>

#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

std::optional<std::vector<Action>> ActionFormOrder::copyActionList() const {
    std::optional<Array> list = raw_.optArray("ActionList");
    if (!list) return std::nullopt;
    std::vector<Action> actions;
    for (const Value& element : *list)
        if (const Dictionary* d = element.dictionaryIf()) actions.emplace_back(*d);
    if (actions.empty()) return std::nullopt;
    return actions;
}

std::optional<std::string> ActionFormOrder::getAllActionsName() const {
    std::optional<Array> list = raw_.optArray("ActionList");
    if (!list) return std::nullopt;
    std::string names;
    for (const Value& element : *list)
        if (const Dictionary* d = element.dictionaryIf()) names += describeOrNull(d->optValue("Name")) + " ";
    return names;
}

void ActionFormOrder::post(const Value& order, ResultCallback<ActionFormOrderSubmitResult> callback) {
    std::optional<std::string> text = reply::jsonParameter(order, callback);
    if (!text) return;
    std::optional<User> user = Account::getCurrentUser();
    Dictionary params{{"userid", NSBoxLong(user ? user->ID() : 0)}, {"companyid", NSBoxLong(user ? user->companyID() : 0)}, {"data", *text}};
    logValue("posting data to create order:\n", order, Rendering::json);
    reply::post("postCreateOrder", std::move(params), reply::oneRecord<ActionFormOrderSubmitResult>(std::move(callback)));
}

void ActionFormOrder::listTodaysOrders(ResultCallback<std::vector<ActionFormOrder>> callback) {
    reply::get("listTodayOrderList", std::nullopt, reply::convertList<ActionFormOrder>(std::move(callback)));
}

void ActionFormOrder::checkOrderIsAccepting(std::optional<std::string> SN, FlagCallback callback) {
    if (!SN) throw std::invalid_argument("chkOrderIsAccept: no serial number");
    reply::get("chkOrderIsAccept", Dictionary{{"SN", std::move(*SN)}}, reply::booleanOfData(std::move(callback)));
}

void ActionFormOrder::postUpdateData(const Value& data, ResultCallback<Value> callback) {
    std::optional<std::string> text = reply::jsonParameter(data, callback);
    if (!text) return;
    logValue("post update data:\n", data, Rendering::json);
    reply::post("postUpdateOrder", Dictionary{{"data", *text}}, reply::passThrough(std::move(callback)));
}

void ActionFormOrder::updateOrder(std::optional<std::string> SN, long status, std::optional<std::string> withRemarks, ResultCallback<Value> callback) {
    Dictionary params;
    if (SN) params.set("SN", std::move(*SN));
    params.set("Status", NSBoxDouble(static_cast<double>(status)));
    if (withRemarks) params.set("Remarks", std::move(*withRemarks));
    Server::httpPost("postUpdateOrderStatus", std::move(params), std::move(callback));
}

} // namespace veltrane
