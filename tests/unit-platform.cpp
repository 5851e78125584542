// The platform services: main queue and background pool, notification
// centre, settings store, property lists and the application's information.
#include <sqlite3.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/NotificationCenter.h"
#include "veltrane/platform/PropertyList.h"
#include "veltrane/platform/UserDefaults.h"
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

// ---- Notifications --------------------------------------------------------------------

TEST(Notifications, DeliveredSynchronouslyToObserversOfTheName) {
    NotificationCenter center;
    std::vector<std::string> seen;
    auto a = center.addObserverForName("A", [&](const Notification& n) {
        seen.push_back(n.name + ":" + std::any_cast<std::string>(n.object) + ":" + std::to_string(std::any_cast<int>(n.userInfo.at("k"))));
    });
    center.addObserverForName("", [&](const Notification& n) { seen.push_back("any:" + n.name); });
    center.postNotificationName("A", std::string("sender"), UserInfo{{"k", 1}});
    center.postNotificationName("B");
    center.removeObserver(a);
    center.postNotificationName("A", std::string("x"));
    EXPECT_EQ(seen, (std::vector<std::string>{"A:sender:1", "any:A", "any:B", "any:A"}));
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

// A store whose file cannot be opened keeps its values for the run, so that a
// poller never delivers a batch twice; it says so once, with the reason.
TEST_F(Settings, AnUnusableLocationKeepsValuesInMemoryForTheRun) {
    std::filesystem::create_directories(dir / "folder.sqlite");
    std::ofstream(dir / "file") << "not a directory";
    for (const std::filesystem::path& file : {dir / "file" / "d.sqlite", dir / "folder.sqlite"}) {
        SCOPED_TRACE(file);
        logLines.clear();
        UserDefaults store(file);
        EXPECT_TRUE(store.inMemory());
        EXPECT_TRUE(store.setObject("LastMessageID", 12));
        EXPECT_EQ(store.objectForKey("LastMessageID"), Value(12));
        EXPECT_FALSE(store.synchronize()) << "nothing reaches a disk";
        EXPECT_FALSE(store.setObject("nan", NSBoxDouble(std::nan(""))));
        ASSERT_EQ(logLines.size(), 2u);
        EXPECT_NE(logLines[0].find("cannot be opened: unable to open database file; keeping settings in memory for this run"), std::string::npos)
            << logLines[0];
    }
}

// Damage of every kind: the store is moved aside with a log line naming where,
// and a fresh one works at once.
struct DamageCase {
    const char* name;
    std::function<void(const std::filesystem::path&)> damage;
};

const DamageCase kDamage[] = {
    {"garbage", [](const std::filesystem::path& f) { std::ofstream(f, std::ios::binary) << std::string(8192, 'g'); }},
    {"truncated", [](const std::filesystem::path& f) { std::filesystem::resize_file(f, 100); }},
    {"header overwritten", [](const std::filesystem::path& f) {
         std::fstream out(f, std::ios::in | std::ios::out | std::ios::binary);
         out.seekp(0);
         out << "definitely not SQLite format";
     }},
    {"pages overwritten", [](const std::filesystem::path& f) {
         std::fstream out(f, std::ios::in | std::ios::out | std::ios::binary);
         out.seekp(4096);
         out << std::string(8192, '\xA5');
     }},
};

TEST_F(Settings, AnUnusableFileIsMovedAsideAndAFreshStoreStarts) {
    for (const DamageCase& c : kDamage) {
        SCOPED_TRACE(c.name);
        std::filesystem::path file = dir / c.name / "d.sqlite";
        {
            UserDefaults store(file);
            for (int i = 0; i < 200; ++i) store.setObject("key" + std::to_string(i), std::string(100, 'v'));
            store.synchronize();
        }
        std::filesystem::remove(file.string() + "-wal");
        std::filesystem::remove(file.string() + "-shm");
        c.damage(file);
        logLines.clear();
        UserDefaults store(file);
        ASSERT_EQ(logLines.size(), 1u);
        EXPECT_NE(logLines[0].find("was unusable"), std::string::npos) << logLines[0];
        EXPECT_EQ(logLines[0].find('\n'), std::string::npos) << "one line, whatever SQLite's reason";
        size_t at = logLines[0].find("moved it to ");
        ASSERT_NE(at, std::string::npos) << logLines[0];
        std::string aside = logLines[0].substr(at + 12, logLines[0].find(" and started") - at - 12);
        EXPECT_TRUE(std::filesystem::exists(aside)) << aside;
        // What the line says was saved is in the fresh store, intact.
        int saved = 0, lost = 200;
        if (logLines[0].find("with none of its keys (none could be read)") == std::string::npos) {
            ASSERT_EQ(std::sscanf(logLines[0].c_str() + logLines[0].find("with the "), "with the %d of its 200 keys that could be read (%d lost)", &saved,
                                  &lost),
                      2)
                << logLines[0];
        }
        EXPECT_EQ(saved + lost, 200);
        int found = 0;
        for (int i = 0; i < 200; ++i) found += store.objectForKey("key" + std::to_string(i)) == Value(std::string(100, 'v'));
        EXPECT_EQ(found, saved);
        EXPECT_TRUE(store.setObject("LastMessageID", 7));
        EXPECT_EQ(store.objectForKey("LastMessageID"), Value(7));
    }
}

TEST_F(Settings, UnreadableIsNotAbsentAndIsLoggedOnce) {
    UserDefaults store(dir / "d.sqlite");
    store.setObject("good", 1);
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open((dir / "d.sqlite").c_str(), &db), SQLITE_OK);
        sqlite3_exec(db, "INSERT INTO defaults VALUES ('bad', '{not json')", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
    logLines.clear();
    EXPECT_EQ(store.lookup("good").state, UserDefaults::Lookup::State::found);
    EXPECT_EQ(store.lookup("missing").state, UserDefaults::Lookup::State::absent);
    for (int i = 0; i < 3; ++i) {
        UserDefaults::Lookup bad = store.lookup("bad");
        EXPECT_EQ(bad.state, UserDefaults::Lookup::State::unreadable);
        EXPECT_NE(bad.reason.find("malformed JSON"), std::string::npos) << bad.reason;
        EXPECT_FALSE(store.objectForKey("bad"));
    }
    ASSERT_EQ(logLines.size(), 1u);
    EXPECT_NE(logLines[0].find("value for bad is unreadable"), std::string::npos) << logLines[0];
}

// ---- Property lists ---------------------------------------------------------------------

std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// got is want, leaf by leaf: the same kinds (a signed number is not an
// unsigned one), doubles to the bit, keys in the same order.
void expectSame(const Value& got, const Value& want, const std::string& path = "") {
    if (got.type() != want.type()) {
        ADD_FAILURE() << path << ": " << describe(got) << " instead of " << describe(want);
    } else if (std::optional<Number> w = want.numberIf()) {
        Number g = got.asNumber();
        bool same = g.kind() == w->kind() &&
                    (g.isFloating() ? std::bit_cast<uint64_t>(g.doubleValue()) == std::bit_cast<uint64_t>(w->doubleValue()) : g == *w);
        EXPECT_TRUE(same) << path << ": " << g.text() << " instead of " << w->text();
    } else if (const Array* a = want.arrayIf()) {
        ASSERT_EQ(got.asArray().size(), a->size()) << path;
        for (size_t i = 0; i < a->size(); ++i) expectSame(got.asArray()[i], (*a)[i], path + "[" + std::to_string(i) + "]");
    } else if (const Dictionary* d = want.dictionaryIf()) {
        ASSERT_EQ(got.asDictionary().size(), d->size()) << path;
        auto g = got.asDictionary().begin();
        for (const auto& [key, value] : *d) {
            EXPECT_EQ((*g).first, key) << path;
            expectSame((*g).second, value, path + "." + std::string(key));
            ++g;
        }
    } else {
        EXPECT_EQ(got, want) << path << ": " << describe(got) << " instead of " << describe(want);
    }
}

// What an independent writer wrote (Python's plistlib: every integer from
// -2^63 to 2^64 - 1, dates from 1800 to 2200 with fractions, data, unicode
// keys, nesting) reads back value by value, with the kind of every leaf.
TEST_F(Settings, WhatPlistlibWroteReadsBackExactly) {
    ASSERT_EQ(std::system(("python3 " VELTRANE_TEST_SUPPORT "/plists.py " + dir.string()).c_str()), 0);
    for (std::string format : {"xml", "binary"}) {
        SCOPED_TRACE(format);
        std::string why;
        Value kinds;
        std::optional<Value> value = propertyListWithData(contentsOf(dir / (format + ".plist")), &why, &kinds);
        ASSERT_TRUE(value) << why;
        Value expected = parseJSON(contentsOf(dir / (format + ".json")));
        expectSame(*value, expected.asDictionary().valueOrNull("value"));
        expectSame(kinds, expected.asDictionary().valueOrNull("kinds"));
        std::string path = (dir / (format + ".plist")).string();
        for (const std::string& url : {path, "file://" + path}) EXPECT_EQ(Value(dictionaryWithContentsOfURL(url).value()), *value) << url;
    }
    std::ofstream(dir / "array.plist") << R"(<?xml version="1.0"?><plist version="1.0"><array/></plist>)";
    for (const char* refused : {"array.plist", "missing.plist"}) EXPECT_FALSE(dictionaryWithContentsOfURL((dir / refused).string())) << refused;
}

// XML texts plistlib does not write but other writers do.
TEST(PropertyLists, XMLReadsWhatOtherWritersWrite) {
    const struct {
        const char* xml;
        const char* json;
    } cases[] = {
        {"<date>1999-12-31T23:59:59.5Z</date>", "946684799.5"},
        {"<date>2026Z</date>", "1767225600.0"},
        {"<date>2024-02-29T00:00:00Z</date>", "1709164800.0"},
        {"<integer> 0x10 </integer>", "16"},
        {"<integer>+5</integer>", "5"},
        {"<integer>-0x8000000000000000</integer>", "-9223372036854775808"},
        {"<real>-inf</real>", "-1e999"},
        {"<data>AQ\n  I=</data>", "\"AQI=\""},
        {"<dict><key>a</key><integer>1</integer><key>a</key><integer>2</integer></dict>", R"({"a":2})"},
        {"<string>&lt;&#x4E2D;&amp;</string>", R"("<中&")"},
    };
    for (const auto& c : cases) {
        std::string why;
        std::optional<Value> value = propertyListWithData(std::string("<?xml version=\"1.0\"?><plist>") + c.xml + "</plist>", &why);
        ASSERT_TRUE(value) << c.xml << ": " << why;
        if (value->isNumber() && std::isinf(value->doubleValue())) EXPECT_EQ(value->doubleValue(), -HUGE_VAL) << c.xml;
        else expectSame(*value, parseJSON(c.json), c.xml);
    }
}

// A binary property list assembled from its objects (each object's bytes, its
// references written with refSize bytes) with object 0 at the top; offsets
// take two bytes.
std::string binaryPlist(const std::vector<std::string>& objects, char refSize = 1) {
    auto bigEndian = [](uint64_t v, int size) {
        std::string b(size, '\0');
        for (int i = size - 1; i >= 0; --i, v >>= 8) b[i] = static_cast<char>(v & 0xFF);
        return b;
    };
    std::string out = "bplist00";
    std::string offsets;
    for (const std::string& o : objects) {
        offsets += bigEndian(out.size(), 2);
        out += o;
    }
    size_t table = out.size();
    return out + offsets + std::string(6, '\0') + '\2' + refSize + bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(table, 8);
}

std::string utf16(const std::u16string& text) {
    std::string out;
    for (char16_t c : text) out += {static_cast<char>(c >> 8), static_cast<char>(c & 0xFF)};
    return out;
}

struct HostilePlistCase {
    const char* name;
    std::string bytes;
    const char* reason;  // the start of the refusal's reason
};

const HostilePlistCase kHostilePlists[] = {
    {"NUL inside a UTF-16 string", binaryPlist({"\xD1\x01\x02", "\x51k", "\x63" + utf16({u'中', 0, u'b'})}), "object 2: text holds a NUL"},
    {"NUL inside a UTF-16 key", binaryPlist({"\xD1\x01\x02", "\x62" + utf16({u'中', 0}), "\x51v"}), "object 1: text holds a NUL"},
    {"NUL inside an ASCII string", binaryPlist({"\xD1\x01\x02", "\x51k", std::string("\x53" "a\0b", 4)}), "object 2: text holds a NUL"},
    {"NUL inside XML", std::string("<plist><dict><key>a\0b</key><string>x</string></dict></plist>", 60), "text holds a NUL"},
    {"an array that holds itself", binaryPlist({std::string("\xA1\x00", 2)}), "object 0: refers to itself"},
    {"a reference to a missing object", binaryPlist({"\xA1\x07"}), "object 0: refers to a missing object"},
    {"a key that is not text", binaryPlist({"\xD1\x01\x01", "\x10\x05"}), "object 0: dictionary key is not text"},
    {"a string longer than the list", binaryPlist({"\x5F\x10\x7F" "abc"}), "object 0: text or data outside the list"},
    {"an offset table outside the list", binaryPlist({"\x08"}).replace(binaryPlist({"\x08"}).size() - 1, 1, "\x7F"), "offset table outside"},
    {"an offset outside the objects", binaryPlist({"\x08"}).replace(8 + 1, 2, "\x7F\x7F"), "object 0: offset out of range"},
    {"too short", "bplist00", "binary property list too short"},
    {"a 16-byte integer beyond 64 bits", binaryPlist({std::string("\x14\x00\x00\x00\x00\x00\x00\x00\x01", 9) + std::string(8, '\0')}),
     "object 0: integer beyond 64 bits"},
    {"half a surrogate pair", binaryPlist({"\x61" + utf16({0xD83D})}), "object 0: text holds half a surrogate pair"},
    {"the last low surrogate alone", binaryPlist({"\x61" + utf16({0xDFFF})}), "object 0: text holds half a surrogate pair"},
    {"ASCII text with the byte 0x80", binaryPlist({"\x51\x80"}), "object 0: ASCII text holds a byte above 0x7F"},
    {"an XML integer beyond 64 bits", "<plist><integer>18446744073709551616</integer></plist>", "integer 18446744073709551616 beyond 64 bits"},
    {"an XML real beyond a double", "<plist><real>1e400</real></plist>", "real 1e400 beyond a double"},
    {"an XML date that is not one", "<plist><date>2026-02-29T00:00:00Z</date></plist>", "date \"2026-02-29T00:00:00Z\" is not"},
    {"an XML date of a century's 29 February", "<plist><date>2100-02-29T00:00:00Z</date></plist>", "date \"2100-02-29T00:00:00Z\" is not"},
    {"an XML date past the month's end", "<plist><date>2026-05-32T00:00:00Z</date></plist>", "date \"2026-05-32T00:00:00Z\" is not"},
    {"a real of two bytes", binaryPlist({std::string("\x21\x3F\x00", 3)}), "object 0: real of an unknown size"},
    {"a UID of nine bytes", binaryPlist({"\x88" + std::string(9, '\1')}), "object 0: UID beyond 64 bits"},
    {"a length of sixteen bytes", binaryPlist({"\x5F\x14" + std::string(15, '\0') + "\x03" "abc"}), "object 0: bad length"},
    {"an XML entity declaration", R"(<!DOCTYPE p [<!ENTITY a "aaaa">]><plist><string>&a;</string></plist>)", "entity declarations are not allowed"},
    {"XML that is not a property list", "<html><body/></html>", "unknown element <html>"},
    {"a dictionary value without a key", "<plist><dict><string>x</string></dict></plist>", "a dictionary value without a key"},
    {"two values in a plist", "<plist><true/><false/></plist>", "a property list holds one value"},
    {"an element inside a text value", "<plist><string><true/></string></plist>", "an element inside a single value"},
};

TEST(PropertyLists, HostileBytesAreRefusedWithAReason) {
    std::vector<HostilePlistCase> cases(std::begin(kHostilePlists), std::end(kHostilePlists));
    // Each array holds the next: 300 levels.
    std::vector<std::string> chain;
    for (int i = 1; i < 300; ++i) chain.push_back(std::string("\xA1") + static_cast<char>(i >> 8) + static_cast<char>(i & 0xFF));
    chain.push_back("\x08");
    cases.push_back({"nesting past the limit", binaryPlist(chain, 2), "nested deeper than 256 levels"});
    // Every array refers to the next one twice: 2^40 values once expanded.
    std::vector<std::string> laughs;
    for (int i = 1; i <= 40; ++i) laughs.push_back(std::string("\xA2") + static_cast<char>(i) + static_cast<char>(i));
    laughs.push_back("\x08");
    cases.push_back({"a list that expands without bound", binaryPlist(laughs), "expands to more than"});
    // An array of outer references to one array of inner references to 0:
    // 1 + outer * (1 + inner) values.
    auto expanding = [](int outer, int inner) {
        auto array = [](int n, char ref) { return std::string("\xAF\x11") + static_cast<char>(n >> 8) + static_cast<char>(n & 0xFF) + std::string(n, ref); };
        return binaryPlist({array(outer, '\1'), array(inner, '\2'), std::string("\x10\x00", 2)});
    };
    cases.push_back({"a list one value past the limit", expanding(1024, 1023), "expands to more than 1048576 values"});

    for (const HostilePlistCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::string why;
        EXPECT_FALSE(propertyListWithData(c.bytes, &why));
        EXPECT_EQ(why.rfind(c.reason, 0), 0u) << why;
    }
    std::string why;
    EXPECT_TRUE(propertyListWithData(binaryPlist({"\xD1\x01\x02", "\x51k", "\x62" + utf16(u"中b")}), &why)) << why;
    EXPECT_TRUE(propertyListWithData(expanding(1023, 1024), &why)) << "exactly the limit: " << why;
    // Each month's last day, as the calendar counts it, is a date; the day after is not.
    for (unsigned m = 1; m <= 12; ++m) {
        using namespace std::chrono;
        unsigned last = static_cast<unsigned>(year_month_day_last(year(2024), month_day_last(month(m))).day());
        auto date = [m](unsigned d) { return "<plist><date>2024-" + std::string(m < 10 ? "0" : "") + std::to_string(m) + "-" + std::to_string(d) + "T00:00:00Z</date></plist>"; };
        EXPECT_TRUE(propertyListWithData(date(last), &why)) << why;
        EXPECT_FALSE(propertyListWithData(date(last + 1), &why)) << date(last + 1);
    }
    EXPECT_EQ(propertyListWithData(binaryPlist({"\x62" + utf16({0xDBFF, 0xDC00})}), &why), std::optional<Value>("\xF4\x8F\xB0\x80"))
        << "the last high surrogate: " << why;
    std::optional<Value> text = propertyListWithData(binaryPlist({"\x5F\x13" + std::string(7, '\0') + "\x03" "abc"}), &why);
    EXPECT_EQ(text, std::optional<Value>("abc")) << "a length of eight bytes, the widest: " << why;
    std::optional<Value> uid = propertyListWithData(binaryPlist({"\x87" + std::string(8, '\xFF')}), &why);
    ASSERT_TRUE(uid) << why;
    EXPECT_EQ(uid->unsignedLongValue(), ~0UL) << "a UID of eight bytes, the widest";
    std::optional<Value> minusOne = propertyListWithData(binaryPlist({"\x14" + std::string(16, '\xFF')}), &why);
    ASSERT_TRUE(minusOne) << why;
    EXPECT_EQ(minusOne->asNumber().kind(), Number::Kind::Long) << "a 16-byte -1 is signed";
    EXPECT_EQ(minusOne->longValue(), -1);
    std::optional<Value> half = propertyListWithData(binaryPlist({std::string("\x22\x3F\x00\x00\x00", 5)}), &why);
    ASSERT_TRUE(half) << why;
    EXPECT_EQ(half->doubleValue(), 0.5) << "a real of four bytes";
}

// A file is read up to kMaxPropertyListBytes, and not a byte beyond.
TEST(PropertyLists, FilesAreReadUpToTheirLimit) {
    std::string path = (std::filesystem::temp_directory_path() / ("veltrane-limit-" + std::to_string(::getpid()) + ".plist")).string();
    const std::string head = "<plist><dict><key>a</key><string>b</string></dict></plist>";
    for (size_t size : {kMaxPropertyListBytes, kMaxPropertyListBytes + 1}) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << head << std::string(size - head.size(), ' ');
        EXPECT_EQ(dictionaryWithContentsOfURL(path).has_value(), size == kMaxPropertyListBytes) << size;
    }
    std::filesystem::remove(path);
}

// The transports ask whether any hook is set before they build what hooks see.
TEST(Hooks, SetOnlyWhileTheApplicationHoldsThem) {
    EXPECT_FALSE(hasRequestAdapters());
    EXPECT_FALSE(hasRequestObserver());
    uint64_t adapter = addRequestAdapter([](OutgoingRequest&) {});
    RequestObserver previous = setRequestObserver([](const RequestEvent&) {});
    EXPECT_TRUE(hasRequestAdapters() && hasRequestObserver());
    removeRequestAdapter(adapter);
    setRequestObserver(previous);
    EXPECT_FALSE(hasRequestAdapters() || hasRequestObserver());
    addRequestAdapter([](OutgoingRequest&) {});
    addRequestAdapter([](OutgoingRequest&) {});
    removeAllRequestAdapters();
    EXPECT_FALSE(hasRequestAdapters());
}

} // namespace
} // namespace veltrane
