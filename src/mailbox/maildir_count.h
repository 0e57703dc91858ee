// Counting a Maildir++ mailbox: every message in "cur" and "new" of the
// Maildir itself and of each subfolder that holds a "maildirfolder" marker.
// A message counts 1 and its size: the ",S=" size its name carries, else its
// own lstat size. Nothing found in the tree is followed when it is a
// symbolic link: a linked "cur", "new" or subfolder counts nothing, a linked
// message counts as the link itself.
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
// A subfolder whose marker cannot be examined is reported as
// "unable to stat('<marker path>'). Continue." and left out.
bool count_maildir_at(int maildir_fd, const std::string& maildir, MaildirTotals& totals);

}  // namespace crelm::mailbox

// Counts the Maildir at path maildir (see count_maildir_at) into bytes, count
// and latest_mtime. Returns true, or false with errno set after reporting the
// failure; a Maildir that cannot be opened is "Maildir subfolder 'cur' stat
// failed" (EIO).
bool maildir_count(const std::string& maildir, long long& bytes, long long& count, timespec& latest_mtime);
