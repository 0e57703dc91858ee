#include "mailbox/maildirsize_format.h"

#include <cstdio>

namespace crelm::mailbox {

long long storage_quota_to_write(long long requested) {
    if (requested < 0)
        return 0;
    return requested == 0 ? 1 : requested;
}

std::string maildirsize_text(long long quota_bytes, long long quota_count, long long bytes, long long count) {
    // The longest possible text (four 64-bit numbers) still fits.
    char text[100];
    const int length = std::snprintf(text, sizeof text, "%lldS,%lldC\n%12lld%12lld\n", quota_bytes, quota_count,
                                     bytes, count);
    return std::string(text, static_cast<std::size_t>(length));
}

}  // namespace crelm::mailbox
