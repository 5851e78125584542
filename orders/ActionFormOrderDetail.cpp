// ActionFormOrderDetail's reading and fetch.
#include "veltrane/orders/ActionFormOrderDetail.h"

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/ListConversion.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

namespace {

// The reply, logged; then orderInfo's copy with the forms' actions added.
Dictionary infoWithActions(const Dictionary& reply) {
    logValue("", reply);
    Dictionary info = reply.optDictionary("orderInfo").mutableCopy();
    Array actions;
    if (std::optional<Array> forms = reply.optArray("data")) {
        for (size_t i = 0; i < forms->size(); ++i) {
            locatedAtElement("data", i, [&] {
                const Value* action = (*forms)[i].asDictionary().find("action");
                if (!action) throw ValueError("a form without \"action\"");
                actions.push_back(*action);
            });
        }
    }
    info.set("ActionList", std::move(actions));
    return info;
}

template <class R>
std::optional<std::vector<R>> listOf(const Dictionary& reply, std::string_view key) {
    std::optional<Array> list = reply.optArray(key);
    if (!list) return std::nullopt;
    return arrayByConvertElementsUsingBlock(Value(*list), makeRecord<R>);
}

} // namespace

ActionFormOrderDetail::ActionFormOrderDetail(const Dictionary& reply)
    : order_(infoWithActions(reply)),
      info_(reply.optDictionary("orderInfo")),
      forms_(listOf<ActionFormData>(reply, "data")),
      receipts_(listOf<Receipt>(reply, "Receipt")),
      signedReceipts_(listOf<Receipt>(reply, "Sign")),
      records_(listOf<ActionFormOrderRecord>(reply, "Records")),
      crmInfo_(reply.optDictionary("crmInfo")) {}

void ActionFormOrderDetail::getDetailOfOrder(int32_t orderID, ResultCallback<ActionFormOrderDetail> callback) {
    reply::get("getOrderInfo", Dictionary{{"orderid", NSBoxInt(orderID)}}, reply::oneRecord<ActionFormOrderDetail>(std::move(callback)));
}

} // namespace veltrane
