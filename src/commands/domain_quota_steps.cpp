#include "commands/domain_quota_steps.h"

#include "mailbox/maildir_size.h"
#include "session/session_filled.h"
#include "session/session_mail_data.h"

namespace crelm::mail::sorvane_commands {

std::vector<MailboxQuota> session_mailbox_quotas(const std::string& domain) {
    std::vector<MailboxQuota> entries;
    const SessionMailData* data = existing_session_mail_data();
    if (data == nullptr || !is_session_domain(*data, domain))
        return entries;
    for (const SessionMail& mail : data->mails)
        if (mail.name != nullptr)
            entries.push_back({mail.name, mail.mbox_quota});
    return entries;
}

int write_maildir_quotas(const std::string& domain, const std::vector<MailboxQuota>& entries,
                         std::int64_t default_quota) {
    int result = 0;
    for (const MailboxQuota& entry : entries) {
        const std::int64_t quota = entry.quota >= 0 ? entry.quota : default_quota;
        if (!maildir_size(domain, entry.mailbox, quota))
            result = 1;
    }
    return result;
}

}  // namespace crelm::mail::sorvane_commands
