// veltrane sandbox (serve the sandbox until Ctrl-C) and veltrane journal (what
// a running sandbox received, as it comes).
#include <pthread.h>

#include <csignal>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "cli/Commands.h"
#include "cli/Interrupt.h"
#include "sandbox/Sandbox.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/HTTPSession.h"
#include "veltrane/platform/HTTPTransport.h"

namespace veltrane::cli {

namespace {

const char* kSandboxFooter = R"(
The sandbox answers every API name on <address>/index.php/api/<name>, the
signature upload on /index.php/api/common/upload and a manifest on
/manifest.plist, logs one line per request and keeps a journal of them
(veltrane journal). Open <address>/sandbox/ in a browser for the journal
live, the state of the sale, and forms for the routes below. Control routes:
  GET  /sandbox/requests       the journal: ?api=<name>&since=<entry>&limit=<n>
  GET  /sandbox/state          orders, action-form orders, chat, pushes, uploads
  POST /sandbox/fault          api=<name> kind=<kind> times=<n>|all [message=]
                               [delay=<ms>] [status=<code> body=<text>]
                               [probability=<0..1> seed=<n>]
  POST /sandbox/scenario       api=<name> steps=<JSON array of {"kind", ...}>
  GET  /sandbox/faults         the faults and scenarios set
  POST /sandbox/clear-faults   [api=<name>]
  POST /sandbox/push           userID=<n> Type=<text> Content=<text>
  POST /sandbox/reset          the state back to the seed, faults cleared
Fault kinds: failure, malformed, delay, drop, reset, empty, status, dribble,
truncate (and normal, as a scenario's step).
e.g. curl -d 'api=getLabel&kind=malformed&times=1' http://127.0.0.1:8080/sandbox/fault
     curl -d 'api=postCreateOrder' --data-urlencode 'steps=[{"kind":"failure","message":"库存不足"},{"kind":"normal"}]' \
          http://127.0.0.1:8080/sandbox/scenario)";

struct SandboxArguments {
    int port = 8080;
    std::string data;
    bool reset = false;
    std::string dumpSeed;
    std::optional<std::string> manifestVersion;
    std::optional<std::string> manifestNote;
};

// Writes the built-in seed to a file or standard output.
int dumpSeed(const std::string& to) {
    if (to == "-") {
        std::cout << sandbox::Sandbox::builtInSeed() << '\n';
        return 0;
    }
    std::ofstream out(to, std::ios::binary);
    if (!(out << sandbox::Sandbox::builtInSeed() << '\n')) {
        std::cerr << "veltrane sandbox: cannot write " << to << '\n';
        return 1;
    }
    std::cout << "wrote the built-in seed to " << to << '\n';
    return 0;
}

// Serves until SIGINT or SIGTERM; the options' problems are thrown as
// std::invalid_argument (status 2), a port that cannot be bound as
// std::runtime_error (status 1).
int serve(const SandboxArguments& a, bool reveal) {
    if (!a.dumpSeed.empty()) return dumpSeed(a.dumpSeed);
    // Blocked on this thread and the server's threads started after it, so
    // that they can be waited for here.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    sandbox::Options options;
    options.port = a.port;
    options.logRequests = true;
    if (!a.data.empty()) options.dataDirectory = a.data;
    options.reset = a.reset;
    options.manifestVersion = a.manifestVersion;
    options.manifestNote = a.manifestNote;
    options.revealPersonalData = reveal;
    sandbox::Sandbox server(options);
    server.start();
    std::cout << "Sandbox dealer server on " << server.address() << " (Ctrl-C stops it); state "
              << (a.data.empty() ? std::string("in memory") : "kept in " + (std::filesystem::path(a.data) / "sandbox.sqlite").string())
              << (a.reset ? ", started over from the seed" : "") << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    server.stop();
    std::cout << "stopped" << std::endl;
    return 0;
}

struct JournalArguments {
    std::string server = "http://127.0.0.1:8080";
    std::optional<std::string> api;
    std::optional<long> since;
    size_t limit = 20;
    bool follow = false;
    bool json = false;
};

// "#12  10:31:02.123  GET getLabel  200  152 B  3 ms  fault=delay  {"type":"1"}"
std::string journalLine(const Dictionary& e) {
    double time = e.optDouble("time");
    std::time_t seconds = static_cast<std::time_t>(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char clock[32];
    std::strftime(clock, sizeof clock, "%H:%M:%S", &local);
    char milliseconds[8];
    std::snprintf(milliseconds, sizeof milliseconds, ".%03d", static_cast<int>((time - static_cast<double>(seconds)) * 1000) % 1000);
    std::string line = "#" + std::to_string(e.optLong("entry")) + "  " + clock + milliseconds + "  " +
                       sandbox::escapedForLog(e.optString("method").value_or("")) + " " + sandbox::escapedForLog(e.optString("api").value_or("")) +
                       "  " + std::to_string(e.optLong("status")) + "  " + std::to_string(e.optLong("replyBytes")) + " B  " +
                       std::to_string(e.optLong("ms")) + " ms";
    if (std::optional<std::string> applied = e.optString("applied")) line += "  " + sandbox::escapedForLog(*applied);
    Dictionary params = e.optDictionary("params");
    if (params.size()) line += "  " + writeJSON(params);
    return line;
}

// The entries after `after` (or the most recent), or why they could not be read.
std::variant<Array, std::string> fetchJournal(const JournalArguments& a, std::optional<long> after, size_t limit) {
    Dictionary query{{"limit", std::to_string(limit)}};
    if (a.api) query.set("api", *a.api);
    if (after) query.set("since", std::to_string(*after));
    HTTPRequest request;
    request.url = a.server + "/sandbox/requests?" + encodeParameters(query);
    HTTPSessionOptions options;
    options.timeoutMilliseconds = 5000;
    HTTPSession::Outcome outcome = HTTPSession::perform(request, options);
    std::optional<Dictionary> reply = outcome.data ? jsonDictionary(*outcome.data) : std::nullopt;
    if (!reply) return "no sandbox answered at " + a.server + (outcome.error ? " (" + outcome.error->description + ")" : std::string());
    if (!reply->optBool("status")) return reply->optString("info").value_or("refused");
    return reply->optArray("data").value_or(Array());
}

// Prints the journal, then with follow what comes, until Ctrl-C.
int journal(const JournalArguments& a) {
    catchInterrupts();
    std::optional<long> last = a.since;
    for (bool first = true; first || (a.follow && !interrupted()); first = false) {
        std::variant<Array, std::string> entries = fetchJournal(a, last, first ? a.limit : sandbox::Journal::kKept);
        if (const std::string* why = std::get_if<std::string>(&entries)) {
            std::cerr << "veltrane journal: " << *why << '\n';
            return 1;
        }
        for (const Value& entry : std::get<Array>(entries)) {
            const Dictionary& e = entry.asDictionary();
            std::cout << (a.json ? writeJSON(e) : journalLine(e)) << '\n';
            last = std::max(last.value_or(0), e.optLong("entry"));
        }
        std::cout << std::flush;
        for (int slice = 0; a.follow && slice < 3 && !interrupted(); ++slice) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return 0;
}

} // namespace

std::vector<Command> addSandboxCommands(CLI::App& app, const bool& revealPersonalData) {
    auto sandboxArgs = std::make_shared<SandboxArguments>();
    CLI::App* sandboxApp = app.add_subcommand("sandbox", "Serve the sandbox dealer server on 127.0.0.1 until Ctrl-C");
    sandboxApp->add_option("--port", sandboxArgs->port, "Port to listen on; 0 picks a free one")->check(CLI::Range(0, 65535))->capture_default_str();
    sandboxApp
        ->add_option("--data", sandboxArgs->data,
                     "Folder that keeps the state and the journal (DIR/sandbox.sqlite, surviving restarts) and the uploads; DIR/seed.json, "
                     "when present, replaces the built-in data")
        ->type_name("DIR");
    sandboxApp->add_flag("--reset", sandboxArgs->reset, "With --data: start over from the seed (the state and the journal emptied)");
    sandboxApp->add_option("--dump-seed", sandboxArgs->dumpSeed, "Write the built-in seed (the shape of seed.json) to FILE, or - for standard output, and exit")
        ->type_name("FILE");
    sandboxApp->add_option("--manifest-version", sandboxArgs->manifestVersion, "The version /manifest.plist announces (default: the seed's)");
    sandboxApp->add_option("--manifest-note", sandboxArgs->manifestNote, "The release note /manifest.plist gives with it");
    sandboxApp->footer(kSandboxFooter);

    auto journalArgs = std::make_shared<JournalArguments>();
    CLI::App* journalApp = app.add_subcommand("journal", "Print the requests a running sandbox received, and with --follow those to come");
    journalApp->add_option("--server", journalArgs->server, "The sandbox's base address")->capture_default_str();
    journalApp->add_option("--api", journalArgs->api, "Only the requests of this API name");
    journalApp->add_option("--since", journalArgs->since, "Only the entries numbered after N")->type_name("N")->check(CLI::NonNegativeNumber);
    journalApp->add_option("--limit", journalArgs->limit, "How many of the most recent to print first")
        ->check(CLI::Range(size_t{1}, sandbox::Journal::kKept))
        ->capture_default_str();
    journalApp->add_flag("--follow,-f", journalArgs->follow, "Keep printing requests as they come, until Ctrl-C");
    journalApp->add_flag("--json", journalArgs->json, "One JSON object per entry, as GET /sandbox/requests answers it");
    journalApp->footer("Exits 0 (after Ctrl-C when following), 1 when no sandbox answers.");

    return {{sandboxApp, [sandboxArgs, &revealPersonalData] { return serve(*sandboxArgs, revealPersonalData); }},
            {journalApp, [journalArgs] { return journal(*journalArgs); }}};
}

} // namespace veltrane::cli
