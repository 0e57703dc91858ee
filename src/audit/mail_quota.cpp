#include "audit/mail_quota.h"

#include <algorithm>
#include <array>
#include <utility>

#include "mailbox/maildirsize_format.h"
#include "stores/mailbox_quota_text.h"

namespace crelm::audit {

namespace {

// A run of decimal digits that fits in a long long.
std::optional<long long> whole_number(std::string_view digits) {
    if (digits.empty() || digits.size() > 18)
        return std::nullopt;
    long long number = 0;
    for (char c : digits) {
        if (c < '0' || c > '9')
            return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

std::optional<long long> maildirsize_storage_quota(std::string_view header) {
    long long storage = 0;
    bool any = false;
    while (!header.empty()) {
        const std::size_t comma = header.find(',');
        const std::string_view part = header.substr(0, comma);
        if (part.size() < 2 || (part.back() != 'S' && part.back() != 'C'))
            return std::nullopt;
        const std::optional<long long> number = whole_number(part.substr(0, part.size() - 1));
        if (!number)
            return std::nullopt;
        if (part.back() == 'S')
            storage = *number;
        any = true;
        if (comma == std::string_view::npos)
            break;
        header.remove_prefix(comma + 1);
        if (header.empty())
            return std::nullopt;  // a comma with nothing after it
    }
    return any ? std::optional<long long>(storage) : std::nullopt;
}

std::optional<std::int64_t> stored_quota_bytes(std::string_view text) {
    // Read as sorvane reads it back, without its log record.
    return quota_text_bytes(text);
}

bool quota_in_step(long long storage, std::optional<std::int64_t> stored, long long attachments_bytes) {
    if (!stored)
        return storage == mailbox::storage_quota_to_write(-1);
    if (*stored == 0)
        return storage == mailbox::storage_quota_to_write(-1) || storage == mailbox::storage_quota_to_write(0);
    const long long least = mailbox::storage_quota_to_write(std::max<long long>(*stored - attachments_bytes, 0));
    return storage >= least && storage <= *stored;
}

}  // namespace crelm::audit
