// Counting a Maildir++ mailbox the way the delivery agent recounts it, so
// that the totals written into "maildirsize" agree with the agent's own:
// every message in "cur" and "new" of the Maildir itself and of each
// subfolder (an entry of the Maildir whose name starts with "." and that is
// a directory, with or without a "maildirfolder" marker), except the
// ".Trash" folder. Names starting with "." and trashed messages (see
// is_trashed_message_name) are left out. A message counts 1 and its size:
// the ",S=" size its name carries (size_from_message_name), else its own
// lstat size. A subfolder without "cur" or "new" counts what it has.
// Nothing found in the tree is followed when it is a symbolic link: a linked
// "cur", "new" or subfolder counts nothing, a linked message counts as the
// link itself. Totals add up modulo 2^64, as the agent's do.
#pragma once

#include <ctime>
#include <string>

namespace crelm::mailbox {

struct MaildirTotals {
    long long bytes = 0;
    long long count = 0;
    timespec latest_mtime{};  // the latest modification time of a counted "cur" or "new"
};

// Counts the Maildir open on maildir_fd; maildir is its path, used for the
// path-length limits and the messages. Adds to totals. Returns true, or
// false with errno set after reporting one of:
//   "Maildir subfolder 'cur' name too long to fit the allowed buffer" (and
//   'new'; ENAMETOOLONG), when a folder path would reach 4096 bytes;
//   "Maildir subfolder 'cur' stat failed" (and 'new'; EIO);
//   "Unable to read Maildir folder <path>: <reason>" when a listing fails.
// The Maildir's own "cur" and "new" must be there; a subfolder's need not.
bool count_maildir_at(int maildir_fd, const std::string& maildir, MaildirTotals& totals);

}  // namespace crelm::mailbox

// Counts the Maildir at path maildir (see count_maildir_at) into bytes, count
// and latest_mtime. Returns true, or false with errno set after reporting the
// failure; a Maildir that cannot be opened is "Maildir subfolder 'cur' stat
// failed" (EIO).
bool maildir_count(const std::string& maildir, long long& bytes, long long& count, timespec& latest_mtime);
