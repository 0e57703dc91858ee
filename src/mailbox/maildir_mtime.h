// Modification times of Maildir folders: delivery agents add messages to
// "new" and move them to "cur", so the later of the two times tells when a
// folder last received or lost mail.
#pragma once

#include <ctime>
#include <string>

// The later modification time of "<folder>/cur" and "<folder>/new" (neither
// followed when it is a symbolic link). Returns true, or false with errno set
// when the folder or either of the two cannot be examined.
bool maildir_latest_mtime(const std::string& folder, timespec& time);

namespace crelm::mailbox {

// a is later than b.
bool is_later(const timespec& a, const timespec& b);

// maildir_latest_mtime for the folder open on folder_fd.
bool latest_mtime_at(int folder_fd, timespec& time);

// The latest modification time of "cur" and "new" of the Maildir and of every
// subfolder in it (the entries whose names start with "."). A non-directory
// entry among them is reported as "Bad/unrecognized entry <name> within
// Maildir folder <absolute Maildir path>" and skipped; so is a subfolder
// without "cur" or "new". Returns true, or false after reporting "Unable to
// open Maildir folder. Has it just been removed?" when the Maildir cannot be
// opened. time is 0 when nothing could be examined.
bool maildir_tree_latest_mtime(const std::string& maildir, timespec& time);

}  // namespace crelm::mailbox
