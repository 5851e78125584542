// The order: the incoming format key by key, the total, the outgoing format
// with its conditions and number kinds, the listing and the status names.
#include <atomic>
#include <climits>
#include <cmath>
#include <thread>
#include <vector>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/orders/Order.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using test::dict;
using test::ignore;

std::string show(const std::optional<Value>& v) { return v ? writeJSON(*v) : "-"; }
std::string show(const std::optional<std::string>& v) { return v ? "\"" + *v + "\"" : "-"; }
std::string show(float f) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", f);
    return text;
}
std::string show(const Person& p) {
    return show(p.name()) + "|" + show(p.address()) + "|" + show(p.idCardNumber()) + "|" + show(p.idCardPhotoFrontUrl()) + "|" +
           show(p.idCardPhotoBackUrl());
}

// Every field of an order on one line.
std::string summary(const Order& o) {
    std::string out = "ID=" + std::to_string(o.ID()) + " SN=" + show(o.SN()) + " type=" + std::to_string(o.type()) + " typeName=" + show(o.typeName());
    out += " install=" + (o.installDate() ? show(static_cast<float>(o.installDate()->timeIntervalSince1970())) : "-");
    out += " created=" + (o.createTime() ? show(static_cast<float>(o.createTime()->timeIntervalSince1970())) : "-");
    out += " deal=" + show(o.dealPrice()) + " customer=" + show(o.customer()) + " agent=" + show(o.agent());
    out += " contact=" + show(o.contactName()) + "|" + show(o.contactAddress()) + "|" + show(o.contactTel()) + " remarks=" + show(o.remarks());
    out += " address=" + (o.address() ? show(o.address()->title()) : "unset");
    out += " city=" + (o.city() ? std::to_string(o.city()->ID()) + ":" + show(o.city()->title()) : "unset");
    out += " area=" + (o.area() ? std::to_string(o.area()->ID()) + ":" + show(o.area()->title()) : "unset");
    out += " receiptPath=" + show(o.receiptPath()) + " receipts=" + (o.receipts() ? std::to_string(o.receipts()->size()) : "unset");
    out += " products=";
    if (!o.products()) out += "unset";
    else
        for (const ProductInfo& p : *o.products()) out += "[" + std::to_string(p.ID()) + " " + show(p.name()) + " " + show(p.price()) + " " + show(p.dealPrice()) + "]";
    out += " numbers=";
    if (!o.numbers()) out += "unset";
    else
        for (const NumberInfo& n : *o.numbers()) out += "[" + show(n.phoneNumber()) + " " + show(n.prefund()) + "]";
    out += " plan=" + (o.plan() ? std::to_string(o.plan()->ID()) + ":" + show(o.plan()->name()) : "unset");
    out += " item=" + (o.planItem() ? std::to_string(o.planItem()->ID()) + ":" + show(o.planItem()->name()) : "unset");
    return out + " total=" + show(o.totalPrice());
}

// The summary's fields that a case looks at: each case names the field and
// what it must read ("products=[7 \"y\" 8 5]").
struct IncomingCase {
    const char* json;
    const char* expected;  // one or more "field=..." parts of the summary, or "throws:" and the message
};

const IncomingCase kIncoming[] = {
    {"{}", "ID=0 SN=- type=0 typeName=- install=- created=0 deal=0 customer=-|-|-|-|- agent=-|-|-|-|- contact=-|-|- remarks=- "
           "address=- city=0:- area=0:- receiptPath=- receipts=unset products=unset numbers=unset plan=unset item=unset total=0"},
    {R"({"ID":"42","SN":5,"TypeName":7,"Remarks":null})", "ID=42 SN=\"5\" type=0 typeName=7"},
    {R"({"InstallDate":null})", "install=0"},
    {R"({"InstallDate":1763604000.5,"CreateTime":"1763433600"})", "install=1.7636e+09 created=1.76343e+09"},
    {R"({"Type":"12"})", "type=12"},
    {R"({"Type":-1})", "type=18446744073709551615"},
    {R"({"Type":null})", "throws:Type: null has no integer value"},
    {R"({"Type":[1]})", "throws:Type: an array has no integer value"},
    {R"({"Amount":"99.5"})", "deal=99.5"},
    {R"({"Amount":null})", "throws:Amount: null has no float value"},
    {R"({"CTUserName":5,"Address":"天河","CTCardNumber":null,"AgentCTUserName":5,"AgentCTAddress":null})",
     "customer=\"5\"|\"天河\"|-|-|- agent=5|null|-|-|- contact=-|\"天河\"|-"},
    {R"({"Consignee":"张三","Tel":13900000000,"CTAddress":5,"AreaName":"广州市","SubAreaName":null})",
     "contact=\"张三\"|-|13900000000 remarks=- address=\"5\" city=0:\"广州市\" area=0:null"},
    {R"({"ReceiptArr":[{"ID":1},"x"],"ReceiptPath":"/r.pdf"})", "receiptPath=\"/r.pdf\" receipts=1"},
    {R"({"ReceiptArr":{"ID":1}})", "receipts=0"},
    {R"({"ReceiptArr":"x"})", "throws:ReceiptArr: a string cannot be enumerated"},
    {R"({"GoodsInfo":{"ID":3,"Name":"x","Price":9.5,"GoodsID":7}})", "products=[3 \"x\" 9.5 9.5]"},
    {R"({"GoodsInfo":[{"ID":3,"Name":"x","Price":5,"GoodsID":7,"GoodsName":"y","ReferencePrice":8}]})", "products=[7 \"y\" 8 5]"},
    {R"({"GoodsInfo":[{"GoodsID":"7","ReferencePrice":"8"},{"GoodsID":1,"GoodsName":null,"ReferencePrice":1}]})", "products=[7 - 8 0][1 null 1 0]"},
    {R"({"GoodsInfo":[{"GoodsID":7},{"GoodsID":null}]})", "throws:GoodsInfo[1].GoodsID: null has no integer value"},
    {R"({"GoodsInfo":[{"GoodsID":7,"ReferencePrice":null}]})", "throws:GoodsInfo[0].ReferencePrice: null has no float value"},
    {R"({"GoodsInfo":["x"]})", "throws:GoodsInfo[0]: a string is not a dictionary"},
    {R"({"GoodsInfo":"x"})", "products=unset"},
    {R"({"GoodsInfo":null})", "products=unset"},
    {R"({"PhoneInfo":[{"Phone":"13900000000","Price":"50","UIM":"x"},{"Phone":5}]})", "numbers=[\"13900000000\" 50][5 0]"},
    {R"({"PhoneInfo":{"Phone":"13900000000"}})", "numbers=unset"},
    {R"({"PhoneInfo":[{"Price":null}]})", "throws:PhoneInfo[0].Price: null has no float value"},
    {R"({"PlanInfo":[]})", "plan=0:- item=0:-"},
    {R"({"PlanInfo":[{"PlanID":7,"PlanName":"5G畅享"},{"PlanID":8}]})", "plan=7:\"5G畅享\" item=7:\"5G畅享\""},
    {R"({"PlanInfo":{"PlanID":7}})", "plan=unset item=unset"},
    {R"({"PlanInfo":[{"PlanID":null}]})", "throws:PlanInfo[0].PlanID: null has no integer value"},
    {R"({"GoodsInfo":[{"GoodsID":1,"Price":"0.1"},{"GoodsID":2,"Price":0.1}],"PhoneInfo":[{"Price":0.2}]})", "total=0.4"},
};

class Orders : public test::GatewayTest {};

// Every case is read three ways, which must agree: from a parsed reply (read
// when first used), from a dictionary of the heap (read at once), and from a
// reply whose keys are all overwritten between construction and first use.
enum class Source { reply, heap, replyWrittenAfter };

Order made(const char* json, Source source) {
    Dictionary d = dict(json);
    if (source == Source::heap) return Order(d.mutableCopy());
    Order o(d);
    if (source == Source::replyWrittenAfter) {
        std::vector<std::string> keys;
        for (auto [key, value] : d) keys.emplace_back(key);
        for (const std::string& key : keys) d.set(key, "overwritten");
        d.set("GoodsInfo", Array{});
    }
    return o;
}

TEST_F(Orders, TheIncomingFormatKeyByKey) {
    for (const IncomingCase& c : kIncoming)
    for (Source source : {Source::reply, Source::heap, Source::replyWrittenAfter}) {
        SCOPED_TRACE(std::string(c.json) + " read from source " + std::to_string(static_cast<int>(source)));
        std::string expected = c.expected;
        logLines.clear();
        std::optional<Order> order;
        try {
            order.emplace(made(c.json, source));
        } catch (const ValueError& e) {
            EXPECT_EQ("throws:" + std::string(e.what()), expected);
            continue;
        }
        size_t logged = logLines.size();
        std::string got = summary(*order);
        EXPECT_EQ(expected.rfind("throws:", 0), std::string::npos) << "did not throw: " << got;
        EXPECT_EQ(logLines.size(), logged) << "what an order logs, it logs when it is made";
        size_t start = 0;
        // Each "field=value" part of the expectation stands in the summary.
        for (size_t end; start < expected.size(); start = end + 1) {
            end = expected.find(' ', expected.find('=', start));
            if (end == std::string::npos) end = expected.size();
            std::string part = expected.substr(start, end - start);
            EXPECT_NE((" " + got + " ").find(" " + part + " "), std::string::npos) << part << " not in " << got;
        }
    }
}

TEST_F(Orders, TheTotalIsASinglePrecisionSum) {
    Order o;
    ProductInfo p;
    p.setDealPrice(0.1f);
    p.setPrice(1000.0f);
    NumberInfo n;
    n.setPrefund(0.2f);
    o.setProducts(std::vector<ProductInfo>{p, p});
    o.setNumbers(std::vector<NumberInfo>{n});
    float expected = 0.1f;
    expected += 0.1f;
    expected += 0.2f;
    EXPECT_EQ(o.totalPrice(), expected);
    EXPECT_NE(static_cast<double>(o.totalPrice()), 0.1 + 0.1 + 0.2) << "not a double sum";
    Order fresh;
    EXPECT_EQ(fresh.totalPrice(), 0.0f);
    EXPECT_TRUE(fresh.customer().isEmpty() && fresh.agent().isEmpty());
    fresh.customer().setName("x");
    EXPECT_TRUE(fresh.agent().isEmpty()) << "two persons, not one";
}

// The parameters an order is submitted with.
std::string submitted(MemoryTransport& transport, const Order& order) {
    transport.clear();
    Order::postOrderInfo(order, 1, 7, test::kIgnoreFlag);
    return test::typedParams(transport.lastRequest().params);
}

const char* kDefaultOrder =
    R"(Type=0:u64 CompanyID=1:i32 UserID=7:i32 CTUserName="" CTCardNumber="" CTPictureTails="" CTPictureHeads="" )"
    R"(AgentCTUserName="" AgentCTAddress="" AgentCTCardNumber="" AgentCTPictureTails="" AgentCTPictureHeads="" CTCityID=0:i32 )"
    R"(CTAreaID=0:i32 CTAddress=null ReferenceAmount=0:i64 Amount=0:i64 Consignee=null Address=null Tel=null Remarks=null)";

TEST_F(Orders, TheOutgoingFormatOfADefaultOrder) {
    EXPECT_EQ(submitted(*transport, Order()), kDefaultOrder);
    EXPECT_EQ(lastRequest().method, HTTPMethod::POST);
    EXPECT_EQ(lastRequest().api, "postCreateOrder");
    EXPECT_EQ(logLines.back(), describe(*lastRequest().params)) << "the dictionary, logged";
}

struct OutgoingCase {
    const char* name;
    std::function<void(Order&)> fill;
    const char* expected;  // a part of the typed parameters
    bool present = true;   // or a part that must not be there
};

ProductInfo product(int32_t id, std::optional<Value> name, float price, float deal) {
    ProductInfo p;
    p.setID(id);
    p.setName(std::move(name));
    p.setPrice(price);
    p.setDealPrice(deal);
    return p;
}

const OutgoingCase kOutgoing[] = {
    {"ID 0: no OrderID", [](Order& o) { o.setID(0); }, "OrderID", false},
    {"negative ID: no OrderID", [](Order& o) { o.setID(-3); }, "OrderID", false},
    {"ID 1: OrderID first, as a double", [](Order& o) { o.setID(1); }, "OrderID=1:f64 Type=0:u64"},
    {"install date with its fraction", [](Order& o) { o.setInstallDate(Date::dateWithTimeIntervalSince1970(1763604000.5)); },
     "OrderID", false},
    {"install date after OrderID's place", [](Order& o) { o.setInstallDate(Date::dateWithTimeIntervalSince1970(1763604000.5)); },
     "InstallDate=1763604000.5:f64 Type=0:u64"},
    {"type unsigned", [](Order& o) { o.setType(ULONG_MAX); }, "Type=18446744073709551615:u64"},
    {"deal price truncated", [](Order& o) { o.setDealPrice(99.9f); }, "Amount=99:i64"},
    {"negative deal price truncated toward zero", [](Order& o) { o.setDealPrice(-0.5f); }, "Amount=0:i64"},
    {"two products: a JSON text, the prices crossed", [](Order& o) {
         o.setProducts(std::vector<ProductInfo>{product(101, Value("青岚"), 6999.9f, 6499.5f), product(5, std::nullopt, 10, 9)});
     },
     R"(GoodsInfo="[{\"GoodsID\":101,\"GoodsName\":\"青岚\",\"IMEI\":null,\"ReferencePrice\":6499,\"Price\":6999},)"
     R"({\"GoodsID\":5,\"GoodsName\":null,\"IMEI\":null,\"ReferencePrice\":9,\"Price\":10}]")"},
    {"the reference amount from the total", [](Order& o) { o.setProducts(std::vector<ProductInfo>{product(1, std::nullopt, 0, 10.9f)}); },
     "ReferenceAmount=10:i64"},
    {"no products: no GoodsInfo", [](Order& o) { o.setProducts(std::vector<ProductInfo>{}); }, "GoodsInfo", false},
    {"a plan without a plan item: no PlanInfo", [](Order& o) { o.setPlan(PlanInfo()); }, "PlanInfo", false},
    {"the plan item", [](Order& o) {
         PlanItem item;
         item.setID(11);
         item.setName("5G畅享129元套餐");
         o.setPlanItem(item);
     },
     R"(PlanInfo="[{\"PlanID\":11,\"PlanName\":\"5G畅享129元套餐\"}]")"},
    {"numbers", [](Order& o) {
         NumberInfo n;
         n.setPhoneNumber(Value("13900000000"));
         n.setPrefund(50.7f);
         o.setNumbers(std::vector<NumberInfo>{n});
     },
     R"(PhoneInfo="[{\"Phone\":\"13900000000\",\"Price\":50,\"UIM\":null}]")"},
    {"the customer's address is not sent", [](Order& o) { o.customer().setAddress("天河"); }, "天河", false},
    {"the consignee's address is", [](Order& o) { o.setContactAddress(Value("天河")); }, R"(Address="天河")"},
    {"values as they stand go back as they came", [](Order& o) {
         o.agent().setName(Value(5));
         o.setContactTel(Value(13900000000L));
     },
     "AgentCTUserName=5:i32"},
    {"unset person texts as null", [](Order& o) { o.customer().setName(std::nullopt); }, "CTUserName=null"},
    {"city and district identifiers", [](Order& o) {
         Area city;
         city.setID(20);
         o.setCity(city);
     },
     "CTCityID=20:i32 CTAreaID=0:i32"},
    {"the installation address' title", [](Order& o) {
         Address a;
         a.setTitle(Value("体育西路103号"));
         o.setAddress(a);
     },
     R"(CTAddress="体育西路103号")"},
    {"a nested list JSON cannot hold is left out", [](Order& o) { o.setProducts(std::vector<ProductInfo>{product(1, Value(std::string("\xFF")), 0, 0)}); },
     "GoodsInfo", false},
};

TEST_F(Orders, TheOutgoingFormatsConditionsAndKinds) {
    for (const OutgoingCase& c : kOutgoing) {
        SCOPED_TRACE(c.name);
        Order order;
        c.fill(order);
        std::string params = submitted(*transport, order);
        EXPECT_EQ(params.find(c.expected) != std::string::npos, c.present) << params;
    }
    EXPECT_EQ(logLines[logLines.size() - 2].rfind("postCreateOrder: GoodsInfo left out: text is not valid UTF-8", 0), 0u);
}

TEST_F(Orders, SubmissionDoublesTheFlag) {
    for (bool success : {true, false}) {
        reply("postCreateOrder", success, "M", R"({"ID":6001})");
        test::Calls<bool> calls;
        Order::postOrderInfo(Order(), 1, 7, [&](bool ok, std::optional<std::string> m, bool flag) { calls.calls.push_back({ok, m, flag}); });
        EXPECT_EQ(calls.only().success, success);
        EXPECT_EQ(calls.only().result, success);
    }
}

const test::RequestCase kListing[] = {
    {"status 0, no keywords", [] { Order::listWithStatus(0, 1, 7, std::nullopt, 1, ignore<DataPage<Order>>()); },
     HTTPMethod::GET, "getOrders", "companyid=1:i32 userid=7:i32 p=1:i32"},
    {"status 5, empty keywords sent", [] { Order::listWithStatus(5, 1, 7, "", 2, ignore<DataPage<Order>>()); },
     HTTPMethod::GET, "getOrders", R"(companyid=1:i32 userid=7:i32 status=5:u64 keyword="" p=2:i32)"},
    {"keywords as they are", [] { Order::listWithStatus(ULONG_MAX, 1, 7, "张 三&", 0, ignore<DataPage<Order>>()); },
     HTTPMethod::GET, "getOrders", R"(companyid=1:i32 userid=7:i32 status=18446744073709551615:u64 keyword="张 三&" p=0:i32)"},
};

TEST_F(Orders, ListingParameters) { test::expectRequests(*transport, kListing); }

TEST_F(Orders, OneBadOrderFailsThePage) {
    reply("getOrders", true, "M", R"({"count":2,"data":[{"ID":1,"Amount":5},{"ID":2,"Amount":null}]})");
    test::Calls<DataPage<Order>> calls;
    Order::listWithStatus(0, 1, 7, std::nullopt, 1, calls.callback());
    EXPECT_FALSE(calls.only().success);
    EXPECT_EQ(calls.only().message, "getOrders: data[1].Amount: null has no float value");
}

const char* kSharedOrder = R"({"CTAddress":"old","PlanInfo":[{"PlanID":7,"PlanName":"p"}],"ReceiptArr":[{"ID":1,"SN":"s"}]})";

// The ways copies of an order share what they hold: a write through one, seen
// through the other.
struct SharedWrite {
    const char* name;
    void (*write)(Order&);
    std::string (*read)(const Order&);
};
const SharedWrite kSharedWrites[] = {
    {"the installation address", [](Order& o) { Address a = *o.address(); a.setTitle("new"); },
     [](const Order& o) { return show(o.address()->title()); }},
    {"the plan", [](Order& o) { PlanInfo p = *o.plan(); p.setID(8); }, [](const Order& o) { return std::to_string(o.plan()->ID()); }},
    {"the plan item", [](Order& o) { PlanItem p = *o.planItem(); p.setName("q"); }, [](const Order& o) { return show(o.planItem()->name()); }},
    {"a receipt", [](Order& o) { Dictionary r = o.receipts()->front().raw(); r.set("SN", "t"); },
     [](const Order& o) { return show(o.receipts()->front().SN()); }},
    {"the dictionary", [](Order& o) { Dictionary r = *o.raw(); r.set("Remarks", "r"); }, [](const Order& o) { return writeJSON(o.raw()->valueOrNull("Remarks")); }},
};

// Copies share as the copied fields share, whenever the copy is made: before
// the order's first use, after it, or of an order read at once.
TEST(OrderCopies, ShareWhatTheirFieldsShare) {
    enum class When { beforeFirstUse, afterFirstUse, readAtOnce };
    for (const SharedWrite& w : kSharedWrites)
    for (When when : {When::beforeFirstUse, When::afterFirstUse, When::readAtOnce}) {
        SCOPED_TRACE(std::string(w.name) + ", copied at " + std::to_string(static_cast<int>(when)));
        Dictionary reply = dict(kSharedOrder);
        Order original(when == When::readAtOnce ? reply.mutableCopy() : reply);
        if (when == When::afterFirstUse) (void)original.ID();
        Order copy = original;
        std::string before = w.read(copy);
        w.write(original);
        EXPECT_NE(w.read(copy), before);
        EXPECT_EQ(w.read(copy), w.read(original));
        Order unrelated(dict(kSharedOrder));
        EXPECT_EQ(w.read(unrelated), before) << "another reading of the same text shares nothing";
    }
}

// An order read from a reply waits for its first use; a write to the reply
// (anywhere in it) reads it first, so its fields keep the values they had.
TEST(OrderCopies, AReplysFirstWriteReadsItsOrdersFirst) {
    Dictionary reply = dict(R"({"data":[{"CTAddress":"a","ReceiptArr":[{"SN":"s"}]},{"CTAddress":"b"}]})");
    Array rows = reply.valueOrNull("data").asArray();
    Order first(rows[0].asDictionary()), second(rows[1].asDictionary());
    Order moved = Order(rows[1].asDictionary());
    EXPECT_EQ(show(first.address()->title()), "\"a\"");  // first use: read now
    Dictionary element = rows[1].asDictionary();
    element.set("CTAddress", "changed");
    EXPECT_EQ(show(second.address()->title()), "\"b\"");
    EXPECT_EQ(show(moved.address()->title()), "\"b\"");
    Order later(element);
    EXPECT_EQ(show(later.address()->title()), "\"changed\"") << "an order made after the write reads it";

    Dictionary receipt = first.receipts()->front().raw();
    receipt.set("SN", "t");
    EXPECT_EQ(show(first.receipts()->front().SN()), "\"t\"") << "a receipt keeps the reply's own element";
    // A written reply may hold another's containers, whose writes it never
    // sees: an order made from it is read at once.
    Dictionary goods = dict(R"({"GoodsInfo":[{"GoodsID":3}]})");
    element.set("GoodsInfo", goods.valueOrNull("GoodsInfo"));
    Order mixed(element);
    Dictionary(goods.valueOrNull("GoodsInfo").asArray()[0].asDictionary()).set("GoodsID", 4);
    EXPECT_EQ(mixed.products()->front().ID(), 3);
    Order empty = std::move(first);
    EXPECT_EQ(first.address(), std::nullopt) << "a moved-from order reads as a new one";
    EXPECT_TRUE(first.customer().isEmpty());
}

// Threads reading one order for the first time, while another writes its
// reply: each read sees the order's values, and the write waits for none.
TEST(OrderCopies, FirstUseOnManyThreadsWhileTheReplyIsWritten) {
    for (int round = 0; round < 20; ++round) {
        Dictionary reply = dict(R"({"CTAddress":"a","SN":"s","GoodsInfo":[{"GoodsID":3}]})");
        const Order order(reply);
        std::atomic<int> right{0};
        std::vector<std::thread> readers;
        for (int t = 0; t < 4; ++t)
            readers.emplace_back([&] { right += order.SN() == std::optional<std::string>("s") && order.products()->front().ID() == 3; });
        Dictionary writer = reply;
        writer.set("SN", "written");
        for (std::thread& t : readers) t.join();
        EXPECT_EQ(right.load(), 4);
        EXPECT_EQ(order.SN(), std::optional<std::string>("s"));
    }
}

TEST(OrderStatus, Names) {
    const std::pair<unsigned long, const char*> names[] = {{0, "全部"},      {1, "已提交订单"}, {2, "未知状态"}, {3, "退回修改"},
                                                          {4, "成功订单"},  {5, "待收银"},     {6, "未知状态"}, {9, "未知状态"},
                                                          {10, "失败订单"}, {11, "未知状态"},  {ULONG_MAX, "未知状态"}};
    for (auto [code, name] : names) EXPECT_EQ(stringOfOrderStatusName(code), name) << code;
}

} // namespace
} // namespace veltrane
