// ActionFormItem's form fetch.
#include "veltrane/orders/ActionFormItem.h"

#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void ActionFormItem::listItemsForAction(int32_t actionID, ResultCallback<std::vector<ActionFormItem>> callback) {
    reply::get("getActionForm", Dictionary{{"ID", NSBoxInt(actionID)}}, reply::checkedList<ActionFormItem>(std::move(callback), "服务器数据错误"));
}

} // namespace veltrane
