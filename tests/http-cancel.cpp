// Calls that end early, over loopback: no transfer holds up the global queue,
// groups cancel the gateway's calls, the upload and the update check, and
// deadlines end them; every completion runs once whatever the interleaving,
// and the transport's counts return to zero.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>

#include "veltrane/documents/Receipt.h"
#include "veltrane/foundation/Call.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/PropertyList.h"
#include "support/Answers.h"
#include "support/Controlled.h"
#include "support/Harness.h"
#include "support/Process.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

class Cancellation : public test::GatewayTest {
protected:
    void SetUp() override {
        test::GatewayTest::SetUp();
        Server::setAddress(server.address());
    }
    void TearDown() override {
        server.release();
        Dispatch::mainQueue().runFor(200ms);  // what the stalled calls post
        test::GatewayTest::TearDown();
    }
    test::ControlledServer server;
};

// One silent upload and four manifests sent a byte at a time used to hold
// every thread of the global queue for minutes; an update check beside them
// now answers at once, and cancelling the stuck ones ends them at once.
TEST_F(Cancellation, NoTransferHoldsUpTheGlobalQueue) {
    Bundle::mainBundle().setShortVersionString("1.0");
    std::vector<std::string> stuck;
    CallGroup screen;
    {
        CallScope scope(screen);
        Receipt(test::dict(R"({"SN":"A","ID":1})")).uploadSignaturePDF("%PDF", [&](bool ok, std::optional<std::string> m) {
            stuck.push_back((ok ? "T|" : "F|") + m.value_or("-"));
        });
        for (int i = 0; i < 4; ++i)
            Updater::checkWithPListURL(server.address() + "/drip.plist", [&](bool newer, std::optional<std::string> m) {
                stuck.push_back((newer ? "T|" : "F|") + m.value_or("-"));
            });
    }
    ASSERT_TRUE(server.waitForRequest("upload"));
    for (auto end = std::chrono::steady_clock::now() + 5s; server.received("drip") < 4 && std::chrono::steady_clock::now() < end;)
        std::this_thread::sleep_for(1ms);

    auto start = std::chrono::steady_clock::now();
    std::optional<std::string> answer;
    Updater::checkWithPListURL(server.address() + "/manifest.plist", [&](bool newer, std::optional<std::string> m) {
        answer = (newer ? "T|" : "F|") + m.value_or("-");
    });
    Dispatch::mainQueue().runFor(10s, [&] { return answer.has_value(); });
    EXPECT_EQ(answer, "T|Version 9.9");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_TRUE(stuck.empty());

    start = std::chrono::steady_clock::now();
    screen.cancel();
    Dispatch::mainQueue().runFor(5s, [&] { return stuck.size() == 5; });
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    std::sort(stuck.begin(), stuck.end());
    EXPECT_EQ(stuck, (std::vector<std::string>{"F|checkWithPListURL: cancelled", "F|checkWithPListURL: cancelled", "F|checkWithPListURL: cancelled",
                                               "F|checkWithPListURL: cancelled", "F|uploadSignaturePDF: cancelled"}));
    EXPECT_EQ(screen.pending(), 0u);
    // A cancelled check says nothing more when its fetch ends. Swapping the
    // sink takes the log's lock: what the pool logged before is seen here.
    std::this_thread::sleep_for(300ms);
    setLogSink(setLogSink(nullptr));
    EXPECT_EQ(std::count(logLines.begin(), logLines.end(), "dict is nil"), 0);
}

// An interleaving of a call with cancellation, deadline and reply: the call's
// answer must be expected (or one of expected, where the race decides), and
// its completion must run once.
struct RaceCase {
    const char* name;
    // Makes the call in group (through the gateway, on a transport of one
    // connection) and drives what races it; answers records every answer.
    std::function<void(CallGroup& group, test::Answers& answers, test::ControlledServer& server)> run;
    std::vector<std::string> expected;
    const char* neverSent = nullptr;  // an API the server must never see
};

void call(const std::string& api, test::Answers& answers, const CallGroup& group) {
    CallScope scope(group);
    Server::httpGet(api, std::nullopt, [&answers](bool ok, std::optional<std::string> m, std::optional<Value>) { answers.add(ok, m); });
}

// Holds the transport's one connection with a stalled call outside the group.
void holdTheConnection(test::Answers& unrelated, test::ControlledServer& server) {
    call("stallHold", unrelated, CallGroup());
    ASSERT_TRUE(server.waitForRequest("stallHold"));
}

const RaceCase kRaces[] = {
    {"cancelled before it is sent", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         g.cancel();
         call("okBefore", a, g);
     }, {"F|okBefore: cancelled"}, "okBefore"},
    {"cancelled while waiting for a connection", [](CallGroup& g, test::Answers& a, test::ControlledServer& s) {
         static test::Answers unrelated;
         holdTheConnection(unrelated, s);
         call("okWaiting", a, g);
         std::this_thread::sleep_for(50ms);
         g.cancel();
         s.release();
     }, {"F|okWaiting: cancelled"}, "okWaiting"},
    {"cancelled during the transfer", [](CallGroup& g, test::Answers& a, test::ControlledServer& s) {
         call("stallTransfer", a, g);
         ASSERT_TRUE(s.waitForRequest("stallTransfer"));
         g.cancel();
         EXPECT_EQ(a.count(), 1u) << "ended before cancel() returned";
     }, {"F|stallTransfer: cancelled"}},
    {"cancelled by its own completion, as the reply is delivered", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         CallScope scope(g);
         Server::httpGet("okDelivered", std::nullopt, [&a, g](bool ok, std::optional<std::string> m, std::optional<Value>) {
             g.cancel();
             a.add(ok, m);
         });
     }, {"T|ok"}},
    {"cancelled after its completion", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         call("okAfter", a, g);
         a.waitFor(1);
         g.cancel();
     }, {"T|ok"}},
    {"cancelled twice", [](CallGroup& g, test::Answers& a, test::ControlledServer& s) {
         call("stallTwice", a, g);
         ASSERT_TRUE(s.waitForRequest("stallTwice"));
         g.cancel();
         g.cancel();
     }, {"F|stallTwice: cancelled"}},
    {"cancelled from two threads at once", [](CallGroup& g, test::Answers& a, test::ControlledServer& s) {
         call("stallTwoThreads", a, g);
         ASSERT_TRUE(s.waitForRequest("stallTwoThreads"));
         std::thread other([g] { g.cancel(); });
         g.cancel();
         other.join();
     }, {"F|stallTwoThreads: cancelled"}},
    {"past its deadline while waiting for a connection", [](CallGroup& g, test::Answers& a, test::ControlledServer& s) {
         static test::Answers unrelated;
         holdTheConnection(unrelated, s);
         g.setTimeout(300ms);
         call("okLate", a, g);
         a.waitFor(1);
         s.release();
     }, {"F|okLate: no answer within 300 ms"}, "okLate"},
    {"past its deadline during the transfer", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         g.setTimeout(200ms);
         call("stallDeadline", a, g);
         a.waitFor(1);
     }, {"F|stallDeadline: no answer within 200 ms"}},
    {"past its deadline, then cancelled", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         g.setTimeout(100ms);
         call("stallThenCancel", a, g);
         a.waitFor(1);
         g.cancel();
     }, {"F|stallThenCancel: no answer within 100 ms"}},
    {"a reply racing its deadline", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         g.setTimeout(100ms);
         call("slow100Race", a, g);
         a.waitFor(1);
     }, {"T|ok", "F|slow100Race: no answer within 100 ms"}},
    {"a reply racing a cancellation", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         call("slow50Race", a, g);
         std::this_thread::sleep_for(50ms);
         g.cancel();
     }, {"T|ok", "F|slow50Race: cancelled"}},
    {"a cancellation racing the deadline", [](CallGroup& g, test::Answers& a, test::ControlledServer&) {
         g.setTimeout(50ms);
         call("stallRace", a, g);
         std::this_thread::sleep_for(50ms);
         g.cancel();
     }, {"F|stallRace: no answer within 50 ms", "F|stallRace: cancelled"}},
};

TEST(CallRaces, EveryCompletionRunsOnceAndTheCountsReturnToZero) {
    for (const RaceCase& c : kRaces) {
        SCOPED_TRACE(c.name);
        test::ControlledServer server;
        Server::setAddress(server.address());
        HTTPTransportOptions options;
        options.maxConnectionsPerHost = 1;
        auto transport = std::make_shared<HTTPTransport>(options);
        Server::setTransport(transport);
        CallGroup group;
        test::Answers answers;
        c.run(group, answers, server);
        ASSERT_TRUE(answers.waitFor(1)) << "no answer";
        server.release();
        std::this_thread::sleep_for(100ms);  // time for a second answer, were there one
        ASSERT_EQ(answers.count(), 1u) << answers.all();
        EXPECT_NE(std::find(c.expected.begin(), c.expected.end(), answers.lines[0]), c.expected.end()) << answers.lines[0];
        if (c.neverSent) {
            EXPECT_EQ(server.received(c.neverSent), 0u) << "sent after the call ended";
        }
        for (auto end = std::chrono::steady_clock::now() + 5s; transport->load().active + transport->load().waiting > 0;)
            if (std::chrono::steady_clock::now() > end) break;
        EXPECT_EQ(transport->load().active, 0u);
        EXPECT_EQ(transport->load().waiting, 0u);
        EXPECT_EQ(group.pending(), 0u);
        Server::setTransport(nullptr);
    }
}

// The same rules hold for the transport tests use: a held reply is cancelled
// at once and not delivered again, and a deadline passed when it is
// delivered gives the deadline's message.
TEST_F(Cancellation, MemoryTransportHoldsToTheRules) {
    transport->setDeferred(true);
    transport->setHandler([](const MemoryTransport::Request&) { return MemoryTransport::Reply{true, "ok", Value(1)}; });
    test::Answers answers;
    CallGroup cancelled, late;
    late.setTimeout(1ms);
    call("first", answers, cancelled);
    call("second", answers, late);
    call("third", answers, CallGroup());
    cancelled.cancel();
    EXPECT_EQ(answers.all(), "F|first: cancelled");
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(transport->deliver(), 2u);
    EXPECT_EQ(answers.all(), "F|first: cancelled; F|second: no answer within 1 ms; T|ok");
    CallGroup closed;
    closed.cancel();
    call("fourth", answers, closed);
    EXPECT_EQ(transport->requests().size(), 3u) << "nothing sent into a cancelled group";
}

// A call's deadline is the earlier of its group's deadline and its start
// plus the group's timeout.
TEST(CallDeadlines, TheEarlierOfTheGroupsTwo) {
    using Clock = Call::Clock;
    struct Case {
        std::optional<std::chrono::milliseconds> timeout, deadlineIn;
        bool fromDeadline;  // else from the timeout, or none when neither is set
    };
    const Case cases[] = {{std::nullopt, std::nullopt, false}, {std::nullopt, 10s, true}, {1s, 10s, false}, {10s, 1s, true}, {1s, std::nullopt, false}};
    for (const Case& c : cases) {
        CallGroup group;
        Clock::time_point deadline = Clock::now() + c.deadlineIn.value_or(0s);
        if (c.timeout) group.setTimeout(*c.timeout);
        if (c.deadlineIn) group.setDeadline(deadline);
        CallScope scope(group);
        Clock::time_point before = Clock::now();
        std::shared_ptr<Call> call = Call::begin("x");
        if (c.fromDeadline) EXPECT_EQ(call->deadline(), deadline);
        else if (c.timeout) EXPECT_TRUE(call->deadline() && *call->deadline() >= before + *c.timeout && *call->deadline() < before + *c.timeout + 1s);
        else EXPECT_EQ(call->deadline(), std::nullopt);
    }
}

// The command line gives up at --timeout, and Ctrl-C cancels what a command
// waits for: status 130 and a line that says so.
class CommandLineCancellation : public test::SandboxTest {};

TEST_F(CommandLineCancellation, TimeoutsAndCtrlC) {
    sandbox->setFault("getLabel", {.kind = sandbox::Fault::Kind::delay, .delayMilliseconds = 3000});
    test::Process timed({"call", "getLabel", "type=1", "companyid=1", "--timeout", "300", "--server", sandbox->address()});
    EXPECT_EQ(timed.finish(), 1);
    EXPECT_NE(timed.output.find(R"("message":"getLabel: no answer within 300 ms")"), std::string::npos) << timed.output;

    test::Process call({"call", "getLabel", "type=1", "companyid=1", "--server", sandbox->address()});
    ASSERT_TRUE(sandbox->waitForRequest("getLabel", 2));
    EXPECT_EQ(call.stop(SIGINT), 130);
    EXPECT_NE(call.output.find("veltrane call: interrupted (getLabel: cancelled)"), std::string::npos) << call.output;

    test::ControlledServer silent;
    std::string pdf = (std::filesystem::temp_directory_path() / ("veltrane-cancel-" + std::to_string(getpid()) + ".pdf")).string();
    std::ofstream(pdf) << "%PDF-1.4";
    test::Process upload({"upload-signature", pdf, "--sn", "A", "--id", "1", "--server", silent.address()});
    ASSERT_TRUE(silent.waitForRequest("upload"));
    EXPECT_EQ(upload.stop(SIGINT), 130);
    EXPECT_NE(upload.output.find("veltrane upload-signature: interrupted (uploadSignaturePDF: cancelled)"), std::string::npos) << upload.output;
    std::filesystem::remove(pdf);

    test::Process check({"update-check", silent.address() + "/drip.plist", "--local-version", "1.0"});
    ASSERT_TRUE(silent.waitForRequest("drip"));
    EXPECT_EQ(check.stop(SIGINT), 130);
    EXPECT_NE(check.output.find("veltrane update-check: interrupted (checkWithPListURL: cancelled)"), std::string::npos) << check.output;
}

} // namespace
} // namespace veltrane
