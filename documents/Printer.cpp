// Printer's listing and print requests.
#include "veltrane/documents/Printer.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void Printer::listPrinterOfCompany(int32_t companyID, ResultCallback<std::vector<Printer>> callback) {
    reply::get("getPrintServer", Dictionary{{"companyid", NSBoxInt(companyID)}},
               reply::convertListOrFail<Printer>(std::move(callback), "暂无可用打印机", reply::Guard::on));
}

void Printer::sendPrintRequestOfOrderID(long orderID, int32_t andPrinterID, int32_t andReceiptID, FlagCallback callback) {
    Dictionary params{{"id", NSBoxDouble(static_cast<double>(orderID))}, {"serverid", NSBoxInt(andPrinterID)}, {"receiptid", NSBoxInt(andReceiptID)}};
    reply::post("addprintlist", std::move(params), reply::flag(std::move(callback)));
}

} // namespace veltrane
