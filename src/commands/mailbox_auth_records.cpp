#include "commands/mailbox_auth_records.h"

#include "stores/mail_auth_store.h"

namespace crelm::mail::sorvane_commands {

int store_mailbox_password(const MailnameAddresses& addresses, const MailboxPassword& password) {
    int result = 0;
    for (const std::string& domain : addresses.domains)
        for (const std::string& local_part : addresses.local_parts)
            if (set_mail_auth_password(local_part, domain, password.text(), password.flags()) != 0)
                result = -1;
    return result;
}

int remove_mailbox_auth_records(const MailnameAddresses& addresses) {
    int result = 0;
    for (const std::string& domain : addresses.domains)
        for (const std::string& local_part : addresses.local_parts)
            if (remove_mail_auth_user(local_part, domain) != 0)
                result = -1;
    return result;
}

}  // namespace crelm::mail::sorvane_commands
