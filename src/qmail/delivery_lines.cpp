// The delivery lines of a mail name's ".qmail".
#include "qmail/delivery.h"

#include "qmail/dot_qmail_finish.h"
#include "util/file_replace.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace {

bool is_known_line(std::string_view line) {
    if (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    const std::vector<std::string>& known = known_delivery_lines();
    return std::find(known.begin(), known.end(), line) != known.end();
}

// The content without its known delivery lines; every other byte is kept as
// it is, a last line without a newline included.
std::optional<std::string> without_known_lines(std::string_view content) {
    std::string kept;
    while (!content.empty()) {
        const std::size_t newline = content.find('\n');
        const std::size_t length = newline == std::string_view::npos ? content.size() : newline + 1;
        const std::string_view line = content.substr(0, length);
        if (!is_known_line(line))
            kept += line;
        content.remove_prefix(length);
    }
    return kept;
}

}  // namespace

const std::vector<std::string>& known_delivery_lines() {
    static const std::vector<std::string> lines = {
        "./Maildir/",
        "| /usr/bin/deliverquota ./Maildir",
        "| /usr/bin/deliverquota -w 94 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir",
        "| /usr/bin/deliverquota -w 95 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir",
        "| /usr/lib/dovecot/dovecot-lda -d \"$DELIVERED_TO\" -a \"${ORIGINAL_RECIPIENT:-$DELIVERED_TO}\"",
    };
    return lines;
}

// The file is read whole (a dot-qmail file is small; a larger one is
// refused) and replaced in one step, so that a FIFO, a hard link to
// another file or a huge file planted at its name is never followed, read
// without end or given to the mail owner.
int remove_delivery_strings(const std::string& path) {
    const int replaced = crelm::util::replace_file_locked(path, without_known_lines, crelm::qmail::give_dot_qmail_to_owner,
                                                          crelm::util::WhenMissing::fail);
    return replaced == 0 ? 0 : -1;
}
