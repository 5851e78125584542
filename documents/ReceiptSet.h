/// @file
/// The receipt files of one order, grouped.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/documents/Receipt.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// The receipt files of one order, grouped.
class ReceiptSet {
public:
    /// Keeps the very dictionary given; copies "DisplayIndex" (32-bit),
    /// "OrderID" (64-bit), "SN" (text), and one Receipt per element of
    /// "Files", in order (none without "Files"). An element that is not a
    /// dictionary throws ValueError ("Files[2]: ...").
    explicit ReceiptSet(const Dictionary& dictionary);

    /// The dictionary it was read from.
    const Dictionary& raw() const noexcept { return raw_; }
    /// "DisplayIndex": where the set is shown among the order's.
    int32_t displayIndex() const noexcept { return displayIndex_; }
    /// "OrderID".
    int64_t orderID() const noexcept { return orderID_; }
    /// "SN".
    const std::optional<std::string>& SN() const noexcept { return SN_; }
    /// The receipts of "Files", in order.
    const std::vector<Receipt>& files() const noexcept { return files_; }

private:
    Dictionary raw_;
    int32_t displayIndex_;
    int64_t orderID_;
    std::optional<std::string> SN_;
    std::vector<Receipt> files_;
};

} // namespace veltrane
