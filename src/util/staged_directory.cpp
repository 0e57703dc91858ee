#include "util/staged_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

#include "runtime/saved_errno.h"
#include "util/nofollow.h"

namespace crelm::util {
namespace {

// The name by which mount(2) reaches what a descriptor (or an entry inside
// it) refers to, without walking the path again.
std::string through_descriptor(int fd, const std::string& name = "") {
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (!name.empty())
        path += "/" + name;
    return path;
}

int copy_content(int from, int to, off_t size) {
    off_t offset = 0;
    while (offset < size) {
        const ssize_t sent = ::sendfile(to, from, &offset, static_cast<std::size_t>(size - offset));
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0)
            return -1;
        if (sent == 0)
            break;
    }
    return 0;
}

// A copy of the regular file name, with its owner, group, mode and times.
int copy_regular_file(int real, int copy, const std::string& name, const struct stat& info) {
    const UniqueFd from(::openat(real, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!from.valid())
        return -1;
    UniqueFd to(::openat(copy, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.valid())
        return -1;
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    if (copy_content(from.get(), to.get(), info.st_size) != 0 || ::fchown(to.get(), info.st_uid, info.st_gid) != 0 ||
        ::fchmod(to.get(), info.st_mode & 07777) != 0 || ::futimens(to.get(), times) != 0)
        return -1;
    return to.close();
}

int copy_symbolic_link(int real, int copy, const std::string& name, const struct stat& info) {
    std::string target(static_cast<std::size_t>(std::max<off_t>(info.st_size, 0)) + 1, '\0');
    const ssize_t length = ::readlinkat(real, name.c_str(), target.data(), target.size());
    if (length < 0)
        return -1;
    target.resize(static_cast<std::size_t>(length));
    if (::symlinkat(target.c_str(), copy, name.c_str()) != 0)
        return -1;
    return ::fchownat(copy, name.c_str(), info.st_uid, info.st_gid, AT_SYMLINK_NOFOLLOW);
}

// The real entry itself, mounted by bind at its name in the copy: writes
// to it (a mail name's directory, say) reach the real one.
int bind_real_entry(int real, int copy, const std::string& name, const struct stat& info) {
    if (S_ISDIR(info.st_mode)) {
        if (::mkdirat(copy, name.c_str(), 0700) != 0)
            return -1;
    } else {
        UniqueFd placeholder(::openat(copy, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!placeholder.valid() || placeholder.close() != 0)
            return -1;
    }
    const std::string source = through_descriptor(real, name);
    const std::string target = through_descriptor(copy, name);
    return ::mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
}

int mirror_entry(int real, int copy, const std::string& name, const std::vector<std::string>& names) {
    struct stat info {};
    if (::fstatat(real, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : -1;
    const bool staged = std::find(names.begin(), names.end(), name) != names.end();
    if (staged && S_ISREG(info.st_mode))
        return copy_regular_file(real, copy, name, info);
    if (S_ISLNK(info.st_mode))
        return copy_symbolic_link(real, copy, name, info);
    // A staged name that is not a regular file is not read: the copy lacks it.
    if (staged)
        return 0;
    return bind_real_entry(real, copy, name, info);
}

int mirror_directory(int real, int copy, const std::vector<std::string>& names) {
    const int listing = ::fcntl(real, F_DUPFD_CLOEXEC, 3);
    if (listing < 0)
        return -1;
    DIR* directory = ::fdopendir(listing);
    if (directory == nullptr) {
        const SavedErrno kept;
        ::close(listing);
        return -1;
    }
    int result = 0;
    errno = 0;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (mirror_entry(real, copy, name, names) != 0) {
            result = -1;
            break;
        }
        errno = 0;
    }
    if (result == 0 && errno != 0)
        result = -1;
    const SavedErrno kept;
    ::closedir(directory);
    return result;
}

}  // namespace

int enter_private_mount_namespace() {
    if (::unshare(CLONE_NEWNS) != 0)
        return -1;
    // Until this succeeds, a mount here could still show up outside.
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr);
}

int stage_directory(const std::string& path, const std::vector<std::string>& names, StagedDirectory& staged) {
    staged.path = path;
    const ParentDir parent = open_parent(path);
    if (!parent.fd.valid())
        return -1;
    const UniqueFd real(::openat(parent.fd.get(), parent.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!real.valid() || ::fstat(real.get(), &info) != 0)
        return -1;
    char octal[8];
    std::snprintf(octal, sizeof octal, "%04o", info.st_mode & 07777);
    const std::string mount_options = std::string("mode=") + octal + ",uid=" + std::to_string(info.st_uid) +
                                      ",gid=" + std::to_string(info.st_gid);
    if (::mount("sorvane-batch", through_descriptor(real.get()).c_str(), "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC,
                mount_options.c_str()) != 0)
        return -1;
    staged.mounted = true;
    staged.copy.reset(::openat(parent.fd.get(), parent.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!staged.copy.valid() || mirror_directory(real.get(), staged.copy.get(), names) != 0) {
        const SavedErrno kept;
        unstage_directory(staged);
        return -1;
    }
    return 0;
}

int unstage_directory(StagedDirectory& staged) {
    if (!staged.mounted)
        return 0;
    if (::umount2(staged.path.c_str(), MNT_DETACH) != 0)
        return -1;
    staged.mounted = false;
    return 0;
}

}  // namespace crelm::util
