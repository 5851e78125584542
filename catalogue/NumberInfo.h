/// @file
/// A phone number on offer: listed page by page, locked while it is being
/// sold, unlocked when the sale is abandoned, and sent with an order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A phone number on offer: listed page by page, locked while it is being sold, unlocked when
/// the sale is abandoned, and sent with an order.
class NumberInfo {
public:
    /// An empty number (an empty dictionary behind it).
    NumberInfo() = default;
    /// Shares the dictionary and copies "Phone" and "UIM" (as they stand),
    /// "Rank" (integer value) and "Prestore" (float value); absent numbers are
    /// 0, a null or container where a number is read throws ValueError.
    explicit NumberInfo(const Dictionary& dictionary);

    /// "Phone".
    ///@{
    const std::optional<Value>& phoneNumber() const noexcept { return phoneNumber_; }
    void setPhoneNumber(std::optional<Value> v) { phoneNumber_ = std::move(v); }
    ///@}
    /// "Rank".
    ///@{
    int32_t rank() const noexcept { return rank_; }
    void setRank(int32_t v) noexcept { rank_ = v; }  // not written back to raw()
    ///@}
    /// "Prestore".
    ///@{
    float prefund() const noexcept { return prefund_; }
    void setPrefund(float v) noexcept { prefund_ = v; }
    ///@}
    /// "UIM".
    ///@{
    const std::optional<Value>& UIM() const noexcept { return UIM_; }
    void setUIM(std::optional<Value> v) { UIM_ = std::move(v); }
    ///@}

    /// What is sent with an order: a read-only copy of the dictionary with
    /// "Prestore" and "Price" set to prefund() (as floats: the price sent is the
    /// prepaid amount), "Phone" and "AccountNumber" to phoneNumber(), and, when
    /// UIM() is present, "UIM" and "UimCode" to it. The dictionary is unchanged.
    Dictionary raw() const;
    /// Replaces the dictionary the record was read from (its properties stay as they are).
    void setRaw(const Dictionary& dictionary) { dictionary_ = dictionary; }

    /// Equal when both phone numbers are present and are the same text.
    bool isEqual(const NumberInfo& other) const;

    /// GET "getPhonePages": "companyid", "rank", "PlanType" (only for networks 1
    /// and 2), "NetType" (the device filter, unsigned), "p", and "keyword" when
    /// keywords are given (unescaped; "" is sent). The result is a page of numbers.
    static void listWithCompany(int32_t company, unsigned long andNetwork, unsigned long andDevice, int32_t andRank,
                                std::optional<std::string> byKeywords, int32_t atPage, ResultCallback<DataPage<NumberInfo>> callback);
    /// POST "postLockPhone" / "postUnLockPhone" with exactly "companyid" and "phone".
    ///@{
    static void lockPhoneNumber(std::string phoneNumber, int32_t ofCompany, FlagCallback callback);
    static void unlockPhoneNumber(std::string phoneNumber, int32_t ofCompany, FlagCallback callback);
    ///@}

    /// A number rebuilt from an action-form order's info: its keys plus "Phone"
    /// from "AccountNumber", "Prestore" from "Price" and "UIM" from the text of
    /// "UimCode" (a missing source removes the key). Throws as the constructor.
    static NumberInfo loadFromActionOrderInfo(const Dictionary& info);

private:
    Dictionary dictionary_;
    std::optional<Value> phoneNumber_;
    int32_t rank_ = 0;
    float prefund_ = 0;
    std::optional<Value> UIM_;
};

/// "13912345678" as "139 1234 5678": the first 3 UTF-16 units, the next 4 and
/// the rest, joined by blanks. Text shorter than 7 units comes back unchanged.
std::string stringFormattedAsPhoneNumber(std::string_view phoneNumber);

/// The display name of a network type: 0 "全部网络", 1 "省内CRM(3G)",
/// 2 "集团CRM(4G)"; nothing for any other type.
std::optional<std::string> stringForNumberType(unsigned long type);

} // namespace veltrane
