// A ".qmail" written afresh with given lines.
#include "qmail/delivery.h"

#include <sys/stat.h>
#include <unistd.h>

#include "qmail/mail_owner.h"
#include "util/file_replace.h"

namespace {

constexpr mode_t kDotQmailMode = 0600;

std::string joined(const std::vector<std::string>& lines) {
    std::string content;
    for (const std::string& line : lines) {
        content += line;
        if (line.empty() || line.back() != '\n')
            content += '\n';
    }
    return content;
}

}  // namespace

// The lines are the whole file: it replaces the old one in one step, owned by
// the mail owner before it takes the old one's place, so that qmail-local
// never meets an empty, half-written or root-owned ".qmail".
int write_qmail_lines(const std::string& path, const std::vector<std::string>& lines) {
    const crelm::qmail::MailOwnerIds owner = crelm::qmail::mail_owner_ids();
    if (!owner.known())
        return -1;
    const std::string content = joined(lines);
    // The old content is read (and dropped) only so that a link, FIFO or
    // device at path is refused, as this step always has.
    const int written = crelm::util::replace_file_locked(
        path, [&](std::string_view) { return std::optional<std::string>(content); },
        [&](int fd) { return ::fchown(fd, owner.uid, owner.gid) == 0 && ::fchmod(fd, kDotQmailMode) == 0; });
    return written == 0 ? 0 : -1;
}
