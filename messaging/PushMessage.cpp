// PushMessage's reading, the stored last identifier, and the poller.
#include "veltrane/messaging/PushMessage.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <typeindex>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/NotificationCenter.h"
#include "veltrane/platform/UserDefaults.h"

namespace veltrane {

std::atomic<bool> _running{false};

namespace {
constexpr const char* kLastMessageID = "LastMessageID";
constexpr std::chrono::nanoseconds kPollInterval{1'000'000'000};
} // namespace

PushMessage::PushMessage(const Dictionary& d)
    : ID_(d.longValue("ID")),
      Type_(d.optValue("Type")),
      ReceiverID_(d.intValue("ReceiverID")),
      Content_(d.optValue("Content")),
      CreateTime_(Date::dateWithTimeIntervalSince1970(d.doubleValue("CreateTime"))) {}

long PushMessage::lastMessageID() {
    std::optional<Value> stored = UserDefaults::standardUserDefaults().objectForKey(kLastMessageID);
    std::optional<Number> number = stored ? stored->numberIf() : std::nullopt;
    return number ? number->longValue() : 0;
}

void PushMessage::setLastMessageID(long ID) {
    UserDefaults& store = UserDefaults::standardUserDefaults();
    store.setObject(kLastMessageID, NSBoxLong(ID));
    store.synchronize();
}

void PushMessage::fetch(int32_t userID, long withLastMessageID, ResultCallback<std::vector<PushMessage>> callback) {
    Dictionary params{{"userID", NSBoxInt(userID)}, {"lastMessageID", NSBoxLong(withLastMessageID)}};
    reply::get("fetchPushMessage", std::move(params), reply::convertListNonArrayIsNothing<PushMessage>(std::move(callback)));
}

void PushMessage::start() {
    if (!_running.exchange(true)) loop();
}

void PushMessage::stop() { _running.store(false); }

void PushMessage::reset() { setLastMessageID(0); }

void PushMessage::loop() {
    if (!_running.load()) return;
    std::optional<User> user = Account::getCurrentUser();
    if (!user) {
        _running.store(false);
        return;
    }
    long last = lastMessageID();
    // Runs once per answer: the next poll is scheduled exactly once, whatever
    // the store or an observer does.
    fetch(static_cast<int32_t>(user->ID()), last, [last](bool ok, std::optional<std::string>, std::optional<std::vector<PushMessage>> batch) {
        if (ok && batch) {
            try {
                long highest = last;
                for (const PushMessage& m : *batch) highest = std::max(highest, m.ID());
                setLastMessageID(highest);
                NotificationCenter::defaultCenter().postNotificationName(PushMessageNotification, std::type_index(typeid(PushMessage)),
                                                                         UserInfo{{PushMessageKey, std::move(*batch)}});
            } catch (const std::exception& e) {
                log(std::string("push messages not delivered: ") + e.what());
            }
        }
        Dispatch::mainQueue().after(kPollInterval, loop);
    });
}

} // namespace veltrane
