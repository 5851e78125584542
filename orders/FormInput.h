/// @file
/// One field of an action's form, as the screens draw and fill it: its type,
/// label, key and whether it must be filled in. Read and written live in a
/// dictionary of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// One field of an action's form, as the screens draw and fill it: its type, label, key and
/// whether it must be filled in.
class FormInput : public RawRecord {
public:
    /// An empty, writable dictionary.
    FormInput() : FormInput(Dictionary()) {}
    /// Keeps a one-level copy of the dictionary.
    explicit FormInput(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
    /// Keeps the very dictionary given: a read-only one makes every setter
    /// throw ValueError.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::shared); }

    /// How the field is drawn ("text", "choice", "idcard"...), as the server says.
    ///@{
    std::optional<std::string> type() const { return text("type"); }
    void setType(std::optional<std::string> v) { setText("type", std::move(v)); }
    ///@}
    /// "label", text.
    ///@{
    std::optional<std::string> label() const { return text("label"); }
    void setLabel(std::optional<std::string> v) { setText("label", std::move(v)); }
    ///@}
    /// The key under which the filled value is sent.
    ///@{
    std::optional<std::string> key() const { return text("key"); }
    void setKey(std::optional<std::string> v) { setText("key", std::move(v)); }
    ///@}
    /// True only for the text "true", exactly ("True", "1" and a missing key
    /// are false); a JSON true counts, as optString reads it as "true".
    /// Written as the text "true" or "false".
    ///@{
    bool required() const { return text("required") == "true"; }
    void setRequired(bool v) { setText("required", v ? "true" : "false"); }
    ///@}

    /// GET "getActionForm" with "ID": the fields of that action's form, a bad
    /// element dropped with its log line.
    static void listInputsWithAction(int32_t actionID, ResultCallback<std::vector<FormInput>> callback);
};

} // namespace veltrane
