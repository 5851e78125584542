// Test support: a gateway answered by a MemoryTransport, a log capture, and a
// recorder for completions.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/PersonalData.h"
#include "veltrane/platform/MemoryTransport.h"

namespace veltrane::test {

inline Dictionary dict(std::string_view json) { return parseJSON(json).asDictionary(); }

// Parameters with each number's kind: "companyid=1:i32 NetType=0:u64 keyword="x"",
// or "none" for no dictionary at all.
inline std::string typedParams(const Parameters& params) {
    if (!params) return "none";
    std::string out;
    for (const auto& [key, value] : *params) {
        if (!out.empty()) out += ' ';
        out += std::string(key) + "=" + writeJSON(value);
        if (std::optional<Number> n = value.numberIf()) {
            static const char* kinds[] = {":i32", ":i64", ":u64", ":f32", ":f64"};
            out += kinds[static_cast<int>(n->kind())];
        }
    }
    return out;
}

// Installs a fresh MemoryTransport as the gateway and captures the log.
class GatewayTest : public ::testing::Test {
protected:
    void SetUp() override {
        transport = std::make_shared<MemoryTransport>();
        Server::setTransport(transport);
        previousSink = setLogSink([this](std::string_view line) { logLines.emplace_back(line); });
    }
    void TearDown() override {
        setLogSink(previousSink);
        logPersonalDataInClear(false);
        Server::setTransport(nullptr);
        Account::signOut();
    }
    // For tests of the exact log lines: the log as it stands, unmasked.
    void logInClear() {
        logPersonalDataInClear(true);
        logLines.clear();
    }

    // Scripts the reply to api from JSON text (or nothing when data is empty).
    void reply(const std::string& api, bool success, std::optional<std::string> message, std::string_view data = "") {
        std::optional<Value> value;
        if (!data.empty()) value = parseJSON(data);
        transport->script(api, {success, std::move(message), std::move(value)});
    }
    MemoryTransport::Request lastRequest() const { return transport->lastRequest(); }

    std::shared_ptr<MemoryTransport> transport;
    std::vector<std::string> logLines;
    LogSink previousSink;
};

// Completions that accept anything, for calls made only to see what they send.
template <class T>
ResultCallback<T> ignore() {
    return [](bool, std::optional<std::string>, std::optional<T>) {};
}
inline const FlagCallback kIgnoreFlag = [](bool, std::optional<std::string>, bool) {};

// One operation and what it must send: method, API name, parameters as
// typedParams() prints them.
struct RequestCase {
    const char* name;
    std::function<void()> call;
    HTTPMethod method;
    const char* api;
    const char* params;
};

// Runs each case against a fresh script (signed in as user 7 of company 1
// unless the case signs in itself) and checks the one request it sent.
template <size_t N>
void expectRequests(MemoryTransport& transport, const RequestCase (&cases)[N]) {
    for (const RequestCase& c : cases) {
        SCOPED_TRACE(c.name);
        transport.clear();
        Account::signIn(User(7, 1, "gz_tianhe_07"));
        c.call();
        ASSERT_EQ(transport.requests().size(), 1u);
        EXPECT_EQ(transport.lastRequest().method, c.method);
        EXPECT_EQ(transport.lastRequest().api, c.api);
        EXPECT_EQ(typedParams(transport.lastRequest().params), c.params);
    }
}

// Records every call of a completion.
template <class T>
struct Calls {
    struct Call {
        bool success;
        std::optional<std::string> message;
        std::optional<T> result;
    };
    std::vector<Call> calls;

    auto callback() {
        return [this](bool success, std::optional<std::string> message, std::optional<T> result) {
            calls.push_back({success, std::move(message), std::move(result)});
        };
    }
    const Call& only() const {
        EXPECT_EQ(calls.size(), 1u);
        return calls.at(0);
    }
    // The one call on a line: "T|message|result" ("F" for failure, "-" for
    // no message or no result), the result written by show.
    template <class Show>
    std::string line(Show show) const {
        if (calls.size() != 1) return std::to_string(calls.size()) + " calls";
        const Call& c = calls[0];
        return std::string(c.success ? "T" : "F") + "|" + c.message.value_or("-") + "|" + (c.result ? show(*c.result) : std::string("-"));
    }
};

} // namespace veltrane::test
