// TLS and HTTP/2 through a real nginx in front of the sandbox: certificates
// verified by default, pinned public keys on every path, HTTP/2 offered and
// its connection shared by concurrent calls, HTTP/1.1 where the server
// offers nothing else.
#include "veltrane/documents/Receipt.h"
#include "veltrane/foundation/Tag.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/HTTPSession.h"
#include "veltrane/platform/PropertyList.h"
#include "support/Nginx.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

class ThroughNginx : public test::SandboxTest {
protected:
    static void SetUpTestSuite() {
        test::SandboxTest::SetUpTestSuite();
        if (std::optional<std::string> why = test::Nginx::missing()) FAIL() << *why;
        nginx = new test::Nginx("127.0.0.1:" + std::to_string(sandbox->port()));
    }
    static void TearDownTestSuite() {
        delete nginx;
        nginx = nullptr;
        test::SandboxTest::TearDownTestSuite();
    }
    void SetUp() override {
        test::SandboxTest::SetUp();
        ASSERT_TRUE(nginx) << "nginx did not start";
        previousObserver = setRequestObserver([this](const RequestEvent& e) {
            std::lock_guard lock(logMutex);
            events.push_back(e);
        });
    }
    void TearDown() override {
        setRequestObserver(previousObserver);
        HTTPSession::sharedSession().setOptions({});
        test::SandboxTest::TearDown();
    }
    // Trusts both sites' certificates; pins site pinned's key when asked.
    std::shared_ptr<HTTPTransport> transport;
    void use(int site, std::optional<int> pinned) {
        HTTPTransportOptions options;
        options.caCertificates = nginx->trustFile();
        if (pinned) options.pinnedPublicKeys = {nginx->pin(*pinned)};
        transport = std::make_shared<HTTPTransport>(options);
        Server::setTransport(transport);
        Server::setAddress(nginx->address(site));
        HTTPSessionOptions session;
        session.caCertificates = options.caCertificates;
        session.pinnedPublicKeys = options.pinnedPublicKeys;
        HTTPSession::sharedSession().setOptions(session);
    }
    // The gateway's, the upload's and the update check's answers, on a line each.
    std::vector<std::string> everyPath() {
        std::vector<std::string> answers;
        auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
        answers.push_back((tags.success ? "T|" : "F|") + tags.message.value_or("-"));
        std::optional<std::string> uploaded, checked;
        Receipt(Dictionary{{"SN", "SN20261118001"}, {"ID", 801}}).uploadSignaturePDF("%PDF-1.4", [&](bool ok, std::optional<std::string> m) {
            uploaded = (ok ? "T|" : "F|") + m.value_or("-");
        });
        Dispatch::mainQueue().runFor(10s, [&] { return uploaded.has_value(); });
        answers.push_back(uploaded.value_or("no answer"));
        Bundle::mainBundle().setShortVersionString("0.1");
        Updater::checkWithPListURL(Server::address() + "/manifest.plist", [&](bool newer, std::optional<std::string> m) {
            checked = (newer ? "T|" : "F|") + m.value_or("-");
        });
        Dispatch::mainQueue().runFor(10s, [&] { return checked.has_value(); });
        answers.push_back(checked.value_or("no answer"));
        return answers;
    }

    static inline test::Nginx* nginx = nullptr;
    std::vector<RequestEvent> events;
    RequestObserver previousObserver;
};

TEST_F(ThroughNginx, PinnedKeysOnEveryPathAndVerificationByDefault) {
    use(0, 0);
    EXPECT_EQ(everyPath(), (std::vector<std::string>{"T|ok", "T|上传成功", "T|Version 1.1 \n 修复已知问题，提升稳定性"}));

    use(1, 0);  // the other site's key is not the pinned one
    std::vector<std::string> refused = everyPath();
    EXPECT_EQ(refused[0].rfind("F|getLabel: the server's public key is not pinned", 0), 0u) << refused[0];
    EXPECT_EQ(refused[1].rfind("F|the server's public key is not pinned", 0), 0u) << refused[1];
    EXPECT_NE(refused[1].find(nginx->address(1) + "/index.php/api/common/upload"), std::string::npos) << refused[1];
    EXPECT_EQ(refused[2], "F|-") << "a manifest that cannot be had";
    {
        std::lock_guard lock(logMutex);
        EXPECT_NE(std::find_if(logLines.begin(), logLines.end(), [](const std::string& l) {
                      return l.rfind("property list https://", 0) == 0 && l.find("the server's public key is not pinned") != std::string::npos;
                  }), logLines.end());
    }

    Server::setTransport(std::make_shared<HTTPTransport>());  // no authority given: the self-signed certificate is refused
    auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    EXPECT_FALSE(tags.success);
    EXPECT_NE(tags.message->find("certificate"), std::string::npos) << *tags.message;
}

// A call over HTTP/2; sixteen calls at once share one connection; a site
// without HTTP/2 is spoken to in HTTP/1.1.
TEST_F(ThroughNginx, HTTP2SharedByConcurrentCallsAndHTTP11WhereOffered) {
    use(0, std::nullopt);
    ASSERT_TRUE(await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); }).success);
    {
        std::lock_guard lock(logMutex);
        ASSERT_EQ(events.size(), 1u);
        for (const RequestEvent& e : events) EXPECT_EQ(e.httpVersion, "2") << e.name;
        events.clear();
    }

    // Answered slowly, so that all sixteen are seen in flight together: over
    // HTTP/2 none waits for a connection of its own.
    sandbox::Fault slow;
    slow.kind = sandbox::Fault::Kind::delay;
    slow.delayMilliseconds = 400;
    sandbox->setFault("getLabel", slow);
    std::atomic<int> answered{0};
    for (int i = 0; i < 16; ++i)
        Tag::listWithCompany(1, 1, [&](bool, std::optional<std::string>, std::optional<std::vector<Tag>>) {
            ++answered;
            answered.notify_one();
        });
    HTTPTransport::Load load;
    for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5); std::chrono::steady_clock::now() < end;) {
        load = transport->load();
        if (load.active + load.waiting == 16) break;
    }
    EXPECT_EQ(load.active, 16u);
    EXPECT_EQ(load.waiting, 0u);
    for (int seen = answered.load(); seen < 16; seen = answered.load()) answered.wait(seen);
    sandbox->clearFaults();
    {
        std::lock_guard lock(logMutex);
        ASSERT_EQ(events.size(), 16u);
        EXPECT_EQ(std::count_if(events.begin(), events.end(), [](const RequestEvent& e) { return !e.connectionReused; }), 0)
            << "every one went on the connection already open";
        events.clear();
    }

    use(1, std::nullopt);
    auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    EXPECT_TRUE(tags.success);
    std::lock_guard lock(logMutex);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].httpVersion, "1.1");
}

} // namespace
} // namespace veltrane
