#include "util/nofollow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace crelm::util {

namespace {

constexpr int kDirectoryHandle = O_PATH | O_DIRECTORY | O_CLOEXEC;

std::vector<std::string> components_of(const std::string& path) {
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = path.find('/', start);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        if (end > start)
            components.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

// Why opening name as a directory without following failed: a link owned
// by root may be followed; any other link is ELOOP; the rest keep errno.
bool is_trusted_link(int dir_fd, const std::string& name) {
    const int failure = errno;
    struct stat info {};
    if (::fstatat(dir_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISLNK(info.st_mode)) {
        errno = failure;
        return false;
    }
    if (info.st_uid != 0) {
        errno = ELOOP;
        return false;
    }
    return true;
}

}  // namespace

UniqueFd open_component(int dir_fd, const std::string& name) {
    UniqueFd fd(::openat(dir_fd, name.c_str(), kDirectoryHandle | O_NOFOLLOW));
    if (fd.valid() || (errno != ENOTDIR && errno != ELOOP))
        return fd;
    if (!is_trusted_link(dir_fd, name))
        return UniqueFd();
    return UniqueFd(::openat(dir_fd, name.c_str(), kDirectoryHandle));
}

ParentDir open_parent(const std::string& path) {
    if (path.empty()) {
        errno = ENOENT;
        return {UniqueFd(), std::string()};
    }
    UniqueFd current(::open(path.front() == '/' ? "/" : ".", kDirectoryHandle));
    const std::vector<std::string> components = components_of(path);
    if (components.empty())
        return {std::move(current), "."};
    for (std::size_t i = 0; i + 1 < components.size() && current.valid(); ++i)
        current = open_component(current.get(), components[i]);
    if (!current.valid())
        return {UniqueFd(), std::string()};
    return {std::move(current), components.back()};
}

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

UniqueFd open_path_nofollow(const std::string& path) {
    const ParentDir parent = open_parent(path);
    if (!parent.fd.valid())
        return UniqueFd();
    return open_nofollow(parent.fd.get(), parent.name.c_str());
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
