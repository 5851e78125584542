/// @file
/// An order tag (label) of a dealer company, copied from the server's record.
#pragma once

#include <cstdint>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// An order tag (label) of a dealer company, copied from the server's record.
class Tag {
public:
    Tag() = default;
    /// Copies "ID" (integer value; absent is 0, null throws ValueError),
    /// "Content" and "Title" (as they stand; nothing when absent).
    explicit Tag(const Dictionary& dictionary);

    /// "ID".
    ///@{
    int32_t ID() const noexcept { return ID_; }
    void setID(int32_t v) noexcept { ID_ = v; }
    ///@}
    /// "Content".
    ///@{
    const std::optional<Value>& content() const noexcept { return content_; }
    void setContent(std::optional<Value> v) { content_ = std::move(v); }
    ///@}
    /// "Title".
    ///@{
    const std::optional<Value>& title() const noexcept { return title_; }
    void setTitle(std::optional<Value> v) { title_ = std::move(v); }
    ///@}

    /// GET "getLabel" with "type" (unsigned) and "companyid" (32-bit); the
    /// result is the tags of the reply's list.
    static void listWithCompany(int32_t company, unsigned long andOrderType, ResultCallback<std::vector<Tag>> callback);

private:
    int32_t ID_ = 0;
    std::optional<Value> content_;
    std::optional<Value> title_;
};

} // namespace veltrane
