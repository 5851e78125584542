/// @file
/// An action-form order handled as one opaque JSON object: submitted as the
/// screens built it and read back as the server sends it, its parts handed on
/// unconverted.
#pragma once

#include <optional>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// An action-form order handled as one opaque JSON object: submitted as the screens built it
/// and read back as the server sends it, its parts handed on unconverted.
class AutoFormOrder : public RawRecord {
public:
    /// Keeps the very dictionary given, as setRaw does.
    explicit AutoFormOrder(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::shared) {}
    /// Makes dictionary itself the one behind the record.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::shared); }

    /// The values as they stand, of whatever kind; nothing when absent.
    std::optional<Value> orderInfo() const { return raw_.optValue("orderInfo"); }
    /// "Records", as it stands.
    std::optional<Value> records() const { return raw_.optValue("Records"); }
    /// "Receipt", as it stands.
    std::optional<Value> receipts() const { return raw_.optValue("Receipt"); }
    /// "data", as it stands.
    std::optional<Value> actionList() const { return raw_.optValue("data"); }

    /// POST "postCreateOrder" with "userid" and "companyid" (the signed-in
    /// user's, as doubles; 0 when nobody is signed in) and "data", the order as
    /// compact JSON text; the reply passed through unchanged. When JSON cannot
    /// hold the order: (false, the writer's message, nothing), nothing sent.
    static void postOrderWithJsonObject(const Value& order, ResultCallback<Value> callback);

    /// GET "getOrderInfo" with "orderid" (a double): the order as it stands.
    /// Unguarded: data that is neither absent nor a dictionary throws
    /// ValueError out of the completion.
    static void getOrderWithID(long orderID, ResultCallback<AutoFormOrder> callback);
};

} // namespace veltrane
