// The persistent settings store: a key-value store of JSON values in an
// SQLite file. Every write is committed at once (write-ahead log, so it
// survives the process being killed); synchronize() also forces the file to
// disk, so written values survive a crash of the machine too.
//
// Damage never stops the application: a file that SQLite cannot use (not a
// database, truncated, corrupted) is moved aside with a log line naming where,
// and a fresh store takes its place, at opening or when a later statement
// finds the damage. A value that cannot be read is "unreadable", not
// "absent": lookup() tells the two apart, and each is logged once with its
// reason.
//
// Thread rules: one store may be used from any number of threads; calls are
// serialised on its one connection. Storage errors never throw: they are
// logged, reads give nothing and writes return false.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "veltrane/foundation/Value.h"

struct sqlite3;

namespace veltrane {

class UserDefaults {
public:
    // Opens (creating when needed) the store in file.
    explicit UserDefaults(std::filesystem::path file);
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The process-wide store, opened on first use at standardPath().
    static UserDefaults& standardUserDefaults();
    // Where the standard store lives: set by the application before first
    // use; by default $XDG_CONFIG_HOME/veltrane/UserDefaults.sqlite (or
    // ~/.config/...; ./veltrane-UserDefaults.sqlite without a home).
    static void setStandardPath(std::filesystem::path file);
    static std::filesystem::path standardPath();

    struct Lookup {
        enum class State { found, absent, unreadable };
        State state = State::absent;
        std::optional<Value> value;  // when found
        std::string reason;          // when unreadable
    };
    Lookup lookup(std::string_view key);
    // The value under key; nothing when it is absent or unreadable.
    std::optional<Value> objectForKey(std::string_view key) { return lookup(key).value; }
    bool setObject(std::string_view key, const Value& value);
    bool removeObjectForKey(std::string_view key);
    // Forces everything written so far to disk.
    bool synchronize();

    const std::filesystem::path& file() const noexcept { return file_; }

private:
    struct Closer {
        void operator()(sqlite3* db) const noexcept;
    };
    void open();
    bool usable(std::string& reason);
    void setAside(const std::string& reason);
    bool execute(const char* sql);
    // Logs a failed statement; moves the file aside when it is damaged.
    bool fail(const char* what, int code);
    void reportOnce(const std::string& line);

    std::filesystem::path file_;
    std::unique_ptr<sqlite3, Closer> db_;
    std::mutex mutex_;
    std::set<std::string> reported_;
};

} // namespace veltrane
