/// @file
/// Who in the accepting centre took an order over, with a contact number and
/// the time.
#pragma once

#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Date.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// Who in the accepting centre took an order over, with a contact number and the time.
class AcceptingInfo {
public:
    /// Keeps the very dictionary given; copies "UserName", "Phone" and "AcpName"
    /// as text and "CreateTime" as whole seconds since 1970 (absent: 1970).
    explicit AcceptingInfo(const Dictionary& dictionary)
        : raw_(dictionary),
          userName_(dictionary.optString("UserName")),
          contactTel_(dictionary.optString("Phone")),
          acceptingCenterName_(dictionary.optString("AcpName")),
          createTime_(Date::dateWithTimeIntervalSince1970(static_cast<double>(dictionary.optLong("CreateTime")))) {}

    /// The dictionary it was read from.
    const Dictionary& raw() const noexcept { return raw_; }
    /// The person who accepted the order.
    const std::optional<std::string>& userName() const noexcept { return userName_; }
    /// From "Phone".
    const std::optional<std::string>& contactTel() const noexcept { return contactTel_; }
    /// The accepting centre, from "AcpName".
    const std::optional<std::string>& acceptingCenterName() const noexcept { return acceptingCenterName_; }
    /// When the order was taken over ("CreateTime").
    Date createTime() const noexcept { return createTime_; }

    /// GET "getAcceptUserInfo" with "SN". A reply whose "code" is not 0 gives
    /// the record under its "data"; code 0 (not accepted yet) is a success
    /// with nothing.
    static void getWithSN(std::string SN, ResultCallback<AcceptingInfo> callback);

private:
    Dictionary raw_;
    std::optional<std::string> userName_;
    std::optional<std::string> contactTel_;
    std::optional<std::string> acceptingCenterName_;
    Date createTime_;
};

} // namespace veltrane
