#include "qmail/bounce_line.h"

#include "qmail/mailname_files.h"
#include "qmail/reject_list.h"
#include "runtime/shell_quote.h"

#include <algorithm>

namespace crelm::qmail {
namespace {

// bash expands a brace list such as {a,b} inside a word even when the
// blanks around it are escaped; a backslash before each brace keeps it a
// plain character there and changes nothing under dash.
std::string escape_braces(const std::string& escaped) {
    std::string result;
    result.reserve(escaped.size());
    for (const char c : escaped) {
        if (c == '{' || c == '}')
            result += '\\';
        result += c;
    }
    return result;
}

}  // namespace

std::string bounce_line(const std::string& message) {
    std::string text = message.empty() ? std::string(kDefaultBounceMessage) : message;
    std::replace(text.begin(), text.end(), '\n', ' ');
    return "|bouncesaying " + escape_braces(shell_escape(text));
}

}  // namespace crelm::qmail

int set_bounce(const std::string& domain, const std::string& message, RejectCleanup cleanup) {
    const std::string line = crelm::qmail::bounce_line(message);
    const int cleared = crelm::qmail::clear_reject_for(domain, cleanup);
    const int written = add_qmail_default(domain, line);
    return cleared == 0 && written == 0 ? 0 : -1;
}
