#include "mailbox/mailbox_disk_usage.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "mailbox/maildirsize_read.h"
#include "mailbox/mailnames_root.h"
#include "mailbox/report.h"
#include "runtime/idn.h"
#include "runtime/log.h"

namespace {

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string bounded_path(const std::string& path) {
    if (path.size() >= crelm::mailbox::kMailboxPathBufferSize) {
        errno = ENAMETOOLONG;
        report_error(1, 1, "user mailbox path is too long");
    }
    return path;
}

}  // namespace

long long mailbox_disk_usage(const std::string& domain, const std::string& mailname, SizeUnit unit) {
    const auto ascii_domain = idn_toascii(domain);
    if (!ascii_domain) {
        errno = 0;  // not a system error: no system error text
        report_error(1, 1, "idn_toascii() failed: %s", idn_status_text(idn_last_status()));
    }
    const std::string mailbox =
        bounded_path(crelm::mailbox::mailnames_root() + "/" + *ascii_domain + "/" + lower_case(mailname) + "/");
    const std::string attachments_path = bounded_path(mailbox + "/@attachments");
    const std::string maildir = bounded_path(mailbox + "/Maildir");

    const long long attachments = std::max(dir_size(attachments_path.c_str(), unit), 0LL);
    long long bytes = 0;
    long long count = 0;
    if (!maildirsize_read(maildir, bytes, count, Recount::Allowed)) {
        mailbox_report(std::string("Unable to calculate Maildir++ size: ") + std::strerror(errno));
        return attachments;
    }
    return attachments + bytes;
}
