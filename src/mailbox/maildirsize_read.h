// Reading the Maildir++ size of a mailbox from its "maildirsize" file, with
// a full count of the Maildir as the fallback.
#pragma once

#include <string>

enum class Recount {
    Allowed,  // an unusable file is replaced by a full count of the Maildir
    Never,    // an unusable file is a failure
};

// Reads "<maildir>/maildirsize" (a symbolic link or anything but a regular
// file there is unreadable; so is a file of 5120 bytes or more, which the
// delivery agent recounts rather than reads, EFBIG). The first line
// must be a quota header ("<n>S", "<m>C" or both, comma-separated; no
// negative quota), else "maildirsize quota header is corrupted. Please run
// maildir_mend utility to fix." is logged. Every following complete line adds
// its size and count (either may be negative; blank lines are skipped).
// The file is unusable when it cannot be read, its header is corrupted, a
// line does not hold two numbers, or a total comes out negative.
// Returns true with bytes and count filled from the file, or from
// maildir_count when the file is unusable and recount is Allowed. Returns
// false with errno set when the file is unusable and recount is Never
// (EINVAL for bad contents), or when the count fails.
bool maildirsize_read(const std::string& maildir, long long& bytes, long long& count, Recount recount);
