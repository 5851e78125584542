// The demo's document steps, on the business action's order: its agreements
// ticked and their sheets made, its receipt printed, and the customer's
// signed copy uploaded with its progress shown, the receipt's display path
// before and after.
#include "cli/Demo.h"
#include "veltrane/documents/Agreement.h"
#include "veltrane/documents/Printer.h"
#include "veltrane/documents/Receipt.h"
#include "veltrane/orders/ActionFormOrderDetail.h"
#include "veltrane/platform/Dispatch.h"

namespace veltrane::cli {

namespace {

constexpr int32_t kCompany = 1;

// A signed copy as the signing pad makes it: a PDF of some size.
std::string signedPdf() {
    std::string pdf = "%PDF-1.4\n% signed by the customer at the counter\n";
    while (pdf.size() < 300 * 1024) pdf += "0 0 m 595 842 l S % pen stroke\n";
    return pdf + "%%EOF\n";
}

// The order's first receipt, as the server has it now.
std::optional<Receipt> firstReceipt(const ActionFormOrderSubmitResult& order, Transcript& t) {
    auto detail = await<ActionFormOrderDetail>([&](auto done) { ActionFormOrderDetail::getDetailOfOrder(order.ID(), done); });
    if (!received(t, "getOrderInfo", detail)) return std::nullopt;
    const std::optional<std::vector<Receipt>>& receipts = detail.result->receipts();
    if (!receipts || receipts->empty()) {
        t.line("the order has no receipt");
        return std::nullopt;
    }
    return detach(receipts->front());
}

} // namespace

std::vector<Step> documentSteps() {
    return {
        {"Agreements of the order, ticked, and their sheets", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.actionOrder && sale.actionOrder->SN(), "the action-form order")) return;
             std::string SN = *sale.actionOrder->SN();
             auto agreements = await<std::vector<Agreement>>([&](auto done) { Agreement::listWithSN(SN, done); });
             if (!received(t, "getAgreementList", agreements)) return;
             std::vector<Value> ticked;
             for (Agreement& a : *agreements.result) {
                 a.setChecked(true);
                 ticked.emplace_back(a.ID());
                 t.line(std::string(a.checked() ? "[x] " : "[ ] ") + text(a.name()));
             }
             auto sheets = await<std::vector<std::string>>([&](auto done) { Agreement::createSheetWithSN(SN, ticked, done); });
             if (!received(t, "createAgreementSheet", sheets)) return;
             for (const std::string& sheet : *sheets.result) t.line("sheet " + sheet);
         }},
        {"Print servers and a print request", [](Sale& sale, Transcript& t) {
             auto printers = await<std::vector<Printer>>([](auto done) { Printer::listPrinterOfCompany(kCompany, done); });
             if (!received(t, "getPrintServer", printers)) return;
             for (const Printer& p : *printers.result) t.line("#" + std::to_string(p.ID()) + " " + text(p.Name()));
             if (printers.result->empty()) return t.line("no printer to send to");
             if (!t.needs(sale.actionOrder.has_value(), "the action-form order")) return;
             const ActionFormOrderSubmitResult& order = *sale.actionOrder;
             auto sent = awaitFlag([&](auto done) {
                 Printer::sendPrintRequestOfOrderID(order.ID(), printers.result->front().ID(), order.recID(), done);
             });
             if (!sent.success) return t.failed("addprintlist", sent.message);
             t.line("receipt " + std::to_string(order.recID()) + " sent to " + text(printers.result->front().Name()) + ": " + text(sent.message));
         }},
        {"The customer's signed copy, uploaded", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.actionOrder.has_value(), "the action-form order")) return;
             std::optional<Receipt> receipt = firstReceipt(*sale.actionOrder, t);
             if (!t.needs(receipt.has_value(), "the order's receipt")) return;
             t.line("shown from " + text(receipt->showingPath()));
             std::optional<std::pair<bool, std::optional<std::string>>> outcome;
             receipt->uploadSignaturePDF(
                 signedPdf(), [&](bool ok, std::optional<std::string> message) { outcome.emplace(ok, std::move(message)); },
                 [&](uint64_t sent, uint64_t total) { t.line("sent " + std::to_string(sent) + " of " + std::to_string(total) + " bytes"); });
             // The upload reports on the main queue, which this thread drives.
             Dispatch::mainQueue().runFor(std::chrono::seconds(60), [&] { return outcome.has_value(); });
             if (!outcome) return t.failed("common/upload", std::string("no answer within 60 s"));
             if (!outcome->first) return t.failed("common/upload", outcome->second);
             t.line(text(outcome->second));
             if (std::optional<Receipt> after = firstReceipt(*sale.actionOrder, t)) t.line("now shown from " + text(after->showingPath()));
         }},
    };
}

} // namespace veltrane::cli
