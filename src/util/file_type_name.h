// The name of a file type, for messages.
#pragma once

#include <sys/types.h>

// "block device", "character device", "directory", "fifo", "regular file",
// "symbolic link", "socket", or "unknown", by the type bits of mode.
const char* file_type_name(mode_t mode);
