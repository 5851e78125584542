// The demo's business action: the menu, one action's form, the form filled
// from the sale and submitted as an action-form order, its acceptance and
// status, today's orders, and the order read back whole with its history and
// the customer's card, number and address rebuilt from it.
#include "cli/Demo.h"
#include "veltrane/foundation/Boxing.h"
#include "veltrane/orders/ActionFormOrderDetail.h"
#include "veltrane/orders/FormAction.h"

namespace veltrane::cli {

namespace {

constexpr int32_t kUser = 7;
constexpr int32_t kCompany = 1;
constexpr int32_t kTransfer = 2;  // the menu's "过户" (a change of owner)

// The screens' order: the customer and number as scalars, and the filled
// form of the one action.
Value filledOrder(const Sale& sale) {
    const IDCardInfo& card = *sale.card;
    const NumberInfo& number = *sale.number;
    Dictionary fields{{"AccountNumber", NSGuardNil(number.phoneNumber())}, {"CustomerIdentity", NSGuardNil(card.serial())}};
    Dictionary order{{"CustomerName", NSGuardNil(card.name())},
                     {"CustomerIdentity", NSGuardNil(card.serial())},
                     {"CustomerAddress", NSGuardNil(card.address())},
                     {"CustomerPhotoFront", NSGuardNil(card.frontCardImageUrl())},
                     {"CustomerPhotoBack", NSGuardNil(card.backCardImageUrl())},
                     {"AccountNumber", NSGuardNil(number.phoneNumber())},
                     {"Price", NSBoxFloat(number.prefund())},
                     {"UimCode", NSGuardNil(number.UIM())},
                     {"AreaCode", "020"},
                     {"NumberTypeID", 5},
                     {"NumberTypeName", "移动电话"},
                     {"data", Array{Dictionary{{"action", Dictionary{{"ID", kTransfer}}}, {"fields", fields}}}}};
    if (sale.address) {
        order.set("AddressID", NSBoxInt(sale.address->ID()));
        order.set("AddressDesc", NSGuardNil(sale.address->title()));
        order.set("SiteID", NSBoxInt(sale.address->siteID()));
        order.set("SiteName", NSGuardNil(sale.address->siteName()));
    }
    return order;
}

} // namespace

std::vector<Step> actionSteps() {
    return {
        {"The business menu", [](Sale&, Transcript& t) {
             auto menu = await<std::vector<Action>>([](auto done) { Action::list(done); });
             if (!received(t, "getActionList", menu)) return;
             auto mine = await<std::vector<FormAction>>([](auto done) { FormAction::listWithUserID(kUser, kCompany, done); });
             if (!received(t, "getActionList", mine)) return;
             for (const Action& a : *menu.result) {
                 std::string flags;
                 for (const FormAction& f : *mine.result)
                     if (f.ID() == a.ID()) flags = std::string(f.isNew() ? "  新" : "") + (f.isAuto() ? "  自动" : "");
                 char price[32];
                 std::snprintf(price, sizeof price, "¥%.2f", a.price());
                 t.line("#" + std::to_string(a.ID()) + " " + text(a.name()) + " (" + text(a.typeName()) + ") " + price + " " +
                        text(a.backgroundColor()) + flags);
             }
         }},
        {"The form of a change of owner", [](Sale&, Transcript& t) {
             auto form = await<std::vector<ActionFormItem>>([](auto done) { ActionFormItem::listItemsForAction(kTransfer, done); });
             if (!received(t, "getActionForm", form)) return;
             for (const ActionFormItem& field : *form.result)
                 t.line(text(field.label()) + " [" + text(field.key()) + ", " + text(field.type()) + (field.required() ? ", required" : "") +
                        "] " + text(field.placeholder()));
         }},
        {"The form filled in and submitted", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.card && sale.number, "the customer's card and a number")) return;
             auto result = await<ActionFormOrderSubmitResult>([&](auto done) { ActionFormOrder::post(filledOrder(sale), done); });
             if (!received(t, "postCreateOrder", result)) return;
             const ActionFormOrderSubmitResult& r = *result.result;
             t.line(text(r.SN()) + " (order " + std::to_string(r.ID()) + "): " + text(result.message));
             t.line("receipt " + std::to_string(r.recID()) + " at " + text(r.path()) + ", " + std::to_string(r.agreements().size()) +
                    " agreements to sign");
             sale.actionOrder = r;
         }},
        {"Acceptance checked, the status moved on with a remark", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.actionOrder.has_value(), "the action-form order")) return;
             std::optional<std::string> SN = sale.actionOrder->SN();
             auto accepting = awaitFlag([&](auto done) { ActionFormOrder::checkOrderIsAccepting(SN, done); });
             if (!accepting.success) return t.failed("chkOrderIsAccept", accepting.message);
             t.line(std::string("still being accepted: ") + (accepting.flag ? "yes" : "no"));
             auto updated = await<Value>([&](auto done) { ActionFormOrder::updateOrder(SN, 5, "资料齐全，转收银", done); });
             if (!updated.success) return t.failed("postUpdateOrderStatus", updated.message);
             t.line("status 5 (转收银): " + text(updated.message));
             auto changed = await<Value>([&](auto done) {
                 ActionFormOrder::postUpdateData(Value(Dictionary{{"SN", NSGuardNil(SN)}, {"Remarks", "客户要求当天办结"}}), done);
             });
             if (!changed.success) return t.failed("postUpdateOrder", changed.message);
             t.line("remark added: " + text(changed.message));
         }},
        {"Today's action-form orders", [](Sale& sale, Transcript& t) {
             auto today = await<std::vector<ActionFormOrder>>([](auto done) { ActionFormOrder::listTodaysOrders(done); });
             if (!received(t, "listTodayOrderList", today)) return;
             for (const ActionFormOrder& o : *today.result) {
                 bool ours = sale.actionOrder && o.SN() == sale.actionOrder->SN();
                 char price[32];
                 std::snprintf(price, sizeof price, "¥%.2f", o.price());
                 t.line(std::string(ours ? "→ " : "  ") + text(o.SN()) + "  " + text(o.customerName()) + "  status " + std::to_string(o.status()) +
                        "  " + price);
             }
             if (today.result->empty()) t.line("none today");
         }},
        {"The order read back whole", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.actionOrder.has_value(), "the action-form order")) return;
             auto detail = await<ActionFormOrderDetail>([&](auto done) { ActionFormOrderDetail::getDetailOfOrder(sale.actionOrder->ID(), done); });
             if (!received(t, "getOrderInfo", detail)) return;
             const ActionFormOrderDetail& d = *detail.result;
             t.line(text(d.order().SN()) + ": " + text(d.order().getAllActionsName()) + "— " + text(d.info().optString("Remarks")));
             for (const ActionFormData& form : d.forms().value_or(std::vector<ActionFormData>()))
                 for (auto [key, value] : form.filledInfo()) t.line("  " + text(form.action().name()) + "." + std::string(key) + " = " + text(std::optional<Value>(value)));
             for (const ActionFormOrderRecord& r : d.records().value_or(std::vector<ActionFormOrderRecord>()))
                 t.line("  " + chinaTime(r.createTime(), "%m-%d %H:%M") + "  " + r.statusName() + "  " + text(r.userName()) + " (" + text(r.companyName()) + ") " +
                        text(r.remarks()));
             IDCardInfo card = IDCardInfo::loadFromActionOrderInfo(d.info());
             NumberInfo number = NumberInfo::loadFromActionOrderInfo(d.info());
             Address address = Address::loadFromActionOrderInfo(d.info());
             t.line("card rebuilt: " + text(card.name()) + " " + text(card.serial()));
             t.line("number rebuilt: " + text(number.phoneNumber()) + ", UIM " + text(number.UIM()));
             t.line("address rebuilt: " + text(address.title()) + " (" + text(address.siteName()) + ")");
             t.line("subscriber: " + text(d.crmInfo().customerName()) + " " + text(d.crmInfo().accountNumber()));
         }},
    };
}

} // namespace veltrane::cli
