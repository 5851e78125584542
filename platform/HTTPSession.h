// One-off HTTP requests outside the gateway: a prepared request (plain or
// multipart/form-data), a session that runs one data task for it, and the
// JSON-dictionary reading of a reply body.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Value.h"

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
    std::string url;
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

// A prepared data task; nothing is sent until resume().
class DataTask {
public:
    DataTask(HTTPRequest request, DataTaskCompletion completion) : request_(std::move(request)), completion_(std::move(completion)) {}
    // Starts the transfer on the global queue; the completion runs there,
    // once. Later calls do nothing.
    void resume();

private:
    HTTPRequest request_;
    DataTaskCompletion completion_;
    bool resumed_ = false;
};

// Runs data tasks. Thread-safe; the shared session lives for the process.
class HTTPSession {
public:
    static HTTPSession& sharedSession();
    std::shared_ptr<DataTask> dataTaskWithRequest(HTTPRequest request, DataTaskCompletion completionHandler);

    // Runs one request on the calling thread and returns its outcome.
    struct Outcome {
        std::optional<std::string> data;
        std::optional<HTTPResponse> response;
        std::optional<HTTPError> error;
    };
    static Outcome perform(const HTTPRequest& request);
};

// The reply bytes as a JSON dictionary; nothing when they are not one.
std::optional<Dictionary> jsonDictionary(std::string_view data);

} // namespace veltrane
