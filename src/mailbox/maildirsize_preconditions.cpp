#include "mailbox/maildirsize_preconditions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "mailbox/directory_entries.h"
#include "mailbox/open_directory.h"
#include "mailbox/report.h"

namespace crelm::mailbox {
namespace {

bool fail(const std::string& message, int error) {
    mailbox_report(message);
    errno = error;
    return false;
}

// 0 when name in the folder is a directory (not a link to one), else why not.
int directory_error(int folder_fd, const char* name) {
    struct stat st;
    if (fstatat(folder_fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

bool has_directory(int folder_fd, const std::string& folder, const char* which) {
    const int error = directory_error(folder_fd, which);
    if (error == 0)
        return true;
    return fail("Maildir folder " + folder + " has no " + which + " directory: " + std::strerror(error), error);
}

bool has_cur_and_new(int folder_fd, const std::string& folder) {
    return has_directory(folder_fd, folder, "cur") && has_directory(folder_fd, folder, "new");
}

bool subfolders_have_cur_and_new(int maildir_fd, const std::string& maildir) {
    const auto listing = open_directory_at(maildir_fd, ".");
    if (!listing.valid()) {
        const int error = errno;
        return fail("Unable to read Maildir folder " + maildir + ": " + std::strerror(error), error);
    }
    DirectoryEntries entries(listing.get());
    DirectoryEntry entry;
    while (entries.next(entry)) {
        if (entry.name[0] != '.' || (entry.type != DT_DIR && entry.type != DT_UNKNOWN))
            continue;
        const auto folder = open_directory_at(maildir_fd, entry.name.data());
        if (folder.valid() && !has_cur_and_new(folder.get(), maildir + "/" + std::string(entry.name)))
            return false;
    }
    if (entries.error() != 0)
        return fail("Unable to read Maildir folder " + maildir + ": " + std::strerror(entries.error()),
                    entries.error());
    return true;
}

// A directory, FIFO, socket or device in place of the file would make the
// rename fail or replace something that is no maildirsize of ours.
bool maildirsize_is_replaceable(int maildir_fd, const std::string& maildir) {
    struct stat st;
    if (fstatat(maildir_fd, "maildirsize", &st, AT_SYMLINK_NOFOLLOW) != 0)
        return true;
    if (S_ISREG(st.st_mode) || S_ISLNK(st.st_mode))
        return true;
    return fail(maildir + "/maildirsize is not a regular file", EINVAL);
}

}  // namespace

std::string absolute_path_of(int fd, const std::string& fallback) {
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof path || path[0] != '/')
        return fallback;
    return std::string(path, static_cast<std::size_t>(length));
}

bool check_maildir_for_maildirsize(int maildir_fd, const std::string& shown_path) {
    const std::string maildir = absolute_path_of(maildir_fd, shown_path);
    return has_directory(maildir_fd, maildir, "tmp") && has_cur_and_new(maildir_fd, maildir) &&
           subfolders_have_cur_and_new(maildir_fd, maildir) && maildirsize_is_replaceable(maildir_fd, maildir);
}

}  // namespace crelm::mailbox
