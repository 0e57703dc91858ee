// Opening directories inside trees that mail users can write to: no
// symbolic link of theirs is followed.
#pragma once

#include <fcntl.h>

#include <string>

#include "util/unique_fd.h"

namespace crelm::mailbox {

// The directory name relative to dir_fd (AT_FDCWD for the working
// directory), opened read-only without following a link; invalid on failure
// with errno set (ELOOP or ENOTDIR for a link or a non-directory).
crelm::util::UniqueFd open_directory_at(int dir_fd, const char* name);

// The directory at path, reached by the walk of util/nofollow.h: no link a
// mail user planted is followed, neither on the way (the home replaced by a
// link) nor at the last component (ELOOP); invalid with errno set.
crelm::util::UniqueFd open_directory(const std::string& path);

}  // namespace crelm::mailbox
