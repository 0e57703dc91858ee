// Whether a mailbox's "maildirsize" holds the quota that the quota store
// gives it, as sorvane writes it: the store's bytes less the space that
// "@attachments" takes, a quota of 0 written as 1, no limit written as 0.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace crelm::audit {

// The storage quota of the header line of a "maildirsize" ("<n>S",
// "<m>C" or both, comma-separated): n, or 0 (no limit) without an "S"
// part; nothing when the line is not a quota header.
std::optional<long long> maildirsize_storage_quota(std::string_view header);

// The bytes of a quota store text ("<digits>" with "", "B", "KB", "MB",
// "GB" or "TB"); nothing for any other text or one out of range. Read
// without the store reader's logging, which the audit never does.
std::optional<std::int64_t> stored_quota_bytes(std::string_view text);

// Whether storage, read from "maildirsize", is what sorvane writes for the
// quota store's bytes (nothing: the mailbox has no row), given the space
// "@attachments" takes now. A row of 0 bytes is what both no limit and a
// zero quota are stored as, so either header goes with it; a quota above 0
// may have had any part of "@attachments" taken off when it was written.
bool quota_in_step(long long storage, std::optional<std::int64_t> stored, long long attachments_bytes);

}  // namespace crelm::audit
