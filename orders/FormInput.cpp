// FormInput's form fetch.
#include "veltrane/orders/FormInput.h"

#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void FormInput::listInputsWithAction(int32_t actionID, ResultCallback<std::vector<FormInput>> callback) {
    reply::get("getActionForm", Dictionary{{"ID", NSBoxInt(actionID)}}, reply::convertList<FormInput>(std::move(callback)));
}

} // namespace veltrane
