#include "qmail/dot_qmail_finish.h"

#include "qmail/mail_owner.h"

#include <sys/stat.h>
#include <unistd.h>

namespace crelm::qmail {

bool give_dot_qmail_to_owner(int fd) {
    constexpr mode_t kDotQmailMode = 0600;
    const MailOwnerIds owner = mail_owner_ids();
    return (!owner.known() || ::fchown(fd, owner.uid, owner.gid) == 0) && ::fchmod(fd, kDotQmailMode) == 0;
}

}  // namespace crelm::qmail
