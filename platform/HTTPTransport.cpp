// The libcurl transport: one multi handle driven by one thread.
#include "veltrane/platform/HTTPTransport.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <exception>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Curl.h"
#include "veltrane/platform/Encodings.h"

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

// ---- The engine ---------------------------------------------------------------------

namespace {

using Clock = std::chrono::steady_clock;

// One request from send() to its completion.
struct Transfer {
    std::string api;
    std::string url;
    std::string host;  // "scheme://host:port", the connection limit's key
    bool post = false;
    std::string body;
    std::optional<std::string> failure;  // set when the request cannot be sent at all
    GatewayCallback completion;
    Clock::time_point queuedAt = Clock::now();

    // Set when the request gets a connection.
    curl::Easy easy;
    Clock::time_point startedAt;
    std::string response;
    bool tooLarge = false;
    size_t maxReplyBytes = 0;
    std::unique_ptr<char[]> error;  // libcurl's error text, CURL_ERROR_SIZE bytes
};

size_t collect(char* data, size_t size, size_t count, void* target) {
    auto* t = static_cast<Transfer*>(target);
    if (t->response.size() + size * count > t->maxReplyBytes) {
        t->tooLarge = true;
        return 0;  // aborts the transfer
    }
    t->response.append(data, size * count);
    return size * count;
}

void deliver(Transfer& t, GatewayReply reply) {
    try {
        t.completion(reply.success, std::move(reply.message), std::move(reply.data));
    } catch (const std::exception& e) {
        log("server reply to " + t.api + ": completion raised: " + e.what());
    } catch (...) {
        log("server reply to " + t.api + ": completion raised an unknown exception");
    }
}

// "scheme://host[:port]" of a URL.
std::string hostOf(const std::string& url) {
    size_t scheme = url.find("://");
    size_t start = scheme == std::string::npos ? 0 : scheme + 3;
    return url.substr(0, url.find_first_of("/?#", start));
}

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

} // namespace

struct HTTPTransport::Engine {
    explicit Engine(HTTPTransportOptions o) : options(std::move(o)), multi(curl_multi_init()) {
        if (!multi) throw std::runtime_error("libcurl could not create a multi handle");
        curl_multi_setopt(multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, options.maxConnectionsPerHost);
        for (curl::Slist* headers : {&getHeaders, &postHeaders}) {
            curl::appendHeader(*headers, "Accept: application/json");
            curl::appendHeader(*headers, "Expect:");
        }
        curl::appendHeader(postHeaders, "Content-Type: application/x-www-form-urlencoded; charset=utf-8");
    }

    const HTTPTransportOptions options;
    curl::Multi multi;
    curl::Slist getHeaders, postHeaders;  // the same for every request; libcurl only reads them

    // Shared with send(), under the mutex.
    std::mutex mutex;
    std::deque<std::unique_ptr<Transfer>> incoming;
    bool stopping = false;

    // The transport thread's own. A request waits in its host's queue, with
    // no curl handle, until fewer than maxConnectionsPerHost of that host's
    // requests are under way; only then does its time limit start.
    struct Host {
        size_t active = 0;
        std::deque<std::unique_ptr<Transfer>> waiting;
    };
    std::unordered_map<std::string, Host> hosts;
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> active;
    std::vector<curl::Easy> idle;  // at most options.maxIdleHandles

    std::atomic<size_t> waitingCount{0}, activeCount{0}, idleCount{0};

    void enqueue(std::unique_ptr<Transfer> t) {
        {
            std::lock_guard lock(mutex);
            if (!stopping) {
                incoming.push_back(std::move(t));
                t.reset();
            }
        }
        if (t) deliver(*t, {false, "transport shut down", std::nullopt});
        else curl_multi_wakeup(multi.get());
    }

    void stop() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        curl_multi_wakeup(multi.get());
    }

    void run() {
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> batch;
            bool stop;
            {
                std::lock_guard lock(mutex);
                batch.swap(incoming);
                stop = stopping;
            }
            for (auto& t : batch) admit(std::move(t));
            if (stop) break;
            int running = 0;
            curl_multi_perform(multi.get(), &running);
            int left = 0;
            while (CURLMsg* msg = curl_multi_info_read(multi.get(), &left))
                if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
            curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
        }
        // Shutting down: every request still waiting or under way fails, once.
        for (auto& [handle, t] : active) {
            curl_multi_remove_handle(multi.get(), handle);
            deliver(*t, {false, "transport shut down", std::nullopt});
        }
        active.clear();
        for (auto& [name, host] : hosts)
            for (auto& t : host.waiting) deliver(*t, {false, "transport shut down", std::nullopt});
        hosts.clear();
    }

    void admit(std::unique_ptr<Transfer> t) {
        if (t->failure) return deliver(*t, {false, t->failure, std::nullopt});
        Host& host = hosts[t->host];
        if (host.active < static_cast<size_t>(options.maxConnectionsPerHost)) return start(host, std::move(t));
        host.waiting.push_back(std::move(t));
        ++waitingCount;
    }

    curl::Easy takeHandle() {
        if (idle.empty()) return curl::Easy(curl_easy_init());
        curl::Easy easy = std::move(idle.back());
        idle.pop_back();
        --idleCount;
        curl_easy_reset(easy.get());
        return easy;
    }

    void start(Host& host, std::unique_ptr<Transfer> t) {
        t->easy = takeHandle();
        if (!t->easy) return deliver(*t, {false, t->api + ": libcurl could not create a transfer", std::nullopt});
        CURL* h = t->easy.get();
        t->startedAt = Clock::now();
        t->maxReplyBytes = options.maxReplyBytes;
        t->error = std::make_unique<char[]>(CURL_ERROR_SIZE);
        curl_easy_setopt(h, CURLOPT_URL, t->url.c_str());
        curl_easy_setopt(h, CURLOPT_PRIVATE, t.get());
        curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(h, CURLOPT_WRITEDATA, t.get());
        curl_easy_setopt(h, CURLOPT_ERRORBUFFER, t->error.get());
        curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.connectTimeout.count()));
        curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, static_cast<long>(options.timeout.count()));
        curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, options.verifyTLS ? 1L : 0L);
        curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, options.verifyTLS ? 2L : 0L);
        curl_easy_setopt(h, CURLOPT_USERAGENT, options.userAgent.c_str());
        if (!options.acceptEncoding.empty()) curl_easy_setopt(h, CURLOPT_ACCEPT_ENCODING, options.acceptEncoding.c_str());
        curl_easy_setopt(h, CURLOPT_TCP_KEEPALIVE, 1L);
        if (t->post) {
            curl_easy_setopt(h, CURLOPT_POST, 1L);
            curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(t->body.size()));
            curl_easy_setopt(h, CURLOPT_POSTFIELDS, t->body.c_str());
        }
        curl_easy_setopt(h, CURLOPT_HTTPHEADER, (t->post ? postHeaders : getHeaders).get());
        if (CURLMcode rc = curl_multi_add_handle(multi.get(), h); rc != CURLM_OK)
            return deliver(*t, {false, t->api + ": libcurl: " + curl_multi_strerror(rc), std::nullopt});
        ++host.active;
        ++activeCount;
        active.emplace(h, std::move(t));
    }

    void finish(CURL* handle, CURLcode result) {
        curl_multi_remove_handle(multi.get(), handle);
        auto it = active.find(handle);
        if (it == active.end()) return;
        std::unique_ptr<Transfer> t = std::move(it->second);
        active.erase(it);
        --activeCount;
        long status = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        std::string location;
        if (const char* redirect = nullptr; curl_easy_getinfo(handle, CURLINFO_REDIRECT_URL, &redirect) == CURLE_OK && redirect)
            location = redirect;
        if (idle.size() < options.maxIdleHandles) {
            idle.push_back(std::move(t->easy));
            ++idleCount;
        } else {
            t->easy.reset();
        }

        GatewayReply reply;
        if (t->tooLarge) {
            reply = {false, t->api + ": reply larger than " + std::to_string(options.maxReplyBytes) + " bytes", std::nullopt};
        } else if (result != CURLE_OK) {
            std::string message = t->api + ": " + curl::describe(result, t->error.get());
            if (Clock::duration waited = t->startedAt - t->queuedAt; waited >= std::chrono::seconds(1))
                message += " (after waiting " + seconds(waited) + " s for a free connection)";
            reply = {false, std::move(message), std::nullopt};
        } else if (status < 200 || status >= 300) {
            std::string message = t->api + ": server answered HTTP " + std::to_string(status);
            if (!location.empty()) message += ", a redirect to " + location + " (not followed)";
            reply = {false, std::move(message), std::nullopt};
        } else {
            reply = splitEnvelope(t->api, t->response, options.envelope);
        }
        Host& host = hosts[t->host];
        --host.active;
        deliver(*t, std::move(reply));
        startWaiting(t->host);
    }

    // Gives a freed connection of host to its next waiting request.
    void startWaiting(const std::string& name) {
        auto it = hosts.find(name);
        if (it == hosts.end()) return;
        Host& host = it->second;
        while (!host.waiting.empty() && host.active < static_cast<size_t>(options.maxConnectionsPerHost)) {
            std::unique_ptr<Transfer> next = std::move(host.waiting.front());
            host.waiting.pop_front();
            --waitingCount;
            start(host, std::move(next));
        }
        if (host.active == 0 && host.waiting.empty()) hosts.erase(it);
    }
};

HTTPTransport::HTTPTransport(HTTPTransportOptions options) {
    curl::ensureGlobalInit();
    engine_ = std::make_shared<Engine>(std::move(options));
    thread_ = std::thread([engine = engine_] { engine->run(); });
}

HTTPTransport::Load HTTPTransport::load() const {
    return {engine_->waitingCount.load(), engine_->activeCount.load(), engine_->idleCount.load()};
}

HTTPTransport::~HTTPTransport() {
    engine_->stop();
    // The last owner may let go from inside a completion, on the transport
    // thread itself; the thread then finishes on its own copy of the engine.
    if (thread_.get_id() == std::this_thread::get_id()) thread_.detach();
    else thread_.join();
}

void HTTPTransport::send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) {
    auto t = std::make_unique<Transfer>();
    t->api = api;
    t->post = method == HTTPMethod::POST;
    t->completion = std::move(completion);
    if (!isAPIName(api)) {
        t->failure = "API name " + quoted(api) + " refused: an API name is made of letters, digits and \"_\"";
        return engine_->enqueue(std::move(t));
    }
    try {
        std::string address = Server::address();
        if (address.empty()) throw std::invalid_argument("no server address set");
        if (address.back() == '/') address.pop_back();
        std::string url = engine_->options.urlTemplate;
        auto replace = [&](std::string_view field, const std::string& with) {
            if (size_t at = url.find(field); at != std::string::npos) url.replace(at, field.size(), with);
        };
        replace("{address}", address);
        replace("{api}", percentEncodeURLPath(api));
        std::string query = encodeParameters(params);
        if (t->post) t->body = std::move(query);
        else if (!query.empty()) url += (url.find('?') == std::string::npos ? "?" : "&") + query;
        t->host = hostOf(url);
        t->url = std::move(url);
    } catch (const std::exception& e) {
        t->failure = api + ": " + e.what();
    }
    engine_->enqueue(std::move(t));
}

std::shared_ptr<HTTPTransport> HTTPTransport::install(HTTPTransportOptions options) {
    auto transport = std::make_shared<HTTPTransport>(std::move(options));
    Server::setTransport(transport);
    return transport;
}

} // namespace veltrane
