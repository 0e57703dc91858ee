// A ".qmail" written afresh with given lines.
#include "qmail/delivery.h"

#include "qmail/mail_owner.h"
#include "util/file_create.h"
#include "util/file_str.h"
#include "util/owner_mode.h"
#include "util/umask_scope.h"

namespace {

constexpr mode_t kDotQmailMode = 0600;
// Created 0644 less this mask: never writable by group or others, which
// qmail would take as a reason to defer delivery.
constexpr mode_t kDotQmailUmask = 0177;

int empty_dot_qmail(const std::string& path) {
    const crelm::util::UmaskScope umask(kDotQmailUmask);
    return truncate_file(path);
}

}  // namespace

int write_qmail_lines(const std::string& path, const std::vector<std::string>& lines) {
    const crelm::qmail::MailOwnerIds owner = crelm::qmail::mail_owner_ids();
    if (!owner.known() || empty_dot_qmail(path) != 0 ||
        set_owner_mode(path, owner.uid, owner.gid, kDotQmailMode) != 0)
        return -1;
    if (lines.empty())
        return 0;
    return file_str(path, lines, LineAction::add, LinePosition::start) == 0 ? 0 : -1;
}
