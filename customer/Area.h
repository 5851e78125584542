/// @file
/// One node of the operator's area tree: a city, or a district under it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// One node of the operator's area tree: a city, or a district under it.
class Area {
public:
    /// ID 0, no title, an empty dictionary.
    Area() = default;
    /// Keeps the very dictionary given; copies "ID" (its own integer reading:
    /// a number or a text of digits; absent gives 0; JSON null or a container
    /// throws ValueError) and "Title" as it stands.
    explicit Area(const Dictionary& dictionary) : ID_(dictionary.intValue("ID")), title_(dictionary.optValue("Title")), raw_(dictionary) {}

    /// "ID": the area to send ("CTCityID", "CTAreaID").
    ///@{
    int32_t ID() const noexcept { return ID_; }
    void setID(int32_t v) noexcept { ID_ = v; }
    ///@}
    /// "Title", as it stands ("广州市").
    ///@{
    const std::optional<Value>& title() const noexcept { return title_; }
    void setTitle(std::optional<Value> v) { title_ = std::move(v); }
    ///@}
    /// The dictionary the area was read from.
    ///@{
    const Dictionary& raw() const noexcept { return raw_; }
    void setRaw(const Dictionary& v) { raw_ = v; }
    ///@}

    /// GET "getTelecomArea" with "pid" (32-bit): the children of that area.
    /// An element that is not an area is dropped with its log line.
    static void list(int32_t parentID, ResultCallback<std::vector<Area>> callback);

private:
    int32_t ID_ = 0;
    std::optional<Value> title_;
    Dictionary raw_;
};

} // namespace veltrane
