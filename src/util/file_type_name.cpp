#include "util/file_type_name.h"

#include <sys/stat.h>

const char* file_type_name(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFBLK:
        return "block device";
    case S_IFCHR:
        return "character device";
    case S_IFDIR:
        return "directory";
    case S_IFIFO:
        return "fifo";
    case S_IFREG:
        return "regular file";
    case S_IFLNK:
        return "symbolic link";
    case S_IFSOCK:
        return "socket";
    default:
        return "unknown";
    }
}
