// The ".qmail" of a mail name without a mailbox: accept and discard.
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "qmail/true_qmail.h"
#include "util/fd_copy.h"
#include "util/mail_user_file.h"
#include "util/nofollow.h"
#include "util/temp_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

using crelm::qmail::log_error;

namespace {

constexpr std::string_view kTrueLine = "| true\n";
constexpr mode_t kDotQmailMode = 0600;

// Opened for writing without following a link at the path or on the way,
// created 0600 so that it is never writable by others; a file with other
// names (a hard link a mail user planted) is replaced by a new one, never
// truncated or given away (util/mail_user_file.h).
crelm::util::UniqueFd open_dot_qmail(const crelm::util::ParentDir& parent) {
    if (!parent.fd.valid())
        return crelm::util::UniqueFd();
    crelm::util::UniqueFd file =
        crelm::util::open_mail_user_file_for_writing(parent.fd.get(), parent.name, kDotQmailMode);
    if (file.valid() && ::ftruncate(file.get(), 0) != 0)
        file.reset();
    return file;
}

// The text of a failure of the call that just failed.
std::string failure_text(const char* format, const std::string& path) {
    const char* reason = std::strerror(errno);
    std::string text(std::strlen(format) + path.size() + std::strlen(reason), '\0');
    text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), format, path.c_str(), reason)));
    return text;
}

}  // namespace

namespace crelm::qmail {

std::optional<std::string> write_true_line(const std::string& path) {
    const crelm::qmail::MailOwnerIds owner = crelm::qmail::mail_owner_ids();
    if (!owner.known())
        return "Unable to define UID or GID for user popuser";
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    crelm::util::UniqueFd file = open_dot_qmail(parent);
    if (!file.valid())
        return failure_text("Unable to open '%s': %s", path);
    if (!crelm::util::write_all(file.get(), kTrueLine)) {
        const std::string text = failure_text("Unable to write to '%s': %s", path);
        ::unlinkat(parent.fd.get(), parent.name.c_str(), 0);
        return text;
    }
    if (::fchown(file.get(), owner.uid, owner.gid) != 0 || ::fchmod(file.get(), kDotQmailMode) != 0)
        return failure_text("Unable to chown '%s': %s", path);
    // The line and the file's name reach the disk before the mail name is
    // taken as made: after a power cut an empty ".qmail" would deliver.
    if (::fsync(file.get()) != 0 || file.close() != 0 || crelm::util::sync_directory(parent.fd.get()) != 0) {
        const std::string text = failure_text("Unable to write to '%s': %s", path);
        ::unlinkat(parent.fd.get(), parent.name.c_str(), 0);
        return text;
    }
    return std::nullopt;
}

}  // namespace crelm::qmail

int write_true_qmail(const std::string& path) {
    const std::optional<std::string> failure = crelm::qmail::write_true_line(path);
    if (!failure)
        return 0;
    log_error("%s", failure->c_str());
    return -1;
}
