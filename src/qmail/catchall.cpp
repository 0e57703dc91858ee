// Forwarding mail for unknown names of a domain to one address.
#include "qmail/catchall.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "qmail/reject_list.h"
#include "runtime/idn.h"

#include <algorithm>

using crelm::qmail::log_error;

namespace {

// The forwarding line was composed in a 4096-byte buffer.
constexpr std::size_t kMaxLineLength = 4095;

// A newline would add a second line to ".qmail-default", one that qmail
// runs as a program; a blank or another control character has no place in
// one address either.
bool is_single_address(const std::string& address) {
    return std::none_of(address.begin(), address.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f || byte == ' ';
    });
}

}  // namespace

bool has_local_part_and_domain(const std::string& address) {
    const std::string::size_type at = address.find('@');
    return at != std::string::npos && at > 0 && at + 1 < address.size();
}

int set_catchall(const std::string& domain, const std::string& address, RejectCleanup cleanup) {
    if (!is_single_address(address)) {
        log_error("Catch-all address for %s refused: it contains a blank or a control character", domain.c_str());
        return -1;
    }
    if (!has_local_part_and_domain(address)) {
        log_error("Catch-all address for %s refused: it needs a local part and a domain", domain.c_str());
        return -1;
    }
    const std::optional<std::string> ascii = idn_email_toascii(address);
    if (!ascii) {
        log_error("idn_email_toascii(%s) failed: %s", address.c_str(), idn_status_text(idn_last_status()));
        return -1;
    }
    const std::string line = ("&" + *ascii).substr(0, kMaxLineLength);
    const int cleared = crelm::qmail::clear_reject_for(domain, cleanup);
    const int written = add_qmail_default(domain, line);
    return cleared == 0 && written == 0 ? 0 : -1;
}
