// The sandbox's state on disk: DIR/sandbox.sqlite holds the state of the
// sale (every list of the seed as the routes change it: orders, action-form
// orders with their history, chat, the push queue...; the locks, the
// counters and the index of uploads) and the whole request journal. A
// change is committed before the request that made it is answered, so
// whatever a client was told survives a restart and a kill -9.
//
// Rows are kept per list and position; save() writes only the rows whose
// text changed since the last save.
//
// Thread rules: all members may be called from any thread; they are
// serialised on the store's one connection.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "sandbox/Routes.h"
#include "veltrane/foundation/Value.h"
#include "veltrane/platform/SQLite.h"

namespace veltrane::sandbox {

class Store {
public:
    // Opens (or creates) the database at file; with reset, empties a
    // sandbox database to start over. Throws std::invalid_argument, naming
    // the file, when it is damaged or not a sandbox's database: such a file
    // is never written.
    Store(const std::filesystem::path& file, bool reset);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Whether the database holds a state (else the seed is to be saved first).
    bool hasState();
    // The state as saved, and the index of uploads.
    std::pair<State, Array> load();
    // Writes what changed since the last save or load, in one transaction.
    // Throws std::runtime_error when it cannot be written.
    void save(const State& state, const Array& uploads);

    // The request journal: entries as the journal shows them.
    void append(const Dictionary& entry);
    // Entries of api (or any) at or after sinceTime: the first limit after
    // entry number `after`, or the most recent limit without it; oldest first.
    Array journal(const std::optional<std::string>& api, std::optional<long> after, std::optional<double> sinceTime, size_t limit);
    long lastEntry();

private:
    bool execute(const char* sql);
    std::filesystem::path file_;
    sqlite::Database db_;
    std::mutex mutex_;
    std::map<std::pair<std::string, long>, std::string> saved_;  // (list, position) → its text; position -1 for a value that is not a list
    std::map<std::string, std::string> savedMeta_;
};

} // namespace veltrane::sandbox
