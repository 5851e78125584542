/// @file
/// Named notifications with a sender and a user-information dictionary,
/// delivered synchronously, on the posting thread, to every observer of the name.
///
/// Thread rules: observers may be added, removed and notifications posted from
/// any thread at once. Observers run outside the centre's lock, so they may
/// post or remove observers themselves. An observer removed while a post is
/// already delivering may still receive that one notification.
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace veltrane {

/// What a notification carries, by key: values of any type (records, lists of
/// them, values of the JSON model), read back with std::any_cast.
using UserInfo = std::map<std::string, std::any, std::less<>>;

/// One notification, as observers receive it.
struct Notification {
    std::string name;   ///< what happened, e.g. "PushMessageNotification"
    std::any object;    ///< the sender
    UserInfo userInfo;  ///< what it carries
};

/// Delivers notifications to observers by name, on the posting thread.
class NotificationCenter {
public:
    /// Receives a notification.
    using Observer = std::function<void(const Notification&)>;
    /// Names a registration, for removeObserver.
    using Token = uint64_t;

    /// The process's center, where the library posts.
    static NotificationCenter& defaultCenter();

    /// Observes notifications named name (every notification when name is empty).
    Token addObserverForName(std::string name, Observer block);
    /// Ends a registration (nothing for an unknown token).
    void removeObserver(Token token);
    /// Delivers to the observers registered when the post begins, in the order
    /// they were added. An exception that leaves an observer is logged.
    void postNotificationName(std::string name, std::any object = {}, UserInfo userInfo = {});

private:
    struct Registration {
        Token token;
        std::string name;
        std::shared_ptr<const Observer> block;
    };
    std::mutex mutex_;
    std::vector<Registration> observers_;
    Token nextToken_ = 1;
};

} // namespace veltrane
