// The authentication store steps of the domain and domain alias commands
// that read the session data: which mail names and mail aliases a domain
// has comes from the session, not from the store.
#pragma once

#include <string>

namespace crelm::mail::sorvane_commands {

// Deletes domain from the authentication store (its users go with it). When
// domain is a domain alias of the session's domain, the record of every mail
// alias of that domain's mail names at domain is removed as well. 0, or -1
// after logging "Unable to remove domain %s from auth database", "Unable to
// get domain by domain alias %s", "Unable to get mailnames from domain %s",
// "Unable to get aliases for mailname %s@%s" or "Unable to remove mail alias
// %s@%s" (the later removals still run).
int remove_domain_from_auth(const std::string& domain);

// Copies the authentication records of the session's mail names at domain to
// alias_domain: for each mail name, first its mail aliases (each a copy of
// the mail name's record under the alias's name), then the mail name itself.
// 0, or -1 after logging "Unable to get mailnames from domain %s", "Unable to
// get mail aliases for %s@%s" or "Unable to clone auth record for %s@%s"
// (the other copies still run).
int clone_domain_auth_to_alias(const std::string& domain, const std::string& alias_domain);

}  // namespace crelm::mail::sorvane_commands
