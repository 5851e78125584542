// The sandbox's state on disk: a restart keeps the sale and the journal, a
// damaged or foreign database is refused and left untouched, --reset starts
// over, and whatever a client was told survives a kill -9.
#include <httplib.h>

#include <fstream>
#include <regex>
#include <thread>

#include "veltrane/platform/SQLite.h"
#include "support/Process.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;
using test::SandboxFolder;

// A catalogue order with Remarks as its mark, posted as a dealer's app does;
// its ID, or 0 when it was not acknowledged.
long postOrder(httplib::Client& client, const std::string& remarks) {
    httplib::Params form{{"Type", "1"},     {"CompanyID", "1"}, {"UserID", "7"},     {"CTCityID", "0"},     {"CTAreaID", "0"},
                         {"ReferenceAmount", "0"}, {"Amount", "0"},    {"Remarks", remarks}};
    for (const char* key : {"CTUserName", "CTCardNumber", "CTPictureTails", "CTPictureHeads", "AgentCTUserName", "AgentCTAddress",
                            "AgentCTCardNumber", "AgentCTPictureTails", "AgentCTPictureHeads", "CTAddress", "Consignee", "Address", "Tel"})
        form.emplace(key, "");
    auto res = client.Post("/index.php/api/postCreateOrder", form);
    if (!res || res->status != 200) return 0;
    Dictionary reply = parseJSON(res->body).asDictionary();
    return reply.optBool("status") ? reply.optDictionary("data").optLong("ID") : 0;
}

// The orders' Remarks and IDs in the state, oldest first.
std::vector<std::pair<std::string, long>> ordersIn(const Dictionary& state) {
    std::vector<std::pair<std::string, long>> out;
    for (const Value& o : state.optArray("orders").value_or(Array()))
        out.emplace_back(o.asDictionary().optString("Remarks").value_or(""), o.asDictionary().optLong("ID"));
    return out;
}

std::string bytesOf(const std::filesystem::path& file) {
    std::string bytes;
    std::getline(std::ifstream(file, std::ios::binary), bytes, '\0');
    return bytes;
}

class Store : public SandboxFolder {
protected:
    sandbox::Options options(bool reset = false) {
        sandbox::Options o;
        o.dataDirectory = dir / "data";
        o.reset = reset;
        return o;
    }
};

TEST_F(Store, ADamagedOrForeignDatabaseIsRefusedAndLeftAsItIs) {
    std::filesystem::path file = dir / "data" / "sandbox.sqlite";
    auto foreign = [&] {
        sqlite3* db = nullptr;
        sqlite3_open(file.c_str(), &db);
        sqlite3_exec(db, "CREATE TABLE contacts(name TEXT); INSERT INTO contacts VALUES('someone');", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    };
    auto damaged = [&] {
        { sandbox::Sandbox server(options()); }  // a real one, then its pages overwritten
        std::string bytes = bytesOf(file);
        for (size_t i = 100; i < bytes.size(); i += 7) bytes[i] = static_cast<char>(0xA5);
        std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
    };
    auto text = [&] { std::ofstream(file) << "not a database at all, but long enough to look like a header of one........................."; };
    const struct {
        const char* name;
        std::function<void()> make;
        bool reset;
    } cases[] = {{"foreign", foreign, false}, {"foreign, with --reset", foreign, true}, {"damaged", damaged, false}, {"text", text, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(dir / "data");
        std::filesystem::create_directories(dir / "data");
        c.make();
        std::string before = bytesOf(file);
        try {
            sandbox::Sandbox server(options(c.reset));
            ADD_FAILURE() << "accepted";
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ(std::string(e.what()).rfind(file.string() + " ", 0), 0u) << e.what();
            EXPECT_NE(std::string(e.what()).find(": it is left as it is; move it away to start a new one"), std::string::npos) << e.what();
        }
        EXPECT_EQ(bytesOf(file), before) << "never written";
        EXPECT_FALSE(std::filesystem::exists(dir / "data" / "sandbox.sqlite-wal") && std::filesystem::file_size(dir / "data" / "sandbox.sqlite-wal") > 0);
    }
}

// 40 orders, the 40th held in a delay when the process is killed: the 39 it
// acknowledged are there after a restart, once each, and the 40th is not.
TEST_F(Store, WhatWasAcknowledgedSurvivesAKill) {
    test::Process first({"sandbox", "--data", (dir / "data").string(), "--port", "0"});
    ASSERT_TRUE(first.waitFor(" (Ctrl-C stops it)")) << first.output;
    std::smatch found;
    ASSERT_TRUE(std::regex_search(first.output, found, std::regex("on (http://127.0.0.1:[0-9]+)"))) << first.output;
    httplib::Client client(found[1].str());
    std::string steps = "[";
    for (int i = 0; i < 39; ++i) steps += R"({"kind":"normal"},)";
    steps += R"({"kind":"delay","delay":10000}])";
    auto set = client.Post("/sandbox/scenario", httplib::Params{{"api", "postCreateOrder"}, {"steps", steps}});
    ASSERT_TRUE(set && set->body.find("scenario set") != std::string::npos);

    std::vector<long> acknowledged;
    for (int i = 1; i <= 39; ++i) acknowledged.push_back(postOrder(client, "kill-" + std::to_string(i)));
    ASSERT_EQ(std::count(acknowledged.begin(), acknowledged.end(), 0), 0);
    std::thread held([&] {
        httplib::Client other(found[1].str());
        EXPECT_EQ(postOrder(other, "kill-40"), 0) << "never acknowledged";
    });
    for (auto end = std::chrono::steady_clock::now() + 5s; std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(5ms)) {
        auto faults = client.Get("/sandbox/faults");
        if (faults && faults->body.find("postCreateOrder") == std::string::npos) break;  // the 40th took the last step
    }
    EXPECT_EQ(first.stop(SIGKILL), 128 + SIGKILL);
    held.join();

    sandbox::Sandbox second(options());
    std::vector<std::pair<std::string, long>> orders = ordersIn(second.state());
    for (int i = 1; i <= 40; ++i) {
        std::string mark = "kill-" + std::to_string(i);
        long count = std::count_if(orders.begin(), orders.end(), [&](const auto& o) { return o.first == mark; });
        EXPECT_EQ(count, i < 40 ? 1 : 0) << mark;
    }
    second.start();
    httplib::Client again(second.address());
    EXPECT_EQ(postOrder(again, "after"), acknowledged.back() + 1);
}

} // namespace
} // namespace veltrane
