/// @file
/// One print server of the dealer's company, and the calls that list them and
/// send a receipt to one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// One print server of the dealer's company, and the calls that list them and send a receipt
/// to one.
class Printer {
public:
    Printer() = default;
    /// Copies "ID" (32-bit) and "PrintName" (text).
    explicit Printer(const Dictionary& dictionary) : ID_(dictionary.optInt("ID")), Name_(dictionary.optString("PrintName")) {}

    /// The print server's "ID", to send a receipt to.
    ///@{
    int32_t ID() const noexcept { return ID_; }
    void setID(int32_t v) noexcept { ID_ = v; }
    ///@}
    /// From "PrintName".
    ///@{
    const std::optional<std::string>& Name() const noexcept { return Name_; }
    void setName(std::optional<std::string> v) { Name_ = std::move(v); }
    ///@}

    /// GET "getPrintServer" with "companyid" (32-bit). Data that is not an
    /// array gives (false, "暂无可用打印机", nothing); an empty array is a
    /// success with no printer.
    static void listPrinterOfCompany(int32_t companyID, ResultCallback<std::vector<Printer>> callback);
    /// POST "addprintlist" with "id" (the order, as a double: identifiers
    /// beyond 2^53 lose precision), "serverid" and "receiptid" (32-bit).
    static void sendPrintRequestOfOrderID(long orderID, int32_t andPrinterID, int32_t andReceiptID, FlagCallback callback);

private:
    int32_t ID_ = 0;
    std::optional<std::string> Name_;
};

} // namespace veltrane
