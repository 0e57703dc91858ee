// The text of a "maildirsize" file: the quota header, then the size and the
// message count of the whole mailbox, each right-aligned in 12 columns.
// Delivery agents append one line of size and count deltas per change.
#pragma once

#include <string>

namespace crelm::mailbox {

// The storage quota to put in the header for a requested quota in bytes:
// 0 (no limit) for a negative request, 1 for a request of 0 (so that a zero
// quota never reads as no limit), the request itself otherwise.
long long storage_quota_to_write(long long requested);

// "<quota_bytes>S,<quota_count>C\n<bytes:12><count:12>\n".
std::string maildirsize_text(long long quota_bytes, long long quota_count, long long bytes, long long count);

}  // namespace crelm::mailbox
