#include "util/lock_directory.h"

#include "runtime/log.h"
#include "runtime/md5_hex.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace crelm::util {
namespace {

constexpr const char* kRun = "/run";
constexpr const char* kLockParentName = "sorvane";
constexpr const char* kLockDirectoryName = "locks";
constexpr mode_t kLockDirectoryMode = 0700;

// Reported with EACCES as the system error: the directory is not for us.
void refused(const std::string& path, const char* why) {
    errno = EACCES;
    report_error(0, 0, "Lock directory %s refused: %s\n", path.c_str(), why);
    errno = EACCES;
}

// Why the directory open on fd may not hold locks; null when it may.
const char* unsafe_because(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        return "it cannot be examined";
    if (S_ISLNK(info.st_mode))
        return "it is a symbolic link";
    if (!S_ISDIR(info.st_mode))
        return "it is not a directory";
    if (info.st_uid != 0)
        return "it is not owned by root";
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return "it is writable by group or others";
    return nullptr;
}

// The directory name inside parent, made when missing, checked; a link is
// opened as itself (never followed) and refused.
UniqueFd checked_directory(int parent, const char* name, const std::string& path) {
    if (::mkdirat(parent, name, kLockDirectoryMode) != 0 && errno != EEXIST) {
        report_error(0, 0, "Unable to create lock directory %s: %s\n", path.c_str(), std::strerror(errno));
        return UniqueFd();
    }
    UniqueFd directory(::openat(parent, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!directory.valid()) {
        report_error(0, 0, "Unable to create lock directory %s: %s\n", path.c_str(), std::strerror(errno));
        return UniqueFd();
    }
    if (const char* why = unsafe_because(directory.get())) {
        refused(path, why);
        return UniqueFd();
    }
    return directory;
}

}  // namespace

UniqueFd open_lock_directory() {
    const UniqueFd run(::open(kRun, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!run.valid()) {
        report_error(0, 0, "Unable to create lock directory %s: %s\n", kLockDirectory, std::strerror(errno));
        return UniqueFd();
    }
    const std::string parent_path = std::string(kRun) + "/" + kLockParentName;
    const UniqueFd parent = checked_directory(run.get(), kLockParentName, parent_path);
    if (!parent.valid())
        return UniqueFd();
    return checked_directory(parent.get(), kLockDirectoryName, kLockDirectory);
}

namespace {

// The checked directory's handle and identity.
struct KeptDirectory {
    UniqueFd fd;
    dev_t dev = 0;
    ino_t ino = 0;
};

KeptDirectory& kept_lock_directory() {
    static KeptDirectory kept;
    return kept;
}

// Whether the lock directory's path still names the kept directory: one
// that root removed or replaced since is given up, so that this process
// locks where every other one does.
bool still_named(const KeptDirectory& kept) {
    struct stat info {};
    return ::fstatat(AT_FDCWD, kLockDirectory, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode) &&
           info.st_dev == kept.dev && info.st_ino == kept.ino;
}

}  // namespace

int lock_directory_handle() {
    KeptDirectory& kept = kept_lock_directory();
    if (kept.fd.valid() && still_named(kept))
        return kept.fd.get();
    kept = KeptDirectory{open_lock_directory()};
    // Kept above the standard descriptors, which a batch's command puts its
    // own files over (the program may have started with one of them closed).
    if (!kept.fd.valid())
        return -1;
    if (kept.fd.get() <= STDERR_FILENO)
        kept.fd = UniqueFd(::fcntl(kept.fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    struct stat info {};
    if (!kept.fd.valid() || ::fstat(kept.fd.get(), &info) != 0) {
        report_error(0, 0, "Unable to create lock directory %s: %s\n", kLockDirectory, std::strerror(errno));
        kept = KeptDirectory{};
        return -1;
    }
    kept.dev = info.st_dev;
    kept.ino = info.st_ino;
    return kept.fd.get();
}

int open_in_lock_directory(const std::string& name, int flags, bool& refused) {
    refused = false;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int directory = lock_directory_handle();
        if (directory < 0) {
            refused = true;
            return -1;
        }
        const int fd = ::openat(directory, name.c_str(), flags, 0600);
        // A kept directory that has been removed no longer takes new
        // entries: it is made again.
        if (fd >= 0 || errno != ENOENT || attempt > 0)
            return fd;
        kept_lock_directory() = KeptDirectory{};
    }
    return -1;
}

std::string lock_file_name(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code failed;
    fs::path canonical = fs::weakly_canonical(fs::absolute(path, failed), failed);
    if (failed)
        canonical = fs::absolute(path, failed).lexically_normal();
    return md5_hex(canonical.string());
}

}  // namespace crelm::util
