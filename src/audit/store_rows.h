// The rows of the three stores, read through read-only handles that never
// roll a journal back, never create a file and never wait without end: a
// store that a writer holds is retried a while, then reported.
#pragma once

#include <sqlite3.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "stores/sqlite_retry.h"

namespace crelm::audit {

struct StoreRead {
    std::string path;
    bool exists = false;
    std::string failure;  // empty when the store was opened and its rows read
    crelm::SqliteDb db;   // kept open for the store checks; empty on failure
    // SQLite's extended code of the failure (SQLITE_READONLY_ROLLBACK: a hot
    // journal that a read-only handle must not roll back); SQLITE_OK when
    // the failure was not SQLite's or there was none.
    int code = SQLITE_OK;
    struct stat info {};  // the store file itself (lstat), valid when exists
};

struct AuthDomainRow {
    long long id = 0;
    std::string name;
    int status = 0;  // 0 enabled, 1 disabled
};

struct AuthUserRow {
    long long domain_id = 0;
    std::string domain;  // empty when dom_id names no domain row
    std::string name;
    int status = 0;
    bool has_password = false;  // either password column set
};

struct QuotaRow {
    std::string domain;
    std::string mailbox;
    std::string quota;  // as stored, e.g. "1048576B"
};

struct HandlerRow {
    std::string address;
    std::string name;
    long long queue = 0;
    long long type = 0;
};

struct StoreRows {
    StoreRead auth;
    StoreRead quota;
    StoreRead handlers;
    std::vector<AuthDomainRow> auth_domains;
    std::vector<AuthUserRow> auth_users;
    std::vector<QuotaRow> quotas;
    std::vector<HandlerRow> handler_rows;
};

// Opens path read-only (never created, never rolled back). SQLITE_OK or
// SQLite's code, with the failure text in failure.
int open_store_read_only(const std::string& path, crelm::SqliteDb& db, std::string& failure);

// Runs sql on db and hands each row to on_row; SQLITE_DONE or the failing
// code, with the failure text in failure.
int for_each_row(sqlite3* db, const char* sql, const std::function<void(sqlite3_stmt*)>& on_row,
                 std::string& failure);

// Reads all three stores at their configured paths.
StoreRows read_store_rows();

}  // namespace crelm::audit
