// Temporary "maildirsize" files that a writer killed half-way (or cut off by
// a power loss) left in a Maildir's "tmp" folder.
#pragma once

#include <string>

namespace crelm::mailbox {

// Removes from the "tmp" folder of the Maildir open on maildir_fd every
// entry named "<seconds>.<pid>.<host>-maildirsize" (the names this program
// gives its own temporary maildirsize files on this host) whose process no
// longer runs. A file of a writer that is still at work, another panel's
// run on the same mailbox, is left to it. Entries are removed by name in
// the opened folder and never followed. Best effort: a folder or entry
// that cannot be read or removed is passed over silently, since the
// temporary file is harmless to mail readers, which ignore "tmp".
void remove_abandoned_maildirsize_temporaries(int maildir_fd, const std::string& host);

// Whether name has the form of a temporary maildirsize file of host, and
// if so the process that wrote it.
bool maildirsize_temporary_writer(const std::string& name, const std::string& host, long& pid);

}  // namespace crelm::mailbox
