#include "audit/store_rows.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "audit/root_links.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"
#include "util/unique_fd.h"

namespace crelm::audit {

namespace {

// A writer holds a store for milliseconds; one that holds it for seconds is
// itself worth reporting, and an audit must not hang behind it.
constexpr int kBusyTimeoutMs = 5000;

std::string text_of(sqlite3_stmt* statement, int column) {
    const unsigned char* text = sqlite3_column_text(statement, column);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}

// SQLite's lock bytes: a writer holds the reserved byte from its first
// change until its journal is gone.
constexpr off_t kReservedByte = 0x40000001;

enum class Journal { none, live, hot, stale };

// Whether a writer is at work on the store right now: it holds the reserved
// byte. Asked, never taken.
bool writer_holds(const std::string& path) {
    const crelm::util::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid())
        return false;
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = kReservedByte;
    lock.l_len = 1;
    return ::fcntl(fd.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// The journal beside the store, judged as SQLite judges it, but without
// SQLite opening it: SQLite running as root hands a journal it opens to the
// store's owner, and an audit changes nothing. A journal whose header has
// been written and that no writer holds is hot: the next writer rolls it
// back.
Journal journal_of(const std::string& path) {
    const std::string journal = path + "-journal";
    struct stat info {};
    if (::lstat(journal.c_str(), &info) != 0)
        return Journal::none;
    if (writer_holds(path))
        return Journal::live;
    if (!S_ISREG(info.st_mode))
        return Journal::stale;
    const crelm::util::UniqueFd fd(::open(journal.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char first = 0;
    if (!fd.valid() || ::read(fd.get(), &first, 1) != 1 || first == 0)
        return Journal::stale;
    return Journal::hot;
}

// The store as it stands on disk, with no look at its journal.
int open_store_immutable(const std::string& path, crelm::SqliteDb& db, std::string& failure) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '%' || c == '?' || c == '#')
            uri += c == '%' ? "%25" : c == '?' ? "%3f" : "%23";
        else
            uri += c;
    }
    uri += "?immutable=1";
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(uri.c_str(), &handle,
                                     SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_URI, nullptr);
    db.reset(handle);
    if (code != SQLITE_OK)
        failure = handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
    return code;
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
    const Journal journal = journal_of(path);
    if (journal == Journal::hot) {
        store.code = SQLITE_READONLY_ROLLBACK;
        store.failure = "a hot journal needs to be rolled back";
        return;
    }
    // A journal that nobody holds and that holds nothing would still be
    // opened by SQLite to find that out.
    const int code = journal == Journal::stale ? open_store_immutable(path, store.db, store.failure)
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

// SQLite running as root gives a journal it opens the owner of its
// database, even on a read-only handle that only looks at a hot journal; the
// owner is already that one, but the journal's change time moves. The audit
// changes nothing, so its SQLite never changes an owner.
int owner_left_alone(int, uid_t, gid_t) { return 0; }

void keep_owners_as_they_are() {
    static const bool replaced = [] {
        sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
        return vfs != nullptr && vfs->iVersion >= 3 && vfs->xSetSystemCall != nullptr &&
               vfs->xSetSystemCall(vfs, "fchown", reinterpret_cast<sqlite3_syscall_ptr>(&owner_left_alone)) ==
                   SQLITE_OK;
    }();
    (void)replaced;
}

}  // namespace

int open_store_read_only(const std::string& path, crelm::SqliteDb& db, std::string& failure) {
    keep_owners_as_they_are();
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW, nullptr);
    db.reset(handle);
    if (code != SQLITE_OK) {
        failure = handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
        return code;
    }
    sqlite3_busy_timeout(handle, kBusyTimeoutMs);
    return SQLITE_OK;
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
