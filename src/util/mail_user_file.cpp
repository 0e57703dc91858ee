#include "util/mail_user_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace crelm::util {
namespace {

FileRefusal judged(const struct stat& info, off_t size_limit) {
    if (!S_ISREG(info.st_mode))
        return FileRefusal::not_regular;
    if (info.st_nlink > 1)
        return FileRefusal::several_links;
    if (size_limit >= 0 && info.st_size > size_limit)
        return FileRefusal::too_large;
    return FileRefusal::none;
}

int error_of(FileRefusal refusal) {
    switch (refusal) {
    case FileRefusal::not_regular:
        return EINVAL;
    case FileRefusal::several_links:
        return EMLINK;
    case FileRefusal::too_large:
        return EFBIG;
    case FileRefusal::none:
        break;
    }
    return 0;
}

// O_NONBLOCK lets the open of a FIFO or device return at once; for a
// regular file it is taken off again once the file is known to be one.
UniqueFd open_without_blocking(int dir_fd, const std::string& name, int flags, mode_t mode) {
    return UniqueFd(::openat(dir_fd, name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode));
}

bool clear_nonblocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    return flags != -1 && ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

// The file open on fd, if it is regular; its link count in links.
bool regular_file(int fd, nlink_t& links) {
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        return false;
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return false;
    }
    links = info.st_nlink;
    return true;
}

}  // namespace

MailUserFile open_mail_user_file(int dir_fd, const std::string& name, off_t size_limit) {
    MailUserFile file{open_without_blocking(dir_fd, name, O_RDONLY, 0), FileRefusal::none};
    struct stat info {};
    if (!file.fd.valid())
        return file;
    if (::fstat(file.fd.get(), &info) != 0 || !clear_nonblocking(file.fd.get())) {
        file.fd.reset();
        return file;
    }
    file.refusal = judged(info, size_limit);
    if (file.refusal != FileRefusal::none) {
        file.fd.reset();
        errno = error_of(file.refusal);
    }
    return file;
}

const char* refusal_reason(FileRefusal refusal) {
    switch (refusal) {
    case FileRefusal::not_regular:
        return "it is not a regular file";
    case FileRefusal::several_links:
        return "it has more than one hard link";
    case FileRefusal::too_large:
        return "it is larger than 1048576 bytes";
    case FileRefusal::none:
        break;
    }
    return "";
}

UniqueFd open_mail_user_file_for_writing(int dir_fd, const std::string& name, mode_t mode) {
    UniqueFd file = open_without_blocking(dir_fd, name, O_WRONLY | O_CREAT, mode);
    nlink_t links = 0;
    if (!file.valid() || !regular_file(file.get(), links))
        return UniqueFd();
    if (links > 1) {
        file.reset();
        if (::unlinkat(dir_fd, name.c_str(), 0) != 0)
            return UniqueFd();
        file = open_without_blocking(dir_fd, name, O_WRONLY | O_CREAT | O_EXCL, mode);
        if (!file.valid())
            return file;
    }
    if (!clear_nonblocking(file.get()))
        return UniqueFd();
    return file;
}

}  // namespace crelm::util
