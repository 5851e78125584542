// ActionFormData's reading.
#include "veltrane/orders/ActionFormData.h"

namespace veltrane {

ActionFormData::ActionFormData(const Dictionary& d) : action_(d.optDictionary("action")), filledInfo_(d.optDictionary("fields")) {
    if (std::optional<Array> form = d.optArray("ActionForm")) {
        std::vector<ActionFormItem> items;
        items.reserve(form->size());
        for (const Value& element : *form)
            items.push_back(locatedAtElement("ActionForm", items.size(), [&] { return ActionFormItem(element.asDictionary()); }));
        inputs_ = std::move(items);
    }
}

} // namespace veltrane
