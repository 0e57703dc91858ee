#include "util/nofollow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace crelm::util {

UniqueFd open_nofollow(int dir_fd, const char* path) {
    UniqueFd fd(::openat(dir_fd, path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid())
        return fd;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0)
        return UniqueFd();
    if (S_ISLNK(info.st_mode)) {
        errno = ELOOP;
        return UniqueFd();
    }
    return fd;
}

int chown_handle(int fd, uid_t uid, gid_t gid) {
    return ::fchownat(fd, "", uid, gid, AT_EMPTY_PATH);
}

int chmod_handle(int fd, mode_t mode) {
    // An O_PATH handle takes no fchmod; its /proc entry names the object
    // itself, not any link.
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    return ::chmod(self.c_str(), mode);
}

}  // namespace crelm::util
