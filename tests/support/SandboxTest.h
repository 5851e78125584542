// A sandbox dealer server on a free loopback port, shared by a test suite,
// with the gateway pointed at it through the HTTP transport; and a folder
// for a sandbox's data.
#pragma once

#include <unistd.h>

#include <filesystem>

#include "veltrane/foundation/Await.h"
#include "veltrane/platform/HTTPTransport.h"
#include "sandbox/Sandbox.h"
#include "support/Harness.h"

namespace veltrane::test {

class SandboxTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        sandbox = new sandbox::Sandbox();
        sandbox->start();
    }
    static void TearDownTestSuite() {
        delete sandbox;
        sandbox = nullptr;
    }
    void SetUp() override {
        HTTPTransportOptions options;  // a time-out the fault tests can pass
        options.timeout = std::chrono::seconds(2);
        Server::setTransport(std::make_shared<HTTPTransport>(options));
        Server::setAddress(sandbox->address());
        Account::signIn(User(7, 1, "gz_tianhe_07"));
        previousSink = setLogSink([this](std::string_view line) {
            std::lock_guard lock(logMutex);
            logLines.emplace_back(line);
        });
    }
    void TearDown() override {
        sandbox->clearFaults();
        setLogSink(previousSink);
        Server::setTransport(nullptr);
        Account::signOut();
    }

    // One raw gateway request.
    static Outcome<Value> request(HTTPMethod method, const std::string& api, Parameters params) {
        return await<Value>([&](GatewayCallback done) {
            if (method == HTTPMethod::GET) Server::httpGet(api, std::move(params), done);
            else Server::httpPost(api, std::move(params), done);
        });
    }

    static inline sandbox::Sandbox* sandbox = nullptr;
    std::mutex logMutex;
    std::vector<std::string> logLines;
    LogSink previousSink;
};

// A test's own empty folder, DIR/data made, removed after it.
class SandboxFolder : public ::testing::Test {
protected:
    void SetUp() override {
        dir = std::filesystem::temp_directory_path() / ("veltrane-sandbox-" + std::to_string(::getpid()) + "-" +
                                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir / "data");
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::filesystem::path dir;
};

} // namespace veltrane::test
