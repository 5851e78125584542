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

// The leading decimal number of a version; 0 for none. A version that is
// neither text nor a number is of the wrong shape.
double versionNumber(const std::optional<Value>& version, const char* where) {
    if (!version) return 0;
    if (std::optional<std::string_view> text = version->stringIf()) return leadingDouble(*text);
    if (std::optional<Number> number = version->numberIf()) return number->doubleValue();
    throw WrongShape{where};
}

// Compares the manifest with the running application: (newer, message).
std::pair<bool, std::string> compare(const Dictionary& manifest) {
    std::optional<Dictionary> metadata = metadataOf(manifest);
    std::optional<Value> remote = metadata ? metadata->optValue("bundle-version") : std::nullopt;
    std::optional<Value> local = Bundle::mainBundle().infoDictionary().optValue("CFBundleShortVersionString");
    log("remote version : " + describeOrNull(remote) + ", local version : " + describeOrNull(local));
    bool newer = versionNumber(remote, "bundle-version") > versionNumber(local, "CFBundleShortVersionString");
    std::optional<Value> note = metadata ? metadata->optValue("note") : std::nullopt;
    return {newer, "Version " + describeOrNull(remote) + (note ? " \n " + describe(*note) : "")};
}

} // namespace

void Updater::checkWithPListURL(std::string url, UpdateCheckCompletion callback) {
    Dispatch::globalQueue([url = std::move(url), callback = std::move(callback)] {
        auto complete = [&callback](bool newer, std::optional<std::string> message) {
            Dispatch::mainQueue().async([callback, newer, message = std::move(message)] { callback(newer, message); });
        };
        std::optional<Dictionary> manifest = dictionaryWithContentsOfURL(url);
        log("remote plist:" + (manifest ? describe(*manifest) : std::string("(null)")));
        if (!manifest) {
            log("dict is nil");
            return complete(false, std::nullopt);
        }
        try {
            auto [newer, message] = compare(*manifest);
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
