/// @file
/// A device (goods) record: paged through, found and locked by IMEI while it
/// is being sold, and sent with an order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A device (goods) record: paged through, found and locked by IMEI while it is being sold,
/// and sent with an order.
class ProductInfo {
public:
    ProductInfo() = default;
    /// Shares the dictionary and copies "ID" (integer value), the name ("Name",
    /// else "GoodsName", else "Title", as it stands), "IMEI" and "Picture" (as
    /// they stand) and "Price" (double value narrowed to float, also the deal
    /// price). A null or container where a number is read throws ValueError.
    explicit ProductInfo(const Dictionary& dictionary);

    /// "ID".
    ///@{
    int32_t ID() const noexcept { return ID_; }
    void setID(int32_t v) noexcept { ID_ = v; }
    ///@}
    /// "Name".
    ///@{
    const std::optional<Value>& name() const noexcept { return name_; }
    void setName(std::optional<Value> v) { name_ = std::move(v); }
    ///@}
    /// "IMEI".
    ///@{
    const std::optional<Value>& serial() const noexcept { return serial_; }
    void setSerial(std::optional<Value> v) { serial_ = std::move(v); }
    ///@}
    /// "Picture".
    ///@{
    const std::optional<Value>& picture() const noexcept { return picture_; }
    void setPicture(std::optional<Value> v) { picture_ = std::move(v); }
    ///@}
    /// "Price".
    ///@{
    float price() const noexcept { return price_; }
    void setPrice(float v) noexcept { price_ = v; }
    ///@}
    /// The price agreed with the customer; the list price until changed.
    ///@{
    float dealPrice() const noexcept { return dealPrice_; }
    void setDealPrice(float v) noexcept { dealPrice_ = v; }
    ///@}

    /// What is sent with an order: a writable copy of the dictionary with "ID",
    /// "Name", "Picture" and "IMEI" from the properties (an absent one removes
    /// its key) and "dealPrice" and "Price" both set to the deal price truncated
    /// to a whole number (49.9 is sent as 49). The dictionary is unchanged; a
    /// device made with the default constructor starts from an empty one.
    Dictionary raw() const;
    /// Replaces the dictionary the record was read from (its properties stay as they are).
    void setRaw(const Dictionary& dictionary) { dictionary_ = dictionary; }

    /// GET "getGoodsPages": "p", "companyid", and "keyword" (legacy
    /// URL-escaped UTF-8) when keywords are present and not empty.
    static void listForCompany(int32_t company, int32_t withPage, std::optional<std::string> andKeywords,
                               ResultCallback<DataPage<ProductInfo>> callback);
    /// GET "getGoodsPagesWithIMEI": "companyid", "imei", "goodsid" (-1 for any
    /// goods line). An absent or empty IMEI sends nothing and completes at
    /// once with (false, "no IMEI", nothing).
    static void listForCompany(int32_t company, const std::optional<std::string>& withIMEI, int32_t restrictForGoodsID,
                               ResultCallback<DataPage<ProductInfo>> callback);
    /// The same for any goods line (goodsid -1).
    static void listForCompany(int32_t company, const std::optional<std::string>& withIMEI, ResultCallback<DataPage<ProductInfo>> callback);
    /// GET "getGoodsByIMEI" with exactly "companyid" and "imei": one device.
    static void checkIMEI(std::string IMEI, int32_t ofCompany, ResultCallback<ProductInfo> callback);
    /// POST "postLockImei" / "postUnLockImei" with exactly "companyid" and "imei".
    ///@{
    static void lockIMEI(std::string IMEI, int32_t ofCompany, FlagCallback callback);
    static void unlockIMEI(std::string IMEI, int32_t ofCompany, FlagCallback callback);
    ///@}
    /// GET "getInfo" with "goodsid" and "companyid": the reply's data as it
    /// stands on success, nothing on failure.
    static void getInfoOfProduct(int32_t productID, int32_t withCompany, ResultCallback<Value> callback);

private:
    Dictionary dictionary_;
    int32_t ID_ = 0;
    std::optional<Value> name_;
    std::optional<Value> serial_;
    std::optional<Value> picture_;
    float price_ = 0;
    float dealPrice_ = 0;
};

} // namespace veltrane
