/// @file
/// One-off HTTP requests outside the gateway: a prepared request (plain or
/// multipart/form-data), a session that runs one data task for it, and the
/// JSON-dictionary reading of a reply body.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veltrane/foundation/Call.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// One part of a multipart/form-data body.
struct MultipartPart {
    std::string name;     ///< the form field's name
    std::string content;  ///< its bytes
    std::optional<std::string> fileName;  ///< present for a file part
    std::string contentType;              ///< empty for a plain-text part
};

/// A request for HTTPSession.
struct HTTPRequest {
    std::string url;                                           ///< http or https, absolute
    std::string method = "GET";                                ///< any method; a body goes with any
    std::vector<std::pair<std::string, std::string>> headers;  ///< sent as they are, in order
    std::string body;                                          ///< sent as it is
    std::vector<MultipartPart> parts;  ///< when not empty, sent as multipart/form-data instead of body
    /// What the request serves, for messages ("uploadSignaturePDF: cancelled");
    /// the URL when empty.
    std::string name;
};

/// Adds parts, in order, to a multipart request.
class MultipartPartBuilder {
public:
    /// A file part: form field `filename`, file name `file`, content `data`;
    /// its content type follows the file name's extension (pdf, png, jpg,
    /// json, txt), else application/octet-stream.
    void appendData(std::string data, std::string filename, std::string file);
    /// A plain-text part named `name`.
    void appendPlainText(std::string name, std::string value);

    std::vector<MultipartPart> parts;  ///< the parts so far, in order
};

/// A POST request for url whose multipart/form-data body holds the parts that
/// partBuilder adds, in that order. Boundary and part headers are libcurl's.
HTTPRequest requestForHttpMultipartPost(std::string url, const std::function<void(MultipartPartBuilder&)>& partBuilder);

/// What came back for an HTTP reply of any status.
struct HTTPResponse {
    long statusCode = 0;  ///< 200, 404...
    std::string url;  ///< where the reply came from, after any redirects
};

/// Why a request got no HTTP reply.
struct HTTPError {
    int code = 0;  ///< libcurl's error code, or kRequestRefused
    std::string description;  ///< "<name>: <what>", as in "uploadSignaturePDF: Couldn't connect to server"
};

/// HTTPError::code when a request adapter refused the request (see
/// HTTPHooks.h): nothing was sent.
inline constexpr int kRequestRefused = -1;

/// (body bytes, response, error): each may be absent. A transport failure gives
/// an error and no response; an HTTP reply of any status gives a response and
/// its body, and no error.
using DataTaskCompletion =
    std::function<void(std::optional<std::string> data, std::optional<HTTPResponse> response, std::optional<HTTPError> error)>;

/// The limits of a session's requests.
struct HTTPSessionOptions {
    bool verifyTLS = true;  ///< check the server's certificate and name (off only for test servers)
    /// SHA-256 pins of the server's public key, each "sha256//<base64>": when
    /// given, a server whose key is none of them fails the request.
    std::vector<std::string> pinnedPublicKeys;
    /// A PEM file of the certificate authorities to trust; empty: the system's.
    std::string caCertificates;
    /// A longer reply fails with "reply larger than N bytes" and is not kept.
    size_t maxReplyBytes = 16u << 20;
    /// Redirects are followed up to this many, to http and https addresses
    /// only, and never from https back to http; a 301, 302 or 303 after a POST
    /// continues as a GET, as browsers do; 307 and 308 repeat the request.
    int maxRedirects = 5;
    long connectTimeoutMilliseconds = 10'000;  ///< to connect, TLS included
    long timeoutMilliseconds = 120'000;  ///< for each request of a redirect chain
};

/// Sent upload progress: bytes sent so far of the body's total.
using ProgressHandler = std::function<void(uint64_t sent, uint64_t total)>;

namespace http {
class Engine;
}

/// A prepared data task; nothing is sent until resume().
class DataTask {
public:
    /// Made by HTTPSession::dataTaskWithRequest.
    DataTask(HTTPRequest request, HTTPSessionOptions options, DataTaskCompletion completion, std::shared_ptr<http::Engine> engine)
        : request_(std::move(request)), options_(std::move(options)), completion_(std::move(completion)), engine_(std::move(engine)) {}
    /// Called on the session's thread as the body is sent (set before resume()).
    void setProgressHandler(ProgressHandler handler) { progress_ = std::move(handler); }
    /// Starts the transfer on the session's HTTP engine, as a Call of the
    /// current CallScope's group (named after the request): cancelling it
    /// ends the task at once with the error "<name>: cancelled", and its
    /// deadline with "<name>: no answer within <N> ms". The completion runs on
    /// the session's thread, once. Later calls do nothing.
    void resume();

private:
    HTTPRequest request_;
    HTTPSessionOptions options_;
    DataTaskCompletion completion_;
    std::shared_ptr<http::Engine> engine_;
    ProgressHandler progress_;
    bool resumed_ = false;
};

/// Runs data tasks on an HTTP engine of its own (one thread, no thread waiting
/// on the network). Thread-safe; the shared session lives for the process.
class HTTPSession {
public:
    /// A session with its own engine and thread, which end with it.
    explicit HTTPSession(HTTPSessionOptions options = {});
    ~HTTPSession();
    HTTPSession(const HTTPSession&) = delete;
    HTTPSession& operator=(const HTTPSession&) = delete;
    /// The session of the signature upload and the manifest fetch; set its
    /// options (pins, trusted authorities, limits) before they start.
    static HTTPSession& sharedSession();
    /// A task for request under the session's current options; nothing is
    /// sent until its resume(). completionHandler runs once, on the session's
    /// thread.
    std::shared_ptr<DataTask> dataTaskWithRequest(HTTPRequest request, DataTaskCompletion completionHandler);
    /// The options new data tasks get.
    HTTPSessionOptions options() const;
    /// For the data tasks made from now on.
    void setOptions(HTTPSessionOptions options);

    /// Runs one request (and its redirects) on the shared session's engine and
    /// waits on the calling thread for its outcome (never call it on the
    /// session's own thread). It belongs to call, whose cancellation and
    /// deadline end it; to a call of its own (named after the request) when
    /// none is given. Never throws for what the network or the server does.
    struct Outcome {
        std::optional<std::string> data;       ///< the body of a reply of any status
        std::optional<HTTPResponse> response;  ///< present when a reply came
        std::optional<HTTPError> error;        ///< present when none came
    };
    /// The shared session's options when none are given.
    static Outcome perform(const HTTPRequest& request, const std::optional<HTTPSessionOptions>& options = std::nullopt,
                           const ProgressHandler& progress = {}, std::shared_ptr<Call> call = nullptr);
    /// Why a redirect from one address to another is not followed, or nothing
    /// when it may be: only to http or https, and never from https to http.
    static std::optional<std::string> redirectRefusal(const std::string& from, const std::string& to);

private:
    mutable std::mutex mutex_;
    HTTPSessionOptions options_;
    std::shared_ptr<http::Engine> engine_;
};

/// The reply bytes as a JSON dictionary; nothing when they are not one.
std::optional<Dictionary> jsonDictionary(std::string_view data);

} // namespace veltrane
