// Messaging and home content: the records, every class operation's request
// and reply, the stored last identifier, and the push-message poller's state
// machine and cadence with the main queue's clock driven by the test.
#include <thread>
#include <typeindex>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/messaging/Advertisment.h"
#include "veltrane/messaging/Chat.h"
#include "veltrane/messaging/GuideItem.h"
#include "veltrane/messaging/PushMessage.h"
#include "veltrane/messaging/SubApp.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/NotificationCenter.h"
#include "veltrane/platform/UserDefaults.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;
using test::dict;
using test::ignore;

class Messaging : public test::GatewayTest {};

const test::RequestCase kRequests[] = {
    {"push messages", [] { PushMessage::fetch(7, 10, ignore<std::vector<PushMessage>>()); }, HTTPMethod::GET, "fetchPushMessage",
     "userID=7:i32 lastMessageID=10:i64"},
    {"a chat message", [] { Chat::sendAsUser(17, "他说\"你好\"", "text", test::kIgnoreFlag); }, HTTPMethod::POST, "postChat",
     R"(userid=17:i32 message="[{\"Type\":\"text\",\"Content\":\"他说\\\"你好\\\"\"}]")"},
    {"the chat after a message", [] { Chat::listForCompany(1, 0, ignore<std::vector<Chat>>()); }, HTTPMethod::GET, "getChatMessages",
     "companyid=1:i32 lastMessageID=0:i64"},
    {"tiles of a company", [] { GuideItem::loadWithCompany(3, ignore<std::vector<GuideItem>>()); }, HTTPMethod::GET, "getAppsID", "CompanyID=3:i32"},
    {"tiles of the user's company", [] { SubApp::list(ignore<std::vector<SubApp>>()); }, HTTPMethod::GET, "getAppsID", "CompanyID=1:i64"},
    {"banners", [] { Advertisment::listWithCallback(ignore<std::vector<Advertisment>>()); }, HTTPMethod::GET, "getHeadAd", "none"},
};

TEST_F(Messaging, ParametersAsTheServerExpectsThem) { test::expectRequests(*transport, kRequests); }

TEST_F(Messaging, AChatMessageNeedsATypeAndAContent) {
    const char* kNeeds = "postChat: a message needs a type and a content";
    const struct {
        std::optional<std::string> content, type;
        const char* message;
    } refused[] = {{std::nullopt, "text", kNeeds}, {"", "text", kNeeds}, {"你好", std::nullopt, kNeeds}, {"你好", "", kNeeds},
                   {"\xFF", "text", "postChat: text is not valid UTF-8"}};
    for (const auto& c : refused) {
        std::string got;
        Chat::sendAsUser(7, c.content, c.type, [&](bool ok, std::optional<std::string> m, bool flag) {
            got = std::string(ok ? "T" : "F") + "|" + m.value_or("-") + "|" + (flag ? "T" : "F");
        });
        EXPECT_EQ(got, std::string("F|") + c.message + "|F");
    }
    EXPECT_TRUE(transport->requests().empty());
    for (bool success : {true, false}) {
        reply("postChat", success, "M", R"({"ignored":1})");
        std::string got;
        Chat::sendAsUser(7, "你好", "text", [&](bool ok, std::optional<std::string>, bool flag) { got = std::string(ok ? "T" : "F") + (flag ? "T" : "F"); });
        EXPECT_EQ(got, success ? "TT" : "FF") << "the flag, doubled";
    }
}

// ---- The records --------------------------------------------------------------------------

TEST_F(Messaging, MessagesAndChatsByPlainLookups) {
    PushMessage m(dict(R"({"ID":"42","Type":"order","ReceiverID":"7","Content":null,"CreateTime":1500000000})"));
    EXPECT_EQ(m.ID(), 42);
    EXPECT_EQ(m.Type()->asString(), "order");
    EXPECT_EQ(m.ReceiverID(), 7);
    EXPECT_TRUE(m.Content()->isNull()) << "as it stands";
    EXPECT_EQ(m.CreateTime().iso8601(), "2017-07-14T02:40:00Z");
    PushMessage bare(dict("{}"));
    EXPECT_EQ(bare.ID(), 0);
    EXPECT_FALSE(bare.Type());
    EXPECT_EQ(bare.CreateTime().timeIntervalSince1970(), 0);

    Chat c(dict(R"({"ID":9007199254740993,"UserID":"5","CompanyID":1,"CreateTime":"1763700000.5","Type":"text","Content":"收到"})"));
    EXPECT_EQ(c.ID(), 9007199254740993) << "word-sized, exactly";
    EXPECT_EQ(c.UserID(), 5);
    EXPECT_EQ(c.CreateTime().timeIntervalSince1970(), 1763700000.5);

    const char* nulls[] = {R"({"ID":null})", R"({"ReceiverID":null})", R"({"CreateTime":[1]})"};
    for (const char* json : nulls) EXPECT_THROW(PushMessage{dict(json)}, ValueError) << json;
    EXPECT_THROW(Chat{dict(R"({"UserID":null})")}, ValueError);
}

TEST_F(Messaging, ABannerShowsForTheIntegerOneOnly) {
    struct {
        const char* isbar;  // nullptr for none
        bool shows;
    } cases[] = {{"1", true},    {R"("1")", true}, {"true", true}, {"1.9", true},   {R"(" 1x")", true}, {"2", false},
                 {R"("x")", false}, {"0", false},  {nullptr, false}, {"4294967297", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.isbar ? c.isbar : "none");
        Dictionary tile = dict(R"({"name":"号码选购","icon":"/i.png","link":"app://numbers"})");
        if (c.isbar) tile.set("isbar", parseJSON(c.isbar));
        EXPECT_EQ(GuideItem(tile).ShowBanner(), c.shows);
        EXPECT_EQ(Advertisment(tile).ShowBanner(), c.shows);
        EXPECT_EQ(Advertisment(tile).ImageUrl()->asString(), "/i.png") << "the image is read from \"icon\"";
    }
    EXPECT_THROW(GuideItem{dict(R"({"isbar":null})")}, ValueError);
}

// ---- Replies --------------------------------------------------------------------------------

template <class R>
std::string names(const std::vector<R>& list) {
    std::string out;
    for (const R& r : list) {
        if constexpr (std::is_same_v<R, SubApp>) out += r.name().value_or("-") + ",";
        else if constexpr (std::is_same_v<R, GuideItem> || std::is_same_v<R, Advertisment>) out += (r.Name() ? describe(*r.Name()) : "-") + ",";
        else out += std::to_string(r.ID()) + ",";
    }
    return out;
}

// Each reader on the same data, its outcome on a line.
template <class R, class Read>
std::string readWith(MemoryTransport& transport, const char* api, const char* data, Read read) {
    transport.script(api, {true, "M", data ? std::optional<Value>(parseJSON(data)) : std::nullopt});
    test::Calls<std::vector<R>> calls;
    read(calls.callback());
    return calls.line(names<R>);
}

TEST_F(Messaging, EachListReaderItsOwnWay) {
    struct {
        const char* data;  // nullptr for none
        const char* tiles, *apps, *banners, *messages, *chats;
    } cases[] = {
        {R"([{"name":"a","isbar":1,"ID":1},{"name":null,"ID":null},{"icon":"x","ID":"3"}])", "T|M|a,null,-,", "T|M|a,-,", "T|M|a,null,-,",
         "T|M|1,3,", "T|M|1,3,"},
        {R"([{"name":"a"},"x"])", "T|M|a,", "F|getAppsID: [1]: a string is not a dictionary|-", "F|getHeadAd: [1]: a string is not a dictionary|-",
         "T|M|0,", "T|M|0,"},
        {R"([{"name":"a","isbar":null}])", "T|M|", "T|M|a,", "F|getHeadAd: [0].isbar: null has no integer value|-", "T|M|0,", "T|M|0,"},
        {R"({"name":"a"})", "F|数据格式错误，请稍后重试|-", "F|getAppsID: [0]: a string is not a dictionary|-",
         "F|getHeadAd: [0]: a string is not a dictionary|-", "T|M|-", "T|M|"},
        {"null", "F|数据格式错误，请稍后重试|-", "F|getAppsID: null cannot be enumerated|-", "F|getHeadAd: null cannot be enumerated|-", "T|M|-",
         "F|getChatMessages: null cannot be enumerated|-"},
        {nullptr, "F|数据格式错误，请稍后重试|-", "T|M|", "T|M|", "T|M|-", "T|M|-"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data ? c.data : "none");
        EXPECT_EQ(readWith<GuideItem>(*transport, "getAppsID", c.data, [](auto done) { GuideItem::loadWithCompany(1, done); }), c.tiles);
        EXPECT_EQ(readWith<SubApp>(*transport, "getAppsID", c.data, [](auto done) { SubApp::list(done); }), c.apps);
        EXPECT_EQ(readWith<Advertisment>(*transport, "getHeadAd", c.data, [](auto done) { Advertisment::listWithCallback(done); }), c.banners);
        EXPECT_EQ(readWith<PushMessage>(*transport, "fetchPushMessage", c.data, [](auto done) { PushMessage::fetch(7, 0, done); }), c.messages);
        EXPECT_EQ(readWith<Chat>(*transport, "getChatMessages", c.data, [](auto done) { Chat::listForCompany(1, 0, done); }), c.chats);
    }
}

// ---- The stored last identifier --------------------------------------------------------------

TEST_F(Messaging, TheLastIdentifierIsANumberInTheStore) {
    UserDefaults& store = UserDefaults::standardUserDefaults();
    struct {
        std::optional<Value> stored;
        long read;
    } cases[] = {{Value(12), 12}, {std::nullopt, 0}, {Value("12"), 0}, {Value(Dictionary()), 0}, {Value(12.9), 12}, {Value(-5L), -5}};
    for (const auto& c : cases) {
        if (c.stored) store.setObject("LastMessageID", *c.stored);
        else store.removeObjectForKey("LastMessageID");
        EXPECT_EQ(PushMessage::lastMessageID(), c.read) << (c.stored ? describe(*c.stored) : "absent");
    }
    PushMessage::setLastMessageID(9007199254740993);
    EXPECT_EQ(test::typedParams(Dictionary{{"LastMessageID", *store.objectForKey("LastMessageID")}}), "LastMessageID=9007199254740993:i64");
    PushMessage::reset();
    EXPECT_EQ(PushMessage::lastMessageID(), 0);
}

// ---- The poller -------------------------------------------------------------------------------

// Drives the poller through a script of steps against a deferred transport
// (answers are held until "deliver") and the main queue, whose clock the
// test moves: "tick" runs what falls due one second on.
class Poller : public test::GatewayTest {
protected:
    void SetUp() override {
        test::GatewayTest::SetUp();
        _running = false;
        Dispatch::mainQueue().clear();
        PushMessage::reset();
        posts.clear();
        transport->setDeferred(true);
        transport->setHandler([](const MemoryTransport::Request&) { return MemoryTransport::Reply{true, "ok", Value(Array())}; });
        Account::signIn(User(7, 1, "gz_tianhe_07"));
        observer = NotificationCenter::defaultCenter().addObserverForName(PushMessageNotification, [this](const Notification& n) {
            EXPECT_EQ(std::any_cast<std::type_index>(n.object), std::type_index(typeid(PushMessage)));
            std::string batch;
            for (const PushMessage& m : std::any_cast<const std::vector<PushMessage>&>(n.userInfo.at(PushMessageKey)))
                batch += (batch.empty() ? "" : ",") + std::to_string(m.ID());
            posts.push_back("[" + batch + "]");
        });
    }
    void TearDown() override {
        NotificationCenter::defaultCenter().removeObserver(observer);
        PushMessage::stop();
        Dispatch::mainQueue().clear();
        test::GatewayTest::TearDown();
    }

    void run(const std::string& step) {
        if (step == "start") PushMessage::start();
        else if (step == "stop") PushMessage::stop();
        else if (step == "reset") PushMessage::reset();
        else if (step == "sign out") Account::signOut();
        else if (step == "sign in") Account::signIn(User(7, 1, "gz_tianhe_07"));
        else if (step == "deliver") transport->deliver();
        else if (step == "tick") Dispatch::mainQueue().runDue(Clock::now() + 1s + 1ms);
        else if (step == "fail") transport->script("fetchPushMessage", {false, "服务器繁忙", std::nullopt});
        else if (step.rfind("reply ", 0) == 0) transport->script("fetchPushMessage", {true, "ok", parseJSON(step.substr(6))});
        else if (step.rfind("last ", 0) == 0) PushMessage::setLastMessageID(std::stol(step.substr(5)));
        else ADD_FAILURE() << "no step " << step;
    }

    // What the poller did: the "lastMessageID" of each request, the batches
    // posted, the stored identifier, the flag, and the polls due.
    std::string state() const {
        std::string asked;
        for (const auto& r : transport->requests()) asked += (asked.empty() ? "" : ",") + writeJSON(*r.params->find("lastMessageID"));
        std::string posted;
        for (const std::string& p : posts) posted += p;
        return "asked=" + asked + " posted=" + posted + " last=" + std::to_string(PushMessage::lastMessageID()) +
               " running=" + (_running ? "yes" : "no") + " due=" + std::to_string(Dispatch::mainQueue().pending());
    }

    NotificationCenter::Token observer = 0;
    std::vector<std::string> posts;
};

const struct {
    const char* name;
    std::vector<std::string> steps;
    const char* expected;
} kTransitions[] = {
    {"start polls at once", {"start"}, "asked=0 posted= last=0 running=yes due=0"},
    {"an answer schedules the next poll", {"start", "deliver"}, "asked=0 posted=[] last=0 running=yes due=1"},
    {"the next poll a second later", {"start", "deliver", "tick"}, "asked=0,0 posted=[] last=0 running=yes due=0"},
    {"a slow server slows the polling", {"start", "tick", "tick"}, "asked=0 posted= last=0 running=yes due=0"},
    {"a second start makes no second chain", {"start", "start", "deliver", "tick"}, "asked=0,0 posted=[] last=0 running=yes due=0"},
    {"the highest identifier, in any order", {"last 10", "reply [{\"ID\":7},{\"ID\":12},{\"ID\":9}]", "start", "deliver"},
     "asked=10 posted=[7,12,9] last=12 running=yes due=1"},
    {"older identifiers never lower it, and still post", {"last 10", "reply [{\"ID\":3},{\"ID\":4}]", "start", "deliver"},
     "asked=10 posted=[3,4] last=10 running=yes due=1"},
    {"the next poll asks after the highest", {"reply [{\"ID\":5}]", "start", "deliver", "tick"}, "asked=0,5 posted=[5] last=5 running=yes due=0"},
    {"a dictionary: nothing stored or posted", {"last 10", "reply {\"ID\":99}", "start", "deliver"}, "asked=10 posted= last=10 running=yes due=1"},
    {"a failure: nothing stored or posted, same pace", {"fail", "start", "deliver", "tick"}, "asked=0,0 posted= last=0 running=yes due=0"},
    {"a bad message is dropped from the batch", {"reply [{\"ID\":null},{\"ID\":2}]", "start", "deliver"}, "asked=0 posted=[2] last=2 running=yes due=1"},
    {"stop lets the query in flight post", {"reply [{\"ID\":1}]", "start", "stop", "deliver"}, "asked=0 posted=[1] last=1 running=no due=1"},
    {"and its poll ends the chain", {"start", "stop", "deliver", "tick"}, "asked=0 posted=[] last=0 running=no due=0"},
    {"stop then start before the poll: two chains", {"start", "deliver", "stop", "start", "deliver", "tick"},
     "asked=0,0,0,0 posted=[][] last=0 running=yes due=0"},
    {"signing out ends the chain", {"start", "deliver", "sign out", "tick"}, "asked=0 posted=[] last=0 running=no due=0"},
    {"signing in again does not restart it", {"start", "deliver", "sign out", "tick", "sign in", "tick"}, "asked=0 posted=[] last=0 running=no due=0"},
    {"start without a user stops at once", {"sign out", "start"}, "asked= posted= last=0 running=no due=0"},
    {"reset while running", {"reply [{\"ID\":8}]", "start", "deliver", "reset", "tick"}, "asked=0,0 posted=[8] last=0 running=yes due=0"},
};

TEST_F(Poller, Transitions) {
    for (const auto& t : kTransitions) {
        SCOPED_TRACE(t.name);
        TearDown();
        SetUp();
        for (const std::string& step : t.steps) run(step);
        EXPECT_EQ(state(), t.expected);
    }
}

TEST_F(Poller, TheNextPollIsOneSecondAfterTheAnswer) {
    transport->setDeferred(false);  // each poll is answered at once
    Clock::time_point before = Clock::now();
    PushMessage::start();
    Clock::time_point after = Clock::now();
    ASSERT_EQ(transport->requests().size(), 1u);
    for (size_t poll = 2; poll <= 5; ++poll) {
        // The poll was answered between before and after: the next one falls
        // due within [before + 1 s, after + 1 s], and not a nanosecond sooner.
        EXPECT_EQ(Dispatch::mainQueue().runDue(before + 1s - 1ns), 0u);
        EXPECT_EQ(transport->requests().size(), poll - 1);
        before = Clock::now();
        EXPECT_EQ(Dispatch::mainQueue().runDue(after + 1s), 1u);
        after = Clock::now();
        EXPECT_EQ(transport->requests().size(), poll) << "one poll per answer";
    }
}

TEST_F(Poller, StartAndStopFromManyThreadsMakeOneChain) {
    transport->setDeferred(false);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([] { PushMessage::start(); });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(transport->requests().size(), 1u);
    EXPECT_EQ(Dispatch::mainQueue().pending(), 1u);
    threads.clear();
    for (int i = 0; i < 8; ++i) threads.emplace_back([] { PushMessage::stop(); });
    for (std::thread& t : threads) t.join();
    Dispatch::mainQueue().runDue(Clock::now() + 1s + 1ms);
    EXPECT_EQ(transport->requests().size(), 1u) << "stopped";
    EXPECT_FALSE(_running);
}

} // namespace
} // namespace veltrane
