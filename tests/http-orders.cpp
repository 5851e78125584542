// Orders against the sandbox: a counter sale submitted, found again by its
// customer and read back field by field; a resubmission; the server's
// refusals of malformed nested lists; the status filter.
#include "veltrane/orders/Order.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

class OrdersOverHTTP : public test::SandboxTest {
protected:
    static Order sale(const char* customerName) {
        Order order;
        order.setType(1);
        ProductInfo phone;
        phone.setID(101);
        phone.setName("青岚 Q60 Pro 12GB+512GB 雅川青");
        phone.setSerial("861234567890126");
        phone.setPrice(6999);
        phone.setDealPrice(6500);
        order.setProducts(std::vector<ProductInfo>{phone});
        NumberInfo number;
        number.setPhoneNumber("13922223333");
        number.setPrefund(50);
        number.setUIM("89860310000000100001");
        order.setNumbers(std::vector<NumberInfo>{number});
        PlanItem item;
        item.setID(11);
        item.setName("5G畅享129元套餐");
        order.setPlanItem(item);
        order.customer().setName(customerName);
        order.customer().setIdCardNumber("440106199001011234");
        Area city, district;
        city.setID(20);
        district.setID(2001);
        order.setCity(city);
        order.setArea(district);
        Address address;
        address.setTitle("广州市天河区体育西路103号");
        order.setAddress(address);
        order.setContactName(customerName);
        order.setContactTel("13912345678");
        order.setDealPrice(6550);
        order.setInstallDate(Date::dateWithTimeIntervalSince1970(1763604000));
        return order;
    }

    static Outcome<DataPage<Order>> list(unsigned long status, std::optional<std::string> keyword, int32_t page = 1) {
        return await<DataPage<Order>>([&](auto done) { Order::listWithStatus(status, 1, 7, keyword, page, done); });
    }

    static FlagOutcome submit(const Order& order) {
        return awaitFlag([&](auto done) { Order::postOrderInfo(order, 1, 7, done); });
    }

    // The one order of customerName, newest first; fails the test when there
    // is not exactly one.
    static std::optional<Order> find(const char* customerName) {
        auto page = list(0, customerName);
        EXPECT_TRUE(page.success) << page.message.value_or("");
        if (!page.success || page.result->data()->size() != 1) {
            ADD_FAILURE() << "orders of " << customerName << ": " << (page.success ? page.result->data()->size() : 0);
            return std::nullopt;
        }
        return page.result->data()->front();
    }
};

// Every field the two formats share, on one line.
std::string shared(const Order& o) {
    auto t = [](const std::optional<Value>& v) { return v ? describe(*v) : std::string("-"); };
    const ProductInfo& goods = o.products()->front();
    const NumberInfo& number = o.numbers()->front();
    return std::to_string(o.type()) + " " + t(o.typeName()) + " | " + t(o.customer().name()) + " " + t(o.customer().idCardNumber()) + " " +
           t(o.customer().idCardPhotoFrontUrl()) + " " + t(o.agent().name()) + " | " + t(o.contactName()) + " " + t(o.contactTel()) + " | " +
           o.address()->title().value_or("-") + " " + t(o.city()->title()) + " " + t(o.area()->title()) + " | " +
           std::to_string(static_cast<long>(o.installDate()->timeIntervalSince1970())) + " " + std::to_string(o.dealPrice()) + " | " +
           std::to_string(goods.ID()) + " " + t(goods.serial()) + " " + std::to_string(goods.price()) + " " + std::to_string(goods.dealPrice()) +
           " | " + t(number.phoneNumber()) + " " + std::to_string(number.prefund()) + " | " + std::to_string(o.planItem()->ID()) + " " +
           o.plan()->name().value_or("-") + " | " + std::to_string(o.receipts()->size()) + " " + std::to_string(o.raw()->optLong("ReferenceAmount"));
}

TEST_F(OrdersOverHTTP, ASaleComesBackAsItWasSubmitted) {
    auto before = std::time(nullptr);
    auto sent = submit(sale("欧阳 倩"));
    ASSERT_TRUE(sent.success) << sent.message.value_or("");
    EXPECT_EQ(sent.message, "订单提交成功");
    auto read = find("欧阳 倩");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->SN(), "SN20261121" + std::to_string(read->ID()));
    EXPECT_GE(read->createTime()->timeIntervalSince1970(), static_cast<double>(before));
    // Unset texts go as empty values and come back as null: unset in the
    // customer's text reading, null as it stands for the agent. The goods'
    // prices travel crossed: the deal price goes as "ReferencePrice", which
    // comes back as the price, and the other way. The reference amount is
    // the total of deal prices and prefunds.
    EXPECT_EQ(shared(*read), "1 新装 | 欧阳 倩 440106199001011234 - null | 欧阳 倩 13912345678 | 广州市天河区体育西路103号 广州市 天河区 | "
                             "1763604000 6550.000000 | 101 861234567890126 6500.000000 6999.000000 | 13922223333 50.000000 | "
                             "11 5G畅享129元套餐 | 1 6550");
}

TEST_F(OrdersOverHTTP, AnOrderSentAgainReplacesItself) {
    ASSERT_TRUE(submit(sale("司马 光")).success);
    auto first = find("司马 光");
    ASSERT_TRUE(first);

    Order changed = *first;
    changed.setProducts(std::nullopt);
    changed.setRemarks("客户改为只办号卡");
    changed.setDealPrice(129);
    auto sent = submit(changed);
    ASSERT_TRUE(sent.success) << sent.message.value_or("");
    EXPECT_EQ(sent.message, "订单已重新提交");

    auto again = find("司马 光");
    ASSERT_TRUE(again);
    EXPECT_EQ(again->ID(), first->ID());
    EXPECT_EQ(again->SN(), first->SN());
    EXPECT_FALSE(again->products());
    EXPECT_EQ(again->remarks()->asString(), "客户改为只办号卡");
    EXPECT_EQ(again->dealPrice(), 129);

    changed.setID(99999999);
    EXPECT_EQ(submit(changed).message, "订单不存在: 99999999");
}

TEST_F(OrdersOverHTTP, MalformedNestedListsAreRefusedByName) {
    struct {
        const char* key;
        const char* json;
        const char* message;
    } cases[] = {
        {"GoodsInfo", "[]", "参数格式错误: GoodsInfo 应为非空数组"},
        {"GoodsInfo", R"({"GoodsID":1})", "参数格式错误: GoodsInfo 应为非空数组"},
        {"GoodsInfo", "[5]", "参数格式错误: GoodsInfo[0] 应为对象"},
        {"GoodsInfo", R"([{"GoodsID":1,"GoodsName":"x","ReferencePrice":1,"Price":1}])", "缺少参数: GoodsInfo[0].IMEI"},
        {"GoodsInfo", R"([{"GoodsID":1.5,"GoodsName":"x","IMEI":null,"ReferencePrice":1,"Price":1}])", "参数格式错误: GoodsInfo[0].GoodsID 应为整数"},
        {"GoodsInfo", R"([{"GoodsID":1,"GoodsName":3,"IMEI":null,"ReferencePrice":1,"Price":1}])", "参数格式错误: GoodsInfo[0].GoodsName 应为文本"},
        {"GoodsInfo", R"([{"GoodsID":1,"GoodsName":"x","IMEI":null,"ReferencePrice":1,"Price":1,"Extra":0}])", "未知参数: GoodsInfo[0].Extra"},
        {"PlanInfo", R"([{"PlanID":1,"PlanName":"a"},{"PlanID":2,"PlanName":"b"}])", "参数格式错误: PlanInfo 应只有一个元素"},
        {"PhoneInfo", R"([{"Phone":"139","Price":"50","UIM":null}])", "参数格式错误: PhoneInfo[0].Price 应为整数"},
        {"PhoneInfo", "[{", "参数格式错误: PhoneInfo 应为JSON文本"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " " + c.json);
        Dictionary params{{"Type", 1}, {"CompanyID", 1}, {"UserID", 7}, {"CTCityID", 0}, {"CTAreaID", 0}, {"ReferenceAmount", 0}, {"Amount", 0}};
        for (const char* key : {"CTCardNumber", "CTPictureTails", "CTPictureHeads", "AgentCTUserName", "AgentCTAddress", "AgentCTCardNumber",
                                "AgentCTPictureTails", "AgentCTPictureHeads", "CTAddress", "Consignee", "Address", "Tel", "Remarks"})
            params.set(key, "");
        params.set("CTUserName", "拒收测试");
        params.set(c.key, c.json);
        auto reply = request(HTTPMethod::POST, "postCreateOrder", params);
        EXPECT_FALSE(reply.success);
        EXPECT_EQ(reply.message, c.message);
    }
    auto refused = list(0, "拒收测试");
    ASSERT_TRUE(refused.success);
    EXPECT_TRUE(refused.result->data()->empty()) << "a refused order was stored";
}

TEST_F(OrdersOverHTTP, TheStatusAndKeywordNarrowTheList) {
    const std::tuple<unsigned long, std::optional<std::string>, const char*> cases[] = {
        {3, std::nullopt, "SN20261118002:3,"},
        {0, "SN2026111", "SN20261119001:4,SN20261118002:3,SN20261118001:1,"},
        {0, "陈伟强", "SN20261118002:3,"},
        {1, "陈伟强", ""},
    };
    for (const auto& [status, keyword, expected] : cases) {
        SCOPED_TRACE(keyword.value_or("-"));
        auto page = list(status, keyword);
        std::string got;
        for (const Order& o : page.result.value_or(DataPage<Order>()).data().value_or(std::vector<Order>()))
            got += o.SN().value_or("-") + ":" + std::to_string(o.raw()->optLong("Status")) + ",";
        EXPECT_EQ(got, expected);
    }
}

} // namespace
} // namespace veltrane
