// Business actions and action-form orders: the menu and form records with
// their keeping and writing rules, the order's action list, the detail, the
// history's status names, and every class operation's request and reply.
#include <cmath>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/orders/ActionFormOrderDetail.h"
#include "veltrane/orders/AutoFormOrder.h"
#include "veltrane/orders/FormAction.h"
#include "veltrane/orders/FormInput.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using test::dict;
using test::ignore;

class Actions : public test::GatewayTest {};

// ---- What each operation sends ----------------------------------------------------

const Value kOrder = parseJSON(R"({"CustomerName":"王芳","data":[{"action":{"ID":2},"fields":{"AccountNumber":"13312345678"}}]})");
const std::string kOrderText = R"("{\"CustomerName\":\"王芳\",\"data\":[{\"action\":{\"ID\":2},\"fields\":{\"AccountNumber\":\"13312345678\"}}]}")";
const std::string kPosted = "userid=7:i64 companyid=1:i64 data=" + kOrderText;
const std::string kPostedWhole = "userid=7:f64 companyid=1:f64 data=" + kOrderText;

const test::RequestCase kRequests[] = {
    {"the menu", [] { Action::list(ignore<std::vector<Action>>()); }, HTTPMethod::GET, "getActionList", "none"},
    {"a dealer's menu", [] { FormAction::listWithUserID(7, 1, ignore<std::vector<FormAction>>()); }, HTTPMethod::GET, "getActionList",
     "userid=7:i32 companyid=1:i32"},
    {"form inputs", [] { FormInput::listInputsWithAction(3, ignore<std::vector<FormInput>>()); }, HTTPMethod::GET, "getActionForm", "ID=3:i32"},
    {"form items", [] { ActionFormItem::listItemsForAction(-3, ignore<std::vector<ActionFormItem>>()); }, HTTPMethod::GET, "getActionForm",
     "ID=-3:i32"},
    {"an order: word-sized ids", [] { ActionFormOrder::post(kOrder, ignore<ActionFormOrderSubmitResult>()); }, HTTPMethod::POST,
     "postCreateOrder", kPosted.c_str()},
    {"an order as one object: ids as doubles", [] { AutoFormOrder::postOrderWithJsonObject(kOrder, ignore<Value>()); }, HTTPMethod::POST,
     "postCreateOrder", kPostedWhole.c_str()},
    {"today's orders", [] { ActionFormOrder::listTodaysOrders(ignore<std::vector<ActionFormOrder>>()); }, HTTPMethod::GET, "listTodayOrderList",
     "none"},
    {"acceptance", [] { ActionFormOrder::checkOrderIsAccepting("AF1", test::kIgnoreFlag); }, HTTPMethod::GET, "chkOrderIsAccept", R"(SN="AF1")"},
    {"update data", [] { ActionFormOrder::postUpdateData(parseJSON(R"({"SN":"AF1","Bandwidth":"500M"})"), ignore<Value>()); },
     HTTPMethod::POST, "postUpdateOrder", R"(data="{\"SN\":\"AF1\",\"Bandwidth\":\"500M\"}")"},
    {"status with remarks", [] { ActionFormOrder::updateOrder("AF1", 3, "资料不全", ignore<Value>()); }, HTTPMethod::POST,
     "postUpdateOrderStatus", R"(SN="AF1" Status=3:f64 Remarks="资料不全")"},
    {"status without remarks or SN", [] { ActionFormOrder::updateOrder(std::nullopt, -1, std::nullopt, ignore<Value>()); }, HTTPMethod::POST,
     "postUpdateOrderStatus", "Status=-1:f64"},
    {"detail: a 32-bit id", [] { ActionFormOrderDetail::getDetailOfOrder(7001, ignore<ActionFormOrderDetail>()); }, HTTPMethod::GET,
     "getOrderInfo", "orderid=7001:i32"},
    {"whole order: a double id", [] { AutoFormOrder::getOrderWithID(7001, ignore<AutoFormOrder>()); }, HTTPMethod::GET, "getOrderInfo",
     "orderid=7001:f64"},
};

TEST_F(Actions, ParametersAsTheServerExpectsThem) { test::expectRequests(*transport, kRequests); }

// A value JSON cannot hold ends every submission before any request, once,
// with the writer's message.
TEST_F(Actions, WhatJSONCannotHoldIsNeverSent) {
    const std::function<std::string(const Value&)> submissions[] = {
        [](const Value& v) {
            test::Calls<ActionFormOrderSubmitResult> c;
            ActionFormOrder::post(v, c.callback());
            return c.line([](const auto&) { return "result"; });
        },
        [](const Value& v) {
            test::Calls<Value> c;
            ActionFormOrder::postUpdateData(v, c.callback());
            return c.line(writeJSON);
        },
        [](const Value& v) {
            test::Calls<Value> c;
            AutoFormOrder::postOrderWithJsonObject(v, c.callback());
            return c.line(writeJSON);
        },
    };
    for (const Value& value : {Value(Dictionary{{"Amount", std::nan("")}})}) {
        std::string message;
        try {
            writeJSON(value);
        } catch (const JSONError& e) {
            message = e.what();
        }
        for (const auto& submit : submissions) {
            EXPECT_EQ(submit(value), "F|" + message + "|-");
            EXPECT_TRUE(transport->requests().empty());
            EXPECT_TRUE(logLines.empty());
        }
    }
}

// ---- Reply handling ------------------------------------------------------------------

template <class R>
std::string names(const std::vector<R>& records) {
    std::string out;
    for (const R& r : records) out += r.name().value_or("-") + ",";
    return out;
}

// The menu and the form items: a checked array; the dealer's menu and the
// form inputs: the standard, tolerant list.
TEST_F(Actions, CheckedAndStandardLists) {
    struct {
        const char* data;  // nullptr for none
        const char* checked, *standard;
    } cases[] = {
        {R"([{"Name":"过户"},{"Name":"补换卡"}])", "T|M|过户,补换卡,", "T|M|过户,补换卡,"},
        {R"({"Name":"过户"})", "F|服务器数据错误|-", "T|M|"},  // a dictionary's keys are no actions
        {R"("x")", "F|服务器数据错误|-", "F|getActionList: a string cannot be enumerated|-"},
        {nullptr, "F|服务器数据错误|-", "T|M|-"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data ? c.data : "none");
        test::Calls<std::vector<Action>> checked;
        test::Calls<std::vector<FormAction>> standard;
        reply("getActionList", true, "M", c.data ? c.data : "");
        Action::list(checked.callback());
        reply("getActionList", true, "M", c.data ? c.data : "");
        FormAction::listWithUserID(7, 1, standard.callback());
        EXPECT_EQ(checked.line(names<Action>), c.checked);
        EXPECT_EQ(standard.line(names<FormAction>), c.standard);
    }
    // A form element that is not a dictionary escapes the checked reader and
    // is dropped by the standard one.
    reply("getActionForm", true, "M", R"([{"key":"a"},"x"])");
    EXPECT_THROW(ActionFormItem::listItemsForAction(1, ignore<std::vector<ActionFormItem>>()), ValueError);
    reply("getActionForm", true, "M", R"([{"key":"a"},"x"])");
    test::Calls<std::vector<FormInput>> inputs;
    FormInput::listInputsWithAction(1, inputs.callback());
    EXPECT_EQ(inputs.line([](const auto& list) { return std::to_string(list.size()); }), "T|M|1");
}

TEST_F(Actions, RepliesOfTheOrderOperations) {
    // The status update hands on what the gateway says, data included.
    reply("postUpdateOrderStatus", false, "订单不存在: AF9", R"({"x":1})");
    test::Calls<Value> status;
    ActionFormOrder::updateOrder("AF9", 4, std::nullopt, status.callback());
    EXPECT_EQ(status.line(writeJSON), R"(F|订单不存在: AF9|{"x":1})");

    auto submitted = [](const ActionFormOrderSubmitResult& r) { return std::to_string(r.recID()) + "/" + std::to_string(r.agreements().size()); };
    reply("postCreateOrder", true, "提交成功", R"({"ID":7003,"RecID":8003,"SN":"AF3","Path":"/r.pdf","Data":[{"ID":401}]})");
    reply("postCreateOrder", true, "M", R"("x")");
    test::Calls<ActionFormOrderSubmitResult> good, bad;
    ActionFormOrder::post(Value(Dictionary()), good.callback());
    ActionFormOrder::post(Value(Dictionary()), bad.callback());
    EXPECT_EQ(good.line(submitted), "T|提交成功|8003/1");
    EXPECT_EQ(bad.line(submitted), "F|postCreateOrder: a string is not a dictionary|-");

    // Today's list drops a bad element.
    reply("listTodayOrderList", true, "M", R"([{"SN":"AF1","Status":-2},"x",{"SN":"AF2"}])");
    test::Calls<std::vector<ActionFormOrder>> today;
    ActionFormOrder::listTodaysOrders(today.callback());
    EXPECT_EQ(today.line([](const auto& list) {
        std::string out;
        for (const ActionFormOrder& o : list) out += o.SN().value_or("-") + ":" + std::to_string(o.status()) + ",";
        return out;
    }),
              "T|M|AF1:-2,AF2:0,");

    // The whole order is read unguarded and handed on unconverted.
    reply("getOrderInfo", true, "M", R"({"orderInfo":"x","Records":{"a":1},"data":[1]})");
    test::Calls<AutoFormOrder> whole;
    AutoFormOrder::getOrderWithID(1, whole.callback());
    EXPECT_EQ(whole.line([](const AutoFormOrder& o) {
        return describeOrNull(o.orderInfo()) + describeOrNull(o.records()) + describeOrNull(o.actionList()) + describeOrNull(o.receipts());
    }),
              R"(T|M|x{"a": 1}[1](null))");
    reply("getOrderInfo", true, "M", "[]");
    EXPECT_THROW(AutoFormOrder::getOrderWithID(1, ignore<AutoFormOrder>()), ValueError);
    transport->clear();
    EXPECT_THROW(ActionFormOrder::checkOrderIsAccepting(std::nullopt, test::kIgnoreFlag), std::invalid_argument);
    EXPECT_TRUE(transport->requests().empty());
}

// ---- The records ----------------------------------------------------------------------

TEST_F(Actions, KeepingAndWritingRules) {
    Dictionary caller = dict(R"({"ID":1,"Name":"过户","Price":20.5})");

    Action action(caller);
    action.setName("补换卡");
    EXPECT_EQ(caller.optString("Name"), "过户") << "Action keeps a copy";
    Action replaced;
    replaced.setRaw(caller);
    replaced.setID(9);
    EXPECT_EQ(caller.optInt("ID"), 1) << "and copies on setRaw";
    const struct {
        float written;
        const char* stored;
        float read;
    } prices[] = {{12.75f, "12:i64", 12}, {-0.5f, "0:i64", 0}, {-12.75f, "-12:i64", -12}, {NAN, "0:i64", 0},
                  {3e30f, "9223372036854775807:i64", 9223372036854775807.0f}};
    for (const auto& p : prices) {
        action.setPrice(p.written);
        EXPECT_EQ(test::typedParams(Dictionary{{"Price", *action.raw().find("Price")}}), std::string("Price=") + p.stored) << p.written;
        EXPECT_EQ(action.price(), p.read);
    }

    FormAction formAction(caller);
    formAction.setIsNew(true);
    EXPECT_FALSE(caller.contains("IsNew")) << "FormAction keeps a copy";
    formAction.setRaw(caller);
    formAction.setIsAuto(false);
    EXPECT_EQ(test::typedParams(Dictionary{{"IsAuto", *caller.find("IsAuto")}}), "IsAuto=0:i32") << "but setRaw keeps the argument itself";
    FormAction none;
    none.setName("x");
    none.setIsNew(true);
    EXPECT_TRUE(!none.raw() && !none.name() && !none.isNew()) << "no dictionary: writes dropped";

    FormInput input;
    input.setRequired(false);
    input.setKey("AccountNumber");
    EXPECT_EQ(writeJSON(input.raw()), R"({"required":"false","key":"AccountNumber"})");
    input.setRaw(caller);
    input.setLabel("业务号码");
    EXPECT_EQ(caller.optString("label"), "业务号码") << "FormInput's setRaw keeps the argument itself";
    input.setRaw(caller.immutableCopy());
    EXPECT_THROW(input.setRequired(true), ValueError);

    ActionFormItem item(caller);
    caller.set("placeholder", "请输入");
    EXPECT_EQ(item.placeholder(), "请输入") << "ActionFormItem reads the caller's very dictionary";
}

TEST_F(Actions, TheTwoReadingsOfRequired) {
    struct {
        const char* json;
        bool input, item;
    } cases[] = {
        {R"({"required":"true"})", true, true},  {R"({"required":true})", true, true},   {R"({"required":"True"})", false, true},
        {R"({"required":1})", false, true},       {R"({"required":"1"})", false, true},   {R"({"required":"yes"})", false, true},
        {R"({"required":"false"})", false, false}, {R"({"required":0})", false, false},   {"{}", false, false},
        {R"({"required":null})", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(FormInput(dict(c.json)).required(), c.input);
        EXPECT_EQ(ActionFormItem(dict(c.json)).required(), c.item);
    }
}

TEST_F(Actions, FormData) {
    ActionFormData full(dict(R"({"action":{"ID":2,"Name":"过户"},"ActionForm":[{"key":"a"},{"key":"b"}],"fields":{"a":"1"}})"));
    EXPECT_EQ(full.action().name(), "过户");
    ASSERT_TRUE(full.inputs());
    EXPECT_EQ(full.inputs()->at(1).key(), "b");
    EXPECT_EQ(writeJSON(full.filledInfo()), R"({"a":"1"})");

    ActionFormData bare(dict(R"({"ActionForm":{"key":"a"}})"));
    EXPECT_FALSE(bare.inputs());
    EXPECT_EQ(bare.action().ID(), 0);
    EXPECT_TRUE(bare.filledInfo().empty());
    try {
        ActionFormData bad(dict(R"({"ActionForm":[{"key":"a"},5]})"));
        ADD_FAILURE() << "no exception";
    } catch (const ValueError& e) {
        EXPECT_STREQ(e.what(), "ActionForm[1]: a number is not a dictionary");
    }
}

TEST_F(Actions, TheOrdersActionList) {
    struct {
        const char* list;  // the JSON under "ActionList", or nullptr for none
        const char* copied;
        std::optional<std::string> names;
    } cases[] = {
        {R"([{"Name":"A"},{"Name":"B"}])", "A,B,", "A B "},
        {R"([{"Name":"A"},"x",{"ID":2}])", "A,-,", "A (null) "},
        {R"([{"Name":null}])", "-,", "null "},
        {"[]", "nothing", ""},
        {R"(["a","b"])", "nothing", ""},
        {R"({"Name":"A"})", "nothing", std::nullopt},
        {nullptr, "nothing", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.list ? c.list : "none");
        Dictionary info = dict(R"({"SN":"AF1"})");
        if (c.list) info.set("ActionList", parseJSON(c.list));
        ActionFormOrder order(info);
        std::optional<std::vector<Action>> copied = order.copyActionList();
        EXPECT_EQ(copied ? names(*copied) : "nothing", c.copied);
        EXPECT_EQ(order.getAllActionsName(), c.names);
    }
}

TEST_F(Actions, AnOrderReadsItsDictionaryLive) {
    Dictionary info = dict(R"({"ID":"7001","Status":4294967295,"Amount":"20.5"})");
    ActionFormOrder order(info);
    EXPECT_EQ(std::to_string(order.ID()) + " " + std::to_string(order.status()) + " " + std::to_string(order.price()), "7001 -1 20.500000");
    info.set("Status", 5);
    EXPECT_EQ(order.status(), 5);
}

TEST_F(Actions, HistoryStatusNames) {
    const std::pair<const char*, const char*> cases[] = {
        {"0", "回收站"}, {"9", " "}, {"10", "销单"}, {"11", ""}, {"-1", ""}, {"\"4\"", "已完结"}, {"null", "回收站"}, {"4294967300", "已完结"},
    };
    for (auto [status, name] : cases) {
        SCOPED_TRACE(status);
        EXPECT_EQ(ActionFormOrderRecord(dict(std::string(R"({"Status":)") + status + "}")).statusName(), name);
    }
    logInClear();
    ActionFormOrderRecord record(dict(R"({"CreateTime":1763600000.9,"Remarks":"受理","UserName":"李晓明","CompanyName":"天河"})"));
    EXPECT_EQ(record.createTime().timeIntervalSince1970(), 1763600000) << "whole seconds";
    EXPECT_EQ(record.userName(), "李晓明");
    EXPECT_EQ(logLines, (std::vector<std::string>{describe(record.raw())}));
}

// ---- The detail ---------------------------------------------------------------------------

const char* kDetail = R"({"orderInfo":{"ID":7001,"SN":"AF1","CustomerName":"王芳"},
  "data":[{"action":{"ID":2,"Name":"过户"},"ActionForm":[{"key":"AccountNumber"}],"fields":{"AccountNumber":"13312345678"}},
          {"action":{"ID":3,"Name":"补换卡"}}],
  "Receipt":[{"ID":811,"SN":"AF1"},"x"],"Sign":[{"ID":812,"SignPath":"/s.pdf"}],
  "Records":[{"Status":1},{"Status":5}],"crmInfo":{"CustomerName":"王芳"}})";

TEST_F(Actions, TheDetailGathersTheFormsActions) {
    logInClear();
    reply("getOrderInfo", true, "M", kDetail);
    test::Calls<ActionFormOrderDetail> calls;
    ActionFormOrderDetail::getDetailOfOrder(7001, calls.callback());
    EXPECT_EQ(calls.line([](const ActionFormOrderDetail& d) {
        return d.order().SN().value_or("-") + "|" + d.order().getAllActionsName().value_or("-") + "|" + (d.info().contains("ActionList") ? "+" : "") +
               d.forms()->at(0).filledInfo().optString("AccountNumber").value_or("-") + "|" + std::to_string(d.receipts()->size()) + "|" +
               d.signedReceipts()->at(0).signPath().value_or("-") + "|" + d.records()->at(1).statusName() + "|" + d.crmInfo().customerName().value_or("-");
    }),
              "T|M|AF1|过户 补换卡 |13312345678|1|/s.pdf|转收银|王芳");  // the info without "ActionList"; a bad receipt dropped
    EXPECT_NE(std::find(logLines.begin(), logLines.end(), describe(dict(kDetail))), logLines.end()) << "the reply, logged";
}

TEST_F(Actions, TheDetailOfSparseAndBadReplies) {
    struct {
        const char* data;
        const char* expected;  // the order's SN and action names, or the failure message
    } cases[] = {
        {R"({"orderInfo":{"SN":"X"},"data":[{"action":{"Name":"A"}}]})", "X|A |lists:1,-,-,-"},
        {"{}", "-||lists:-,-,-,-"},
        {R"({"data":[{"action":null}],"Receipt":[],"Records":{}})", "-||lists:1,0,-,-"},
        {R"({"data":[{"action":{}},{"ActionForm":[]}]})", "getOrderInfo: data[1]: a form without \"action\""},
        {R"({"data":["x"]})", "getOrderInfo: data[0]: a string is not a dictionary"},
        {R"({"data":[{"action":{},"ActionForm":[1]}]})", "-|(null) |lists:0,-,-,-"},
        {"[]", "getOrderInfo: an array is not a dictionary"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data);
        reply("getOrderInfo", true, "M", c.data);
        test::Calls<ActionFormOrderDetail> calls;
        ActionFormOrderDetail::getDetailOfOrder(1, calls.callback());
        const auto& call = calls.only();
        if (!call.result) {
            EXPECT_EQ(call.message, c.expected);
            continue;
        }
        const ActionFormOrderDetail& d = *call.result;
        auto size = [](const auto& list) { return list ? std::to_string(list->size()) : std::string("-"); };
        EXPECT_EQ(d.order().SN().value_or("-") + "|" + d.order().getAllActionsName().value_or("?") + "|lists:" + size(d.forms()) + "," +
                      size(d.receipts()) + "," + size(d.signedReceipts()) + "," + size(d.records()),
                  c.expected);
    }
}

} // namespace
} // namespace veltrane
