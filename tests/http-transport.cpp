// The HTTP transport over loopback: what the server receives, how replies are
// split, every failure path, delivery rules and connection reuse.
#include <atomic>
#include <climits>
#include <condition_variable>
#include <map>

#include "veltrane/foundation/Await.h"
#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/Call.h"
#include "veltrane/platform/HTTPTransport.h"
#include "support/Harness.h"
#include "support/Loopback.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

// Waits for a number of completions.
class Waiter {
public:
    void done() {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    bool waitFor(int n, std::chrono::milliseconds limit = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return count_ >= n; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

// What the server saw of the last request.
struct Seen {
    std::string method, target, body, contentType;
    std::multimap<std::string, std::string> params;
};

class Transport : public test::GatewayTest {
protected:
    Transport()
        : server([this](httplib::Server& s) {
              auto record = [this](const httplib::Request& req, httplib::Response& res) {
                  {
                      std::lock_guard lock(seenMutex);
                      seen = {req.method, req.target, req.body, req.get_header_value("Content-Type"),
                              {req.params.begin(), req.params.end()}};
                  }
                  res.set_content(R"({"status":1,"info":"ok","data":{"echo":true}})", "application/json");
              };
              s.Get("/index.php/api/echo", record);
              s.Post("/index.php/api/echo", record);
              s.Get("/index.php/api/canned", [](const httplib::Request& req, httplib::Response& res) {
                  res.status = std::stoi(req.get_param_value("status"));
                  res.set_content(req.get_param_value("body"), "application/json");
              });
              s.Get("/index.php/api/slow", [](const httplib::Request&, httplib::Response& res) {
                  std::this_thread::sleep_for(1500ms);
                  res.set_content(R"({"status":1})", "application/json");
              });
              s.Get("/index.php/api/pause", [](const httplib::Request&, httplib::Response& res) {
                  std::this_thread::sleep_for(300ms);
                  res.set_content(R"({"status":1})", "application/json");
              });
              s.Get("/index.php/api/truncated", [](const httplib::Request&, httplib::Response& res) {
                  res.set_content_provider(100, "application/json", [](size_t, size_t, httplib::DataSink& sink) {
                      sink.write(R"({"status":1,"data":)", 19);
                      return false;  // drop the connection mid-body
                  });
              });
              s.Get("/v2/custom.json", [](const httplib::Request&, httplib::Response& res) {
                  res.set_content(R"({"code":0,"msg":"fine","result":[7]})", "application/json");
              });
          }) {}

    void SetUp() override {
        test::GatewayTest::SetUp();
        Server::setAddress(server.address() + "/");
        useTransport({});
    }
    void useTransport(HTTPTransportOptions options) {
        http = std::make_shared<HTTPTransport>(std::move(options));
        Server::setTransport(http);
    }

    // Sends one request and waits for its completion.
    static GatewayReply call(HTTPMethod method, const std::string& api, Parameters params) {
        Outcome<Value> o = await<Value>([&](GatewayCallback done) {
            if (method == HTTPMethod::GET) Server::httpGet(api, std::move(params), done);
            else Server::httpPost(api, std::move(params), done);
        });
        return {o.success, std::move(o.message), std::move(o.result)};
    }

    test::LoopbackServer server;
    std::shared_ptr<HTTPTransport> http;
    std::mutex seenMutex;
    Seen seen;
};

const Dictionary kParams{
    {"s", "a b&c=d/张"}, {"i", NSBoxInt(-3)}, {"u", NSBoxUnsignedLong(ULONG_MAX)}, {"f", NSBoxFloat(0.1f)},
    {"d", NSBoxDouble(2.5)}, {"t", true}, {"n", nullptr}, {"list", Array{1, "x"}},
};
const std::multimap<std::string, std::string> kDecoded{
    {"s", "a b&c=d/张"}, {"i", "-3"}, {"u", "18446744073709551615"}, {"f", "0.1"},
    {"d", "2.5"}, {"t", "1"}, {"n", ""}, {"list", R"([1,"x"])"},
};
const char* kEncoded = "s=a+b%26c%3Dd%2F%E5%BC%A0&i=-3&u=18446744073709551615&f=0.1&d=2.5&t=1&n=&list=%5B1%2C%22x%22%5D";

TEST_F(Transport, AQueryStringOrAFormBody) {
    EXPECT_TRUE(call(HTTPMethod::GET, "echo", kParams).success);
    EXPECT_EQ(seen.method + " " + seen.target, std::string("GET /index.php/api/echo?") + kEncoded);
    EXPECT_EQ(seen.params, kDecoded);
    call(HTTPMethod::POST, "echo", kParams);
    EXPECT_EQ(seen.method + " " + seen.body, std::string("POST ") + kEncoded);
    EXPECT_EQ(seen.contentType.rfind("application/x-www-form-urlencoded", 0), 0u);
    EXPECT_EQ(seen.params, kDecoded);
    call(HTTPMethod::GET, "echo", std::nullopt);
    EXPECT_EQ(seen.target, "/index.php/api/echo") << "no parameters, none sent";
}

struct ReplyCase {
    const char* name;
    int status;
    const char* body;
    bool success;
    const char* message;  // exact, or the start of it when it ends with "..."
    const char* data;     // JSON, or nullptr for none
};

const ReplyCase kReplies[] = {
    {"success with data", 200, R"({"status":1,"info":"好","data":[1]})", true, "好", "[1]"},
    {"refusal", 200, R"({"status":0,"info":"号码已被锁定"})", false, "号码已被锁定", nullptr},
    {"null data is a value", 200, R"({"status":true,"data":null})", true, nullptr, "null"},
    {"flag as text", 200, R"({"status":"1","info":5})", true, "5", nullptr},
    {"no flag is failure", 200, R"({"info":"x","data":1})", false, "x", "1"},
    {"HTTP 500 with HTML", 500, "<html><body>Internal Server Error</body></html>", false, "canned: server answered HTTP 500", nullptr},
    {"malformed JSON", 200, R"({"status":1,)", false, "canned: reply is not JSON (malformed JSON: ...", nullptr},
    {"not an object", 200, "[1,2]", false, "canned: reply is an array, not a JSON object", nullptr},
    {"empty body", 200, "", false, "canned: reply is not JSON (empty JSON text)", nullptr},
    {"redirect is not followed", 302, R"({"status":1})", false, "canned: server answered HTTP 302", nullptr},
    {"no content", 204, "", false, "canned: reply is not JSON (empty JSON text)", nullptr},
};

TEST_F(Transport, RepliesAreSplitByTheEnvelope) {
    for (const ReplyCase& c : kReplies) {
        SCOPED_TRACE(c.name);
        GatewayReply r = call(HTTPMethod::GET, "canned", Dictionary{{"status", c.status}, {"body", c.body}});
        EXPECT_EQ(r.success, c.success);
        std::string expected = c.message ? c.message : "";
        if (expected.size() > 3 && expected.substr(expected.size() - 3) == "...") {
            ASSERT_TRUE(r.message);
            EXPECT_EQ(r.message->rfind(expected.substr(0, expected.size() - 3), 0), 0u) << *r.message;
        } else {
            EXPECT_EQ(r.message, c.message ? std::optional<std::string>(c.message) : std::nullopt);
        }
        EXPECT_EQ(r.data ? writeJSON(*r.data) : "-", c.data ? c.data : "-");
    }
}

TEST_F(Transport, TransportFailuresAreMessages) {
    GatewayReply truncated = call(HTTPMethod::GET, "truncated", std::nullopt);
    EXPECT_FALSE(truncated.success);
    EXPECT_FALSE(truncated.data);
    EXPECT_EQ(truncated.message->rfind("truncated: ", 0), 0u) << *truncated.message;

    HTTPTransportOptions impatient;
    impatient.timeout = 300ms;
    useTransport(impatient);
    GatewayReply slow = call(HTTPMethod::GET, "slow", std::nullopt);
    EXPECT_FALSE(slow.success);
    EXPECT_NE(slow.message->find("Timeout was reached"), std::string::npos) << *slow.message;

    HTTPTransportOptions small;
    small.maxReplyBytes = 16;
    useTransport(small);
    GatewayReply large = call(HTTPMethod::GET, "canned", Dictionary{{"status", 200}, {"body", R"({"status":1,"info":"seventeen bytes+"})"}});
    EXPECT_FALSE(large.success);
    EXPECT_EQ(large.message, "canned: reply larger than 16 bytes");

    Server::setAddress("http://127.0.0.1:" + std::to_string(test::closedPort()));
    GatewayReply refused = call(HTTPMethod::GET, "echo", std::nullopt);
    EXPECT_FALSE(refused.success);
    EXPECT_NE(refused.message->find("Couldn't connect to server"), std::string::npos) << *refused.message;

    Server::setAddress("");
    GatewayReply noAddress = call(HTTPMethod::GET, "echo", std::nullopt);
    EXPECT_EQ(noAddress.message, "echo: no server address set");
}

TEST_F(Transport, AThrowingCompletionIsLoggedAndTheThreadLivesOn) {
    Waiter waiter;
    Server::httpGet("echo", std::nullopt, [&](bool, std::optional<std::string>, std::optional<Value>) {
        waiter.done();
        throw std::runtime_error("boom");
    });
    ASSERT_TRUE(waiter.waitFor(1));
    EXPECT_TRUE(call(HTTPMethod::GET, "echo", std::nullopt).success);
    EXPECT_NE(std::find(logLines.begin(), logLines.end(), "server reply to echo: completion raised: boom"), logLines.end());
}

TEST_F(Transport, APINamesAreIdentifiers) {
    for (const char* name : {"../../sandbox/clear-faults", "echo/../canned", "echo?status=500", "", "e cho", "echo#x", "%2e%2e", "张三",
                             "echo\r\nX-Injected: 1"}) {
        SCOPED_TRACE(name);
        GatewayReply r = call(HTTPMethod::GET, name, std::nullopt);
        EXPECT_FALSE(r.success);
        EXPECT_EQ(r.message->rfind("API name \"", 0), 0u) << *r.message;
        EXPECT_EQ(r.message->find_first_of("\r\n"), std::string::npos);
    }
    // A name is quoted whole up to 64 bytes, and cut after them.
    for (size_t size : {64, 65}) {
        std::string name = std::string(size - 1, 'a') + " ";
        std::string quoted = "\"" + name.substr(0, 64) + (size > 64 ? "...\"" : "\"") + " refused";
        EXPECT_NE(call(HTTPMethod::GET, name, std::nullopt).message->find(quoted), std::string::npos) << size;
    }
    EXPECT_EQ(server.requests(), 0u) << "refused before any request";
    call(HTTPMethod::GET, "echo_2", std::nullopt);
    call(HTTPMethod::GET, "azAZ09_", std::nullopt);
    // The server counts a request after its reply has gone out.
    for (int i = 0; i < 100 && server.requests() < 2; ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(server.requests(), 2u) << "letters, digits and _ make a name, from end to end of each range";
}

// Sends n GETs of api at once and waits for all; returns their replies.
std::vector<GatewayReply> burst(int n, const std::string& api) {
    auto replies = std::make_shared<std::vector<GatewayReply>>(n);
    auto waiter = std::make_shared<Waiter>();
    for (int i = 0; i < n; ++i)
        Server::httpGet(api, std::nullopt, [replies, waiter, i](bool ok, std::optional<std::string> m, std::optional<Value> d) {
            (*replies)[i] = {ok, std::move(m), std::move(d)};
            waiter->done();
        });
    EXPECT_TRUE(waiter->waitFor(n, 60s));
    return *replies;
}

TEST_F(Transport, WaitingForAConnectionDoesNotCountAgainstTheTimeLimit) {
    HTTPTransportOptions options;
    options.maxConnectionsPerHost = 1;
    options.timeout = 1000ms;  // each request takes 300 ms; the fourth waits 900 ms first
    useTransport(options);
    for (const GatewayReply& r : burst(4, "pause")) EXPECT_TRUE(r.success) << r.message.value_or("");
}

TEST_F(Transport, ATimeOutAfterAWaitSaysSo) {
    HTTPTransportOptions options;
    options.maxConnectionsPerHost = 1;
    options.timeout = 1100ms;
    useTransport(options);
    std::vector<GatewayReply> replies = burst(2, "slow");
    ASSERT_FALSE(replies[1].success);
    EXPECT_EQ(replies[1].message->rfind("slow: Timeout was reached", 0), 0u) << *replies[1].message;
    EXPECT_NE(replies[1].message->find("(after waiting 1."), std::string::npos) << *replies[1].message;
    EXPECT_EQ(replies[0].message->find("after waiting"), std::string::npos) << *replies[0].message;
}

TEST_F(Transport, ABurstLeavesOnlyABoundedPoolBehind) {
    constexpr int kRequests = 2000;
    HTTPTransportOptions options;
    options.maxIdleHandles = 2;  // fewer than the connections a host may use
    useTransport(options);
    std::vector<GatewayReply> replies = burst(kRequests, "echo");
    EXPECT_EQ(std::count_if(replies.begin(), replies.end(), [](const GatewayReply& r) { return r.success; }), kRequests);
    HTTPTransport::Load load = http->load();
    EXPECT_EQ(load.waiting, 0u);
    EXPECT_EQ(load.active, 0u);
    EXPECT_EQ(load.idleHandles, 2u);
    EXPECT_LE(server.connections(), 6u * 2) << "no more connections than the limit (and a few replaced ones)";
    CallGroup after;
    after.setTimeout(5s);
    CallScope scope(after);
    GatewayReply next = call(HTTPMethod::GET, "echo", Dictionary{});
    EXPECT_TRUE(next.success) << "every place of the host is free again: " << next.message.value_or("");
}

TEST_F(Transport, ConnectionsAreReused) {
    for (int i = 0; i < 20; ++i) call(HTTPMethod::GET, "echo", Dictionary{{"i", i}});
    for (int i = 0; i < 100 && server.requests() < 20; ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(server.requests(), 20u);
    EXPECT_EQ(server.connections(), 1u);
}

TEST_F(Transport, EnvelopeAndRouteAreConfigurable) {
    HTTPTransportOptions options;
    options.urlTemplate = "{address}/v2/{api}.json";
    options.envelope = {"code", "msg", "result", [](const Value* code) { return code && code->intValue() == 0; }};
    useTransport(std::move(options));
    GatewayReply r = call(HTTPMethod::GET, "custom", std::nullopt);
    EXPECT_TRUE(r.success);
    EXPECT_EQ(r.message, "fine");
    EXPECT_EQ(writeJSON(*r.data), "[7]");
}

TEST_F(Transport, ShuttingDownFailsWhatIsUnderWay) {
    std::atomic<int> calls = 0;
    std::optional<std::string> message;
    Server::httpGet("slow", std::nullopt, [&](bool, std::optional<std::string> m, std::optional<Value>) {
        message = std::move(m);
        ++calls;
    });
    std::this_thread::sleep_for(100ms);
    Server::setTransport(nullptr);
    http.reset();  // joins the transport thread
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(message, "transport shut down");
}

} // namespace
} // namespace veltrane
