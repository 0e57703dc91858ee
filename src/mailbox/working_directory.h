// Changing into a mailbox directory for the length of one operation: the
// previous working directory is restored on every way out, errno kept.
#pragma once

#include "util/unique_fd.h"

namespace crelm::mailbox {

class WorkingDirectoryGuard {
public:
    WorkingDirectoryGuard() = default;
    WorkingDirectoryGuard(const WorkingDirectoryGuard&) = delete;
    WorkingDirectoryGuard& operator=(const WorkingDirectoryGuard&) = delete;
    ~WorkingDirectoryGuard();

    // Remembers the current working directory; false with errno set when it
    // cannot be held.
    bool remember();

    // Changes into the directory open on dir_fd; false with errno set.
    bool change_to(int dir_fd);

private:
    crelm::util::UniqueFd saved_;
    bool changed_ = false;
};

}  // namespace crelm::mailbox
