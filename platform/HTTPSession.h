// One-off HTTP requests outside the gateway: a prepared request (plain or
// multipart/form-data), a session that runs one data task for it, and the
// JSON-dictionary reading of a reply body.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veltrane/foundation/Value.h"

namespace veltrane {

struct MultipartPart {
    std::string name;
    std::string content;
    std::optional<std::string> fileName;  // present for a file part
    std::string contentType;              // empty for a plain-text part
};

struct HTTPRequest {
    std::string url;
    std::string method = "GET";
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::vector<MultipartPart> parts;  // when not empty, sent as multipart/form-data instead of body
};

// Adds parts, in order, to a multipart request.
class MultipartPartBuilder {
public:
    // A file part: form field `filename`, file name `file`, content `data`;
    // its content type follows the file name's extension (pdf, png, jpg,
    // json, txt), else application/octet-stream.
    void appendData(std::string data, std::string filename, std::string file);
    // A plain-text part named `name`.
    void appendPlainText(std::string name, std::string value);

    std::vector<MultipartPart> parts;
};

// A POST request for url whose multipart/form-data body holds the parts that
// partBuilder adds, in that order. Boundary and part headers are libcurl's.
HTTPRequest requestForHttpMultipartPost(std::string url, const std::function<void(MultipartPartBuilder&)>& partBuilder);

struct HTTPResponse {
    long statusCode = 0;
    std::string url;  // where the reply came from, after any redirects
};

struct HTTPError {
    int code = 0;  // libcurl's error code
    std::string description;
};

// (body bytes, response, error): each may be absent. A transport failure gives
// an error and no response; an HTTP reply of any status gives a response and
// its body, and no error.
using DataTaskCompletion =
    std::function<void(std::optional<std::string> data, std::optional<HTTPResponse> response, std::optional<HTTPError> error)>;

// The limits of a session's requests.
struct HTTPSessionOptions {
    // A longer reply fails with "reply larger than N bytes" and is not kept.
    size_t maxReplyBytes = 16u << 20;
    // Redirects are followed up to this many, to http and https addresses
    // only, and never from https back to http; a 301, 302 or 303 after a POST
    // continues as a GET, as browsers do; 307 and 308 repeat the request.
    int maxRedirects = 5;
    long connectTimeoutMilliseconds = 10'000;
    long timeoutMilliseconds = 120'000;  // for each request of a redirect chain
};

// Sent upload progress: bytes sent so far of the body's total.
using ProgressHandler = std::function<void(uint64_t sent, uint64_t total)>;

// A prepared data task; nothing is sent until resume().
class DataTask {
public:
    DataTask(HTTPRequest request, HTTPSessionOptions options, DataTaskCompletion completion)
        : request_(std::move(request)), options_(options), completion_(std::move(completion)) {}
    // Called on the transfer's thread as the body is sent (set before resume()).
    void setProgressHandler(ProgressHandler handler) { progress_ = std::move(handler); }
    // Starts the transfer on the global queue; the completion runs there,
    // once. Later calls do nothing.
    void resume();

private:
    HTTPRequest request_;
    HTTPSessionOptions options_;
    DataTaskCompletion completion_;
    ProgressHandler progress_;
    bool resumed_ = false;
};

// Runs data tasks. Thread-safe; the shared session lives for the process.
class HTTPSession {
public:
    explicit HTTPSession(HTTPSessionOptions options = {}) : options_(options) {}
    static HTTPSession& sharedSession();
    std::shared_ptr<DataTask> dataTaskWithRequest(HTTPRequest request, DataTaskCompletion completionHandler);
    const HTTPSessionOptions& options() const noexcept { return options_; }

    // Runs one request (and its redirects) on the calling thread and returns
    // its outcome. Never throws for what the network or the server does.
    struct Outcome {
        std::optional<std::string> data;
        std::optional<HTTPResponse> response;
        std::optional<HTTPError> error;
    };
    static Outcome perform(const HTTPRequest& request, const HTTPSessionOptions& options = {}, const ProgressHandler& progress = {});
    // Why a redirect from one address to another is not followed, or nothing
    // when it may be: only to http or https, and never from https to http.
    static std::optional<std::string> redirectRefusal(const std::string& from, const std::string& to);

private:
    HTTPSessionOptions options_;
};

// The reply bytes as a JSON dictionary; nothing when they are not one.
std::optional<Dictionary> jsonDictionary(std::string_view data);

} // namespace veltrane
