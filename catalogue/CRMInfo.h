/// @file
/// A subscriber's record in the operator's customer-relationship system: who
/// owns a service number and under which identity.
#pragma once

#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// A subscriber's record in the operator's customer-relationship system: who owns a service
/// number and under which identity.
class CRMInfo : public RawRecord {
public:
    /// An empty record whose dictionary is read-only: its setters throw ValueError.
    CRMInfo() : RawRecord(Dictionary().immutableCopy(), Keeps::shared) {}
    /// Keeps the very dictionary given; setters write into it.
    explicit CRMInfo(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::shared) {}
    /// Makes dictionary itself the one behind the record.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::shared); }

    /// Every property is text, read live; setting nothing removes the key.
    ///@{
    std::optional<std::string> customerID() const { return text("CustomerID"); }
    void setCustomerID(std::optional<std::string> v) { setText("CustomerID", std::move(v)); }
    ///@}
    /// "CustomerName", text.
    ///@{
    std::optional<std::string> customerName() const { return text("CustomerName"); }
    void setCustomerName(std::optional<std::string> v) { setText("CustomerName", std::move(v)); }
    ///@}
    /// "IdentityType", text.
    ///@{
    std::optional<std::string> identityType() const { return text("IdentityType"); }
    void setIdentityType(std::optional<std::string> v) { setText("IdentityType", std::move(v)); }
    ///@}
    /// "IdentityNumber", text.
    ///@{
    std::optional<std::string> identityNumber() const { return text("IdentityNumber"); }
    void setIdentityNumber(std::optional<std::string> v) { setText("IdentityNumber", std::move(v)); }
    ///@}
    /// "IdentityName", text.
    ///@{
    std::optional<std::string> identityName() const { return text("IdentityName"); }
    void setIdentityName(std::optional<std::string> v) { setText("IdentityName", std::move(v)); }
    ///@}
    /// "NumberTypeID", text.
    ///@{
    std::optional<std::string> numberTypeID() const { return text("NumberTypeID"); }
    void setNumberTypeID(std::optional<std::string> v) { setText("NumberTypeID", std::move(v)); }
    ///@}
    /// "NumberTypeName", text.
    ///@{
    std::optional<std::string> numberTypeName() const { return text("NumberTypeName"); }
    void setNumberTypeName(std::optional<std::string> v) { setText("NumberTypeName", std::move(v)); }
    ///@}
    /// "AreaCode", text.
    ///@{
    std::optional<std::string> areaCode() const { return text("AreaCode"); }
    void setAreaCode(std::optional<std::string> v) { setText("AreaCode", std::move(v)); }
    ///@}
    /// "AccountNumber", text.
    ///@{
    std::optional<std::string> accountNumber() const { return text("AccountNumber"); }
    void setAccountNumber(std::optional<std::string> v) { setText("AccountNumber", std::move(v)); }
    ///@}

    /// GET "checkCRMInfo" with "number" and "userID" (the signed-in user's ID,
    /// word-sized; 0 when nobody is signed in). Success needs a dictionary as
    /// data: anything else gives (false, the server's message, nothing).
    static void checkWithBusinessNumber(std::string number, ResultCallback<CRMInfo> andCallback);
};

} // namespace veltrane
