#include "util/temp_file.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

namespace crelm::util {

TempFile::TempFile(int fd, int dir_fd, std::string name, std::string shown)
    : fd_(fd), dir_fd_(dir_fd), name_(std::move(name)), shown_(std::move(shown)), owned_(fd >= 0) {}

TempFile::TempFile(TempFile&& other) noexcept
    : fd_(std::move(other.fd_)),
      dir_fd_(other.dir_fd_),
      name_(std::move(other.name_)),
      shown_(std::move(other.shown_)),
      owned_(std::exchange(other.owned_, false)) {}

TempFile::~TempFile() {
    fd_.reset();
    if (owned_) {
        const int saved = errno;
        ::unlinkat(dir_fd_, name_.c_str(), 0);
        errno = saved;
    }
}

TempFile TempFile::create_fresh(int dir_fd, const std::string& name, const std::string& shown, mode_t mode) {
    ::unlinkat(dir_fd, name.c_str(), 0);
    const int fd = ::openat(dir_fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    return TempFile(fd, dir_fd, name, shown);
}

TempFile TempFile::create_unique(const std::string& path_template) {
    std::vector<char> name(path_template.begin(), path_template.end());
    name.push_back('\0');
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    const std::string made = fd >= 0 ? std::string(name.data()) : path_template;
    return TempFile(fd, AT_FDCWD, made, made);
}

TempFile TempFile::none() {
    return TempFile(-1, AT_FDCWD, std::string(), std::string());
}

int TempFile::commit_to(const std::string& target) {
    const int result = ::renameat(dir_fd_, name_.c_str(), dir_fd_, target.c_str());
    if (result == 0)
        owned_ = false;
    return result;
}

}  // namespace crelm::util
