// Creating and renaming directories. make_dir_owned and mkdir_p_owned reach
// their paths by the walk of util/nofollow.h: a link a mail user planted on
// the way is refused (ELOOP, "Too many levels of symbolic links").
#pragma once

#include <sys/types.h>

#include <string>

// mkdir path with mode (an existing directory is accepted), then chown and
// chmod it; a path that vanishes meanwhile is not an error. A symbolic link
// at path is never followed. 0, or -1 after "ERROR: Unable to mkdir %s:
// %s\n", "ERROR: Unable to chown %s: %s\n" or "ERROR: Unable to chmod %s:
// %s\n".
int make_dir_owned(const std::string& path, uid_t uid, gid_t gid, mode_t mode);

// Creates path and every missing parent with umask 0 and mode's permission
// bits; existing directories are accepted and keep their owner, the ones
// created here get uid and gid (failing that is a warning, "Cannot chown %s:
// %s"). Any other failure ends the program ("Cannot create directory %s:
// %s"). Result: 0.
int mkdir_p_owned(const std::string& path, uid_t uid, gid_t gid, mode_t mode);

// Renames the directory old_path to new_path. A missing old_path is a
// success that does nothing (0). -1 after "Directory rename error: target
// directory %s already exists.\n" (nothing is touched) or "Remaming %s to
// %s failed: %s\n".
int rename_dir(const std::string& old_path, const std::string& new_path);

// Creates path and every missing component with mode 0755 (less the
// umask). Deliberately the inverse of the other results: 1 on success, 0 on
// failure with errno set (ENOTDIR when a component exists and is no
// directory). Reports nothing.
int make_path(const std::string& path);
