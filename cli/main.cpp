// veltrane: the library's command line.
//
//   veltrane sandbox [--port N] [--data DIR]       serve the sandbox dealer server
//   veltrane call API_NAME [--post] [key=value ...] [--server URL]
//                                                  send one request through Server
//   veltrane demo [--server URL]                   walk a counter sale through the library
#include <csignal>
#include <iostream>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include "foundation/Await.h"
#include "cli/Demo.h"
#include "foundation/Boxing.h"
#include "foundation/JSON.h"
#include "platform/Server.h"
#include "sandbox/Sandbox.h"

using namespace veltrane;

namespace {

const char* kUsage = R"(usage:
  veltrane sandbox [--port N] [--data DIR]
      Serve the sandbox dealer server on 127.0.0.1 (port 8080 by default) until stopped.
      DIR keeps uploads; DIR/seed.json, when present, replaces the built-in data.
  veltrane call API_NAME [--post] [key=value ...] [--server URL]
      Send one request through the gateway (GET unless --post) to URL
      (http://127.0.0.1:8080 by default) and print {"success", "message", "data"}.
  veltrane demo [--server URL]
      Walk a counter sale through the library against URL, or against a sandbox
      started in-process on a free port.
)";

int usage() {
    std::cerr << kUsage;
    return 2;
}

// Reads "--name value" from args at i; false when the value is missing.
bool option(const std::vector<std::string>& args, size_t& i, const char* name, std::string& value) {
    if (args[i] != name) return false;
    if (i + 1 >= args.size()) throw std::invalid_argument(std::string(name) + " needs a value");
    value = args[++i];
    return true;
}

int sandboxCommand(const std::vector<std::string>& args) {
    sandbox::Options options;
    options.logRequests = true;
    std::string value;
    for (size_t i = 0; i < args.size(); ++i) {
        if (option(args, i, "--port", value)) options.port = std::stoi(value);
        else if (option(args, i, "--data", value)) options.dataDirectory = value;
        else return usage();
    }
    if (options.port == 0) options.port = 8080;

    // Stop cleanly on Ctrl-C or SIGTERM: the signals wait for one thread.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    sandbox::Sandbox server(options);
    server.start();
    std::cout << "Sandbox dealer server on " << server.address() << " (Ctrl-C stops it)" << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    server.stop();
    std::cout << "stopped" << std::endl;
    return 0;
}

int callCommand(const std::vector<std::string>& args) {
    if (args.empty()) return usage();
    std::string api = args[0], server = "http://127.0.0.1:8080", value;
    bool post = false;
    Dictionary params;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--post") post = true;
        else if (option(args, i, "--server", value)) server = value;
        else if (size_t eq = args[i].find('='); eq != std::string::npos) params.set(args[i].substr(0, eq), args[i].substr(eq + 1));
        else return usage();
    }
    Server::setAddress(server);
    auto outcome = await<Value>([&](GatewayCallback done) {
        if (post) Server::httpPost(api, params, done);
        else Server::httpGet(api, params, done);
    });
    Dictionary printed;
    printed.set("success", outcome.success);
    printed.set("message", NSGuardNil(outcome.message));
    printed.set("data", NSGuardNil(outcome.result));
    std::cout << writeJSON(printed) << std::endl;
    Server::setTransport(nullptr);
    return outcome.success ? 0 : 1;
}

int demoCommand(const std::vector<std::string>& args) {
    std::string server;
    for (size_t i = 0; i < args.size(); ++i)
        if (!option(args, i, "--server", server)) return usage();
    return cli::runDemo(server, std::cout);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) return usage();
    std::string command = args.front();
    args.erase(args.begin());
    try {
        if (command == "sandbox") return sandboxCommand(args);
        if (command == "call") return callCommand(args);
        if (command == "demo") return demoCommand(args);
    } catch (const std::exception& e) {
        std::cerr << "veltrane " << command << ": " << e.what() << '\n';
        return 1;
    }
    return usage();
}
