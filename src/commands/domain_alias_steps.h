// Adding and removing one domain alias of a domain: the steps that
// --add-domain-alias and --del-domain-alias run for their alias, and that
// --turn-on-domain and --turn-off-domain run for each alias of the domain.
#pragma once

#include <string>

#include "commands/action_options.h"

namespace crelm::mail::sorvane_commands {

// Whether the step rebuilds the assignment table and reloads qmail-send
// itself; a command that changes several names does it once at its end.
enum class Reload { No, Yes };

// Puts alias into the qmail configuration as a name of domain (with the
// reject handling when action rejects), copies the domain's handlers, key
// directory and authentication records to it. Every step runs; 0, or 1 when
// any failed.
int add_domain_alias_steps(const std::string& domain, const std::string& alias, const NotexistingAction& action,
                           Reload reload);

// Takes alias out of the qmail configuration and removes its handlers, key
// directory and authentication records. Every step runs; 1 after logging
// "Unable to remove domain aliases" when the authentication step failed, 1
// when another failed, else 0.
int remove_domain_alias_steps(const std::string& domain, const std::string& alias, Reload reload);

// Runs qmail-newu and reloads qmail-send, both whatever the other gives. 0,
// or 1 when either failed.
int rebuild_and_reload();

}  // namespace crelm::mail::sorvane_commands
