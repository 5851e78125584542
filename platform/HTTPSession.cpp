// Multipart requests and the one-off HTTP session, carried by the platform's HTTP engine.
#include "veltrane/platform/HTTPSession.h"

#include <array>
#include <cctype>
#include <exception>
#include <future>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Curl.h"
#include "veltrane/platform/HTTPEngine.h"
#include "veltrane/platform/HTTPHooks.h"

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

std::string schemeOf(const std::string& url) {
    size_t colon = url.find("://");
    std::string scheme = colon == std::string::npos ? "" : url.substr(0, colon);
    for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return scheme;
}

HTTPSession::Outcome failure(int code, std::string description) {
    return {std::nullopt, std::nullopt, HTTPError{code, std::move(description)}};
}

// One request and its redirects, run on an engine for one call: each hop an
// exchange of its own, all within the call's deadline.
struct Chain : std::enable_shared_from_this<Chain> {
    std::weak_ptr<http::Engine> engine;
    std::shared_ptr<Call> call;
    HTTPRequest request;
    HTTPSessionOptions options;
    ProgressHandler progress;
    std::function<void(HTTPSession::Outcome)> finish;
    std::string url;
    bool get = false;
    int redirects = 0;

    // The adapters' headers join the request's own, once for the chain.
    void start() {
        if (hasRequestAdapters()) {
            try {
                OutgoingRequest outgoing{call->name(), request.method, request.headers, nullptr};
                adaptRequest(outgoing);
            } catch (const std::exception& e) {
                return finish(failure(kRequestRefused, call->name() + ": " + e.what()));
            }
        }
        hop();
    }

    void hop() {
        std::shared_ptr<http::Engine> e = engine.lock();
        if (!e) return finish(failure(CURLE_FAILED_INIT, "the HTTP session has shut down"));
        http::Exchange x;
        x.url = url;
        x.method = get ? "GET" : request.method;
        for (const auto& [name, value] : request.headers) x.headers.push_back(name + ": " + value);
        if (!get) {
            x.body = request.body;
            x.parts = request.parts;
        }
        x.limits.connectTimeout = std::chrono::milliseconds(options.connectTimeoutMilliseconds);
        x.limits.timeout = std::chrono::milliseconds(options.timeoutMilliseconds);
        x.limits.maxReplyBytes = options.maxReplyBytes;
        x.limits.verifyTLS = options.verifyTLS;
        x.limits.pinnedPublicKeys = options.pinnedPublicKeys;
        x.limits.caCertificates = options.caCertificates;
        x.limits.keepAlive = false;  // rare requests (an upload, a manifest): no connection left open behind them
        x.progress = progress;
        e->send(call, std::move(x), [self = shared_from_this()](http::Result&& r) { self->answered(r); });
    }

    // What an exchange that did not answer gives the task; nothing when it answered.
    std::optional<HTTPSession::Outcome> failed(const http::Result& r) const {
        switch (r.ending) {
        case http::Ending::cancelled: return failure(CURLE_ABORTED_BY_CALLBACK, call->cancelledMessage());
        case http::Ending::expired: return failure(CURLE_OPERATION_TIMEDOUT, call->expiredMessage());
        case http::Ending::shutDown: return failure(CURLE_FAILED_INIT, "the HTTP session has shut down");
        case http::Ending::failed:
            if (r.tooLarge) return failure(CURLE_FILESIZE_EXCEEDED, "reply larger than " + std::to_string(options.maxReplyBytes) + " bytes (" + url + ")");
            return failure(r.code, r.error + " (" + url + ")");
        case http::Ending::answered: break;
        }
        return std::nullopt;
    }

    void answered(http::Result& r) {
        std::optional<HTTPSession::Outcome> ended = failed(r);
        if (hasRequestObserver())
            observeRequest(http::eventOf(call->name(), get ? "GET" : request.method, redirects + 1, r,
                                         ended ? std::optional(ended->error->description) : std::nullopt));
        if (ended) return finish(std::move(*ended));
        bool redirect = r.status == 301 || r.status == 302 || r.status == 303 || r.status == 307 || r.status == 308;
        if (!redirect || r.location.empty()) return finish({std::move(r.body), HTTPResponse{r.status, url}, std::nullopt});
        if (redirects == options.maxRedirects)
            return finish(failure(CURLE_TOO_MANY_REDIRECTS, "more than " + std::to_string(options.maxRedirects) + " redirects (" + url + ")"));
        if (std::optional<std::string> refusal = HTTPSession::redirectRefusal(url, r.location))
            return finish(failure(CURLE_UNSUPPORTED_PROTOCOL, *refusal));
        if (r.status == 303 || ((r.status == 301 || r.status == 302) && !get)) get = true;
        ++redirects;
        url = r.location;
        hop();
    }
};

// Runs request for call on engine; finish gets the outcome once, on the engine's thread.
void run(const std::shared_ptr<http::Engine>& engine, std::shared_ptr<Call> call, HTTPRequest request, HTTPSessionOptions options,
         ProgressHandler progress, std::function<void(HTTPSession::Outcome)> finish) {
    auto chain = std::make_shared<Chain>();
    chain->engine = engine;
    chain->call = std::move(call);
    chain->url = request.url;
    chain->get = request.method == "GET";
    chain->request = std::move(request);
    chain->options = options;
    chain->progress = std::move(progress);
    chain->finish = std::move(finish);
    chain->start();
}

std::shared_ptr<Call> callFor(const HTTPRequest& request) { return Call::begin(request.name.empty() ? request.url : request.name); }

} // namespace

std::optional<std::string> HTTPSession::redirectRefusal(const std::string& from, const std::string& to) {
    std::string scheme = schemeOf(to);
    if (scheme != "http" && scheme != "https") return "redirect to " + to + " refused: only http and https are followed";
    if (schemeOf(from) == "https" && scheme == "http") return "redirect from https to " + to + " refused: it would leave https";
    return std::nullopt;
}

HTTPSession::HTTPSession(HTTPSessionOptions options) : options_(std::move(options)), engine_(std::make_shared<http::Engine>(http::Engine::Options{})) {}

HTTPSession::~HTTPSession() = default;

HTTPSession::Outcome HTTPSession::perform(const HTTPRequest& request, const std::optional<HTTPSessionOptions>& options, const ProgressHandler& progress,
                                          std::shared_ptr<Call> call) {
    HTTPSession& shared = sharedSession();
    if (shared.engine_->onEngineThread()) return failure(CURLE_FAILED_INIT, "a request cannot wait on the HTTP session's own thread");
    std::promise<Outcome> outcome;
    std::future<Outcome> answered = outcome.get_future();
    run(shared.engine_, call ? std::move(call) : callFor(request), request, options ? *options : shared.options(), progress,
        [&outcome](Outcome o) { outcome.set_value(std::move(o)); });
    return answered.get();
}

HTTPSessionOptions HTTPSession::options() const {
    std::lock_guard lock(mutex_);
    return options_;
}

void HTTPSession::setOptions(HTTPSessionOptions options) {
    std::lock_guard lock(mutex_);
    options_ = std::move(options);
}

void DataTask::resume() {
    if (std::exchange(resumed_, true)) return;
    std::shared_ptr<Call> call = callFor(request_);
    run(engine_, call, std::move(request_), options_, std::move(progress_), [call, completion = std::move(completion_)](HTTPSession::Outcome o) {
        if (!call->finish()) return;
        try {
            completion(std::move(o.data), std::move(o.response), std::move(o.error));
        } catch (const std::exception& e) {
            log(call->name() + ": completion raised: " + e.what());
        }
    });
}

HTTPSession& HTTPSession::sharedSession() {
    static HTTPSession* session = new HTTPSession();  // never destroyed: its thread may outlive static destruction
    return *session;
}

std::shared_ptr<DataTask> HTTPSession::dataTaskWithRequest(HTTPRequest request, DataTaskCompletion completionHandler) {
    return std::make_shared<DataTask>(std::move(request), options(), std::move(completionHandler), engine_);
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
