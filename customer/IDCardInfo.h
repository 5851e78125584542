/// @file
/// The content of one identity card (name, gender, nation, birthday, address,
/// number, issuing authority, validity period, photo, the card's two image
/// addresses), with the calls that fetch one card and upload one.
#pragma once

#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// The content of one identity card (name, gender, nation, birthday, address, number, issuing
/// authority, validity period, photo, the card's two image addresses), with the calls that
/// fetch one card and upload one.
class IDCardInfo {
public:
    /// Every property unset. Writes the log line "new init" (only this
    /// constructor does).
    IDCardInfo();
    /// Copies "Name", "Gender", "Nation", "Birthday", "Address", "Number",
    /// "IssuingAuthority", "ValidityPeriod", "CardFrontUrl" and "CardBackUrl"
    /// as text, and the photo as the strict base64 decoding of "Picture" when
    /// that key holds text (a text that is not strict base64, line breaks
    /// included, leaves it unset, as do JSON null and an absent key).
    explicit IDCardInfo(const Dictionary& dictionary);

    /// "Name".
    ///@{
    const std::optional<std::string>& name() const noexcept { return name_; }
    void setName(std::optional<std::string> v) { name_ = std::move(v); }
    ///@}
    /// "Gender".
    ///@{
    const std::optional<std::string>& gender() const noexcept { return gender_; }
    void setGender(std::optional<std::string> v) { gender_ = std::move(v); }
    ///@}
    /// From "Nation".
    ///@{
    const std::optional<std::string>& nationality() const noexcept { return nationality_; }
    void setNationality(std::optional<std::string> v) { nationality_ = std::move(v); }
    ///@}
    /// Text, never parsed.
    ///@{
    const std::optional<std::string>& birthday() const noexcept { return birthday_; }
    void setBirthday(std::optional<std::string> v) { birthday_ = std::move(v); }
    ///@}
    /// "Address".
    ///@{
    const std::optional<std::string>& address() const noexcept { return address_; }
    void setAddress(std::optional<std::string> v) { address_ = std::move(v); }
    ///@}
    /// The identity card number, from "Number".
    ///@{
    const std::optional<std::string>& serial() const noexcept { return serial_; }
    void setSerial(std::optional<std::string> v) { serial_ = std::move(v); }
    ///@}
    /// "IssuingAuthority".
    ///@{
    const std::optional<std::string>& issuingAuthority() const noexcept { return issuingAuthority_; }
    void setIssuingAuthority(std::optional<std::string> v) { issuingAuthority_ = std::move(v); }
    ///@}
    /// "ValidityPeriod".
    ///@{
    const std::optional<std::string>& validityPeriod() const noexcept { return validityPeriod_; }
    void setValidityPeriod(std::optional<std::string> v) { validityPeriod_ = std::move(v); }
    ///@}
    /// The photo's bytes.
    ///@{
    const std::optional<std::string>& photo() const noexcept { return photo_; }
    void setPhoto(std::optional<std::string> v) { photo_ = std::move(v); }
    ///@}
    /// "CardFrontUrl".
    ///@{
    const std::optional<std::string>& frontCardImageUrl() const noexcept { return frontCardImageUrl_; }
    void setFrontCardImageUrl(std::optional<std::string> v) { frontCardImageUrl_ = std::move(v); }
    ///@}
    /// "CardBackUrl".
    ///@{
    const std::optional<std::string>& backCardImageUrl() const noexcept { return backCardImageUrl_; }
    void setBackCardImageUrl(std::optional<std::string> v) { backCardImageUrl_ = std::move(v); }
    ///@}

    /// A card rebuilt from an action-form order's info: all its keys, with
    /// "Address", "Name", "Number", "CardFrontUrl" and "CardBackUrl" taken from
    /// the text of "CustomerAddress", "CustomerName", "CustomerIdentity",
    /// "CustomerPhotoFront" and "CustomerPhotoBack" (the customer's keys win; a
    /// missing one removes the key).
    static IDCardInfo loadFromActionOrderInfo(const Dictionary& info);

    /// GET "getIdcardInfo" with "idcardid" (32-bit): the card with that index.
    static void getCardInfoWithIndex(int32_t index, ResultCallback<IDCardInfo> callback);

    /// The six entries the screens use, JSON null for an unset property:
    /// "name", "gender", "nationality", "address", "idNumber", "issuingAuthority".
    Dictionary dictionaryWithIDCardInfo() const;

    /// POST "postIdcard" with "username" (the signed-in user's sign-in name)
    /// and "idcard": the card's set fields as "Key=value&..." in the order
    /// Name, Gender, Nation, Birthday, Address, Number, IssuingAuthority,
    /// ValidityPeriod, Picture (the photo as standard base64), each value
    /// percent-encoded with the URL-path set. The completion gets (flag,
    /// message, flag). With nobody signed in nothing is sent and the
    /// completion is never called. Throws std::out_of_range, before anything
    /// is sent, for a card with no field set.
    static void uploadCardInfo(const IDCardInfo& card, FlagCallback callback);

private:
    std::optional<std::string> name_, gender_, nationality_, birthday_, address_, serial_, issuingAuthority_, validityPeriod_, photo_,
        frontCardImageUrl_, backCardImageUrl_;
};

} // namespace veltrane
