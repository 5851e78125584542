// The reply handling that every class operation shares. Each function below
// takes the caller's completion and returns the completion to hand to
// Server::httpGet/httpPost, so that an operation is its parameters plus one
// line naming how its reply is read.
//
// Common to all: a gateway failure gives (false, the gateway's message,
// nothing), the message unchanged. A guarded handler turns any exception of
// its success path, the caller's own completion included, into (false, the
// exception's description, nothing); so a completion that throws is called a
// second time, with false. Unguarded handlers let the exception leave the
// completion, to the transport that delivered the reply.
// No handler moves the completion to another thread.
#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Callbacks.h"
#include "foundation/DataPage.h"
#include "foundation/ListConversion.h"
#include "foundation/Log.h"
#include "foundation/JSON.h"
#include "foundation/Value.h"

namespace veltrane::reply {

enum class Guard { off, on };

// The dictionary a record is built from: absent data reads as an empty
// dictionary (every field at its default); any other kind throws ValueError.
inline Dictionary dictionaryOf(const Value* data) {
    return data ? data->asDictionary() : Dictionary();
}
inline Dictionary dictionaryOf(const std::optional<Value>& data) { return dictionaryOf(data ? &*data : nullptr); }

// The skeleton of every handler: failure path, then success inside the guard.
// success(callback, message, data) calls the callback itself.
template <class T, class Success>
GatewayCallback handle(ResultCallback<T> callback, Guard guard, Success success) {
    return [callback = std::move(callback), guard, success = std::move(success)](
               bool ok, std::optional<std::string> message, std::optional<Value> data) {
        if (!ok) {
            callback(false, std::move(message), std::nullopt);
            return;
        }
        if (guard == Guard::off) {
            success(callback, message, data);
            return;
        }
        try {
            success(callback, message, data);
        } catch (const std::exception& e) {
            callback(false, std::string(e.what()), std::nullopt);
        }
    };
}

template <class R>
std::vector<R> convertElements(const Value& data) {
    return arrayByConvertElementsUsingBlock(data, makeRecord<R>);
}

// Tolerant list: every element through arrayByConvertElementsUsingBlock (bad
// elements are logged and dropped; a dictionary is walked by its keys; a
// scalar or null fails). Absent data gives success with nothing.
template <class R>
GatewayCallback convertList(ResultCallback<std::vector<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& cb, auto& message, auto& data) {
        cb(true, message, data ? std::optional(convertElements<R>(*data)) : std::nullopt);
    });
}

// Tolerant list of data that must be an array; anything else gives
// (false, failureMessage, nothing).
template <class R>
GatewayCallback convertListOrFail(ResultCallback<std::vector<R>> callback, std::string failureMessage, Guard guard) {
    return handle(std::move(callback), guard, [failureMessage = std::move(failureMessage)](auto& cb, auto& message, auto& data) {
        if (!data || !data->isArray()) cb(false, failureMessage, std::nullopt);
        else cb(true, message, convertElements<R>(*data));
    });
}

// Tolerant list where JSON null data means an empty list.
template <class R>
GatewayCallback convertListNullIsEmpty(ResultCallback<std::vector<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& cb, auto& message, auto& data) {
        if (data && data->isNull()) cb(true, message, std::vector<R>());
        else cb(true, message, data ? std::optional(convertElements<R>(*data)) : std::nullopt);
    });
}

// Tolerant list of array data; any other data is a success with nothing.
template <class R>
GatewayCallback convertListNonArrayIsNothing(ResultCallback<std::vector<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& cb, auto& message, auto& data) {
        if (data && data->isArray()) cb(true, message, convertElements<R>(*data));
        else cb(true, message, std::nullopt);
    });
}

// Strict list: every element becomes a record in order and one bad element
// fails the whole call. Absent data is an empty list. Elements for which skip
// returns true are left out.
template <class R>
GatewayCallback loopList(ResultCallback<std::vector<R>> callback, std::function<bool(const Value&)> skip = {}) {
    return handle(std::move(callback), Guard::on, [skip = std::move(skip)](auto& cb, auto& message, auto& data) {
        std::vector<R> records;
        if (data) {
            forEachElement(*data, [&](const Value& element) {
                if (!skip || !skip(element)) records.push_back(R(element.asDictionary()));
            });
        }
        cb(true, message, std::move(records));
    });
}

// Strict list of data that must be an array; any other data is an empty list.
template <class R>
GatewayCallback loopListNonArrayIsEmpty(ResultCallback<std::vector<R>> callback) {
    GatewayCallback strict = loopList<R>(std::move(callback));
    return [strict = std::move(strict)](bool ok, std::optional<std::string> message, std::optional<Value> data) {
        if (ok && (!data || !data->isArray())) data = Value(Array());
        strict(ok, std::move(message), std::move(data));
    };
}

// A page of records from the paging envelope.
template <class R>
GatewayCallback page(ResultCallback<DataPage<R>> callback) {
    return handle(std::move(callback), Guard::on, [](auto& cb, auto& message, auto& data) {
        cb(true, message, DataPage<R>(dictionaryOf(data), makeRecord<R>));
    });
}

// One record built from the data.
template <class R>
GatewayCallback oneRecord(ResultCallback<R> callback, Guard guard = Guard::on) {
    return handle(std::move(callback), guard, [](auto& cb, auto& message, auto& data) { cb(true, message, R(dictionaryOf(data))); });
}

// One record from data that must be a dictionary; anything else gives
// (false, the gateway's message, nothing). Unguarded.
template <class R>
GatewayCallback oneRecordOfDictionary(ResultCallback<R> callback) {
    return handle(std::move(callback), Guard::off, [](auto& cb, auto& message, auto& data) {
        if (data && data->isDictionary()) cb(true, message, R(data->asDictionary()));
        else cb(false, message, std::nullopt);
    });
}

// A record under "data" when the data's integer "code" is not 0; a code of 0
// is a success with nothing.
template <class R>
GatewayCallback codedRecord(ResultCallback<R> callback) {
    return handle(std::move(callback), Guard::on, [](auto& cb, auto& message, auto& data) {
        Dictionary reply = dictionaryOf(data);
        if (reply.optInt("code") != 0) cb(true, message, R(dictionaryOf(reply.find("data"))));
        else cb(true, message, std::nullopt);
    });
}

// The value under key of the data, as it stands.
GatewayCallback field(ResultCallback<Value> callback, std::string key);

// The data on success, nothing on failure.
GatewayCallback dataOnSuccess(ResultCallback<Value> callback);

// (flag, message, flag); the data is dropped.
GatewayCallback flag(FlagCallback callback);

// Logs the data, then (flag, message, boolean reading of the data; absent is
// false). Data without a boolean reading, or a completion that throws, gives
// (false, the gateway's message, true).
GatewayCallback booleanOfData(FlagCallback callback);

} // namespace veltrane::reply
