// The orders' APIs: catalogue orders (checked strictly and stored), the
// action menu and forms, and action-form orders through their lifecycle.
#include <algorithm>
#include <ctime>

#include "sandbox/Handlers.h"
#include "veltrane/foundation/JSON.h"

namespace veltrane::sandbox {

namespace {

// What a field of a nested list of an order must be.
enum class FieldKind { integer, textOrNull };

struct NestedField {
    const char* name;
    FieldKind kind;
};

// Checks a nested list of a catalogue order (GoodsInfo, PlanInfo, PhoneInfo):
// JSON text of a non-empty array of objects holding exactly the given fields,
// of their kinds (one object when exactlyOne). The first problem, named.
std::optional<std::string> checkNested(const Call& c, const char* key, bool exactlyOne, std::initializer_list<NestedField> fields) {
    if (!c.has(key)) return std::nullopt;
    Value list = c.json(key);
    std::string k = key;
    if (!list.isArray() || list.asArray().empty()) return "参数格式错误: " + k + " 应为非空数组";
    if (exactlyOne && list.asArray().size() != 1) return "参数格式错误: " + k + " 应只有一个元素";
    for (size_t i = 0; i < list.asArray().size(); ++i) {
        std::string at = k + "[" + std::to_string(i) + "]";
        const Dictionary* item = list.asArray()[i].dictionaryIf();
        if (!item) return "参数格式错误: " + at + " 应为对象";
        for (const NestedField& f : fields) {
            const Value* v = item->find(f.name);
            if (!v) return "缺少参数: " + at + "." + f.name;
            bool integer = v->isNumber() && !v->asNumber().isFloating();
            if (f.kind == FieldKind::integer && !integer) return "参数格式错误: " + at + "." + f.name + " 应为整数";
            if (f.kind == FieldKind::textOrNull && !v->isString() && !v->isNull()) return "参数格式错误: " + at + "." + f.name + " 应为文本";
        }
        for (const auto& entry : *item) {
            std::string_view name = entry.first;
            if (std::none_of(fields.begin(), fields.end(), [&](const NestedField& f) { return name == f.name; }))
                return "未知参数: " + at + "." + std::string(name);
        }
    }
    return std::nullopt;
}

Answer createCatalogueOrder(const Call& c, State& s) {
    using F = FieldKind;
    for (auto problem : {checkNested(c, "GoodsInfo", false, {{"GoodsID", F::integer}, {"GoodsName", F::textOrNull}, {"IMEI", F::textOrNull},
                                                              {"ReferencePrice", F::integer}, {"Price", F::integer}}),
                         checkNested(c, "PlanInfo", true, {{"PlanID", F::integer}, {"PlanName", F::textOrNull}}),
                         checkNested(c, "PhoneInfo", false, {{"Phone", F::textOrNull}, {"Price", F::integer}, {"UIM", F::textOrNull}})})
        if (problem) return Answer::failure(*problem);
    if (c.integer("Type") < 0) return Answer::failure("参数格式错误: Type 应为非负整数");
    if (c.has("OrderID") && c.number("OrderID") < 1) return Answer::failure("参数格式错误: OrderID 应为正数");

    // An order sent again (with its OrderID) replaces the stored one.
    Array orders = s.list("orders");
    std::optional<size_t> replaced;
    long id = s.nextOrderID;
    if (c.has("OrderID")) {
        id = static_cast<long>(c.number("OrderID"));
        for (size_t i = 0; i < orders.size(); ++i)
            if (orders[i].asDictionary().optLong("ID") == id) replaced = i;
        if (!replaced) return Answer::failure("订单不存在: " + std::to_string(id));
    } else {
        ++s.nextOrderID;
    }
    std::string sn = replaced ? orders[*replaced].asDictionary().optString("SN").value_or("") : "SN20261121" + std::to_string(id);
    auto areaTitle = [&](const char* key) {
        auto area = findBy(s.list("areas"), "ID", c.integer(key));
        return area ? area->valueOrNull("Title") : Value();
    };
    long type = c.integer("Type");
    Dictionary order{{"ID", id}, {"SN", sn}, {"Status", 1}, {"UserID", c.integer("UserID")}, {"CompanyID", c.integer("CompanyID")},
                     {"Type", type}, {"TypeName", type == 1 ? "新装" : type == 2 ? "购机" : "其他"},
                     {"CreateTime", static_cast<long>(std::time(nullptr))}};
    // Texts in the incoming format; what came empty (JSON null goes as an
    // empty value) comes back as null.
    for (const char* key : {"CTUserName", "CTCardNumber", "CTPictureHeads", "CTPictureTails", "AgentCTUserName", "AgentCTAddress",
                            "AgentCTCardNumber", "AgentCTPictureHeads", "AgentCTPictureTails", "CTAddress", "Consignee", "Address", "Tel", "Remarks"})
        order.set(key, c.text(key).empty() ? Value() : Value(c.text(key)));
    order.set("Amount", c.integer("Amount"));
    order.set("ReferenceAmount", c.integer("ReferenceAmount"));
    order.set("AreaName", areaTitle("CTCityID"));
    order.set("SubAreaName", areaTitle("CTAreaID"));
    if (c.has("InstallDate")) order.set("InstallDate", c.number("InstallDate"));
    for (const char* key : {"GoodsInfo", "PhoneInfo", "PlanInfo"})
        if (c.has(key)) order.set(key, c.json(key));
    long receiptID = s.nextReceiptID++;
    order.set("ReceiptArr", Array{Dictionary{{"ID", receiptID}, {"SN", sn}, {"CRMXML", "/receipts/" + sn + ".pdf"}, {"Note", "业务受理单"}}});
    for (const Value& phone : order.optArray("PhoneInfo").value_or(Array())) s.lockedPhones.erase(phone.asDictionary().optString("Phone").value_or(""));
    if (replaced) orders.set(*replaced, order);
    else orders.push_back(order);
    return Answer::success(Dictionary{{"ID", id}, {"SN", sn}}, replaced ? "订单已重新提交" : "订单提交成功");
}

Answer createActionOrder(const Call& c, State& s) {
    Value form = c.json("data");
    long id = s.nextActionOrderID++;
    std::string sn = "AF20261121" + std::to_string(id);
    Dictionary info{{"ID", id}, {"SN", sn}, {"CreateTime", 1763700000L}, {"Status", 1}, {"TemplateType", 1}, {"Amount", 0}};
    if (const Dictionary* d = form.dictionaryIf())
        for (const auto& [k, v] : *d)
            if (!v.isArray() && !v.isDictionary()) info.set(k, v);
    s.list("actionOrders").push_back(Dictionary{{"orderInfo", info}, {"data", Array()}, {"Receipt", Array()}, {"Sign", Array()},
                                                {"Records", Array{Dictionary{{"CreateTime", 1763700000L}, {"Remarks", "受理"},
                                                                             {"UserName", "李晓明"}, {"CompanyName", "广州市天河区体育西营业厅"}, {"Status", 1}}}},
                                                {"crmInfo", Dictionary()}});
    Array agreements = s.list("agreements").copy();
    return Answer::success(Dictionary{{"ID", id}, {"IsPreProcessAgreement", 1}, {"Path", "/receipts/" + sn + ".pdf"},
                                      {"RecID", id + 1000}, {"SN", sn}, {"Data", agreements}},
                           "提交成功");
}

} // namespace

std::vector<Route> orderRoutes() {
    using K = Kind;
    return {
        {"getLabel", "GET", {{{"type", K::Int}, {"companyid", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(where(s.list("labels"), [&](const Dictionary& l) { return l.optLong("Type") == c.integer("type"); }));
         }},
        {"getActionList", "GET", {{}, {{"userid", K::Int}, {"companyid", K::Int}}}, [](const Call& c, State& s) {
             Array actions = s.list("actions");
             if (c.has("userid")) return Answer::success(project(actions, {"ID", "Name", "IsNew", "IsAuto", "Background"}));
             return Answer::success(project(actions, {"ID", "Name", "Background", "Price", "Remarks", "SN", "Status", "Type", "TypeName"}));
         }},
        {"getActionForm", "GET", {{{"ID", K::Int}}}, [](const Call& c, State& s) {
             const Value* form = s.seed.optDictionary("actionForms").find(c.text("ID"));
             return form ? Answer::success(*form) : Answer::failure("业务不存在");
         }},
        {"postCreateOrder", "POST",
         {{{"userid", K::Number}, {"companyid", K::Number}, {"data", K::Json}},
          {{"OrderID", K::Number, false}, {"InstallDate", K::Number, false}, {"Type", K::Int}, {"CompanyID", K::Int}, {"UserID", K::Int},
           {"GoodsInfo", K::Json, false}, {"PlanInfo", K::Json, false}, {"PhoneInfo", K::Json, false}, {"CTUserName", K::Text},
           {"CTCardNumber", K::Text}, {"CTPictureTails", K::Text}, {"CTPictureHeads", K::Text}, {"AgentCTUserName", K::Text},
           {"AgentCTAddress", K::Text}, {"AgentCTCardNumber", K::Text}, {"AgentCTPictureTails", K::Text}, {"AgentCTPictureHeads", K::Text},
           {"CTCityID", K::Int}, {"CTAreaID", K::Int}, {"CTAddress", K::Text}, {"ReferenceAmount", K::Int}, {"Amount", K::Int},
           {"Consignee", K::Text}, {"Address", K::Text}, {"Tel", K::Text}, {"Remarks", K::Text}}},
         [](const Call& c, State& s) { return c.has("data") ? createActionOrder(c, s) : createCatalogueOrder(c, s); }},
        {"getOrders", "GET", {{{"companyid", K::Int}, {"userid", K::Int}, {"status", K::Int, false}, {"keyword", K::Text, false}, {"p", K::Int}}},
         [](const Call& c, State& s) {
             Array orders = where(s.list("orders"), [&](const Dictionary& o) {
                 return o.optLong("CompanyID") == c.integer("companyid") && (!c.has("status") || o.optLong("Status") == c.integer("status")) &&
                        (contains(o.optString("SN"), c.text("keyword")) || contains(o.optString("CTUserName"), c.text("keyword")) ||
                         contains(o.optString("Tel"), c.text("keyword")));
             });
             Array newestFirst;
             for (size_t i = orders.size(); i-- > 0;) newestFirst.push_back(orders[i]);
             return Answer::success(pageOf(newestFirst, c.integer("p")));
         }},
        {"getOrderInfo", "GET", {{{"orderid", K::Number}}}, [](const Call& c, State& s) {
             auto order = actionOrderWhere(s, "ID", static_cast<long>(c.number("orderid")));
             return order ? Answer::success(omit(*order, {"accepting"})) : Answer::failure("订单不存在");
         }},
        {"listTodayOrderList", "GET", {{}}, [](const Call&, State& s) {
             Array infos;
             for (const Value& o : s.list("actionOrders")) infos.push_back(o.asDictionary().optDictionary("orderInfo"));
             return Answer::success(infos);
         }},
        {"chkOrderIsAccept", "GET", {{{"SN", K::Text}}}, [](const Call& c, State& s) {
             auto order = actionOrderWhere(s, "SN", c.text("SN"));
             if (!order) return Answer::failure("订单不存在");
             return Answer::success(order->optDictionary("orderInfo").optLong("Status") == 1);
         }},
        {"postUpdateOrder", "POST", {{{"data", K::Json}}}, [](const Call&, State&) { return Answer::success(Value(), "更新成功"); }},
        {"postUpdateOrderStatus", "POST", {{{"SN", K::Text}, {"Status", K::Number}, {"Remarks", K::Text, false}}}, [](const Call& c, State& s) {
             auto order = actionOrderWhere(s, "SN", c.text("SN"));
             if (!order) return Answer::failure("订单不存在");
             order->optDictionary("orderInfo").set("Status", static_cast<long>(c.number("Status")));
             return Answer::success(Value(), "状态已更新");
         }},
    };
}

} // namespace veltrane::sandbox
