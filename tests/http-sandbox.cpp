// The sandbox dealer server over real HTTP: library calls against it, the
// faults it injects, the parameters it refuses and the state it keeps.
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Tag.h"
#include "veltrane/platform/HTTPSession.h"
#include "veltrane/platform/PropertyList.h"
#include "sandbox/Routes.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

using test::SandboxTest;
using Fault = sandbox::Fault;

struct PhoneRow {
    explicit PhoneRow(const Dictionary& d) : phone(d.optString("Phone").value_or("")) {}
    std::string phone;
};

using Tags = std::vector<Tag>;

TEST_F(SandboxTest, PagesThroughTheLibrary) {
    Dictionary params{{"companyid", 1}, {"rank", 0}, {"NetType", 0}, {"p", 6}};
    auto page = await<DataPage<PhoneRow>>([&](auto done) { reply::get("getPhonePages", params, reply::page<PhoneRow>(done)); });
    ASSERT_TRUE(page.success) << page.message.value_or("");
    EXPECT_EQ(page.result->totalRows(), 60);
    EXPECT_EQ(page.result->totalPages(), 6);
    EXPECT_EQ(page.result->currentPage(), 6);
    EXPECT_EQ(page.result->count(), 10);
    EXPECT_EQ(page.result->data()->size(), 10u);
    EXPECT_EQ(page.result->data()->front().phone.size(), 11u);
}

struct RefusalCase {
    const char* name;
    HTTPMethod method;
    const char* api;
    const char* params;
    const char* message;
};

const RefusalCase kRefusals[] = {
    {"missing", HTTPMethod::GET, "getLabel", R"({"type":1})", "缺少参数: companyid"},
    {"misspelt", HTTPMethod::GET, "getBillingOptions", R"({"planItemID":11,"companyid":1})", "缺少参数: companyID"},
    {"unknown optional", HTTPMethod::GET, "getPlanProjectPages", R"({"companyid":1,"planid":1,"keywords":"x"})", "未知参数: keywords"},
    {"integer expected", HTTPMethod::GET, "getPhonePages", R"({"companyid":1,"rank":0,"NetType":0,"p":1.5})", "参数格式错误: p 应为整数"},
    {"JSON expected", HTTPMethod::POST, "postChat", R"({"userid":7,"message":"hello"})", "参数格式错误: message 应为JSON文本"},
    {"wrong method", HTTPMethod::GET, "postLockImei", R"({"companyid":1,"imei":"1"})", "请求方法错误: postLockImei 需要 POST"},
    {"parameters where none are taken", HTTPMethod::GET, "listCompoundTypes", "{}", nullptr},
    {"a dictionary where none is taken", HTTPMethod::GET, "getHeadAd", R"({"x":1})", "未知参数: x"},
};

TEST_F(SandboxTest, WrongParametersAreNamed) {
    for (const RefusalCase& c : kRefusals) {
        SCOPED_TRACE(c.name);
        auto reply = request(c.method, c.api, test::dict(c.params));
        EXPECT_EQ(reply.success, c.message == nullptr);
        if (c.message) {
            EXPECT_EQ(reply.message, c.message);
        }
    }
}

TEST_F(SandboxTest, EveryRouteAnswersAWellFormedRequest) {
    for (const sandbox::Route& route : sandbox::routes()) {
        SCOPED_TRACE(route.api);
        Dictionary params;
        for (const sandbox::Param& p : route.shapes.front())
            params.set(p.name, p.kind == sandbox::Kind::Json ? "[]" : p.kind == sandbox::Kind::Text ? "x" : "1");
        auto reply = request(std::string(route.method) == "GET" ? HTTPMethod::GET : HTTPMethod::POST, route.api, params);
        std::string message = reply.message.value_or("");
        EXPECT_EQ(message.find("参数"), std::string::npos) << message;
        EXPECT_EQ(message.find("服务器内部错误"), std::string::npos) << message;
        EXPECT_EQ(message.find("reply is"), std::string::npos) << message;
    }
}

TEST_F(SandboxTest, ALockedNumberIsRefusedAndLeavesTheList) {
    Dictionary list{{"companyid", 1}, {"rank", 0}, {"NetType", 0}, {"p", 1}, {"keyword", "10001234"}};
    auto before = request(HTTPMethod::GET, "getPhonePages", list);
    ASSERT_EQ(before.result->asDictionary().optInt("totalRows"), 1);
    Dictionary lock{{"companyid", 1}, {"phone", "13310001234"}};
    EXPECT_TRUE(request(HTTPMethod::POST, "postLockPhone", lock).success);
    auto second = request(HTTPMethod::POST, "postLockPhone", lock);
    EXPECT_FALSE(second.success);
    EXPECT_EQ(second.message, "号码已被锁定: 13310001234");
    EXPECT_EQ(request(HTTPMethod::GET, "getPhonePages", list).result->asDictionary().optInt("totalRows"), 0);
    EXPECT_TRUE(request(HTTPMethod::POST, "postUnLockPhone", lock).success);
    EXPECT_EQ(request(HTTPMethod::GET, "getPhonePages", list).result->asDictionary().optInt("totalRows"), 1);
}

TEST_F(SandboxTest, UploadsAndTheManifest) {
    HTTPRequest upload = requestForHttpMultipartPost(sandbox->address() + "/index.php/api/common/upload", [](MultipartPartBuilder& b) {
        b.appendData("%PDF-1.4 signed", "pdf", "signed.pdf");
        b.appendPlainText("SN", "AF20261120001");
        b.appendPlainText("ID", "811");
    });
    HTTPSession::Outcome outcome = HTTPSession::perform(upload);
    ASSERT_FALSE(outcome.error);
    EXPECT_EQ(jsonDictionary(*outcome.data)->optString("info"), "上传成功");
    Array uploads = sandbox->uploads();
    ASSERT_EQ(uploads.size(), 1u);
    Dictionary stored = uploads[0].asDictionary();
    stored.remove("time");
    EXPECT_EQ(writeJSON(stored), R"({"SN":"AF20261120001","ID":"811","fileName":"signed.pdf","storedAs":"AF20261120001-811.pdf",)"
                                 R"("contentType":"application/pdf","size":15,)"
                                 R"("sha256":"8ed74dd5bdcfb6b5db56a79b93609e87b93bc8234fb6037e7ff070922fd5104b","receipts":1})");

    sandbox->setManifestVersion("1.3", "新增电子签名");
    auto manifest = dictionaryWithContentsOfURL(sandbox->address() + "/manifest.plist");
    ASSERT_TRUE(manifest);
    Dictionary metadata = manifest->optArray("items")->operator[](0).asDictionary().optDictionary("metadata");
    EXPECT_EQ(metadata.optString("bundle-version"), "1.3");
    EXPECT_EQ(metadata.optString("note"), "新增电子签名");
}

} // namespace
} // namespace veltrane
