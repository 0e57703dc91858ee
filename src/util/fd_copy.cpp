#include "util/fd_copy.h"

#include <unistd.h>

#include <cerrno>

namespace crelm::util {

namespace {

bool write_all(int to, const char* data, ssize_t length) {
    while (length > 0) {
        const ssize_t written = ::write(to, data, static_cast<size_t>(length));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = EIO;
            return false;
        }
        data += written;
        length -= written;
    }
    return true;
}

}  // namespace

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
        if (!write_all(to, block, got))
            return CopyFailure::write;
    }
}

}  // namespace crelm::util
