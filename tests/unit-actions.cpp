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
    {"an order with nobody signed in",
     [] {
         Account::signOut();
         ActionFormOrder::post(Value(5), ignore<ActionFormOrderSubmitResult>());
     },
     HTTPMethod::POST, "postCreateOrder", R"(userid=0:i64 companyid=0:i64 data="5")"},
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

TEST_F(Actions, SubmissionsLogTheirJSON) {
    Account::signIn(User(7, 1, "gz"));
    ActionFormOrder::post(Value(true), ignore<ActionFormOrderSubmitResult>());
    ActionFormOrder::postUpdateData(Value(Array{1}), ignore<Value>());
    AutoFormOrder::postOrderWithJsonObject(Value(2), ignore<Value>());
    EXPECT_EQ(logLines, (std::vector<std::string>{"posting data to create order:\ntrue", "post update data:\n[1]"}));
}

// A value JSON cannot hold ends every submission before any request, once,
// with the writer's message.
TEST_F(Actions, WhatJSONCannotHoldIsNeverSent) {
    const std::pair<const char*, Value> values[] = {
        {"NaN", Value(Dictionary{{"Amount", std::nan("")}})},
        {"infinity", Value(Array{Value(HUGE_VAL)})},
        {"text that is not UTF-8", Value(Dictionary{{"CustomerName", std::string("\xE5\xBC")}})},
    };
    using Submit = std::function<void(const Value&, test::Calls<Value>&)>;
    const std::pair<const char*, Submit> submissions[] = {
        {"post", [](const Value& v, test::Calls<Value>& c) {
             ActionFormOrder::post(v, [&c](bool ok, std::optional<std::string> m, std::optional<ActionFormOrderSubmitResult> r) {
                 c.calls.push_back({ok, std::move(m), r ? std::optional<Value>(Value(r->ID())) : std::nullopt});
             });
         }},
        {"postUpdateData", [](const Value& v, test::Calls<Value>& c) { ActionFormOrder::postUpdateData(v, c.callback()); }},
        {"postOrderWithJsonObject", [](const Value& v, test::Calls<Value>& c) { AutoFormOrder::postOrderWithJsonObject(v, c.callback()); }},
    };
    Account::signIn(User(7, 1, "gz"));
    for (const auto& [valueName, value] : values) {
        for (const auto& [submitName, submit] : submissions) {
            SCOPED_TRACE(std::string(submitName) + " of " + valueName);
            std::string writerMessage;
            try {
                writeJSON(value);
            } catch (const JSONError& e) {
                writerMessage = e.what();
            }
            ASSERT_FALSE(writerMessage.empty());
            transport->clear();
            logLines.clear();
            test::Calls<Value> calls;
            submit(value, calls);
            const auto& call = calls.only();
            EXPECT_FALSE(call.success);
            EXPECT_EQ(call.message, writerMessage);
            EXPECT_FALSE(call.result);
            EXPECT_TRUE(transport->requests().empty());
            EXPECT_TRUE(logLines.empty());
        }
    }
}

// ---- Reply handling ------------------------------------------------------------------

std::string names(const std::vector<Action>& actions) {
    std::string out;
    for (const Action& a : actions) out += a.name().value_or("-") + ",";
    return out;
}

TEST_F(Actions, TheMenuAndTheFormsCheckedOrStandard) {
    struct Case {
        const char* name;
        const char* data;  // nullptr for none
        const char* checked;
        const char* standard;
    } cases[] = {
        {"an array", R"([{"Name":"过户"},{"Name":"补换卡"}])", "T|M|过户,补换卡,", "T|M|过户,补换卡,"},
        {"a dictionary: its keys are no actions", R"({"Name":"过户"})", "F|服务器数据错误|-", "T|M|"},
        {"text", R"("x")", "F|服务器数据错误|-", "F|getActionList: a string cannot be enumerated|-"},
        {"no data", nullptr, "F|服务器数据错误|-", "T|M|-"},
    };
    auto show = [](const test::Calls<std::vector<Action>>& c) {
        const auto& call = c.only();
        return std::string(call.success ? "T" : "F") + "|" + call.message.value_or("-") + "|" + (call.result ? names(*call.result) : "-");
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::Calls<std::vector<Action>> checked, standard;
        reply("getActionList", true, "M", c.data ? c.data : "");
        Action::list(checked.callback());
        reply("getActionList", true, "M", c.data ? c.data : "");
        FormAction::listWithUserID(7, 1, [&](bool ok, std::optional<std::string> m, std::optional<std::vector<FormAction>> r) {
            std::optional<std::vector<Action>> asActions;
            if (r) {
                asActions.emplace();
                for (const FormAction& f : *r) asActions->emplace_back(Dictionary{{"Name", NSGuardNil(f.name())}});
            }
            standard.callback()(ok, std::move(m), std::move(asActions));
        });
        EXPECT_EQ(show(checked), c.checked);
        EXPECT_EQ(show(standard), c.standard);
    }
    // A form element that is not a dictionary: the checked reader lets the
    // exception out, the standard one drops the element.
    reply("getActionForm", true, "M", R"([{"key":"a"},"x"])");
    EXPECT_THROW(ActionFormItem::listItemsForAction(1, ignore<std::vector<ActionFormItem>>()), ValueError);
    reply("getActionForm", true, "M", R"([{"key":"a"},"x"])");
    test::Calls<std::vector<FormInput>> inputs;
    FormInput::listInputsWithAction(1, inputs.callback());
    ASSERT_TRUE(inputs.only().result);
    EXPECT_EQ(inputs.only().result->size(), 1u);
}

TEST_F(Actions, AcceptanceByTheBooleanOfTheData) {
    struct Case {
        bool success;
        const char* data;
        const char* expected;
    } cases[] = {
        {true, "true", "T|M|T"},    {true, "false", "T|M|F"}, {true, "0", "T|M|F"},  {true, R"("yes")", "T|M|T"},
        {true, nullptr, "T|M|F"},   {false, "true", "F|M|T"}, {true, "{}", "F|M|T"}, {true, "[]", "F|M|T"},
        {true, "null", "F|M|T"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.data ? c.data : "none");
        reply("chkOrderIsAccept", c.success, "M", c.data ? c.data : "");
        std::string got;
        ActionFormOrder::checkOrderIsAccepting("AF1", [&](bool ok, std::optional<std::string> m, bool accepting) {
            got = std::string(ok ? "T" : "F") + "|" + m.value_or("-") + "|" + (accepting ? "T" : "F");
        });
        EXPECT_EQ(got, c.expected);
    }
    transport->clear();
    EXPECT_THROW(ActionFormOrder::checkOrderIsAccepting(std::nullopt, test::kIgnoreFlag), std::invalid_argument);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(Actions, TheStatusUpdateAnswersAsTheGatewayDoes) {
    reply("postUpdateOrderStatus", false, "订单不存在: AF9", R"({"x":1})");
    test::Calls<Value> calls;
    ActionFormOrder::updateOrder("AF9", 4, std::nullopt, calls.callback());
    EXPECT_FALSE(calls.only().success);
    EXPECT_EQ(calls.only().message, "订单不存在: AF9");
    EXPECT_EQ(writeJSON(*calls.only().result), R"({"x":1})") << "the data too, failure or not";
}

TEST_F(Actions, SubmitResultsAndWholeOrders) {
    reply("postCreateOrder", true, "提交成功", R"({"ID":7003,"RecID":8003,"SN":"AF3","Path":"/r.pdf","Data":[{"ID":401}]})");
    test::Calls<ActionFormOrderSubmitResult> submitted;
    ActionFormOrder::post(Value(Dictionary()), submitted.callback());
    ASSERT_TRUE(submitted.only().result);
    EXPECT_EQ(submitted.only().result->recID(), 8003);
    EXPECT_EQ(submitted.only().result->agreements().size(), 1u);

    reply("postCreateOrder", true, "M", R"("x")");
    test::Calls<ActionFormOrderSubmitResult> refused;
    ActionFormOrder::post(Value(Dictionary()), refused.callback());
    EXPECT_EQ(refused.only().message, "postCreateOrder: a string is not a dictionary");

    // The whole order is read unguarded and handed on unconverted.
    reply("getOrderInfo", true, "M", R"({"orderInfo":"x","Records":{"a":1},"data":[1]})");
    test::Calls<AutoFormOrder> whole;
    AutoFormOrder::getOrderWithID(1, whole.callback());
    ASSERT_TRUE(whole.only().result);
    EXPECT_EQ(writeJSON(*whole.only().result->orderInfo()), R"("x")");
    EXPECT_EQ(writeJSON(*whole.only().result->records()), R"({"a":1})");
    EXPECT_EQ(writeJSON(*whole.only().result->actionList()), "[1]");
    EXPECT_FALSE(whole.only().result->receipts());
    reply("getOrderInfo", true, "M", "[]");
    EXPECT_THROW(AutoFormOrder::getOrderWithID(1, ignore<AutoFormOrder>()), ValueError);
}

TEST_F(Actions, TodaysOrdersDropABadElement) {
    reply("listTodayOrderList", true, "M", R"([{"SN":"AF1","Status":-2},"x",{"SN":"AF2"}])");
    test::Calls<std::vector<ActionFormOrder>> calls;
    ActionFormOrder::listTodaysOrders(calls.callback());
    ASSERT_TRUE(calls.only().result);
    ASSERT_EQ(calls.only().result->size(), 2u);
    EXPECT_EQ(calls.only().result->at(0).status(), -2);
    EXPECT_EQ(calls.only().result->at(1).SN(), "AF2");
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
    EXPECT_FALSE(none.raw());
    EXPECT_EQ(none.name(), std::nullopt);
    EXPECT_FALSE(none.isNew());
    EXPECT_EQ(none.ID(), 0);

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
    Dictionary info = dict(R"({"ID":"7001","SN":5,"CustomerName":"王芳","CreateTime":1763600000.5,"TemplateType":1,"Status":4294967295,"Amount":"20.5"})");
    ActionFormOrder order(info);
    EXPECT_EQ(order.ID(), 7001);
    EXPECT_EQ(order.SN(), "5");
    EXPECT_EQ(order.createTime(), 1763600000.5);
    EXPECT_EQ(order.status(), -1) << "32 bits, sign-extended";
    EXPECT_EQ(order.price(), 20.5f);
    info.set("Status", 5);
    EXPECT_EQ(order.status(), 5);
}

TEST_F(Actions, HistoryStatusNames) {
    const std::pair<const char*, const char*> cases[] = {
        {"0", "回收站"}, {"1", "待处理"}, {"2", "转社区"}, {"3", "退回"},   {"4", "已完结"}, {"5", "转收银"},
        {"6", "退回(社区)"}, {"7", "无资源"}, {"8", "竣工"}, {"9", " "},      {"10", "销单"},  {"11", ""},
        {"-1", ""},        {"\"4\"", "已完结"}, {"null", "回收站"}, {"4294967300", "已完结"},
    };
    for (auto [status, name] : cases) {
        SCOPED_TRACE(status);
        EXPECT_EQ(ActionFormOrderRecord(dict(std::string(R"({"Status":)") + status + "}")).statusName(), name);
    }
    logLines.clear();
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
    reply("getOrderInfo", true, "M", kDetail);
    test::Calls<ActionFormOrderDetail> calls;
    ActionFormOrderDetail::getDetailOfOrder(7001, calls.callback());
    ASSERT_TRUE(calls.only().result) << calls.only().message.value_or("");
    const ActionFormOrderDetail& d = *calls.only().result;
    EXPECT_EQ(d.order().SN(), "AF1");
    EXPECT_EQ(d.order().getAllActionsName(), "过户 补换卡 ");
    EXPECT_FALSE(d.info().contains("ActionList")) << "the server's info stays as it came";
    EXPECT_FALSE(d.order().raw().isSame(d.info()));
    EXPECT_EQ(d.forms()->size(), 2u);
    EXPECT_EQ(d.forms()->at(0).filledInfo().optString("AccountNumber"), "13312345678");
    EXPECT_EQ(d.receipts()->size(), 1u) << "a bad receipt dropped";
    EXPECT_EQ(d.signedReceipts()->at(0).signPath(), "/s.pdf");
    EXPECT_EQ(d.records()->at(1).statusName(), "转收银");
    EXPECT_EQ(d.crmInfo().customerName(), "王芳");
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
