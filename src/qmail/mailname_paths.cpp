// Paths of the mail names tree. They were built in fixed 4096-byte buffers;
// a path that would not fit with its terminator is refused the same way.
#include "mailbox/mailnames_root.h"
#include "qmail/mail_names.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"

using crelm::mailbox::kMailboxPathBufferSize;
using crelm::mailbox::mailnames_root;
using crelm::qmail::ascii_domain;
using crelm::qmail::log_error;
using crelm::qmail::lower_case;

namespace {

enum class MailnameFile { home, dot_qmail };

int mailname_path(std::string& path, const std::string& mailname, const std::string& domain, MailnameFile file) {
    if (mailname.empty() || domain.empty()) {
        log_error("empty mailname or maildomain");
        return -1;
    }
    const std::optional<std::string> ascii = ascii_domain(domain);
    if (!ascii)
        return -1;
    std::string built = mailnames_root() + "/" + *ascii + "/" + lower_case(mailname);
    if (file == MailnameFile::dot_qmail)
        built += "/.qmail";
    if (built.size() >= kMailboxPathBufferSize) {
        log_error("Either domain name '%s' or mailname '%s' are too long to store %s path in the provided buffer",
                  domain.c_str(), mailname.c_str(), file == MailnameFile::home ? "mailname home" : ".qmail");
        return -1;
    }
    path = std::move(built);
    return 0;
}

}  // namespace

int mailname_home_path(std::string& path, const std::string& mailname, const std::string& domain) {
    return mailname_path(path, mailname, domain, MailnameFile::home);
}

int mailname_qmail_path(std::string& path, const std::string& mailname, const std::string& domain) {
    return mailname_path(path, mailname, domain, MailnameFile::dot_qmail);
}

std::string domain_dir_path(const std::string& domain) {
    const std::optional<std::string> ascii = ascii_domain(domain);
    return ascii ? mailnames_root() + "/" + *ascii : std::string();
}

std::string qmail_default_path(const std::string& domain) {
    const std::string dir = domain_dir_path(domain);
    return dir.empty() ? dir : dir + "/.qmail-default";
}
