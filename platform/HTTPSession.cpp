// Multipart requests and the one-off HTTP session, over libcurl.
#include "platform/HTTPSession.h"

#include <array>
#include <exception>

#include "foundation/JSON.h"
#include "foundation/Log.h"
#include "platform/Curl.h"
#include "platform/Dispatch.h"

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

HTTPSession::Outcome HTTPSession::perform(const HTTPRequest& request) {
    curl::Easy easy = curl::makeEasy();
    CURL* h = easy.get();
    std::string body;
    char error[CURL_ERROR_SIZE] = {};
    curl::Slist headers;
    curl::Mime mime;
    curl_easy_setopt(h, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, 10'000L);
    curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, 120'000L);
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, curl::appendToString);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &body);
    for (const auto& [name, value] : request.headers) curl::appendHeader(headers, name + ": " + value);
    curl::appendHeader(headers, "Expect:");
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());
    if (!request.parts.empty()) {
        mime.reset(curl_mime_init(h));
        for (const MultipartPart& part : request.parts) {
            curl_mimepart* p = curl_mime_addpart(mime.get());
            curl_mime_name(p, part.name.c_str());
            curl_mime_data(p, part.content.data(), part.content.size());
            if (part.fileName) curl_mime_filename(p, part.fileName->c_str());
            if (!part.contentType.empty()) curl_mime_type(p, part.contentType.c_str());
        }
        curl_easy_setopt(h, CURLOPT_MIMEPOST, mime.get());
    } else if (request.method == "POST") {
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(h, CURLOPT_POSTFIELDS, request.body.c_str());
    } else if (request.method != "GET") {
        curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }

    CURLcode rc = curl_easy_perform(h);
    if (rc != CURLE_OK) return {std::nullopt, std::nullopt, HTTPError{rc, curl::describe(rc, error) + " (" + request.url + ")"}};
    HTTPResponse response;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &response.statusCode);
    response.url = request.url;
    return {std::move(body), std::move(response), std::nullopt};
}

void DataTask::resume() {
    if (std::exchange(resumed_, true)) return;
    Dispatch::globalQueue([request = std::move(request_), completion = std::move(completion_)] {
        HTTPSession::Outcome outcome;
        try {
            outcome = HTTPSession::perform(request);
        } catch (const std::exception& e) {
            outcome.error = HTTPError{-1, e.what()};
        }
        completion(std::move(outcome.data), std::move(outcome.response), std::move(outcome.error));
    });
}

HTTPSession& HTTPSession::sharedSession() {
    static HTTPSession session;
    return session;
}

std::shared_ptr<DataTask> HTTPSession::dataTaskWithRequest(HTTPRequest request, DataTaskCompletion completionHandler) {
    return std::make_shared<DataTask>(std::move(request), std::move(completionHandler));
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
