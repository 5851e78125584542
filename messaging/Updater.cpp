// The update check.
#include "veltrane/messaging/Updater.h"

#include <exception>
#include <optional>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/Number.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/PropertyList.h"

namespace veltrane {

namespace {

// A manifest whose items, first item or metadata is of the wrong kind.
struct WrongShape {
    const char* where;
};

// items[0].metadata, or nothing where the manifest has none of them.
std::optional<Dictionary> metadataOf(const Dictionary& manifest) {
    const Value* items = manifest.find("items");
    if (!items) return std::nullopt;
    if (!items->isArray()) throw WrongShape{"items"};
    if (items->asArray().empty()) return std::nullopt;
    const Value& first = items->asArray()[0];
    if (!first.isDictionary()) throw WrongShape{"items[0]"};
    const Value* metadata = first.asDictionary().find("metadata");
    if (!metadata) return std::nullopt;
    if (!metadata->isDictionary()) throw WrongShape{"items[0].metadata"};
    return metadata->asDictionary();
}

// Versions as numbers go up to 2^53, where doubles stop telling whole numbers apart.
constexpr double kLargestVersion = 9007199254740992.0;

// The leading decimal number of a version; 0 for none. A version is text or
// a number from 0 to 2^53; anything else (a date, data, a boolean, a negative,
// huge or non-finite number, a container) is of the wrong shape. kind is the
// property-list kind the value was read from, when known.
double versionNumber(const std::optional<Value>& version, std::optional<std::string> kind, const char* where) {
    if (!version) return 0;
    if (kind && *kind != "string" && *kind != "integer" && *kind != "real") throw WrongShape{where};
    if (std::optional<std::string_view> text = version->stringIf()) return leadingDouble(*text);
    double number = version->numberIf() ? version->numberIf()->doubleValue() : -1;
    if (number >= 0 && number <= kLargestVersion) return number;  // NaN fails both
    throw WrongShape{where};
}

// Compares the manifest with the running application: (newer, message).
std::pair<bool, std::string> compare(const Dictionary& manifest, const Dictionary& kinds) {
    std::optional<Dictionary> metadata = metadataOf(manifest);
    std::optional<Dictionary> metadataKinds = metadataOf(kinds);
    std::optional<Value> remote = metadata ? metadata->optValue("bundle-version") : std::nullopt;
    std::optional<Value> local = Bundle::mainBundle().infoDictionary().optValue("CFBundleShortVersionString");
    log("remote version : " + describeOrNull(remote) + ", local version : " + describeOrNull(local));
    std::optional<std::string> remoteKind = metadataKinds ? metadataKinds->optString("bundle-version") : std::nullopt;
    bool newer = versionNumber(remote, remoteKind, "bundle-version") > versionNumber(local, std::nullopt, "CFBundleShortVersionString");
    std::optional<Value> note = metadata ? metadata->optValue("note") : std::nullopt;
    return {newer, "Version " + describeOrNull(remote) + (note ? " \n " + describe(*note) : "")};
}

} // namespace

void Updater::checkWithPListURL(std::string url, UpdateCheckCompletion callback) {
    std::shared_ptr<Call> call = Call::begin("checkWithPListURL");
    // The answer goes to the main queue once: the check's, or the cancellation's at once.
    auto complete = [call, callback = std::move(callback)](bool newer, std::optional<std::string> message) {
        if (call->finish()) Dispatch::mainQueue().async([callback, newer, message = std::move(message)] { callback(newer, message); });
    };
    call->onCancel([complete, weak = std::weak_ptr<Call>(call)] {
        if (std::shared_ptr<Call> c = weak.lock()) complete(false, c->cancelledMessage());
    });
    if (call->isCancelled()) return;
    Dispatch::globalQueue([url = std::move(url), call, complete] {
        if (call->isCancelled()) return;
        Value kinds;
        std::string refusal;
        std::optional<Dictionary> manifest = dictionaryWithContentsOfURL(url, &kinds, call, &refusal);
        if (call->isCancelled()) return;
        if (!refusal.empty()) return complete(false, refusal);  // a request adapter stopped it: nothing was sent
        if (std::optional<Call::Clock::time_point> deadline = call->deadline(); deadline && Call::Clock::now() >= *deadline)
            return complete(false, call->expiredMessage());
        if (manifest) logValue("remote plist:", *manifest);
        else log("remote plist:(null)");
        if (!manifest) {
            log("dict is nil");
            return complete(false, std::nullopt);
        }
        try {
            auto [newer, message] = compare(*manifest, kinds.asDictionary());
            complete(newer, std::move(message));
        } catch (const WrongShape& wrong) {
            log(std::string("manifest of the wrong shape at ") + wrong.where);
            complete(false, std::nullopt);
        } catch (const std::exception& e) {  // out of memory: still an answer
            log(std::string("update check failed: ") + e.what());
            complete(false, std::nullopt);
        }
    });
}

} // namespace veltrane
