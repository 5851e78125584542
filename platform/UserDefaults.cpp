// The SQLite-backed settings store.
#include "veltrane/platform/UserDefaults.h"


#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/platform/SQLite.h"

namespace veltrane {

namespace {

using sqlite::Statement;

bool damaged(int code) { return (code & 0xFF) == SQLITE_CORRUPT || (code & 0xFF) == SQLITE_NOTADB; }

std::mutex& pathMutex() {
    static std::mutex m;
    return m;
}
std::optional<std::filesystem::path>& configuredPath() {
    static std::optional<std::filesystem::path> path;
    return path;
}

} // namespace

void UserDefaults::Closer::operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }

UserDefaults::UserDefaults(std::filesystem::path file) : file_(std::move(file)) {
    std::error_code ignored;
    if (file_.has_parent_path()) std::filesystem::create_directories(file_.parent_path(), ignored);
    open();
}

UserDefaults::~UserDefaults() = default;

void UserDefaults::open(Rows rescued, bool fresh) {
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(file_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    db_.reset(db);
    std::string reason;
    if (rc != SQLITE_OK) {
        keepInMemory(std::string("cannot be opened: ") + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)));
    } else if (!usable(reason)) {
        if (!fresh) return recover(reason);
        keepInMemory("is unusable, and a fresh store too: " + reason);
    } else {
        sqlite3_busy_timeout(db_.get(), 5000);
        execute("PRAGMA journal_mode=WAL");
        execute("PRAGMA synchronous=NORMAL");
        if (!execute("CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)"))
            keepInMemory("cannot be written");
    }
    if (rescued.empty()) return;
    execute("BEGIN");
    Statement put(db_.get(), "INSERT OR REPLACE INTO defaults (key, value) VALUES (?1, ?2)");
    for (const auto& [key, value] : rescued) {
        sqlite3_reset(put.get());
        put.bind(1, key);
        put.bind(2, value);
        put.step();
    }
    execute("COMMIT");
}

void UserDefaults::keepInMemory(const std::string& reason) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
    db_.reset(db);
    inMemory_ = true;
    log("settings store " + file_.string() + " " + reason + "; keeping settings in memory for this run");
    execute("CREATE TABLE defaults (key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)");
}

// Whether SQLite can read the whole file; the reason when it cannot.
bool UserDefaults::usable(std::string& reason) {
    Statement check(db_.get(), "PRAGMA quick_check");
    if (!check) {
        reason = sqlite3_errmsg(db_.get());
        return !damaged(check.code()) && (check.code() & 0xFF) != SQLITE_ERROR;
    }
    int rc = check.step();
    if (rc == SQLITE_ROW) {
        const char* result = reinterpret_cast<const char*>(sqlite3_column_text(check.get(), 0));
        if (result && std::string_view(result) == "ok") return true;
        reason = result ? result : "integrity check failed";
        std::replace(reason.begin(), reason.end(), '\n', ' ');  // one log line
        return false;
    }
    reason = sqlite3_errmsg(db_.get());
    return !damaged(rc);
}

UserDefaults::Rows UserDefaults::salvage(uint64_t& total) {
    Rows rows;
    total = 0;
    if (Statement count(db_.get(), "SELECT count(*) FROM defaults"); count && count.step() == SQLITE_ROW)
        total = static_cast<uint64_t>(sqlite3_column_int64(count.get(), 0));
    Statement next(db_.get(), "SELECT rowid, key, value FROM defaults WHERE rowid > ?1 ORDER BY rowid");
    if (!next) return rows;
    auto seek = [&](int64_t after) {
        sqlite3_reset(next.get());
        sqlite3_bind_int64(next.get(), 1, after);
        return next.step();
    };
    int64_t after = 0, highest = 0;
    for (;;) {
        int rc = seek(after);
        for (; rc == SQLITE_ROW; rc = next.step()) {
            after = highest = sqlite3_column_int64(next.get(), 0);
            const char* key = reinterpret_cast<const char*>(sqlite3_column_text(next.get(), 1));
            const char* value = reinterpret_cast<const char*>(sqlite3_column_text(next.get(), 2));
            if (!key || !value) continue;
            try {
                parseJSON(value);  // a damaged cell can read as any bytes
                rows.emplace_back(key, value);
            } catch (const JSONError&) {
            }
        }
        if (rc == SQLITE_DONE) break;
        // Rows beyond `after` sit on a damaged page: find the first rowid
        // from which the table reads again (doubling, then halving the step).
        auto readable = [&](int64_t from) {
            int r = seek(from);
            return r == SQLITE_ROW || r == SQLITE_DONE;
        };
        int64_t step = 1;
        while (step < (int64_t{1} << 40) && !readable(after + step)) step *= 2;
        if (step >= (int64_t{1} << 40)) break;
        int64_t bad = after + step / 2, good = after + step;
        while (good - bad > 1) {
            int64_t middle = bad + (good - bad) / 2;
            (readable(middle) ? good : bad) = middle;
        }
        after = good;
    }
    total = std::max({total, static_cast<uint64_t>(rows.size()), static_cast<uint64_t>(highest)});
    return rows;
}

void UserDefaults::recover(const std::string& reason) {
    uint64_t total = 0;
    Rows rescued = db_ ? salvage(total) : Rows();
    db_.reset();
    char stamp[32];
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
    std::filesystem::path aside = file_.string() + ".unusable-" + stamp;
    for (int n = 2; std::filesystem::exists(aside); ++n) aside = file_.string() + ".unusable-" + stamp + "-" + std::to_string(n);
    std::error_code error;
    std::filesystem::rename(file_, aside, error);
    for (const char* suffix : {"-wal", "-shm"}) {
        std::error_code ignored;
        std::filesystem::rename(file_.string() + suffix, aside.string() + suffix, ignored);
    }
    std::string kept = total == 0 ? "none of its keys (none could be read)"
                                  : "the " + std::to_string(rescued.size()) + " of its " + std::to_string(total) + " keys that could be read (" +
                                        std::to_string(total - rescued.size()) + " lost)";
    if (error) {
        log("settings store " + file_.string() + " is unusable (" + reason + ") and could not be moved aside (" + error.message() +
            "); removing it to start a fresh store with " + kept);
        std::filesystem::remove(file_, error);
    } else {
        log("settings store " + file_.string() + " was unusable (" + reason + "); moved it to " + aside.string() +
            " and started a fresh store with " + kept);
    }
    reported_.clear();
    open(std::move(rescued), true);
}

bool UserDefaults::fail(const char* what, int code) {
    std::string reason = db_ ? sqlite3_errmsg(db_.get()) : "not open";
    if (db_ && damaged(code) && !inMemory_) recover(reason);
    else log("settings store " + file_.string() + ": " + what + " failed: " + reason);
    return false;
}

void UserDefaults::reportOnce(const std::string& line) {
    if (reported_.insert(line).second) log(line);
}

bool UserDefaults::execute(const char* sql) {
    if (!db_) return false;
    char* error = nullptr;
    if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, &error) == SQLITE_OK) return true;
    log(std::string("settings store ") + file_.string() + ": " + (error ? error : "error"));
    sqlite3_free(error);
    return false;
}

UserDefaults::Lookup UserDefaults::lookup(std::string_view key) {
    std::lock_guard lock(mutex_);
    auto unreadable = [&](std::string reason) {
        reportOnce("settings store " + file_.string() + ": value for " + std::string(key) + " is unreadable: " + reason);
        return Lookup{Lookup::State::unreadable, std::nullopt, std::move(reason)};
    };
    if (!db_) return unreadable("the store could not be opened");
    Statement s(db_.get(), "SELECT value FROM defaults WHERE key = ?1");
    if (!s) {
        std::string reason = sqlite3_errmsg(db_.get());
        fail("read", s.code());
        return unreadable(reason);
    }
    s.bind(1, key);
    int rc = s.step();
    if (rc == SQLITE_DONE) return {};
    if (rc != SQLITE_ROW) {
        std::string reason = sqlite3_errmsg(db_.get());
        fail("read", rc);
        return unreadable(reason);
    }
    const char* text = reinterpret_cast<const char*>(sqlite3_column_text(s.get(), 0));
    try {
        return {Lookup::State::found, parseJSON(text ? text : ""), {}};
    } catch (const JSONError& e) {
        return unreadable(e.what());
    }
}

bool UserDefaults::setObject(std::string_view key, const Value& value) {
    std::string text;
    try {
        text = writeJSON(value);
    } catch (const JSONError& e) {
        log(std::string("settings store: cannot store ") + std::string(key) + ": " + e.what());
        return false;
    }
    std::lock_guard lock(mutex_);
    if (!db_) return false;
    Statement s(db_.get(), "INSERT INTO defaults (key, value) VALUES (?1, ?2) ON CONFLICT(key) DO UPDATE SET value = excluded.value");
    if (!s) return fail("write", s.code());
    s.bind(1, key);
    s.bind(2, text);
    return s.step() == SQLITE_DONE || fail("write", s.code());
}

bool UserDefaults::removeObjectForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (!db_) return false;
    Statement s(db_.get(), "DELETE FROM defaults WHERE key = ?1");
    if (!s) return fail("remove", s.code());
    s.bind(1, key);
    return s.step() == SQLITE_DONE || fail("remove", s.code());
}

bool UserDefaults::synchronize() {
    std::lock_guard lock(mutex_);
    // Moves the log into the database file and syncs it.
    return !inMemory_ && execute("PRAGMA wal_checkpoint(FULL)");
}

void UserDefaults::setStandardPath(std::filesystem::path file) {
    std::lock_guard lock(pathMutex());
    configuredPath() = std::move(file);
}

std::filesystem::path UserDefaults::standardPath() {
    std::lock_guard lock(pathMutex());
    if (configuredPath()) return *configuredPath();
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config)
        return std::filesystem::path(config) / "veltrane" / "UserDefaults.sqlite";
    if (const char* home = std::getenv("HOME"); home && *home)
        return std::filesystem::path(home) / ".config" / "veltrane" / "UserDefaults.sqlite";
    return "veltrane-UserDefaults.sqlite";
}

UserDefaults& UserDefaults::standardUserDefaults() {
    static UserDefaults store(standardPath());
    return store;
}

} // namespace veltrane
