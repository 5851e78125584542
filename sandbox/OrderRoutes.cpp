// The orders' APIs: catalogue orders (checked strictly and stored), the
// action menu and forms, and action-form orders through their lifecycle.
#include <algorithm>
#include <cmath>
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

// ---- Action-form orders ---------------------------------------------------------

constexpr long kChinaOffset = 8 * 3600;

long now() { return static_cast<long>(std::time(nullptr)); }

// The day of a time in China, as a number of days since 1970.
long chinaDay(long seconds) { return (seconds + kChinaOffset) / 86400; }

// "20261121" for today in China.
std::string chinaDate() {
    std::time_t t = now() + kChinaOffset;
    std::tm day{};
    gmtime_r(&t, &day);
    char text[16];
    std::strftime(text, sizeof text, "%Y%m%d", &day);
    return text;
}

bool scalar(const Value& v) { return !v.isArray() && !v.isDictionary(); }

// The keys of an order's info that only the server writes.
bool reserved(std::string_view key) {
    return key == "ID" || key == "SN" || key == "Status" || key == "CreateTime" || key == "UserID" || key == "CompanyID";
}

// A form field that must be filled in: "required" true or the text "true".
bool mandatory(const Dictionary& field) {
    const Value* r = field.find("required");
    return r && ((r->isBool() && r->asBool()) || (r->isString() && r->asString() == "true"));
}

bool filled(const Value* v) { return v && !v->isNull() && !(v->isString() && v->asString().empty()); }

// The user's and their company's names, for the processing history.
std::pair<Value, Value> whoIs(State& s, long userID) {
    auto user = findBy(s.list("users"), "ID", userID);
    return {user ? user->valueOrNull("Name") : Value(), s.seed.optDictionary("company").valueOrNull("Name")};
}

Dictionary historyStep(State& s, long userID, long status, Value remarks) {
    auto [user, company] = whoIs(s, userID);
    return Dictionary{{"CreateTime", now()}, {"Remarks", std::move(remarks)}, {"UserName", user}, {"CompanyName", company}, {"Status", status}};
}

// The subscriber's data as the customer-relationship system would hold it.
Dictionary crmOf(const Dictionary& info) {
    Dictionary crm;
    const std::pair<const char*, const char*> keys[] = {{"CustomerName", "CustomerName"}, {"IdentityNumber", "CustomerIdentity"},
                                                        {"AccountNumber", "AccountNumber"}, {"AreaCode", "AreaCode"},
                                                        {"NumberTypeID", "NumberTypeID"},   {"NumberTypeName", "NumberTypeName"}};
    for (auto [to, from] : keys)
        if (auto text = info.optString(from)) crm.set(to, *text);
    return crm;
}

// The screens' order: scalars for the order's info and, under "data", the
// forms: [{"action": {"ID": n, ...}, "fields": {...}}, ...]. Checked against
// the menu and each action's form (its required fields filled in, here or
// among the scalars); the first problem, named.
std::optional<std::string> checkActionOrder(const Value& order, State& s) {
    const Dictionary* d = order.dictionaryIf();
    if (!d) return "订单内容错误: data 应为对象";
    for (auto [key, v] : *d) {
        if (reserved(key)) return "不可指定: data." + std::string(key);
        if (key != "data" && !scalar(v)) return "订单内容错误: data." + std::string(key) + " 应为文本或数字";
    }
    std::optional<Array> forms = d->optArray("data");
    if (!forms || forms->empty()) return std::string("订单内容错误: data.data 应为非空数组");
    for (size_t i = 0; i < forms->size(); ++i) {
        std::string at = "data.data[" + std::to_string(i) + "]";
        const Dictionary* form = (*forms)[i].dictionaryIf();
        if (!form) return "订单内容错误: " + at + " 应为对象";
        Dictionary action = form->optDictionary("action");
        const Value* id = action.find("ID");
        if (!id || !id->isNumber() || id->asNumber().isFloating()) return "订单内容错误: " + at + ".action.ID 应为整数";
        if (!findBy(s.list("actions"), "ID", *id)) return "业务不存在: " + at + ".action.ID = " + writeJSON(*id);
        const Value* fields = form->find("fields");
        if (fields && !fields->isDictionary()) return "订单内容错误: " + at + ".fields 应为对象";
        Dictionary given = fields ? fields->asDictionary() : Dictionary();
        for (auto [key, v] : given)
            if (reserved(key)) return "不可指定: " + at + ".fields." + std::string(key);
        for (const Value& f : s.seed.optDictionary("actionForms").optArray(writeJSON(*id)).value_or(Array())) {
            const Dictionary& field = f.asDictionary();
            std::string key = field.optString("key").value_or("");
            if (mandatory(field) && !filled(given.find(key)) && !filled(d->find(key)))
                return "缺少必填项: " + at + ".fields." + key + " (" + field.optString("label").value_or("") + ")";
        }
    }
    return std::nullopt;
}

Answer createActionOrder(const Call& c, State& s) {
    Value order = c.json("data");
    if (auto problem = checkActionOrder(order, s)) return Answer::failure(*problem);
    long userID = static_cast<long>(c.number("userid"));
    if (!findBy(s.list("users"), "ID", userID)) return Answer::failure("用户不存在: " + c.text("userid"));

    long id = s.nextActionOrderID++;
    std::string sn = "AF" + chinaDate() + std::to_string(id);
    const Dictionary& screens = order.asDictionary();
    Dictionary info{{"ID", id}, {"SN", sn}, {"UserID", userID}, {"CompanyID", static_cast<long>(c.number("companyid"))},
                    {"CreateTime", now()}, {"Status", 1}, {"TemplateType", 1}};
    Array forms;
    double amount = 0;
    Array screenForms = *screens.optArray("data");
    for (const Value& f : screenForms) {
        const Dictionary& form = f.asDictionary();
        Value id = *form.optDictionary("action").find("ID");
        Dictionary action = pick(*findBy(s.list("actions"), "ID", id), {"ID", "Name", "Background", "Price", "Remarks", "SN", "Status", "Type", "TypeName"});
        amount += action.optDouble("Price");
        Dictionary fields = form.optDictionary("fields").mutableCopy();
        for (auto [key, v] : fields)
            if (scalar(v)) info.set(key, v);
        forms.push_back(Dictionary{{"action", action},
                                   {"ActionForm", s.seed.optDictionary("actionForms").optArray(writeJSON(id)).value_or(Array()).copy()},
                                   {"fields", fields}});
    }
    for (auto [key, v] : screens)
        if (key != "data") info.set(key, v);
    info.set("Amount", amount);
    long receiptID = s.nextReceiptID++;
    std::string path = "/receipts/" + sn + ".pdf";
    s.list("actionOrders").push_back(Dictionary{
        {"orderInfo", info},
        {"data", forms},
        {"Receipt", Array{Dictionary{{"ID", receiptID}, {"SN", sn}, {"CRMXML", path}, {"IsPreProcessAgreement", 1}, {"Note", "业务受理单"}}}},
        {"Sign", Array()},
        {"Records", Array{historyStep(s, userID, 1, "受理")}},
        {"crmInfo", crmOf(info)}});
    return Answer::success(Dictionary{{"ID", id}, {"IsPreProcessAgreement", 1}, {"Path", path}, {"RecID", receiptID}, {"SN", sn},
                                      {"Data", s.list("agreements").copy()}},
                           "提交成功");
}

// The orders still being accepted: pending, with the community, or at the
// cashier.
bool accepting(long status) { return status == 1 || status == 2 || status == 5; }

// Changes the info of the order named by "SN": every other key of the object
// is stored (and the form fields of that key follow); the order's identity,
// status and history are not the screens' to change.
Answer updateActionOrder(const Call& c, State& s) {
    Value update = c.json("data");
    const Dictionary* d = update.dictionaryIf();
    if (!d) return Answer::failure("订单内容错误: data 应为对象");
    std::optional<std::string> sn = d->optString("SN");
    if (!sn) return Answer::failure("订单内容错误: 缺少 data.SN");
    auto order = actionOrderWhere(s, "SN", *sn);
    if (!order) return Answer::failure("订单不存在: " + *sn);
    for (auto [key, v] : *d) {
        if (reserved(key) && key != "SN") return Answer::failure("不可修改: data." + std::string(key));
        if (!scalar(v)) return Answer::failure("订单内容错误: data." + std::string(key) + " 应为文本或数字");
    }
    Dictionary info = order->optDictionary("orderInfo");
    for (auto [key, v] : *d) {
        info.set(key, v);
        for (const Value& form : order->optArray("data").value_or(Array())) {
            Dictionary fields = form.asDictionary().optDictionary("fields");
            if (fields.contains(key)) fields.set(key, v);
        }
    }
    order->set("crmInfo", crmOf(info));
    return Answer::success(info, "更新成功");
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
             return order ? Answer::success(omit(*order, {"accepting"})) : Answer::failure("订单不存在: " + c.text("orderid"));
         }},
        {"listTodayOrderList", "GET", {{}}, [](const Call&, State& s) {
             Array today;
             Array orders = s.list("actionOrders");
             for (size_t i = orders.size(); i-- > 0;) {
                 Dictionary info = orders[i].asDictionary().optDictionary("orderInfo");
                 if (chinaDay(info.optLong("CreateTime")) == chinaDay(now())) today.push_back(info);
             }
             return Answer::success(today);
         }},
        {"chkOrderIsAccept", "GET", {{{"SN", K::Text}}}, [](const Call& c, State& s) {
             auto order = actionOrderWhere(s, "SN", c.text("SN"));
             if (!order) return Answer::failure("订单不存在: " + c.text("SN"));
             return Answer::success(accepting(order->optDictionary("orderInfo").optLong("Status")));
         }},
        {"postUpdateOrder", "POST", {{{"data", K::Json}}}, updateActionOrder},
        {"postUpdateOrderStatus", "POST", {{{"SN", K::Text}, {"Status", K::Number}, {"Remarks", K::Text, false}}}, [](const Call& c, State& s) {
             auto order = actionOrderWhere(s, "SN", c.text("SN"));
             if (!order) return Answer::failure("订单不存在: " + c.text("SN"));
             double status = c.number("Status");
             if (status != std::floor(status) || status < 0 || status > 10) return Answer::failure("参数格式错误: Status 应为 0 到 10 的整数");
             Dictionary info = order->optDictionary("orderInfo");
             info.set("Status", static_cast<long>(status));
             Array history = order->optArray("Records").value_or(Array());
             history.push_back(historyStep(s, info.optLong("UserID"), static_cast<long>(status), c.has("Remarks") ? Value(c.text("Remarks")) : Value("")));
             order->set("Records", history);
             return Answer::success(Value(), "状态已更新");
         }},
    };
}

} // namespace veltrane::sandbox
