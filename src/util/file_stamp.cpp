#include "util/file_stamp.h"

#include <sys/stat.h>

namespace crelm::util {
namespace {

bool same_time(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

FileStamp stamp_of(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0)
        return FileStamp{};
    return FileStamp{true, info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

bool same_stamp(const FileStamp& one, const FileStamp& other) {
    return one.known && other.known && one.device == other.device && one.inode == other.inode &&
           one.size == other.size && same_time(one.modified, other.modified) && same_time(one.changed, other.changed);
}

}  // namespace crelm::util
