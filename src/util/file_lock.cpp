#include "util/file_lock.h"

#include "runtime/log.h"
#include "runtime/saved_errno.h"
#include "util/handed_down_locks.h"
#include "util/held_locks.h"
#include "util/lock_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

enum class Waiting { wait, fail_at_once };

std::string lock_file_path(const std::string& path, LockPlace place) {
    if (place == LockPlace::the_file_itself)
        return path;
    return std::string(crelm::util::kLockDirectory) + "/" + crelm::util::lock_file_name(path);
}

// What open_lock_file gives when the lock directory was refused.
constexpr int kDirectoryRefused = -2;

// The lock file, readable and writable by root alone: a descriptor of any
// kind is enough to hold an flock, so no other user may open it. In the lock
// directory it is opened through the checked directory's handle;
// kDirectoryRefused (reported by the check) when that directory is refused.
int open_lock_file(const std::string& lock_path, LockPlace place) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    if (place == LockPlace::the_file_itself)
        return ::open(lock_path.c_str(), kFlags, 0600);
    bool refused = false;
    const std::string name = lock_path.substr(lock_path.rfind('/') + 1);
    const int fd = crelm::util::open_in_lock_directory(name, kFlags, refused);
    return refused ? kDirectoryRefused : fd;
}

// Descriptor 0 means "not held" to the callers, so a lock file must never
// land on it (possible when standard input is closed).
int off_standard_descriptors(int fd) {
    if (fd < 0 || fd > 2)
        return fd;
    const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
    const crelm::SavedErrno kept;
    ::close(fd);
    return moved;
}

FileLock take_lock(const std::string& path, LockPlace place, Waiting waiting) {
    std::string lock_path = lock_file_path(path, place);
    // A lock this process holds already (say one kept after a failure,
    // reached again through another name of the same file) would never be
    // granted: refused instead of waited on.
    if (waiting == Waiting::wait && crelm::util::lock_held_here(lock_path)) {
        errno = EDEADLK;
        return FileLock(-1, std::move(lock_path));
    }
    // A lock that the parent process holds for this one (a batch's) is
    // this process's at once.
    if (const int holder = crelm::util::handed_down_lock(lock_path); holder >= 0) {
        const int fd = ::fcntl(holder, F_DUPFD_CLOEXEC, 3);
        if (fd < 0)
            return FileLock(-1, std::move(lock_path));
        crelm::util::note_lock_held(lock_path);
        return FileLock(fd, std::move(lock_path));
    }
    const int opened = open_lock_file(lock_path, place);
    // A refused lock directory has been reported; it is never waited on.
    if (opened == kDirectoryRefused)
        return FileLock(0, std::move(lock_path));
    const int fd = off_standard_descriptors(opened);
    if (fd < 0) {
        report_error(0, 0, "Unable to open file \"%s\": %s.", lock_path.c_str(), std::strerror(errno));
        return FileLock(0, std::move(lock_path));
    }
    const int operation = LOCK_EX | (waiting == Waiting::fail_at_once ? LOCK_NB : 0);
    int locked = -1;
    do {
        locked = ::flock(fd, operation);
    } while (locked != 0 && errno == EINTR);
    if (locked != 0) {
        const int failure = errno;
        ::close(fd);
        errno = failure;
        return FileLock(failure == EAGAIN ? 0 : -1, std::move(lock_path));
    }
    crelm::util::note_lock_held(lock_path);
    return FileLock(fd, std::move(lock_path));
}

}  // namespace

FileLock::FileLock(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}

FileLock::FileLock(FileLock&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, 0)), path_(std::move(other.path_)) {}

FileLock::~FileLock() {
    if (descriptor_ > 0) {
        const crelm::SavedErrno kept;
        crelm::util::note_lock_released(path_);
        ::close(descriptor_);
    }
}

int FileLock::release() {
    if (descriptor_ <= 0)
        return 0;
    crelm::util::note_lock_released(path_);
    if (::close(std::exchange(descriptor_, 0)) != 0) {
        report_error(0, 0, "An error occured during closing '%s' file: %s\n", path_.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

void FileLock::keep_until_exit() {
    descriptor_ = 0;
}

FileLock lock_file(const std::string& path, LockPlace place) {
    return take_lock(path, place, Waiting::wait);
}

FileLock try_lock_file(const std::string& path, LockPlace place) {
    return take_lock(path, place, Waiting::fail_at_once);
}

int unlock_file(FileLock& lock) {
    return lock.release();
}
