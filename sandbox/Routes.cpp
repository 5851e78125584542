// Every API of the dealer server: its parameters and its answer.
#include "sandbox/Routes.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <variant>

#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/Encodings.h"

namespace veltrane::sandbox {

// ---- Calls and checks ------------------------------------------------------------

const std::string& Call::text(const std::string& name) const {
    static const std::string none;
    auto it = params.find(name);
    return it == params.end() ? none : it->second;
}
long Call::integer(const std::string& name) const { return std::strtol(text(name).c_str(), nullptr, 10); }
double Call::number(const std::string& name) const { return std::strtod(text(name).c_str(), nullptr); }
Value Call::json(const std::string& name) const { return parseJSON(text(name)); }

namespace {

bool readsAs(Kind kind, const std::string& text) {
    char* end = nullptr;
    switch (kind) {
    case Kind::Int:
        std::strtol(text.c_str(), &end, 10);
        return !text.empty() && *end == '\0';
    case Kind::Number: {
        double d = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0' && std::isfinite(d);
    }
    case Kind::Json:
        try {
            parseJSON(text);
            return true;
        } catch (const JSONError&) {
            return false;
        }
    case Kind::Text: return true;
    }
    return false;
}

const char* kindName(Kind kind) {
    switch (kind) {
    case Kind::Int: return "整数";
    case Kind::Number: return "数字";
    case Kind::Json: return "JSON文本";
    case Kind::Text: return "文本";
    }
    return "";
}

// The problems of one shape, the first of them first.
std::vector<std::string> problems(const std::vector<Param>& shape, const std::map<std::string, std::string>& params) {
    std::vector<std::string> found;
    for (const Param& p : shape) {
        auto it = params.find(p.name);
        if (it == params.end()) {
            if (p.required) found.push_back(std::string("缺少参数: ") + p.name);
        } else if (!readsAs(p.kind, it->second)) {
            found.push_back(std::string("参数格式错误: ") + p.name + " 应为" + kindName(p.kind));
        }
    }
    for (const auto& param : params) {
        bool known = std::any_of(shape.begin(), shape.end(), [&](const Param& p) { return param.first == p.name; });
        if (!known) found.push_back("未知参数: " + param.first);
    }
    return found;
}

} // namespace

std::optional<std::string> checkParameters(const Route& route, const std::map<std::string, std::string>& params) {
    std::vector<std::string> closest;
    for (const auto& shape : route.shapes) {
        std::vector<std::string> p = problems(shape, params);
        if (p.empty()) return std::nullopt;
        if (closest.empty() || p.size() < closest.size()) closest = std::move(p);
    }
    return closest.front();
}

Array State::list(const char* name) {
    if (auto existing = seed.optArray(name)) return *existing;
    Array created;
    seed.set(name, created);
    return created;
}

size_t attachSignedCopy(State& s, const std::string& SN, long receiptID, const std::string& path) {
    size_t found = 0;
    auto sign = [&](Array receipts) {
        for (const Value& r : receipts) {
            Dictionary receipt = r.asDictionary();
            if (receipt.optLong("ID") != receiptID || receipt.optString("SN").value_or(SN) != SN) continue;
            receipt.set("SignPath", path);
            receipt.set("SignID", static_cast<long>(receiptID) * 10 + 1);
            ++found;
        }
    };
    for (const Value& o : s.list("orders"))
        if (o.asDictionary().optString("SN") == SN) sign(o.asDictionary().optArray("ReceiptArr").value_or(Array()));
    for (const Value& o : s.list("actionOrders")) {
        Dictionary order = o.asDictionary();
        if (order.optDictionary("orderInfo").optString("SN") != SN) continue;
        size_t before = found;
        sign(order.optArray("Receipt").value_or(Array()));
        if (found == before) continue;
        if (!order.optArray("Sign")) order.set("Sign", Array());
        Array signs = *order.optArray("Sign");
        bool listed = false;
        for (const Value& v : signs) {
            Dictionary signed_ = v.asDictionary();
            if (signed_.optLong("ID") == receiptID) {
                signed_.set("SignPath", path);
                listed = true;
            }
        }
        if (!listed) signs.push_back(Dictionary{{"ID", receiptID}, {"SN", SN}, {"SignPath", path}, {"SignID", receiptID * 10 + 1}});
    }
    return found;
}

Dictionary pageOf(const Array& rows, long page) {
    constexpr long kPageSize = 10;
    long totalRows = static_cast<long>(rows.size());
    long totalPages = (totalRows + kPageSize - 1) / kPageSize;
    long first = (std::max(page, 1L) - 1) * kPageSize;
    Array data;
    for (long i = first; i < std::min(totalRows, first + kPageSize); ++i) data.push_back(rows[static_cast<size_t>(i)]);
    return Dictionary{{"count", static_cast<long>(data.size())}, {"totalPages", totalPages}, {"totalRows", totalRows},
                      {"nowPage", std::max(page, 1L)}, {"data", data}};
}

// ---- Helpers for handlers ----------------------------------------------------------

namespace {

template <class Keep>
Array where(const Array& rows, Keep keep) {
    Array out;
    for (const Value& row : rows)
        if (keep(row.asDictionary())) out.push_back(row);
    return out;
}

// A copy of d with only the given keys.
Dictionary pick(const Dictionary& d, std::initializer_list<const char*> keys) {
    Dictionary out;
    for (const char* k : keys)
        if (const Value* v = d.find(k)) out.set(k, *v);
    return out;
}

// A copy of d without the given keys.
Dictionary omit(const Dictionary& d, std::initializer_list<const char*> keys) {
    Dictionary out = d.mutableCopy();
    for (const char* k : keys) out.remove(k);
    return out;
}

Array project(const Array& rows, std::initializer_list<const char*> keys) {
    Array out;
    for (const Value& row : rows) out.push_back(pick(row.asDictionary(), keys));
    return out;
}

bool contains(const std::optional<std::string>& haystack, const std::string& needle) {
    return needle.empty() || (haystack && haystack->find(needle) != std::string::npos);
}

bool listed(const Dictionary& row, const char* key, long id) {
    auto ids = row.optArray(key);
    return ids && std::any_of(ids->begin(), ids->end(), [&](const Value& v) { return v.longValue() == id; });
}

std::optional<Dictionary> findBy(const Array& rows, const char* key, const Value& value) {
    for (const Value& row : rows)
        if (const Value* v = row.asDictionary().find(key); v && *v == value) return row.asDictionary();
    return std::nullopt;
}

// Every device unit in stock, as the goods record of its line plus its IMEI.
Array units(State& s) {
    Array out;
    for (const Value& line : s.list("goods")) {
        const Dictionary& goods = line.asDictionary();
        for (const Value& imei : goods.optArray("units").value_or(Array())) {
            Dictionary unit = omit(goods, {"units", "Stock", "Brand", "TAC"});
            unit.set("IMEI", imei);
            out.push_back(unit);
        }
    }
    return out;
}

std::optional<Dictionary> actionOrderWhere(State& s, const char* key, const Value& value) {
    for (const Value& order : s.list("actionOrders"))
        if (const Value* v = order.asDictionary().optDictionary("orderInfo").find(key); v && *v == value) return order.asDictionary();
    return std::nullopt;
}

Answer lock(std::set<std::string>& locks, const Array& pool, const char* key, const std::string& item, bool locking,
            const char* noun) {
    bool exists = std::any_of(pool.begin(), pool.end(), [&](const Value& v) {
        const Value* k = v.asDictionary().find(key);
        return k && k->isString() && k->asString() == item;
    });
    if (!exists) return Answer::failure(std::string(noun) + "不存在: " + item);
    if (locking && !locks.insert(item).second) return Answer::failure(std::string(noun) + "已被锁定: " + item);
    if (!locking && locks.erase(item) == 0) return Answer::failure(std::string(noun) + "未锁定: " + item);
    return Answer::success(Value(), locking ? "锁定成功" : "解锁成功");
}

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

// The routes, in the order of the gateway's API table.
std::vector<Route> makeRoutes() {
    using K = Kind;
    return {
        {"getLabel", "GET", {{{"type", K::Int}, {"companyid", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(where(s.list("labels"), [&](const Dictionary& l) { return l.optLong("Type") == c.integer("type"); }));
         }},
        {"getPlanList", "GET", {{{"companyid", K::Int}}}, [](const Call&, State& s) { return Answer::success(s.list("plans")); }},
        {"getPlanProjectPages", "GET", {{{"companyid", K::Int}, {"planid", K::Int}, {"keyword", K::Text, false}}}, [](const Call& c, State& s) {
             Array items = where(s.list("planItems"), [&](const Dictionary& i) {
                 return i.optLong("PlanID") == c.integer("planid") && contains(i.optString("Name"), c.text("keyword"));
             });
             return Answer::success(project(items, {"ID", "Name", "PlanType"}));
         }},
        {"getPlanProjectInfo", "GET", {{{"id", K::Int}}}, [](const Call& c, State& s) {
             auto item = findBy(s.list("planItems"), "ID", c.integer("id"));
             return item ? Answer::success(pick(*item, {"ID", "Description"})) : Answer::failure("套餐不存在");
         }},
        {"getAppsID", "GET", {{{"CompanyID", K::Int}}}, [](const Call&, State& s) { return Answer::success(s.list("apps")); }},
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
        {"getResourceConfirm", "GET", {{{"areaCode", K::Int}, {"siteID", K::Int}, {"addressID", K::Int}}},
         [](const Call&, State& s) { return Answer::success(s.list("resources")); }},
        {"getActionForm", "GET", {{{"ID", K::Int}}}, [](const Call& c, State& s) {
             const Value* form = s.seed.optDictionary("actionForms").find(c.text("ID"));
             return form ? Answer::success(*form) : Answer::failure("业务不存在");
         }},
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
        {"getPhonePages", "GET",
         {{{"companyid", K::Int}, {"rank", K::Int}, {"PlanType", K::Int, false}, {"NetType", K::Int}, {"p", K::Int}, {"keyword", K::Text, false}}},
         [](const Call& c, State& s) {
             Array numbers = where(s.list("numbers"), [&](const Dictionary& n) {
                 std::string phone = n.optString("Phone").value_or("");
                 return !s.lockedPhones.count(phone) && (c.integer("rank") == 0 || n.optLong("Rank") == c.integer("rank")) &&
                        (!c.has("PlanType") || n.optLong("PlanType") == c.integer("PlanType")) &&
                        (c.integer("NetType") == 0 || n.optLong("NetType") == c.integer("NetType")) && contains(phone, c.text("keyword"));
             });
             return Answer::success(pageOf(project(numbers, {"Phone", "Rank", "Prestore", "UIM"}), c.integer("p")));
         }},
        {"postLockPhone", "POST", {{{"companyid", K::Int}, {"phone", K::Text}}}, [](const Call& c, State& s) {
             return lock(s.lockedPhones, s.list("numbers"), "Phone", c.text("phone"), true, "号码");
         }},
        {"postUnLockPhone", "POST", {{{"companyid", K::Int}, {"phone", K::Text}}}, [](const Call& c, State& s) {
             return lock(s.lockedPhones, s.list("numbers"), "Phone", c.text("phone"), false, "号码");
         }},
        {"getHeadAd", "GET", {{}}, [](const Call&, State& s) { return Answer::success(s.list("ads")); }},
        {"checkCRMInfo", "GET", {{{"number", K::Text}, {"userID", K::Int}}}, [](const Call& c, State& s) {
             auto record = findBy(s.list("crm"), "AccountNumber", c.text("number"));
             return record ? Answer::success(*record, "查询成功") : Answer::success(Value(), "未查询到客户资料");
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
        {"getOfferMembers", "GET", {{{"CompanyID", K::Int}, {"AcctNbr", K::Text, false}}}, [](const Call& c, State& s) {
             Array members = s.list("offerMembers");
             if (!c.has("AcctNbr")) return Answer::success(members);
             auto member = findBy(members, "accNbr", c.text("AcctNbr"));
             if (!member) return Answer::success(Array());
             std::string customer = member->optString("custId").value_or("");
             return Answer::success(where(members, [&](const Dictionary& m) { return m.optString("custId") == customer; }));
         }},
        {"fetchPushMessage", "GET", {{{"userID", K::Int}, {"lastMessageID", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(where(s.list("pushMessages"), [&](const Dictionary& m) {
                 return m.optLong("ReceiverID") == c.integer("userID") && m.optLong("ID") > c.integer("lastMessageID");
             }));
         }},
        {"listCompoundTypes", "GET", {{}}, [](const Call&, State& s) { return Answer::success(s.list("compoundTypes")); }},
        {"listCompounds", "GET", {{{"planItemID", K::Int}, {"typeID", K::Int}}}, [](const Call& c, State& s) {
             Array found = where(s.list("compounds"), [&](const Dictionary& p) {
                 return p.optLong("TypeID") == c.integer("typeID") && listed(p, "PlanItemIDs", c.integer("planItemID"));
             });
             // This server answers null, not [], when nothing matches.
             return found.empty() ? Answer::success(Value()) : Answer::success(project(found, {"PackageID", "PackageName", "Price"}));
         }},
        {"getCompoundDetail", "GET", {{{"ID", K::Int}}}, [](const Call& c, State& s) {
             auto found = findBy(s.list("compounds"), "PackageID", c.integer("ID"));
             return found ? Answer::success(omit(*found, {"PlanItemIDs", "TypeID"})) : Answer::failure("套餐包不存在");
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
        {"getActionList", "GET", {{}, {{"userid", K::Int}, {"companyid", K::Int}}}, [](const Call& c, State& s) {
             Array actions = s.list("actions");
             if (c.has("userid")) return Answer::success(project(actions, {"ID", "Name", "IsNew", "IsAuto", "Background"}));
             return Answer::success(project(actions, {"ID", "Name", "Background", "Price", "Remarks", "SN", "Status", "Type", "TypeName"}));
         }},
        {"getGoodsPagesWithIMEI", "GET", {{{"companyid", K::Int}, {"imei", K::Text}, {"goodsid", K::Int}}}, [](const Call& c, State& s) {
             Array found = where(units(s), [&](const Dictionary& u) {
                 std::string imei = u.optString("IMEI").value_or("");
                 return !s.lockedImeis.count(imei) && contains(imei, c.text("imei")) &&
                        (c.integer("goodsid") == -1 || u.optLong("ID") == c.integer("goodsid"));
             });
             return Answer::success(pageOf(found, 1));
         }},
        {"postLockImei", "POST", {{{"companyid", K::Int}, {"imei", K::Text}}}, [](const Call& c, State& s) {
             return lock(s.lockedImeis, units(s), "IMEI", c.text("imei"), true, "串号");
         }},
        {"postUnLockImei", "POST", {{{"companyid", K::Int}, {"imei", K::Text}}}, [](const Call& c, State& s) {
             return lock(s.lockedImeis, units(s), "IMEI", c.text("imei"), false, "串号");
         }},
        {"getGoodsByIMEI", "GET", {{{"companyid", K::Int}, {"imei", K::Text}}}, [](const Call& c, State& s) {
             auto unit = findBy(units(s), "IMEI", c.text("imei"));
             if (!unit) return Answer::failure("未找到该串号: " + c.text("imei"));
             if (s.lockedImeis.count(c.text("imei"))) return Answer::failure("串号已被锁定: " + c.text("imei"));
             return Answer::success(*unit);
         }},
        {"getGoodsPages", "GET", {{{"p", K::Int}, {"companyid", K::Int}, {"keyword", K::Text, false}}}, [](const Call& c, State& s) {
             std::string keyword = percentDecode(c.text("keyword"));
             Array goods = where(s.list("goods"), [&](const Dictionary& g) {
                 std::string name = g.optString("Name").value_or(g.optString("GoodsName").value_or(g.optString("Title").value_or("")));
                 return contains(name, keyword) || contains(g.optString("Brand"), keyword);
             });
             Array rows;
             for (const Value& g : goods) rows.push_back(omit(g.asDictionary(), {"units", "TAC"}));
             return Answer::success(pageOf(rows, c.integer("p")));
         }},
        {"getInfo", "GET", {{{"goodsid", K::Int}, {"companyid", K::Int}}}, [](const Call& c, State& s) {
             auto goods = findBy(s.list("goods"), "ID", c.integer("goodsid"));
             if (!goods) return Answer::failure("商品不存在");
             Dictionary info = omit(*goods, {"units", "TAC"});
             long inStock = 0;
             for (const Value& imei : goods->optArray("units").value_or(Array())) inStock += !s.lockedImeis.count(std::string(imei.asString()));
             info.set("Stock", inStock);
             return Answer::success(info);
         }},
        {"getCertificateList", "GET", {{}}, [](const Call&, State& s) { return Answer::success(s.list("certificateTypes")); }},
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
        {"postChat", "POST", {{{"userid", K::Int}, {"message", K::Json}}}, [](const Call& c, State& s) {
             Value messages = c.json("message");
             if (!messages.isArray()) return Answer::failure("消息格式错误: message 应为数组");
             auto user = findBy(s.list("users"), "ID", c.integer("userid"));
             for (const Value& m : messages.asArray()) {
                 const Dictionary* d = m.dictionaryIf();
                 if (!d || !d->contains("Type") || !d->contains("Content")) return Answer::failure("消息格式错误: 需要 Type 和 Content");
                 s.list("chats").push_back(Dictionary{{"ID", s.nextChatID++}, {"UserID", c.integer("userid")},
                                                      {"CompanyID", user ? user->optLong("CompanyID") : 0L}, {"CreateTime", 1763700000L},
                                                      {"Type", d->valueOrNull("Type")}, {"Content", d->valueOrNull("Content")}});
             }
             return Answer::success(Value(), "发送成功");
         }},
        {"getChatMessages", "GET", {{{"companyid", K::Int}, {"lastMessageID", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(where(s.list("chats"), [&](const Dictionary& m) {
                 return m.optLong("CompanyID") == c.integer("companyid") && m.optLong("ID") > c.integer("lastMessageID");
             }));
         }},
        {"getBillingOptions", "GET", {{{"planItemID", K::Int}, {"companyID", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(project(where(s.list("billingOptions"), [&](const Dictionary& b) { return listed(b, "PlanItemIDs", c.integer("planItemID")); }),
                                            {"AgreementID", "AgreementName", "AgreementDesc", "Price"}));
         }},
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

} // namespace

const std::vector<Route>& routes() {
    static const std::vector<Route> table = makeRoutes();
    return table;
}

} // namespace veltrane::sandbox
