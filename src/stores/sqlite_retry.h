// SQLite access shared by the mail stores: owners for database handles and
// statements, and the busy-retry discipline every store follows.
//
// Other processes (the delivery agent, a concurrent sorvane) may hold a
// store's database. Each handle gets a 50 ms busy timeout when it is opened,
// and prepare, step, exec and close are repeated for as long as they return
// SQLITE_BUSY, without limit. The delay between attempts of one call starts
// at 0 and grows by 10 microseconds after each attempt, so the first retry
// follows at once and later ones wait 10, 20, 30 microseconds and so on. A
// failed sleep (an interrupting signal) ends the call with SQLITE_BUSY.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <string>
#include <string_view>

// Error text used wherever SQLite's own text is wanted but no handle exists.
inline constexpr const char* kGeneralDbError = "general DB errror";

inline constexpr int kSqliteBusyTimeoutMs = 50;
inline constexpr long kSqliteRetryDelayStepNs = 10000;

enum class SqliteOpenMode {
    ReadWrite,  // sqlite3_open: read-write, the file is created when missing
    ReadOnly,   // sqlite3_open_v2 with SQLITE_OPEN_READONLY
};

namespace crelm {

// Owns a prepared statement; finalizes it when it goes out of scope.
class SqliteStatement {
public:
    SqliteStatement() = default;
    ~SqliteStatement() { finalize(); }
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;
    SqliteStatement(SqliteStatement&& other) noexcept;
    SqliteStatement& operator=(SqliteStatement&& other) noexcept;

    sqlite3_stmt* get() const { return statement_; }
    explicit operator bool() const { return statement_ != nullptr; }

    // Finalizes now (no-op when empty); returns sqlite3_finalize's code or
    // SQLITE_OK when empty.
    int finalize();
    // Takes ownership of a freshly prepared statement (finalizing any held).
    void reset(sqlite3_stmt* statement);

private:
    sqlite3_stmt* statement_ = nullptr;
};

// Owns a database handle; closes it with the busy-retry discipline when it
// goes out of scope. Statements must be finalized before the handle closes:
// declare SqliteStatement owners after the SqliteDb they use.
class SqliteDb {
public:
    SqliteDb() = default;
    ~SqliteDb() { close(); }
    SqliteDb(const SqliteDb&) = delete;
    SqliteDb& operator=(const SqliteDb&) = delete;
    SqliteDb(SqliteDb&& other) noexcept;
    SqliteDb& operator=(SqliteDb&& other) noexcept;

    sqlite3* get() const { return db_; }
    explicit operator bool() const { return db_ != nullptr; }

    // Closes now; returns sqlite_close_with_retry's code, SQLITE_OK when empty.
    int close();
    // Takes ownership of a handle (closing any held).
    void reset(sqlite3* db);

private:
    sqlite3* db_ = nullptr;
};

}  // namespace crelm

// Runs attempt until it returns anything but SQLITE_BUSY, sleeping between
// attempts as described above and calling before_retry (if given) after each
// busy attempt. Returns the first non-busy code, or SQLITE_BUSY when a sleep
// failed (errno tells why).
int sqlite_retry_while_busy(const std::function<int()>& attempt, const std::function<void()>& before_retry = {});

// Opens path and sets the 50 ms busy timeout. Returns SQLITE_OK, or SQLite's
// code of the failed open; db then holds whatever handle SQLite returned (for
// its error text; the owner closes it).
//
// A writer killed in the middle of a transaction leaves a hot journal that
// only a read-write handle can roll back; a read-only handle fails every read
// until then. So a read-only open first reads the schema, and when it meets
// such a journal, the file is opened read-write (never created) once to roll
// it back and then opened read-only again. When that cannot be done the
// read-only handle is kept and its reads fail as before.
int sqlite_open_db(const std::string& path, SqliteOpenMode mode, crelm::SqliteDb& db);

// sqlite3_prepare_v2 of the whole of sql, retried while busy; any statement
// held by statement is finalized first. Returns SQLite's code; on success
// statement owns the new statement.
int sqlite_prepare_with_retry(sqlite3* db, std::string_view sql, crelm::SqliteStatement& statement);

// sqlite3_step, retried while busy, with sqlite3_reset before each re-step.
// Returns SQLite's code (SQLITE_ROW, SQLITE_DONE or an error).
int sqlite_step_with_retry(sqlite3_stmt* statement);

// sqlite3_exec of sql without a callback, retried while busy. Returns
// SQLite's code; on failure *error_message (when given) receives SQLite's
// message, or stays empty when SQLite gave none.
int sqlite_exec_with_retry(sqlite3* db, const char* sql, std::string* error_message = nullptr);

// sqlite_exec_with_retry for a batch that runs in a transaction of its own
// ("BEGIN TRANSACTION;...COMMIT;"). A busy statement of the batch (typically
// its COMMIT) leaves the transaction open, so it is rolled back before the
// batch runs again. Returns what sqlite_exec_with_retry does.
int sqlite_exec_transaction_with_retry(sqlite3* db, const char* sql, std::string* error_message = nullptr);

// sqlite3_close, retried while busy. Returns SQLite's code (SQLITE_OK).
int sqlite_close_with_retry(sqlite3* db);

// SQLite's error text of db, or "general DB errror" when db is null.
const char* sqlite_error_text(sqlite3* db);
