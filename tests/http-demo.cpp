// The demo against the sandbox: it walks through, and a failure injected at
// any API it calls stops that step with the step, the API and the server's
// message, ends with status 1, and never crashes.
#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>

#include "cli/Demo.h"
#include "sandbox/Routes.h"
#include "sandbox/Sandbox.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

struct DemoRun {
    int status;
    std::string transcript;
    std::vector<std::string> apis;  // what the sandbox was asked, in order
};

// One demo run against a fresh sandbox (the demo locks what it sells).
DemoRun runDemo(const std::optional<std::pair<std::string, sandbox::Fault>>& fault = std::nullopt) {
    sandbox::Sandbox server;
    server.start();
    if (fault) server.setFault(fault->first, fault->second);
    std::ostringstream out;
    LogSink previous = setLogSink({});
    int status = cli::runDemo(server.address(), out);
    setLogSink(previous);
    std::vector<std::string> apis;
    for (const Value& entry : server.journal({.limit = sandbox::Journal::kKept}))
        if (std::string api = entry.asDictionary().optString("api").value_or(""); sandbox::route(api)) apis.push_back(api);
    return {status, out.str(), apis};
}

// What changes from run to run: the sandbox's port and today's date.
std::string steady(std::string text, const std::string& address) {
    for (size_t at; (at = text.find(address)) != std::string::npos;) text.replace(at, address.size(), "SANDBOX");
    std::time_t now = std::time(nullptr);
    char day[16];
    std::strftime(day, sizeof day, "%Y%m%d", std::localtime(&now));
    for (size_t at; (at = text.find(day)) != std::string::npos;) text.replace(at, 8, "TODAY");
    return std::regex_replace(text, std::regex(R"(\d\d-\d\d \d\d:\d\d  )"), "MM-DD hh:mm  ");
}

// The whole sale as the screens would show it, every value read through the
// library from the sandbox's replies. VELTRANE_UPDATE_TRANSCRIPT=1 writes the
// expected text afresh, to be read and committed.
TEST(Demo, WalksThroughASaleAgainstTheSandbox) {
    sandbox::Sandbox server;
    server.start();
    std::ostringstream out;
    LogSink previous = setLogSink({});
    int status = cli::runDemo(server.address(), out);
    setLogSink(previous);
    EXPECT_EQ(status, 0) << out.str();
    std::string path = std::string(VELTRANE_TEST_SUPPORT) + "/demo-transcript.txt";
    std::string got = steady(out.str(), server.address());
    if (std::getenv("VELTRANE_UPDATE_TRANSCRIPT")) std::ofstream(path) << got;
    std::ifstream file(path);
    std::string expected((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(got, expected);
}

TEST(Demo, AFailureAtAnyAPIStopsItsStepAndNothingElseBreaks) {
    std::vector<std::string> apis = runDemo().apis;
    std::sort(apis.begin(), apis.end());
    apis.erase(std::unique(apis.begin(), apis.end()), apis.end());
    for (const std::string& api : apis) {
        SCOPED_TRACE(api);
        sandbox::Fault fault;
        fault.message = "注入的故障 " + api;
        DemoRun run = runDemo(std::make_pair(api, fault));
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.transcript.find("FAILED: " + api + ": 注入的故障 " + api), std::string::npos) << run.transcript;
        EXPECT_NE(run.transcript.find("The sale stopped short:\n  step "), std::string::npos) << run.transcript;
    }
}

TEST(Demo, AnUnreachableServerEndsWithAStatusNotACrash) {
    std::ostringstream out;
    LogSink previous = setLogSink({});
    int status = cli::runDemo("http://127.0.0.1:1", out);
    setLogSink(previous);
    EXPECT_EQ(status, 1);
    EXPECT_NE(out.str().find("Couldn't connect to server"), std::string::npos) << out.str();
}

} // namespace
} // namespace veltrane
