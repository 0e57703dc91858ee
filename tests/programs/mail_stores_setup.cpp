// Creates the three empty mail stores (mailbox quotas, mail handlers, mail
// authentication with its key file) as a freshly installed qmail server has
// them, for the real-mail-server suite's fresh servers.
//
//   mail_stores_setup
//
// Status 0, or 1 after the store's own message on standard error.
#include <cstdio>

#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"

int main() {
    if (!crelm::mail::MailboxQuotaDb().recreate(crelm::mail::KeepOwner::No)) {
        std::fputs("mail_stores_setup: the mailbox quota store could not be made\n", stderr);
        return 1;
    }
    set_mail_handlers_db_path(kDefaultMailHandlersDbPath);
    if (recreate_mail_handlers_db() != 0) {
        std::fputs("mail_stores_setup: the mail handlers store could not be made\n", stderr);
        return 1;
    }
    if (init_mail_auth_store(kMailServerQmail) != 0) {
        std::fputs("mail_stores_setup: the mail authentication store could not be made\n", stderr);
        return 1;
    }
    return 0;
}
