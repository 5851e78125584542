// A local imitation of the dealer server, for developing and testing against.
//
// It answers every API name of the gateway on the HTTP transport's default
// route (<address>/index.php/api/<name>) and envelope ({"status", "info",
// "data"}), the signature upload at /index.php/api/common/upload, and an
// installation manifest at /manifest.plist. Its data is seeded with a dealer
// company's numbers, devices, plans, orders, forms and messages, and it keeps
// the state a counter sale needs (locks, created orders, chat, push messages,
// uploads). Every request is checked against the parameters its API takes:
// a missing, misspelt or ill-typed parameter, or the wrong method, gets a
// failure envelope that names it.
//
// Control routes, for tests and other processes:
//   POST /sandbox/fault   api=<name> kind=failure|malformed|delay|drop
//                         [message=..] [delay=<ms>] [times=<n>]
//   POST /sandbox/clear-faults
//   POST /sandbox/push    userID=<n> Type=<text> Content=<text>
//
// Thread rules: all members may be called from any thread; requests are
// served on the server's own threads, one at a time against the state.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "foundation/Value.h"

namespace veltrane::sandbox {

struct Fault {
    enum class Kind { failure, malformed, delay, drop };
    Kind kind = Kind::failure;
    std::string message = "服务器繁忙";  // for failure
    int delayMilliseconds = 0;           // for delay: then answers normally
    int times = -1;                      // how many requests it hits; -1 for all
};

struct Options {
    std::string host = "127.0.0.1";
    int port = 0;  // 0 picks a free port
    // Where uploads are written, and where seed.json (the built-in seed's
    // shape) replaces the built-in data when present. Nothing keeps all in memory.
    std::optional<std::filesystem::path> dataDirectory;
    bool logRequests = false;  // one line per request on the library's log
};

class Sandbox {
public:
    explicit Sandbox(Options options = {});
    ~Sandbox();  // stops serving
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    // Starts serving on its own threads; throws std::runtime_error when the
    // address cannot be bound.
    void start();
    // Serves on the calling thread until stop() (from another thread or a signal).
    void run();
    void stop();

    int port() const;
    std::string address() const;  // "http://127.0.0.1:<port>"

    void setFault(const std::string& api, Fault fault);
    void clearFaults();
    // Queues a push message for a user; it is returned by "fetchPushMessage".
    long queuePushMessage(int32_t receiverID, std::string type, std::string content);
    // The version the installation manifest announces (and its note).
    void setManifestVersion(std::string version, std::optional<std::string> note);
    // What has been uploaded: one dictionary per upload (SN, ID, file name, size).
    Array uploads() const;

    // The built-in seed data as JSON text (the shape seed.json may take).
    static std::string builtInSeed();

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

} // namespace veltrane::sandbox
