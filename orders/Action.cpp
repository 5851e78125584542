// Action's price write and the menu.
#include "veltrane/orders/Action.h"

#include "veltrane/foundation/Number.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void Action::setPrice(float v) { raw_.set("Price", NSBoxLong(truncateToLong(v))); }

void Action::list(ResultCallback<std::vector<Action>> callback) {
    reply::get("getActionList", std::nullopt, reply::checkedList<Action>(std::move(callback), "服务器数据错误"));
}

} // namespace veltrane
