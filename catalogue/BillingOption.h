/// @file
/// A billing option (agreement) available for a plan item.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// A billing option (agreement) available for a plan item.
class BillingOption : public RawRecord {
public:
    /// Keeps a one-level copy of the dictionary.
    explicit BillingOption(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}

    /// "AgreementID", a 32-bit integer.
    ///@{
    int32_t ID() const { return raw_.optInt("AgreementID"); }
    void setID(int32_t v) { raw_.set("AgreementID", NSBoxInt(v)); }
    ///@}
    /// "AgreementName", text.
    ///@{
    std::optional<std::string> name() const { return text("AgreementName"); }
    void setName(std::optional<std::string> v) { setText("AgreementName", std::move(v)); }
    ///@}
    /// "AgreementDesc", text.
    ///@{
    std::optional<std::string> description() const { return text("AgreementDesc"); }
    void setDescription(std::optional<std::string> v) { setText("AgreementDesc", std::move(v)); }
    ///@}
    /// "Price", a number.
    float price() const { return raw_.optFloat("Price"); }
    /// Stored as a float: the fraction is kept.
    void setPrice(float v) { raw_.set("Price", NSBoxFloat(v)); }

    /// GET "getBillingOptions" with "planItemID" and "companyID"; one bad
    /// option fails the whole list.
    static void listWithPlanItemID(int32_t planItemID, int32_t andCompanyID, ResultCallback<std::vector<BillingOption>> callback);
};

} // namespace veltrane
