/// @file
/// One field of an action's form as stored with an order or fetched for
/// display: type, label, key, required flag and placeholder, read live from
/// the server's very dictionary.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// One field of an action's form as stored with an order or fetched for display: type, label,
/// key, required flag and placeholder, read live from the server's very dictionary.
class ActionFormItem : public RawRecord {
public:
    /// Keeps the very dictionary given, as setRaw does.
    explicit ActionFormItem(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::shared) {}
    /// Makes dictionary itself the one behind the record.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::shared); }

    /// "type", as text.
    std::optional<std::string> type() const { return text("type"); }
    /// "label", as text.
    std::optional<std::string> label() const { return text("label"); }
    /// "key", as text.
    std::optional<std::string> key() const { return text("key"); }
    /// The boolean reading of "required": true, a non-zero number, or text
    /// such as "true", "yes" or "1".
    bool required() const { return raw_.optBool("required"); }
    /// The hint shown in the empty field.
    std::optional<std::string> placeholder() const { return text("placeholder"); }

    /// GET "getActionForm" with "ID": the fields of that action's form. Data
    /// that is not an array gives (false, "服务器数据错误", nothing); an element
    /// that is not a dictionary throws ValueError out of the completion.
    static void listItemsForAction(int32_t actionID, ResultCallback<std::vector<ActionFormItem>> callback);
};

} // namespace veltrane
