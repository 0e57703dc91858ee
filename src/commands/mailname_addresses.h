// The addresses of a mail name as the session data tells them: its local
// parts (the mail name, then its aliases) at each of its domains (the
// domain, then its domain aliases). The authentication records and the
// handlers of a mailbox follow all of them.
#pragma once

#include <string>
#include <vector>

namespace crelm::mail::sorvane_commands {

// The domain aliases of domain from the session, in the session's order
// (none when the session describes another domain). 0, or -1 after logging
// "Unable to get domain aliases for domain <domain>".
int session_domain_aliases(const std::string& domain, std::vector<std::string>& aliases);

// The aliases of mailname@domain from the session (none when the mail is
// unknown). 0, or -1 after logging "Unable to get aliases for mailname
// <mailname>@<domain>".
int session_mail_aliases(const std::string& mailname, const std::string& domain, std::vector<std::string>& aliases);

struct MailnameAddresses {
    std::vector<std::string> local_parts;  // the mail name first
    std::vector<std::string> domains;      // the domain first

    // "<local part>@<domain>" for every pair, domain by domain.
    std::vector<std::string> all() const;
};

// Fills addresses for mailname@domain. 0, or -1 when a session query failed
// (logged; the mail name and the domain are there in any case).
int mailname_addresses(const std::string& mailname, const std::string& domain, MailnameAddresses& addresses);

// "<local part>@<domain>".
std::string mail_address(const std::string& local_part, const std::string& domain);

}  // namespace crelm::mail::sorvane_commands
