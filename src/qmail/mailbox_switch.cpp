// Switching a mail name's mailbox (local delivery into its Maildir) on and off.
#include "qmail/delivery.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "qmail/session_hooks.h"
#include "stores/mail_auth_store.h"

using crelm::qmail::log_error;

namespace {

bool names_given(const std::string& mailname, const std::string& domain) {
    if (!mailname.empty() && !domain.empty())
        return true;
    log_error("empty mailname or maildomain");
    return false;
}

}  // namespace

int mailname_mailbox_on(const std::string& mailname, const std::string& domain) {
    if (!names_given(mailname, domain))
        return -1;
    if (add_mailname_delivery(mailname, domain) != 0) {
        mailname_mailbox_off(mailname, domain);
        return -1;
    }
    if (crelm::qmail::qmail_session_hooks().init_quota_record(domain, mailname) != 1) {
        log_error("Unable to initialize quota settings for %s@%s", mailname.c_str(), domain.c_str());
        return -1;
    }
    return 0;
}

int mailname_mailbox_off(const std::string& mailname, const std::string& domain) {
    if (!names_given(mailname, domain))
        return -1;
    if (remove_mail_auth_user(mailname, domain) != 0)
        return -1;
    return remove_mailname_delivery(mailname, domain);
}
