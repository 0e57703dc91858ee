// The refusal of the host's own names (localhost, the host's names, single
// labels, address literals) as mail domains and domain aliases, made before
// a command changes anything, so that locals keeps them and their mail
// stays the host's.
#pragma once

#include <string>

namespace crelm::mail::sorvane_commands {

// True, after logging "Unable to use domain %s: <reason>" at error priority
// (copied to standard error), when domain is one of the host's own names;
// the reasons are those of crelm::qmail::host_own_name_refusal.
bool refuse_host_domain(const std::string& domain);

// The same for a domain alias: "Unable to use domain alias %s: <reason>".
bool refuse_host_domain_alias(const std::string& alias);

}  // namespace crelm::mail::sorvane_commands
