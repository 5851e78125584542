/// @file
/// An action-form order read back whole: the order with its actions, the
/// server's info dictionary, the filled forms, the receipts and signed
/// receipts, the processing history and the subscriber's data.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "veltrane/catalogue/CRMInfo.h"
#include "veltrane/documents/Receipt.h"
#include "veltrane/foundation/Callbacks.h"
#include "veltrane/orders/ActionFormData.h"
#include "veltrane/orders/ActionFormOrder.h"
#include "veltrane/orders/ActionFormOrderRecord.h"

namespace veltrane {

/// An action-form order read back whole: the order with its actions, the server's info
/// dictionary, the filled forms, the receipts and signed receipts, the processing history and
/// the subscriber's data.
class ActionFormOrderDetail {
public:
    /// Reads the reply of "getOrderInfo", logged first. The order is built from
    /// a one-level copy of "orderInfo" to which "ActionList" is added: the
    /// "action" of every element of "data", in order. An element of "data"
    /// that is not a dictionary or has no "action" throws ValueError located at
    /// it. The lists go through the tolerant list conversion (a bad element is
    /// dropped with its log line; nothing when the key holds no array).
    explicit ActionFormOrderDetail(const Dictionary& reply);

    /// The order, with its actions under "ActionList".
    const ActionFormOrder& order() const noexcept { return order_; }
    /// "orderInfo" as the server sent it, without "ActionList".
    const Dictionary& info() const noexcept { return info_; }
    /// "data".
    const std::optional<std::vector<ActionFormData>>& forms() const noexcept { return forms_; }
    /// "Receipt".
    const std::optional<std::vector<Receipt>>& receipts() const noexcept { return receipts_; }
    /// "Sign".
    const std::optional<std::vector<Receipt>>& signedReceipts() const noexcept { return signedReceipts_; }
    /// "Records".
    const std::optional<std::vector<ActionFormOrderRecord>>& records() const noexcept { return records_; }
    /// "crmInfo".
    const CRMInfo& crmInfo() const noexcept { return crmInfo_; }

    /// GET "getOrderInfo" with "orderid" (32-bit): the order's detail; a
    /// reply it cannot read gives (false, "getOrderInfo: <where>: <why>",
    /// nothing).
    static void getDetailOfOrder(int32_t orderID, ResultCallback<ActionFormOrderDetail> callback);

private:
    ActionFormOrder order_;
    Dictionary info_;
    std::optional<std::vector<ActionFormData>> forms_;
    std::optional<std::vector<Receipt>> receipts_, signedReceipts_;
    std::optional<std::vector<ActionFormOrderRecord>> records_;
    CRMInfo crmInfo_;
};

} // namespace veltrane
