// The customer's APIs: identity cards (and the card upload), certificate
// types, areas, addresses, installation times and who accepts an order.
#include <cctype>
#include <set>
#include <variant>

#include "sandbox/Handlers.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/Encodings.h"

namespace veltrane::sandbox {

namespace {

// The fields of a card upload's text: "Key=value&..." with the values
// percent-encoded but "&" and "=" left as they are, so a piece that does not
// start with a known field continues the value before it. Nothing of it is
// trusted: an unknown first field, a field given twice, a value that is not
// valid percent-encoding or a photo that is not base64 is refused by name.
std::variant<Dictionary, std::string> readCardText(const std::string& text) {
    static const std::set<std::string> fields{"Name", "Gender", "Nation", "Birthday", "Address", "Number", "IssuingAuthority", "ValidityPeriod", "Picture"};
    if (text.empty()) return std::string("内容为空");
    std::vector<std::pair<std::string, std::string>> read;
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find('&', start), text.size());
        std::string piece = text.substr(start, end - start);
        size_t eq = piece.find('=');
        std::string key = eq == std::string::npos ? "" : piece.substr(0, eq);
        if (fields.count(key)) {
            for (const auto& [k, v] : read)
                if (k == key) return "字段重复: " + key;
            read.emplace_back(key, piece.substr(eq + 1));
        } else if (!read.empty()) {
            read.back().second += "&" + piece;
        } else {
            return "第一段不是已知字段: " + piece.substr(0, 32);
        }
        start = end + 1;
    }
    Dictionary card;
    for (auto& [key, encoded] : read) {
        for (size_t i = encoded.find('%'); i != std::string::npos; i = encoded.find('%', i + 1))
            if (i + 2 >= encoded.size() || !std::isxdigit(static_cast<unsigned char>(encoded[i + 1])) ||
                !std::isxdigit(static_cast<unsigned char>(encoded[i + 2])))
                return key + " 的百分号编码不完整";
        std::string value = percentDecode(encoded);
        try {
            writeJSON(Value(value));
        } catch (const JSONError&) {
            return key + " 不是有效的 UTF-8 文本";
        }
        if (key == "Picture" && !base64DecodeStrict(value)) return "Picture 不是 base64";
        card.set(key, value);
    }
    return card;
}

} // namespace

std::vector<Route> customerRoutes() {
    using K = Kind;
    return {
        {"getTelecomArea", "GET", {{{"pid", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(project(where(s.list("areas"), [&](const Dictionary& a) { return a.optLong("PID") == c.integer("pid"); }),
                                            {"ID", "Title"}));
         }},
        {"getQueryAddress", "GET", {{{"areaCode", K::Int}, {"subAreaID", K::Int}, {"addressKey", K::Text, false}}}, [](const Call& c, State& s) {
             std::string key = percentDecode(c.text("addressKey"));
             // Addresses of both spellings: nested "site", or flat capitalised keys.
             return Answer::success(project(where(s.list("addresses"),
                                                  [&](const Dictionary& a) {
                                                      return a.optLong("AreaID") == c.integer("areaCode") &&
                                                             (c.integer("subAreaID") == 0 || a.optLong("SubAreaID") == c.integer("subAreaID")) &&
                                                             (contains(a.optString("addressDesc"), key) || contains(a.optString("AddressDesc"), key));
                                                  }),
                                            {"addressID", "addressDesc", "site", "AddressID", "AddressDesc", "SiteID", "SiteName"}));
         }},
        {"getAcceptUserInfo", "GET", {{{"SN", K::Text}}}, [](const Call& c, State& s) {
             auto order = actionOrderWhere(s, "SN", c.text("SN"));
             if (!order) return Answer::failure("订单不存在");
             if (const Value* who = order->find("accepting")) return Answer::success(Dictionary{{"code", 1}, {"data", *who}});
             return Answer::success(Dictionary{{"code", 0}}, "订单尚未受理");
         }},
        {"getInstallTime", "GET", {{{"SubAreaCode", K::Text, false}}}, [](const Call& c, State& s) {
             return Answer::success(project(where(s.list("installTimes"),
                                                  [&](const Dictionary& t) { return !c.has("SubAreaCode") || t.optString("AreaCode") == c.text("SubAreaCode"); }),
                                            {"date", "time"}));
         }},
        {"getCertificateList", "GET", {{}}, [](const Call&, State& s) { return Answer::success(s.list("certificateTypes")); }},
        {"getIdcardPages", "GET", {{{"companyid", K::Int}}}, [](const Call& c, State& s) {
             Array cards = where(s.list("idCards"), [&](const Dictionary& d) { return d.optLong("CompanyID") == c.integer("companyid"); });
             return Answer::success(pageOf(project(cards, {"ID", "Name", "Number"}), 1));
         }},
        {"getIdcardInfo", "GET", {{{"idcardid", K::Int}}}, [](const Call& c, State& s) {
             auto card = findBy(s.list("idCards"), "ID", c.integer("idcardid"));
             return card ? Answer::success(omit(*card, {"ID", "CompanyID"})) : Answer::failure("身份证信息不存在");
         }},
        {"postIdcard", "POST", {{{"username", K::Text}, {"idcard", K::Text}}}, [](const Call& c, State& s) {
             auto user = findBy(s.list("users"), "LoginAccount", c.text("username"));
             if (!user) return Answer::failure("用户不存在: " + c.text("username"));
             std::variant<Dictionary, std::string> read = readCardText(c.text("idcard"));
             if (const std::string* problem = std::get_if<std::string>(&read)) return Answer::failure("身份证信息格式错误: " + *problem);
             Dictionary card = std::get<Dictionary>(read);
             if (!card.contains("Name") && !card.contains("Number")) return Answer::failure("身份证信息格式错误: 缺少 Name 或 Number");
             Dictionary stored{{"ID", s.nextCardID++}, {"CompanyID", user->optLong("CompanyID")}};
             for (auto [key, value] : card) stored.set(key, value);
             s.list("idCards").push_back(stored);
             return Answer::success(Value(), "上传成功");
         }},
    };
}

} // namespace veltrane::sandbox
