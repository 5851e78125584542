/// @file
/// The reply handling that every class operation shares. Each function below
/// takes the caller's completion and returns a Handler; get() and post() send
/// the request through Server and read its reply with that handler, so that an
/// operation is its parameters plus one line naming how its reply is read.
///
/// Common to all: a gateway failure gives (false, the gateway's message,
/// nothing), the message unchanged. A guarded handler turns an exception
/// raised while converting the reply into (false, "<API name>: <the
/// exception's description>", nothing) — the description says which key and
/// element failed ("getPhonePages: data[3].Rank: null has no integer value")
/// — and an exception from the caller's own completion into (false, its
/// description, nothing): so a completion that throws is called a second
/// time, with false. Unguarded handlers let either exception leave the
/// completion, to the transport that delivered the reply.
/// No handler moves the completion to another thread.
#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/ListConversion.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Value.h"
#include "veltrane/foundation/Server.h"

namespace veltrane::reply {

/// Whether a handler is guarded (see the top of this file).
enum class Guard { off, on };

/// Reads one reply of api: the gateway's (flag, message, data).
using Handler = std::function<void(const std::string& api, bool ok, std::optional<std::string> message, std::optional<Value> data)>;

/// Sends a GET or POST request for api and reads its reply with handler.
///@{
void get(const std::string& api, Parameters params, Handler handler);
void post(const std::string& api, Parameters params, Handler handler);
///@}

/// What a conversion hands to the caller's completion.
template <class T>
struct Delivery {
    bool success;                        ///< the completion's flag
    std::optional<std::string> message;  ///< its message
    std::optional<T> result;             ///< its result
};

/// The dictionary a record is built from: absent data reads as an empty
/// dictionary (every field at its default); any other kind throws ValueError.
///@{
inline Dictionary dictionaryOf(const Value* data) {
    return data ? data->asDictionary() : Dictionary();
}
inline Dictionary dictionaryOf(const std::optional<Value>& data) { return dictionaryOf(data ? &*data : nullptr); }
///@}

/// The skeleton of every handler: failure path, then the conversion
/// convert(message, data) -> Delivery<T>, then the caller's completion.
template <class T, class Convert>
Handler handle(ResultCallback<T> callback, Guard guard, Convert convert) {
    return [callback = std::move(callback), guard, convert = std::move(convert)](
               const std::string& api, bool ok, std::optional<std::string> message, std::optional<Value> data) {
        if (!ok) {
            callback(false, std::move(message), std::nullopt);
            return;
        }
        if (guard == Guard::off) {
            Delivery<T> d = convert(message, data);
            callback(d.success, std::move(d.message), std::move(d.result));
            return;
        }
        std::optional<Delivery<T>> d;
        try {
            d = convert(message, data);
        } catch (const std::exception& e) {
            callback(false, api + ": " + e.what(), std::nullopt);
            return;
        }
        try {
            callback(d->success, std::move(d->message), std::move(d->result));
        } catch (const std::exception& e) {
            callback(false, std::string(e.what()), std::nullopt);
        }
    };
}

/// The records of data's elements, by the tolerant list conversion (see
/// arrayByConvertElementsUsingBlock).
template <class R>
std::vector<R> convertElements(const Value& data) {
    return arrayByConvertElementsUsingBlock(data, makeRecord<R>);
}

/// Tolerant list: every element through arrayByConvertElementsUsingBlock (bad
/// elements are logged and dropped; a dictionary is walked by its keys; a
/// scalar or null fails). Absent data gives success with nothing.
template <class R>
Handler convertList(ResultCallback<std::vector<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& message, auto& data) {
        return Delivery<std::vector<R>>{true, message, data ? std::optional(convertElements<R>(*data)) : std::nullopt};
    });
}

/// Tolerant list of data that must be an array; anything else gives
/// (false, failureMessage, nothing).
template <class R>
Handler convertListOrFail(ResultCallback<std::vector<R>> callback, std::string failureMessage, Guard guard) {
    return handle(std::move(callback), guard, [failureMessage = std::move(failureMessage)](auto& message, auto& data) {
        if (!data || !data->isArray()) return Delivery<std::vector<R>>{false, failureMessage, std::nullopt};
        return Delivery<std::vector<R>>{true, message, convertElements<R>(*data)};
    });
}

/// Tolerant list where JSON null data means an empty list.
template <class R>
Handler convertListNullIsEmpty(ResultCallback<std::vector<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& message, auto& data) {
        if (data && data->isNull()) return Delivery<std::vector<R>>{true, message, std::vector<R>()};
        return Delivery<std::vector<R>>{true, message, data ? std::optional(convertElements<R>(*data)) : std::nullopt};
    });
}

/// Tolerant list of array data; any other data is a success with nothing.
template <class R>
Handler convertListNonArrayIsNothing(ResultCallback<std::vector<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& message, auto& data) {
        if (data && data->isArray()) return Delivery<std::vector<R>>{true, message, convertElements<R>(*data)};
        return Delivery<std::vector<R>>{true, message, std::nullopt};
    });
}

/// Strict list: every element becomes a record in order and one bad element
/// fails the whole call. Absent data is an empty list. Elements for which skip
/// returns true are left out.
template <class R>
std::vector<R> strictElements(const Value& data, const std::function<bool(const Value&)>& skip = {}) {
    std::vector<R> records;
    size_t index = 0;
    forEachElement(data, [&](const Value& element) {
        locatedAtElement("", index++, [&] {
            if (!skip || !skip(element)) records.push_back(R(element.asDictionary()));
        });
    });
    return records;
}

/// Strict list (see strictElements) of the data; absent data is an empty list.
template <class R>
Handler loopList(ResultCallback<std::vector<R>> callback, std::function<bool(const Value&)> skip = {}) {
    return handle(std::move(callback), Guard::on, [skip = std::move(skip)](auto& message, auto& data) {
        return Delivery<std::vector<R>>{true, message, data ? strictElements<R>(*data, skip) : std::vector<R>()};
    });
}

/// Strict list of data that must be an array; anything else gives
/// (false, failureMessage, nothing), the gateway's message dropped. Unguarded:
/// a bad element's ValueError leaves the completion.
template <class R>
Handler checkedList(ResultCallback<std::vector<R>> callback, std::string failureMessage) {
    return handle(std::move(callback), Guard::off, [failureMessage = std::move(failureMessage)](auto& message, auto& data) {
        if (!data || !data->isArray()) return Delivery<std::vector<R>>{false, failureMessage, std::nullopt};
        return Delivery<std::vector<R>>{true, message, strictElements<R>(*data)};
    });
}

/// Strict list of data that must be an array; any other data is an empty list.
template <class R>
Handler loopListNonArrayIsEmpty(ResultCallback<std::vector<R>> callback) {
    Handler strict = loopList<R>(std::move(callback));
    return [strict = std::move(strict)](const std::string& api, bool ok, std::optional<std::string> message, std::optional<Value> data) {
        if (ok && (!data || !data->isArray())) data = Value(Array());
        strict(api, ok, std::move(message), std::move(data));
    };
}

/// A page of records from the paging envelope.
template <class R>
Handler page(ResultCallback<DataPage<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& message, auto& data) {
        return Delivery<DataPage<R>>{true, message, DataPage<R>(dictionaryOf(data), makeRecord<R>)};
    });
}

/// One record built from the data.
template <class R>
Handler oneRecord(ResultCallback<R> callback, Guard guard = Guard::on) {
    return handle(std::move(callback), guard,
                  [](auto& message, auto& data) { return Delivery<R>{true, message, R(dictionaryOf(data))}; });
}

/// One record from data that must be a dictionary; anything else gives
/// (false, the gateway's message, nothing). Unguarded.
template <class R>
Handler oneRecordOfDictionary(ResultCallback<R> callback) {
    return handle(std::move(callback), Guard::off, [](auto& message, auto& data) {
        if (data && data->isDictionary()) return Delivery<R>{true, message, R(data->asDictionary())};
        return Delivery<R>{false, message, std::nullopt};
    });
}

/// A record under "data" when the data's integer "code" is not 0; a code of 0
/// is a success with nothing.
template <class R>
Handler codedRecord(ResultCallback<R> callback) {
    return handle(std::move(callback), Guard::on, [](auto& message, auto& data) {
        Dictionary reply = dictionaryOf(data);
        if (reply.optInt("code") == 0) return Delivery<R>{true, message, std::nullopt};
        return Delivery<R>{true, message, locatedAt("data", [&] { return R(dictionaryOf(reply.find("data"))); })};
    });
}

/// A value sent as one parameter of compact JSON text. When JSON cannot hold
/// it (NaN, an infinity, text that is not UTF-8) the completion gets (false,
/// the writer's message, nothing) at once and the result is nothing: the
/// caller then sends no request.
template <class T>
std::optional<std::string> jsonParameter(const Value& value, const ResultCallback<T>& callback) {
    try {
        return writeJSON(value);
    } catch (const JSONError& e) {
        callback(false, std::string(e.what()), std::nullopt);
        return std::nullopt;
    }
}

/// The value under key of the data, as it stands.
Handler field(ResultCallback<Value> callback, std::string key);

/// (flag, message, data) unchanged, on failure too.
Handler passThrough(ResultCallback<Value> callback);

/// The data on success, nothing on failure.
Handler dataOnSuccess(ResultCallback<Value> callback);

/// (flag, message, flag); the data is dropped.
Handler flag(FlagCallback callback);

/// Logs the data, then (flag, message, boolean reading of the data; absent is
/// false). Data without a boolean reading, or a completion that throws, gives
/// (false, the gateway's message, true).
Handler booleanOfData(FlagCallback callback);

} // namespace veltrane::reply
