// Rewriting a file's lines into a temporary file beside it, renamed into
// place, all under the file's lock, for edits whose result must not meet a
// line edit of the same file half way.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "util/line_rewrite.h"

namespace crelm::qmail {

// What the rewritten file gets before it replaces the old one.
struct CopyAttributes {
    mode_t mode = 0644;
    std::optional<std::pair<uid_t, gid_t>> owner;  // kept as made (root) when empty
};

// Takes the lock of path ("Error occurred while locking %s file"), writes
// the lines of path as rewrite has them (util/line_rewrite.h) to a new
// "<path>.mail.XXXXXX" ("Unable to create temporary file: %s"; "Unable to
// read file %s: %s\n" and "Unable to write data into file %s: %s\n" when
// the copy fails), gives the temporary file its mode ("chmod failed: %s\n")
// and owner ("chown failed: %s\n") and renames it onto path ("rename
// failed: %s\n"), then releases the lock ("Error occurred while unlocking
// %s file\n"). Neither path nor the file's directory entry is followed when
// it is a symbolic link, and only a regular file is read. Below the mail
// names directory, a file with more than one hard link or larger than 1 MiB
// is not read either ("Refused to edit file %s: it has more than one hard
// link\n", "Refused to edit file %s: it is larger than 1048576 bytes\n").
// true when the file was replaced; on false the temporary file is gone and the file is as
// it was. Copies "<path>.mail.XXXXXX" that an earlier edit killed half-way
// left behind are removed first, under the lock.
bool rewrite_copy_locked(const std::string& path, const crelm::util::LineRewrite& rewrite,
                         const CopyAttributes& attributes);

}  // namespace crelm::qmail
