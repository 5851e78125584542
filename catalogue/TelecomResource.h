/// @file
/// A network resource at an address, and whether it is available.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A network resource at an address, and whether it is available.
class TelecomResource {
public:
    TelecomResource() = default;
    /// Copies "name" (as it stands); the integer value of "type" (absent is 0)
    /// makes a telephone resource (0), a broadband one (1), both (2) or neither;
    /// available is the integer value of "code" not being 0 (absent: false).
    /// Null or a container under "type" or "code" throws ValueError.
    explicit TelecomResource(const Dictionary& dictionary);

    /// "name".
    ///@{
    const std::optional<Value>& name() const noexcept { return name_; }
    void setName(std::optional<Value> v) { name_ = std::move(v); }
    ///@}
    /// Whether it serves a telephone ("type" 0 or 2).
    ///@{
    bool isTel() const noexcept { return isTel_; }
    void setIsTel(bool v) noexcept { isTel_ = v; }
    ///@}
    /// Whether it serves broadband ("type" 1 or 2).
    ///@{
    bool isWan() const noexcept { return isWan_; }
    void setIsWan(bool v) noexcept { isWan_ = v; }
    ///@}
    /// "code".
    ///@{
    bool available() const noexcept { return available_; }
    void setAvailable(bool v) noexcept { available_ = v; }
    ///@}

    /// GET "getResourceConfirm" with "areaCode", "siteID" and "addressID" (the
    /// third argument is the address, whatever its name says).
    static void list(int32_t areaCode, int32_t andSiteID, int32_t andSubAreaID, ResultCallback<std::vector<TelecomResource>> callback);

private:
    std::optional<Value> name_;
    bool isTel_ = false;
    bool isWan_ = false;
    bool available_ = false;
};

} // namespace veltrane
