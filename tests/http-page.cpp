// The sandbox's page in a real browser (headless chromium through
// chromium-driver), used as a developer would: the journal shows what the
// library sent, the forms queue a push message and set a failure, refusals
// are shown, values are text (never markup), the console stays clean; and
// the page's address rules over HTTP.
#include <httplib.h>

#include "veltrane/foundation/Tag.h"
#include "veltrane/messaging/Chat.h"
#include "veltrane/messaging/PushMessage.h"
#include "support/SandboxTest.h"
#include "support/WebDriver.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;
using test::SandboxTest;

class Page : public SandboxTest {
protected:
    // Whether the element's text holds text, within the time.
    bool shows(const std::string& selector, const std::string& text) {
        return browser->waitUntil("return (document.querySelector('" + selector + "')?.innerText || '').includes(" + writeJSON(text) + ")");
    }
    // Fills a form's fields (name → text) and submits it; the text it answers.
    std::string submit(const std::string& form, const std::vector<std::pair<std::string, std::string>>& fields) {
        browser->run("document.querySelector('#" + form + " output').textContent = ''");
        for (const auto& [name, text] : fields) {
            if (name == "kind") browser->run("document.querySelector('#" + form + " [name=kind]').value = arguments[0]", Array{text});
            else browser->type("#" + form + " [name=" + name + "]", text);
        }
        browser->click("#" + form + " button");
        browser->waitUntil("return document.querySelector('#" + form + " output').textContent !== ''");
        return std::string(browser->run("return document.querySelector('#" + form + " output').textContent").asString());
    }
    std::unique_ptr<test::Browser> browser;
};

TEST_F(Page, ADeveloperWatchesAndProvokesFromTheBrowser) {
    try {
        browser = std::make_unique<test::Browser>();
    } catch (const std::exception& e) {
        FAIL() << "the browser test needs chromium: " << e.what();
    }
    browser->open(sandbox->address() + "/sandbox/");
    ASSERT_TRUE(shows("#live", "live"));
    EXPECT_TRUE(shows("#action-orders", "待处理")) << "action-form orders with the library's status names";
    EXPECT_TRUE(shows("#orders", "已提交订单")) << "orders with the library's status names";
    EXPECT_TRUE(shows("#chats", "今天下午三点开晨会")) << "Chinese text as it is";

    // The journal shows, live, a request the library makes.
    ASSERT_TRUE(await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); }).success);
    EXPECT_TRUE(shows("#journal", "getLabel"));
    browser->click("#journal li:first-child summary");
    EXPECT_TRUE(shows("#journal", R"("companyid": "1")")) << "an entry opens to its parameters";

    // A push message queued through the form arrives at a poll.
    EXPECT_EQ(submit("push-form", {{"userID", "7"}, {"Content", "新机到货 <b>请查收</b>"}}), "queued");
    auto pushes = await<std::vector<PushMessage>>([](auto done) { PushMessage::fetch(7, 0, done); });
    ASSERT_TRUE(pushes.success);
    EXPECT_EQ(std::count_if(pushes.result->begin(), pushes.result->end(), [](const PushMessage& m) { return m.Content() && m.Content()->isString() && m.Content()->asString() == "新机到货 <b>请查收</b>"; }), 1);

    // A failure set through the form fails the next call with its message;
    // a refusal is shown with the sandbox's own message.
    EXPECT_EQ(submit("fault-form", {{"api", "getLabel"}, {"kind", "failure"}, {"times", "1"}, {"message", "库存不足"}}), "fault set");
    EXPECT_TRUE(shows("#faults", "getLabel"));
    auto failed = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    EXPECT_FALSE(failed.success);
    EXPECT_EQ(failed.message, "库存不足");
    EXPECT_EQ(submit("fault-form", {{"api", "getLabels"}, {"kind", "failure"}, {"times", "1"}}), "未知接口: getLabels");
    EXPECT_EQ(submit("scenario-form", {{"api", "getOrders"}, {"steps", "[{\"kind\":\"later\"}]"}}),
              "参数格式错误: kind 应为 failure|malformed|delay|drop|reset|empty|status|dribble|truncate|normal (steps[0])");

    // Markup in a chat message and in a push is shown as text.
    const std::string hostile = R"(<img src=x onerror="window.pwned=1"><script>window.pwned=1</script>)";
    ASSERT_TRUE(awaitFlag([&](auto done) { Chat::sendAsUser(7, hostile, "text", done); }).success);
    EXPECT_TRUE(shows("#chats", hostile));
    EXPECT_TRUE(shows("#pushes", "新机到货 <b>请查收</b>"));
    EXPECT_EQ(writeJSON(browser->run("return [window.pwned === undefined, document.querySelectorAll('#chats img, #chats script, #pushes b').length]")),
              "[true,0]");

    EXPECT_EQ(browser->consoleErrors(), std::vector<std::string>()) << "no script errors";
    std::filesystem::path png = std::filesystem::path(VELTRANE_BUILD_DIR) / "sandbox-page.png";
    browser->screenshot(png);
    EXPECT_GT(std::filesystem::file_size(png), 10'000u);
}

// The page and the control routes answer under the sandbox's own address,
// and take POSTs from its own page only.
TEST_F(Page, AnswersOnlyUnderItsOwnAddress) {
    const std::string own = "127.0.0.1:" + std::to_string(sandbox->port());
    const struct {
        const char* method;
        const char* path;
        std::string host, origin;
        int status;
    } cases[] = {
        {"GET", "/sandbox/", own, "", 200},
        {"GET", "/sandbox/", "localhost:" + std::to_string(sandbox->port()), "", 200},
        {"GET", "/sandbox/", "attacker.example", "", 403},
        {"GET", "/sandbox/state", "attacker.example:" + std::to_string(sandbox->port()), "", 403},
        {"POST", "/sandbox/reset", own, "http://" + own, 200},
        {"POST", "/sandbox/reset", own, "http://attacker.example", 403},
        {"POST", "/sandbox/reset", own, "null", 403},
        {"GET", "/index.php/api/getHeadAd", "dealer.example", "", 200},  // the API answers whatever the name
        {"GET", "/sandbox/page.js", own, "", 200},
        {"GET", "/sandbox/other.js", own, "", 404},
    };
    httplib::Client client(sandbox->address());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.method) + " " + c.path + " " + c.host + " " + c.origin);
        httplib::Headers headers{{"Host", c.host}};
        if (!c.origin.empty()) headers.emplace("Origin", c.origin);
        auto res = std::string(c.method) == "GET" ? client.Get(c.path, headers) : client.Post(c.path, headers, "", "application/x-www-form-urlencoded");
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, c.status);
        if (c.status == 200 && std::string(c.path) == "/sandbox/") {
            EXPECT_NE(res->get_header_value("Content-Security-Policy").find("default-src 'self'"), std::string::npos);
        }
    }
}

} // namespace
} // namespace veltrane
