/// @file
/// A document of an order (a generated receipt or agreement page, or the
/// customer's signed copy) that the screens show and let the customer sign,
/// with the one file upload of the library: the signed PDF.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

class ActionFormOrderSubmitResult;

/// Upload progress: bytes sent so far, of the request's total.
using UploadProgress = std::function<void(uint64_t sent, uint64_t total)>;

/// A document of an order (a generated receipt or agreement page, or the customer's signed
/// copy) that the screens show and let the customer sign, with the one file upload of the
/// library: the signed PDF.
class Receipt : public RawRecord {
public:
    /// Keeps the very dictionary given (no copy; nothing writes it).
    explicit Receipt(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::shared) {}
    /// A receipt of its own three entries: "ID" the result's recID (32-bit),
    /// "SN" its SN, "CRMXML" the PDF's path as an absolute file URL
    /// ("file:///…", percent-escaped). Throws std::invalid_argument when the
    /// result has no SN.
    Receipt(const ActionFormOrderSubmitResult& submitResult, const std::string& andPdfFilePath);

    /// "ID", a 32-bit integer.
    int32_t ID() const { return raw_.optInt("ID"); }
    /// "SignPath", as text.
    std::optional<std::string> signPath() const { return text("SignPath"); }
    /// "SignID", a 32-bit integer.
    int32_t signID() const { return raw_.optInt("SignID"); }
    /// "Note", as text.
    std::optional<std::string> note() const { return text("Note"); }
    /// "SN", as text.
    std::optional<std::string> SN() const { return text("SN"); }
    /// From "CRMXML".
    std::optional<std::string> crmXml() const { return text("CRMXML"); }
    /// "IsPreProcessAgreement" equal to 1.
    bool isPreProcessAgreement() const { return raw_.optInt("IsPreProcessAgreement") == 1; }

    /// Where to show the receipt from: the signed copy when there is one,
    /// else the generated document. A path beginning with "http" or "file"
    /// (case-sensitive) as it is; any other joined to Server::address() with
    /// exactly one "/" between them. Nothing when the receipt has neither path.
    std::optional<std::string> showingPath() const;

    /// Uploads the signed copy: a multipart POST to Server::address() +
    /// "/index.php/api/common/upload" through the HTTP session, with the file
    /// part "pdf" named "signed.pdf", then "SN", then "ID" in decimal. The
    /// completion runs on the main queue: (true, "上传成功") for any reply that
    /// reads as a JSON object (logged), whatever its status; otherwise (false,
    /// the transport error's full description), or (false, "未知错误") when
    /// there was none. progress, when given, also runs on the main queue: at
    /// most ten times a second, and once when all is sent. The upload is a
    /// Call of the current CallScope's group: cancelled, it ends at once with
    /// (false, "uploadSignaturePDF: cancelled"); past its deadline with
    /// (false, "uploadSignaturePDF: no answer within <N> ms").
    void uploadSignaturePDF(std::string pdf, UploadCompletion callback, UploadProgress progress = {}) const;

    /// Returns at once and never calls its completion (it has no work of its own).
    static void createReceiptFromOrderSubmitResult(const ActionFormOrderSubmitResult& result, ResultCallback<Receipt> callback);
};

} // namespace veltrane
