// The SQLite-backed settings store.
#include "platform/UserDefaults.h"

#include <sqlite3.h>

#include <cstdlib>

#include "foundation/JSON.h"
#include "foundation/Log.h"

namespace veltrane {

namespace {

// One prepared statement, finalised when it goes out of scope.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    explicit operator bool() const noexcept { return stmt_ != nullptr; }
    sqlite3_stmt* get() const noexcept { return stmt_; }
    void bind(int index, std::string_view text) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }

private:
    sqlite3_stmt* stmt_ = nullptr;
};

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
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(file_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    db_.reset(db);
    if (rc != SQLITE_OK) {
        fail("open");
        db_.reset();
        return;
    }
    sqlite3_busy_timeout(db, 5000);
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=NORMAL");
    execute("CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)");
}

UserDefaults::~UserDefaults() = default;

bool UserDefaults::fail(const char* what) {
    log(std::string("settings store ") + file_.string() + ": " + what + " failed: " + (db_ ? sqlite3_errmsg(db_.get()) : "not open"));
    return false;
}

bool UserDefaults::execute(const char* sql) {
    if (!db_) return false;
    char* error = nullptr;
    if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, &error) == SQLITE_OK) return true;
    log(std::string("settings store ") + file_.string() + ": " + (error ? error : "error"));
    sqlite3_free(error);
    return false;
}

std::optional<Value> UserDefaults::objectForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (!db_) return std::nullopt;
    Statement s(db_.get(), "SELECT value FROM defaults WHERE key = ?1");
    if (!s) {
        fail("read");
        return std::nullopt;
    }
    s.bind(1, key);
    if (sqlite3_step(s.get()) != SQLITE_ROW) return std::nullopt;
    const char* text = reinterpret_cast<const char*>(sqlite3_column_text(s.get(), 0));
    try {
        return parseJSON(text ? text : "");
    } catch (const JSONError& e) {
        log(std::string("settings store: unreadable value for ") + std::string(key) + ": " + e.what());
        return std::nullopt;
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
    if (!s) return fail("write");
    s.bind(1, key);
    s.bind(2, text);
    return sqlite3_step(s.get()) == SQLITE_DONE || fail("write");
}

bool UserDefaults::removeObjectForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (!db_) return false;
    Statement s(db_.get(), "DELETE FROM defaults WHERE key = ?1");
    if (!s) return fail("remove");
    s.bind(1, key);
    return sqlite3_step(s.get()) == SQLITE_DONE || fail("remove");
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
