#include "commands/domain_alias_steps.h"

#include <syslog.h>

#include "commands/domain_auth_callers.h"
#include "commands/domain_key_steps.h"
#include "qmail/control_files.h"
#include "qmail/delivery.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"
#include "stores/mail_handlers_store.h"

namespace crelm::mail::sorvane_commands {

int rebuild_and_reload() {
    const int newu = qmail_newu();
    const int reload = reload_qmail_send();
    return newu != 0 || reload != 0 ? 1 : 0;
}

int add_domain_alias_steps(const std::string& domain, const std::string& alias, const NotexistingAction& action,
                           Reload reload) {
    bool failed = qmail_add_domain_alias(domain, alias) != 0;
    if (action.kind == kNotexistingReject)
        failed |= apply_notexisting_action(alias, kNotexistingReject, action.text) != 0;
    failed |= clone_domain_mail_handlers(domain, alias) != 0;
    if (reload == Reload::Yes)
        failed |= rebuild_and_reload() != 0;
    failed |= copy_domain_keys_step(domain, alias) != 0;
    failed |= clone_domain_auth_to_alias(domain, alias) != 0;
    return failed ? 1 : 0;
}

int remove_domain_alias_steps(const std::string& domain, const std::string& alias, Reload reload) {
    bool failed = qmail_remove_domain_alias(domain, alias) != 0;
    failed |= remove_domain_mail_handlers(alias) != 0;
    if (reload == Reload::Yes)
        failed |= rebuild_and_reload() != 0;
    failed |= remove_domain_keys_step(alias) != 0;
    if (remove_domain_from_auth(alias) != 0) {
        log_message(LOG_ERR, "Unable to remove domain aliases");
        return 1;
    }
    return failed ? 1 : 0;
}

}  // namespace crelm::mail::sorvane_commands
