// The quota steps of the domain commands: the session's mail names with
// their quotas, written into the quota store and into their Maildirs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stores/mailbox_quota_db.h"

namespace crelm::mail::sorvane_commands {

// The mail names of the session with their own quotas (-1 where the session
// gives none), when the session is filled and describes domain; otherwise
// none.
std::vector<MailboxQuota> session_mailbox_quotas(const std::string& domain);

// Writes each entry's quota, or default_quota for an entry without its own,
// into the entry's "maildirsize" (negative: no limit). Every entry is
// written; 0, or 1 when any failed (each failure reported by maildir_size).
int write_maildir_quotas(const std::string& domain, const std::vector<MailboxQuota>& entries,
                         std::int64_t default_quota);

}  // namespace crelm::mail::sorvane_commands
