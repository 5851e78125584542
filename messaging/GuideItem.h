/// @file
/// A tile of the home screen: its name, icon, colours and what it opens, and
/// whether it shows in the banner row.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A tile of the home screen: its name, icon, colours and what it opens, and whether it shows
/// in the banner row.
class GuideItem {
public:
    /// Takes "name", "icon", "color", "select" and "link" as they stand;
    /// ShowBanner is true exactly when the integer reading of "isbar" is 1 (1,
    /// "1", true). Throws ValueError for an "isbar" of null or a container.
    explicit GuideItem(const Dictionary& dictionary);

    /// "name".
    ///@{
    const std::optional<Value>& Name() const noexcept { return Name_; }
    void setName(std::optional<Value> v) { Name_ = std::move(v); }
    ///@}
    /// An image address.
    ///@{
    const std::optional<Value>& Icon() const noexcept { return Icon_; }
    void setIcon(std::optional<Value> v) { Icon_ = std::move(v); }
    ///@}
    /// "color".
    ///@{
    const std::optional<Value>& Color() const noexcept { return Color_; }
    void setColor(std::optional<Value> v) { Color_ = std::move(v); }
    ///@}
    /// The selected tile's image or colour.
    ///@{
    const std::optional<Value>& Select() const noexcept { return Select_; }
    void setSelect(std::optional<Value> v) { Select_ = std::move(v); }
    ///@}
    /// What the tile opens: a function of the application or a web page.
    ///@{
    const std::optional<Value>& Link() const noexcept { return Link_; }
    void setLink(std::optional<Value> v) { Link_ = std::move(v); }
    ///@}
    /// Whether the tile shows as a banner (see showsBanner: "isbar" 1).
    ///@{
    bool ShowBanner() const noexcept { return ShowBanner_; }
    void setShowBanner(bool v) noexcept { ShowBanner_ = v; }
    ///@}

    /// GET "getAppsID" with "CompanyID" (32-bit): the company's tiles, a bad
    /// one dropped with its log line. Data that is not an array gives (false,
    /// "数据格式错误，请稍后重试", nothing).
    static void loadWithCompany(int32_t companyID, ResultCallback<std::vector<GuideItem>> callback);

private:
    std::optional<Value> Name_, Icon_, Color_, Select_, Link_;
    bool ShowBanner_ = false;
};

/// True exactly when the integer reading of "isbar" is 1; false when absent.
/// Throws ValueError for null or a container.
bool showsBanner(const Dictionary& tile);

} // namespace veltrane
