// Putting the mailbox's delivery line into a ".qmail" and taking it out.
#include "qmail/delivery.h"

#include "qmail/dot_qmail_finish.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "runtime/log.h"
#include "util/file_replace.h"
#include "util/file_str.h"
#include "util/owner_mode.h"

#include <syslog.h>
#include <sys/stat.h>
#include <unistd.h>

using crelm::qmail::log_error;

namespace {

constexpr mode_t kDotQmailMode = 0600;

int remove_known_lines(const std::string& path) {
    if (remove_delivery_strings(path) == 0)
        return 0;
    log_message(LOG_WARNING, "Unable to remove old delivery strings from '%s'", path.c_str());
    return -1;
}

// The file with the line at its end replaces the old one in one step, owned
// by the mail owner before it takes its place, so that a crash or power cut
// never leaves a half-written delivery line for qmail-local to run.
int append_default_line(const std::string& path) {
    std::string line;
    const auto appended = [&](std::string_view old) {
        std::string content(old);
        if (!content.empty() && content.back() != '\n')
            content += '\n';
        content += line;
        if (content.back() != '\n')
            content += '\n';
        return std::optional<std::string>(content);
    };
    if (read_default_delivery(line) != 0 ||
        crelm::util::replace_file_locked(path, appended, crelm::qmail::give_dot_qmail_to_owner) != 0) {
        log_error("Unable to add delivery string to '%s'", path.c_str());
        return -1;
    }
    return 0;
}

int give_to_mail_owner(const std::string& path) {
    const crelm::qmail::MailOwnerIds owner = crelm::qmail::mail_owner_ids();
    if (!owner.known())
        return -1;
    return set_owner_mode(path, owner.uid, owner.gid, kDotQmailMode);
}

}  // namespace

int add_delivery(const std::string& path) {
    if (detect_lda() == kLdaUnknown)
        return -1;
    if (remove_known_lines(path) != 0 || append_default_line(path) != 0)
        return -1;
    return give_to_mail_owner(path);
}

int remove_delivery(const std::string& path) {
    if (remove_known_lines(path) != 0)
        return -1;
    return give_to_mail_owner(path);
}

int add_mailname_delivery(const std::string& mailname, const std::string& domain) {
    std::string path;
    return mailname_qmail_path(path, mailname, domain) == 0 ? add_delivery(path) : -1;
}

int remove_mailname_delivery(const std::string& mailname, const std::string& domain) {
    std::string path;
    return mailname_qmail_path(path, mailname, domain) == 0 ? remove_delivery(path) : -1;
}
