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

// This process's handle on the lock directory: opened by
// open_lock_directory at its first use and kept, so that every lock after
// it skips the walk and the checks (a batch's commands inherit it from the
// batch); once the directory has passed them, only root can change what it
// holds. Each use checks with one stat that the path still names it: a
// directory removed or replaced since is given up and the path opened and
// checked again. -1 when the directory is refused (reported, errno set); a
// refusal is not kept, so each use checks and reports again.
int lock_directory_handle();

// Opens name in the lock directory with flags (as openat, mode 0600 for a
// new file) through the kept handle; a directory removed since it was
// checked is made and checked again, once. The descriptor, or -1 with
// errno set; refused tells that the directory itself was refused.
int open_in_lock_directory(const std::string& name, int flags, bool& refused);

// The name of the lock file of path inside the lock directory: the 32
// lower-case hexadecimal digits of the MD5 digest of the canonical form of
// path (absolute, without "." or "..", links of the existing part resolved),
// so that every way of naming one file takes the same lock.
std::string lock_file_name(const std::string& path);

}  // namespace crelm::util
