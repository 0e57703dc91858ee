// Making sure a file exists, empty or as it is. Neither ever writes
// through a symbolic link a mail user planted (refused with ELOOP; see
// util/nofollow.h for the rule).
#pragma once

#include <string>

// Empties path, creating it with mode 0644 (less the umask) when missing.
// 0, or -1 after "Unable to truncate or create file %s: %s\n".
int truncate_file(const std::string& path);

// Creates path with mode 0644 (less the umask) when missing; an existing
// file keeps its contents. 0, or -1 after "Unable to create file %s: %s\n".
int create_file(const std::string& path);
