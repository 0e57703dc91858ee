// The ids of the system user that owns every mail name's files.
#pragma once

#include <sys/types.h>

namespace crelm::qmail {

struct MailOwnerIds {
    uid_t uid = 0;
    gid_t gid = 0;
    // Root's ids are never taken for the mail owner: a zero means the
    // lookup failed.
    bool known() const { return uid != 0 && gid != 0; }
};

// popuser's uid and primary gid, looked up on first use and kept once
// found. Zeros (the lookup reported why) when there is no such user.
MailOwnerIds mail_owner_ids();

}  // namespace crelm::qmail
