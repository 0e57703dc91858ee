#include "audit/root_links.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "mailbox/open_directory.h"
#include "util/nofollow.h"

namespace crelm::audit {

namespace {

// Root's, and no one else may write it (a sticky directory excepted: no
// one else can move root's entries there).
bool only_root_changes(const struct stat& info) {
    return info.st_uid == 0 && ((info.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (info.st_mode & S_ISVTX) != 0);
}

// The path the opened directory has, from /proc.
std::string resolved_path(int fd) {
    const std::string proc = "/proc/self/fd/" + std::to_string(fd);
    char buffer[4096];
    const ssize_t length = ::readlink(proc.c_str(), buffer, sizeof buffer);
    return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : std::string();
}

// Why the directory open on fd is not one only root can change, or "".
std::string exposure_of(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        return std::strerror(errno);
    if (info.st_uid != 0)
        return "leads to a directory that root does not own";
    if (!only_root_changes(info))
        return "leads to a directory that group or others may write";
    std::string above = resolved_path(fd);
    if (above.empty() || above.front() != '/')
        return "leads to a directory whose place cannot be read";
    while (above.size() > 1) {
        above.erase(above.rfind('/') == 0 ? 1 : above.rfind('/'));
        if (::lstat(above.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || !only_root_changes(info))
            return "leads into " + above + ", which someone other than root may change";
    }
    return std::string();
}

constexpr int kFollowedDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

std::optional<RootLink> read_root_link(const std::string& path) {
    const util::ParentDir parent = util::open_parent(path);
    struct stat info {};
    if (!parent.fd.valid() || ::fstatat(parent.fd.get(), parent.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISLNK(info.st_mode))
        return std::nullopt;
    RootLink link;
    link.path = path;
    char target[4096];
    const ssize_t length = ::readlinkat(parent.fd.get(), parent.name.c_str(), target, sizeof target);
    if (length > 0)
        link.target.assign(target, static_cast<std::size_t>(length));
    if (info.st_uid != 0) {
        link.state = RootLinkState::foreign;
        link.why = "root does not own";
        return link;
    }
    const util::UniqueFd dir(::openat(parent.fd.get(), parent.name.c_str(), kFollowedDirectory));
    if (!dir.valid()) {
        link.state = RootLinkState::broken;
        link.why = std::string("leads nowhere a directory is: ") + std::strerror(errno);
        return link;
    }
    link.why = exposure_of(dir.get());
    link.state = link.why.empty() ? RootLinkState::trusted : RootLinkState::exposed;
    return link;
}

util::UniqueFd open_root_directory(const std::string& path) {
    util::UniqueFd dir = mailbox::open_directory(path);
    if (dir.valid() || (errno != ELOOP && errno != ENOTDIR))
        return dir;
    const std::optional<RootLink> link = read_root_link(path);
    if (!link || link->state != RootLinkState::trusted) {
        errno = ELOOP;
        return util::UniqueFd();
    }
    const util::ParentDir parent = util::open_parent(path);
    if (!parent.fd.valid())
        return util::UniqueFd();
    dir = util::UniqueFd(::openat(parent.fd.get(), parent.name.c_str(), kFollowedDirectory));
    // What was opened is checked itself: the link may have changed since.
    if (dir.valid() && !exposure_of(dir.get()).empty()) {
        errno = ELOOP;
        return util::UniqueFd();
    }
    return dir;
}

std::string through_root_link(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return path;
    const std::string directory = path.substr(0, slash);
    const std::optional<RootLink> link = read_root_link(directory);
    if (!link || link->state != RootLinkState::trusted)
        return path;
    const util::UniqueFd dir = open_root_directory(directory);
    const std::string resolved = dir.valid() ? resolved_path(dir.get()) : std::string();
    return resolved.empty() ? path : resolved + path.substr(slash);
}

}  // namespace crelm::audit
