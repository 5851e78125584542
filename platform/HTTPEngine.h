/// @file
/// The platform's one HTTP engine: a libcurl multi handle driven by one
/// thread, which runs every exchange of the gateway's transport and of the
/// HTTP session, so that no other thread waits on the network.
///
/// It keeps at most maxConnectionsPerHost exchanges of a host under way (up to
/// maxStreamsPerConnection once the host has answered over HTTP/2, whose
/// exchanges share one connection); the others wait in a queue of their host,
/// without a curl handle and without their time limit running. Each exchange
/// belongs to a Call: the call's deadline ends it wherever it stands (waiting,
/// under way, or waiting to be retried), and cancelling the call ends it at
/// once. Handles of finished exchanges are kept for reuse, up to
/// maxIdleHandles.
///
/// Thread and lifetime rules: send(), post(), load() and a call's
/// cancellation are safe from any thread. Every done runs exactly once, on the
/// engine's thread, with how its exchange ended; done must return promptly
/// and may send further exchanges. A cancellation made on another thread
/// returns once the engine has ended the call's exchange (no byte of it is sent
/// after that); one made on the engine's thread (from a done) ends it before the
/// engine next sends anything. Destroying the engine ends what is under way
/// with Ending::shutDown; it may be destroyed from a done, on its own thread.
/// Internal to the platform: not installed.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "veltrane/foundation/Call.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/HTTPSession.h"

namespace veltrane::http {

using Clock = std::chrono::steady_clock;

/// What one exchange may take, and what it offers the server.
struct Limits {
    std::chrono::milliseconds connectTimeout{10'000};
    std::chrono::milliseconds timeout{30'000};  ///< from getting a connection to the last byte
    bool verifyTLS = true;
    std::vector<std::string> pinnedPublicKeys;  ///< "sha256//<base64>" each; the server's key must be one of them
    std::string acceptEncoding;                 ///< empty: no compressed replies
    std::string caCertificates;                 ///< a PEM file of the authorities to trust; empty: the system's
    std::string userAgent;
    size_t maxReplyBytes = 64u << 20;
    bool http2 = true;       ///< offer HTTP/2 over TLS (ALPN); false: HTTP/1.1 only
    bool keepAlive = true;   ///< false: the connection closes after the exchange
    /// A connection of its own, never one left open: libcurl sends a request
    /// again by itself when a reused connection closes before any answer, and
    /// a request whose body may have reached the server must never be sent twice.
    bool freshConnection = false;
};

struct Exchange {
    std::string url;
    std::string method = "GET";
    std::vector<std::string> headers;  ///< "Name: value"
    std::string body;                  ///< sent by any method but GET, unless there are parts
    std::vector<MultipartPart> parts;  ///< a multipart/form-data body
    Limits limits;
    ProgressHandler progress;          ///< bytes of the body sent, on the engine's thread
};

enum class Ending { answered, failed, cancelled, expired, shutDown };

/// Where an exchange's time went, from its start on a connection.
struct Timings {
    std::chrono::microseconds nameLookup{0}, connect{0}, tlsHandshake{0}, firstByte{0}, total{0};
};

/// How an exchange went.
struct Result {
    Ending ending = Ending::failed;
    int code = 0;         ///< libcurl's result code, when failed
    std::string error;    ///< libcurl's description, when failed
    long status = 0;      ///< the HTTP status, when answered
    std::string body;
    std::string location;  ///< a redirect's absolute target
    std::optional<std::string> retryAfter;
    bool tooLarge = false;      ///< the reply passed maxReplyBytes
    bool replyStarted = false;  ///< a byte of the reply arrived
    uint64_t bytesSent = 0, bytesReceived = 0;
    bool connectionReused = false;
    std::string httpVersion;  ///< "1.0", "1.1", "2", "3"
    Timings timings;
    Clock::duration waited{};  ///< for a free connection
};

/// The observer's account of an attempt that ended as r.
RequestEvent eventOf(const std::string& name, const std::string& method, int attempt, const Result& r, const std::optional<std::string>& error);

class Engine {
public:
    struct Options {
        long maxConnectionsPerHost = 6;
        size_t maxIdleHandles = 6;
        long maxStreamsPerConnection = 100;
    };
    using Done = std::function<void(Result&&)>;

    explicit Engine(Options options);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    /// Runs exchange for call, no earlier than notBefore; done gets how it
    /// ended. A call already cancelled, or past its deadline, ends at once.
    void send(std::shared_ptr<Call> call, Exchange exchange, Done done, Clock::time_point notBefore = {});
    /// Runs task on the engine's thread.
    void post(std::function<void()> task);

    struct Load {
        size_t waiting = 0;  ///< for a free connection, or a retry's time
        size_t active = 0;
        size_t idleHandles = 0;
    };
    Load load() const;
    bool onEngineThread() const noexcept;

    struct Loop;

private:
    std::shared_ptr<Loop> loop_;
    std::thread thread_;
};

} // namespace veltrane::http
