// Messaging over loopback: the update check against manifests served as XML
// and binary property lists (and against none), and the watch and push
// commands as processes.
#include <plist/plist.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <poll.h>

#include "veltrane/messaging/PushMessage.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/NotificationCenter.h"
#include "veltrane/platform/PropertyList.h"
#include "support/Loopback.h"
#include "support/Process.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

// ---- The update check ---------------------------------------------------------------

// A manifest whose items[0].metadata holds the given plist XML.
std::string manifest(const std::string& metadata) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>items</key><array><dict><key>metadata</key><dict>)" + metadata +
           "</dict></dict></array></dict></plist>";
}
std::string plistDocument(const std::string& body) { return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + body + "</plist>"; }

std::string binary(const std::string& xml) {
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    if (!root) return xml;  // not a property list: served as it is
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string out(bytes, length);
    free(bytes);
    plist_free(root);
    return out;
}

class UpdateCheck : public ::testing::Test {
protected:
    UpdateCheck()
        : server([this](httplib::Server& s) {
              s.Get("/manifest.plist", [this](const httplib::Request&, httplib::Response& res) {
                  std::lock_guard lock(mutex);
                  res.status = status;
                  res.set_content(body, "application/octet-stream");
              });
          }) {}
    void SetUp() override {
        previousSink = setLogSink([this](std::string_view line) {
            std::lock_guard lock(mutex);
            logLines.emplace_back(line);
        });
    }
    void TearDown() override { setLogSink(previousSink); }

    struct Result {
        bool newer;
        std::optional<std::string> message;
        bool onThisThread;
    };
    // Checks url, driving the main queue on this thread until the answer.
    Result check(const std::string& url) {
        std::optional<Result> result;
        Updater::checkWithPListURL(url, [&](bool newer, std::optional<std::string> message) {
            result = Result{newer, std::move(message), std::this_thread::get_id() == mainThread};
        });
        Dispatch::mainQueue().runFor(20s, [&] { return result.has_value(); });
        EXPECT_TRUE(result);
        return result.value_or(Result{true, "no answer", false});
    }
    void serve(int code, std::string bytes) {
        std::lock_guard lock(mutex);
        status = code;
        body = std::move(bytes);
    }

    std::thread::id mainThread = std::this_thread::get_id();
    std::mutex mutex;
    int status = 200;
    std::string body;
    std::vector<std::string> logLines;
    LogSink previousSink;
    test::LoopbackServer server;
};

TEST_F(UpdateCheck, ManifestsInBothFormats) {
    const struct {
        const char* name;
        std::string plist;
        const char* local;  // nullptr: the application sets none
        bool newer;
        std::optional<std::string> message;
    } cases[] = {
        {"newer", manifest("<key>bundle-version</key><string>1.2</string>"), "1.1", true, "Version 1.2"},
        {"newer, with a note", manifest("<key>bundle-version</key><string>1.2</string><key>note</key><string>Fixes</string>"), "1.1", true,
         "Version 1.2 \n Fixes"},
        {"the same", manifest("<key>bundle-version</key><string>1.1</string>"), "1.1", false, "Version 1.1"},
        {"1.10 reads as 1.1", manifest("<key>bundle-version</key><string>1.10</string>"), "1.9", false, "Version 1.10"},
        {"2.0.3 reads as 2.0", manifest("<key>bundle-version</key><string>2.0.3</string>"), "2.0.1", false, "Version 2.0.3"},
        {"no leading number", manifest("<key>bundle-version</key><string>beta</string>"), "0.1", false, "Version beta"},
        {"a number", manifest("<key>bundle-version</key><integer>2</integer>"), "1.5", true, "Version 2"},
        {"no local version", manifest("<key>bundle-version</key><string>0.5</string>"), nullptr, true, "Version 0.5"},
        {"no version", manifest("<key>note</key><string>x</string>"), "1.0", false, "Version (null) \n x"},
        {"no items", plistDocument("<dict/>"), "1.0", false, "Version (null)"},
        {"empty items", plistDocument("<dict><key>items</key><array/></dict>"), "1.0", false, "Version (null)"},
        {"no metadata", plistDocument("<dict><key>items</key><array><dict/></array></dict>"), "1.0", false, "Version (null)"},
        {"items not an array", plistDocument("<dict><key>items</key><string>1.2</string></dict>"), "1.0", false, std::nullopt},
        {"an item not a dictionary", plistDocument("<dict><key>items</key><array><string>9</string></array></dict>"), "1.0", false, std::nullopt},
        {"metadata not a dictionary", plistDocument("<dict><key>items</key><array><dict><key>metadata</key><array/></dict></array></dict>"),
         "1.0", false, std::nullopt},
        // A version is text or a number from 0 to 2^53: no other kind ever announces an update.
        {"a version that is a dictionary", manifest("<key>bundle-version</key><dict/>"), "1.0", false, std::nullopt},
        {"a version that is a date", manifest("<key>bundle-version</key><date>2030-01-01T00:00:00Z</date>"), "0", false, std::nullopt},
        {"a version that is data", manifest("<key>bundle-version</key><data>OS45</data>"), "0", false, std::nullopt},
        {"a version that is a boolean", manifest("<key>bundle-version</key><true/>"), "0", false, std::nullopt},
        {"a negative version", manifest("<key>bundle-version</key><integer>-1</integer>"), "0", false, std::nullopt},
        {"a huge version", manifest("<key>bundle-version</key><integer>18446744073709551615</integer>"), "0", false, std::nullopt},
        {"the least version", manifest("<key>bundle-version</key><integer>0</integer>"), "0", false, "Version 0"},
        {"the greatest version", manifest("<key>bundle-version</key><integer>9007199254740992</integer>"), "1.0", true, "Version 9007199254740992"},
        {"an array at the top", plistDocument("<array/>"), "1.0", false, std::nullopt},
        {"not a property list", "<html>9.9</html>", "1.0", false, std::nullopt},
    };
    for (const auto& c : cases) {
        for (bool asBinary : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (asBinary ? " (binary)" : " (XML)"));
            Bundle::mainBundle().setInfoDictionary(c.local ? Dictionary{{"CFBundleShortVersionString", c.local}} : Dictionary());
            serve(200, asBinary ? binary(c.plist) : c.plist);
            Result r = check(server.address() + "/manifest.plist");
            EXPECT_EQ(r.newer, c.newer);
            EXPECT_EQ(r.message, c.message);
            EXPECT_TRUE(r.onThisThread) << "the completion runs on the main queue";
        }
    }
}

TEST_F(UpdateCheck, WhatCannotBeFetchedGivesNothing) {
    Bundle::mainBundle().setShortVersionString("1.0");
    serve(404, manifest("<key>bundle-version</key><string>9</string>"));
    const std::string urls[] = {server.address() + "/manifest.plist", "http://127.0.0.1:1/manifest.plist", "file:///nonexistent/manifest.plist",
                                "gopher://127.0.0.1/x"};
    for (const std::string& url : urls) {
        SCOPED_TRACE(url);
        logLines.clear();
        Result r = check(url);
        EXPECT_FALSE(r.newer);
        EXPECT_EQ(r.message, std::nullopt);
        // The platform's line names why, then the check's own two.
        std::lock_guard lock(mutex);
        ASSERT_EQ(logLines.size(), 3u);
        EXPECT_EQ(logLines[0].rfind("property list " + url + ": ", 0), 0u) << logLines[0];
        EXPECT_EQ(logLines[1], "remote plist:(null)");
        EXPECT_EQ(logLines[2], "dict is nil");
    }
}

TEST_F(UpdateCheck, TheLogLinesOfARead) {
    Bundle::mainBundle().setShortVersionString("1.1");
    serve(200, manifest("<key>bundle-version</key><string>1.2</string>"));
    check(server.address() + "/manifest.plist");
    std::lock_guard lock(mutex);
    ASSERT_EQ(logLines.size(), 2u);
    EXPECT_EQ(logLines[0].rfind("remote plist:{\"items\": [{\"metadata\": {\"bundle-version\": \"1.2\"}}]}", 0), 0u) << logLines[0];
    EXPECT_EQ(logLines[1], "remote version : 1.2, local version : 1.1");
}

// ---- Against the sandbox ------------------------------------------------------------------

using MessagingOverHTTP = test::SandboxTest;

// ---- The commands ----------------------------------------------------------------------------

TEST_F(MessagingOverHTTP, WatchPrintsWhatPushQueuesAndStopsOnCtrlC) {
    std::string settings = (std::filesystem::temp_directory_path() / ("veltrane-watch-" + std::to_string(getpid()) + ".sqlite")).string();
    test::Process watch({"watch", "--server", sandbox->address(), "--settings", settings, "--from-start"});
    ASSERT_TRUE(watch.waitFor("(last identifier now ")) << watch.output;
    test::Process push({"push", "--server", sandbox->address(), "--type", "order", "请 \"尽快\" 处理"});
    ASSERT_TRUE(push.waitFor("queued message #")) << push.output;
    EXPECT_EQ(push.stop(0), 0);
    ASSERT_TRUE(watch.waitFor("[order]  请 \"尽快\" 处理")) << watch.output;
    EXPECT_EQ(watch.stop(SIGINT), 0) << watch.output;
    EXPECT_NE(watch.output.find("stopped: "), std::string::npos) << watch.output;

    // The stored identifier survives: a second watch asks after it.
    test::Process again({"watch", "--server", sandbox->address(), "--settings", settings});
    ASSERT_TRUE(again.waitFor("from identifier ")) << again.output;
    EXPECT_EQ(again.stop(SIGTERM), 0);
    EXPECT_EQ(again.output.find("[order]"), std::string::npos) << again.output;
    std::filesystem::remove(settings);

    // A store that cannot be opened keeps the identifier for the run: three
    // polls print the message once.
    std::filesystem::path folder = std::filesystem::temp_directory_path() / ("veltrane-watch-folder-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    test::Process unusable({"watch", "--server", sandbox->address(), "--settings", folder.string(), "--from-start"});
    ASSERT_TRUE(unusable.waitFor("尽快")) << unusable.output;
    unusable.waitFor("never printed", 2500ms);
    EXPECT_EQ(unusable.stop(SIGINT), 0);
    EXPECT_EQ(unusable.output.find("尽快"), unusable.output.rfind("尽快")) << unusable.output;
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace veltrane
