#include "commands/domain_auth_callers.h"

#include <syslog.h>

#include <optional>

#include "runtime/log.h"
#include "session/session_queries.h"
#include "stores/mail_auth_store.h"

namespace crelm::mail::sorvane_commands {
namespace {

// The mail aliases of every session mail name of parent, removed at domain.
// Sets removed when at least one removal was attempted.
int remove_mail_aliases_at(const std::string& domain, const std::string& parent, bool& removed) {
    SessionNameList mailnames;
    if (get_mailnames_by_domain(parent, mailnames) != 0) {
        log_message(LOG_ERR, "Unable to get mailnames from domain %s", parent.c_str());
        return -1;
    }
    int result = 0;
    for (const std::string& mailname : mailnames.value_or(std::vector<std::string>{})) {
        SessionNameList aliases;
        if (get_aliases_by_mailname(mailname, parent, aliases) != 0) {
            log_message(LOG_ERR, "Unable to get aliases for mailname %s@%s", mailname.c_str(), parent.c_str());
            result = -1;
            continue;
        }
        for (const std::string& alias : aliases.value_or(std::vector<std::string>{})) {
            removed = true;
            if (remove_mail_auth_user(alias, domain) != 0) {
                log_message(LOG_ERR, "Unable to remove mail alias %s@%s", alias.c_str(), domain.c_str());
                result = -1;
            }
        }
    }
    return result;
}

int clone_auth_record(const std::string& domain, const std::string& mailname, const std::string& alias_domain,
                      const std::string& name) {
    if (move_mail_auth_user(domain, mailname, alias_domain, name) == 0)
        return 0;
    log_message(LOG_ERR, "Unable to clone auth record for %s@%s", name.c_str(), alias_domain.c_str());
    return -1;
}

}  // namespace

int remove_domain_from_auth(const std::string& domain) {
    if (remove_mail_auth_domain(domain) != 0) {
        log_message(LOG_ERR, "Unable to remove domain %s from auth database", domain.c_str());
        return -1;
    }
    std::optional<std::string> parent;
    if (get_domain_by_domainalias(domain, parent) != 0) {
        log_message(LOG_ERR, "Unable to get domain by domain alias %s", domain.c_str());
        return -1;
    }
    if (!parent)
        return 0;
    bool removed = false;
    int result = remove_mail_aliases_at(domain, *parent, removed);
    // A user removal finds its domain's id the way every user write does,
    // entering the domain afresh when it has no row, and the alias's row is
    // gone already: delete it again so that nothing of the alias stays.
    if (removed && remove_mail_auth_domain(domain) != 0) {
        log_message(LOG_ERR, "Unable to remove domain %s from auth database", domain.c_str());
        result = -1;
    }
    return result;
}

int clone_domain_auth_to_alias(const std::string& domain, const std::string& alias_domain) {
    SessionNameList mailnames;
    if (get_mailnames_by_domain(domain, mailnames) != 0) {
        log_message(LOG_ERR, "Unable to get mailnames from domain %s", domain.c_str());
        return -1;
    }
    int result = 0;
    for (const std::string& mailname : mailnames.value_or(std::vector<std::string>{})) {
        SessionNameList aliases;
        if (get_aliases_by_mailname(mailname, domain, aliases) != 0) {
            log_message(LOG_ERR, "Unable to get mail aliases for %s@%s", mailname.c_str(), domain.c_str());
            result = -1;
        }
        for (const std::string& alias : aliases.value_or(std::vector<std::string>{}))
            result |= clone_auth_record(domain, mailname, alias_domain, alias);
        result |= clone_auth_record(domain, mailname, alias_domain, mailname);
    }
    return result;
}

}  // namespace crelm::mail::sorvane_commands
