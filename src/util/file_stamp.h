// What tells one version of a file from another without reading it.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>

namespace crelm::util {

// A file's inode, size and change times, as lstat gives them. The control
// files and assign are only ever replaced by a rename (a new inode) or
// appended to (a new size and times), so while the stamp of the name stays
// the same, so does its content.
struct FileStamp {
    bool known = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};
};

// The stamp of whatever has the name now (a link is not followed); not
// known when it cannot be examined.
FileStamp stamp_of(const std::string& path);

// Whether both stamps are known and equal.
bool same_stamp(const FileStamp& one, const FileStamp& other);

}  // namespace crelm::util
