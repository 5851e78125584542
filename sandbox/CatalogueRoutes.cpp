// The catalogue's APIs: numbers, devices, plans and packages, subscriber
// lookups; with the locks a sale takes on numbers and devices.
#include <algorithm>
#include <set>

#include "sandbox/Handlers.h"
#include "veltrane/platform/Encodings.h"

namespace veltrane::sandbox {

namespace {

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

} // namespace

std::vector<Route> catalogueRoutes() {
    using K = Kind;
    return {
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
        {"checkCRMInfo", "GET", {{{"number", K::Text}, {"userID", K::Int}}}, [](const Call& c, State& s) {
             auto record = findBy(s.list("crm"), "AccountNumber", c.text("number"));
             return record ? Answer::success(*record, "查询成功") : Answer::success(Value(), "未查询到客户资料");
         }},
        {"getOfferMembers", "GET", {{{"CompanyID", K::Int}, {"AcctNbr", K::Text, false}}}, [](const Call& c, State& s) {
             Array members = s.list("offerMembers");
             if (!c.has("AcctNbr")) return Answer::success(members);
             auto member = findBy(members, "accNbr", c.text("AcctNbr"));
             if (!member) return Answer::success(Array());
             std::string customer = member->optString("custId").value_or("");
             return Answer::success(where(members, [&](const Dictionary& m) { return m.optString("custId") == customer; }));
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
        {"getBillingOptions", "GET", {{{"planItemID", K::Int}, {"companyID", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(project(where(s.list("billingOptions"), [&](const Dictionary& b) { return listed(b, "PlanItemIDs", c.integer("planItemID")); }),
                                            {"AgreementID", "AgreementName", "AgreementDesc", "Price"}));
         }},
        {"getResourceConfirm", "GET", {{{"areaCode", K::Int}, {"siteID", K::Int}, {"addressID", K::Int}}},
         [](const Call&, State& s) { return Answer::success(s.list("resources")); }},
    };
}

} // namespace veltrane::sandbox
