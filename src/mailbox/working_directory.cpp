#include "mailbox/working_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace crelm::mailbox {

bool WorkingDirectoryGuard::remember() {
    saved_.reset(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return saved_.valid();
}

bool WorkingDirectoryGuard::change_to(int dir_fd) {
    if (fchdir(dir_fd) != 0)
        return false;
    changed_ = true;
    return true;
}

WorkingDirectoryGuard::~WorkingDirectoryGuard() {
    const int saved_errno = errno;
    if (changed_ && fchdir(saved_.get()) != 0) {
        // Nothing sensible is left to do: the caller's paths are relative to
        // a directory that is gone.
    }
    errno = saved_errno;
}

}  // namespace crelm::mailbox
