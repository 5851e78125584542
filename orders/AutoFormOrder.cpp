// AutoFormOrder's class operations.
#include "veltrane/orders/AutoFormOrder.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

void AutoFormOrder::postOrderWithJsonObject(const Value& order, ResultCallback<Value> callback) {
    std::optional<std::string> text = reply::jsonParameter(order, callback);
    if (!text) return;
    std::optional<User> user = Account::getCurrentUser();
    Dictionary params{{"userid", NSBoxDouble(static_cast<double>(user ? user->ID() : 0))},
                      {"companyid", NSBoxDouble(static_cast<double>(user ? user->companyID() : 0))},
                      {"data", *text}};
    reply::post("postCreateOrder", std::move(params), reply::passThrough(std::move(callback)));
}

void AutoFormOrder::getOrderWithID(long orderID, ResultCallback<AutoFormOrder> callback) {
    reply::get("getOrderInfo", Dictionary{{"orderid", NSBoxDouble(static_cast<double>(orderID))}},
               reply::oneRecord<AutoFormOrder>(std::move(callback), reply::Guard::off));
}

} // namespace veltrane
