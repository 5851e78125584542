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
    {"card text Bogus=1&Name=x", HTTPMethod::POST, "postIdcard", R"({"username":"gz_tianhe_07","idcard":"Bogus=1&Name=x"})", "身份证信息格式错误: 第一段不是已知字段: Bogus=1"},
    {"card text Name=a&Name=b", HTTPMethod::POST, "postIdcard", R"({"username":"gz_tianhe_07","idcard":"Name=a&Name=b"})", "身份证信息格式错误: 字段重复: Name"},
    {"card text Name=%E5%B", HTTPMethod::POST, "postIdcard", R"({"username":"gz_tianhe_07","idcard":"Name=%E5%B"})", "身份证信息格式错误: Name 的百分号编码不完整"},
    {"card text Name=%E5%BC", HTTPMethod::POST, "postIdcard", R"({"username":"gz_tianhe_07","idcard":"Name=%E5%BC"})", "身份证信息格式错误: Name 不是有效的 UTF-8 文本"},
    {"card text Name=x&Picture=not base64!", HTTPMethod::POST, "postIdcard", R"({"username":"gz_tianhe_07","idcard":"Name=x&Picture=not base64!"})", "身份证信息格式错误: Picture 不是 base64"},
    {"card text Gender=%E5%A5%B3", HTTPMethod::POST, "postIdcard", R"({"username":"gz_tianhe_07","idcard":"Gender=%E5%A5%B3"})", "身份证信息格式错误: 缺少 Name 或 Number"},
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

} // namespace
} // namespace veltrane
