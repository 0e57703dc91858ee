#include "util/file_copy.h"

#include "runtime/log.h"
#include "util/fd_copy.h"
#include "util/file_lock.h"
#include "util/nofollow.h"
#include "util/temp_file.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using crelm::util::CopyFailure;
using crelm::util::TempFile;
using crelm::util::UniqueFd;

namespace {

int open_destination(const std::string& destination, mode_t mode) {
    if (destination == "-")
        return ::fcntl(1, F_DUPFD_CLOEXEC, 3);
    const crelm::util::ParentDir dir = crelm::util::open_parent(destination);
    if (!dir.fd.valid())
        return -1;
    return ::openat(dir.fd.get(), dir.name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode);
}

int copy_locked(const std::string& source, const std::string& destination) {
    UniqueFd in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (!in.valid()) {
        report_error(0, 0, "Unable to open file %s: %s", source.c_str(), std::strerror(errno));
        return 1;
    }
    struct stat info {};
    if (::fstat(in.get(), &info) != 0) {
        report_error(0, 0, "Unable to get info for file '%s': %s", source.c_str(), std::strerror(errno));
        return 1;
    }
    UniqueFd out(open_destination(destination, info.st_mode & 07777));
    if (!out.valid()) {
        report_error(0, 0, "Unable to open file %s: %s", destination.c_str(), std::strerror(errno));
        return 1;
    }
    const CopyFailure failure = crelm::util::copy_descriptor(in.get(), out.get());
    if (failure == CopyFailure::read) {
        report_error(0, 0, "Error while copying file %s to %s: %s", source.c_str(), destination.c_str(),
                     std::strerror(errno));
        return 1;
    }
    if (failure == CopyFailure::write) {
        report_error(0, 0, "Unable to copy file %s to %s: %s\n", source.c_str(), destination.c_str(),
                     std::strerror(errno));
        return 1;
    }
    if (out.close() != 0) {
        report_error(0, 0, "Unable to close file %s: %s\n", destination.c_str(), std::strerror(errno));
        return 1;
    }
    return 0;
}

int atomic_failure(const char* format, const char* detail) {
    report_error(0, 0, format, detail);
    return 1;
}

}  // namespace

int copy_file(const std::string& source, const std::string& destination) {
    if (source == destination)
        return 0;
    FileLock lock = lock_file(destination, LockPlace::lock_directory);
    if (!lock.held()) {
        report_error(0, 0, "Error occurred while locking the file %s\n", destination.c_str());
        return 1;
    }
    const int result = copy_locked(source, destination);
    if (unlock_file(lock) != 0)
        report_error(0, 0, "Error occurred while unlocking the file %s\n", destination.c_str());
    return result;
}

int copy_file_atomic(const std::string& source, const std::string& destination, uid_t owner, gid_t group, mode_t mode) {
    UniqueFd in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (!in.valid()) {
        report_error(0, 0, "copy_file_atomic(): source %s open failed: %s", source.c_str(), std::strerror(errno));
        return 1;
    }
    const crelm::util::ParentDir dir = crelm::util::open_parent(destination);
    TempFile temp =
        dir.fd.valid() ? TempFile::create_unique(dir.fd.get(), dir.name + ".", destination + ".") : TempFile::none();
    if (!temp.valid())
        return atomic_failure("copy_file_atomic(): mkstemp failed: %s", std::strerror(errno));
    if (crelm::util::copy_descriptor(in.get(), temp.fd()) != CopyFailure::none)
        return atomic_failure("copy_file_atomic(): write_fd_to_fd failed: %s", std::strerror(errno));
    if (::fchown(temp.fd(), owner, group) != 0)
        return atomic_failure("copy_file_atomic(): fchown failed: %s", std::strerror(errno));
    if (::fchmod(temp.fd(), mode) != 0)
        return atomic_failure("copy_file_atomic(): fchmod failed: %s", std::strerror(errno));
    // The copy reaches the disk before it replaces the destination.
    if (temp.sync() != 0 || temp.close() != 0)
        return atomic_failure("copy_file_atomic(): close failed: %s", std::strerror(errno));
    if (temp.commit_to(dir.name) != 0) {
        report_error(0, 0, "copy_file_atomic(): rename %s to %s failed: %s", temp.path().c_str(), destination.c_str(),
                     std::strerror(errno));
        return 1;
    }
    return 0;
}
