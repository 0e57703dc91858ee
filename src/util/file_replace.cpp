#include "util/file_replace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/log.h"
#include "util/file_lock.h"
#include "util/fd_copy.h"
#include "util/nofollow.h"
#include "util/temp_file.h"
#include "util/unique_fd.h"

namespace crelm::util {
namespace {

int failed(const char* format, const std::string& path) {
    report_error(0, 0, format, path.c_str(), std::strerror(errno));
    return 1;
}

enum class Read { done, missing, failed };

// The file's content; a missing file reads as empty. Only a regular file is
// read: O_NONBLOCK keeps a planted FIFO from blocking the open.
Read read_regular(int dir_fd, const std::string& name, std::string& content) {
    const UniqueFd fd(::openat(dir_fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid())
        return errno == ENOENT ? Read::missing : Read::failed;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0)
        return Read::failed;
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return Read::failed;
    }
    char block[8192];
    for (;;) {
        const ssize_t got = ::read(fd.get(), block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return Read::failed;
        if (got == 0)
            return Read::done;
        content.append(block, static_cast<std::size_t>(got));
    }
}


// edit is null when the old content does not matter and is not read.
int replace(const std::string& path, const ContentEdit* edit, const std::string* whole, const FileFinish& finish) {
    const ParentDir parent = open_parent(path);
    if (!parent.fd.valid())
        return failed("Unable to open file %s: %s\n", path);
    std::optional<std::string> content;
    if (edit != nullptr) {
        std::string old_content;
        const Read read = read_regular(parent.fd.get(), parent.name, old_content);
        if (read == Read::failed)
            return failed(errno == EINVAL ? "Unable to open file %s: %s\n" : "Unable to read line from file: %s: %s\n",
                          path);
        content = (*edit)(old_content);
        if (!content)
            return 1;
    } else {
        content = *whole;
    }
    TempFile temp = create_temporary_beside(parent.fd.get(), parent.name, path);
    if (!temp.valid())
        return failed("Unable to open file %s: %s\n", path + ".tmp");
    if (!write_all(temp.fd(), *content))
        return failed("Unable to write data into file %s: %s\n", path);
    if (!finish(temp.fd()))
        return 1;
    if (temp.sync() != 0 || temp.close() != 0)
        return failed("Unable to close file %s: %s\n", path + ".tmp");
    if (temp.commit_to(parent.name) != 0)
        return failed("Unable to rename file %s: %s\n", path);
    return 0;
}

}  // namespace

namespace {

int replace_locked(const std::string& path, const ContentEdit* edit, const std::string* whole,
                   const FileFinish& finish) {
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held())
        return failed("Error occurred while locking the file %s: %s\n", path);
    const int result = replace(path, edit, whole, finish);
    if (unlock_file(lock) != 0)
        return 1;
    return result;
}

}  // namespace

int replace_file_locked(const std::string& path, const ContentEdit& edit, const FileFinish& finish) {
    return replace_locked(path, &edit, nullptr, finish);
}

int replace_file_locked(const std::string& path, const std::string& content, const FileFinish& finish) {
    return replace_locked(path, nullptr, &content, finish);
}

}  // namespace crelm::util
