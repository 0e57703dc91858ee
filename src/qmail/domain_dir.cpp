// A domain's directory in the mail names tree.
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "util/directories.h"
#include "util/nofollow.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

using crelm::qmail::MailOwnerIds;
using crelm::qmail::report_failure;

namespace {

constexpr mode_t kDomainDirMode = 0700;

bool exists_unfollowed(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

// Owner and mode go on through a handle on the directory itself, so a
// link at its place is refused instead of followed.
int give_to_mail_owner(const std::string& path, const MailOwnerIds& owner) {
    const crelm::util::UniqueFd dir = crelm::util::open_path_nofollow(path);
    if (!dir.valid() || crelm::util::chown_handle(dir.get(), owner.uid, owner.gid) != 0) {
        report_failure("chown(%s, %d, %d) failed: %s\n", path.c_str(), static_cast<int>(owner.uid),
                       static_cast<int>(owner.gid), std::strerror(errno));
        return -1;
    }
    if (crelm::util::chmod_handle(dir.get(), kDomainDirMode) != 0) {
        report_failure("chmod(%s, %04o) failed: %s\n", path.c_str(), kDomainDirMode, std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int create_domain_dir(const std::string& domain) {
    const std::string path = domain_dir_path(domain);
    if (path.empty())
        return -1;
    const MailOwnerIds owner = crelm::qmail::mail_owner_ids();
    if (!owner.known())
        return -1;
    if (make_path(path) == 0) {
        report_failure("recursive mkdir(%s) failed: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    return give_to_mail_owner(path, owner);
}

int rename_domain_dir(const std::string& old_domain, const std::string& new_domain) {
    const std::string old_path = domain_dir_path(old_domain);
    const std::string new_path = domain_dir_path(new_domain);
    if (old_path.empty() || new_path.empty())
        return 1;
    if (!exists_unfollowed(old_path)) {
        report_failure("Mail directory %s not exists.\n", old_path.c_str());
        return 1;
    }
    if (exists_unfollowed(new_path)) {
        report_failure("Mail directory %s already exists.\n", new_path.c_str());
        return 1;
    }
    if (::renameat2(AT_FDCWD, old_path.c_str(), AT_FDCWD, new_path.c_str(), RENAME_NOREPLACE) != 0) {
        report_failure("Renaming %s to %s failed: %s\n", old_path.c_str(), new_path.c_str(), std::strerror(errno));
        return 1;
    }
    return 0;
}
