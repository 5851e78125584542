// Receipts: their paths and the signature upload.
#include "veltrane/documents/Receipt.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/orders/ActionFormOrderSubmitResult.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/HTTPSession.h"

namespace veltrane {

namespace {

std::string fileURL(const std::string& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return "file://" + percentEncodeURLPath((error ? std::filesystem::path(path) : absolute).string());
}

// base and path with exactly one "/" between them.
std::string joined(std::string base, std::string_view path) {
    while (!base.empty() && base.back() == '/') base.pop_back();
    while (!path.empty() && path.front() == '/') path.remove_prefix(1);
    return base + "/" + std::string(path);
}

Dictionary submittedReceipt(const ActionFormOrderSubmitResult& result, const std::string& pdfPath) {
    if (!result.SN()) throw std::invalid_argument("Receipt: the submit result has no SN");
    return Dictionary{{"ID", NSBoxInt(static_cast<int32_t>(result.recID()))}, {"SN", *result.SN()}, {"CRMXML", fileURL(pdfPath)}};
}

} // namespace

Receipt::Receipt(const ActionFormOrderSubmitResult& submitResult, const std::string& andPdfFilePath)
    : RawRecord(submittedReceipt(submitResult, andPdfFilePath), Keeps::shared) {}

std::optional<std::string> Receipt::showingPath() const {
    std::optional<std::string> path = signPath();
    if (!path || path->empty()) path = crmXml();
    if (!path) return std::nullopt;
    if (path->rfind("http", 0) == 0 || path->rfind("file", 0) == 0) return path;
    return joined(Server::address(), *path);
}

void Receipt::uploadSignaturePDF(std::string pdf, UploadCompletion callback, UploadProgress progress) const {
    std::string url = Server::address() + "/index.php/api/common/upload";
    std::string SN = this->SN().value_or("");
    std::string ID = std::to_string(this->ID());
    HTTPRequest request = requestForHttpMultipartPost(url, [&](MultipartPartBuilder& parts) {
        parts.appendData(std::move(pdf), "pdf", "signed.pdf");
        parts.appendPlainText("SN", SN);
        parts.appendPlainText("ID", ID);
    });
    request.name = "uploadSignaturePDF";
    // The transfer's thread reports progress; the main queue hears it at most
    // every 100 ms, and always each time all is sent. A redirect that repeats
    // the request starts again from 0, so a report of all sent is posted for
    // every request of the chain, and once more before the completion of a
    // successful upload whose last report fell short.
    struct Throttle {
        std::optional<std::chrono::steady_clock::time_point> last;
        bool atTotal = false;  // the last report posted said all was sent
        uint64_t total = 0;
    };
    auto throttle = std::make_shared<Throttle>();
    auto task = HTTPSession::sharedSession().dataTaskWithRequest(
        std::move(request), [callback = std::move(callback), progress, throttle](std::optional<std::string> data, std::optional<HTTPResponse>,
                                                                                  std::optional<HTTPError> error) {
            Dispatch::mainQueue().async([callback, progress, throttle, data = std::move(data), error = std::move(error)] {
                if (std::optional<Dictionary> reply = data ? jsonDictionary(*data) : std::nullopt) {
                    if (progress && !throttle->atTotal && throttle->total) progress(throttle->total, throttle->total);
                    logValue("", *reply);
                    callback(true, std::string("上传成功"));
                } else {
                    callback(false, error ? error->description : std::string("未知错误"));
                }
            });
        });
    if (progress) {
        task->setProgressHandler([progress, throttle](uint64_t sent, uint64_t total) {
            auto now = std::chrono::steady_clock::now();
            if (sent == total ? throttle->atTotal : throttle->last && now - *throttle->last < std::chrono::milliseconds(100)) return;
            throttle->last = now;
            throttle->atTotal = sent == total;
            throttle->total = total;
            Dispatch::mainQueue().async([progress, sent, total] { progress(sent, total); });
        });
    }
    task->resume();
}

void Receipt::createReceiptFromOrderSubmitResult(const ActionFormOrderSubmitResult&, ResultCallback<Receipt>) {}

} // namespace veltrane
