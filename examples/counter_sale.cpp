// A counter sale through Veltrane: sign in, choose a number and lock it,
// choose a device and a plan item, submit the order (which takes the lock
// over), and find it in the dealer's list.
//
//   counter_sale http://127.0.0.1:8080      (a dealer server, or `veltrane sandbox`)
#include <veltrane/Veltrane.h>

#include <cstdio>
#include <string>

using namespace veltrane;

// Prints why a step failed and gives the exit status.
static int failed(const char* api, const std::optional<std::string>& message) {
    std::fprintf(stderr, "%s failed: %s\n", api, message.value_or("").c_str());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: counter_sale SERVER_URL\n");
        return 2;
    }
    std::printf("Veltrane %s\n", VELTRANE_VERSION_STRING);
    setLogSink({});  // the library's log (masked) is not this tool's output
    HTTPTransport::install();
    Server::setAddress(argv[1]);
    const int32_t company = 1, user = 7;
    Account::signIn(User(user, company, "gz_tianhe_07"));

    // Completions run on the transport's thread; a command-line tool waits for them.
    auto numbers = await<DataPage<NumberInfo>>([&](auto done) { NumberInfo::listWithCompany(company, 2, 0, 0, std::nullopt, 1, done); });
    if (!numbers.success || !numbers.result->data() || numbers.result->data()->empty()) return failed("getPhonePages", numbers.message);
    NumberInfo number = numbers.result->data()->front();
    std::string phone(number.phoneNumber()->asString());

    auto devices = await<DataPage<ProductInfo>>([&](auto done) { ProductInfo::listForCompany(company, 1, std::nullopt, done); });
    if (!devices.success || !devices.result->data() || devices.result->data()->empty()) return failed("getGoodsPages", devices.message);
    ProductInfo device = devices.result->data()->front();
    device.setSerial(Value("861234567890126"));  // the IMEI scanned at the counter
    device.setDealPrice(device.price());

    auto plans = await<std::vector<PlanInfo>>([&](auto done) { PlanInfo::listWithCompany(company, done); });
    if (!plans.success || !plans.result || plans.result->empty()) return failed("getPlanList", plans.message);
    auto items = await<std::vector<PlanItem>>([&](auto done) { PlanItem::listWithCompany(company, plans.result->front().ID(), std::nullopt, done); });
    if (!items.success || !items.result || items.result->empty()) return failed("getPlanProjectPages", items.message);

    auto locked = awaitFlag([&](auto done) { NumberInfo::lockPhoneNumber(phone, company, done); });
    if (!locked.success) return failed("postLockPhone", locked.message);
    std::printf("number %s locked\n", stringFormattedAsPhoneNumber(phone).c_str());

    Order order;
    order.setType(1);
    order.setNumbers(std::vector<NumberInfo>{number});
    order.setProducts(std::vector<ProductInfo>{device});
    order.setPlan(plans.result->front());
    order.setPlanItem(items.result->front());
    order.customer().setName(Value("林小满"));
    order.customer().setIdCardNumber(Value("440106199001011234"));
    order.setContactTel(Value(phone));
    order.setRemarks(Value("counter_sale example"));
    order.setDealPrice(order.totalPrice());
    auto submitted = awaitFlag([&](auto done) { Order::postOrderInfo(order, company, user, done); });
    if (!submitted.success) return failed("postCreateOrder", submitted.message);
    std::printf("order submitted for %.0f yuan: %s\n", order.dealPrice(), submitted.message.value_or("").c_str());

    auto listed = await<DataPage<Order>>([&](auto done) { Order::listWithStatus(0, company, user, phone, 1, done); });
    if (!listed.success || !listed.result->data() || listed.result->data()->empty()) return failed("getOrders", listed.message);
    const Order& newest = listed.result->data()->front();
    std::printf("listed: %s, %s, %s\n", newest.SN().value_or("?").c_str(), describeOrNull(newest.typeName()).c_str(),
                newest.createTime() ? newest.createTime()->iso8601().c_str() : "?");
    return 0;
}
