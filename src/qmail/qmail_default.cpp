// The ".qmail-default" of a domain: the one line that answers mail for
// names the domain does not have.
#include "qmail/mail_names.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "util/file_replace.h"
#include "util/nofollow.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using crelm::qmail::log_error;
using crelm::qmail::MailOwnerIds;

namespace {

constexpr mode_t kDotQmailMode = 0600;

std::string with_newline(const std::string& line) {
    return !line.empty() && line.back() == '\n' ? line : line + "\n";
}

// Owner and mode go onto the new file before it takes the old one's place.
bool give_to_mail_owner(int fd, const std::string& path, const MailOwnerIds& owner) {
    if (::fchown(fd, owner.uid, owner.gid) != 0) {
        log_error("add_qmail_default: chown %s failed: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    if (::fchmod(fd, kDotQmailMode) != 0) {
        log_error("add_qmail_default: chmod %s failed: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

int add_qmail_default(const std::string& domain, const std::string& line) {
    const std::string path = qmail_default_path(domain);
    if (path.empty())
        return -1;
    const MailOwnerIds owner = crelm::qmail::mail_owner_ids();
    if (!owner.known()) {
        log_error("add_qmail_default: Unable to define UID or GID for user popuser");
        return -1;
    }
    // The line is the whole file: it replaces the old file in one step, so
    // that mail for unknown names always meets the old answer or the new.
    bool finished = true;
    const int written = crelm::util::replace_file_locked(
        path, with_newline(line), [&](int fd) { return finished = give_to_mail_owner(fd, path, owner); });
    if (written != 0 && finished) {
        log_error("add_qmail_default: Unable to add record to %s file.", path.c_str());
    }
    return written == 0 ? 0 : -1;
}

int remove_qmail_default(const std::string& domain) {
    const std::string path = qmail_default_path(domain);
    if (path.empty())
        return -1;
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    if (!parent.fd.valid() && errno == ENOENT)
        return 0;
    if (!parent.fd.valid() || (::unlinkat(parent.fd.get(), parent.name.c_str(), 0) != 0 && errno != ENOENT)) {
        log_error("Unable to remove %s: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}
