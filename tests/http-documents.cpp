// The signature upload over loopback: its parts as the server receives them,
// its completion and progress on the main queue, its failure paths.
#include <future>

#include "veltrane/documents/Receipt.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPSession.h"
#include "support/Loopback.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

struct Part {
    std::string name, filename, contentType, content;
};

// A server that records the upload's parts and answers what a test asks.
class UploadServer {
public:
    UploadServer()
        : server([this](httplib::Server& s) {
              s.Post("/index.php/api/common/upload", [this](const httplib::Request&, httplib::Response& res, const httplib::ContentReader& read) {
                  if (redirect) {  // answers once the whole body is in, slowly, and the client sends it again
                      read([](const httplib::MultipartFormData&) { return true; }, [](const char*, size_t) { return true; });
                      std::this_thread::sleep_for(200ms);
                      return res.set_redirect("/moved/upload", 307);
                  }
                  receive(res, read);
              });
              s.Post("/moved/upload", [this](const httplib::Request&, httplib::Response& res, const httplib::ContentReader& read) { receive(res, read); });
          }) {}
    void receive(httplib::Response& res, const httplib::ContentReader& read) {
                  std::vector<Part> got;
                  read([&](const httplib::MultipartFormData& f) { got.push_back({f.name, f.filename, f.content_type, ""}); return true; },
                       [&](const char* data, size_t n) {
                           if (slow) std::this_thread::sleep_for(1ms);
                           got.back().content.append(data, n);
                           return true;
                       });
                  std::lock_guard lock(mutex);
                  parts = std::move(got);
                  res.status = status;
                  res.set_content(body, "application/json");
    }
    test::LoopbackServer server;
    std::atomic<bool> redirect = false;
    std::atomic<bool> slow = false;  // a millisecond per piece of the body read
    std::mutex mutex;
    std::vector<Part> parts;
    int status = 200;
    std::string body = "{}";
};

struct Upload {
    bool success = false;
    std::optional<std::string> message;
    std::thread::id ranOn;
    std::vector<std::pair<uint64_t, uint64_t>> progress;
    std::thread::id progressRanOn;
};

// Uploads pdf for receipt and drives the main queue on this thread until the
// completion has run.
Upload upload(const Receipt& receipt, std::string pdf) {
    Upload u;
    bool done = false;
    receipt.uploadSignaturePDF(
        std::move(pdf),
        [&](bool ok, std::optional<std::string> message) {
            u = {ok, std::move(message), std::this_thread::get_id(), u.progress, u.progressRanOn};
            done = true;
        },
        [&](uint64_t sent, uint64_t total) {
            u.progress.emplace_back(sent, total);
            u.progressRanOn = std::this_thread::get_id();
        });
    Dispatch::mainQueue().runFor(20s, [&] { return done; });
    EXPECT_TRUE(done);
    return u;
}

class SignatureUpload : public test::GatewayTest {
protected:
    void SetUp() override {
        test::GatewayTest::SetUp();
        Server::setAddress(uploads.server.address());
    }
    UploadServer uploads;
};

TEST_F(SignatureUpload, PartsInOrderAndTheCompletionOnTheMainQueue) {
    std::string pdf(3 << 20, 'p');
    Upload u = upload(Receipt(test::dict(R"({"SN":"AF20261120001","ID":-811})")), pdf);
    EXPECT_TRUE(u.success);
    EXPECT_EQ(u.message, "上传成功");
    EXPECT_EQ(u.ranOn, std::this_thread::get_id()) << "the thread that drives the main queue";
    ASSERT_EQ(uploads.parts.size(), 3u);
    EXPECT_EQ(uploads.parts[0].name + "|" + uploads.parts[0].filename + "|" + uploads.parts[0].contentType, "pdf|signed.pdf|application/pdf");
    EXPECT_EQ(uploads.parts[0].content, pdf);
    EXPECT_EQ(uploads.parts[1].name + "=" + uploads.parts[1].content, "SN=AF20261120001");
    EXPECT_EQ(uploads.parts[2].name + "=" + uploads.parts[2].content, "ID=-811");
    EXPECT_EQ(logLines, std::vector<std::string>{"{}"}) << "the reply, logged";

    ASSERT_FALSE(u.progress.empty());
    EXPECT_EQ(u.progressRanOn, std::this_thread::get_id());
    EXPECT_EQ(u.progress.back().first, u.progress.back().second) << "the last report: all sent";
    EXPECT_GT(u.progress.back().second, pdf.size());
    EXPECT_LT(u.progress.size(), 200u) << "throttled";
    for (size_t i = 1; i < u.progress.size(); ++i) EXPECT_LE(u.progress[i - 1].first, u.progress[i].first);
}

TEST_F(SignatureUpload, ASlowUploadReportsProgressAsItGoes) {
    uploads.slow = true;
    auto start = std::chrono::steady_clock::now();
    // More than loopback's socket buffers hold, so that sending waits on the reading.
    Upload u = upload(Receipt(test::dict(R"({"SN":"A","ID":1})")), std::string(4 << 20, 'p'));
    EXPECT_TRUE(u.success);
    ASSERT_GT(std::chrono::steady_clock::now() - start, 300ms) << "slow enough for reports between the first and the last";
    EXPECT_GE(u.progress.size(), 3u) << "a report at least every 100 ms, not only the first and the last";
}

TEST_F(SignatureUpload, ProgressEndsAtTheTotalWhateverTheRedirects) {
    uploads.redirect = true;
    Upload u = upload(Receipt(test::dict(R"({"SN":"A","ID":1})")), std::string(1 << 20, 'p'));
    EXPECT_TRUE(u.success);
    EXPECT_EQ(uploads.parts.size(), 3u) << "sent again after the 307";
    ASSERT_FALSE(u.progress.empty());
    EXPECT_EQ(u.progress.back().first, u.progress.back().second) << "the last report: all sent, " << u.progress.back().first;
}

TEST_F(SignatureUpload, WhatCountsAsSuccess) {
    struct {
        int status;
        const char* body;
        bool success;
        const char* message;
    } cases[] = {
        {200, "{}", true, "上传成功"},
        {200, R"({"status":0,"info":"refused"})", true, "上传成功"},  // the reply's content is not examined
        {500, R"({"error":"x"})", true, "上传成功"},                  // nor its status
        {200, "[]", false, "未知错误"},
        {200, "hello", false, "未知错误"},
        {500, "<html><body>Internal Server Error</body></html>", false, "未知错误"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        uploads.status = c.status;
        uploads.body = c.body;
        Upload u = upload(Receipt(test::dict(R"({"SN":"A","ID":1})")), "%PDF");
        EXPECT_EQ(u.success, c.success);
        EXPECT_EQ(u.message, c.message);
    }
}

TEST_F(SignatureUpload, ATransportFailureGivesItsFullDescription) {
    Server::setAddress("http://127.0.0.1:" + std::to_string(test::closedPort()));
    Upload u = upload(Receipt(test::dict(R"({"SN":"A","ID":1})")), "%PDF");
    EXPECT_FALSE(u.success);
    EXPECT_NE(u.message->find("Couldn't connect to server"), std::string::npos) << *u.message;
    EXPECT_NE(u.message->find("/index.php/api/common/upload"), std::string::npos) << "with the address";
}

} // namespace
} // namespace veltrane
