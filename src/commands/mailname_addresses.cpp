#include "commands/mailname_addresses.h"

#include <syslog.h>

#include "runtime/log.h"
#include "session/session_queries.h"

namespace crelm::mail::sorvane_commands {
namespace {

void append_list(const SessionNameList& list, std::vector<std::string>& out) {
    if (list)
        out.insert(out.end(), list->begin(), list->end());
}

}  // namespace

int session_domain_aliases(const std::string& domain, std::vector<std::string>& aliases) {
    SessionNameList list;
    if (get_domaliases_by_domain(domain, list) != 0) {
        log_message(LOG_ERR, "Unable to get domain aliases for domain %s", domain.c_str());
        return -1;
    }
    append_list(list, aliases);
    return 0;
}

int session_mail_aliases(const std::string& mailname, const std::string& domain, std::vector<std::string>& aliases) {
    SessionNameList list;
    if (get_aliases_by_mailname(mailname, domain, list) != 0) {
        log_message(LOG_ERR, "Unable to get aliases for mailname %s@%s", mailname.c_str(), domain.c_str());
        return -1;
    }
    append_list(list, aliases);
    return 0;
}

std::vector<std::string> MailnameAddresses::all() const {
    std::vector<std::string> addresses;
    for (const std::string& domain : domains)
        for (const std::string& local_part : local_parts)
            addresses.push_back(mail_address(local_part, domain));
    return addresses;
}

int mailname_addresses(const std::string& mailname, const std::string& domain, MailnameAddresses& addresses) {
    addresses.local_parts = {mailname};
    addresses.domains = {domain};
    const int aliases = session_mail_aliases(mailname, domain, addresses.local_parts);
    const int domain_aliases = session_domain_aliases(domain, addresses.domains);
    return aliases == 0 && domain_aliases == 0 ? 0 : -1;
}

std::string mail_address(const std::string& local_part, const std::string& domain) {
    return local_part + "@" + domain;
}

}  // namespace crelm::mail::sorvane_commands
