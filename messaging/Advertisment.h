/// @file
/// A banner of the home screen's head row: its name, image and link.
#pragma once

#include <optional>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A banner of the home screen's head row: its name, image and link.
class Advertisment {
public:
    /// Takes "name", "icon" (the image) and "link" as they stand; ShowBanner
    /// is true exactly when the integer reading of "isbar" is 1. Throws
    /// ValueError for an "isbar" of null or a container.
    explicit Advertisment(const Dictionary& dictionary);

    /// "name".
    ///@{
    const std::optional<Value>& Name() const noexcept { return Name_; }
    void setName(std::optional<Value> v) { Name_ = std::move(v); }
    ///@}
    /// The banner's image address, read from "icon".
    ///@{
    const std::optional<Value>& ImageUrl() const noexcept { return ImageUrl_; }
    void setImageUrl(std::optional<Value> v) { ImageUrl_ = std::move(v); }
    ///@}
    /// "link".
    ///@{
    const std::optional<Value>& Link() const noexcept { return Link_; }
    void setLink(std::optional<Value> v) { Link_ = std::move(v); }
    ///@}
    /// Whether the banner shows (see showsBanner: "isbar" 1).
    ///@{
    bool ShowBanner() const noexcept { return ShowBanner_; }
    void setShowBanner(bool v) noexcept { ShowBanner_ = v; }
    ///@}

    /// GET "getHeadAd" with no parameters: every banner in order; one bad
    /// banner fails the list. No data is an empty list.
    static void listWithCallback(ResultCallback<std::vector<Advertisment>> callback);

private:
    std::optional<Value> Name_, ImageUrl_, Link_;
    bool ShowBanner_ = false;
};

} // namespace veltrane
