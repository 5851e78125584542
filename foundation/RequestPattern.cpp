// Sending a request with its reply handler, and the handlers that need no
// record type.
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane::reply {

namespace {
GatewayCallback bind(const std::string& api, Handler handler) {
    return [api, handler = std::move(handler)](bool ok, std::optional<std::string> message, std::optional<Value> data) {
        handler(api, ok, std::move(message), std::move(data));
    };
}
} // namespace

void get(const std::string& api, Parameters params, Handler handler) { Server::httpGet(api, std::move(params), bind(api, std::move(handler))); }

void post(const std::string& api, Parameters params, Handler handler) { Server::httpPost(api, std::move(params), bind(api, std::move(handler))); }

Handler field(ResultCallback<Value> callback, std::string key) {
    return handle(std::move(callback), Guard::on, [key = std::move(key)](auto& message, auto& data) {
        const Value* value = data ? data->asDictionary().find(key) : nullptr;
        return Delivery<Value>{true, message, value ? std::optional(*value) : std::nullopt};
    });
}

Handler passThrough(ResultCallback<Value> callback) {
    return [callback = std::move(callback)](const std::string&, bool ok, std::optional<std::string> message, std::optional<Value> data) {
        callback(ok, std::move(message), std::move(data));
    };
}

Handler dataOnSuccess(ResultCallback<Value> callback) {
    return [callback = std::move(callback)](const std::string&, bool ok, std::optional<std::string> message, std::optional<Value> data) {
        callback(ok, std::move(message), ok ? std::move(data) : std::nullopt);
    };
}

Handler flag(FlagCallback callback) {
    return [callback = std::move(callback)](const std::string&, bool ok, std::optional<std::string> message, std::optional<Value>) {
        callback(ok, std::move(message), ok);
    };
}

Handler booleanOfData(FlagCallback callback) {
    return [callback = std::move(callback)](const std::string&, bool ok, std::optional<std::string> message, std::optional<Value> data) {
        if (data) logValue("", *data);
        else log("(null)");
        try {
            callback(ok, message, data ? data->boolValue() : false);
        } catch (const std::exception&) {
            callback(false, message, true);
        }
    };
}

} // namespace veltrane::reply
