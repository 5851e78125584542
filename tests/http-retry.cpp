// Retries that never repeat a POST, the observer of every attempt, and the
// adapters of every request, over loopback.
#include <atomic>
#include <future>
#include <map>

#include "veltrane/documents/Receipt.h"
#include "veltrane/foundation/Call.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/PropertyList.h"
#include "support/Harness.h"
#include "support/Loopback.h"
#include "support/RawServer.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

// Sends one gateway request through transport and waits for its answer:
// "T|message" or "F|message".
std::string ask(HTTPMethod method, const std::string& api, const CallGroup& group = CallGroup()) {
    std::promise<std::string> answer;
    {
        CallScope scope(group);
        auto done = [&answer](bool ok, std::optional<std::string> m, std::optional<Value>) { answer.set_value((ok ? "T|" : "F|") + m.value_or("-")); };
        if (method == HTTPMethod::GET) Server::httpGet(api, Dictionary{{"companyid", 1}}, done);
        else Server::httpPost(api, Dictionary{{"phone", "13900000000"}}, done);
    }
    return answer.get_future().get();
}

struct RetryCase {
    const char* name;
    int maxAttempts;
    HTTPMethod method;
    const char* api;
    size_t attempts;      // as the server counts them
    const char* answer;   // the start of the answer
    std::function<void(const std::string& api)> before = {};  // what the case does first
};

class Retries : public test::GatewayTest {
protected:
    void SetUp() override {
        test::GatewayTest::SetUp();
        Server::setAddress(server.address());
    }
    test::RawServer server;
};

TEST_F(Retries, GETsAreRetriedAsConfiguredAndNoPOSTTwice) {
    const RetryCase cases[] = {
        {"retries are off unless set", 1, HTTPMethod::GET, "busy2Off", 1, "F|busy2Off: server answered HTTP 503"},
        {"a GET until it is answered", 3, HTTPMethod::GET, "busy2Get", 3, "T|ok"},
        {"a GET no more than allowed", 2, HTTPMethod::GET, "busy5Get", 2, "F|busy5Get: server answered HTTP 503"},
        {"a 429 after the wait it asks for", 2, HTTPMethod::GET, "limitGet", 2, "T|ok"},
        {"a GET with no byte of an answer in time", 2, HTTPMethod::GET, "silentGet", 2, "F|silentGet: Timeout was reached"},
        {"a POST answered 503, once", 3, HTTPMethod::POST, "busy1Post", 1, "F|busy1Post: server answered HTTP 503"},
        // The connection is reused, and closes after the POST's body went
        // out: libcurl itself would send it again on a fresh one.
        {"a POST whose connection drops after its body, once", 3, HTTPMethod::POST, "dropPost", 1, "F|dropPost: ",
         [](const std::string&) { ask(HTTPMethod::GET, "okWarm"); }},
        {"a GET whose connection drops, retried", 2, HTTPMethod::GET, "dropGet", 2, "F|dropGet: "},
    };
    for (const RetryCase& c : cases) {
        SCOPED_TRACE(c.name);
        HTTPTransportOptions options;
        options.retry = {c.maxAttempts, 10ms, 50ms};
        options.timeout = 300ms;
        Server::setTransport(std::make_shared<HTTPTransport>(options));
        logLines.clear();
        if (c.before) c.before(c.api);
        auto start = std::chrono::steady_clock::now();
        std::string answer = ask(c.method, c.api);
        EXPECT_EQ(answer.rfind(c.answer, 0), 0u) << answer;
        EXPECT_EQ(server.attempts(c.api), c.attempts);
        size_t retried = std::count_if(logLines.begin(), logLines.end(), [&](const std::string& l) { return l.rfind(std::string(c.api) + ": attempt ", 0) == 0; });
        EXPECT_EQ(retried, c.attempts - 1) << "each retry logged with the API and the attempt";
        if (std::string(c.api) == "limitGet") {
            EXPECT_GE(std::chrono::steady_clock::now() - start, 900ms) << "Retry-After: 1 honoured";
        }
    }
    EXPECT_EQ(logLines.size() > 0 ? logLines.front().rfind("dropGet: attempt 2 of 2 in ", 0) : 0u, 0u) << logLines.front();
}

TEST_F(Retries, TheWaitEndsAtACancellationAndNeverPassesTheDeadline) {
    HTTPTransportOptions options;
    options.retry = {5, 5s, 5s};
    Server::setTransport(std::make_shared<HTTPTransport>(options));
    CallGroup group;
    std::future<std::string> waiting = std::async(std::launch::async, [&] { return ask(HTTPMethod::GET, "busy5Cancelled", group); });
    for (auto end = std::chrono::steady_clock::now() + 5s; server.attempts("busy5Cancelled") == 0 && std::chrono::steady_clock::now() < end;)
        std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(50ms);
    auto start = std::chrono::steady_clock::now();
    group.cancel();
    EXPECT_EQ(waiting.get(), "F|busy5Cancelled: cancelled");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    EXPECT_EQ(server.attempts("busy5Cancelled"), 1u);

    CallGroup hurried;  // Retry-After asks 1 s; the deadline leaves 300 ms
    hurried.setTimeout(300ms);
    EXPECT_EQ(ask(HTTPMethod::GET, "limitHurried", hurried), "F|limitHurried: server answered HTTP 429");
    EXPECT_EQ(server.attempts("limitHurried"), 1u);

    // A retry whose wait is over queues for the one connection, which another
    // call holds; cancelled there, it leaves the queue, and the holder's end
    // starts nothing stale.
    options.retry = {2, 300ms, 300ms};
    options.maxConnectionsPerHost = 1;
    auto transport = std::make_shared<HTTPTransport>(options);
    Server::setTransport(transport);
    auto until = [](auto done) {
        for (auto end = std::chrono::steady_clock::now() + 5s; !done() && std::chrono::steady_clock::now() < end;) std::this_thread::sleep_for(1ms);
    };
    CallGroup queued, holding;
    std::future<std::string> retried = std::async(std::launch::async, [&] { return ask(HTTPMethod::GET, "busy1Queued", queued); });
    until([&] { return server.attempts("busy1Queued") == 1; });
    std::future<std::string> holder = std::async(std::launch::async, [&] { return ask(HTTPMethod::GET, "silentHolder", holding); });
    until([&] { return transport->load().active == 1 && transport->load().waiting == 1 && server.attempts("silentHolder") == 1; });
    std::this_thread::sleep_for(400ms);  // past the retry's wait: now it waits for the connection
    queued.cancel();
    EXPECT_EQ(retried.get(), "F|busy1Queued: cancelled");
    EXPECT_EQ(transport->load().waiting, 0u);
    holding.cancel();
    EXPECT_EQ(holder.get(), "F|silentHolder: cancelled");
    EXPECT_EQ(server.attempts("busy1Queued"), 1u);
}

// Every attempt is told to the observer, with where its time went; an
// observer that throws changes nothing.
TEST_F(Retries, TheObserverHearsOfEveryAttempt) {
    HTTPTransportOptions options;
    options.retry = {3, 1ms, 2ms};
    Server::setTransport(std::make_shared<HTTPTransport>(options));
    std::mutex mutex;
    std::vector<RequestEvent> events;
    RequestObserver previous = setRequestObserver([&](const RequestEvent& e) {
        std::lock_guard lock(mutex);
        events.push_back(e);
    });
    EXPECT_EQ(ask(HTTPMethod::GET, "busy1Observed"), "T|ok");
    EXPECT_EQ(ask(HTTPMethod::POST, "okObserved"), "T|ok");
    setRequestObserver([](const RequestEvent&) { throw std::runtime_error("observer down"); });
    EXPECT_EQ(ask(HTTPMethod::GET, "okUndisturbed"), "T|ok");
    setRequestObserver(previous);

    std::lock_guard lock(mutex);
    ASSERT_EQ(events.size(), 3u);
    const RequestEvent &first = events[0], &second = events[1], &post = events[2];
    EXPECT_EQ(first.name + " " + first.method + " " + std::to_string(first.attempt) + " " + std::to_string(first.status) + " " + first.error.value_or("-"),
              "busy1Observed GET 1 503 busy1Observed: server answered HTTP 503");
    EXPECT_EQ(second.attempt, 2);
    EXPECT_EQ(second.status, 200);
    EXPECT_FALSE(second.error);
    EXPECT_TRUE(second.connectionReused) << "the retry went on the connection the first attempt left";
    EXPECT_FALSE(post.connectionReused) << "a POST goes on a connection of its own";
    for (const RequestEvent& e : events) {
        EXPECT_EQ(e.httpVersion, "1.1");
        EXPECT_GT(e.bytesSent, 100u);
        EXPECT_GT(e.bytesReceived, 50u);
        EXPECT_GT(e.total.count(), 0);
        EXPECT_LE(e.firstByte, e.total);
        EXPECT_LE(e.connect, e.firstByte);
    }
    EXPECT_NE(std::find_if(logLines.begin(), logLines.end(), [](const std::string& l) { return l.find("observer down") != std::string::npos; }),
              logLines.end());
}

// Adapters add a header to the gateway's calls, the upload and the manifest
// fetch alike, and a parameter to gateway calls; one that throws ends the
// call with its message before any request.
TEST(RequestAdapters, TheyReachEveryPathAndCanStopACall) {
    std::mutex mutex;
    std::map<std::string, std::string> seen;  // path: token and query
    test::LoopbackServer server([&](httplib::Server& s) {
        auto record = [&](const httplib::Request& req) {
            std::lock_guard lock(mutex);
            seen[req.path] = req.get_header_value("Authorization") + (req.has_param("trace") ? " trace=" + req.get_param_value("trace") : "");
        };
        s.Get("/index.php/api/getLabel", [=](const httplib::Request& req, httplib::Response& res) {
            record(req);
            res.set_content(R"({"status":1,"info":"ok","data":[]})", "application/json");
        });
        s.Post("/index.php/api/common/upload", [=](const httplib::Request& req, httplib::Response& res) {
            record(req);
            res.set_content("{}", "application/json");
        });
        s.Get("/manifest.plist", [=](const httplib::Request& req, httplib::Response& res) {
            record(req);
            res.set_content(R"(<plist><dict/></plist>)", "application/xml");
        });
    });
    Server::setAddress(server.address());
    Server::setTransport(std::make_shared<HTTPTransport>());
    LogSink previousSink = setLogSink([](std::string_view) {});
    uint64_t token = addRequestAdapter([](OutgoingRequest& r) { r.headers.emplace_back("Authorization", "Bearer t0k3n"); });
    uint64_t trace = addRequestAdapter([](OutgoingRequest& r) {
        if (r.parameters) r.parameters->set("trace", r.name + "-1");
    });

    auto allThree = [&] {
        std::vector<std::string> answers;
        answers.push_back(ask(HTTPMethod::GET, "getLabel"));
        bool uploaded = false;
        Receipt(Dictionary{{"SN", "A"}, {"ID", 1}}).uploadSignaturePDF("%PDF", [&](bool ok, std::optional<std::string> m) {
            answers.push_back((ok ? "T|" : "F|") + m.value_or("-"));
            uploaded = true;
        });
        Dispatch::mainQueue().runFor(5s, [&] { return uploaded; });
        bool checked = false;
        Updater::checkWithPListURL(server.address() + "/manifest.plist", [&](bool newer, std::optional<std::string> m) {
            answers.push_back((newer ? "T|" : "F|") + m.value_or("-"));
            checked = true;
        });
        Dispatch::mainQueue().runFor(5s, [&] { return checked; });
        return answers;
    };
    EXPECT_EQ(allThree(), (std::vector<std::string>{"T|ok", "T|上传成功", "F|Version (null)"}));
    EXPECT_EQ(seen, (std::map<std::string, std::string>{{"/index.php/api/getLabel", "Bearer t0k3n trace=getLabel-1"},
                                                         {"/index.php/api/common/upload", "Bearer t0k3n"},
                                                         {"/manifest.plist", "Bearer t0k3n"}}));

    seen.clear();
    uint64_t refusing = addRequestAdapter([](OutgoingRequest&) { throw std::runtime_error("no token yet"); });
    EXPECT_EQ(allThree(), (std::vector<std::string>{"F|getLabel: no token yet", "F|uploadSignaturePDF: no token yet",
                                                    "F|checkWithPListURL: no token yet"}));
    EXPECT_TRUE(seen.empty()) << "nothing was sent";
    for (uint64_t a : {token, trace, refusing}) removeRequestAdapter(a);
    setLogSink(previousSink);
    Server::setTransport(nullptr);
}

} // namespace
} // namespace veltrane
