// The gateway's HTTP transport: requests and replies of the API, carried by the platform's HTTP engine.
#include "veltrane/platform/HTTPTransport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/HTTPEngine.h"

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
    http::Exchange x;
    x.method = method == HTTPMethod::POST ? "POST" : "GET";
    x.limits = {options.connectTimeout, options.timeout,     options.verifyTLS, options.pinnedPublicKeys,
                options.acceptEncoding, options.userAgent, options.maxReplyBytes};
    x.headers = headers_;
    std::optional<std::string> refusal;
    if (!isAPIName(api)) {
        refusal = "API name " + quoted(api) + " refused: an API name is made of letters, digits and \"_\"";
    } else {
        try {
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
        return engine_->post([api, completion = std::move(completion), message = std::move(*refusal)] {
            deliver(api, completion, {false, message, std::nullopt});
        });
    }
    engine_->send(call, std::move(x), [api, completion = std::move(completion), call, options = options_](http::Result&& r) {
        deliver(api, completion, replyOf(api, *call, r, *options));
    });
}

std::shared_ptr<HTTPTransport> HTTPTransport::install(HTTPTransportOptions options) {
    auto transport = std::make_shared<HTTPTransport>(std::move(options));
    Server::setTransport(transport);
    return transport;
}

} // namespace veltrane
