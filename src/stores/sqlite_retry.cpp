#include "stores/sqlite_retry.h"

#include <ctime>
#include <utility>

namespace {

constexpr long kNanosecondsPerSecond = 1000000000L;

// Returns false when nanosleep fails (interrupted by a signal).
bool sleep_nanoseconds(long delay_ns) {
    timespec delay{};
    delay.tv_sec = delay_ns / kNanosecondsPerSecond;
    delay.tv_nsec = delay_ns % kNanosecondsPerSecond;
    return nanosleep(&delay, nullptr) == 0;
}

}  // namespace

namespace crelm {

SqliteStatement::SqliteStatement(SqliteStatement&& other) noexcept
    : statement_(std::exchange(other.statement_, nullptr)) {}

SqliteStatement& SqliteStatement::operator=(SqliteStatement&& other) noexcept {
    if (this != &other)
        reset(std::exchange(other.statement_, nullptr));
    return *this;
}

int SqliteStatement::finalize() {
    return statement_ == nullptr ? SQLITE_OK : sqlite3_finalize(std::exchange(statement_, nullptr));
}

void SqliteStatement::reset(sqlite3_stmt* statement) {
    finalize();
    statement_ = statement;
}

SqliteDb::SqliteDb(SqliteDb&& other) noexcept : db_(std::exchange(other.db_, nullptr)) {}

SqliteDb& SqliteDb::operator=(SqliteDb&& other) noexcept {
    if (this != &other)
        reset(std::exchange(other.db_, nullptr));
    return *this;
}

int SqliteDb::close() {
    return db_ == nullptr ? SQLITE_OK : sqlite_close_with_retry(std::exchange(db_, nullptr));
}

void SqliteDb::reset(sqlite3* db) {
    close();
    db_ = db;
}

}  // namespace crelm

int sqlite_retry_while_busy(const std::function<int()>& attempt, const std::function<void()>& before_retry) {
    long delay_ns = 0;
    for (;;) {
        const int rc = attempt();
        if (rc != SQLITE_BUSY)
            return rc;
        if (delay_ns > 0 && !sleep_nanoseconds(delay_ns))
            return SQLITE_BUSY;
        delay_ns += kSqliteRetryDelayStepNs;
        if (before_retry)
            before_retry();
    }
}

int sqlite_prepare_with_retry(sqlite3* db, std::string_view sql, crelm::SqliteStatement& statement) {
    statement.finalize();
    sqlite3_stmt* prepared = nullptr;
    const int rc = sqlite_retry_while_busy(
        [&] { return sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &prepared, nullptr); });
    statement.reset(prepared);
    return rc;
}

int sqlite_step_with_retry(sqlite3_stmt* statement) {
    return sqlite_retry_while_busy([statement] { return sqlite3_step(statement); },
                                   [statement] { sqlite3_reset(statement); });
}

namespace {

int exec_with_retry(sqlite3* db, const char* sql, std::string* error_message,
                    const std::function<void()>& before_retry) {
    char* message = nullptr;
    const auto attempt = [&] {
        sqlite3_free(std::exchange(message, nullptr));
        return sqlite3_exec(db, sql, nullptr, nullptr, &message);
    };
    const int rc = sqlite_retry_while_busy(attempt, before_retry);
    if (error_message != nullptr)
        *error_message = message != nullptr ? message : "";
    sqlite3_free(message);
    return rc;
}

}  // namespace

int sqlite_exec_with_retry(sqlite3* db, const char* sql, std::string* error_message) {
    return exec_with_retry(db, sql, error_message, {});
}

int sqlite_exec_transaction_with_retry(sqlite3* db, const char* sql, std::string* error_message) {
    // Without the rollback the next attempt's BEGIN would fail inside the
    // transaction the busy attempt left open.
    const auto roll_back_open_transaction = [db] {
        if (sqlite3_get_autocommit(db) == 0)
            sqlite_exec_with_retry(db, "ROLLBACK;");
    };
    return exec_with_retry(db, sql, error_message, roll_back_open_transaction);
}

int sqlite_close_with_retry(sqlite3* db) {
    return sqlite_retry_while_busy([db] { return sqlite3_close(db); });
}

const char* sqlite_error_text(sqlite3* db) {
    return db != nullptr ? sqlite3_errmsg(db) : kGeneralDbError;
}
