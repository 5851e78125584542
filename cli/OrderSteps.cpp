// The demo's order steps: the sale filled in from what the earlier steps
// chose and submitted, then the dealer's orders listed page by page.
#include <cstdio>
#include <ctime>

#include "cli/Demo.h"
#include "veltrane/foundation/Boxing.h"
#include "veltrane/orders/Order.h"

namespace veltrane::cli {

namespace {

constexpr int32_t kCompany = 1;
constexpr int32_t kUser = 7;

// "2026-11-23" as the start of that day in China (UTC+8).
std::optional<Date> dayIn(const std::optional<std::string>& day) {
    std::tm t{};
    if (!day || std::sscanf(day->c_str(), "%d-%d-%d", &t.tm_year, &t.tm_mon, &t.tm_mday) != 3) return std::nullopt;
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return Date::dateWithTimeIntervalSince1970(static_cast<double>(timegm(&t)) - 8 * 3600);
}

std::string yuan(float amount) {
    char text[32];
    std::snprintf(text, sizeof text, "¥%.2f", amount);
    return text;
}

} // namespace

std::vector<Step> orderSteps() {
    return {
        {"Fill in the order and submit it", [](Sale& sale, Transcript& t) {
             if (!t.needs(sale.number && sale.device && sale.planItem, "a number, a device and a plan item")) return;
             if (!t.needs(sale.card.has_value(), "the customer's identity card")) return;
             Order order;
             order.setType(1);
             order.setNumbers(std::vector<NumberInfo>{*sale.number});
             ProductInfo device = *sale.device;
             device.setDealPrice(device.price() - 500);  // the billing option's discount
             order.setProducts(std::vector<ProductInfo>{device});
             order.setPlan(sale.plan);
             order.setPlanItem(sale.planItem);
             const IDCardInfo& card = *sale.card;
             Person& customer = order.customer();
             customer.setName(NSGuardNil(card.name()));
             customer.setAddress(NSGuardNil(card.address()));
             customer.setIdCardNumber(NSGuardNil(card.serial()));
             customer.setIdCardPhotoFrontUrl(NSGuardNil(card.frontCardImageUrl()));
             customer.setIdCardPhotoBackUrl(NSGuardNil(card.backCardImageUrl()));
             order.setCity(sale.city);
             order.setArea(sale.district);
             order.setAddress(sale.address);
             if (sale.installation) order.setInstallDate(dayIn(sale.installation->date()));
             order.setContactName(NSGuardNil(card.name()));
             order.setContactAddress(sale.address ? NSGuardNil(sale.address->title()) : Value());
             order.setContactTel(*sale.number->phoneNumber());
             order.setRemarks("柜台受理，客户自提");
             order.setDealPrice(order.totalPrice());
             auto submitted = awaitFlag([&](auto done) { Order::postOrderInfo(order, kCompany, kUser, done); });
             if (!submitted.success) return t.failed("postCreateOrder", submitted.message);
             t.line(text(customer.name()) + ": " + text(sale.number->phoneNumber()) + " + " + text(device.name()) + " + " +
                    text(sale.planItem->name()) + ", " + yuan(order.totalPrice()));
             t.line(text(submitted.message));
             sale.orderCustomer = customer.name();
         }},
        {"The dealer's orders, page by page", [](Sale& sale, Transcript& t) {
             for (int32_t page = 1;; ++page) {
                 auto orders = await<DataPage<Order>>([&](auto done) { Order::listWithStatus(0, kCompany, kUser, std::nullopt, page, done); });
                 if (!received(t, "getOrders", orders)) return;
                 t.line("page " + std::to_string(orders.result->currentPage()) + " of " + std::to_string(orders.result->totalPages()) + ":");
                 for (const Order& o : orders.result->data().value_or(std::vector<Order>())) {
                     bool ours = sale.orderCustomer && o.customer().name() == sale.orderCustomer && page == 1;
                     t.line(std::string(ours ? "→ " : "  ") + text(o.SN()) + "  " + stringOfOrderStatusName(o.raw()->optLong("Status")) + "  " +
                            text(o.customer().name()) + "  total " + yuan(o.totalPrice()) + ", charged " + yuan(o.dealPrice()));
                 }
                 if (page >= orders.result->totalPages()) break;
             }
         }},
    };
}

} // namespace veltrane::cli
