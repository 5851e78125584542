/// @file
/// The HTTP transport of the gateway, over libcurl.
///
/// A request for API name N goes to the URL template with "{address}" replaced
/// by Server::address() (one trailing "/" dropped) and "{api}" by N; by default
/// `<address>/index.php/api/<N>`. GET sends the parameters as a query string,
/// POST as an application/x-www-form-urlencoded body (see encodeParameters).
/// The reply must be a JSON object, split by the Envelope into flag, message
/// and data. Anything else — an HTTP status other than 2xx (redirects are not
/// followed), a time-out, a transport error, a body that is not a JSON object —
/// gives (false, a message that starts with the API name and says what went
/// wrong, nothing).
///
/// Every request is a Call (see veltrane/foundation/Call.h): cancelling it
/// ends it at once with (false, "<api>: cancelled") and sends nothing more of
/// it; past its deadline it ends with (false, "<api>: no answer within N
/// ms"), wherever it stands (waiting for a connection, or under way).
///
/// Thread and lifetime rules: send() may be called from any thread. One
/// transport thread per HTTPTransport (its HTTP engine's) runs every transfer
/// (concurrently) and calls every completion, exactly once, there;
/// completions should return promptly. An exception that leaves a completion
/// is caught and logged, and the thread goes on. Connections are kept alive
/// and reused; over TLS the transport offers HTTP/2 and multiplexes
/// concurrent requests on one connection when the server accepts it.
/// Destroying the transport fails the requests still under way with
/// "transport shut down".
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "veltrane/foundation/Server.h"

namespace veltrane {

/// How a reply object carries flag, message and data. By default
/// {"status": 1, "info": "...", "data": ...}: success is the boolean reading of
/// "status" (true, a non-zero number, "1", "true"); an absent flag is failure.
struct Envelope {
    std::string successKey = "status";  ///< the key of the flag
    std::string messageKey = "info";    ///< the key of the message (text, or nothing)
    std::string dataKey = "data";       ///< the key of the data (absent: no data; null: JSON null)
    /// Decides success from the value under successKey (nullptr when absent);
    /// empty means the default rule above. An exception it throws makes the
    /// reply a failure that names the key.
    std::function<bool(const Value* flag)> isSuccess;
};

/// Which failed requests are made again. Only requests whose method is GET
/// are ever retried (every POST, and so every request whose body may have
/// reached the server, is sent once, whatever happens), and only after a
/// connection failure, no byte of an answer in time (or a connection closed
/// before one), or HTTP 502, 503, 504 or 429. The wait before attempt n + 1
/// is the server's Retry-After when it gives one, else anywhere from nothing
/// to min(maxBackoff, initialBackoff * 2^(n-1)) (exponential back-off with
/// full jitter); no attempt starts past the call's deadline, and cancelling
/// the call during a wait ends it at once. Each retry is logged: "<api>:
/// attempt <n> of <max> in <ms> ms, after <reason>".
struct RetryPolicy {
    int maxAttempts = 1;  ///< 1: never retried (the default)
    std::chrono::milliseconds initialBackoff{200};  ///< the longest first wait
    std::chrono::milliseconds maxBackoff{10'000};   ///< the longest wait of all
};

/// How an HTTPTransport reaches the server and reads its replies.
struct HTTPTransportOptions {
    std::string urlTemplate = "{address}/index.php/api/{api}";  ///< where a request of an API goes
    Envelope envelope;                                          ///< how a reply is split
    std::chrono::milliseconds connectTimeout{10'000};           ///< to connect, TLS included
    std::chrono::milliseconds timeout{30'000};  ///< whole request, connection included
    bool verifyTLS = true;  ///< check the server's certificate and name (off only for test servers)
    /// SHA-256 pins of the server's public key, each "sha256//<base64>" (as
    /// libcurl's pinned public key option takes them): when given, a server
    /// whose key is none of them fails the request.
    std::vector<std::string> pinnedPublicKeys;
    /// A PEM file of the certificate authorities to trust; empty: the system's.
    std::string caCertificates;
    /// Offer HTTP/2 over TLS (ALPN), falling back to HTTP/1.1; false: HTTP/1.1 only.
    bool http2 = true;
    RetryPolicy retry;  ///< which failed GETs are made again (none by default)
    /// Further requests to a host wait for a free connection, without a curl
    /// handle and without their time limit running.
    long maxConnectionsPerHost = 6;
    /// Requests at once on one HTTP/2 connection, once the server has
    /// answered over HTTP/2.
    long maxStreamsPerConnection = 100;
    size_t maxIdleHandles = 6;  ///< curl handles kept for reuse between bursts
    size_t maxReplyBytes = 64u << 20;  ///< a longer reply fails with "<api>: reply larger than N bytes"
    /// Compressed replies the server may send; empty asks for none. gzip only
    /// by default: servers that answer brotli spend far more time compressing a
    /// small reply than the transfer saves on a fast network.
    std::string acceptEncoding = "gzip";
    std::string userAgent = "Veltrane/1.0";  ///< the User-Agent header
};

/// Splits a reply body by the envelope. Never throws. A body that is not a JSON
/// object gives a failure whose message starts with the API name.
GatewayReply splitEnvelope(std::string_view api, std::string_view body, const Envelope& envelope);

/// Whether api may name an API: letters, digits and "_" only, not empty. The
/// transport refuses any other name through the completion, before any request,
/// so that a name cannot reach another path of the server.
bool isAPIName(std::string_view api);

/// The form encoding of parameters ("a=1&b=x+y"): keys and strings
/// percent-encoded once by the form rules, numbers as their kind prints them,
/// booleans as 1 or 0, JSON null as an empty value, arrays and dictionaries as
/// compact JSON text. Nothing gives "". Throws JSONError for a container that
/// JSON cannot hold.
std::string encodeParameters(const Parameters& params);

namespace http {
class Engine;
}

/// The gateway's transport over HTTP (see the top of this file).
class HTTPTransport : public Transport {
public:
    /// A transport with its own engine and thread, which end with it.
    explicit HTTPTransport(HTTPTransportOptions options = {});
    ~HTTPTransport() override;
    HTTPTransport(const HTTPTransport&) = delete;
    HTTPTransport& operator=(const HTTPTransport&) = delete;

    /// A request of its own call (joining the current CallScope's group).
    void send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) override;
    void sendCall(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion, std::shared_ptr<Call> call) override;

    /// Makes a transport with these options the gateway's (Server::setTransport)
    /// and returns it.
    static std::shared_ptr<HTTPTransport> install(HTTPTransportOptions options = {});

    /// What the transport holds now: requests waiting for a connection,
    /// requests under way, and curl handles kept idle.
    struct Load {
        size_t waiting = 0;      ///< for a free connection, or a retry's time
        size_t active = 0;       ///< under way
        size_t idleHandles = 0;  ///< curl handles kept for reuse
    };
    /// The transport's load now (for tests and diagnostics).
    Load load() const;

private:
    std::shared_ptr<const HTTPTransportOptions> options_;
    std::shared_ptr<http::Engine> engine_;
    std::vector<std::string> headers_;  ///< sent with every request
};

} // namespace veltrane
