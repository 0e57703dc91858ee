#include "util/walk_steps.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace crelm::util {

namespace {

// Calls take(name, type) for each entry of the directory open on fd but "."
// and "..". The entries are read straight through fd with getdents64: a
// stream of its own (a copy of the descriptor, then fdopendir's checks of
// it) would cost five more system calls for every directory of a walk.
template <typename Take>
bool list_directory(int fd, Take take) {
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
                take(found->d_name, found->d_type);
            at += found->d_reclen;
        }
    }
}

}  // namespace

bool read_directory_names(int fd, std::vector<std::string>& names) {
    return list_directory(fd, [&](const char* name, unsigned char) { names.emplace_back(name); });
}

bool read_directory_entries(int fd, std::vector<ListedEntry>& entries) {
    return list_directory(fd, [&](const char* name, unsigned char type) { entries.push_back({name, type}); });
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
