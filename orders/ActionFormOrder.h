/// @file
/// An action-form order as listed: a live view on the server's very
/// dictionary (its "orderInfo"), with the class operations that submit,
/// list, check, update and re-status action-form orders.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"
#include "veltrane/orders/Action.h"
#include "veltrane/orders/ActionFormOrderSubmitResult.h"

namespace veltrane {

/// An action-form order as listed: a live view on the server's very dictionary (its
/// "orderInfo"), with the class operations that submit, list, check, update and re-status
/// action-form orders.
class ActionFormOrder : public RawRecord {
public:
    /// Keeps the very dictionary given.
    explicit ActionFormOrder(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::shared) {}

    /// "CustomerName", as text.
    std::optional<std::string> customerName() const { return text("CustomerName"); }
    /// "SN", as text.
    std::optional<std::string> SN() const { return text("SN"); }
    /// Seconds since 1970, as the server sends them.
    double createTime() const { return raw_.optDouble("CreateTime"); }
    /// "TemplateType", a 32-bit integer.
    int32_t templateType() const { return raw_.optInt("TemplateType"); }
    /// "ID", a 32-bit integer.
    int32_t ID() const { return raw_.optInt("ID"); }
    /// Read as 32 bits and sign-extended.
    long status() const { return raw_.optInt("Status"); }
    /// "Amount", a number.
    float price() const { return raw_.optFloat("Amount"); }

    /// The dictionaries of "ActionList" as actions, in order, other elements
    /// skipped; nothing when there is no such array or no action in it.
    std::optional<std::vector<Action>> copyActionList() const;
    /// The "Name" of every dictionary of "ActionList", each followed by one
    /// blank ("(null)" for one without a name): "过户 补换卡 ". Nothing when
    /// there is no such array.
    std::optional<std::string> getAllActionsName() const;

    /// POST "postCreateOrder" with "userid" and "companyid" (the signed-in
    /// user's, word-sized; 0 when nobody is signed in) and "data", the order as
    /// compact JSON text, logged first. When JSON cannot hold the order the
    /// completion gets (false, the writer's message, nothing) and nothing is
    /// sent. A reply becomes the submit result.
    static void post(const Value& order, ResultCallback<ActionFormOrderSubmitResult> callback);

    /// GET "listTodayOrderList" with no parameters: today's orders, a bad
    /// element dropped with its log line.
    static void listTodaysOrders(ResultCallback<std::vector<ActionFormOrder>> callback);

    /// GET "chkOrderIsAccept" with "SN": (flag, message, the boolean reading of
    /// the data; absent is false); data without one, or a completion that
    /// throws, gives (false, message, true). Without a serial number it throws
    /// std::invalid_argument at once and sends nothing.
    static void checkOrderIsAccepting(std::optional<std::string> SN, FlagCallback callback);

    /// POST "postUpdateOrder" with "data", the value as compact JSON text,
    /// logged first; the reply passed through unchanged. When JSON cannot hold
    /// the value: (false, the writer's message, nothing), nothing sent.
    static void postUpdateData(const Value& data, ResultCallback<Value> callback);

    /// POST "postUpdateOrderStatus" with "SN" (when given), "Status" (a double)
    /// and "Remarks" (when given); the gateway's answer goes to the completion
    /// as it is.
    static void updateOrder(std::optional<std::string> SN, long status, std::optional<std::string> withRemarks, ResultCallback<Value> callback);
};

} // namespace veltrane
