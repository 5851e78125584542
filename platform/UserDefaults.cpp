// The SQLite-backed settings store.
#include "veltrane/platform/UserDefaults.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"

namespace veltrane {

namespace {

// One prepared statement, finalised when it goes out of scope.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) { code_ = sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    explicit operator bool() const noexcept { return stmt_ != nullptr; }
    int code() const noexcept { return code_; }
    sqlite3_stmt* get() const noexcept { return stmt_; }
    void bind(int index, std::string_view text) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }
    int step() { return code_ = sqlite3_step(stmt_); }

private:
    sqlite3_stmt* stmt_ = nullptr;
    int code_ = SQLITE_OK;
};

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

void UserDefaults::open() {
    for (int attempt = 0; attempt < 2; ++attempt) {
        sqlite3* db = nullptr;
        int rc = sqlite3_open_v2(file_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
        db_.reset(db);
        if (rc != SQLITE_OK) {
            log("settings store " + file_.string() + ": open failed: " + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)));
            db_.reset();
            return;
        }
        std::string reason;
        if (usable(reason)) break;
        if (attempt == 1) {
            log("settings store " + file_.string() + ": a fresh store is unusable too: " + reason);
            db_.reset();
            return;
        }
        setAside(reason);
    }
    sqlite3_busy_timeout(db_.get(), 5000);
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=NORMAL");
    execute("CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)");
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
        return false;
    }
    reason = sqlite3_errmsg(db_.get());
    return !damaged(rc);
}

void UserDefaults::setAside(const std::string& reason) {
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
    if (error) {
        log("settings store " + file_.string() + " is unusable (" + reason + ") and could not be moved aside (" + error.message() +
            "); removing it to start a fresh store");
        std::filesystem::remove(file_, error);
    } else {
        log("settings store " + file_.string() + " was unusable (" + reason + "); moved it to " + aside.string() +
            " and started a fresh store");
    }
    reported_.clear();
}

bool UserDefaults::fail(const char* what, int code) {
    std::string reason = db_ ? sqlite3_errmsg(db_.get()) : "not open";
    if (db_ && damaged(code)) {
        setAside(reason);
        open();
    } else {
        log("settings store " + file_.string() + ": " + what + " failed: " + reason);
    }
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
    return execute("PRAGMA wal_checkpoint(FULL)");
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
