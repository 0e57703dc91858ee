// Reaching files and directories without being redirected by a symbolic
// link that a mail user planted, and changing owners and modes through a
// handle on the object itself.
//
// Paths are walked one component at a time from "/" (or the working
// directory). A symbolic link on the way is followed only when root owns it:
// a mail user cannot make such a link, while the system's own (say /var/run)
// keep working. Any other link fails the walk with ELOOP. The last
// component is never followed.
#pragma once

#include "util/unique_fd.h"

#include <sys/types.h>

#include <string>

namespace crelm::util {

// The directory holding a path's last component, and that component.
struct ParentDir {
    UniqueFd fd;       // O_PATH handle; invalid (errno set) when the walk failed
    std::string name;  // the last component ("." for "/")
};

ParentDir open_parent(const std::string& path);

// An O_PATH handle on the directory name inside dir_fd, by the link rule
// above; invalid with errno set on failure.
UniqueFd open_component(int dir_fd, const std::string& name);

// An O_PATH handle on the object at path (relative to dir_fd), without
// following a link there: a symbolic link gives an invalid handle and
// errno ELOOP. Other failures leave open's errno.
UniqueFd open_nofollow(int dir_fd, const char* path);

// open_parent, then open_nofollow on the last component.
UniqueFd open_path_nofollow(const std::string& path);

// chown and chmod of the object a handle from open_nofollow refers to.
// 0 or -1 with errno.
int chown_handle(int fd, uid_t uid, gid_t gid);
int chmod_handle(int fd, mode_t mode);

}  // namespace crelm::util
