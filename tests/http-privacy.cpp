// Every log line the library writes with a person's data in it, written by
// driving each operation with a customer's realistic data (names, identity
// numbers, phones, addresses, a photo, a token): by default none of it
// survives in clear; with the opt-in each line is the exact text the
// operation writes. And the command line's demo, with and without
// --reveal-personal-data.
#include <filesystem>
#include <fstream>

#include "veltrane/documents/Receipt.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/orders/ActionFormOrder.h"
#include "veltrane/orders/ActionFormOrderDetail.h"
#include "veltrane/orders/Order.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/PropertyList.h"
#include "support/Harness.h"
#include "support/Loopback.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

// The people of the corpus: fictional, in the forms the records hold them.
const std::string kNames[] = {"欧阳娜娜", "司马青衫", "上官婉儿", "诸葛明"};
const std::string kIdentities[] = {"510104198805231234", "44030519901111203X", "110101200001011234"};
const std::string kPhones[] = {"18688889999", "13800138000", "15912345678", "020-87654321"};
const std::string kAddresses[] = {"四川省成都市锦江区红星路三段1号", "深圳市福田区深南大道6008号"};
const std::string kToken = "Bearer t0k3n-for-the-log";
std::string photo() {
    std::string bytes;
    for (int i = 0; i < 600; ++i) bytes += static_cast<char>(i * 37);
    return base64Encode(bytes);
}

class PersonalDataInTheLog : public test::GatewayTest {
protected:
    void SetUp() override {
        test::GatewayTest::SetUp();
        Account::signIn(User(7, 1, "gz_tianhe_07"));
        Server::setAddress(server.address());
        adapter = addRequestAdapter([](OutgoingRequest& r) { r.headers.emplace_back("Authorization", kToken); });
        manifest = std::filesystem::temp_directory_path() / ("veltrane-privacy-" + std::to_string(::getpid()) + ".plist");
        std::ofstream(manifest) << R"(<plist><dict><key>items</key><array><dict><key>metadata</key><dict><key>bundle-version</key>)"
                                   R"(<string>2.0</string><key>note</key><string>客服 020-87654321</string></dict></dict></array></dict></plist>)";
    }
    void TearDown() override {
        removeRequestAdapter(adapter);
        std::filesystem::remove(manifest);
        test::GatewayTest::TearDown();
    }

    // Drives every operation that logs a person's data; returns, for each
    // line it must write, that line as the operation writes it.
    std::vector<std::string> driveEveryOperation() {
        std::vector<std::string> expected;
        Order order;
        order.customer().setName(kNames[0]);
        order.customer().setIdCardNumber(kIdentities[0]);
        order.customer().setIdCardPhotoFrontUrl(std::string("/uploads/idcard/9-front.jpg"));
        order.agent().setName(kNames[1]);
        order.agent().setIdCardNumber(kIdentities[1]);
        order.agent().setAddress(kAddresses[1]);
        order.setContactName(kNames[2]);
        order.setContactTel(kPhones[0]);
        order.setContactAddress(kAddresses[0]);
        order.setRemarks("请致电 " + kPhones[2]);
        Order::postOrderInfo(order, 1, 7, test::kIgnoreFlag);
        expected.push_back(describe(*lastRequest().params));

        Value actionOrder = parseJSON(R"({"CustomerName":")" + kNames[0] + R"(","CustomerIdentity":")" + kIdentities[0] + R"(","CustomerAddress":")" +
                                      kAddresses[0] + R"(","AccountNumber":")" + kPhones[1] + R"(","Picture":")" + photo() + R"("})");
        reply("postCreateOrder", true, "ok", R"({"ID":1})");
        ActionFormOrder::post(actionOrder, test::ignore<ActionFormOrderSubmitResult>());
        expected.push_back("posting data to create order:\n" + writeJSON(actionOrder));

        Value update = parseJSON(R"({"SN":"AF1","Remarks":"改约 )" + kPhones[3] + R"(","Consignee":")" + kNames[2] + R"("})");
        ActionFormOrder::postUpdateData(update, test::ignore<Value>());
        expected.push_back("post update data:\n" + writeJSON(update));

        std::string detail = R"({"orderInfo":{"SN":"AF1","CustomerName":")" + kNames[0] + R"(","CustomerIdentity":")" + kIdentities[0] +
                             R"(","AccountNumber":")" + kPhones[1] + R"(","CustomerAddress":")" + kAddresses[0] + R"("},)" +
                             R"("crmInfo":{"CustomerName":")" + kNames[0] + R"(","IdentityNumber":")" + kIdentities[0] + R"("},)" +
                             R"("Records":[{"UserName":")" + kNames[3] + R"(","Remarks":"受理"}],"data":[]})";
        reply("getOrderInfo", true, "ok", detail);
        ActionFormOrderDetail::getDetailOfOrder(1, test::ignore<ActionFormOrderDetail>());
        expected.push_back(describe(parseJSON(detail)));
        expected.push_back(describe(parseJSON(detail).asDictionary().optArray("Records")->operator[](0)));

        std::string accepting = R"({"Tel":")" + kPhones[2] + R"(","UserName":")" + kNames[3] + R"("})";
        reply("chkOrderIsAccept", true, "ok", accepting);
        ActionFormOrder::checkOrderIsAccepting(std::string("AF1"), test::kIgnoreFlag);
        expected.push_back(describe(parseJSON(accepting)));

        bool uploaded = false;
        Receipt(Dictionary{{"SN", "AF1"}, {"ID", 1}}).uploadSignaturePDF("%PDF", [&](bool, std::optional<std::string>) { uploaded = true; });
        Dispatch::mainQueue().runFor(5s, [&] { return uploaded; });
        expected.push_back(describe(parseJSON(uploadReply)));

        bool checked = false;
        Updater::checkWithPListURL(manifest.string(), [&](bool, std::optional<std::string>) { checked = true; });
        Dispatch::mainQueue().runFor(5s, [&] { return checked; });
        expected.push_back("remote plist:" + describe(*dictionaryWithContentsOfURL(manifest.string())));

        // Over HTTP, where the transport logs what a completion throws.
        auto http = std::make_shared<HTTPTransport>();
        std::atomic<bool> thrown = false;
        http->send(HTTPMethod::GET, "getLabel", std::nullopt, [&](bool, std::optional<std::string>, std::optional<Value>) {
            thrown = true;
            throw std::runtime_error("token " + kToken + " refused");
        });
        for (auto end = std::chrono::steady_clock::now() + 5s; !thrown && std::chrono::steady_clock::now() < end;) std::this_thread::sleep_for(1ms);
        http.reset();  // its thread has logged and gone
        expected.push_back("server reply to getLabel: completion raised: token " + kToken + " refused");
        return expected;
    }

    std::string uploadReply = R"({"path":"/s.pdf","Consignee":")" + kNames[2] + R"(","Tel":")" + kPhones[0] + R"("})";
    test::LoopbackServer server{[this](httplib::Server& s) {
        s.Post("/index.php/api/common/upload", [this](const httplib::Request&, httplib::Response& res) { res.set_content(uploadReply, "application/json"); });
        s.Get("/index.php/api/getLabel", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(R"({"status":1,"info":"ok","data":[]})", "application/json");
        });
    }};
    uint64_t adapter = 0;
    std::filesystem::path manifest;
};

TEST_F(PersonalDataInTheLog, NothingPersonalInClearUnlessAskedFor) {
    std::vector<std::string> expected = driveEveryOperation();
    std::string everything;
    for (const std::string& line : logLines) everything += line + "\n";
    for (const std::string& expectedLine : expected)
        EXPECT_EQ(std::find(logLines.begin(), logLines.end(), expectedLine), logLines.end()) << "in clear: " << expectedLine;
    std::vector<std::string> values(std::begin(kNames), std::end(kNames));
    values.insert(values.end(), std::begin(kIdentities), std::end(kIdentities));
    values.insert(values.end(), std::begin(kPhones), std::end(kPhones));
    values.insert(values.end(), std::begin(kAddresses), std::end(kAddresses));
    values.insert(values.end(), {photo(), kToken, "/uploads/idcard/9-front.jpg"});
    for (const std::string& value : values) EXPECT_EQ(everything.find(value), std::string::npos) << value << " in:\n" << everything;
    EXPECT_NE(everything.find("CTCardNumber\": \"51**************34\""), std::string::npos) << "the line keeps its shape:\n" << everything;

    logInClear();
    expected = driveEveryOperation();
    for (const std::string& line : expected) EXPECT_NE(std::find(logLines.begin(), logLines.end(), line), logLines.end()) << "missing: " << line;
}

// The demo's customer, as the demo's verbose log shows it: masked, unless
// asked for with a warning.
TEST(PersonalDataInTheDemo, VerboseButMasked) {
    for (bool reveal : {false, true}) {
        std::string command = std::string(VELTRANE_CLI) + (reveal ? " --reveal-personal-data" : "") + " demo --verbose 2>&1 >/dev/null";
        FILE* pipe = popen(command.c_str(), "r");
        std::string err;
        char buffer[4096];
        while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) err.append(buffer, n);
        EXPECT_EQ(pclose(pipe), 0) << err;
        for (const char* customer : {"赵 敏", "440106199512126789", "天河北路233号"})
            EXPECT_EQ(err.find(customer) != std::string::npos, reveal) << customer << (reveal ? " not" : "") << " in clear:\n" << err;
        EXPECT_EQ(err.find("--reveal-personal-data: personal data is shown in clear") != std::string::npos, reveal);
    }
}

} // namespace
} // namespace veltrane
