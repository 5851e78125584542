// The gateway's HTTP transport: requests and replies of the API, carried by the platform's HTTP engine.
#include "veltrane/platform/HTTPTransport.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <exception>
#include <random>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/HTTPEngine.h"
#include "veltrane/platform/HTTPHooks.h"

namespace veltrane {

// ---- Encoding and decoding --------------------------------------------------------

std::string encodeParameters(const Parameters& params) {
    std::string out;
    if (!params) return out;
    for (const auto& [key, value] : *params) {
        if (!out.empty()) out += '&';
        out += formURLEncode(key);
        out += '=';
        switch (value.type()) {
        case Value::Type::Null: break;
        case Value::Type::Boolean: out += value.asBool() ? '1' : '0'; break;
        case Value::Type::Number: out += formURLEncode(value.asNumber().text()); break;
        case Value::Type::String: out += formURLEncode(value.asString()); break;
        case Value::Type::Array:
        case Value::Type::Dictionary: out += formURLEncode(writeJSON(value)); break;
        }
    }
    return out;
}

GatewayReply splitEnvelope(std::string_view api, std::string_view body, const Envelope& envelope) {
    Value reply;
    try {
        reply = parseJSON(body);
    } catch (const JSONError& e) {
        return {false, std::string(api) + ": reply is not JSON (" + e.what() + ")", std::nullopt};
    }
    const Dictionary* object = reply.dictionaryIf();
    if (!object) return {false, std::string(api) + ": reply is " + reply.kindName() + ", not a JSON object", std::nullopt};

    const Value* flag = object->find(envelope.successKey);
    bool success = false;
    try {
        success = envelope.isSuccess ? envelope.isSuccess(flag) : object->optBool(envelope.successKey);
    } catch (const std::exception& e) {
        return {false, std::string(api) + ": reply's \"" + envelope.successKey + "\" unreadable (" + e.what() + ")", std::nullopt};
    }
    std::optional<Value> data;
    if (const Value* d = object->find(envelope.dataKey)) data = *d;
    return {success, object->optString(envelope.messageKey), std::move(data)};
}

bool isAPIName(std::string_view api) {
    return !api.empty() && std::all_of(api.begin(), api.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    });
}

// ---- The transport -------------------------------------------------------------------

namespace {

using Clock = std::chrono::steady_clock;

// An API name for a message: printable ASCII as it is, other bytes as \xNN.
std::string quoted(std::string_view text) {
    static const char* hex = "0123456789abcdef";
    std::string out = "\"";
    for (unsigned char c : text.substr(0, 64)) {
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') out += static_cast<char>(c);
        else out += std::string("\\x") + hex[c >> 4] + hex[c & 15];
    }
    return out + (text.size() > 64 ? "...\"" : "\"");
}

std::string seconds(Clock::duration d) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f", std::chrono::duration<double>(d).count());
    return buf;
}

void deliver(const std::string& api, const GatewayCallback& completion, GatewayReply reply) {
    try {
        completion(reply.success, std::move(reply.message), std::move(reply.data));
    } catch (const std::exception& e) {
        log("server reply to " + api + ": completion raised: " + e.what());
    } catch (...) {
        log("server reply to " + api + ": completion raised an unknown exception");
    }
}

// What an exchange's ending means for the gateway.
GatewayReply replyOf(const std::string& api, const Call& call, http::Result& r, const HTTPTransportOptions& options) {
    switch (r.ending) {
    case http::Ending::answered:
        if (r.status >= 200 && r.status < 300) return splitEnvelope(api, r.body, options.envelope);
        return {false,
                api + ": server answered HTTP " + std::to_string(r.status) + (r.location.empty() ? "" : ", a redirect to " + r.location + " (not followed)"),
                std::nullopt};
    case http::Ending::failed: {
        if (r.tooLarge) return {false, api + ": reply larger than " + std::to_string(options.maxReplyBytes) + " bytes", std::nullopt};
        std::string message = api + ": " + r.error;
        if (r.waited >= std::chrono::seconds(1)) message += " (after waiting " + seconds(r.waited) + " s for a free connection)";
        return {false, std::move(message), std::nullopt};
    }
    case http::Ending::cancelled: return {false, call.cancelledMessage(), std::nullopt};
    case http::Ending::expired: return {false, call.expiredMessage(), std::nullopt};
    case http::Ending::shutDown: break;
    }
    return {false, "transport shut down", std::nullopt};
}

// Why an attempt of a GET may be made again, or nothing: its connection
// failed, it had no byte of an answer in time (or its connection closed
// before one), or the server answered 502, 503, 504 or 429.
std::optional<std::string> retryReason(const http::Result& r) {
    if (r.ending == http::Ending::answered) {
        if (r.status == 502 || r.status == 503 || r.status == 504 || r.status == 429) return "HTTP " + std::to_string(r.status);
        return std::nullopt;
    }
    if (r.ending != http::Ending::failed || r.tooLarge) return std::nullopt;
    switch (r.code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return "no connection";
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
        if (!r.replyStarted) return "no answer";
        return std::nullopt;
    default: return std::nullopt;
    }
}

// The wait a Retry-After asks for: seconds, or an HTTP date.
std::optional<Clock::duration> retryAfter(const std::optional<std::string>& value) {
    if (!value || value->empty()) return std::nullopt;
    long secondsToWait = 0;
    auto [end, error] = std::from_chars(value->data(), value->data() + value->size(), secondsToWait);
    if (error == std::errc() && end == value->data() + value->size()) return std::chrono::seconds(std::max(secondsToWait, 0L));
    std::tm when{};
    if (!strptime(value->c_str(), "%a, %d %b %Y %H:%M:%S GMT", &when)) return std::nullopt;
    auto at = std::chrono::system_clock::from_time_t(timegm(&when));
    return std::max<Clock::duration>(std::chrono::duration_cast<Clock::duration>(at - std::chrono::system_clock::now()), Clock::duration::zero());
}

// Full jitter: anywhere from nothing to the attempt's exponential back-off.
Clock::duration backoff(const RetryPolicy& policy, int attempt) {
    thread_local std::mt19937_64 random(std::random_device{}());
    double ceiling = std::min<double>(static_cast<double>(policy.maxBackoff.count()),
                                      static_cast<double>(policy.initialBackoff.count()) * std::ldexp(1.0, std::min(attempt - 1, 30)));
    return std::chrono::microseconds(static_cast<long long>(std::uniform_real_distribution<double>(0, ceiling * 1000)(random)));
}

// One gateway call through its attempts.
struct GatewayCall : std::enable_shared_from_this<GatewayCall> {
    std::string api, method;
    std::shared_ptr<Call> call;
    std::shared_ptr<const HTTPTransportOptions> options;
    std::weak_ptr<http::Engine> engine;
    http::Exchange exchange;  // kept for another attempt
    GatewayCallback completion;
    int attempt = 1;

    void send(Clock::time_point notBefore = {}) {
        std::shared_ptr<http::Engine> e = engine.lock();
        if (!e) return deliver(api, completion, {false, "transport shut down", std::nullopt});
        http::Exchange x;
        if (method == "GET" && attempt < options->retry.maxAttempts) x = exchange;  // another attempt may need it
        else x = std::move(exchange);
        e->send(call, std::move(x), [self = shared_from_this()](http::Result&& r) { self->answered(r); }, notBefore);
    }

    void answered(http::Result& r) {
        GatewayReply reply = replyOf(api, *call, r, *options);
        if (hasRequestObserver()) observeRequest(http::eventOf(api, method, attempt, r, reply.success ? std::nullopt : reply.message));
        if (std::optional<Clock::duration> wait = nextAttemptIn(r)) {
            log(api + ": attempt " + std::to_string(attempt + 1) + " of " + std::to_string(options->retry.maxAttempts) + " in " +
                std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(*wait).count()) + " ms, after " + *retryReason(r));
            ++attempt;
            return send(Clock::now() + *wait);
        }
        deliver(api, completion, std::move(reply));
    }

    // When to try again, or nothing: only a GET, only for a reason to,
    // within the attempts allowed and the call's deadline.
    std::optional<Clock::duration> nextAttemptIn(const http::Result& r) const {
        if (method != "GET" || attempt >= options->retry.maxAttempts || !retryReason(r)) return std::nullopt;
        std::optional<Clock::duration> asked = r.ending == http::Ending::answered ? retryAfter(r.retryAfter) : std::nullopt;
        Clock::duration wait = asked ? *asked : backoff(options->retry, attempt);
        if (std::optional<Clock::time_point> deadline = call->deadline(); deadline && Clock::now() + wait >= *deadline) return std::nullopt;
        return wait;
    }
};

} // namespace

HTTPTransport::HTTPTransport(HTTPTransportOptions options)
    : options_(std::make_shared<const HTTPTransportOptions>(std::move(options))),
      engine_(std::make_shared<http::Engine>(
          http::Engine::Options{options_->maxConnectionsPerHost, options_->maxIdleHandles, options_->maxStreamsPerConnection})),
      headers_{"Accept: application/json"} {}

HTTPTransport::~HTTPTransport() = default;

HTTPTransport::Load HTTPTransport::load() const {
    http::Engine::Load l = engine_->load();
    return {l.waiting, l.active, l.idleHandles};
}

void HTTPTransport::send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) {
    sendCall(method, api, std::move(params), std::move(completion), Call::begin(api));
}

void HTTPTransport::sendCall(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion, std::shared_ptr<Call> call) {
    const HTTPTransportOptions& options = *options_;
    auto g = std::make_shared<GatewayCall>();
    g->api = api;
    g->method = method == HTTPMethod::POST ? "POST" : "GET";
    g->call = std::move(call);
    g->options = options_;
    g->engine = engine_;
    g->completion = std::move(completion);
    http::Exchange& x = g->exchange;
    x.method = g->method;
    x.limits.connectTimeout = options.connectTimeout;
    x.limits.timeout = options.timeout;
    x.limits.verifyTLS = options.verifyTLS;
    x.limits.pinnedPublicKeys = options.pinnedPublicKeys;
    x.limits.caCertificates = options.caCertificates;
    x.limits.acceptEncoding = options.acceptEncoding;
    x.limits.userAgent = options.userAgent;
    x.limits.maxReplyBytes = options.maxReplyBytes;
    x.limits.http2 = options.http2;
    x.limits.freshConnection = method == HTTPMethod::POST;  // never sent twice, not even by libcurl
    x.headers = headers_;
    std::optional<std::string> refusal;
    if (!isAPIName(api)) {
        refusal = "API name " + quoted(api) + " refused: an API name is made of letters, digits and \"_\"";
    } else {
        try {
            if (hasRequestAdapters()) {
                std::vector<std::pair<std::string, std::string>> added;
                Dictionary adapted = params ? params->mutableCopy() : Dictionary();
                OutgoingRequest outgoing{api, g->method, added, &adapted};
                adaptRequest(outgoing);
                if (params || !adapted.empty()) params = std::move(adapted);
                for (const auto& [name, value] : added) x.headers.push_back(name + ": " + value);
            }
            std::string address = Server::address();
            if (address.empty()) throw std::invalid_argument("no server address set");
            if (address.back() == '/') address.pop_back();
            std::string url = options.urlTemplate;
            auto replace = [&](std::string_view field, const std::string& with) {
                if (size_t at = url.find(field); at != std::string::npos) url.replace(at, field.size(), with);
            };
            replace("{address}", address);
            replace("{api}", percentEncodeURLPath(api));
            std::string query = encodeParameters(params);
            if (method == HTTPMethod::POST) {
                x.body = std::move(query);
                x.headers.emplace_back("Content-Type: application/x-www-form-urlencoded; charset=utf-8");
            } else if (!query.empty()) {
                url += (url.find('?') == std::string::npos ? "?" : "&") + query;
            }
            x.url = std::move(url);
        } catch (const std::exception& e) {
            refusal = api + ": " + e.what();
        }
    }
    if (refusal) {  // answered on the transport's thread, as every reply is
        return engine_->post([api, completion = std::move(g->completion), message = std::move(*refusal)] {
            deliver(api, completion, {false, message, std::nullopt});
        });
    }
    g->send();
}

std::shared_ptr<HTTPTransport> HTTPTransport::install(HTTPTransportOptions options) {
    auto transport = std::make_shared<HTTPTransport>(std::move(options));
    Server::setTransport(transport);
    return transport;
}

} // namespace veltrane
