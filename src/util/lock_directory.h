// The directory of lock files: "/run/sorvane/locks", below a directory only
// root can write to, so that no other user can create it first, plant a link
// there, or open a lock file and hold its lock.
#pragma once

#include "util/unique_fd.h"

#include <string>

namespace crelm::util {

inline constexpr const char* kLockDirectory = "/run/sorvane/locks";

// A handle (O_PATH) on the lock directory, checked before every use:
// "/run/sorvane" and "/run/sorvane/locks" are made when missing (mode 0700,
// owned by the running user, root) and each must be a directory, not a
// symbolic link, owned by root and writable by no one else. A directory
// that fails a check is never used: "Lock directory %s refused: %s\n" (what
// is wrong with it) or "Unable to create lock directory %s: %s\n" is
// reported and the handle is invalid, with errno set.
UniqueFd open_lock_directory();

// The name of the lock file of path inside the lock directory: the 32
// lower-case hexadecimal digits of the MD5 digest of the canonical form of
// path (absolute, without "." or "..", links of the existing part resolved),
// so that every way of naming one file takes the same lock.
std::string lock_file_name(const std::string& path);

}  // namespace crelm::util
