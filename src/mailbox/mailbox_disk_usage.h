// The size of a mailbox as --get-mailbox-size reports it.
#pragma once

#include <string>

#include "util/dir_size.h"

// The size of <mail names root>/<domain in ASCII>/<mailname in lower case>:
// its "@attachments" directory in the given unit (0 when it cannot be
// measured) plus the Maildir++ size of its Maildir in bytes (from
// "maildirsize", or counted when that is unusable). If the Maildir++ size
// cannot be had, "Unable to calculate Maildir++ size: <reason>" is reported
// and the attachments size alone is returned. Never negative.
// Ends the process (exit status 1) with "idn_toascii() failed: <status
// text>" when the domain does not convert, or "user mailbox path is too long"
// (with the system error text of ENAMETOOLONG) when a path would not fit 4096
// bytes.
long long mailbox_disk_usage(const std::string& domain, const std::string& mailname, SizeUnit unit);
