#include "util/file_replace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>

#include "runtime/log.h"
#include "util/file_lock.h"
#include "util/fd_copy.h"
#include "util/mail_user_file.h"
#include "util/nofollow.h"
#include "util/temp_file.h"
#include "util/unique_fd.h"

namespace crelm::util {
namespace {

int failed(const char* format, const std::string& path) {
    report_error(0, 0, format, path.c_str(), std::strerror(errno));
    return 1;
}

enum class Read { done, missing, failed, refused };

// The file's content; a missing file reads as empty. Only a regular file
// with one link and at most kMailUserFileLimit bytes is read (see
// util/mail_user_file.h); refusal says why another one is not.
Read read_regular(int dir_fd, const std::string& name, std::string& content, FileRefusal& refusal) {
    MailUserFile file = open_mail_user_file(dir_fd, name, kMailUserFileLimit);
    refusal = file.refusal;
    if (refusal == FileRefusal::several_links || refusal == FileRefusal::too_large)
        return Read::refused;
    if (!file.fd.valid())
        return errno == ENOENT ? Read::missing : Read::failed;
    char block[8192];
    for (;;) {
        const ssize_t got = ::read(file.fd.get(), block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return Read::failed;
        if (got == 0)
            return Read::done;
        content.append(block, static_cast<std::size_t>(got));
        // A file that grew past the limit since it was examined.
        if (content.size() > static_cast<std::size_t>(kMailUserFileLimit)) {
            refusal = FileRefusal::too_large;
            return Read::refused;
        }
    }
}

int refused(FileRefusal refusal, const std::string& path) {
    errno = 0;
    report_error(0, 0, "Refused to edit file %s: %s\n", path.c_str(), refusal_reason(refusal));
    return 1;
}

// Writes the new content into the temporary file: false with errno set.
using ContentWriter = std::function<bool(int fd)>;

// edit is null when the old content does not matter and is not read; the
// new content then comes from writer.
int replace(const std::string& path, const ContentEdit* edit, const ContentWriter* writer, const FileFinish& finish,
            WhenMissing missing) {
    const ParentDir parent = open_parent(path);
    if (!parent.fd.valid())
        return failed("Unable to open file %s: %s\n", path);
    std::string content;
    if (edit != nullptr) {
        std::string old_content;
        FileRefusal refusal = FileRefusal::none;
        const Read read = read_regular(parent.fd.get(), parent.name, old_content, refusal);
        if (read == Read::refused)
            return refused(refusal, path);
        if (read == Read::missing && missing == WhenMissing::fail)
            return 1;
        if (read == Read::failed)
            return failed(errno == EINVAL ? "Unable to open file %s: %s\n" : "Unable to read line from file: %s: %s\n",
                          path);
        std::optional<std::string> edited = (*edit)(old_content);
        if (!edited)
            return 1;
        content = std::move(*edited);
    }
    TempFile temp = create_temporary_beside(parent.fd.get(), parent.name, path);
    if (!temp.valid())
        return failed("Unable to open file %s: %s\n", path + ".tmp");
    const bool written = edit != nullptr ? write_all(temp.fd(), content) : (*writer)(temp.fd());
    if (!written)
        return failed("Unable to write data into file %s: %s\n", path);
    if (!finish(temp.fd()))
        return 1;
    if (temp.sync() != 0 || temp.close() != 0)
        return failed("Unable to close file %s: %s\n", path + ".tmp");
    if (temp.commit_to(parent.name) != 0)
        return failed("Unable to rename file %s: %s\n", path);
    return 0;
}

int replace_locked(const std::string& path, const ContentEdit* edit, const ContentWriter* writer,
                   const FileFinish& finish, WhenMissing missing) {
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held())
        return failed("Error occurred while locking the file %s: %s\n", path);
    const int result = replace(path, edit, writer, finish, missing);
    if (unlock_file(lock) != 0)
        return 1;
    return result;
}

}  // namespace

int replace_file_locked(const std::string& path, const ContentEdit& edit, const FileFinish& finish,
                        WhenMissing missing) {
    return replace_locked(path, &edit, nullptr, finish, missing);
}

int replace_file_locked(const std::string& path, const std::string& content, const FileFinish& finish) {
    const ContentWriter writer = [&content](int fd) { return write_all(fd, content); };
    return replace_locked(path, nullptr, &writer, finish, WhenMissing::edit_empty);
}

int replace_file_locked_from(const std::string& path, int source, const FileFinish& finish) {
    const ContentWriter writer = [source](int fd) { return copy_descriptor(source, fd) == CopyFailure::none; };
    return replace_locked(path, nullptr, &writer, finish, WhenMissing::edit_empty);
}

}  // namespace crelm::util
