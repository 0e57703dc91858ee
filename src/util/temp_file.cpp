#include "util/temp_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

namespace crelm::util {

TempFile::TempFile(int fd, std::string path) : fd_(fd), path_(std::move(path)), owned_(fd >= 0) {}

TempFile::TempFile(TempFile&& other) noexcept
    : fd_(std::move(other.fd_)), path_(std::move(other.path_)), owned_(std::exchange(other.owned_, false)) {}

TempFile::~TempFile() {
    fd_.reset();
    if (owned_) {
        const int saved = errno;
        ::unlink(path_.c_str());
        errno = saved;
    }
}

TempFile TempFile::create_fresh(const std::string& path, mode_t mode) {
    ::unlink(path.c_str());
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    return TempFile(fd, path);
}

TempFile TempFile::none() {
    return TempFile(-1, std::string());
}

TempFile TempFile::create_unique(const std::string& path_template) {
    std::vector<char> name(path_template.begin(), path_template.end());
    name.push_back('\0');
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    return TempFile(fd, fd >= 0 ? std::string(name.data()) : path_template);
}

int TempFile::commit_to(const std::string& target) {
    const int result = std::rename(path_.c_str(), target.c_str());
    if (result == 0)
        owned_ = false;
    return result;
}

}  // namespace crelm::util
