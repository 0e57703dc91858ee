// Writing a fresh "maildirsize" file into a Maildir, atomically: the text is
// written to a temporary file in the Maildir's "tmp", flushed to disk and
// renamed into place, as delivery agents do for their own files.
#pragma once

#include <sys/types.h>

#include <string>

// Writes "<maildir>/maildirsize" holding the quota header
// "<quota_bytes>S,<quota_count>C" (the numbers as given; see
// storage_quota_to_write) and the Maildir's counted size and message count,
// owned by uid:gid with mode 0644 (less the umask).
// The Maildir is checked first (check_maildir_for_maildirsize): a missing
// "tmp", a folder without "cur" or "new", or a "maildirsize" that is not a
// regular file fails at once, before anything is written.
// The temporary file "tmp/<seconds>.<pid>.<host>-maildirsize" ("/" in the
// host name written as "_") must be new: while the name is taken, up to five
// names are tried, two seconds apart; any other failure to create it ends at
// once with "Unable to create <maildir>/tmp/<name>: <reason>" (<maildir> as
// absolute_path_of gives it). If mail arrived while the Maildir was being counted, the file
// is marked stale (modification time 960 seconds before the count started)
// so that the next reader recounts; that is still a success.
// Returns true, or false with errno set after reporting one of
//   "Unable to receive hostname",
//   "Maximal allowed number of attempts to create a maildirsize file exceeded" (EAGAIN),
//   "unable to write data to file", "unable to commit written data to file",
//   "Unable to open Maildir folder. Has it just been removed?",
// a counting failure (maildir_count), or one of its own:
//   "Unable to open Maildir folder <maildir>: <reason>",
//   "Unable to change owner of maildirsize file: <reason>",
//   "Unable to rename <temporary> to maildirsize: <reason>".
// Temporary maildirsize files of this host whose writer no longer runs (a
// run that was killed half-way) are removed from "tmp" first.
// A failure never leaves the temporary file behind. The working directory
// is not changed.
bool maildirsize_create(const std::string& maildir, uid_t uid, gid_t gid, long long quota_bytes,
                        long long quota_count);
