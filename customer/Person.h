/// @file
/// The customer, or the agent who acts for the customer, as the sales screens
/// fill them in: name, address, identity number and the card's two photos
/// (local cache paths and server addresses). No server call of its own.
#pragma once

#include <optional>

#include "veltrane/foundation/Value.h"

namespace veltrane {

/// The customer, or the agent who acts for the customer, as the sales screens fill them in:
/// name, address, identity number and the card's two photos (local cache paths and server
/// addresses).
class Person {
public:
    /// Every property the empty text "", so that a new person is empty and
    /// every property can be measured at once.
    Person();

    /// Texts as a rule; a person read from an order holds the server's values
    /// as they stand (a number or JSON null included), and nothing means unset.
    ///@{
    const std::optional<Value>& name() const noexcept { return name_; }
    void setName(std::optional<Value> v) { name_ = std::move(v); }
    ///@}
    /// The address on the identity card.
    ///@{
    const std::optional<Value>& address() const noexcept { return address_; }
    void setAddress(std::optional<Value> v) { address_ = std::move(v); }
    ///@}
    /// The identity card's number.
    ///@{
    const std::optional<Value>& idCardNumber() const noexcept { return idCardNumber_; }
    void setIdCardNumber(std::optional<Value> v) { idCardNumber_ = std::move(v); }
    ///@}
    /// Where the screens keep the photos of the card's front and back on the device.
    ///@{
    const std::optional<Value>& idCardPhotoFrontCachePath() const noexcept { return idCardPhotoFrontCachePath_; }
    void setIdCardPhotoFrontCachePath(std::optional<Value> v) { idCardPhotoFrontCachePath_ = std::move(v); }
    const std::optional<Value>& idCardPhotoBackCachePath() const noexcept { return idCardPhotoBackCachePath_; }
    void setIdCardPhotoBackCachePath(std::optional<Value> v) { idCardPhotoBackCachePath_ = std::move(v); }
    ///@}
    /// The server's addresses of the photos of the card's front and back.
    ///@{
    const std::optional<Value>& idCardPhotoFrontUrl() const noexcept { return idCardPhotoFrontUrl_; }
    void setIdCardPhotoFrontUrl(std::optional<Value> v) { idCardPhotoFrontUrl_ = std::move(v); }
    const std::optional<Value>& idCardPhotoBackUrl() const noexcept { return idCardPhotoBackUrl_; }
    void setIdCardPhotoBackUrl(std::optional<Value> v) { idCardPhotoBackUrl_ = std::move(v); }
    ///@}

    /// Whether name, address, identity number and the two photo addresses are
    /// all empty (their lengths add up to 0). The two cache paths do not
    /// count: a person with locally cached photos only is still empty. Unset
    /// and JSON null count 0; a value that is not text counts as present.
    bool isEmpty() const;

private:
    std::optional<Value> name_, address_, idCardNumber_, idCardPhotoFrontCachePath_, idCardPhotoBackCachePath_, idCardPhotoFrontUrl_,
        idCardPhotoBackUrl_;
};

} // namespace veltrane
