#include "util/walk_steps.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace crelm::util {

// The entries are read straight through fd with getdents64: a stream of
// its own (a copy of the descriptor, then fdopendir's checks of it) would
// cost five more system calls for every directory of a walk.
bool read_directory_names(int fd, std::vector<std::string>& names) {
    alignas(dirent64) char buffer[32768];
    for (;;) {
        const ssize_t got = ::getdents64(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0;
        for (ssize_t at = 0; at < got;) {
            const auto* found = reinterpret_cast<const dirent64*>(buffer + at);
            if (std::strcmp(found->d_name, ".") != 0 && std::strcmp(found->d_name, "..") != 0)
                names.emplace_back(found->d_name);
            at += found->d_reclen;
        }
    }
}

UniqueFd open_checked_parent(int fd, dev_t dev, ino_t ino) {
    UniqueFd parent(::openat(fd, "..", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!parent.valid() || ::fstat(parent.get(), &info) != 0)
        return UniqueFd();
    if (info.st_dev != dev || info.st_ino != ino) {
        errno = ESTALE;
        return UniqueFd();
    }
    return parent;
}

}  // namespace crelm::util
