// The persistent settings store: a key-value store of JSON values in an
// SQLite file. Every write is committed at once (write-ahead log, so it
// survives the process being killed); synchronize() also forces the file to
// disk, so written values survive a crash of the machine too.
//
// Thread rules: one store may be used from any number of threads; calls are
// serialised on its one connection. Storage errors never throw: they are
// logged, reads give nothing and writes return false.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "foundation/Value.h"

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

    std::optional<Value> objectForKey(std::string_view key);
    bool setObject(std::string_view key, const Value& value);
    bool removeObjectForKey(std::string_view key);
    // Forces everything written so far to disk.
    bool synchronize();

    const std::filesystem::path& file() const noexcept { return file_; }

private:
    struct Closer {
        void operator()(sqlite3* db) const noexcept;
    };
    bool execute(const char* sql);
    bool fail(const char* what);

    std::filesystem::path file_;
    std::unique_ptr<sqlite3, Closer> db_;
    std::mutex mutex_;
};

} // namespace veltrane
