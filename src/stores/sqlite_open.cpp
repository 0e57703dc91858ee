// Opening a store's database, with the roll-back of a hot journal that a
// killed writer left behind.
#include "stores/sqlite_retry.h"

namespace {

int open_handle(const std::string& path, int flags, crelm::SqliteDb& db) {
    sqlite3* handle = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    db.reset(handle);
    if (rc != SQLITE_OK)
        return rc;
    return sqlite3_busy_timeout(handle, kSqliteBusyTimeoutMs);
}

// The first read of a handle is where SQLite looks for a hot journal; a
// read-only handle then reports that it cannot roll it back.
bool meets_hot_journal(sqlite3* db) {
    return sqlite_exec_with_retry(db, "SELECT count(*) FROM sqlite_master;") != SQLITE_OK &&
           sqlite3_extended_errcode(db) == SQLITE_READONLY_ROLLBACK;
}

// A read-write handle rolls a hot journal back on its first read. The file
// exists (a read-only handle was just opened on it) and is never created.
void roll_back_hot_journal(const std::string& path) {
    crelm::SqliteDb writer;
    if (open_handle(path, SQLITE_OPEN_READWRITE, writer) == SQLITE_OK)
        sqlite_exec_with_retry(writer.get(), "SELECT count(*) FROM sqlite_master;");
}

}  // namespace

int sqlite_open_db(const std::string& path, SqliteOpenMode mode, crelm::SqliteDb& db) {
    if (mode == SqliteOpenMode::ReadWrite)
        return open_handle(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, db);
    const int rc = open_handle(path, SQLITE_OPEN_READONLY, db);
    if (rc != SQLITE_OK || !meets_hot_journal(db.get()))
        return rc;
    roll_back_hot_journal(path);
    return open_handle(path, SQLITE_OPEN_READONLY, db);
}
