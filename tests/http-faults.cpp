// The sandbox's faults and scenarios as the library meets them over real
// HTTP: every kind reaches the completion once with a clear message and is
// named in the journal, a probability replays from its seed, scenarios are
// consumed a step per request, and what does not read is refused by name.
#include "veltrane/foundation/Tag.h"
#include "veltrane/platform/HTTPSession.h"
#include "support/Answers.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;
using test::SandboxTest;
using Fault = sandbox::Fault;
using K = Fault::Kind;

struct FaultCase {
    Fault fault;
    const char* message;  // the start of the completion's message; nullptr: a success
    const char* applied;  // as the journal names it
    int times = 1;
};

// The SandboxTest transport gives up after 2 s.
const FaultCase kFaults[] = {
    {{.kind = K::failure, .message = "服务器繁忙，请稍后再试"}, "服务器繁忙，请稍后再试", "fault=failure"},
    {{.kind = K::malformed}, "getLabel: reply is not JSON", "fault=malformed"},
    {{.kind = K::delay, .delayMilliseconds = 2500}, "getLabel: Timeout was reached", "fault=delay"},
    {{.kind = K::drop}, "getLabel: Transferred a partial file", "fault=drop"},
    // libcurl sends a GET again, once, when a connection it reused closes
    // without a byte: these hit every request until cleared.
    {{.kind = K::reset}, "getLabel: Failure when receiving data from the peer: Recv failure: Connection reset by peer", "fault=reset", -1},
    {{.kind = K::empty}, "getLabel: Server returned nothing", "fault=empty", -1},
    {{.kind = K::status, .status = 502, .body = "<html>Bad Gateway</html>"}, "getLabel: server answered HTTP 502", "fault=status"},
    {{.kind = K::dribble, .delayMilliseconds = 400}, nullptr, "fault=dribble"},
    {{.kind = K::truncate}, "getLabel: Transferred a partial file", "fault=truncate"},
};

TEST_F(SandboxTest, EveryFaultKindReachesTheCompletionOnceAndIsJournaled) {
    for (const FaultCase& c : kFaults) {
        std::string name = std::string(sandbox::kindName(c.fault.kind)) + " " + std::to_string(c.fault.delayMilliseconds) + " " + c.fault.body;
        SCOPED_TRACE(name);
        Fault fault = c.fault;
        fault.times = c.times;
        sandbox->setFault("getLabel", fault);
        test::Answers answers;
        Tag::listWithCompany(1, 1, [&](bool ok, std::optional<std::string> message, std::optional<std::vector<Tag>>) { answers.add(ok, message); });
        ASSERT_TRUE(answers.waitFor(1));
        std::this_thread::sleep_for(50ms);  // time for a second answer, were there one
        ASSERT_EQ(answers.count(), 1u) << answers.all();
        std::string expected = c.message ? std::string("F|") + c.message : "T|";
        EXPECT_EQ(answers.lines[0].rfind(expected, 0), 0u) << answers.lines[0];

        // The journal names it once the sandbox has finished with it.
        Array last;
        for (auto end = std::chrono::steady_clock::now() + 5s; std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(10ms)) {
            last = sandbox->journal({.api = "getLabel", .limit = 1});
            if (!last.empty() && last[0].asDictionary().optString("applied") == c.applied) break;
        }
        ASSERT_EQ(last.size(), 1u);
        EXPECT_EQ(last[0].asDictionary().optString("applied"), c.applied);
        if (c.times < 0) sandbox->clearFaults("getLabel");

        auto after = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
        EXPECT_TRUE(after.success) << "a fault for one request ends after it: " << after.message.value_or("");
    }
}

// Which of n requests of getLabel fail, as "FT.T...".
std::string failures(int n) {
    std::string pattern;
    for (int i = 0; i < n; ++i)
        pattern += await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); }).success ? "." : "F";
    return pattern;
}

TEST_F(SandboxTest, AProbabilityReplaysFromItsSeed) {
    auto run = [](uint64_t seed) {
        sandbox->setFault("getLabel", {.kind = K::failure, .probability = 0.5, .seed = seed});
        std::string pattern = failures(24);
        sandbox->clearFaults("getLabel");
        return pattern;
    };
    std::string first = run(42);
    EXPECT_EQ(run(42), first) << "the same seed, the same requests hit";
    EXPECT_NE(run(43), first);
    EXPECT_NE(first.find('F'), std::string::npos) << first;
    EXPECT_NE(first.find('.'), std::string::npos) << first;

    sandbox->setFault("getLabel", {.kind = K::failure, .times = 3, .probability = 1});
    EXPECT_EQ(failures(5), "FFF..") << "a count of hits ends the fault";
}

TEST_F(SandboxTest, AScenarioIsConsumedOneStepPerRequestThenNormal) {
    sandbox->setScenario("getLabel", {{.kind = K::failure, .message = "库存不足"}, {.kind = K::normal}, {.kind = K::status, .status = 503}});
    sandbox->setFault("getPlanList", {.kind = K::delay, .delayMilliseconds = 10});
    EXPECT_EQ(writeJSON(sandbox->faults()),
              R"([{"api":"getLabel","scenario":[{"kind":"failure","message":"库存不足"},{"kind":"normal"},{"kind":"status","status":503,"body":""}]},)"
              R"({"api":"getPlanList","kind":"delay","times":"all","delay":10}])");
    std::vector<std::string> outcomes;
    for (int i = 0; i < 4; ++i) {
        auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
        outcomes.push_back(tags.success ? "ok" : tags.message.value_or(""));
    }
    EXPECT_EQ(outcomes, (std::vector<std::string>{"库存不足", "ok", "getLabel: server answered HTTP 503", "ok"}));
    std::vector<std::string> applied;
    for (const Value& e : sandbox->journal({.api = "getLabel", .limit = 4})) applied.push_back(e.asDictionary().optString("applied").value_or("-"));
    EXPECT_EQ(applied, (std::vector<std::string>{"scenario=1/3:failure", "scenario=2/3:normal", "scenario=3/3:status", "-"}));
    EXPECT_EQ(writeJSON(sandbox->faults()), R"([{"api":"getPlanList","kind":"delay","times":"all","delay":10}])") << "a used scenario is gone";
}

struct ControlCase {
    const char* path;
    const char* body;  // form-encoded
    const char* info;  // the sandbox's answer
};

const ControlCase kControls[] = {
    {"/sandbox/fault", "api=nope&kind=failure&times=1", "未知接口: nope"},
    {"/sandbox/fault", "api=getLabel&kind=explode&times=1", "参数格式错误: kind 应为 failure|malformed|delay|drop|reset|empty|status|dribble|truncate"},
    {"/sandbox/fault", "api=getLabel&kind=failure", "缺少参数: times (次数或 all)"},
    {"/sandbox/fault", "api=getLabel&kind=failure&times=0", "参数格式错误: times 应为正整数或 all"},
    {"/sandbox/fault", "api=getLabel&kind=delay&times=1&delay=-5", "参数格式错误: delay 应为毫秒数 (至多 600000)"},
    {"/sandbox/fault", "api=getLabel&kind=status&times=1&status=99", "参数格式错误: status 应为 100 至 599 的 HTTP 状态"},
    {"/sandbox/fault", "api=getLabel&kind=failure&times=all&probability=1.5", "参数格式错误: probability 应为 0 至 1 的数"},
    {"/sandbox/fault", "api=getLabel&kind=status&times=2&status=429&body=slow&probability=0.5&seed=3", "fault set"},
    {"/sandbox/scenario", "api=getLabel&steps=[]", "参数格式错误: steps 应为非空 JSON 数组"},
    {"/sandbox/scenario", "api=getLabel&steps=[{", "参数格式错误: steps 应为 JSON 数组 ("},
    {"/sandbox/scenario", "api=getLabel&steps=[{\"kind\":\"normal\"},{\"kind\":\"delay\"}]", "参数格式错误: delay 应为毫秒数 (至多 600000) (steps[1])"},
    {"/sandbox/scenario", "api=getLabel&steps=[{\"kind\":\"failure\",\"times\":2}]",
     "参数格式错误: 场景的每一步只用于一次请求 (不带 times 或 probability) (steps[0])"},
    {"/sandbox/scenario", "api=getLabel&steps=[{\"kind\":\"delay\",\"delay\":20},{\"kind\":\"normal\"}]", "scenario set"},
    {"/sandbox/clear-faults", "api=getPlanList", "faults and scenario of getPlanList cleared"},
};

TEST_F(SandboxTest, FaultsAndScenariosAreSetOverHTTPAndRefusedByName) {
    sandbox->setFault("getPlanList", {.kind = K::failure});
    for (const ControlCase& c : kControls) {
        SCOPED_TRACE(std::string(c.path) + " " + c.body);
        HTTPRequest request;
        request.url = sandbox->address() + c.path;
        request.method = "POST";
        request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
        request.body = c.body;
        HTTPSession::Outcome outcome = HTTPSession::perform(request);
        ASSERT_TRUE(outcome.data) << (outcome.error ? outcome.error->description : "");
        std::optional<Dictionary> reply = jsonDictionary(*outcome.data);
        ASSERT_TRUE(reply) << *outcome.data;
        EXPECT_EQ(reply->optString("info").value_or("").rfind(c.info, 0), 0u) << *outcome.data;
    }
    EXPECT_EQ(writeJSON(sandbox->faults()),
              R"([{"api":"getLabel","kind":"status","times":2,"status":429,"body":"slow","probability":0.5,"seed":3},)"
              R"({"api":"getLabel","scenario":[{"kind":"delay","delay":20},{"kind":"normal"}]}])")
        << "what was refused left nothing behind";
}

} // namespace
} // namespace veltrane
