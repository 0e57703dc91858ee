#include "util/temp_file.h"

#include "runtime/saved_errno.h"
#include "util/stale_entries.h"

#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace crelm::util {

TempFile::TempFile(int fd, int dir_fd, std::string name, std::string shown)
    : fd_(fd), dir_fd_(dir_fd), name_(std::move(name)), shown_(std::move(shown)), owned_(fd >= 0) {}

TempFile::TempFile(TempFile&& other) noexcept
    : fd_(std::move(other.fd_)), dir_fd_(other.dir_fd_), name_(std::move(other.name_)), shown_(std::move(other.shown_)),
      owned_(std::exchange(other.owned_, false)) {}

// The file is removed on the way out of a failed write: errno stays that
// of the failure.
TempFile::~TempFile() {
    const crelm::SavedErrno kept;
    fd_.reset();
    if (owned_)
        ::unlinkat(dir_fd_, name_.c_str(), 0);
}

TempFile TempFile::create_fresh(int dir_fd, const std::string& name, const std::string& shown, mode_t mode) {
    ::unlinkat(dir_fd, name.c_str(), 0);
    const int fd = ::openat(dir_fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    return TempFile(fd, dir_fd, name, shown);
}

namespace {

constexpr int kUniqueAttempts = 100;

std::string random_suffix() {
    static constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char bytes[6] = {};
    if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        return std::string();
    std::string suffix;
    for (const unsigned char byte : bytes)
        suffix += kLetters[byte % (sizeof kLetters - 1)];
    return suffix;
}

}  // namespace

TempFile TempFile::create_unique(int dir_fd, const std::string& name, const std::string& shown) {
    for (int attempt = 0; attempt < kUniqueAttempts; ++attempt) {
        const std::string suffix = random_suffix();
        if (suffix.empty())
            break;
        const int fd =
            ::openat(dir_fd, (name + suffix).c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0)
            return TempFile(fd, dir_fd, name + suffix, shown + suffix);
        if (errno != EEXIST)
            break;
    }
    return none();
}

TempFile TempFile::none() {
    return TempFile(-1, AT_FDCWD, std::string(), std::string());
}

TempFile create_temporary_beside(int dir_fd, const std::string& name, const std::string& shown) {
    remove_abandoned_temporaries(dir_fd, name);
    return TempFile::create_unique(dir_fd, name + ".tmp.", shown + ".tmp.");
}

int TempFile::commit_to(const std::string& target) {
    if (::renameat(dir_fd_, name_.c_str(), dir_fd_, target.c_str()) != 0)
        return -1;
    owned_ = false;
    return sync_directory(dir_fd_);
}

int sync_directory(int dir_fd) {
    // A path handle cannot be flushed: the directory is opened for reading.
    const UniqueFd directory(::openat(dir_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid())
        return -1;
    return ::fsync(directory.get());
}

}  // namespace crelm::util
