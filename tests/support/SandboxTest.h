// A sandbox dealer server on a free loopback port, shared by a test suite,
// with the gateway pointed at it through the HTTP transport.
#pragma once

#include <future>

#include "platform/HTTPTransport.h"
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
        HTTPTransportOptions options;
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

    // Runs start(completion) and waits for the completion's values.
    template <class T, class Start>
    typename Calls<T>::Call await(Start start) {
        auto done = std::make_shared<std::promise<typename Calls<T>::Call>>();
        start([done](bool ok, std::optional<std::string> message, std::optional<T> result) {
            done->set_value({ok, std::move(message), std::move(result)});
        });
        auto future = done->get_future();
        if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << "no completion";
            return {false, "no completion", std::nullopt};
        }
        return future.get();
    }
    template <class Start>
    FlagCalls::Call awaitFlag(Start start) {
        auto call = await<bool>([&](ResultCallback<bool> done) {
            start([done](bool ok, std::optional<std::string> message, bool flag) { done(ok, std::move(message), flag); });
        });
        return {call.success, call.message, call.result.value_or(!call.success)};
    }
    // One raw gateway request.
    Calls<Value>::Call request(HTTPMethod method, const std::string& api, Parameters params) {
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

} // namespace veltrane::test
