#include "qmail/mail_owner.h"

#include "runtime/system_users.h"

namespace crelm::qmail {

MailOwnerIds mail_owner_ids() {
    static MailOwnerIds kept;
    if (kept.known())
        return kept;
    MailOwnerIds found;
    if (get_user_ids(kMailOwner, &found.uid, &found.gid, nullptr) != 0)
        return {};
    if (found.known())
        kept = found;
    return found;
}

}  // namespace crelm::qmail
