// One-off requests over loopback: the limits of redirects and replies.
#include "veltrane/platform/HTTPSession.h"
#include "support/Harness.h"
#include "support/Loopback.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

class Session : public ::testing::Test {
protected:
    Session()
        : server([](httplib::Server& s) {
              s.Get(R"(/hop/(\d+))", [](const httplib::Request& req, httplib::Response& res) {
                  int left = std::stoi(req.matches[1]);
                  if (left == 0) res.set_content(R"({"arrived":true})", "application/json");
                  else res.set_redirect("/hop/" + std::to_string(left - 1));
              });
              s.Get("/to-file", [](const httplib::Request&, httplib::Response& res) { res.set_redirect("file:///etc/passwd"); });
              s.Get("/nowhere", [](const httplib::Request&, httplib::Response& res) {
                  res.status = 302;
                  res.set_content("nowhere", "text/plain");
              });
              s.Post(R"(/moved/(\d+))", [](const httplib::Request& req, httplib::Response& res) {
                  res.set_redirect("/method", std::stoi(req.matches[1]));
              });
              auto method = [](const httplib::Request& req, httplib::Response& res) { res.set_content(req.method + ":" + req.body, "text/plain"); };
              s.Get("/method", method);
              s.Post("/method", method);
              s.Get("/big", [](const httplib::Request&, httplib::Response& res) { res.set_content(std::string(3 << 20, 'x'), "text/plain"); });
              s.Get("/big-chunked", [](const httplib::Request&, httplib::Response& res) {
                  res.set_chunked_content_provider("text/plain", [](size_t offset, httplib::DataSink& sink) {
                      std::string piece(64 << 10, 'x');
                      if (offset < (3u << 20)) return sink.write(piece.data(), piece.size());
                      sink.done();
                      return true;
                  });
              });
          }) {}

    static HTTPRequest get(std::string url) {
        HTTPRequest request;
        request.url = std::move(url);
        return request;
    }

    test::LoopbackServer server;
};

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
    {"a redirect without a Location is the answer", "/nowhere", "GET", "nowhere"},
    {"303 after a POST continues as GET", "/moved/303", "POST", "GET:"},
    {"302 after a POST continues as GET", "/moved/302", "POST", "GET:"},
    {"307 repeats the POST", "/moved/307", "POST", "POST:body"},
    {"a reply past the size limit", "/big", "GET", "error:reply larger than 1048576 bytes"},
    {"a reply of no stated length past the limit", "/big-chunked", "GET", "error:reply larger than 1048576 bytes"},
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
