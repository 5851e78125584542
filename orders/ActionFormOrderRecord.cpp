// ActionFormOrderRecord's logging and status names.
#include "veltrane/orders/ActionFormOrderRecord.h"

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"

namespace veltrane {

namespace {
Dictionary logged(const Dictionary& d) {
    logValue("", d);
    return d;
}
} // namespace

ActionFormOrderRecord::ActionFormOrderRecord(const Dictionary& dictionary) : RawRecord(logged(dictionary), Keeps::shared) {}

std::string ActionFormOrderRecord::statusName() const {
    static const char* const kNames[] = {"回收站", "待处理", "转社区", "退回", "已完结", "转收银", "退回(社区)", "无资源", "竣工", " ", "销单"};
    int32_t status = raw_.optInt("Status");
    return status >= 0 && status < static_cast<int32_t>(std::size(kNames)) ? kNames[status] : "";
}

} // namespace veltrane
