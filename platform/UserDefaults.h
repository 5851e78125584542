/// @file
/// The persistent settings store: a key-value store of JSON values in an
/// SQLite file. Every write is committed at once (write-ahead log, so it
/// survives the process being killed); synchronize() also forces the file to
/// disk, so written values survive a crash of the machine too.
///
/// Damage never stops the application: a file that SQLite cannot use (not a
/// database, truncated, corrupted) is moved aside with a log line naming where,
/// and a fresh store takes its place, at opening or when a later statement
/// finds the damage, holding every key that could still be read from the old
/// file (the line says how many were saved and lost). A store whose file
/// cannot be opened at all (its path is a folder, or lies under a regular
/// file) keeps its values in memory for the life of the process, logged once
/// with the reason, so that a run never forgets what it stored. A value that
/// cannot be read is "unreadable", not "absent": lookup() tells the two apart,
/// and each is logged once with its reason.
///
/// Thread rules: one store may be used from any number of threads; calls are
/// serialised on its one connection. Storage errors never throw: they are
/// logged, reads give nothing and writes return false.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "veltrane/foundation/Value.h"

struct sqlite3;

namespace veltrane {

/// A settings store (see the top of this file).
class UserDefaults {
public:
    /// Opens (creating when needed) the store in file.
    explicit UserDefaults(std::filesystem::path file);
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    /// The process-wide store, opened on first use at standardPath().
    static UserDefaults& standardUserDefaults();
    /// Where the standard store lives: set by the application before first
    /// use; by default $XDG_CONFIG_HOME/veltrane/UserDefaults.sqlite (or
    /// ~/.config/...; ./veltrane-UserDefaults.sqlite without a home).
    ///@{
    static void setStandardPath(std::filesystem::path file);
    static std::filesystem::path standardPath();
    ///@}

    /// What a key holds.
    struct Lookup {
        /// A value; no value; a value that could not be read.
        enum class State { found, absent, unreadable };
        State state = State::absent;  ///< which of the three
        std::optional<Value> value;  ///< when found
        std::string reason;          ///< when unreadable
    };
    /// What key holds; an unreadable value is logged once with its reason.
    Lookup lookup(std::string_view key);
    /// The value under key; nothing when it is absent or unreadable.
    std::optional<Value> objectForKey(std::string_view key) { return lookup(key).value; }
    /// Stores value under key (committed at once); false when the file could
    /// not be written, the value being kept in memory for the run.
    bool setObject(std::string_view key, const Value& value);
    /// Removes key; false when the file could not be written.
    bool removeObjectForKey(std::string_view key);
    /// Forces everything written so far to disk; false when the store could
    /// not be written (kept in memory only).
    bool synchronize();

    /// The store's file.
    const std::filesystem::path& file() const noexcept { return file_; }
    /// Whether the values live in memory only, the file being unusable.
    bool inMemory() const noexcept { return inMemory_; }

private:
    struct Closer {
        void operator()(sqlite3* db) const noexcept;
    };
    using Rows = std::vector<std::pair<std::string, std::string>>;
    /// fresh: the file was just moved aside, so it is not recovered again.
    void open(Rows rescued = {}, bool fresh = false);
    bool usable(std::string& reason);
    /// Reads what can still be read of a damaged store: its rows, and how many
    /// it held (at least those).
    Rows salvage(uint64_t& total);
    /// Salvages, moves the damaged file aside and opens a fresh store with
    /// what was saved.
    void recover(const std::string& reason);
    /// The last resort: a store in memory for this run.
    void keepInMemory(const std::string& reason);
    bool execute(const char* sql);
    /// Logs a failed statement; recovers the file when it is damaged.
    bool fail(const char* what, int code);
    void reportOnce(const std::string& line);

    std::filesystem::path file_;
    std::unique_ptr<sqlite3, Closer> db_;
    bool inMemory_ = false;
    std::mutex mutex_;
    std::set<std::string> reported_;
};

} // namespace veltrane
