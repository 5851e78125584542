/// @file
/// One member line (product) of a subscriber's offer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// One member line (product) of a subscriber's offer.
class OfferMember : public RawRecord {
public:
    /// A new, empty, writable dictionary; isLoadedFromDict() is false.
    OfferMember() = default;
    /// Keeps a one-level copy with "subProdAccNbr" set from the given "accNbr"
    /// (removed when there is none); isLoadedFromDict() is true.
    explicit OfferMember(const Dictionary& dictionary);
    /// Keeps the very dictionary given.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::shared); }

    /// Whether the member was read from a dictionary (the dictionary constructor).
    bool isLoadedFromDict() const noexcept { return isLoadedFromDict_; }

    /// Read from "accNbr"; written to both "accNbr" and "subProdAccNbr".
    ///@{
    std::optional<std::string> accountNumber() const { return text("accNbr"); }
    void setAccountNumber(std::optional<std::string> v);
    ///@}
    /// "areaCode", text.
    ///@{
    std::optional<std::string> areaCode() const { return text("areaCode"); }
    void setAreaCode(std::optional<std::string> v) { setText("areaCode", std::move(v)); }
    ///@}
    /// "custId", text.
    ///@{
    std::optional<std::string> customerID() const { return text("custId"); }
    void setCustomerID(std::optional<std::string> v) { setText("custId", std::move(v)); }
    ///@}
    /// "prodId", text.
    ///@{
    std::optional<std::string> productID() const { return text("prodId"); }
    void setProductID(std::optional<std::string> v) { setText("prodId", std::move(v)); }
    ///@}
    /// "prodSpecId", text.
    ///@{
    std::optional<std::string> productSpecID() const { return text("prodSpecId"); }
    void setProductSpecID(std::optional<std::string> v) { setText("prodSpecId", std::move(v)); }
    ///@}
    /// "prodSpecName", text.
    ///@{
    std::optional<std::string> productSpecName() const { return text("prodSpecName"); }
    void setProductSpecName(std::optional<std::string> v) { setText("prodSpecName", std::move(v)); }
    ///@}
    /// The SIM card number as the server gives it: "UIM", else "UimCode";
    /// written to both.
    ///@{
    std::optional<Value> uim() const;
    void setUim(std::optional<Value> v);
    ///@}

    /// One-sided: every entry of this member's dictionary must stand, equal,
    /// in the other's; entries only the other has are not looked at.
    bool isEqual(const OfferMember& other) const;

    /// GET "getOfferMembers" with "CompanyID" and, when given, "AcctNbr".
    static void getWithCompanyID(int32_t companyID, std::optional<std::string> andAcctNbr, ResultCallback<std::vector<OfferMember>> callback);
    /// A member rebuilt from an action-form order's info (see the definition
    /// for the keys it moves).
    static OfferMember loadFromActionFormOrder(const Dictionary& info);

private:
    bool isLoadedFromDict_ = false;
};

} // namespace veltrane
