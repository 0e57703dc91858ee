#include "stores/store_file_check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "runtime/log.h"
#include "util/file_type_name.h"

namespace {

[[noreturn]] void refuse(const std::string& failure, const std::string& path, const char* kind) {
    errno = 0;
    report_error(1, 0, "%s: %s is a %s, not a regular file", failure.c_str(), path.c_str(), kind);
    // report_error ends the program for a non-zero status.
    std::abort();
}

}  // namespace

crelm::util::UniqueFd open_regular_store_file(const std::string& path, const std::string& failure) {
    crelm::util::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid()) {
        if (errno == ELOOP)
            refuse(failure, path, file_type_name(S_IFLNK));
        return fd;
    }
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0)
        return crelm::util::UniqueFd();
    // A directory neither blocks nor leads elsewhere: SQLite and the cipher
    // fail on it by their own paths, with the messages they always gave.
    if (S_ISDIR(info.st_mode)) {
        errno = EISDIR;
        return crelm::util::UniqueFd();
    }
    if (!S_ISREG(info.st_mode))
        refuse(failure, path, file_type_name(info.st_mode));
    return fd;
}

void require_regular_store_files(const std::string& db_path) {
    const std::string failure = "Unable to open database " + db_path;
    for (const char* suffix : {"", "-journal", "-wal", "-shm"})
        open_regular_store_file(db_path + suffix, failure);
}
