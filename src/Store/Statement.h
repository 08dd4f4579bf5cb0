#pragma once
// One prepared SQL statement, finalised when it goes, and the connection's lock. Internal to the
// store.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <sqlite3.h>
#include <string>

namespace mnemora {

/// Holds the connection's own (recursive) mutex. A null connection has none.
class ConnectionLock {
  public:
    explicit ConnectionLock(sqlite3* db) : mutex_(db != nullptr ? sqlite3_db_mutex(db) : nullptr) {
        sqlite3_mutex_enter(mutex_);
    }
    ~ConnectionLock() { sqlite3_mutex_leave(mutex_); }
    ConnectionLock(const ConnectionLock&) = delete;
    ConnectionLock& operator=(const ConnectionLock&) = delete;

  private:
    sqlite3_mutex* mutex_;
};

/// Bind parameters count from 1. Texts are bound up to their first NUL and copied by SQLite at
/// once, so a caller's buffer may go before the statement is stepped.
class Statement {
  public:
    Statement(sqlite3* db, const std::string& sql) {
        sqlite3_stmt* prepared = nullptr;
        sqlite3_prepare_v2(db, sql.c_str(), -1, &prepared, nullptr);
        handle_.reset(prepared);
    }

    [[nodiscard]] explicit operator bool() const { return handle_ != nullptr; }
    [[nodiscard]] sqlite3_stmt* get() const { return handle_.get(); }

    void bind(int index, const std::string& text) const {
        sqlite3_bind_text(get(), index, text.c_str(), -1, transient());
    }
    void bind(int index, const std::optional<std::string>& text) const {
        if (text)
            bind(index, *text);
        else
            sqlite3_bind_null(get(), index);
    }
    void bind(int index, double value) const { sqlite3_bind_double(get(), index, value); }
    void bind(int index, std::int64_t value) const { sqlite3_bind_int64(get(), index, value); }
    void bind(int index, std::span<const std::byte> bytes) const {
        sqlite3_bind_blob64(get(), index, bytes.data(), bytes.size(), transient());
    }

    /// True while there is a row; the first false is the end or an error.
    [[nodiscard]] bool stepToRow() const { return sqlite3_step(get()) == SQLITE_ROW; }
    /// Runs a statement that returns no rows; false on any error.
    [[nodiscard]] bool stepToDone() const { return sqlite3_step(get()) == SQLITE_DONE; }

    /// The current row's blob, valid until the next step; empty for NULL.
    [[nodiscard]] std::span<const std::byte> blob(int column) const {
        const void* bytes = sqlite3_column_blob(get(), column);
        if (bytes == nullptr)
            return {};
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(get(), column));
        return {static_cast<const std::byte*>(bytes), size};
    }

  private:
    static sqlite3_destructor_type transient() { return SQLITE_TRANSIENT; }

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

} // namespace mnemora
