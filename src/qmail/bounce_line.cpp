#include "qmail/bounce_line.h"

#include "qmail/mailname_files.h"
#include "qmail/reject_list.h"
#include "runtime/shell_quote.h"

#include <algorithm>

namespace crelm::qmail {

std::string bounce_line(const std::string& message) {
    std::string text = message.empty() ? std::string(kDefaultBounceMessage) : message;
    std::replace(text.begin(), text.end(), '\n', ' ');
    return "|bouncesaying " + shell_escape(text);
}

}  // namespace crelm::qmail

int set_bounce(const std::string& domain, const std::string& message, RejectCleanup cleanup) {
    const std::string line = crelm::qmail::bounce_line(message);
    const int cleared = crelm::qmail::clear_reject_for(domain, cleanup);
    const int written = add_qmail_default(domain, line);
    return cleared == 0 && written == 0 ? 0 : -1;
}
