#include "util/fd_copy.h"

#include <string.h>
#include <unistd.h>

#include <cerrno>

namespace crelm::util {

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = EIO;
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool read_to_end(int fd, std::string& text) {
    char block[65536];
    bool read = true;
    for (;;) {
        const ssize_t got = ::read(fd, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            read = got == 0;
            break;
        }
        text.append(block, static_cast<std::size_t>(got));
    }
    const int saved = errno;
    explicit_bzero(block, sizeof block);
    errno = saved;
    return read;
}

CopyFailure copy_descriptor(int from, int to) {
    char block[8192];
    for (;;) {
        const ssize_t got = ::read(from, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return CopyFailure::read;
        if (got == 0)
            return CopyFailure::none;
        if (!write_all(to, std::string_view(block, static_cast<std::size_t>(got))))
            return CopyFailure::write;
    }
}

}  // namespace crelm::util
