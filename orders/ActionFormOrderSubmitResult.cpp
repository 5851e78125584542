// ActionFormOrderSubmitResult's reading.
#include "veltrane/orders/ActionFormOrderSubmitResult.h"

#include "veltrane/foundation/ListConversion.h"

namespace veltrane {

ActionFormOrderSubmitResult::ActionFormOrderSubmitResult(const Dictionary& d)
    : ID_(d.optInt("ID")),
      isPreProcessAgreement_(d.optInt("IsPreProcessAgreement") == 1),
      path_(d.optString("Path")),
      recID_(d.optInt("RecID")),
      SN_(d.optString("SN")) {
    if (std::optional<Array> data = d.optArray("Data")) agreements_ = arrayByConvertElementsUsingBlock(Value(*data), makeRecord<Agreement>);
}

} // namespace veltrane
