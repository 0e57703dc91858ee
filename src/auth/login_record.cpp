#include "auth/login_record.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "stores/store_untouched.h"

namespace crelm::auth {

const char* const kLoginRecordQuery =
    "SELECT u.userPassword, u.cmusaslsecretPLAIN, u.status, d.status FROM users AS u, domains AS d "
    "WHERE u.dom_id = d.id AND u.name=LOWER(?) AND d.name=LOWER(?)";

namespace {

bool is_set(sqlite3_stmt* statement, int column) {
    return sqlite3_column_type(statement, column) != SQLITE_NULL && sqlite3_column_bytes(statement, column) > 0;
}

RecordLookup take_row(sqlite3_stmt* statement, LoginRecord& record, std::string& failure) {
    const int column = is_set(statement, 0) ? 0 : is_set(statement, 1) ? 1 : -1;
    if (column < 0)
        return RecordLookup::no_password;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    if (text == nullptr || !record.stored.assign(std::string_view(text, length))) {
        failure = "a stored password longer than any login can offer";
        return RecordLookup::no_password;
    }
    record.crypted = column == 1;
    record.user_status = sqlite3_column_int(statement, 2);
    record.domain_status = sqlite3_column_int(statement, 3);
    return RecordLookup::found;
}

// Why the store cannot be opened, told plainly where it is a permission.
std::string permission_failure(const std::string& path) {
    return "cannot read " + path + ": permission denied to uid " + std::to_string(::geteuid()) +
           " (the store is readable by root and group nofiles only; the mail server's authentication process "
           "must run sorvane-auth as root)";
}

std::string open_failure(const std::string& path, const std::string& sqlite_text) {
    if (::access(path.c_str(), R_OK) != 0 && errno == EACCES)
        return permission_failure(path);
    return "cannot open " + path + ": " + sqlite_text;
}

RecordLookup open_store(const std::string& path, crelm::SqliteDb& db, std::string& failure) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        failure = errno == EACCES ? permission_failure(path) : "cannot read " + path + ": " + std::strerror(errno);
        return RecordLookup::failed;
    }
    if (!S_ISREG(info.st_mode)) {
        failure = path + " is not a regular file";
        return RecordLookup::failed;
    }
    const StoreJournal journal = store_journal_of(path);
    if (journal == StoreJournal::hot) {
        failure = path + " has a journal that a killed writer left: the next sorvane command rolls it back";
        return RecordLookup::failed;
    }
    std::string text;
    const int code = journal == StoreJournal::stale ? open_store_immutable(path, db, text)
                                                    : open_store_untouched(path, kStoreBusyBoundMs, db, text);
    if (code == SQLITE_OK)
        return RecordLookup::found;
    failure = open_failure(path, text);
    return RecordLookup::failed;
}

std::string query_failure(sqlite3* db, const std::string& path) {
    const int code = sqlite3_errcode(db);
    if (code == SQLITE_BUSY || code == SQLITE_LOCKED)
        return path + " stayed busy for more than " + std::to_string(kStoreBusyBoundMs) + " ms";
    if (code == SQLITE_CANTOPEN || code == SQLITE_PERM || code == SQLITE_AUTH)
        return open_failure(path, sqlite3_errmsg(db));
    return "cannot read " + path + ": " + sqlite3_errmsg(db);
}

}  // namespace

RecordLookup read_login_record(const std::string& db_path, const LoginAddress& address, LoginRecord& record,
                               std::string& failure) {
    crelm::SqliteDb db;
    const RecordLookup opened = open_store(db_path, db, failure);
    if (opened != RecordLookup::found)
        return opened;
    crelm::SqliteStatement statement;
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db.get(), kLoginRecordQuery, -1, &raw, nullptr) != SQLITE_OK) {
        failure = query_failure(db.get(), db_path);
        return RecordLookup::failed;
    }
    statement.reset(raw);
    sqlite3_bind_text(raw, 1, address.local.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(raw, 2, address.domain.c_str(), -1, SQLITE_TRANSIENT);
    const int code = sqlite3_step(raw);
    if (code == SQLITE_ROW)
        return take_row(raw, record, failure);
    if (code == SQLITE_DONE)
        return RecordLookup::missing;
    failure = query_failure(db.get(), db_path);
    return RecordLookup::failed;
}

}  // namespace crelm::auth
