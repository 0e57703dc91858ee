#include "mailbox/maildir_size.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "mailbox/maildirsize_create.h"
#include "mailbox/maildirsize_format.h"
#include "mailbox/mailnames_root.h"
#include "mailbox/open_directory.h"
#include "mailbox/report.h"
#include "mailbox/working_directory.h"
#include "runtime/idn.h"
#include "runtime/system_users.h"
#include "util/dir_size.h"

namespace {

bool fail(const std::string& message, int error) {
    mailbox_report(message);
    errno = error;
    return false;
}

bool enter_mailbox(crelm::mailbox::WorkingDirectoryGuard& guard, const std::string& mailbox) {
    if (!guard.remember())
        return fail("unable to get current working directory", errno);
    const auto dir = crelm::mailbox::open_directory(mailbox);
    if (!dir.valid() || !guard.change_to(dir.get()))
        return fail("unable to change to mbox folder " + mailbox + ": " + std::strerror(errno), errno);
    return true;
}

// The quota left once "@attachments" (in the working directory) is deducted.
bool quota_after_attachments(long long& quota) {
    struct stat st;
    if (quota < 0 || lstat("@attachments", &st) != 0 || !S_ISDIR(st.st_mode))
        return true;
    const long long attachments = dir_size("@attachments", SizeUnit::Bytes);
    if (attachments < 0)
        return fail("unable to count attachments folder size", errno);
    quota -= attachments;
    if (quota < 0) {
        quota = 0;
        mailbox_report("WARNING: @attachments directory is big enough to disable delivery!");
    }
    return true;
}

bool write_maildirsize_for_quota(long long quota) {
    uid_t uid = 0;
    gid_t gid = 0;
    if (get_user_ids(kMailOwner, &uid, &gid, nullptr) != 0)
        return false;
    return maildirsize_create("./Maildir", uid, gid, crelm::mailbox::storage_quota_to_write(quota), 0);
}

}  // namespace

bool maildir_size(const std::string& domain, const std::string& mailname, long long quota) {
    const auto ascii_domain = idn_toascii(domain);
    if (!ascii_domain)
        return fail("idn_toascii(" + domain + ") failed: " + idn_status_text(idn_last_status()), EINVAL);
    const std::string mailbox = crelm::mailbox::mailnames_root() + "/" + *ascii_domain + "/" + mailname;
    if (mailbox.size() >= crelm::mailbox::kMailboxPathBufferSize)
        return fail("domain and/or user name too long to be stored on the filesystem", ENAMETOOLONG);
    crelm::mailbox::WorkingDirectoryGuard guard;
    if (!enter_mailbox(guard, mailbox))
        return false;
    return quota_after_attachments(quota) && write_maildirsize_for_quota(quota);
}
