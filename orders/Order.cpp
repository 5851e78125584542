// Order: the incoming format, the total, the outgoing format and the listing.
#include "veltrane/orders/Order.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/ListConversion.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

namespace {

// The text of a key as optString reads it, as a person's property holds it.
// A string is shared with the reply, not copied.
std::optional<Value> textOf(const Dictionary& d, std::string_view key) {
    if (const Value* v = d.find(key); v && v->isString()) return *v;
    std::optional<std::string> text = d.optString(key);
    return text ? std::optional<Value>(std::move(*text)) : std::nullopt;
}

Area titled(std::optional<Value> title) {
    Area area;
    area.setTitle(std::move(title));
    return area;
}

// Whether a numeric reading of v would succeed (an absent key reads as 0).
bool numeric(const Value* v) noexcept { return !v || !(v->isNull() || v->isArray() || v->isDictionary()); }

// Whether every element of list is a dictionary that passes check.
template <class Check>
bool allDictionaries(const Array& list, Check check) {
    for (const Value& element : list)
        if (!element.isDictionary() || !check(element.asDictionary())) return false;
    return true;
}

// Whether ProductInfo reads item without raising.
bool productReads(const Dictionary& item) {
    try {
        ProductInfo probe(item);
        return true;
    } catch (const ValueError&) {
        return false;
    }
}

// Whether reading the fields of d (all but "Amount" and "Type") would
// neither raise nor log: then they may be read later with the same result.
bool readsCleanly(const Dictionary& d) {
    if (const Value* receipts = d.find("ReceiptArr")) {
        const Array* list = receipts->arrayIf();
        if (!list || !allDictionaries(*list, [](const Dictionary&) { return true; })) return false;
    }
    if (const Value* goods = d.find("GoodsInfo")) {
        if (const Array* list = goods->arrayIf()) {
            auto reads = [](const Dictionary& item) { return numeric(item.find("GoodsID")) && numeric(item.find("ReferencePrice")) && productReads(item); };
            if (!allDictionaries(*list, reads)) return false;
        } else if (const Dictionary* one = goods->dictionaryIf(); one && !productReads(*one)) {
            return false;
        }
    }
    if (const Value* phones = d.find("PhoneInfo"); phones && phones->isArray()) {
        if (!allDictionaries(phones->asArray(), [](const Dictionary& item) { return numeric(item.find("Price")); })) return false;
    }
    if (const Value* plans = d.find("PlanInfo"); plans && plans->isArray() && !plans->asArray().empty()) {
        const Value& first = plans->asArray()[0];
        if (!first.isDictionary() || !numeric(first.asDictionary().find("PlanID"))) return false;
    }
    return true;
}

} // namespace

Order::Fields Order::read(const Dictionary& d) {
    Fields f;
    f.ID = d.optLong("ID");
    f.SN = d.optString("SN");
    if (d.contains("InstallDate")) f.installDate = Date::dateWithTimeIntervalSince1970(d.optDouble("InstallDate"));

    f.customer.setName(textOf(d, "CTUserName"));
    f.customer.setAddress(textOf(d, "Address"));
    f.customer.setIdCardNumber(textOf(d, "CTCardNumber"));
    f.customer.setIdCardPhotoFrontUrl(textOf(d, "CTPictureHeads"));
    f.customer.setIdCardPhotoBackUrl(textOf(d, "CTPictureTails"));

    f.contactName = d.optValue("Consignee");
    f.contactAddress = d.optValue("Address");
    f.contactTel = d.optValue("Tel");

    f.agent.setName(d.optValue("AgentCTUserName"));
    f.agent.setIdCardNumber(d.optValue("AgentCTCardNumber"));
    f.agent.setAddress(d.optValue("AgentCTAddress"));
    f.agent.setIdCardPhotoFrontUrl(d.optValue("AgentCTPictureHeads"));
    f.agent.setIdCardPhotoBackUrl(d.optValue("AgentCTPictureTails"));

    f.createTime = Date::dateWithTimeIntervalSince1970(d.optDouble("CreateTime"));
    f.remarks = d.optValue("Remarks");
    f.typeName = d.optValue("TypeName");

    Address installation;
    installation.setTitle(d.optValue("CTAddress"));
    f.address = std::move(installation);
    f.city = titled(d.optValue("AreaName"));
    f.area = titled(d.optValue("SubAreaName"));
    f.receiptPath = d.optValue("ReceiptPath");

    if (const Value* receipts = d.find("ReceiptArr"))
        f.receipts = locatedAt("ReceiptArr", [&] { return arrayByConvertElementsUsingBlock(*receipts, makeRecord<Receipt>); });

    if (const Value* goods = d.find("GoodsInfo")) {
        if (const Array* list = goods->arrayIf()) {
            std::vector<ProductInfo> products;
            products.reserve(list->size());
            for (const Value& element : *list) {
                products.push_back(locatedAtElement("GoodsInfo", products.size(), [&] {
                    const Dictionary& item = element.asDictionary();
                    ProductInfo product(item);
                    product.setID(item.intValue("GoodsID"));
                    product.setName(item.optValue("GoodsName"));
                    product.setPrice(item.floatValue("ReferencePrice"));
                    return product;
                }));
            }
            f.products = std::move(products);
        } else if (const Dictionary* one = goods->dictionaryIf()) {
            f.products = std::vector<ProductInfo>{locatedAt("GoodsInfo", [&] { return ProductInfo(*one); })};
        }
    }

    if (const Value* phones = d.find("PhoneInfo")) {
        if (const Array* list = phones->arrayIf()) {
            std::vector<NumberInfo> numbers;
            numbers.reserve(list->size());
            for (const Value& element : *list) {
                numbers.push_back(locatedAtElement("PhoneInfo", numbers.size(), [&] {
                    const Dictionary& item = element.asDictionary();
                    NumberInfo number;
                    number.setPhoneNumber(item.optValue("Phone"));
                    number.setPrefund(item.floatValue("Price"));
                    return number;
                }));
            }
            f.numbers = std::move(numbers);
        }
    }

    if (const Value* plans = d.find("PlanInfo")) {
        if (const Array* list = plans->arrayIf()) {
            locatedAtElement("PlanInfo", 0, [&] {
                Dictionary first = list->empty() ? Dictionary() : (*list)[0].asDictionary();
                PlanInfo plan;
                plan.setID(first.intValue("PlanID"));
                plan.setName(first.optString("PlanName"));
                PlanItem item;
                item.setID(first.intValue("PlanID"));
                item.setName(first.optString("PlanName"));
                f.plan = std::move(plan);
                f.planItem = std::move(item);
            });
        }
    }
    return f;
}

Order::Order(const Dictionary& d)
    : raw_(d),
      dealPrice_(d.floatValue("Amount")),
      type_(static_cast<unsigned long>(static_cast<long>(d.intValue("Type")))),
      fields_(d, read, readsCleanly(d)) {}

float Order::totalPrice() const {
    const Fields& f = fields_.get();
    float total = 0.0f;
    if (f.products)
        for (const ProductInfo& p : *f.products) total += p.dealPrice();
    if (f.numbers)
        for (const NumberInfo& n : *f.numbers) total += n.prefund();
    return total;
}

namespace {

// A price sent as a whole number: truncated toward zero, word-sized.
Value whole(float price) { return NSBoxLong(truncateToLong(price)); }

// A nested list as compact JSON text; nothing (with a log line) when JSON
// cannot hold it.
std::optional<Value> jsonText(const char* key, const Array& list) {
    try {
        return Value(writeJSON(list));
    } catch (const JSONError& e) {
        log(std::string("postCreateOrder: ") + key + " left out: " + e.what());
        return std::nullopt;
    }
}

Dictionary outgoing(const Order& o, int32_t companyID, int32_t userID) {
    Dictionary p;
    if (o.ID() >= 1) p.set("OrderID", NSBoxDouble(static_cast<double>(o.ID())));
    if (o.installDate()) p.set("InstallDate", NSBoxDouble(o.installDate()->timeIntervalSince1970()));
    p.set("Type", NSBoxUnsignedLong(o.type()));
    p.set("CompanyID", NSBoxInt(companyID));
    p.set("UserID", NSBoxInt(userID));
    if (o.products() && !o.products()->empty()) {
        Array goods;
        for (const ProductInfo& product : *o.products())
            goods.push_back(Dictionary{{"GoodsID", NSBoxInt(product.ID())},
                                       {"GoodsName", NSGuardNil(product.name())},
                                       {"IMEI", NSGuardNil(product.serial())},
                                       {"ReferencePrice", whole(product.dealPrice())},
                                       {"Price", whole(product.price())}});
        if (std::optional<Value> text = jsonText("GoodsInfo", goods)) p.set("GoodsInfo", *text);
    }
    if (o.planItem()) {
        Array plan{Dictionary{{"PlanID", NSBoxInt(o.planItem()->ID())}, {"PlanName", NSGuardNil(o.planItem()->name())}}};
        if (std::optional<Value> text = jsonText("PlanInfo", plan)) p.set("PlanInfo", *text);
    }
    if (o.numbers() && !o.numbers()->empty()) {
        Array phones;
        for (const NumberInfo& number : *o.numbers())
            phones.push_back(Dictionary{{"Phone", NSGuardNil(number.phoneNumber())}, {"Price", whole(number.prefund())}, {"UIM", NSGuardNil(number.UIM())}});
        if (std::optional<Value> text = jsonText("PhoneInfo", phones)) p.set("PhoneInfo", *text);
    }
    const Person& c = o.customer();
    p.set("CTUserName", NSGuardNil(c.name()));
    p.set("CTCardNumber", NSGuardNil(c.idCardNumber()));
    p.set("CTPictureTails", NSGuardNil(c.idCardPhotoBackUrl()));
    p.set("CTPictureHeads", NSGuardNil(c.idCardPhotoFrontUrl()));
    const Person& a = o.agent();
    p.set("AgentCTUserName", NSGuardNil(a.name()));
    p.set("AgentCTAddress", NSGuardNil(a.address()));
    p.set("AgentCTCardNumber", NSGuardNil(a.idCardNumber()));
    p.set("AgentCTPictureTails", NSGuardNil(a.idCardPhotoBackUrl()));
    p.set("AgentCTPictureHeads", NSGuardNil(a.idCardPhotoFrontUrl()));
    p.set("CTCityID", NSBoxInt(o.city() ? o.city()->ID() : 0));
    p.set("CTAreaID", NSBoxInt(o.area() ? o.area()->ID() : 0));
    p.set("CTAddress", NSGuardNil(o.address() ? o.address()->title() : std::nullopt));
    p.set("ReferenceAmount", whole(o.totalPrice()));
    p.set("Amount", whole(o.dealPrice()));
    p.set("Consignee", NSGuardNil(o.contactName()));
    p.set("Address", NSGuardNil(o.contactAddress()));
    p.set("Tel", NSGuardNil(o.contactTel()));
    p.set("Remarks", NSGuardNil(o.remarks()));
    return p;
}

} // namespace

void Order::postOrderInfo(const Order& order, int32_t withCompanyID, int32_t andUserID, FlagCallback callback) {
    Dictionary params = outgoing(order, withCompanyID, andUserID);
    logValue("", params);
    reply::post("postCreateOrder", std::move(params), reply::flag(std::move(callback)));
}

void Order::listWithStatus(unsigned long status, int32_t andCompanyID, int32_t andUserID, std::optional<std::string> andKeywords, int32_t ofPage,
                           ResultCallback<DataPage<Order>> callback) {
    Dictionary params{{"companyid", NSBoxInt(andCompanyID)}, {"userid", NSBoxInt(andUserID)}};
    if (status != 0) params.set("status", NSBoxUnsignedLong(status));
    if (andKeywords) params.set("keyword", *andKeywords);
    params.set("p", NSBoxInt(ofPage));
    reply::get("getOrders", std::move(params), reply::page<Order>(std::move(callback)));
}

std::string stringOfOrderStatusName(unsigned long status) {
    switch (status) {
    case 0: return "全部";
    case 1: return "已提交订单";
    case 3: return "退回修改";
    case 4: return "成功订单";
    case 5: return "待收银";
    case 10: return "失败订单";
    default: return "未知状态";
    }
}

} // namespace veltrane
