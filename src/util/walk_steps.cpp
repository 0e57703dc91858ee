#include "util/walk_steps.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace crelm::util {

bool read_directory_names(int fd, std::vector<std::string>& names) {
    UniqueFd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!copy.valid())
        return false;
    UniqueDir listing(::fdopendir(copy.get()));
    if (!listing.valid())
        return false;
    copy.release();
    errno = 0;
    while (const dirent* found = ::readdir(listing.get())) {
        if (std::strcmp(found->d_name, ".") != 0 && std::strcmp(found->d_name, "..") != 0)
            names.emplace_back(found->d_name);
        errno = 0;
    }
    if (errno != 0)
        return false;
    return listing.close() == 0;
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
