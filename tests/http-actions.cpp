// Business actions against the sandbox: the menu and forms as each record
// reads them, an action-form order through its whole lifecycle, the server's
// refusals of malformed orders, and the customer's records rebuilt from a
// real order's info.
#include "veltrane/catalogue/NumberInfo.h"
#include "veltrane/catalogue/OfferMember.h"
#include "veltrane/customer/Address.h"
#include "veltrane/customer/IDCardInfo.h"
#include "veltrane/orders/ActionFormOrderDetail.h"
#include "veltrane/orders/AutoFormOrder.h"
#include "veltrane/orders/FormAction.h"
#include "veltrane/orders/FormInput.h"
#include "support/SandboxTest.h"

namespace veltrane {
namespace {

class ActionsOverHTTP : public test::SandboxTest {
protected:
    static Outcome<ActionFormOrderSubmitResult> submit(const Value& order) {
        return await<ActionFormOrderSubmitResult>([&](auto done) { ActionFormOrder::post(order, done); });
    }
    static Outcome<ActionFormOrderDetail> detail(int32_t id) {
        return await<ActionFormOrderDetail>([&](auto done) { ActionFormOrderDetail::getDetailOfOrder(id, done); });
    }
    static FlagOutcome accepting(const std::string& SN) {
        return awaitFlag([&](auto done) { ActionFormOrder::checkOrderIsAccepting(SN, done); });
    }
};

// A change of owner (action 2), its required fields filled in.
Value transfer(const std::string& customer) {
    return parseJSON(R"({"CustomerName":")" + customer + R"(","CustomerIdentity":"440106199001011234","AccountNumber":"13312345678",
        "Price":50,"UimCode":"8986031234567890001","AreaCode":"020","NumberTypeID":5,"NumberTypeName":"移动电话",
        "AddressID":90003,"AddressDesc":"广州市越秀区北京路步行街188号","SiteID":511,"SiteName":"北京路局站",
        "data":[{"action":{"ID":2},"fields":{"AccountNumber":"13312345678","CustomerIdentity":"440106199001011234"}}]})");
}

TEST_F(ActionsOverHTTP, TheFormOfAnUnknownActionIsRefused) {
    auto form = await<std::vector<ActionFormItem>>([](auto done) { ActionFormItem::listItemsForAction(2, done); });
    ASSERT_TRUE(form.success);
    EXPECT_TRUE(form.result->at(1).required()) << "a JSON true";
    auto none = await<std::vector<ActionFormItem>>([](auto done) { ActionFormItem::listItemsForAction(99, done); });
    EXPECT_EQ(none.message, "业务不存在");
}

TEST_F(ActionsOverHTTP, AnOrderThroughItsLifecycle) {
    auto submitted = submit(transfer("欧阳 锋"));
    ASSERT_TRUE(submitted.success) << submitted.message.value_or("");
    const ActionFormOrderSubmitResult& r = *submitted.result;
    ASSERT_TRUE(r.SN());
    EXPECT_EQ(r.path(), "/receipts/" + *r.SN() + ".pdf");
    EXPECT_TRUE(r.isPreProcessAgreement());
    EXPECT_EQ(r.agreements().size(), 3u);

    auto today = await<std::vector<ActionFormOrder>>([](auto done) { ActionFormOrder::listTodaysOrders(done); });
    ASSERT_TRUE(today.success);
    ASSERT_FALSE(today.result->empty());
    const ActionFormOrder& listed = today.result->front();
    EXPECT_EQ(listed.SN(), r.SN()) << "the newest first";
    EXPECT_EQ(listed.customerName(), "欧阳 锋");
    EXPECT_EQ(listed.price(), 20) << "the action's price";
    for (const ActionFormOrder& o : *today.result) EXPECT_NE(o.SN(), "AF20261120001") << "an order of an earlier day";

    EXPECT_TRUE(accepting(*r.SN()).flag);
    auto returned = await<Value>([&](auto done) { ActionFormOrder::updateOrder(r.SN(), 3, "身份证照片模糊", done); });
    ASSERT_TRUE(returned.success) << returned.message.value_or("");
    EXPECT_FALSE(accepting(*r.SN()).flag) << "returned to the dealer";
    auto resumed = await<Value>([&](auto done) { ActionFormOrder::updateOrder(r.SN(), 5, std::nullopt, done); });
    ASSERT_TRUE(resumed.success);
    EXPECT_TRUE(accepting(*r.SN()).flag) << "at the cashier";

    auto changed = await<Value>([&](auto done) {
        ActionFormOrder::postUpdateData(parseJSON(R"({"SN":")" + *r.SN() + R"(","AccountNumber":"13312345679","Remarks":"号码改了"})"), done);
    });
    ASSERT_TRUE(changed.success) << changed.message.value_or("");

    auto whole = detail(static_cast<int32_t>(r.ID()));
    ASSERT_TRUE(whole.success) << whole.message.value_or("");
    const ActionFormOrderDetail& d = *whole.result;
    std::string history;
    for (const ActionFormOrderRecord& step : *d.records()) history += step.statusName() + ":" + step.remarks().value_or("") + ",";
    // The form's field follows the change; the history has a step per status.
    EXPECT_EQ(d.order().SN().value_or("-") + " " + std::to_string(d.order().status()) + " " + d.order().getAllActionsName().value_or("-") + "| " +
                  d.info().optString("Remarks").value_or("-") + " " + d.forms()->front().filledInfo().optString("AccountNumber").value_or("-") + " " +
                  std::to_string(d.forms()->front().inputs()->size()) + " " + std::to_string(d.receipts()->front().ID() == r.recID()) + " " +
                  std::to_string(d.signedReceipts()->size()) + " " + history + " " + d.records()->back().userName().value_or("-") + " " +
                  d.crmInfo().accountNumber().value_or("-"),
              *r.SN() + " 5 过户 | 号码改了 13312345679 2 1 0 待处理:受理,退回:身份证照片模糊,转收银:, 李晓明 13312345679");

    // The same order as one opaque object.
    auto opaque = await<AutoFormOrder>([&](auto done) { AutoFormOrder::getOrderWithID(r.ID(), done); });
    ASSERT_TRUE(opaque.success);
    EXPECT_EQ(opaque.result->orderInfo()->asDictionary().optString("SN"), r.SN());
}

TEST_F(ActionsOverHTTP, AnOrderAsOneObjectIsAcceptedToo) {
    auto sent = await<Value>([](auto done) { AutoFormOrder::postOrderWithJsonObject(transfer("司徒 南"), done); });
    ASSERT_TRUE(sent.success) << sent.message.value_or("");
    EXPECT_TRUE(sent.result->asDictionary().optString("SN"));
}

TEST_F(ActionsOverHTTP, UnknownOrdersAndMalformedOnesAreRefusedByName) {
    struct {
        const char* name;
        std::function<std::optional<std::string>()> call;
        const char* message;
    } cases[] = {
        {"detail of an unknown id", [] { return detail(424242).message; }, "订单不存在: 424242"},
        {"acceptance of an unknown SN", [] { return accepting("AF0").message; }, "订单不存在: AF0"},
        {"status of an unknown SN",
         [] { return await<Value>([](auto done) { ActionFormOrder::updateOrder("AF0", 1, std::nullopt, done); }).message; }, "订单不存在: AF0"},
        {"a status beyond the table",
         [] { return await<Value>([](auto done) { ActionFormOrder::updateOrder("AF20261121001", 11, std::nullopt, done); }).message; },
         "参数格式错误: Status 应为 0 到 10 的整数"},
        {"an update of an unknown SN",
         [] { return await<Value>([](auto done) { ActionFormOrder::postUpdateData(parseJSON(R"({"SN":"AF0"})"), done); }).message; },
         "订单不存在: AF0"},
        {"an update that would change the status",
         [] {
             return await<Value>([](auto done) { ActionFormOrder::postUpdateData(parseJSON(R"({"SN":"AF20261121001","Status":4})"), done); })
                 .message;
         },
         "不可修改: data.Status"},
        {"an order that is not an object", [] { return submit(parseJSON("[]")).message; }, "订单内容错误: data 应为对象"},
        {"an order without forms", [] { return submit(parseJSON(R"({"CustomerName":"x"})")).message; }, "订单内容错误: data.data 应为非空数组"},
        {"an unknown action", [] { return submit(parseJSON(R"({"data":[{"action":{"ID":9}}]})")).message; }, "业务不存在: data.data[0].action.ID = 9"},
        {"an action id that is no integer", [] { return submit(parseJSON(R"({"data":[{"action":{"ID":"2"}}]})")).message; },
         "订单内容错误: data.data[0].action.ID 应为整数"},
        {"a required field missing", [] { return submit(parseJSON(R"({"data":[{"action":{"ID":3},"fields":{"AccountNumber":"133"}}]})")).message; },
         "缺少必填项: data.data[0].fields.UimCode (新卡UIM)"},
        {"a required field empty", [] { return submit(parseJSON(R"({"data":[{"action":{"ID":3},"fields":{"AccountNumber":"","UimCode":"1"}}]})")).message; },
         "缺少必填项: data.data[0].fields.AccountNumber (业务号码)"},
        {"a container among the info", [] { return submit(parseJSON(R"({"Customer":{},"data":[{"action":{"ID":1}}]})")).message; },
         "订单内容错误: data.Customer 应为文本或数字"},
        {"the server's own key", [] { return submit(parseJSON(R"({"SN":"AF1","data":[{"action":{"ID":4},"fields":{"AccountNumber":"1","PlanItemID":1}}]})")).message; },
         "不可指定: data.SN"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.call(), c.message);
    }
}

TEST_F(ActionsOverHTTP, TheCustomersRecordsRebuiltFromARealOrder) {
    // The two seeded orders spell their address differently; a new one is
    // as the screens filled it.
    auto made = submit(transfer("上官 婉儿"));
    ASSERT_TRUE(made.success) << made.message.value_or("");
    struct {
        int32_t id;
        std::string card;     // name|identity|address|front
        std::string number;   // phone|prefund|UIM
        std::string address;  // ID|title|site ID|site name
        std::string member;   // accNbr|areaCode|prodId|prodSpecId|prodSpecName
    } cases[] = {
        {7001, "王芳|440104199001012345|广东省广州市越秀区北京路2号|/uploads/idcard/2-front.jpg", "13312345678|50|8986031234567890001",
         "90003|广州市越秀区北京路步行街188号|511|北京路局站", "13312345678|020|7001|5|移动电话"},
        {7002, "刘洋|440105199203034567|广州市海珠区江南大道中100号|-", "13711112222|0|8986031234567890077", "90005|广州市海珠区江南大道中100号|521|江南西局站",
         "13711112222|020|7002|0|手动输入"},
        {static_cast<int32_t>(made.result->ID()), "上官 婉儿|440106199001011234|-|-", "13312345678|50|8986031234567890001",
         "90003|广州市越秀区北京路步行街188号|511|北京路局站", "13312345678|020|" + std::to_string(made.result->ID()) + "|5|移动电话"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.id);
        auto d = detail(c.id);
        ASSERT_TRUE(d.success) << d.message.value_or("");
        const Dictionary& info = d.result->info();
        auto show = [](const auto& v) -> std::string {
            if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::optional<Value>>) return v ? (v->isString() ? std::string(v->asString()) : writeJSON(*v)) : "-";
            else return v.value_or("-");
        };
        IDCardInfo card = IDCardInfo::loadFromActionOrderInfo(info);
        EXPECT_EQ(show(card.name()) + "|" + show(card.serial()) + "|" + show(card.address()) + "|" + show(card.frontCardImageUrl()), c.card);
        NumberInfo number = NumberInfo::loadFromActionOrderInfo(info);
        char prefund[16];
        std::snprintf(prefund, sizeof prefund, "%g", number.prefund());
        EXPECT_EQ(show(number.phoneNumber()) + "|" + prefund + "|" + show(number.UIM()), c.number);
        Address address = Address::loadFromActionOrderInfo(info);
        EXPECT_EQ(std::to_string(address.ID()) + "|" + show(address.title()) + "|" + std::to_string(address.siteID()) + "|" + show(address.siteName()),
                  c.address);
        OfferMember member = OfferMember::loadFromActionFormOrder(info);
        EXPECT_EQ(show(member.accountNumber()) + "|" + show(member.areaCode()) + "|" + show(member.productID()) + "|" +
                      show(member.productSpecID()) + "|" + show(member.productSpecName()),
                  c.member);
    }
}

} // namespace
} // namespace veltrane
