// The reply handlers that need no record type.
#include "foundation/RequestPattern.h"

namespace veltrane::reply {

GatewayCallback field(ResultCallback<Value> callback, std::string key) {
    return handle(std::move(callback), Guard::on, [key = std::move(key)](auto& cb, auto& message, auto& data) {
        const Value* value = data ? data->asDictionary().find(key) : nullptr;
        cb(true, message, value ? std::optional(*value) : std::nullopt);
    });
}

GatewayCallback dataOnSuccess(ResultCallback<Value> callback) {
    return [callback = std::move(callback)](bool ok, std::optional<std::string> message, std::optional<Value> data) {
        callback(ok, std::move(message), ok ? std::move(data) : std::nullopt);
    };
}

GatewayCallback flag(FlagCallback callback) {
    return [callback = std::move(callback)](bool ok, std::optional<std::string> message, std::optional<Value>) {
        callback(ok, std::move(message), ok);
    };
}

GatewayCallback booleanOfData(FlagCallback callback) {
    return [callback = std::move(callback)](bool ok, std::optional<std::string> message, std::optional<Value> data) {
        log(describeOrNull(data));
        try {
            callback(ok, message, data ? data->boolValue() : false);
        } catch (const std::exception&) {
            callback(false, message, true);
        }
    };
}

} // namespace veltrane::reply
