// Setting the owner, group and mode of one file or directory. A symbolic
// link at the path is never followed, nor one a mail user planted on the way
// (see util/nofollow.h): it is refused with ELOOP ("Too many levels of
// symbolic links") in the chown message.
#pragma once

#include <sys/types.h>

#include <string>

// chown, then chmod. 0, or -1 after "ERROR: unable to chown %s: %s\n" or
// "ERROR: unable to chmod %s: %s\n". A file (not a directory) with more than
// one hard link keeps its owner and mode: "ERROR: refused to chown %s: it
// has more than one hard link\n" (errno EMLINK).
int set_owner_mode(const std::string& path, uid_t uid, gid_t gid, mode_t mode);

// set_owner_mode, but a path that does not exist is a silent success (0).
int set_owner_mode_if_exists(const std::string& path, uid_t uid, gid_t gid, mode_t mode);

// set_owner_mode with the uid and primary gid of user; -1 after
// "user %s not found" when there is no such user.
int set_owner_mode_by_user(const std::string& path, const std::string& user, mode_t mode);
