// Opening directories inside trees that mail users can write to: the last
// component is never followed when it is a symbolic link.
#pragma once

#include <fcntl.h>

#include <string>

#include "util/unique_fd.h"

namespace crelm::mailbox {

// The directory name relative to dir_fd (AT_FDCWD for the working
// directory), opened read-only without following a link; invalid on failure
// with errno set (ELOOP or ENOTDIR for a link or a non-directory).
crelm::util::UniqueFd open_directory_at(int dir_fd, const char* name);

inline crelm::util::UniqueFd open_directory(const std::string& path) {
    return open_directory_at(AT_FDCWD, path.c_str());
}

}  // namespace crelm::mailbox
