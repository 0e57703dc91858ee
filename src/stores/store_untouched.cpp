#include "stores/store_untouched.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util/unique_fd.h"

namespace {

// SQLite's lock bytes: a writer holds the reserved byte from its first
// change until its journal is gone.
constexpr off_t kReservedByte = 0x40000001;

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

// SQLite running as root gives a journal it opens the owner of its
// database, even on a read-only handle that only looks at a hot journal; the
// owner is already that one, but the journal's change time moves. A reader
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

int take_handle(int code, sqlite3* handle, crelm::SqliteDb& db, std::string& failure) {
    db.reset(handle);
    if (code != SQLITE_OK)
        failure = handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
    return code;
}

}  // namespace

// A journal whose header has been written and that no writer holds is hot.
StoreJournal store_journal_of(const std::string& path) {
    const std::string journal = path + "-journal";
    struct stat info {};
    if (::lstat(journal.c_str(), &info) != 0)
        return StoreJournal::none;
    if (writer_holds(path))
        return StoreJournal::live;
    if (!S_ISREG(info.st_mode))
        return StoreJournal::stale;
    const crelm::util::UniqueFd fd(::open(journal.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char first = 0;
    if (!fd.valid() || ::read(fd.get(), &first, 1) != 1 || first == 0)
        return StoreJournal::stale;
    return StoreJournal::hot;
}

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
    return take_handle(code, handle, db, failure);
}

int open_store_untouched(const std::string& path, int busy_timeout_ms, crelm::SqliteDb& db, std::string& failure) {
    keep_owners_as_they_are();
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW, nullptr);
    if (take_handle(code, handle, db, failure) != SQLITE_OK)
        return code;
    sqlite3_busy_timeout(handle, busy_timeout_ms);
    return SQLITE_OK;
}
