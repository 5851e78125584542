// The request journal.
#include "sandbox/Journal.h"

#include <algorithm>

#include "sandbox/Store.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/PersonalData.h"

namespace veltrane::sandbox {

Journal::Journal(bool revealPersonalData, Store* store) : reveal_(revealPersonalData), store_(store) {
    if (store_) last_ = store_->lastEntry();
}

Dictionary Journal::shown(long number, const JournalEntry& e) const {
    // A reply that is JSON is shown as JSON text, masked like the parameters.
    std::string reply = e.reply;
    if (!reveal_) {
        try {
            reply = writeJSON(maskPersonalValue(parseJSON(e.reply)));
        } catch (const JSONError&) {
            reply = maskPersonalText(e.reply);  // cut short, or not JSON at all
        }
    }
    return Dictionary{{"entry", number},
                      {"time", e.time},
                      {"method", e.method},
                      {"api", e.api},
                      {"params", reveal_ ? Value(e.params) : maskPersonalValue(e.params)},
                      {"status", e.status},
                      {"replyBytes", static_cast<long>(e.replyBytes)},
                      {"reply", reply},
                      {"applied", e.applied ? Value(*e.applied) : Value()},
                      {"ms", e.milliseconds}};
}

long Journal::add(JournalEntry entry) {
    if (entry.reply.size() > kReplyKept) entry.reply.resize(kReplyKept);
    std::lock_guard lock(mutex_);
    long number = ++last_;
    if (store_) store_->append(shown(number, entry));
    kept_.emplace_back(number, std::move(entry));
    if (kept_.size() > kKept) kept_.pop_front();
    return number;
}

Array Journal::entries(const JournalQuery& q) const {
    size_t limit = std::clamp<size_t>(q.limit, 1, kKept);
    if (store_) return store_->journal(q.api, q.after, q.sinceTime, limit);  // it has them all
    std::lock_guard lock(mutex_);
    auto matches = [&](const std::pair<long, JournalEntry>& e) {
        return e.first > q.after.value_or(0) && (!q.api || e.second.api == *q.api) && (!q.sinceTime || e.second.time >= *q.sinceTime);
    };
    std::vector<const std::pair<long, JournalEntry>*> found;
    for (const auto& e : kept_)
        if (matches(e)) found.push_back(&e);
    // The first ones after a number, or else the most recent.
    size_t from = q.after || found.size() <= limit ? 0 : found.size() - limit;
    Array out;
    for (size_t i = from; i < found.size() && out.size() < limit; ++i) out.push_back(shown(found[i]->first, found[i]->second));
    return out;
}

size_t Journal::count(const std::string& api, const std::map<std::string, std::string>& params) const {
    std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count_if(kept_.begin(), kept_.end(), [&](const auto& e) {
        if (e.second.api != api) return false;
        return std::all_of(params.begin(), params.end(), [&](const auto& p) {
            std::optional<std::string> value = e.second.params.optString(p.first);
            return value && *value == p.second;
        });
    }));
}

long Journal::lastEntry() const {
    std::lock_guard lock(mutex_);
    return last_;
}

size_t Journal::size() const {
    std::lock_guard lock(mutex_);
    return kept_.size();
}

} // namespace veltrane::sandbox
