// Cancellation, deadlines and retries: a screen's calls join its CallGroup
// through a CallScope; closing the screen cancels them, each completion then
// running once with "<api>: cancelled". A group's timeout bounds every call.
// Retries are the transport's, for GETs only.
#include <veltrane/Veltrane.h>

#include <cstdio>

using namespace veltrane;

int main() {
    auto transport = std::make_shared<MemoryTransport>();
    transport->setDeferred(true);  // the server never answers until deliver()
    Server::setTransport(transport);

    CallGroup screen;
    screen.setTimeout(std::chrono::seconds(8));
    std::optional<std::string> pageMessage, ordersMessage;
    {
        CallScope scope(screen);  // calls started on this thread now join the screen's group
        NumberInfo::listWithCompany(1, 2, 0, 0, std::nullopt, 1, [&](bool, auto message, auto) { pageMessage = message; });
        Order::listWithStatus(0, 1, 7, std::nullopt, 1, [&](bool, auto message, auto) { ordersMessage = message; });
    }
    std::printf("under way: %zu\n", screen.pending());
    screen.cancel();  // the screen closes
    std::printf("%s\n%s\n", pageMessage.value_or("?").c_str(), ordersMessage.value_or("?").c_str());
    std::printf("delivered later: %zu\n", transport->deliver());  // nothing is answered twice

    // Over HTTP, GETs may be retried after a dropped connection or a 502, 503,
    // 504 or 429; a POST is never sent twice. Off unless asked for:
    HTTPTransportOptions options;
    options.retry = {/*maxAttempts*/ 3, std::chrono::milliseconds(200), std::chrono::seconds(2)};
    options.timeout = std::chrono::seconds(15);
    HTTPTransport::install(options);
    return pageMessage == "getPhonePages: cancelled" && ordersMessage == "getOrders: cancelled" ? 0 : 1;
}
