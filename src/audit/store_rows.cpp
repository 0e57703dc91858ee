#include "audit/store_rows.h"

#include <sys/stat.h>

#include "audit/root_links.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"
#include "stores/store_untouched.h"

namespace crelm::audit {

namespace {

// A writer holds a store for milliseconds; one that holds it for seconds is
// itself worth reporting, and an audit must not hang behind it.
constexpr int kBusyTimeoutMs = 5000;

std::string text_of(sqlite3_stmt* statement, int column) {
    const unsigned char* text = sqlite3_column_text(statement, column);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}

void open_store(StoreRead& store, const std::string& configured_path) {
    store.path = configured_path;
    // SQLite refuses any link on the way (SQLITE_OPEN_NOFOLLOW): a store
    // directory that is a link the audit follows is opened where it leads.
    const std::string path = through_root_link(configured_path);
    store.exists = ::lstat(path.c_str(), &store.info) == 0;
    if (!store.exists) {
        store.failure = "the store is missing";
        return;
    }
    if (!S_ISREG(store.info.st_mode)) {
        store.failure = "the store is not a regular file";
        return;
    }
    const StoreJournal journal = store_journal_of(path);
    if (journal == StoreJournal::hot) {
        store.code = SQLITE_READONLY_ROLLBACK;
        store.failure = "a hot journal needs to be rolled back";
        return;
    }
    // A journal that nobody holds and that holds nothing would still be
    // opened by SQLite to find that out.
    const int code = journal == StoreJournal::stale ? open_store_immutable(path, store.db, store.failure)
                                                    : open_store_read_only(path, store.db, store.failure);
    if (code != SQLITE_OK) {
        store.code = store.db ? sqlite3_extended_errcode(store.db.get()) : SQLITE_CANTOPEN;
        store.db.reset(nullptr);
    }
}

void read_rows(StoreRead& store, const char* sql, const std::function<void(sqlite3_stmt*)>& on_row) {
    if (!store.db || !store.failure.empty())
        return;
    if (for_each_row(store.db.get(), sql, on_row, store.failure) != SQLITE_DONE) {
        store.code = sqlite3_extended_errcode(store.db.get());
        store.db.reset(nullptr);
    }
}

}  // namespace

int open_store_read_only(const std::string& path, crelm::SqliteDb& db, std::string& failure) {
    return open_store_untouched(path, kBusyTimeoutMs, db, failure);
}

int for_each_row(sqlite3* db, const char* sql, const std::function<void(sqlite3_stmt*)>& on_row,
                 std::string& failure) {
    sqlite3_stmt* raw = nullptr;
    int code = sqlite3_prepare_v2(db, sql, -1, &raw, nullptr);
    crelm::SqliteStatement statement;
    statement.reset(raw);
    if (code != SQLITE_OK) {
        failure = sqlite3_errmsg(db);
        return code;
    }
    while ((code = sqlite3_step(raw)) == SQLITE_ROW)
        on_row(raw);
    if (code != SQLITE_DONE)
        failure = sqlite3_errmsg(db);
    return code;
}

StoreRows read_store_rows() {
    StoreRows rows;
    set_mail_auth_paths(kMailServerQmail);
    open_store(rows.auth, mail_auth_db_path());
    read_rows(rows.auth, "SELECT id, name, status FROM domains", [&](sqlite3_stmt* s) {
        rows.auth_domains.push_back({sqlite3_column_int64(s, 0), text_of(s, 1), sqlite3_column_int(s, 2)});
    });
    read_rows(rows.auth,
              "SELECT u.dom_id, d.name, u.name, u.status, "
              "u.userPassword IS NOT NULL OR u.cmusaslsecretPLAIN IS NOT NULL "
              "FROM users AS u LEFT JOIN domains AS d ON u.dom_id = d.id",
              [&](sqlite3_stmt* s) {
                  rows.auth_users.push_back({sqlite3_column_int64(s, 0), text_of(s, 1), text_of(s, 2),
                                             sqlite3_column_int(s, 3), sqlite3_column_int(s, 4) != 0});
              });
    open_store(rows.quota, crelm::mail::MailboxQuotaDb::kDefaultPath);
    read_rows(rows.quota, "SELECT domain_name, mailbox_name, quota FROM mailbox_quota", [&](sqlite3_stmt* s) {
        rows.quotas.push_back({text_of(s, 0), text_of(s, 1), text_of(s, 2)});
    });
    open_store(rows.handlers, mail_handlers_db_path());
    read_rows(rows.handlers, "SELECT address, name, queue, type FROM handlers", [&](sqlite3_stmt* s) {
        rows.handler_rows.push_back({text_of(s, 0), text_of(s, 1), sqlite3_column_int64(s, 2),
                                     sqlite3_column_int64(s, 3)});
    });
    return rows;
}

}  // namespace crelm::audit
