#include "util/owner_mode.h"

#include "runtime/log.h"
#include "util/nofollow.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace {

enum class Missing { fails, is_fine };

// A file with more than one hard link may be another user's file that a
// mail user linked into its tree: its owner and mode are not ours to change.
bool has_other_names(int fd) {
    struct stat info {};
    return ::fstat(fd, &info) == 0 && !S_ISDIR(info.st_mode) && info.st_nlink > 1;
}

int change(const std::string& path, uid_t uid, gid_t gid, mode_t mode, Missing missing) {
    const crelm::util::UniqueFd target = crelm::util::open_path_nofollow(path);
    if (!target.valid() && errno == ENOENT && missing == Missing::is_fine)
        return 0;
    if (target.valid() && has_other_names(target.get())) {
        errno = EMLINK;
        report_error(0, 0, "ERROR: refused to chown %s: it has more than one hard link\n", path.c_str());
        return -1;
    }
    if (!target.valid() || crelm::util::chown_handle(target.get(), uid, gid) != 0) {
        report_error(0, 0, "ERROR: unable to chown %s: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    if (crelm::util::chmod_handle(target.get(), mode) != 0) {
        report_error(0, 0, "ERROR: unable to chmod %s: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int set_owner_mode(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
    return change(path, uid, gid, mode, Missing::fails);
}

int set_owner_mode_if_exists(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
    return change(path, uid, gid, mode, Missing::is_fine);
}

int set_owner_mode_by_user(const std::string& path, const std::string& user, mode_t mode) {
    errno = 0;
    const passwd* entry = ::getpwnam(user.c_str());
    if (entry == nullptr) {
        errno = 0;
        report_error(0, 0, "user %s not found", user.c_str());
        return -1;
    }
    return set_owner_mode(path, entry->pw_uid, entry->pw_gid, mode);
}
