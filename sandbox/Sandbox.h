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
// Documents: GET /uploads/sign/<SN>-<ID>.pdf serves an uploaded signed copy
// (which the order's receipt then names under "SignPath"), GET
// /receipts/<name>.pdf and /sheets/<name>.pdf a generated one-page PDF.
//
// Control routes, for tests and other processes (answers in the envelope):
//   POST /sandbox/fault   api=<name> kind=failure|malformed|delay|drop
//                         times=<n>|all [message=<text>] [delay=<ms>]
//   GET  /sandbox/faults  the faults set, with how many requests each has left
//   GET  /sandbox/print-requests   the print requests received
//   POST /sandbox/clear-faults
//   POST /sandbox/push    userID=<n> Type=<text> Content=<text>
//
// Limits: request bodies up to 8 MiB (a larger one is refused by its length
// before it is read); connections idle for 2 s are closed, a request must
// arrive within 5 s; 32 workers.
//
// Thread rules: all members may be called from any thread; requests are
// served on the server's own threads, one at a time against the state.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Value.h"

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
    // Personal data in the request journal as it came (and in the process's
    // log, which the application sets); masked by default.
    bool revealPersonalData = false;
    // The version the installation manifest announces, and its note; by
    // default the seed's "manifest".
    std::optional<std::string> manifestVersion;
    std::optional<std::string> manifestNote;
};

class Sandbox {
public:
    // Throws std::invalid_argument naming what is wrong with the options: a
    // data folder that is missing or not a folder, a seed.json that does not
    // read (with the place of the error).
    explicit Sandbox(Options options = {});
    ~Sandbox();  // stops serving
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    // Starts serving on its own threads; throws std::runtime_error when the
    // address cannot be bound (a port another server holds included).
    void start();
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
    // The API names requested so far, in order (each request once).
    std::vector<std::string> requestedAPIs() const;

    // The built-in seed data as JSON text (the shape seed.json may take).
    static std::string builtInSeed();

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// The text of a request log line's value: control characters and non-ASCII
// bytes escaped (\n, \x1b...), so that no value can forge a line.
std::string escapedForLog(std::string_view text);

// The name an upload is stored under: "<SN>-<ID>.pdf", or nothing when SN is
// not 1 to 64 letters, digits, "-" or "_", or ID not a decimal integer.
std::optional<std::string> uploadFileName(std::string_view SN, std::string_view ID);

} // namespace veltrane::sandbox
