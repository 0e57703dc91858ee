// What a rewritten ".qmail" gets before it takes the old one's place.
#pragma once

namespace crelm::qmail {

// Gives the new file open on fd owner popuser and mode 0600, so that it is
// the mail owner's from the moment it has the name. Without a known mail
// owner it keeps root as owner (the owner step that follows reports that).
// false when fchown or fchmod failed.
bool give_dot_qmail_to_owner(int fd);

}  // namespace crelm::qmail
