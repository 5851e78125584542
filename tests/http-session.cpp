// One-off requests over loopback: multipart parts as the server receives
// them, data-task outcomes, property lists fetched over HTTP.
#include <future>

#include "veltrane/platform/HTTPSession.h"
#include "veltrane/platform/PropertyList.h"
#include "support/Harness.h"
#include "support/Loopback.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

struct ReceivedPart {
    std::string name, filename, contentType, content;
};

class Session : public ::testing::Test {
protected:
    Session()
        : server([this](httplib::Server& s) {
              s.Post("/upload", [this](const httplib::Request&, httplib::Response& res, const httplib::ContentReader& read) {
                  std::vector<ReceivedPart> got;
                  read(
                      [&](const httplib::MultipartFormData& f) {
                          got.push_back({f.name, f.filename, f.content_type, ""});
                          return true;
                      },
                      [&](const char* data, size_t n) {
                          got.back().content.append(data, n);
                          return true;
                      });
                  parts = std::move(got);
                  res.set_content(R"({"saved":true})", "application/json");
              });
              s.Get("/error", [](const httplib::Request&, httplib::Response& res) {
                  res.status = 500;
                  res.set_content("<html>oops</html>", "text/html");
              });
              s.Get(R"(/hop/(\d+))", [](const httplib::Request& req, httplib::Response& res) {
                  int left = std::stoi(req.matches[1]);
                  if (left == 0) res.set_content(R"({"arrived":true})", "application/json");
                  else res.set_redirect("/hop/" + std::to_string(left - 1));
              });
              s.Get("/to-file", [](const httplib::Request&, httplib::Response& res) { res.set_redirect("file:///etc/passwd"); });
              s.Post(R"(/moved/(\d+))", [](const httplib::Request& req, httplib::Response& res) {
                  res.set_redirect("/method", std::stoi(req.matches[1]));
              });
              auto method = [](const httplib::Request& req, httplib::Response& res) { res.set_content(req.method + ":" + req.body, "text/plain"); };
              s.Get("/method", method);
              s.Post("/method", method);
              s.Get("/big", [](const httplib::Request&, httplib::Response& res) { res.set_content(std::string(3 << 20, 'x'), "text/plain"); });
              s.Get("/manifest.plist", [](const httplib::Request&, httplib::Response& res) {
                  res.set_content(R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>items</key>)"
                                  R"(<array><dict><key>metadata</key><dict><key>bundle-version</key><string>1.3</string>)"
                                  R"(</dict></dict></array></dict></plist>)",
                                  "application/xml");
              });
          }) {}

    static HTTPRequest get(std::string url) {
        HTTPRequest request;
        request.url = std::move(url);
        return request;
    }

    HTTPSession::Outcome run(HTTPRequest request) {
        std::promise<HTTPSession::Outcome> done;
        HTTPSession::sharedSession()
            .dataTaskWithRequest(std::move(request),
                                 [&](std::optional<std::string> data, std::optional<HTTPResponse> response, std::optional<HTTPError> error) {
                                     done.set_value({std::move(data), std::move(response), std::move(error)});
                                 })
            ->resume();
        auto future = done.get_future();
        EXPECT_EQ(future.wait_for(10s), std::future_status::ready);
        return future.get();
    }

    test::LoopbackServer server;
    std::vector<ReceivedPart> parts;
};

TEST_F(Session, MultipartPartsArriveInOrderWithTheirNames) {
    std::string pdf = std::string("%PDF-1.4\0\xFF binary", 17);
    HTTPRequest request = requestForHttpMultipartPost(server.address() + "/upload", [&](MultipartPartBuilder& b) {
        b.appendData(pdf, "pdf", "signed.pdf");
        b.appendPlainText("SN", "SN2026");
        b.appendPlainText("ID", "-1234");
    });
    HTTPSession::Outcome outcome = run(request);
    ASSERT_FALSE(outcome.error) << outcome.error->description;
    EXPECT_EQ(outcome.response->statusCode, 200);
    EXPECT_EQ(jsonDictionary(*outcome.data)->optBool("saved"), true);
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(parts[0].name, "pdf");
    EXPECT_EQ(parts[0].filename, "signed.pdf");
    EXPECT_EQ(parts[0].contentType, "application/pdf");
    EXPECT_EQ(parts[0].content, pdf);
    EXPECT_EQ(parts[1].name + "=" + parts[1].content, "SN=SN2026");
    EXPECT_EQ(parts[2].name + "=" + parts[2].content, "ID=-1234");
}

TEST_F(Session, OutcomesOfAFailedRequest) {
    HTTPSession::Outcome error = run(get(server.address() + "/error"));
    EXPECT_FALSE(error.error);
    EXPECT_EQ(error.response->statusCode, 500);
    EXPECT_EQ(error.data, "<html>oops</html>");
    EXPECT_FALSE(jsonDictionary(*error.data));

    HTTPSession::Outcome refused = run(get("http://127.0.0.1:" + std::to_string(test::closedPort()) + "/upload"));
    ASSERT_TRUE(refused.error);
    EXPECT_FALSE(refused.response);
    EXPECT_NE(refused.error->description.find("Couldn't connect to server"), std::string::npos) << refused.error->description;
}

struct LimitCase {
    const char* name;
    const char* path;
    const char* method;
    const char* outcome;  // the body, or "error:" and the start of the error
};

const LimitCase kLimits[] = {
    {"redirects followed within the limit", "/hop/3", "GET", R"({"arrived":true})"},
    {"one redirect too many", "/hop/4", "GET", "error:more than 3 redirects"},
    {"no redirect to a file", "/to-file", "GET", "error:redirect to file:///etc/passwd refused"},
    {"303 after a POST continues as GET", "/moved/303", "POST", "GET:"},
    {"302 after a POST continues as GET", "/moved/302", "POST", "GET:"},
    {"307 repeats the POST", "/moved/307", "POST", "POST:body"},
    {"a reply past the size limit", "/big", "GET", "error:reply larger than 1048576 bytes"},
};

TEST_F(Session, RepliesAndRedirectsHaveLimits) {
    HTTPSessionOptions options;
    options.maxRedirects = 3;
    options.maxReplyBytes = 1 << 20;
    for (const LimitCase& c : kLimits) {
        SCOPED_TRACE(c.name);
        HTTPRequest request = get(server.address() + c.path);
        request.method = c.method;
        request.body = "body";
        HTTPSession::Outcome outcome = HTTPSession::perform(request, options);
        std::string got = outcome.error ? "error:" + outcome.error->description : outcome.data.value_or("");
        EXPECT_EQ(got.rfind(c.outcome, 0), 0u) << got;
    }
}

TEST(SessionRedirects, NeverFromHttpsToHttpNorToOtherSchemes) {
    struct {
        const char *from, *to;
        bool followed;
    } cases[] = {
        {"http://a/x", "https://a/y", true}, {"https://a/x", "https://b/y", true}, {"http://a/x", "http://b/y", true},
        {"https://a/x", "http://a/y", false}, {"HTTPS://a/x", "Http://a/y", false}, {"http://a/x", "ftp://a/y", false},
        {"http://a/x", "file:///etc/passwd", false}, {"http://a/x", "gopher://a", false},
    };
    for (const auto& c : cases) EXPECT_EQ(!HTTPSession::redirectRefusal(c.from, c.to), c.followed) << c.from << " -> " << c.to;
}

TEST_F(Session, JsonDictionaryIsADictionaryOrNothing) {
    EXPECT_TRUE(jsonDictionary("{}"));
    for (const char* notOne : {"[]", "\"{}\"", "", "{", "null"}) EXPECT_FALSE(jsonDictionary(notOne)) << notOne;
}

} // namespace
} // namespace veltrane
