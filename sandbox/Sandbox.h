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
// Control routes, for the dashboard, the command line, tests and other
// processes (answers in the envelope; they are not journaled):
//   GET  /sandbox/requests     the journal: ?api=<name>&since=<entry or time>&limit=<n>
//   GET  /sandbox/state        the sale: orders, action-form orders, chat, the
//                              push queue, uploads, print requests, locks
//   POST /sandbox/fault        api=<name> kind=<kind> times=<n>|all [message=]
//                              [delay=<ms>] [status=<code> body=<text>]
//                              [probability=<0..1> seed=<n>]
//   POST /sandbox/scenario     api=<name> steps=<JSON array of {"kind", ...}>
//   GET  /sandbox/faults       the faults and scenarios set
//   POST /sandbox/clear-faults [api=<name>]
//   POST /sandbox/push         userID=<n> Type=<text> Content=<text>
//   POST /sandbox/reset        the state back to the seed, faults cleared
//   GET  /sandbox/print-requests
// Fault kinds: failure, malformed, delay, drop, reset (the connection reset
// before any reply), empty (closed without a reply), status (any HTTP status,
// with a body), dribble (the reply in small chunks over delay ms), truncate
// (half the reply, then closed); a scenario's step may also be normal.
//
// With a data folder the state of the sale and the whole journal live in
// DIR/sandbox.sqlite and survive restarts; each change is committed before
// its request is answered.
//
// Limits: request bodies up to 8 MiB (a larger one is refused by its length
// before it is read, or as soon as it passes the limit); connections idle for
// 2 s are closed, a request must arrive within 5 s; connections are served on
// threads that grow with them.
//
// Thread rules: all members may be called from any thread; requests are
// served on the server's own threads, one at a time against the state.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sandbox/Faults.h"
#include "sandbox/Journal.h"
#include "veltrane/foundation/Value.h"

namespace veltrane::sandbox {

struct Options {
    std::string host = "127.0.0.1";
    int port = 0;  // 0 picks a free port
    // Where the state (sandbox.sqlite) and uploads are kept, and where
    // seed.json (the built-in seed's shape) replaces the built-in data when
    // present. Nothing keeps the state in memory.
    std::optional<std::filesystem::path> dataDirectory;
    // With a data folder: start over from the seed.
    bool reset = false;
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
    // reset without a data folder, a data folder that is missing or not a folder, a seed.json that does not
    // read (with the place of the error), a sandbox.sqlite that is damaged or
    // not a sandbox's (never written to).
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
    // A sequence of outcomes for api, one per request, then back to normal.
    void setScenario(const std::string& api, std::vector<Fault> steps);
    // Clears the faults and scenarios of api, or of every API.
    void clearFaults(const std::optional<std::string>& api = std::nullopt);
    // The faults and scenarios set, as GET /sandbox/faults lists them.
    Array faults() const;
    // Queues a push message for a user; it is returned by "fetchPushMessage".
    long queuePushMessage(int32_t receiverID, std::string type, std::string content);
    // The version the installation manifest announces (and its note).
    void setManifestVersion(std::string version, std::optional<std::string> note);
    // What has been uploaded: one dictionary per upload (SN, ID, file name,
    // size, SHA-256...).
    Array uploads() const;
    // The request journal, as GET /sandbox/requests answers it.
    Array journal(const JournalQuery& query = {}) const;
    // How many requests of api came with every one of withParams (their
    // text as parsed), among the last 10,000: the verification of a test.
    size_t received(const std::string& api, const std::map<std::string, std::string>& withParams = {}) const;
    // Waits until count requests of api have arrived, answered or not;
    // false when they have not within the time.
    bool waitForRequest(const std::string& api, size_t count = 1, std::chrono::milliseconds within = std::chrono::seconds(5)) const;
    // The sale as GET /sandbox/state answers it.
    Dictionary state() const;
    // The state back to the seed, faults and scenarios cleared.
    void reset();

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
