// Server and Account: process-wide state behind a mutex, read on every call.
#include "veltrane/foundation/Server.h"

#include <exception>
#include <mutex>

#include "veltrane/foundation/Log.h"

namespace veltrane {

namespace {
struct GatewayState {
    std::mutex mutex;
    std::shared_ptr<Transport> transport;
    std::string address;
    std::optional<User> user;
};
GatewayState& state() {
    static GatewayState s;
    return s;
}

void send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback callback) {
    std::shared_ptr<Call> call = Call::begin(api);
    std::shared_ptr<Transport> transport = Server::transport();
    if (!transport || call->isCancelled()) {
        if (call->finish()) callback(false, transport ? call->cancelledMessage() : std::string("no server transport installed"), std::nullopt);
        return;
    }
    GatewayCallback once = [call, callback = std::move(callback)](bool ok, std::optional<std::string> message, std::optional<Value> data) {
        if (call->finish()) callback(ok, std::move(message), std::move(data));
    };
    transport->sendCall(method, api, std::move(params), std::move(once), std::move(call));
}
} // namespace

void Transport::sendCall(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion, std::shared_ptr<Call> call) {
    call->onCancel([completion, weak = std::weak_ptr<Call>(call)] {
        std::shared_ptr<Call> c = weak.lock();
        if (!c) return;
        try {
            completion(false, c->cancelledMessage(), std::nullopt);
        } catch (const std::exception& e) {
            log("server reply to " + c->name() + ": completion raised: " + e.what());
        }
    });
    send(method, api, std::move(params), std::move(completion));
}

void Server::httpGet(const std::string& api, Parameters params, GatewayCallback callback) {
    send(HTTPMethod::GET, api, std::move(params), std::move(callback));
}

void Server::httpPost(const std::string& api, Parameters params, GatewayCallback callback) {
    send(HTTPMethod::POST, api, std::move(params), std::move(callback));
}

std::string Server::address() {
    std::lock_guard lock(state().mutex);
    return state().address;
}

void Server::setAddress(std::string address) {
    std::lock_guard lock(state().mutex);
    state().address = std::move(address);
}

void Server::setTransport(std::shared_ptr<Transport> transport) {
    std::lock_guard lock(state().mutex);
    state().transport = std::move(transport);
}

std::shared_ptr<Transport> Server::transport() {
    std::lock_guard lock(state().mutex);
    return state().transport;
}

std::optional<User> Account::getCurrentUser() {
    std::lock_guard lock(state().mutex);
    return state().user;
}

void Account::signIn(User user) {
    std::lock_guard lock(state().mutex);
    state().user = std::move(user);
}

void Account::signOut() {
    std::lock_guard lock(state().mutex);
    state().user.reset();
}

} // namespace veltrane
