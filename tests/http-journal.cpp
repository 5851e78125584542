// The sandbox's request journal: what it keeps of each request, its filters
// over HTTP and from C++, the verification of what was received, personal
// data masked unless the sandbox was started with the opt-in, its memory
// bound, and veltrane journal.
#include <httplib.h>

#include "veltrane/foundation/Tag.h"
#include "veltrane/platform/HTTPSession.h"
#include "support/Heap.h"
#include "support/Process.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;
using test::SandboxTest;
using K = sandbox::Fault::Kind;

class Journal : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        Array last = sandbox->journal({.limit = 1});
        start = last.empty() ? 0 : last[0].asDictionary().optLong("entry");
    }
    // The entries' API names, in order.
    static std::string apis(const Array& entries) {
        std::string out;
        for (const Value& e : entries) out += (out.empty() ? "" : ",") + e.asDictionary().optString("api").value_or("?");
        return out;
    }
    long start = 0;
};

TEST_F(Journal, KeepsEachRequestAsParsedAndAnswered) {
    ASSERT_TRUE(await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); }).success);
    ASSERT_FALSE(request(HTTPMethod::POST, "postLockPhone", Dictionary{{"companyid", 1}, {"phone", "13310009999"}}).success);
    HTTPRequest upload = requestForHttpMultipartPost(sandbox->address() + "/index.php/api/common/upload", [&](MultipartPartBuilder& b) {
        b.appendData("%PDF-1.4 signed", "pdf", "signed.pdf");
        b.appendPlainText("SN", "AF20261120001");
        b.appendPlainText("ID", "811");
    });
    ASSERT_FALSE(HTTPSession::perform(upload).error);
    sandbox->setFault("getLabel", {.kind = K::failure, .message = "忙", .times = 1});
    EXPECT_FALSE(await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); }).success);
    request(HTTPMethod::GET, "getOrders", Dictionary{{"companyid", 1}, {"userid", 7}});  // refused: no page

    Array entries = sandbox->journal({.after = start});
    ASSERT_EQ(apis(entries), "getLabel,postLockPhone,common/upload,getLabel,getOrders") << "control routes stay out";
    std::vector<std::string> shown;
    for (const Value& v : entries) {
        Dictionary e = v.asDictionary();
        EXPECT_EQ(e.optLong("entry"), start + 1 + static_cast<long>(shown.size()));
        EXPECT_GT(e.optDouble("time"), 1.7e9);
        EXPECT_EQ(static_cast<size_t>(e.optLong("replyBytes")), e.optString("reply").value_or("").size()) << "short replies are kept whole";
        e.remove("entry");
        e.remove("time");
        e.remove("ms");
        e.remove("replyBytes");
        shown.push_back(writeJSON(e));
    }
    EXPECT_EQ(shown[1], R"({"method":"POST","api":"postLockPhone","params":{"companyid":"1","phone":"133****9999"},"status":200,)"
                        R"("reply":"{\"status\":0,\"info\":\"号码不存在: 133****9999\"}","applied":null})");
    EXPECT_EQ(shown[2], R"({"method":"POST","api":"common/upload","params":{"pdf":{"name":"signed.pdf","size":15,)"
                        R"("sha256":"8ed74dd5bdcfb6b5db56a79b93609e87b93bc8234fb6037e7ff070922fd5104b"},"SN":"AF20261120001","ID":"811"},"status":200,)"
                        R"("reply":"{\"status\":1,\"info\":\"上传成功\",\"data\":{\"path\":\"/uploads/sign/AF20261120001-811.pdf\"}}","applied":null})");
    EXPECT_EQ(shown[3], R"({"method":"GET","api":"getLabel","params":{"companyid":"1","type":"1"},"status":200,)"
                        R"("reply":"{\"status\":0,\"info\":\"忙\"}","applied":"fault=failure"})");
}

TEST(JournalMasking, PersonalDataIsMaskedUnlessTheSandboxWasStartedWithTheOptIn) {
    for (bool reveal : {false, true}) {
        SCOPED_TRACE(reveal);
        sandbox::Options options;
        options.revealPersonalData = reveal;
        sandbox::Sandbox server(options);
        server.start();
        httplib::Client client(server.address());
        client.Post("/index.php/api/postLockPhone", "companyid=1&phone=13310001234", "application/x-www-form-urlencoded");
        client.Get("/index.php/api/getPhonePages?companyid=1&rank=0&NetType=0&p=1&keyword=10001234");
        std::string journal = writeJSON(server.journal());
        EXPECT_EQ(journal.find("13310001234") != std::string::npos, reveal) << journal;
        EXPECT_EQ(journal.find("133****1234") != std::string::npos, !reveal) << journal;
        EXPECT_EQ(server.received("postLockPhone", {{"phone", "13310001234"}}), 1u) << "verification sees the parameters as sent";
        EXPECT_EQ(server.received("postLockPhone", {{"phone", "13310001234"}, {"companyid", "1"}}), 1u) << "every given parameter matches";
        EXPECT_EQ(server.received("postLockPhone", {{"phone", "13310001235"}}), 0u);
        EXPECT_EQ(server.received("postLockPhone", {}), 1u);
    }
}

TEST(JournalMemory, KeepsTheLastTenThousandWithinABoundedHeap) {
    sandbox::Journal journal(false, nullptr);
    std::string longReply;
    while (longReply.size() < 4096) longReply += "ok, ";
    auto fill = [&](size_t n) {
        for (size_t i = 0; i < n; ++i)
            journal.add({.time = 1.8e9, .method = "GET", .api = "getOrders", .params = Dictionary{{"p", "1"}}, .status = 200,
                         .replyBytes = 65536, .reply = longReply});
    };
    fill(sandbox::Journal::kKept);
    size_t full = test::heapInUse();
    fill(3 * sandbox::Journal::kKept);
    EXPECT_EQ(journal.size(), sandbox::Journal::kKept);
    EXPECT_EQ(journal.lastEntry(), 4 * static_cast<long>(sandbox::Journal::kKept));
    long growth = static_cast<long>(test::heapInUse()) - static_cast<long>(full);
    EXPECT_LT(growth, 1 << 20) << "the heap grew past a full journal";
    EXPECT_LT(full, 64u << 20) << "replies are kept to their first 2 KiB";
    Array oldest = journal.entries({.after = 1, .limit = 1});
    ASSERT_EQ(oldest.size(), 1u);
    EXPECT_EQ(oldest[0].asDictionary().optLong("entry"), 3 * static_cast<long>(sandbox::Journal::kKept) + 1);
    EXPECT_EQ(oldest[0].asDictionary().optString("reply")->size(), sandbox::Journal::kReplyKept);
}

TEST_F(Journal, TheCommandLinePrintsAndFollows) {
    await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    test::Process printed({"journal", "--api", "getLabel", "--limit", "1", "--server", sandbox->address()});
    EXPECT_EQ(printed.finish(), 0);
    EXPECT_NE(printed.output.find(R"( GET getLabel  200  )"), std::string::npos) << printed.output;
    EXPECT_NE(printed.output.find(R"({"companyid":"1","type":"1"})"), std::string::npos) << printed.output;
    EXPECT_EQ(std::count(printed.output.begin(), printed.output.end(), '\n'), 1) << printed.output;

    test::Process followed({"journal", "--follow", "--json", "--since", std::to_string(start + 1), "--server", sandbox->address()});
    sandbox->setFault("getHeadAd", {.kind = K::status, .times = 1, .status = 418});
    request(HTTPMethod::GET, "getHeadAd", std::nullopt);
    EXPECT_TRUE(followed.waitFor(R"("api":"getHeadAd")")) << followed.output;
    EXPECT_NE(followed.output.find(R"("status":418)"), std::string::npos) << followed.output;
    EXPECT_NE(followed.output.find(R"("applied":"fault=status")"), std::string::npos) << followed.output;
    EXPECT_EQ(followed.output.find(R"("api":"getLabel")"), std::string::npos) << "--since: only what came after";
    EXPECT_EQ(followed.stop(SIGINT), 0);

    test::Process nowhere({"journal", "--server", "http://127.0.0.1:1"});
    EXPECT_EQ(nowhere.finish(), 1);
    EXPECT_NE(nowhere.output.find("veltrane journal: no sandbox answered at http://127.0.0.1:1"), std::string::npos) << nowhere.output;
}

} // namespace
} // namespace veltrane
