// The sandbox's request journal: every request an application sent (not the
// sandbox's own control routes), with its time, method, API name (or path),
// the parameters as the sandbox parsed them (an upload's file by name, size
// and hash, never its bytes), the HTTP status, the reply's size and its
// first 2 KiB, the fault or scenario step applied, and the time taken. The
// last 10,000 are kept in memory; with a store, all of them in its database.
// Personal data is masked in what the journal shows (and stores) unless the
// sandbox was started with the opt-in.
//
// Thread rules: all members may be called from any thread.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "veltrane/foundation/Value.h"

namespace veltrane::sandbox {

class Store;

struct JournalEntry {
    double time = 0;  // seconds since 1970
    std::string method{}, api{};
    Dictionary params{};  // as parsed
    long status = 0;
    size_t replyBytes = 0;
    std::string reply{};  // its first 2 KiB
    std::optional<std::string> applied{};  // "fault=delay", "scenario=1/2:failure"
    long milliseconds = 0;
};

struct JournalQuery {
    std::optional<std::string> api{};
    std::optional<long> after{};      // entries numbered above this
    std::optional<double> sinceTime{};  // at or after this time, in seconds since 1970
    size_t limit = 100;               // the most recent of them without after, else the first
};

class Journal {
public:
    static constexpr size_t kKept = 10'000;
    static constexpr size_t kReplyKept = 2048;

    // store, when given, keeps every entry; the numbering goes on from it.
    Journal(bool revealPersonalData, Store* store);

    // Numbers and keeps entry; returns its number.
    long add(JournalEntry entry);
    // The entries that match (from the store when there is one, else from
    // memory), oldest first, as they are shown: {"entry",
    // "time", "method", "api", "params", "status", "replyBytes", "reply",
    // "applied", "ms"}.
    Array entries(const JournalQuery& query) const;
    // How many requests of api came with every one of params (their text as
    // parsed), among those kept in memory.
    size_t count(const std::string& api, const std::map<std::string, std::string>& params = {}) const;
    long lastEntry() const;
    size_t size() const;

private:
    Dictionary shown(long number, const JournalEntry& e) const;

    const bool reveal_;
    Store* store_;
    mutable std::mutex mutex_;
    long last_ = 0;
    std::deque<std::pair<long, JournalEntry>> kept_;
};

} // namespace veltrane::sandbox
