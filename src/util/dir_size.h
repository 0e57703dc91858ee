// Disk usage of a directory tree, as the mailbox commands measure a
// mailbox's "@attachments" directory. The tree belongs to a mail user, so the
// walk never follows a symbolic link: the path is reached by the walk of
// util/nofollow.h (a link a mail user planted on the way, say at the mail
// name's home, is a failure with ELOOP), every entry is examined with lstat
// semantics and directories are entered by descriptor, relative to their
// parent, refusing links. However deep the tree, only a few descriptors are
// open at a time.
#pragma once

enum class SizeUnit {
    Bytes,   // apparent sizes (st_size) summed
    Blocks,  // allocated space in 1024-byte blocks, rounded up
};

// Size of everything under path, the directory itself and every entry below
// it included, a symbolic link counting as the link itself and each
// hard-linked inode counted once. A path that is not a directory counts as
// that single entry; a missing path is 0. Entries that vanish while they are
// walked are left out.
// Returns the size (0 or more), or -1 after reporting through report_error
// ("Unable to measure size of <path>" with the system error, the path
// escaped as runtime/shown_text.h escapes it) when a directory
// cannot be opened or read or an entry cannot be examined.
long long dir_size(const char* path, SizeUnit unit);
