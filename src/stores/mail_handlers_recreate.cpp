// Re-creating the mail handlers database: a fresh file with the schema,
// owned by root and readable by the mail server's group popuser.
#include "stores/mail_handlers_store.h"

#include "runtime/log.h"
#include "stores/mail_handlers_sql.h"
#include "stores/store_access.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

namespace {

constexpr const char* kLabel = "mail handlers";
constexpr mode_t kDatabaseMode = 0640;

// Makes the directory of a database path. 0, or errno after logging.
int make_database_directory(const std::string& path) {
    const std::filesystem::path directory = std::filesystem::path(path).parent_path();
    if (directory.empty()) {
        log_message(LOG_ERR, "Unable to get dirname for %s database (%s): %s (%d)", kLabel, path.c_str(),
                    std::strerror(EINVAL), EINVAL);
        return EINVAL;
    }
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        log_message(LOG_ERR, "Unable to create directories for %s database (%s): %s (%d)", kLabel, path.c_str(),
                    error.message().c_str(), error.value());
        return error.value();
    }
    return 0;
}

int remove_old_file(const std::string& path) {
    if (unlink(path.c_str()) == 0 || errno == ENOENT)
        return 0;
    log_message(LOG_ERR, "Unable to re-create %s database: %s", kLabel, std::strerror(errno));
    return -1;
}

int create_schema(const std::string& path) {
    crelm::SqliteDb db;
    if (open_store_db(path, SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return run_store_schema(db.get(), mail_handlers_sql::kSchema,
                            std::string("Unable to re-create ") + kLabel + " database");
}

std::optional<gid_t> mail_handlers_group() {
    errno = 0;
    const group* entry = getgrnam("popuser");
    if (entry != nullptr)
        return entry->gr_gid;
    log_message(LOG_ERR, "Unable to get mail handlers group uid: %s",
                errno != 0 ? std::strerror(errno) : "group popuser not found");
    return std::nullopt;
}

// Gives the new file owner root:popuser and mode 0640, through a descriptor
// of the file itself.
int set_owner_and_mode(const std::string& path) {
    const std::optional<gid_t> group = mail_handlers_group();
    if (!group)
        return -1;
    const crelm::util::UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid() || fchown(fd.get(), 0, *group) != 0) {
        log_message(LOG_ERR, "Unable to set owner on %s: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    if (fchmod(fd.get(), kDatabaseMode) != 0) {
        log_message(LOG_ERR, "Unable to set permissions on %s: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int recreate_mail_handlers_db() {
    const std::string& path = mail_handlers_db_path();
    if (const int error = make_database_directory(path); error != 0) {
        log_message(LOG_ERR, "Unable to create directory for mail handlers database for(%s): %s", path.c_str(),
                    std::strerror(error));
        return -1;
    }
    if (remove_old_file(path) != 0)
        return -1;
    if (create_schema(path) != 0 || set_owner_and_mode(path) != 0) {
        unlink(path.c_str());
        return -1;
    }
    return 0;
}
