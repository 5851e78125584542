/// @file
/// RAII owners of SQLite's connection and statements, shared by the settings
/// store and the sandbox's store: one owner each, no copies, noexcept moves
/// for the connection. Internal to the platform's users: not installed.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string_view>
#include <utility>

namespace veltrane::sqlite {

struct Closer {
    void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
};
using Database = std::unique_ptr<sqlite3, Closer>;

/// One prepared statement, finalised when it goes out of scope. Thread rules:
/// those of its connection.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) { code_ = sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    explicit operator bool() const noexcept { return stmt_ != nullptr; }
    int code() const noexcept { return code_; }
    sqlite3_stmt* get() const noexcept { return stmt_; }
    Statement& bind(int index, std::string_view text) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(int index, int64_t number) {
        sqlite3_bind_int64(stmt_, index, number);
        return *this;
    }
    int step() { return code_ = sqlite3_step(stmt_); }
    /// Ready for another run with new bindings.
    void reset() { sqlite3_reset(stmt_); }
    std::string_view text(int column) const {
        const char* t = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
        return t ? std::string_view(t, static_cast<size_t>(sqlite3_column_bytes(stmt_, column))) : std::string_view();
    }
    int64_t integer(int column) const { return sqlite3_column_int64(stmt_, column); }

private:
    sqlite3_stmt* stmt_ = nullptr;
    int code_ = SQLITE_OK;
};

} // namespace veltrane::sqlite
