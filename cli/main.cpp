// veltrane: the library's command line. `veltrane --help` and
// `veltrane <command> --help` tell all; usage errors end with status 2,
// failures of what was asked with status 1.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/Demo.h"
#include "cli/Interrupt.h"
#include "sandbox/Routes.h"
#include "sandbox/Sandbox.h"
#include "veltrane/Version.h"
#include "veltrane/documents/Receipt.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/HTTPSession.h"
#include "veltrane/foundation/Await.h"
#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/PersonalData.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/UserDefaults.h"

using namespace veltrane;

namespace {

constexpr int kUsage = 2;

void listAPIs() {
    static const char* kinds[] = {"integer", "number", "text", "JSON"};
    for (const sandbox::Route& r : sandbox::routes()) {
        for (const auto& shape : r.shapes) {
            std::string params;
            for (const sandbox::Param& p : shape)
                params += std::string(params.empty() ? "" : " ") + (p.required ? "" : "[") + p.name + "=" + kinds[static_cast<int>(p.kind)] +
                          (p.required ? "" : "]");
            std::cout << r.method << (std::string(r.method) == "GET" ? "  " : " ") << r.api << "  " << (params.empty() ? "(no parameters)" : params)
                      << '\n';
        }
    }
}

struct CallArguments {
    std::string api;
    std::vector<std::string> params;
    std::string server = "http://127.0.0.1:8080";
    bool list = false;
    std::optional<int64_t> timeout;  // milliseconds
    bool timing = false;
};

// "attempt 1: HTTP 200 over HTTP/1.1 on a new connection, sent 182 B, received
// 265 B; name lookup 0.02 ms, connect 0.11 ms, TLS 0.00 ms, first byte 1.32
// ms, total 1.35 ms"
std::string timingLine(const RequestEvent& e) {
    auto ms = [](std::chrono::microseconds d) {
        char text[32];
        std::snprintf(text, sizeof text, "%.2f ms", static_cast<double>(d.count()) / 1000.0);
        return std::string(text);
    };
    std::string line = "attempt " + std::to_string(e.attempt) + ": ";
    line += e.status ? "HTTP " + std::to_string(e.status) + " over HTTP/" + e.httpVersion : std::string("no answer");
    line += e.connectionReused ? " on a reused connection" : " on a new connection";
    line += ", sent " + std::to_string(e.bytesSent) + " B, received " + std::to_string(e.bytesReceived) + " B; name lookup " + ms(e.nameLookup) +
            ", connect " + ms(e.connect) + ", TLS " + ms(e.tlsHandshake) + ", first byte " + ms(e.firstByte) + ", total " + ms(e.total);
    if (e.error) line += "; " + *e.error;
    return line;
}

int callCommand(const CallArguments& a) {
    if (a.list) {
        listAPIs();
        return 0;
    }
    if (a.api.empty()) {
        std::cerr << "veltrane call: an API name is needed (veltrane call --list shows them)\n";
        return kUsage;
    }
    const sandbox::Route* route = sandbox::route(a.api);
    if (!route) {
        std::cerr << "veltrane call: unknown API name \"" << sandbox::escapedForLog(a.api) << "\" (veltrane call --list shows the known ones)\n";
        return kUsage;
    }
    Dictionary params;
    for (const std::string& p : a.params) {
        size_t eq = p.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::cerr << "veltrane call: parameter \"" << sandbox::escapedForLog(p) << "\" is not key=value\n";
            return kUsage;
        }
        params.set(p.substr(0, eq), p.substr(eq + 1));
    }
    cli::catchInterrupts();
    HTTPTransport::install();
    Server::setAddress(a.server);
    std::vector<std::string> timings;  // written by the transport's thread before the answer
    if (a.timing) setRequestObserver([&timings](const RequestEvent& e) { timings.push_back(timingLine(e)); });
    CallGroup group;
    if (a.timeout) group.setTimeout(std::chrono::milliseconds(*a.timeout));
    std::mutex mutex;
    std::optional<Outcome<Value>> answer;
    {
        CallScope scope(group);
        GatewayCallback done = [&](bool ok, std::optional<std::string> message, std::optional<Value> data) {
            std::lock_guard lock(mutex);
            answer = Outcome<Value>{ok, std::move(message), std::move(data)};
        };
        if (std::string(route->method) == "POST") Server::httpPost(a.api, params, done);
        else Server::httpGet(a.api, params, done);
    }
    cli::waitForAnswer([&] {
        std::lock_guard lock(mutex);
        return answer.has_value();
    }, group, std::chrono::hours(24));
    Server::setTransport(nullptr);
    setRequestObserver(nullptr);
    for (const std::string& line : timings) std::cerr << "timing: " << line << '\n';
    Outcome<Value> outcome = answer.value_or(Outcome<Value>{false, std::string("no answer"), std::nullopt});
    if (cli::interrupted()) {
        std::cerr << "veltrane call: interrupted (" << outcome.message.value_or("") << ")\n";
        return cli::kInterrupted;
    }
    Dictionary printed;
    printed.set("success", outcome.success);
    printed.set("message", NSGuardNil(outcome.message));
    printed.set("data", NSGuardNil(outcome.result));
    std::cout << writeJSON(printed) << std::endl;
    return outcome.success ? 0 : 1;
}

struct UploadArguments {
    std::string pdf;
    std::string SN;
    int32_t ID = 0;
    std::string server = "http://127.0.0.1:8080";
};

// "[#########-----------]  45%  139 KiB of 300 KiB"
std::string progressBar(uint64_t sent, uint64_t total) {
    constexpr int kWidth = 30;
    int filled = total ? static_cast<int>(sent * kWidth / total) : kWidth;
    char figures[64];
    std::snprintf(figures, sizeof figures, "] %3d%%  %llu KiB of %llu KiB", total ? static_cast<int>(sent * 100 / total) : 100,
                  static_cast<unsigned long long>(sent / 1024), static_cast<unsigned long long>(total / 1024));
    return "[" + std::string(filled, '#') + std::string(kWidth - filled, '-') + figures;
}

int uploadCommand(const UploadArguments& a) {
    constexpr uintmax_t kLargest = 64u << 20;
    std::error_code error;
    uintmax_t size = std::filesystem::file_size(a.pdf, error);
    if (error || !std::filesystem::is_regular_file(a.pdf)) {
        std::cerr << "veltrane upload-signature: cannot read " << a.pdf << '\n';
        return 1;
    }
    if (size > kLargest) {
        std::cerr << "veltrane upload-signature: " << a.pdf << " is larger than 64 MiB\n";
        return 1;
    }
    std::string bytes(static_cast<size_t>(size), '\0');
    std::ifstream(a.pdf, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(size));

    Server::setAddress(a.server);
    Receipt receipt(Dictionary{{"SN", a.SN}, {"ID", NSBoxInt(a.ID)}});
    // The library counts any JSON object in reply as a success and logs it;
    // the tool reads that reply's status too.
    std::optional<std::string> reply;
    LogSink previous = setLogSink([&](std::string_view line) {
        if (!reply && line.rfind("{", 0) == 0) reply = std::string(line);
        else std::cerr << line << '\n';
    });
    bool terminal = isatty(STDOUT_FILENO);
    std::optional<std::pair<bool, std::optional<std::string>>> outcome;
    cli::catchInterrupts();
    CallGroup group;
    {
        CallScope scope(group);
        receipt.uploadSignaturePDF(
            std::move(bytes), [&](bool ok, std::optional<std::string> message) { outcome.emplace(ok, std::move(message)); },
            [&](uint64_t sent, uint64_t total) { std::cout << (terminal ? "\r" : "") << progressBar(sent, total) << (terminal ? "" : "\n") << std::flush; });
    }
    // The upload reports on the main queue, driven here.
    cli::driveMainQueue([&] { return outcome.has_value(); }, group, std::chrono::minutes(10));
    setLogSink(previous);
    if (terminal) std::cout << '\n';
    if (cli::interrupted()) {
        std::cerr << "veltrane upload-signature: interrupted (" << (outcome ? outcome->second.value_or("") : "") << ")\n";
        return cli::kInterrupted;
    }
    if (!outcome) {
        std::cerr << "veltrane upload-signature: no answer within 10 minutes\n";
        return 1;
    }
    if (!outcome->first) {
        std::cout << "failed: " << outcome->second.value_or("") << std::endl;
        return 1;
    }
    std::cout << outcome->second.value_or("") << "; the server replied " << reply.value_or("(nothing logged)") << std::endl;
    std::optional<Dictionary> replied = reply ? jsonDictionary(*reply) : std::nullopt;
    bool accepted = replied && replied->optBool("status");
    return accepted ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"veltrane: the command line of the Veltrane library — a sandbox dealer server, one request through the gateway, a "
                 "counter sale walked through the library, the push-message poller and the update check"};
    app.set_version_flag("--version", cli::versions());
    app.require_subcommand(1, 1);
    app.fallthrough();  // the options below may follow the command too
    bool reveal = false;
    app.add_flag("--reveal-personal-data", reveal,
                 "Show names, identity numbers, phones, addresses and photos in clear in the library's log and the sandbox's journal (development only)");

    CallArguments callArgs;
    CLI::App* callApp = app.add_subcommand("call", "Send one request through the gateway and print {\"success\", \"message\", \"data\"}");
    callApp->add_option("api", callArgs.api, "API name; the method is the API's own");
    callApp->add_option("params", callArgs.params, "Parameters as key=value")->type_name("KEY=VALUE");
    callApp->add_option("--server", callArgs.server, "The dealer server's base address")->capture_default_str();
    callApp->add_flag("--list", callArgs.list, "List the API names with their methods and parameters");
    callApp->add_option("--timeout", callArgs.timeout, "Give up when no answer came within MS milliseconds (connecting and waiting included)")
        ->type_name("MS")
        ->check(CLI::Range(int64_t{1}, int64_t{86'400'000}));
    callApp->add_flag("--timing", callArgs.timing, "Print where the time of each attempt went (on standard error)");
    callApp->footer("Exits 0 when the server accepted the request, 1 when it did not, 2 for a usage error, 130 when interrupted (Ctrl-C).");

    UploadArguments uploadArgs;
    CLI::App* uploadApp = app.add_subcommand("upload-signature", "Upload a customer's signed copy of a receipt, with its progress shown");
    uploadApp->add_option("pdf", uploadArgs.pdf, "The signed PDF")->required()->type_name("FILE");
    uploadApp->add_option("--sn", uploadArgs.SN, "The receipt's order serial number")->required();
    uploadApp->add_option("--id", uploadArgs.ID, "The receipt's identifier")->required();
    uploadApp->add_option("--server", uploadArgs.server, "The dealer server's base address")->capture_default_str();
    uploadApp->footer("Exits 0 when the server stored the copy, 1 when it did not, 130 when interrupted (Ctrl-C).");

    std::string demoServer;
    CLI::App* demoApp = app.add_subcommand("demo", "Walk a counter sale through the library, against a server or a sandbox started in-process");
    demoApp->add_option("--server", demoServer, "The dealer server's base address (default: an embedded sandbox)");
    bool demoVerbose = false;
    demoApp->add_flag("--verbose", demoVerbose, "Show the library's log lines on standard error");

    std::vector<cli::Command> commands = cli::addSandboxCommands(app, reveal);
    for (cli::Command& c : cli::addMessagingCommands(app)) commands.push_back(std::move(c));

    auto known = [&](const std::string& name) {
        std::vector<CLI::App*> all = app.get_subcommands([](CLI::App*) { return true; });
        return std::any_of(all.begin(), all.end(), [&](CLI::App* sub) { return sub->get_name() == name; });
    };
    if (argc > 1 && argv[1][0] != '-' && !known(argv[1])) {
        std::cerr << "veltrane: unknown command \"" << sandbox::escapedForLog(argv[1]) << "\" (veltrane --help lists them)\n";
        return kUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kUsage;
    }
    if (reveal) {
        std::cerr << "veltrane: --reveal-personal-data: personal data is shown in clear; for development only, never with customers' data\n";
        logPersonalDataInClear(true);
    }
    try {
        if (callApp->parsed()) return callCommand(callArgs);
        if (uploadApp->parsed()) return uploadCommand(uploadArgs);
        if (demoApp->parsed()) {
            // The demo's poller keeps its last identifier in a store of its own,
            // not in the settings of an application on this machine.
            std::filesystem::path folder = std::filesystem::temp_directory_path() / ("veltrane-demo-" + std::to_string(::getpid()));
            UserDefaults::setStandardPath(folder / "UserDefaults.sqlite");
            int status = cli::runDemo(demoServer, std::cout, demoVerbose);
            std::error_code ignored;
            std::filesystem::remove_all(folder, ignored);
            return status;
        }
        for (const cli::Command& c : commands)
            if (c.app->parsed()) return c.run();
    } catch (const std::invalid_argument& e) {
        std::cerr << "veltrane: " << e.what() << '\n';
        return kUsage;
    } catch (const std::exception& e) {
        std::cerr << "veltrane: " << e.what() << '\n';
        return 1;
    }
    return kUsage;
}
