// The platform services: main queue and background pool, notification
// centre, settings store, property lists and the application's information.
#include <plist/plist.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "foundation/Boxing.h"
#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

// ---- Dispatch ---------------------------------------------------------------------

class MainQueueTest : public test::GatewayTest {
protected:
    MainQueue queue;
};

TEST_F(MainQueueTest, RunsDueTasksInDeadlineOrder) {
    std::vector<std::string> ran;
    Clock::time_point start = Clock::now();
    queue.after(2s, [&] { ran.push_back("2s"); });
    queue.after(1s, [&] { ran.push_back("1s"); });
    queue.async([&] { ran.push_back("now-a"); });
    queue.async([&] {
        ran.push_back("now-b");
        queue.async([&] { ran.push_back("queued by a task"); });
    });
    EXPECT_EQ(queue.runDue(start + 500ms), 3u);
    EXPECT_EQ(ran, (std::vector<std::string>{"now-a", "now-b", "queued by a task"}));
    EXPECT_EQ(queue.runDue(start + 1500ms), 1u);
    EXPECT_EQ(queue.runDue(start + 3s), 1u);
    EXPECT_EQ(ran.back(), "2s");
    EXPECT_EQ(queue.pending(), 0u);
}

TEST_F(MainQueueTest, AThrowingTaskIsLoggedAndTheQueueGoesOn) {
    int after = 0;
    queue.async([] { throw std::runtime_error("bad task"); });
    queue.async([&] { ++after; });
    EXPECT_EQ(queue.runDue(), 2u);
    EXPECT_EQ(after, 1);
    EXPECT_EQ(logLines, std::vector<std::string>{"main queue: task raised: bad task"});
}

TEST_F(MainQueueTest, RunForSleepsUntilTasksFallDue) {
    std::thread::id ranOn;
    Clock::time_point start = Clock::now();  // before the task is queued: it cannot be due earlier
    std::thread([&] { queue.after(50ms, [&] { ranOn = std::this_thread::get_id(); }); }).join();
    queue.runFor(5s, [&] { return ranOn != std::thread::id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id()) << "tasks run on the thread that drives the queue";
    EXPECT_GE(Clock::now() - start, 50ms);
    EXPECT_LT(Clock::now() - start, 4s);
}

TEST_F(MainQueueTest, AnExecutorReceivesEveryTask) {
    std::vector<Clock::time_point> deadlines;
    queue.setExecutor([&](Task task, Clock::time_point deadline) {
        deadlines.push_back(deadline);
        task();
    });
    int ran = 0;
    Clock::time_point before = Clock::now();
    queue.after(1s, [&] { ++ran; });
    EXPECT_EQ(ran, 1);
    EXPECT_GE(deadlines.at(0), before + 1s);
    EXPECT_EQ(queue.pending(), 0u);
}

TEST(GlobalQueue, RunsOffTheCallingThread) {
    std::promise<std::thread::id> ranOn;
    Dispatch::globalQueue([&] { ranOn.set_value(std::this_thread::get_id()); });
    auto future = ranOn.get_future();
    ASSERT_EQ(future.wait_for(5s), std::future_status::ready);
    EXPECT_NE(future.get(), std::this_thread::get_id());
}

// ---- Notifications --------------------------------------------------------------------

TEST(Notifications, DeliveredSynchronouslyToObserversOfTheName) {
    NotificationCenter center;
    std::vector<std::string> seen;
    auto a = center.addObserverForName("A", [&](const Notification& n) {
        seen.push_back(n.name + ":" + std::any_cast<std::string>(n.object) + ":" + writeJSON(n.userInfo));
    });
    center.addObserverForName("", [&](const Notification& n) { seen.push_back("any:" + n.name); });
    center.postNotificationName("A", std::string("sender"), Dictionary{{"k", 1}});
    center.postNotificationName("B");
    center.removeObserver(a);
    center.postNotificationName("A", std::string("x"));
    EXPECT_EQ(seen, (std::vector<std::string>{R"(A:sender:{"k":1})", "any:A", "any:B", "any:A"}));
}

TEST(Notifications, ObserversMayChangeTheCentreWhileBeingNotified) {
    NotificationCenter center;
    int calls = 0;
    NotificationCenter::Token self = 0;
    self = center.addObserverForName("N", [&](const Notification&) {
        ++calls;
        center.removeObserver(self);
        center.postNotificationName("other");
    });
    center.postNotificationName("N");
    center.postNotificationName("N");
    EXPECT_EQ(calls, 1);
}

// ---- Settings store ---------------------------------------------------------------------

class Settings : public test::GatewayTest {
protected:
    void SetUp() override {
        test::GatewayTest::SetUp();
        dir = std::filesystem::temp_directory_path() / ("veltrane-settings-" + std::to_string(::getpid()) + "-" +
                                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir);
    }
    void TearDown() override {
        std::filesystem::remove_all(dir);
        test::GatewayTest::TearDown();
    }
    std::filesystem::path dir;
};

TEST_F(Settings, ValuesSurviveARestartOfTheStore) {
    {
        UserDefaults store(dir / "nested" / "d.sqlite");
        EXPECT_FALSE(store.objectForKey("LastMessageID"));
        EXPECT_TRUE(store.setObject("LastMessageID", NSBoxLong(1L << 40)));
        EXPECT_TRUE(store.setObject("list", parseJSON(R"([1,"张",{"a":null}])")));
        EXPECT_TRUE(store.setObject("gone", true));
        EXPECT_TRUE(store.removeObjectForKey("gone"));
        EXPECT_TRUE(store.synchronize());
    }
    UserDefaults reopened(dir / "nested" / "d.sqlite");
    EXPECT_EQ(reopened.objectForKey("LastMessageID"), NSBoxLong(1L << 40));
    EXPECT_EQ(writeJSON(*reopened.objectForKey("list")), R"([1,"张",{"a":null}])");
    EXPECT_FALSE(reopened.objectForKey("gone"));
}

TEST_F(Settings, SynchronisedValuesSurviveAKilledProcess) {
    std::filesystem::path file = dir / "killed.sqlite";
    pid_t child = ::fork();
    if (child == 0) {
        UserDefaults store(file);
        store.setObject("LastMessageID", 42);
        store.synchronize();
        ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(UserDefaults(file).objectForKey("LastMessageID"), Value(42));
}

TEST_F(Settings, AnUnusableLocationFailsQuietly) {
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "file") << "not a directory";
    UserDefaults store(dir / "file" / "d.sqlite");
    EXPECT_FALSE(store.setObject("k", 1));
    EXPECT_FALSE(store.objectForKey("k"));
    EXPECT_FALSE(logLines.empty());
    EXPECT_FALSE(store.setObject("nan", NSBoxDouble(std::nan(""))));
}

// ---- Property lists ---------------------------------------------------------------------

// A manifest with one value of every kind, as XML; binary when asked.
std::string writeManifest(const std::filesystem::path& file, bool binary) {
    std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>items</key><array><dict>)"
                      R"(<key>metadata</key><dict><key>bundle-version</key><string>1.2</string><key>note</key><string>修复</string>)"
                      R"(<key>size</key><integer>42</integer><key>beta</key><true/><key>ratio</key><real>0.5</real>)"
                      R"(<key>icon</key><data>AQI=</data><key>built</key><date>2001-01-01T00:00:00Z</date></dict></dict></array></dict></plist>)";
    if (binary) {
        plist_t root = nullptr;
        plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
        char* bytes = nullptr;
        uint32_t length = 0;
        plist_to_bin(root, &bytes, &length);
        xml.assign(bytes, length);
        free(bytes);
        plist_free(root);
    }
    std::ofstream(file, std::ios::binary) << xml;
    return file.string();
}

TEST_F(Settings, PropertyListsInBothFormats) {
    std::filesystem::create_directories(dir);
    for (bool binary : {false, true}) {
        SCOPED_TRACE(binary ? "binary" : "XML");
        std::string path = writeManifest(dir / (binary ? "m.bplist" : "m.plist"), binary);
        for (const std::string& url : {path, "file://" + path}) {
            std::optional<Dictionary> manifest = dictionaryWithContentsOfURL(url);
            ASSERT_TRUE(manifest);
            Dictionary metadata = manifest->optArray("items")->operator[](0).asDictionary().optDictionary("metadata");
            EXPECT_EQ(writeJSON(metadata),
                      R"({"bundle-version":"1.2","note":"修复","size":42,"beta":true,"ratio":0.5,"icon":"AQI=","built":978307200})");
        }
    }
    std::ofstream(dir / "array.plist") << R"(<?xml version="1.0"?><plist version="1.0"><array/></plist>)";
    std::ofstream(dir / "garbage.plist") << "not a property list";
    EXPECT_FALSE(dictionaryWithContentsOfURL((dir / "array.plist").string())) << "top level must be a dictionary";
    EXPECT_FALSE(dictionaryWithContentsOfURL((dir / "garbage.plist").string()));
    EXPECT_FALSE(dictionaryWithContentsOfURL((dir / "missing.plist").string()));
    EXPECT_FALSE(propertyListWithData(""));
}

TEST(Bundle, TheApplicationSetsItsVersion) {
    Bundle::mainBundle().setShortVersionString("2.4");
    EXPECT_EQ(Bundle::mainBundle().infoDictionary().optString("CFBundleShortVersionString"), "2.4");
}

} // namespace
} // namespace veltrane
