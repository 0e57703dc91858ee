#include "qmail/locked_line_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "qmail/mail_tree_path.h"
#include "qmail/qmail_report.h"
#include "util/file_lock.h"
#include "util/mail_user_file.h"
#include "util/nofollow.h"
#include "util/stale_entries.h"
#include "util/temp_file.h"

namespace crelm::qmail {
namespace {

// The file to read, opened without following a link at its name; a FIFO or
// device planted in its place is not read (that could block or read
// without end).
crelm::util::UniqueFd open_regular_source(int dir_fd, const std::string& name) {
    crelm::util::UniqueFd fd(::openat(dir_fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!fd.valid() || ::fstat(fd.get(), &info) != 0) {
        return crelm::util::UniqueFd();
    }
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return crelm::util::UniqueFd();
    }
    ::fcntl(fd.get(), F_SETFL, O_RDONLY);
    return fd;
}

// The source of the copy. In a mail user's tree the file may also be a hard
// link to a file of root's, whose content must not reach the mail owner's
// copy, or a huge sparse file: both are refused (util/mail_user_file.h),
// after "Refused to edit file %s: %s\n".
crelm::util::UniqueFd open_source(int dir_fd, const std::string& name, const std::string& path) {
    if (!is_in_mail_tree(path))
        return open_regular_source(dir_fd, name);
    crelm::util::MailUserFile file = crelm::util::open_mail_user_file(dir_fd, name, crelm::util::kMailUserFileLimit);
    if (file.refusal == crelm::util::FileRefusal::several_links ||
        file.refusal == crelm::util::FileRefusal::too_large) {
        report_failure("Refused to edit file %s: %s\n", path.c_str(), crelm::util::refusal_reason(file.refusal));
        errno = 0;
    }
    return std::move(file.fd);
}

bool rewritten(int in_fd, crelm::util::TempFile& temp, const std::string& path,
               const crelm::util::LineRewrite& rewrite) {
    switch (crelm::util::rewrite_stream(in_fd, temp.fd(), rewrite)) {
        case crelm::util::StreamFailure::none:
            return true;
        case crelm::util::StreamFailure::read:
            report_failure("Unable to read file %s: %s\n", path.c_str(), std::strerror(errno));
            return false;
        case crelm::util::StreamFailure::write:
            report_failure("Unable to write data into file %s: %s\n", temp.path().c_str(), std::strerror(errno));
            return false;
    }
    return false;
}

bool give_attributes(crelm::util::TempFile& temp, const CopyAttributes& attributes) {
    if (::fchmod(temp.fd(), attributes.mode) != 0) {
        report_failure("chmod failed: %s\n", std::strerror(errno));
        return false;
    }
    if (attributes.owner && ::fchown(temp.fd(), attributes.owner->first, attributes.owner->second) != 0) {
        report_failure("chown failed: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

// Copies that an earlier edit of the same file left when it was killed
// between making its copy and renaming it. Every such edit holds the
// file's lock, which this one holds now, so none of them is still at work.
void remove_abandoned_copies(int dir_fd, const std::string& name) {
    const std::string prefix = name + ".mail.";
    crelm::util::remove_stale_entries(
        dir_fd, [&](std::string_view entry) { return crelm::util::is_unique_temporary(entry, prefix); });
}

bool copy_rewritten(const std::string& path, const crelm::util::LineRewrite& rewrite, const CopyAttributes& attributes) {
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    if (!parent.fd.valid()) {
        report_failure("Unable to open file %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    const crelm::util::UniqueFd source = open_source(parent.fd.get(), parent.name, path);
    if (!source.valid() && errno == 0) {
        return false;
    }
    if (!source.valid()) {
        report_failure("Unable to open file %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    remove_abandoned_copies(parent.fd.get(), parent.name);
    crelm::util::TempFile temp =
        crelm::util::TempFile::create_unique(parent.fd.get(), parent.name + ".mail.", path + ".mail.");
    if (!temp.valid()) {
        report_failure("Unable to create temporary file: %s", std::strerror(errno));
        return false;
    }
    if (!rewritten(source.get(), temp, path, rewrite) || !give_attributes(temp, attributes)) {
        return false;
    }
    // The new content reaches the disk before it replaces the file (and the
    // directory after the rename, in commit_to).
    if (temp.sync() != 0 || temp.close() != 0 || temp.commit_to(parent.name) != 0) {
        report_failure("rename failed: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

bool rewrite_copy_locked(const std::string& path, const crelm::util::LineRewrite& rewrite,
                         const CopyAttributes& attributes) {
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held()) {
        report_failure("Error occurred while locking %s file", path.c_str());
        return false;
    }
    const bool replaced = copy_rewritten(path, rewrite, attributes);
    if (unlock_file(lock) != 0) {
        report_failure("Error occurred while unlocking %s file\n", path.c_str());
    }
    return replaced;
}

}  // namespace crelm::qmail
