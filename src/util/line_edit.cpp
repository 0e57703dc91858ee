#include "util/line_edit.h"

#include "runtime/log.h"
#include "util/file_lock.h"
#include "util/nofollow.h"
#include "util/temp_file.h"
#include "util/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

using crelm::util::ParentDir;
using crelm::util::TempFile;
using crelm::util::UniqueFd;

namespace {

constexpr std::size_t kPathBuffer = 4096;

// "<path>.tmp" and the unique suffix ".XXXXXX".
constexpr std::size_t kTempSuffix = 11;

// A temporary file of this edit's own (mode 0600 until the file's
// attributes are given back), so that no other writer removes or replaces
// it; copies that killed edits of the file left are removed first.
TempFile create_output(const ParentDir& dir, const std::string& path) {
    if (path.size() + kTempSuffix >= kPathBuffer) {
        errno = ENAMETOOLONG;
        return TempFile::none();
    }
    return crelm::util::create_temporary_beside(dir.fd.get(), dir.name, path);
}

// The rewritten lines into the temporary file; 0, or -1 after saying which
// side failed.
int rewrite_into(int input, const TempFile& output, const std::string& path,
                 const crelm::util::LineRewrite& rewrite) {
    switch (crelm::util::rewrite_stream(input, output.fd(), rewrite)) {
        case crelm::util::StreamFailure::none:
            return 0;
        case crelm::util::StreamFailure::read:
            report_error(0, 0, "ERROR: Unable to read file %s: %s", path.c_str(), std::strerror(errno));
            return -1;
        case crelm::util::StreamFailure::write:
            report_error(0, 0, "Unable to write data into file %s: %s\n", output.path().c_str(),
                         std::strerror(errno));
            return -1;
    }
    return -1;
}

// A failure here leaves the edit in place: only a warning.
void restore_attributes(int fd, const struct stat& saved, const std::string& path) {
    if (::fchown(fd, saved.st_uid, saved.st_gid) != 0)
        report_error(0, 0, "WARNING: unable to restore ownership to file %s: %s\n", path.c_str(), std::strerror(errno));
    else if (::fchmod(fd, saved.st_mode & 07777) != 0)
        report_error(0, 0, "WARNING: unable to restore permissions to file %s: %s\n", path.c_str(),
                     std::strerror(errno));
}

// The edited copy is renamed over the file, which replaces it in one step:
// the path never goes missing, not even for a moment, so a reader (qmail
// reading rcpthosts, qmail-newu reading assign) always finds the old or the
// new content, and so does the next run after a crash, a power cut or a
// failed rename. A failed rename leaves the file as it was and the
// temporary file is removed with its owner.
int replace_with(TempFile& output, const ParentDir& dir, const std::string& path) {
    if (output.commit_to(dir.name) != 0) {
        report_error(0, 0, "Unable to rename '%s' to '%s' file: %s", output.path().c_str(), path.c_str(),
                     std::strerror(errno));
        return -1;
    }
    return 0;
}

bool save_attributes(const ParentDir& dir, struct stat& saved) {
    return dir.fd.valid() && ::fstatat(dir.fd.get(), dir.name.c_str(), &saved, AT_SYMLINK_NOFOLLOW) == 0;
}


int edit_locked(const std::string& path, const crelm::util::LineRewrite& rewrite) {
    const ParentDir dir = crelm::util::open_parent(path);
    struct stat saved {};
    if (!save_attributes(dir, saved)) {
        report_error(0, 0, "ERROR: Unable to save file '%s' attributes : %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    UniqueFd input(::openat(dir.fd.get(), dir.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!input.valid()) {
        report_error(0, 0, "ERROR: Unable to open file %s for reading: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    TempFile output = create_output(dir, path);
    if (!output.valid()) {
        report_error(0, 0, "ERROR: Unable to truncate or create file %s: %s", (path + ".tmp").c_str(),
                     std::strerror(errno));
        return -1;
    }
    if (rewrite_into(input.get(), output, path, rewrite) != 0)
        return -1;
    if (S_ISREG(saved.st_mode))
        restore_attributes(output.fd(), saved, path);
    input.reset();
    // The edited content reaches the disk before it replaces the file.
    if (output.sync() != 0 || output.close() != 0) {
        report_error(0, 0, "Unable to close file %s: %s\n", output.path().c_str(), std::strerror(errno));
        return -1;
    }
    return replace_with(output, dir, path);
}

}  // namespace

// The edit runs under the file's lock, the one every other editor of the
// file takes, so that a line another process adds or removes between this
// edit's read and its rename is never lost.
int edit_lines_locked(const std::string& path, const crelm::util::LineRewrite& rewrite) {
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held()) {
        report_error(0, 0, "Error occurred while locking the file %s: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    const int result = edit_locked(path, rewrite);
    if (unlock_file(lock) != 0)
        return -1;
    return result;
}
