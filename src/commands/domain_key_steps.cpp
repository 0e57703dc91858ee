#include "commands/domain_key_steps.h"

#include <syslog.h>

#include <exception>

#include "mailbox/domain_keys.h"
#include "runtime/log.h"

namespace crelm::mail::sorvane_commands {

int copy_domain_keys_step(const std::string& domain, const std::string& alias) {
    try {
        dkim::copyDomainKeys(domain, alias);
        return 0;
    } catch (const std::exception& error) {
        log_message(LOG_ERR, "Unable to copy domain keys from %s to %s: %s", domain.c_str(), alias.c_str(),
                    error.what());
        return -1;
    }
}

int remove_domain_keys_step(const std::string& domain) {
    try {
        dkim::removeDomainKeys(domain);
        return 0;
    } catch (const std::exception& error) {
        log_message(LOG_ERR, "Unable to remove domain keys of %s: %s", domain.c_str(), error.what());
        return -1;
    }
}

int rename_domain_keys_step(const std::string& old_domain, const std::string& new_domain) {
    return dkim::renameDomainKeysReport(old_domain, new_domain) ? 0 : -1;
}

}  // namespace crelm::mail::sorvane_commands
