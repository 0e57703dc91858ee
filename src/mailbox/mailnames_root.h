// Where the mailbox trees live: <root>/<domain>/<mail name>, with "Maildir"
// and "@attachments" side by side in the mail name's directory.
#pragma once

#include <string>

namespace crelm::mailbox {

// The configured mail names directory ("/var/qmail/mailnames" unless the
// runtime configuration says otherwise).
std::string mailnames_root();

// Mailbox paths were built in buffers of this size; longer ones are refused.
inline constexpr std::size_t kMailboxPathBufferSize = 4096;

}  // namespace crelm::mailbox
