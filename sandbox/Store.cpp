// The sandbox's SQLite store.
#include "sandbox/Store.h"

#include <set>
#include <stdexcept>

#include "veltrane/foundation/JSON.h"

namespace veltrane::sandbox {

namespace {

using sqlite::Statement;

constexpr std::string_view kFormat = "veltrane-sandbox 1";
constexpr const char* kUploads = "@uploads";  // not a seed list: the index of uploads

// The counters of a state, as one object.
Dictionary countersOf(const State& s) {
    return Dictionary{{"nextOrderID", s.nextOrderID}, {"nextActionOrderID", s.nextActionOrderID}, {"nextChatID", s.nextChatID},
                      {"nextPushID", s.nextPushID},   {"nextCardID", s.nextCardID},               {"nextReceiptID", s.nextReceiptID}};
}

Array arrayOf(const std::set<std::string>& texts) {
    Array out;
    for (const std::string& t : texts) out.push_back(t);
    return out;
}

std::set<std::string> setOf(const Value& array) {
    std::set<std::string> out;
    for (const Value& v : array.asArray()) out.insert(std::string(v.asString()));
    return out;
}

} // namespace

Store::Store(const std::filesystem::path& file, bool reset) : file_(file) {
    auto refuse = [&](const std::string& why) {
        db_.reset();
        throw std::invalid_argument(file.string() + " " + why + ": it is left as it is; move it away to start a new one");
    };
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    db_.reset(db);
    if (rc != SQLITE_OK) refuse(std::string("cannot be opened (") + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)) + ")");
    sqlite3_busy_timeout(db, 5000);
    {
        Statement check(db, "PRAGMA quick_check");
        if (!check || check.step() != SQLITE_ROW || check.text(0) != "ok")
            refuse("is damaged or not an SQLite database (" + std::string(check ? check.text(0) : sqlite3_errmsg(db)) + ")");
    }
    {
        Statement tables(db, "SELECT count(*) FROM sqlite_master");
        if (!tables || tables.step() != SQLITE_ROW) refuse(std::string("cannot be read (") + sqlite3_errmsg(db) + ")");
        if (tables.integer(0) > 0) {
            Statement format(db, "SELECT value FROM meta WHERE key = 'format'");
            if (!format || format.step() != SQLITE_ROW || format.text(0) != kFormat) refuse("is not a sandbox's database");
        }
    }  // no statement left open: the journal mode changes only outside a transaction
    bool written = execute("PRAGMA journal_mode=WAL") && execute("PRAGMA synchronous=NORMAL") &&
                   execute("CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)") &&
                   execute("CREATE TABLE IF NOT EXISTS rows (list TEXT NOT NULL, position INTEGER NOT NULL, value TEXT NOT NULL, "
                           "PRIMARY KEY (list, position))") &&
                   execute("CREATE TABLE IF NOT EXISTS journal (entry INTEGER PRIMARY KEY, api TEXT NOT NULL, time REAL NOT NULL, value TEXT NOT NULL)") &&
                   execute("INSERT OR IGNORE INTO meta VALUES ('format', 'veltrane-sandbox 1')");
    if (written && reset) written = execute("DELETE FROM rows") && execute("DELETE FROM journal") && execute("DELETE FROM meta WHERE key != 'format'");
    if (!written) refuse(std::string("cannot be written (") + sqlite3_errmsg(db) + ")");
}

Store::~Store() = default;

bool Store::execute(const char* sql) { return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

bool Store::hasState() {
    std::lock_guard lock(mutex_);
    Statement counters(db_.get(), "SELECT 1 FROM meta WHERE key = 'counters'");
    return counters && counters.step() == SQLITE_ROW;
}

std::pair<State, Array> Store::load() {
    std::lock_guard lock(mutex_);
    State state;
    Array uploads;
    Statement rows(db_.get(), "SELECT list, position, value FROM rows ORDER BY list, position");
    while (rows.step() == SQLITE_ROW) {
        std::string list(rows.text(0));
        long position = rows.integer(1);
        // Held on the heap: values the routes store back must not hold a reply's arena.
        Value value = parseJSON(rows.text(2)).detached();
        saved_[{list, position}] = std::string(rows.text(2));
        if (list == kUploads) uploads.push_back(std::move(value));
        else if (position < 0) state.seed.set(list, std::move(value));
        else state.list(list.c_str()).push_back(std::move(value));
    }
    Statement meta(db_.get(), "SELECT key, value FROM meta");
    while (meta.step() == SQLITE_ROW) {
        std::string key(meta.text(0)), text(meta.text(1));
        savedMeta_[key] = text;
        if (key == "counters") {
            Dictionary c = parseJSON(text).asDictionary();
            state.nextOrderID = c.optLong("nextOrderID");
            state.nextActionOrderID = c.optLong("nextActionOrderID");
            state.nextChatID = c.optLong("nextChatID");
            state.nextPushID = c.optLong("nextPushID");
            state.nextCardID = c.optLong("nextCardID");
            state.nextReceiptID = c.optLong("nextReceiptID");
        } else if (key == "lockedPhones") {
            state.lockedPhones = setOf(parseJSON(text));
        } else if (key == "lockedImeis") {
            state.lockedImeis = setOf(parseJSON(text));
        }
    }
    return {std::move(state), std::move(uploads)};
}

void Store::save(const State& state, const Array& uploads) {
    std::map<std::pair<std::string, long>, std::string> rows;
    for (const auto& [key, value] : state.seed) {
        if (const Array* list = value.arrayIf()) {
            for (size_t i = 0; i < list->size(); ++i) rows[{std::string(key), static_cast<long>(i)}] = writeJSON((*list)[i]);
        } else {
            rows[{std::string(key), -1}] = writeJSON(value);
        }
    }
    for (size_t i = 0; i < uploads.size(); ++i) rows[{kUploads, static_cast<long>(i)}] = writeJSON(uploads[i]);
    std::map<std::string, std::string> meta{{"counters", writeJSON(countersOf(state))},
                                           {"lockedPhones", writeJSON(arrayOf(state.lockedPhones))},
                                           {"lockedImeis", writeJSON(arrayOf(state.lockedImeis))}};

    std::lock_guard lock(mutex_);
    auto fail = [&](const char* what) {
        std::string why = sqlite3_errmsg(db_.get());
        execute("ROLLBACK");
        throw std::runtime_error(file_.string() + ": " + what + ": " + why);
    };
    if (!execute("BEGIN")) fail("cannot begin");
    Statement put(db_.get(), "INSERT OR REPLACE INTO rows (list, position, value) VALUES (?1, ?2, ?3)");
    for (const auto& [at, text] : rows) {
        auto known = saved_.find(at);
        if (known != saved_.end() && known->second == text) continue;
        put.reset();
        if (put.bind(1, at.first).bind(2, at.second).bind(3, text).step() != SQLITE_DONE) fail("cannot write a row");
    }
    Statement drop(db_.get(), "DELETE FROM rows WHERE list = ?1 AND position = ?2");
    for (const auto& [at, text] : saved_) {
        if (rows.count(at)) continue;
        drop.reset();
        if (drop.bind(1, at.first).bind(2, at.second).step() != SQLITE_DONE) fail("cannot remove a row");
    }
    Statement setMeta(db_.get(), "INSERT OR REPLACE INTO meta (key, value) VALUES (?1, ?2)");
    for (const auto& [key, text] : meta) {
        if (savedMeta_[key] == text) continue;
        setMeta.reset();
        if (setMeta.bind(1, key).bind(2, text).step() != SQLITE_DONE) fail("cannot write the counters");
    }
    if (!execute("COMMIT")) fail("cannot commit");
    saved_ = std::move(rows);
    for (auto& [key, text] : meta) savedMeta_[key] = std::move(text);
}

void Store::append(const Dictionary& entry) {
    std::lock_guard lock(mutex_);
    Statement put(db_.get(), "INSERT OR REPLACE INTO journal (entry, api, time, value) VALUES (?1, ?2, ?3, ?4)");
    put.bind(1, entry.optLong("entry")).bind(2, entry.optString("api").value_or("")).bind(4, writeJSON(entry));
    sqlite3_bind_double(put.get(), 3, entry.optDouble("time"));
    put.step();
}

Array Store::journal(const std::optional<std::string>& api, std::optional<long> after, std::optional<double> sinceTime, size_t limit) {
    std::lock_guard lock(mutex_);
    // The first after an entry number, or else the most recent.
    Statement query(db_.get(), after ? "SELECT value FROM journal WHERE entry > ?1 AND (?2 IS NULL OR api = ?2) AND time >= ?3 ORDER BY entry LIMIT ?4"
                                         : "SELECT value FROM (SELECT entry, value FROM journal WHERE (?2 IS NULL OR api = ?2) AND time >= ?3 "
                                           "ORDER BY entry DESC LIMIT ?4) ORDER BY entry");
    if (after) query.bind(1, static_cast<int64_t>(*after));
    query.bind(4, static_cast<int64_t>(limit));
    if (api) query.bind(2, *api);
    sqlite3_bind_double(query.get(), 3, sinceTime.value_or(0));
    Array out;
    while (query.step() == SQLITE_ROW) out.push_back(parseJSON(query.text(0)).detached());
    return out;
}

long Store::lastEntry() {
    std::lock_guard lock(mutex_);
    Statement last(db_.get(), "SELECT coalesce(max(entry), 0) FROM journal");
    return last.step() == SQLITE_ROW ? static_cast<long>(last.integer(0)) : 0;
}

} // namespace veltrane::sandbox
