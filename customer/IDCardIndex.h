/// @file
/// One line of the paged list of identity cards stored for a company.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// One line of the paged list of identity cards stored for a company.
class IDCardIndex {
public:
    IDCardIndex() = default;
    /// Copies "ID" (32-bit), "Name" and "Number" (as text).
    explicit IDCardIndex(const Dictionary& dictionary)
        : ID_(dictionary.optInt("ID")), name_(dictionary.optString("Name")), serial_(dictionary.optString("Number")) {}

    /// The index to fetch the card with (IDCardInfo::getCardInfoWithIndex).
    ///@{
    int32_t ID() const noexcept { return ID_; }
    void setID(int32_t v) noexcept { ID_ = v; }
    ///@}
    /// The card holder's name, "Name".
    ///@{
    const std::optional<std::string>& name() const noexcept { return name_; }
    void setName(std::optional<std::string> v) { name_ = std::move(v); }
    ///@}
    /// The card number.
    ///@{
    const std::optional<std::string>& serial() const noexcept { return serial_; }
    void setSerial(std::optional<std::string> v) { serial_ = std::move(v); }
    ///@}

    /// GET "getIdcardPages" with "companyid" (32-bit), no page number (the
    /// server's first page): a page of card lines.
    static void listWithCompanyID(int32_t companyID, ResultCallback<DataPage<IDCardIndex>> callback);

private:
    int32_t ID_ = 0;
    std::optional<std::string> name_;
    std::optional<std::string> serial_;
};

} // namespace veltrane
