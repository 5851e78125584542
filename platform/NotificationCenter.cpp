// The notification centre.
#include "veltrane/platform/NotificationCenter.h"

#include <algorithm>
#include <exception>

#include "veltrane/foundation/Log.h"

namespace veltrane {

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserverForName(std::string name, Observer block) {
    std::lock_guard lock(mutex_);
    Token token = nextToken_++;
    observers_.push_back({token, std::move(name), std::make_shared<const Observer>(std::move(block))});
    return token;
}

void NotificationCenter::removeObserver(Token token) {
    std::lock_guard lock(mutex_);
    std::erase_if(observers_, [&](const Registration& r) { return r.token == token; });
}

void NotificationCenter::postNotificationName(std::string name, std::any object, UserInfo userInfo) {
    std::vector<std::shared_ptr<const Observer>> targets;
    {
        std::lock_guard lock(mutex_);
        for (const Registration& r : observers_)
            if (r.name.empty() || r.name == name) targets.push_back(r.block);
    }
    const Notification notification{std::move(name), std::move(object), std::move(userInfo)};
    for (const auto& block : targets) {
        try {
            (*block)(notification);
        } catch (const std::exception& e) {
            log("notification observer raised: " + std::string(e.what()));
        }
    }
}

} // namespace veltrane
