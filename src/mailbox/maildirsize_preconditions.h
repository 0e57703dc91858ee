// What a Maildir must look like before a fresh "maildirsize" is written into
// it. A broken tree is refused at once with a message that names what is
// missing, instead of ending in a failed retry loop or a half-done count.
#pragma once

#include <string>

namespace crelm::mailbox {

// Checks the Maildir open on maildir_fd: its "tmp", "cur" and "new", and the
// "cur" and "new" of each subfolder (an entry whose name starts with "." and
// that is a directory; links are not followed), must be directories, and
// "maildirsize", if there, must be a regular file or a symbolic link (a link
// is replaced, never followed). Returns true, or false with errno set after
// reporting one of
//   "Maildir folder <path> has no <tmp|cur|new> directory: <reason>",
//   "<maildir>/maildirsize is not a regular file" (EINVAL),
//   "Unable to read Maildir folder <maildir>: <reason>".
// <path> and <maildir> are the Maildir's absolute path when it can be had
// (shown_path otherwise), so the message says which mailbox is broken.
bool check_maildir_for_maildirsize(int maildir_fd, const std::string& shown_path);

// The absolute path of the directory open on fd, for messages: callers often
// hold a Maildir by a relative name ("./Maildir") that says nothing about the
// mailbox. fallback when the path cannot be had.
std::string absolute_path_of(int fd, const std::string& fallback);

}  // namespace crelm::mailbox
