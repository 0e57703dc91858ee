// The session's quotas written into the mailbox quota store.
#include <string>

#include "runtime/log.h"
#include "session/session_filled.h"
#include "session/session_queries.h"
#include "stores/mailbox_quota_db.h"

using crelm::mail::MailboxQuotaDb;
using crelm::mail::SessionMail;
using crelm::mail::SessionMailData;

int store_default_mbox_quota(std::string_view domain) {
    const SessionMailData* data = filled_session_or_report("store_default_mbox_quota");
    if (data == nullptr) {
        return 0;
    }
    if (!is_session_domain(*data, domain)) {
        const std::string requested(domain);
        log_message(3, "Session mail DB info is invalid, expected one for domain '%s', got '%s'", requested.c_str(),
                    data->domain_name != nullptr ? data->domain_name : "(null)");
        return 0;
    }
    MailboxQuotaDb store;
    const std::string domain_name(domain);
    for (const SessionMail& mail : data->mails) {
        const std::string mailname = mail.name != nullptr ? mail.name : "";
        if (!store.setQuota(domain_name, mailname, mail.mbox_quota)) {
            log_message(3, "Unable to set default mbox quota for domain '%s' (processing '%s')", domain_name.c_str(),
                        mailname.c_str());
            return 0;
        }
    }
    return 1;
}

int rm_mbox_quota(std::string_view domain, std::string_view mailname) {
    const SessionMailData* data = filled_session_or_report("rm_mbox_quota");
    if (data == nullptr) {
        return 0;
    }
    const std::string name(mailname);
    const SessionMail* mail = is_session_domain(*data, domain) ? find_session_mail(*data, mailname) : nullptr;
    if (mail == nullptr) {
        log_message(3, "Mailbox '%s' not found in session mail DB.", name.c_str());
    }
    return MailboxQuotaDb().setQuota(std::string(domain), name, mail != nullptr ? mail->mbox_quota : 0) ? 1 : 0;
}
