// The libcurl transport: one multi handle driven by one thread.
#include "platform/HTTPTransport.h"

#include <deque>
#include <exception>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "foundation/JSON.h"
#include "foundation/Log.h"
#include "platform/Curl.h"
#include "platform/Encodings.h"

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

GatewayReply splitEnvelope(std::string_view body, const Envelope& envelope) {
    Value reply;
    try {
        reply = parseJSON(body);
    } catch (const JSONError& e) {
        return {false, std::string("reply is not JSON (") + e.what() + ")", std::nullopt};
    }
    const Dictionary* object = reply.dictionaryIf();
    if (!object) return {false, std::string("reply is ") + reply.kindName() + ", not a JSON object", std::nullopt};

    const Value* flag = object->find(envelope.successKey);
    bool success = envelope.isSuccess ? envelope.isSuccess(flag) : object->optBool(envelope.successKey);
    std::optional<Value> data;
    if (const Value* d = object->find(envelope.dataKey)) data = *d;
    return {success, object->optString(envelope.messageKey), std::move(data)};
}

// ---- The engine ---------------------------------------------------------------------

namespace {

// One request from send() to its completion.
struct Transfer {
    std::string api;
    std::string url;
    bool post = false;
    std::string body;
    std::optional<std::string> failure;  // set when the request cannot be sent at all
    GatewayCallback completion;

    curl::Easy easy;
    std::string response;
    bool tooLarge = false;
    size_t maxReplyBytes = 0;
    char error[CURL_ERROR_SIZE] = {};
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

    // The transport thread's own.
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> active;
    std::vector<curl::Easy> idle;

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
            for (auto& t : batch) start(std::move(t));
            if (stop) break;
            int running = 0;
            curl_multi_perform(multi.get(), &running);
            int left = 0;
            while (CURLMsg* msg = curl_multi_info_read(multi.get(), &left))
                if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
            curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
        }
        // Shutting down: every request still under way fails, once.
        for (auto& [handle, t] : active) {
            curl_multi_remove_handle(multi.get(), handle);
            deliver(*t, {false, "transport shut down", std::nullopt});
        }
        active.clear();
    }

    void start(std::unique_ptr<Transfer> t) {
        if (t->failure) return deliver(*t, {false, t->failure, std::nullopt});
        if (!idle.empty()) {
            t->easy = std::move(idle.back());
            idle.pop_back();
            curl_easy_reset(t->easy.get());
        } else if (CURL* h = curl_easy_init()) {
            t->easy.reset(h);
        } else {
            return deliver(*t, {false, "libcurl could not create a transfer", std::nullopt});
        }
        CURL* h = t->easy.get();
        t->maxReplyBytes = options.maxReplyBytes;
        curl_easy_setopt(h, CURLOPT_URL, t->url.c_str());
        curl_easy_setopt(h, CURLOPT_PRIVATE, t.get());
        curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(h, CURLOPT_WRITEDATA, t.get());
        curl_easy_setopt(h, CURLOPT_ERRORBUFFER, t->error);
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
            return deliver(*t, {false, std::string("libcurl: ") + curl_multi_strerror(rc), std::nullopt});
        active.emplace(h, std::move(t));
    }

    void finish(CURL* handle, CURLcode result) {
        curl_multi_remove_handle(multi.get(), handle);
        auto it = active.find(handle);
        if (it == active.end()) return;
        std::unique_ptr<Transfer> t = std::move(it->second);
        active.erase(it);
        long status = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        idle.push_back(std::move(t->easy));

        GatewayReply reply;
        if (t->tooLarge) reply = {false, t->api + ": reply larger than " + std::to_string(options.maxReplyBytes) + " bytes", std::nullopt};
        else if (result != CURLE_OK) reply = {false, t->api + ": " + curl::describe(result, t->error), std::nullopt};
        else if (status >= 400) reply = {false, t->api + ": server answered HTTP " + std::to_string(status), std::nullopt};
        else reply = splitEnvelope(t->response, options.envelope);
        deliver(*t, std::move(reply));
    }
};

HTTPTransport::HTTPTransport(HTTPTransportOptions options) {
    curl::ensureGlobalInit();
    engine_ = std::make_shared<Engine>(std::move(options));
    thread_ = std::thread([engine = engine_] { engine->run(); });
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
        t->url = std::move(url);
    } catch (const std::exception& e) {
        t->failure = api + ": " + e.what();
    }
    engine_->enqueue(std::move(t));
}

std::shared_ptr<Transport> makeDefaultHTTPTransport() { return std::make_shared<HTTPTransport>(); }

} // namespace veltrane
