// Changing owners and modes through a handle on the object itself, never
// through a symbolic link that someone may have put at its name.
#pragma once

#include "util/unique_fd.h"

#include <sys/types.h>

namespace crelm::util {

// An O_PATH handle on the object at path (relative to dir_fd), without
// following a link there: a symbolic link gives an invalid handle and
// errno ELOOP. Other failures leave open's errno.
UniqueFd open_nofollow(int dir_fd, const char* path);

// chown and chmod of the object a handle from open_nofollow refers to.
// 0 or -1 with errno.
int chown_handle(int fd, uid_t uid, gid_t gid);
int chmod_handle(int fd, mode_t mode);

}  // namespace crelm::util
