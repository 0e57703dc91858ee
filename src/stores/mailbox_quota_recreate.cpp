// Re-creating a damaged mailbox quota database.
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/log.h"
#include "stores/mailbox_quota_db.h"
#include "stores/mailbox_quota_sql.h"
#include "stores/sqlite_retry.h"
#include "stores/store_access.h"
#include "util/unique_fd.h"

namespace crelm::mail {
namespace {

constexpr const char* kQuotaSchema = mailbox_quota_sql::kSchema;
constexpr const char* kMailOwnerName = "popuser";

bool create_schema(const std::string& path) {
    SqliteDb db;
    return open_store_db(path, SqliteOpenMode::ReadWrite, db) == 0 &&
           run_store_schema(db.get(), kQuotaSchema, "Unable to re-create email user database") == 0 &&
           db.close() == SQLITE_OK;
}

// The database directory belongs to root, so the file can be opened without
// following links and changed through its descriptor.
bool give_to_mail_owner(const std::string& path) {
    const crelm::util::UniqueFd fd(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid()) {
        log_message(3, "Failed to open email user database: %s", std::strerror(errno));
        return false;
    }
    const passwd* user = getpwnam(kMailOwnerName);
    if (user == nullptr) {
        log_message(3, "User 'popuser' not found");
        return false;
    }
    const uid_t uid = user->pw_uid;
    const group* owner_group = getgrnam(kMailOwnerName);
    if (owner_group == nullptr) {
        log_message(3, "Group 'popuser' not found");
        return false;
    }
    if (fchown(fd.get(), uid, owner_group->gr_gid) != 0) {
        log_message(3, "Failed to chown email user database: %s", std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

bool MailboxQuotaDb::recreate(KeepOwner keep_owner) {
    unlink(path_.c_str());
    if (!create_schema(path_))
        return false;
    return keep_owner == KeepOwner::Yes || give_to_mail_owner(path_);
}

}  // namespace crelm::mail
