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

} // namespace

Order::Order(const Dictionary& d) : raw_(d), ID_(d.optLong("ID")), SN_(d.optString("SN")) {
    if (d.contains("InstallDate")) installDate_ = Date::dateWithTimeIntervalSince1970(d.optDouble("InstallDate"));

    customer_.setName(textOf(d, "CTUserName"));
    customer_.setAddress(textOf(d, "Address"));
    customer_.setIdCardNumber(textOf(d, "CTCardNumber"));
    customer_.setIdCardPhotoFrontUrl(textOf(d, "CTPictureHeads"));
    customer_.setIdCardPhotoBackUrl(textOf(d, "CTPictureTails"));

    contactName_ = d.optValue("Consignee");
    contactAddress_ = d.optValue("Address");
    contactTel_ = d.optValue("Tel");

    agent_.setName(d.optValue("AgentCTUserName"));
    agent_.setIdCardNumber(d.optValue("AgentCTCardNumber"));
    agent_.setAddress(d.optValue("AgentCTAddress"));
    agent_.setIdCardPhotoFrontUrl(d.optValue("AgentCTPictureHeads"));
    agent_.setIdCardPhotoBackUrl(d.optValue("AgentCTPictureTails"));

    createTime_ = Date::dateWithTimeIntervalSince1970(d.optDouble("CreateTime"));
    remarks_ = d.optValue("Remarks");
    dealPrice_ = d.floatValue("Amount");
    type_ = static_cast<unsigned long>(static_cast<long>(d.intValue("Type")));
    typeName_ = d.optValue("TypeName");

    Address installation;
    installation.setTitle(d.optValue("CTAddress"));
    address_ = std::move(installation);
    city_ = titled(d.optValue("AreaName"));
    area_ = titled(d.optValue("SubAreaName"));
    receiptPath_ = d.optValue("ReceiptPath");

    if (const Value* receipts = d.find("ReceiptArr"))
        receipts_ = locatedAt("ReceiptArr", [&] { return arrayByConvertElementsUsingBlock(*receipts, makeRecord<Receipt>); });

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
            products_ = std::move(products);
        } else if (const Dictionary* one = goods->dictionaryIf()) {
            products_ = std::vector<ProductInfo>{locatedAt("GoodsInfo", [&] { return ProductInfo(*one); })};
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
            numbers_ = std::move(numbers);
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
                plan_ = std::move(plan);
                planItem_ = std::move(item);
            });
        }
    }
}

float Order::totalPrice() const noexcept {
    float total = 0.0f;
    if (products_)
        for (const ProductInfo& p : *products_) total += p.dealPrice();
    if (numbers_)
        for (const NumberInfo& n : *numbers_) total += n.prefund();
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
