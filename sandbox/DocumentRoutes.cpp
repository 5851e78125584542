// The documents' APIs: agreements and their sheets, printers and print
// requests.
#include "sandbox/Handlers.h"
#include "veltrane/foundation/JSON.h"

namespace veltrane::sandbox {

std::vector<Route> documentRoutes() {
    using K = Kind;
    return {
        {"getAgreementList", "GET", {{{"CompanyId", K::Int}, {"SN", K::Text}}}, [](const Call&, State& s) { return Answer::success(s.list("agreements")); }},
        {"createAgreementSheet", "POST", {{{"SN", K::Text}, {"ID", K::Text}}}, [](const Call& c, State&) {
             Array sheets;
             std::string ids = c.text("ID");
             for (size_t start = 0, comma; (comma = ids.find(',', start)) != std::string::npos; start = comma + 1) {
                 std::string id = ids.substr(start, comma - start);
                 if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos) return Answer::failure("协议编号格式错误: " + ids);
                 sheets.push_back("/sheets/" + c.text("SN") + "-" + id + ".pdf");
             }
             if (!ids.empty() && ids.back() != ',') return Answer::failure("协议编号格式错误: " + ids);
             return Answer::success(writeJSON(sheets), "协议单已生成");  // the server sends the list as JSON text
         }},
        {"getPrintServer", "GET", {{{"companyid", K::Int}}}, [](const Call&, State& s) { return Answer::success(s.list("printers")); }},
        {"addprintlist", "POST", {{{"id", K::Number}, {"serverid", K::Int}, {"receiptid", K::Int}}}, [](const Call& c, State& s) {
             if (!findBy(s.list("printers"), "ID", c.integer("serverid"))) return Answer::failure("打印机不存在");
             s.list("printRequests").push_back(Dictionary{{"id", c.number("id")}, {"serverid", c.integer("serverid")}, {"receiptid", c.integer("receiptid")}});
             return Answer::success(Value(), "已加入打印队列");
         }},
    };
}

} // namespace veltrane::sandbox
