// Setting up the mail authentication store from nothing: a fresh database
// and key file, owned and protected as the mail server of the chosen type
// needs them.
#include "stores/mail_auth_store.h"

#include "runtime/log.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_sql.h"
#include "stores/mail_passwd_cipher.h"
#include "stores/store_access.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

namespace {

struct Ownership {
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t mode = 0;
};

struct StoreOwnership {
    Ownership directory;
    Ownership database;
    Ownership key;
};

const char* lookup_failure(int error) {
    return error != 0 ? std::strerror(error) : "not found";
}

std::optional<StoreOwnership> qmail_ownership() {
    errno = 0;
    const group* nofiles = getgrnam("nofiles");
    if (nofiles == nullptr) {
        log_message(LOG_CRIT, "Unable to get group id for \"%s\": %s", "nofiles", lookup_failure(errno));
        return std::nullopt;
    }
    const gid_t gid = nofiles->gr_gid;
    return StoreOwnership{{0, gid, 0750}, {0, gid, 0640}, {0, gid, 0440}};
}

// The database file is owner read-only and group read-write (0460) on
// purpose: the mail server of this type writes it through its group.
std::optional<StoreOwnership> postfix_ownership() {
    errno = 0;
    const passwd* postfix = getpwnam("postfix");
    if (postfix == nullptr) {
        log_message(LOG_CRIT, "Unable to get user id for \"%s\": %s", "postfix", lookup_failure(errno));
        return std::nullopt;
    }
    const uid_t uid = postfix->pw_uid;
    return StoreOwnership{{uid, postfix->pw_gid, 0770}, {uid, 0, 0460}, {uid, 0, 0440}};
}

std::optional<StoreOwnership> ownership_for(int server_type) {
    if (server_type == kMailServerQmail)
        return qmail_ownership();
    if (server_type == kMailServerPostfix)
        return postfix_ownership();
    return StoreOwnership{{0, 0, 0750}, {0, 0, 0600}, {0, 0, 0400}};
}

// The directory of the database: absolute and not the root itself.
std::optional<std::string> database_directory(const std::string& database) {
    const std::string directory = std::filesystem::path(database).parent_path().string();
    if (directory.empty() || directory.front() != '/' || directory == "/") {
        log_message(LOG_CRIT, "Invalid mail authentication DB path %s", database.c_str());
        return std::nullopt;
    }
    return directory;
}

int make_directory_tree(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        log_message(LOG_CRIT, "recursive mkdir(%s) failed: %s", directory.c_str(), error.message().c_str());
        return -1;
    }
    return 0;
}

int create_schema(const std::string& database) {
    crelm::SqliteDb db;
    if (open_store_db(database, SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return run_store_schema(db.get(), mail_auth_sql::kSchema, "Unable to re-create Mail Authentication Database");
}

// Replaces the database with an empty one; a failed schema leaves no file.
int recreate_database(const std::string& database, const std::string& directory) {
    if (make_directory_tree(directory) != 0)
        return -1;
    if (unlink(database.c_str()) != 0 && errno != ENOENT) {
        log_message(LOG_ERR, "Unable to re-create Mail Authentication Database: %s", std::strerror(errno));
        return -1;
    }
    if (create_schema(database) != 0) {
        unlink(database.c_str());
        return -1;
    }
    return 0;
}

// Sets owner and mode through a descriptor of the path itself, never
// through a symbolic link put in its place.
int set_ownership(const std::string& path, const Ownership& ownership, int open_flags) {
    const crelm::util::UniqueFd fd(open(path.c_str(), open_flags | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid() || fchown(fd.get(), ownership.uid, ownership.gid) != 0) {
        log_message(LOG_CRIT, "chown(\"%s\", %d, %d) failed: %s", path.c_str(), static_cast<int>(ownership.uid),
                    static_cast<int>(ownership.gid), std::strerror(errno));
        return -1;
    }
    if (fchmod(fd.get(), ownership.mode) != 0) {
        log_message(LOG_CRIT, "chmod(\"%s\", %04o) failed: %s", path.c_str(), static_cast<unsigned>(ownership.mode),
                    std::strerror(errno));
        return -1;
    }
    return 0;
}

int set_store_ownership(const std::string& directory, const StoreOwnership& ownership) {
    if (set_ownership(directory, ownership.directory, O_RDONLY | O_DIRECTORY) != 0)
        return -1;
    if (set_ownership(mail_auth_db_path(), ownership.database, O_RDONLY) != 0)
        return -1;
    return set_ownership(mail_auth_key_path(), ownership.key, O_RDONLY);
}

}  // namespace

int init_mail_auth_store(int server_type) {
    set_mail_auth_paths(server_type);
    // Owners and the path are checked before anything is replaced, so that
    // a failure here leaves the existing store as it was.
    const std::optional<StoreOwnership> ownership = ownership_for(server_type);
    const std::optional<std::string> directory = database_directory(mail_auth_db_path());
    if (!ownership || !directory)
        return -1;
    if (recreate_database(mail_auth_db_path(), *directory) != 0)
        return -1;
    if (recreate_mail_passwd_key(mail_auth_key_path()) != 0)
        return -1;
    return set_store_ownership(*directory, *ownership);
}
