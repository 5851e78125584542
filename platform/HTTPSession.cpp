// Multipart requests and the one-off HTTP session, over libcurl.
#include "veltrane/platform/HTTPSession.h"

#include <array>
#include <cctype>
#include <exception>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Curl.h"
#include "veltrane/platform/Dispatch.h"

namespace veltrane {

namespace {
std::string contentTypeFor(std::string_view file) {
    static const std::array<std::pair<std::string_view, std::string_view>, 6> types{{
        {".pdf", "application/pdf"}, {".png", "image/png"}, {".jpg", "image/jpeg"},
        {".jpeg", "image/jpeg"}, {".json", "application/json"}, {".txt", "text/plain"},
    }};
    for (const auto& [extension, type] : types)
        if (file.size() >= extension.size() && file.substr(file.size() - extension.size()) == extension) return std::string(type);
    return "application/octet-stream";
}
} // namespace

void MultipartPartBuilder::appendData(std::string data, std::string filename, std::string file) {
    std::string type = contentTypeFor(file);
    parts.push_back({std::move(filename), std::move(data), std::move(file), std::move(type)});
}

void MultipartPartBuilder::appendPlainText(std::string name, std::string value) {
    parts.push_back({std::move(name), std::move(value), std::nullopt, ""});
}

HTTPRequest requestForHttpMultipartPost(std::string url, const std::function<void(MultipartPartBuilder&)>& partBuilder) {
    MultipartPartBuilder builder;
    if (partBuilder) partBuilder(builder);
    HTTPRequest request;
    request.url = std::move(url);
    request.method = "POST";
    request.parts = std::move(builder.parts);
    return request;
}

namespace {

// One exchange of a redirect chain: its reply, or the transport's error.
struct Exchange {
    CURLcode result = CURLE_OK;
    std::string error;
    long status = 0;
    std::string body;
    std::string location;  // the redirect's absolute target, when there is one
    bool tooLarge = false;
};

struct BodySink {
    std::string* body;
    size_t limit;
    bool* tooLarge;
};

size_t collectLimited(char* data, size_t size, size_t count, void* target) {
    auto* sink = static_cast<BodySink*>(target);
    if (sink->body->size() + size * count > sink->limit) {
        *sink->tooLarge = true;
        return 0;  // aborts the transfer
    }
    sink->body->append(data, size * count);
    return size * count;
}

int reportProgress(void* handler, curl_off_t, curl_off_t, curl_off_t total, curl_off_t sent) {
    const auto& progress = *static_cast<const ProgressHandler*>(handler);
    if (total > 0) progress(static_cast<uint64_t>(sent), static_cast<uint64_t>(total));
    return 0;
}

Exchange exchange(const HTTPRequest& request, const std::string& url, bool get, const HTTPSessionOptions& options,
                  const ProgressHandler& progress) {
    Exchange x;
    curl::Easy easy = curl::makeEasy();
    CURL* h = easy.get();
    char error[CURL_ERROR_SIZE] = {};
    curl::Slist headers;
    curl::Mime mime;
    BodySink sink{&x.body, options.maxReplyBytes, &x.tooLarge};
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, options.connectTimeoutMilliseconds);
    curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, options.timeoutMilliseconds);
    curl_easy_setopt(h, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options.maxReplyBytes));
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collectLimited);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &sink);
    for (const auto& [name, value] : request.headers) curl::appendHeader(headers, name + ": " + value);
    curl::appendHeader(headers, "Expect:");
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());
    if (progress) {
        curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, reportProgress);
        curl_easy_setopt(h, CURLOPT_XFERINFODATA, &progress);
        curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
    }
    if (!get && !request.parts.empty()) {
        mime.reset(curl_mime_init(h));
        for (const MultipartPart& part : request.parts) {
            curl_mimepart* p = curl_mime_addpart(mime.get());
            curl_mime_name(p, part.name.c_str());
            curl_mime_data(p, part.content.data(), part.content.size());
            if (part.fileName) curl_mime_filename(p, part.fileName->c_str());
            if (!part.contentType.empty()) curl_mime_type(p, part.contentType.c_str());
        }
        curl_easy_setopt(h, CURLOPT_MIMEPOST, mime.get());
    } else if (!get && request.method == "POST") {
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(h, CURLOPT_POSTFIELDS, request.body.c_str());
    } else if (!get && request.method != "GET") {
        curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    x.result = curl_easy_perform(h);
    x.error = curl::describe(x.result, error);
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &x.status);
    if (const char* target = nullptr; curl_easy_getinfo(h, CURLINFO_REDIRECT_URL, &target) == CURLE_OK && target) x.location = target;
    return x;
}

std::string schemeOf(const std::string& url) {
    size_t colon = url.find("://");
    std::string scheme = colon == std::string::npos ? "" : url.substr(0, colon);
    for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return scheme;
}

HTTPSession::Outcome failure(CURLcode code, std::string description) {
    return {std::nullopt, std::nullopt, HTTPError{code, std::move(description)}};
}

} // namespace

std::optional<std::string> HTTPSession::redirectRefusal(const std::string& from, const std::string& to) {
    std::string scheme = schemeOf(to);
    if (scheme != "http" && scheme != "https") return "redirect to " + to + " refused: only http and https are followed";
    if (schemeOf(from) == "https" && scheme == "http") return "redirect from https to " + to + " refused: it would leave https";
    return std::nullopt;
}

HTTPSession::Outcome HTTPSession::perform(const HTTPRequest& request, const HTTPSessionOptions& options, const ProgressHandler& progress) {
    std::string url = request.url;
    bool get = request.method == "GET";
    for (int redirects = 0;; ++redirects) {
        Exchange x;
        try {
            x = exchange(request, url, get, options, progress);
        } catch (const std::exception& e) {
            return failure(CURLE_FAILED_INIT, std::string(e.what()) + " (" + url + ")");
        }
        if (x.tooLarge || x.result == CURLE_FILESIZE_EXCEEDED)
            return failure(CURLE_FILESIZE_EXCEEDED, "reply larger than " + std::to_string(options.maxReplyBytes) + " bytes (" + url + ")");
        if (x.result != CURLE_OK) return failure(x.result, x.error + " (" + url + ")");
        bool redirect = x.status == 301 || x.status == 302 || x.status == 303 || x.status == 307 || x.status == 308;
        if (!redirect || x.location.empty()) return {std::move(x.body), HTTPResponse{x.status, url}, std::nullopt};

        if (redirects == options.maxRedirects)
            return failure(CURLE_TOO_MANY_REDIRECTS, "more than " + std::to_string(options.maxRedirects) + " redirects (" + url + ")");
        if (std::optional<std::string> refusal = redirectRefusal(url, x.location)) return failure(CURLE_UNSUPPORTED_PROTOCOL, *refusal);
        if (x.status == 303 || ((x.status == 301 || x.status == 302) && !get)) get = true;
        url = x.location;
    }
}

void DataTask::resume() {
    if (std::exchange(resumed_, true)) return;
    Dispatch::globalQueue([request = std::move(request_), options = options_, completion = std::move(completion_),
                           progress = std::move(progress_)] {
        HTTPSession::Outcome outcome = HTTPSession::perform(request, options, progress);
        completion(std::move(outcome.data), std::move(outcome.response), std::move(outcome.error));
    });
}

HTTPSession& HTTPSession::sharedSession() {
    static HTTPSession session;
    return session;
}

std::shared_ptr<DataTask> HTTPSession::dataTaskWithRequest(HTTPRequest request, DataTaskCompletion completionHandler) {
    return std::make_shared<DataTask>(std::move(request), options_, std::move(completionHandler));
}

std::optional<Dictionary> jsonDictionary(std::string_view data) {
    try {
        Value value = parseJSON(data);
        if (const Dictionary* d = value.dictionaryIf()) return *d;
    } catch (const JSONError&) {
    }
    return std::nullopt;
}

} // namespace veltrane
