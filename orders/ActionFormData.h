/// @file
/// An action together with its form's fields and the values the dealer filled
/// in, as an action-form order stores them: {"action": {...}, "ActionForm":
/// [...], "fields": {...}}.
#pragma once

#include <optional>
#include <vector>

#include "veltrane/foundation/Value.h"
#include "veltrane/orders/Action.h"
#include "veltrane/orders/ActionFormItem.h"

namespace veltrane {

/// An action together with its form's fields and the values the dealer filled in, as an
/// action-form order stores them: {"action": {...}, "ActionForm": [...], "fields": {...}}.
class ActionFormData {
public:
    /// Copies the three parts: the action from the dictionary under "action"
    /// (an empty action when there is none), the fields of the array under
    /// "ActionForm" in order (nothing when there is no such array; an element
    /// that is not a dictionary throws ValueError located at it), and the
    /// dictionary under "fields" as it stands (empty when there is none).
    explicit ActionFormData(const Dictionary& dictionary);

    /// "action".
    const Action& action() const noexcept { return action_; }
    /// The form's fields, from "ActionForm", in order.
    const std::optional<std::vector<ActionFormItem>>& inputs() const noexcept { return inputs_; }
    /// "fields".
    const Dictionary& filledInfo() const noexcept { return filledInfo_; }

private:
    Action action_;
    std::optional<std::vector<ActionFormItem>> inputs_;
    Dictionary filledInfo_;
};

} // namespace veltrane
