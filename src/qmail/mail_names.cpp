#include "qmail/mail_names.h"

#include "qmail/qmail_report.h"
#include "runtime/idn.h"

#include <algorithm>
#include <cctype>

namespace crelm::qmail {

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::optional<std::string> ascii_domain(const std::string& domain) {
    std::optional<std::string> ascii = idn_toascii(domain);
    if (!ascii) {
        log_error("idn_toascii(%s) failed: %s", domain.c_str(), idn_status_text(idn_last_status()));
        return std::nullopt;
    }
    return lower_case(*ascii);
}

}  // namespace crelm::qmail
