// The ".qmail-default" of a domain: the one line that answers mail for
// names the domain does not have.
#include "qmail/mail_names.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "util/file_str.h"
#include "util/nofollow.h"
#include "util/umask_scope.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

using crelm::qmail::log_error;
using crelm::qmail::MailOwnerIds;

namespace {

constexpr mode_t kDotQmailMode = 0600;
// qmail defers delivery through a group- or world-writable dot-qmail: the
// file is made without those bits from the start.
constexpr mode_t kDotQmailUmask = 0177;

int write_single_line(const std::string& path, const std::string& line) {
    ::unlink(path.c_str());
    const crelm::util::UmaskScope umask(kDotQmailUmask);
    return file_str_one(path, line, LineAction::add, LinePosition::end);
}

int give_to_mail_owner(const std::string& path, const MailOwnerIds& owner) {
    const crelm::util::UniqueFd file = crelm::util::open_path_nofollow(path);
    if (!file.valid() || crelm::util::chown_handle(file.get(), owner.uid, owner.gid) != 0) {
        log_error("add_qmail_default: chown %s failed: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    if (crelm::util::chmod_handle(file.get(), kDotQmailMode) != 0) {
        log_error("add_qmail_default: chmod %s failed: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
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
    if (write_single_line(path, line) != 0) {
        log_error("add_qmail_default: Unable to add record to %s file.", path.c_str());
        return -1;
    }
    return give_to_mail_owner(path, owner);
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
