/// @file
/// One entry of the action menu as a given dealer sees it: the action's name,
/// whether it is new, whether the server completes it by itself, and its
/// colour.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/Callbacks.h"

namespace veltrane {

/// One entry of the action menu as a given dealer sees it: the action's name, whether it is
/// new, whether the server completes it by itself, and its colour.
class FormAction {
public:
    /// No dictionary at all: every read gives its default and every write is
    /// dropped, until setRaw gives one.
    FormAction() = default;
    /// Keeps a one-level copy of the dictionary.
    explicit FormAction(const Dictionary& dictionary) : raw_(dictionary.mutableCopy()) {}

    /// The dictionary behind the entry; nothing for a default-made one.
    const std::optional<Dictionary>& raw() const noexcept { return raw_; }
    /// Keeps the very dictionary given: a read-only one makes every setter
    /// throw ValueError.
    void setRaw(std::optional<Dictionary> dictionary) { raw_ = std::move(dictionary); }

    /// "ID", a 32-bit integer.
    ///@{
    int32_t ID() const { return raw_ ? raw_->optInt("ID") : 0; }
    void setID(int32_t v) { write("ID", NSBoxInt(v)); }
    ///@}
    /// "Name", text.
    ///@{
    std::optional<std::string> name() const { return raw_ ? raw_->optString("Name") : std::nullopt; }
    void setName(std::optional<std::string> v) { writeText("Name", std::move(v)); }
    ///@}
    /// True when the integer reading of "IsNew" is not 0; written as 1 or 0.
    ///@{
    bool isNew() const { return raw_ && raw_->optInt("IsNew") != 0; }
    void setIsNew(bool v) { write("IsNew", NSBoxInt(v ? 1 : 0)); }
    ///@}
    /// True when the integer reading of "IsAuto" is not 0; written as 1 or 0.
    ///@{
    bool isAuto() const { return raw_ && raw_->optInt("IsAuto") != 0; }
    void setIsAuto(bool v) { write("IsAuto", NSBoxInt(v ? 1 : 0)); }
    ///@}
    /// "Background", text.
    ///@{
    std::optional<std::string> background() const { return raw_ ? raw_->optString("Background") : std::nullopt; }
    void setBackground(std::optional<std::string> v) { writeText("Background", std::move(v)); }
    ///@}

    /// GET "getActionList" with "userid" and "companyid": the menu of that
    /// dealer, a bad element dropped with its log line.
    static void listWithUserID(int32_t userID, int32_t andCompanyID, ResultCallback<std::vector<FormAction>> callback);

private:
    void write(std::string_view key, Value v) {
        if (raw_) raw_->set(key, std::move(v));
    }
    void writeText(std::string_view key, std::optional<std::string> v) {
        if (raw_) raw_->setValue(key, v ? std::optional<Value>(std::move(*v)) : std::nullopt);
    }

    std::optional<Dictionary> raw_;
};

} // namespace veltrane
